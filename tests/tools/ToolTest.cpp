// The orvan program, run as a user runs it.

#include "ChildProcesses_posix.h"
#include "RequiredProgram_posix.h"
#include "SilentListener_posix.h"
#include "TemporaryDirectory.h"
#include "ToolProcess.h"
#include "WaitFor.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace Orvan::Testing;
using std::chrono::steady_clock;

// The port a running `orvan serve` printed.
unsigned short servedPort(const ToolProcess& server)
{
  std::smatch match;
  const std::string output = server.output();
  if (!std::regex_search(output, match, std::regex("on 127\\.0\\.0\\.1:([0-9]+)"))) {
    return 0;
  }
  return static_cast<unsigned short>(std::stoi(match[1]));
}

// An `orvan serve` of `file`, stopped with Ctrl-C by the test.
class Server {
public:
  explicit Server(const std::filesystem::path& file, std::vector<std::string> extra = {})
  {
    std::vector<std::string> arguments{"serve", file.string(), "--port", "0"};
    arguments.insert(arguments.end(), extra.begin(), extra.end());
    process = std::make_unique<ToolProcess>(toolPath(), arguments);
    if (process->waitForOutput("Serving '")) {
      port = servedPort(*process);
    }
  }

  // Ctrl-C; the exit code.
  int stop()
  {
    process->signal(SIGINT);
    return process->wait();
  }

  std::string target(const std::string& name) const { return name + "@127.0.0.1:" + std::to_string(port); }

  std::unique_ptr<ToolProcess> process;
  unsigned short port = 0;
};

// Starts a fetch from a silent server, sends it `signals` once it has
// connected, and returns its exit code and how long it took to end after
// the first signal; the output directory must then be empty.
int interruptStalledFetch(const std::vector<int>& signals, steady_clock::duration& took)
{
  SilentListener server;
  TemporaryDirectory directory;
  ToolProcess fetch(toolPath(), {"fetch", server.target(), "-v", "-o", (directory / "out.bin").string()},
                    directory.path());
  EXPECT_TRUE(fetch.waitForError("Connected to: '"));
  // The transfer is under way: the partial file exists.
  EXPECT_TRUE(waitFor([&] { return std::filesystem::exists(directory / "out.bin.orvan-part"); }));
  const auto signalled = steady_clock::now();
  for (const int number : signals) {
    fetch.signal(number);
  }
  const int code = fetch.wait();
  took = steady_clock::now() - signalled;
  EXPECT_TRUE(std::filesystem::is_empty(directory.path())) << "a partial file was left behind";
  return code;
}

std::size_t count(const std::string& text, const std::string& part)
{
  std::size_t found = 0;
  for (auto position = text.find(part); position != std::string::npos; position = text.find(part, position + 1)) {
    ++found;
  }
  return found;
}

// Help and version.

TEST(OrvanHelp, EveryCommandHasHelp)
{
  const ToolResult main = runTool({"--help"});
  EXPECT_EQ(main.code, 0);
  EXPECT_NE(main.output.find("Commands:"), std::string::npos) << main.output;
  for (const std::string command : {"fetch", "serve", "run", "memory", "demo", "trace", "report"}) {
    const ToolResult help = runTool({command, "--help"});
    EXPECT_EQ(help.code, 0) << command;
    EXPECT_EQ(help.output.rfind("Usage: orvan " + command, 0), 0u) << help.output;
    EXPECT_EQ(help.error, "") << command;
    const ToolResult viaHelp = runTool({"help", command});
    EXPECT_EQ(viaHelp.code, 0) << command;
    EXPECT_EQ(viaHelp.output, help.output) << command;
  }
}

TEST(OrvanHelp, AnUnknownOptionIsNotCalledACommand)
{
  const ToolResult result = runTool({"--bogus"});
  EXPECT_EQ(result.code, 2);
  EXPECT_NE(result.error.find("unknown option '--bogus'"), std::string::npos) << result.error;
}

TEST(OrvanArguments, ShortOptionsCombineAndTakeTheirValueFromTheSameWord)
{
  TemporaryDirectory directory;
  writeFile(directory / "data.bin", "data");
  writeFile(directory / "copy.bin", "old");
  // -q -f -o copy.bin, in one word.
  const ToolResult fetched =
      runTool({"fetch", (directory / "data.bin").string(), "-qfo" + (directory / "copy.bin").string()});
  EXPECT_EQ(fetched.code, 0) << fetched.error;
  EXPECT_EQ(readFile(directory / "copy.bin"), "data");
  EXPECT_EQ(fetched.error, "");
}

TEST(OrvanHelp, VersionIsTheLibrarys)
{
  const ToolResult version = runTool({"--version"});
  EXPECT_EQ(version.code, 0);
  EXPECT_EQ(version.output, "orvan 7.6.3\n");
}

// Bad arguments.

TEST(OrvanArguments, BadArgumentsExitWithTwoAndSayWhy)
{
  TemporaryDirectory directory;
  writeFile(directory / "data.bin", "data");
  const std::string file = (directory / "data.bin").string();
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{}, "Usage: orvan"},
      {{"frobnicate"}, "unknown command 'frobnicate'"},
      {{"fetch"}, "missing TARGET"},
      {{"fetch", "a", "b"}, "one TARGET only"},
      {{"fetch", "a", "--bogus"}, "unknown option '--bogus'"},
      {{"fetch", "f@host:080"}, "Syntax error while parsing port number in: 'f@host:080'"},
      {{"fetch", "f@host:80&timeout="}, "does not match the <filename> nor"},
      {{"fetch", "a", "--timeout", "soon"}, "option '--timeout' takes a duration such as"},
      {{"fetch", "a", "-o"}, "option '-o' needs a value"},
      {{"fetch", "a", "--memory-period", "10"}, "needs '--log FILE'"},
      {{"serve"}, "missing FILE"},
      {{"serve", file, "--port", "65536"}, "option '--port' takes a whole number from 0 to 65535"},
      {{"memory", "--watch", "0"}, "at least 1ms"},
      {{"memory", "extra"}, "unexpected argument 'extra'"},
      {{"memory", "--count", "3"}, "needs '--watch TIME'"},
      {{"demo", "--size", "big"}, "option '--size' takes a whole number"},
  };
  for (const auto& [arguments, message] : cases) {
    const ToolResult result = runTool(arguments);
    std::string line;
    for (const auto& word : arguments) {
      line += word + " ";
    }
    EXPECT_EQ(result.code, 2) << line << "\n" << result.error;
    EXPECT_NE(result.error.find(message), std::string::npos) << line << "\n" << result.error;
    EXPECT_EQ(result.output, "") << line;
  }
}

// serve and fetch.

TEST(OrvanServeFetch, FetchedFileIsTheServedFileByteForByte)
{
  TemporaryDirectory directory;
  const std::string content = randomBytes(5 * 1024 * 1024 + 123, 7);
  writeFile(directory / "data.bin", content);
  std::filesystem::create_directory(directory / "out");

  Server server(directory / "data.bin");
  ASSERT_NE(server.port, 0) << server.process->output() << server.process->error();

  // Without -o the copy takes the descriptor's file name, in the current
  // directory.
  const ToolResult fetched = runTool({"fetch", server.target("data.bin")}, directory / "out");
  EXPECT_EQ(fetched.code, 0) << fetched.error;
  EXPECT_TRUE(readFile(directory / "out" / "data.bin") == content);
  // The summary: size, time and rate.
  EXPECT_TRUE(std::regex_search(fetched.error, std::regex("(^|\n)Fetched 5\\.0 MiB in [0-9.]+ m?s \\([0-9.]+ "
                                                          "(B|[KMG]iB)/s\\) to 'data\\.bin'\n")))
      << fetched.error;
  // Not a terminal: no bar, and the library's per-chunk lines are not shown.
  EXPECT_EQ(fetched.error.find('\r'), std::string::npos);
  EXPECT_EQ(fetched.error.find("Read: "), std::string::npos);
  EXPECT_EQ(fetched.output, "");

  // An existing file is kept unless --force.
  writeFile(directory / "out" / "data.bin", "older");
  const ToolResult refused = runTool({"fetch", server.target("data.bin")}, directory / "out");
  EXPECT_EQ(refused.code, 1);
  EXPECT_NE(refused.error.find("exists; use --force"), std::string::npos) << refused.error;
  EXPECT_EQ(readFile(directory / "out" / "data.bin"), "older");
  const ToolResult forced = runTool({"fetch", server.target("data.bin"), "--force"}, directory / "out");
  EXPECT_EQ(forced.code, 0) << forced.error;
  EXPECT_TRUE(readFile(directory / "out" / "data.bin") == content);

  EXPECT_EQ(server.stop(), 130);
  const std::string log = server.process->error();
  EXPECT_EQ(count(log, "Client '127.0.0.1:"), 2u) << log;
  EXPECT_EQ(count(log, "Sent " + std::to_string(content.size()) + " bytes to client '127.0.0.1:"), 2u) << log;
}

TEST(OrvanServeFetch, ServeBindsToAHostName)
{
  TemporaryDirectory directory;
  writeFile(directory / "data.bin", "by name");
  Server server(directory / "data.bin", {"--bind", "localhost"});
  ASSERT_NE(server.port, 0) << server.process->error();
  const ToolResult fetched = runTool({"fetch", "data.bin@localhost:" + std::to_string(server.port), "-o", "-"});
  EXPECT_EQ(fetched.code, 0) << fetched.error;
  EXPECT_EQ(fetched.output, "by name");
  EXPECT_EQ(server.stop(), 130);
}

TEST(OrvanServeFetch, SeveralClientsAtOnce)
{
  TemporaryDirectory directory;
  const std::string content = randomBytes(3 * 1024 * 1024, 11);
  writeFile(directory / "data.bin", content);
  Server server(directory / "data.bin", {"--max-clients", "2"});
  ASSERT_NE(server.port, 0);

  std::vector<std::unique_ptr<ToolProcess>> clients;
  for (int i = 0; i < 5; ++i) {
    clients.push_back(std::make_unique<ToolProcess>(
        toolPath(), std::vector<std::string>{"fetch", server.target("data.bin"), "-o",
                                             (directory / ("copy" + std::to_string(i))).string()}));
  }
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(clients[i]->wait(), 0) << clients[i]->error();
    EXPECT_TRUE(readFile(directory / ("copy" + std::to_string(i))) == content) << i;
  }
  EXPECT_EQ(server.stop(), 130);
  EXPECT_EQ(count(server.process->error(), "Sent "), 5u);
}

TEST(OrvanServeFetch, FetchToStandardOutputCarriesOnlyTheBytes)
{
  TemporaryDirectory directory;
  const std::string content = randomBytes(2 * 1024 * 1024 + 5, 3);
  writeFile(directory / "data.bin", content);
  Server server(directory / "data.bin");
  ASSERT_NE(server.port, 0);

  // The library writes a line per received chunk to standard output; none of
  // them may end up among the bytes.
  const ToolResult fetched = runTool({"fetch", server.target("data.bin"), "-o", "-"});
  EXPECT_EQ(fetched.code, 0) << fetched.error;
  EXPECT_EQ(fetched.output.size(), content.size());
  EXPECT_TRUE(fetched.output == content);
  EXPECT_EQ(server.stop(), 130);
}

TEST(OrvanServeFetch, ChunkLinesGoToTheLogFile)
{
  TemporaryDirectory directory;
  writeFile(directory / "data.bin", randomBytes(1024 * 1024, 5));
  Server server(directory / "data.bin");
  ASSERT_NE(server.port, 0);
  const auto log = directory / "fetch.log";
  const ToolResult fetched = runTool({"fetch", server.target("data.bin"), "-o", (directory / "copy").string(), "--log",
                                      log.string(), "--memory-period", "50ms"});
  EXPECT_EQ(fetched.code, 0) << fetched.error;
  const std::string text = readFile(log);
  EXPECT_NE(text.find("[VERBOSE]"), std::string::npos);
  EXPECT_NE(text.find("[DEBUG  ] ["), std::string::npos);
  EXPECT_NE(text.find(" b. from 127.0.0.1:" + std::to_string(server.port)), std::string::npos) << text;
  EXPECT_NE(text.find("[MEMORY] Virtual: "), std::string::npos);
  EXPECT_NE(text.find("Connected to: '" + server.target("data.bin") + "'."), std::string::npos);
  EXPECT_NE(text.find("===> Fetch '" + server.target("data.bin") + "'"), std::string::npos);
  EXPECT_EQ(server.stop(), 130);
}

// fetch from a server written by others.

TEST(OrvanSocat, FetchFromSocat)
{
  ORVAN_REQUIRE_PROGRAM(socat, "socat")
  TemporaryDirectory directory;
  const std::string content = randomBytes(3 * 1024 * 1024 + 17, 12345);
  writeFile(directory / "served.bin", content);
  const unsigned short port = freePort();
  ToolProcess server(socat, {"-u", "OPEN:" + (directory / "served.bin").string(),
                             "TCP-LISTEN:" + std::to_string(port) + ",bind=127.0.0.1,reuseaddr"});
  // Refused until socat listens: the timeout lets fetch retry meanwhile.
  const ToolResult fetched = runTool({"fetch", "served.bin@127.0.0.1:" + std::to_string(port) + "&timeout=30", "-o",
                                      (directory / "copy.bin").string()});
  EXPECT_EQ(fetched.code, 0) << fetched.error;
  EXPECT_TRUE(readFile(directory / "copy.bin") == content);
  EXPECT_EQ(server.wait(), 0);
}

TEST(OrvanSocat, SlowTransferShowsAPlainLineEveryFewSeconds)
{
  ORVAN_REQUIRE_PROGRAM(socat, "socat")
  TemporaryDirectory directory;
  const unsigned short port = freePort();
  // 100 kB a second for five seconds.
  ToolProcess server(socat, {"-U", "TCP-LISTEN:" + std::to_string(port) + ",bind=127.0.0.1,reuseaddr",
                             "SYSTEM:for i in 1 2 3 4 5; do head -c 100000 /dev/zero; sleep 1; done"});
  const ToolResult fetched = runTool(
      {"fetch", "slow.bin@127.0.0.1:" + std::to_string(port) + "&timeout=30", "-o", (directory / "slow.bin").string()});
  EXPECT_EQ(fetched.code, 0) << fetched.error;
  EXPECT_EQ(std::filesystem::file_size(directory / "slow.bin"), 500000u);
  // Standard error is a file here: plain lines, no bar.
  EXPECT_TRUE(std::regex_search(fetched.error, std::regex("(^|\n)slow\\.bin: [0-9.]+ KiB at [0-9.]+ [KM]?i?B/s\n")))
      << fetched.error;
  EXPECT_EQ(fetched.error.find('\r'), std::string::npos);
  EXPECT_EQ(server.wait(), 0);
}

// fetch failures.

TEST(OrvanFetch, RefusedTargetIsRetriedUntilTheTimeout)
{
  TemporaryDirectory directory;
  const std::string target = "nothing.bin@127.0.0.1:" + std::to_string(freePort()) + "&timeout=2";
  const auto started = steady_clock::now();
  // -v: the library's own lines about the attempts are shown too.
  const ToolResult fetched = runTool({"fetch", target, "-v"}, directory.path());
  const auto seconds = std::chrono::duration<double>(steady_clock::now() - started).count();
  EXPECT_EQ(fetched.code, 7);
  EXPECT_GE(seconds, 1.9);
  EXPECT_LT(seconds, 30.0);
  EXPECT_NE(fetched.error.find("[WARNING] Timeout reached while connecting to: '" + target + "'"), std::string::npos)
      << fetched.error;
  EXPECT_NE(fetched.error.find("[ERROR  ] Failed to connected to: '" + target + "'!"), std::string::npos);
  const std::string port = target.substr(target.find(':') + 1, target.find('&') - target.find(':') - 1);
  EXPECT_NE(
      fetched.error.find("orvan fetch: cannot connect to 127.0.0.1:" + port + " (nothing.bin): Connection refused\n"),
      std::string::npos)
      << fetched.error;
  // The library's own socket message, with its padding, is not shown.
  EXPECT_EQ(fetched.error.find('\0'), std::string::npos);
  // Nothing is left behind, not even a partial file.
  EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}

TEST(OrvanFetch, CtrlCCancelsTheRetries)
{
  TemporaryDirectory directory;
  const std::string target = "nothing.bin@127.0.0.1:" + std::to_string(freePort()) + "&timeout=600";
  ToolProcess fetch(toolPath(), {"fetch", target, "-v"}, directory.path());
  ASSERT_TRUE(fetch.waitForError("Connecting to: '" + target + "'..."));
  const auto started = steady_clock::now();
  fetch.signal(SIGINT);
  EXPECT_EQ(fetch.wait(), 130) << fetch.error();
  EXPECT_LT(steady_clock::now() - started, std::chrono::seconds(20));
  EXPECT_NE(fetch.error().find("Cancelled connection to: '" + target + "'"), std::string::npos) << fetch.error();
  EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}

TEST(OrvanFetch, IdleTimeoutEndsAStalledTransferWith124)
{
  SilentListener server;
  TemporaryDirectory directory;
  const auto started = steady_clock::now();
  const ToolResult result =
      runTool({"fetch", server.target(), "--idle-timeout", "1", "-o", (directory / "out.bin").string()});
  EXPECT_EQ(result.code, 124) << result.error;
  EXPECT_LT(steady_clock::now() - started, std::chrono::seconds(20));
  EXPECT_NE(result.error.find("timed out"), std::string::npos) << result.error;
  EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}

TEST(OrvanFetch, MaxTimeEndsAStalledTransferWith124)
{
  SilentListener server;
  TemporaryDirectory directory;
  const auto started = steady_clock::now();
  const ToolResult result =
      runTool({"fetch", server.target(), "--max-time", "1", "-o", (directory / "out.bin").string()});
  EXPECT_EQ(result.code, 124) << result.error;
  EXPECT_LT(steady_clock::now() - started, std::chrono::seconds(20));
  EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}

TEST(OrvanFetch, CtrlCEndsAStalledTransferWithinASecond)
{
  steady_clock::duration took{};
  EXPECT_EQ(interruptStalledFetch({SIGINT}, took), 130);
  EXPECT_LT(took, std::chrono::seconds(10)) << "within a second on an idle machine";
}

TEST(OrvanFetch, SigtermEndsAStalledTransferWith143)
{
  steady_clock::duration took{};
  EXPECT_EQ(interruptStalledFetch({SIGTERM}, took), 143);
}

TEST(OrvanFetch, TwoSignalsAtOnceLeaveNoPartialFile)
{
  steady_clock::duration took{};
  EXPECT_EQ(interruptStalledFetch({SIGINT, SIGINT}, took), 130);
}

TEST(OrvanFetch, AnUnknownHostGetsTheResolversOwnText)
{
  TemporaryDirectory directory;
  const ToolResult fetched = runTool({"fetch", "data.bin@no-such-host.invalid:4000"}, directory.path());
  EXPECT_EQ(fetched.code, 7);
  EXPECT_NE(fetched.error.find("orvan fetch: cannot resolve no-such-host.invalid (data.bin): "), std::string::npos)
      << fetched.error;
  EXPECT_EQ(fetched.error.find("getaddrinfo"), std::string::npos) << fetched.error;
}

TEST(OrvanFetch, BadTargetsGetASentence)
{
  const ToolResult huge = runTool({"fetch", "data.bin@127.0.0.1:99999999999"});
  EXPECT_EQ(huge.code, 2);
  EXPECT_NE(huge.error.find("the port or the timeout is too large"), std::string::npos) << huge.error;
  EXPECT_EQ(huge.error.find("stoi"), std::string::npos) << huge.error;
  const ToolResult empty = runTool({"fetch", ""});
  EXPECT_EQ(empty.code, 2);
  EXPECT_NE(empty.error.find("TARGET is empty"), std::string::npos) << empty.error;
  EXPECT_EQ(empty.error.find("CORE_ASSERT"), std::string::npos) << empty.error;
}

TEST(OrvanFetch, DevNullIsWrittenInPlaceWithoutForce)
{
  TemporaryDirectory directory;
  writeFile(directory / "data.bin", "data");
  const ToolResult fetched = runTool({"fetch", (directory / "data.bin").string(), "-o", "/dev/null"});
  EXPECT_EQ(fetched.code, 0) << fetched.error;
  EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
}

TEST(OrvanFetch, AFifoIsWrittenInPlace)
{
  TemporaryDirectory directory;
  writeFile(directory / "data.bin", "through the fifo");
  const auto fifo = directory / "fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  std::string received;
  std::thread reader([&] {
    std::ifstream input(fifo, std::ios::binary);
    received.assign(std::istreambuf_iterator<char>(input), {});
  });
  const ToolResult fetched = runTool({"fetch", (directory / "data.bin").string(), "-o", fifo.string()});
  reader.join();
  EXPECT_EQ(fetched.code, 0) << fetched.error;
  EXPECT_EQ(received, "through the fifo");
  EXPECT_TRUE(std::filesystem::is_fifo(fifo));
}

TEST(OrvanFetch, ASymbolicLinkIsWrittenThrough)
{
  TemporaryDirectory directory;
  writeFile(directory / "data.bin", "new");
  writeFile(directory / "target.bin", "old");
  std::filesystem::create_symlink("target.bin", directory / "link");
  const ToolResult fetched =
      runTool({"fetch", (directory / "data.bin").string(), "-o", (directory / "link").string(), "--force"});
  EXPECT_EQ(fetched.code, 0) << fetched.error;
  EXPECT_TRUE(std::filesystem::is_symlink(directory / "link"));
  EXPECT_EQ(readFile(directory / "target.bin"), "new");
  // A link to nothing yet creates its target.
  std::filesystem::create_symlink("later.bin", directory / "dangling");
  EXPECT_EQ(runTool({"fetch", (directory / "data.bin").string(), "-o", (directory / "dangling").string()}).code, 0);
  EXPECT_EQ(readFile(directory / "later.bin"), "new");
  EXPECT_TRUE(std::filesystem::is_symlink(directory / "dangling"));
}

TEST(OrvanFetch, MissingLocalFileFails)
{
  TemporaryDirectory directory;
  const ToolResult fetched = runTool({"fetch", (directory / "missing.bin").string(), "-o", "copy"}, directory.path());
  EXPECT_EQ(fetched.code, 1);
  EXPECT_EQ(fetched.error,
            "orvan fetch: cannot open '" + (directory / "missing.bin").string() + "': No such file or directory\n");
}

TEST(OrvanFetch, LocalFileIsCopied)
{
  TemporaryDirectory directory;
  const std::string content = randomBytes(1024 * 1024 + 1, 9);
  writeFile(directory / "local.bin", content);
  const ToolResult fetched = runTool({"fetch", (directory / "local.bin").string(), "-o", "copy"}, directory.path());
  EXPECT_EQ(fetched.code, 0) << fetched.error;
  EXPECT_TRUE(readFile(directory / "copy") == content);
}

// run.

TEST(OrvanRun, ExitCodesComeThrough)
{
  EXPECT_EQ(runTool({"run", "--", "true"}).code, 0);
  EXPECT_EQ(runTool({"run", "--", "false"}).code, 1);
  EXPECT_EQ(runTool({"run", "--", "sh", "-c", "exit 3"}).code, 3);
  EXPECT_EQ(runTool({"run", "sh", "-c", "exit 42"}).code, 42);
}

TEST(OrvanRun, WordsArriveAsTheyWereGiven)
{
  // Blanks, quotes of both kinds, backslashes and shell characters, none of
  // which a shell may expand or split.
  const std::vector<std::string> words{"a b", "it's", "say \"hi\"", "back\\slash", "$HOME", "*", ""};
  std::vector<std::string> arguments{"run",
                                     "--",
                                     "sh",
                                     "-c",
                                     "[ $# -eq 7 ] && [ \"$1\" = 'a b' ] && [ \"$2\" = \"it's\" ] && "
                                     "[ \"$3\" = 'say \"hi\"' ] && [ \"$4\" = 'back\\slash' ] && "
                                     "[ \"$5\" = '$HOME' ] && [ \"$6\" = '*' ] && [ -z \"$7\" ]",
                                     "check"};
  arguments.insert(arguments.end(), words.begin(), words.end());
  const ToolResult result = runTool(arguments);
  EXPECT_EQ(result.code, 0) << result.error;
}

TEST(OrvanRun, WorkingDirectory)
{
  TemporaryDirectory directory;
  const std::string path = std::filesystem::canonical(directory.path()).string();
  const ToolResult result = runTool({"run", "--cwd", path, "--", "sh", "-c", "[ \"$(pwd -P)\" = \"$1\" ]", "x", path});
  EXPECT_EQ(result.code, 0) << result.error;
}

TEST(OrvanRun, TimeoutTerminatesTheProgram)
{
  const auto started = steady_clock::now();
  const ToolResult result = runTool({"run", "--timeout", "1", "--", "sleep", "60"});
  EXPECT_EQ(result.code, 124);
  EXPECT_LT(steady_clock::now() - started, std::chrono::seconds(20));
  EXPECT_NE(result.error.find("timed out after 1 s"), std::string::npos) << result.error;
}

TEST(OrvanRun, TimeoutZeroMeansNoLimit)
{
  EXPECT_EQ(runTool({"run", "--timeout", "0", "--", "sh", "-c", "sleep 1; exit 5"}).code, 5);
}

TEST(OrvanRun, NothingOfTheProcessGroupOutlivesATimeout)
{
  TemporaryDirectory directory;
  const auto pidFile = directory / "pids";
  // The shell writes its own pid (the group's) before waiting on a child.
  const auto started = steady_clock::now();
  const ToolResult result =
      runTool({"run", "--timeout", "1", "--", "sh", "-c", "echo $$ > '" + pidFile.string() + "'; sleep 30; echo done"});
  EXPECT_EQ(result.code, 124);
  EXPECT_LT(steady_clock::now() - started, std::chrono::seconds(20));
  const pid_t group = static_cast<pid_t>(std::stol(readFile(pidFile)));
  EXPECT_FALSE(processOfGroupRuns(group)) << "a process of the group is still running";
  EXPECT_EQ(result.output.find("done"), std::string::npos);
}

TEST(OrvanRun, AProgramIgnoringTermIsKilledAfterKillAfter)
{
  const auto started = steady_clock::now();
  const ToolResult result =
      runTool({"run", "--timeout", "1", "--kill-after", "1", "--", "sh", "-c", "trap '' TERM; sleep 30"});
  EXPECT_EQ(result.code, 124);
  EXPECT_LT(steady_clock::now() - started, std::chrono::seconds(20));
}

TEST(OrvanRun, NotExecutableGives126)
{
  TemporaryDirectory directory;
  const auto script = directory / "script.sh";
  writeFile(script, "#!/bin/sh\nexit 0\n");
  const ToolResult result = runTool({"run", "--", script.string()});
  EXPECT_EQ(result.code, 126) << result.error;
}

TEST(OrvanRun, CtrlCTerminatesTheProgram)
{
  ToolProcess run(toolPath(), {"run", "--", "sh", "-c", "echo started $$ >&2; exec sleep 60"});
  ASSERT_TRUE(run.waitForError("started "));
  std::smatch match;
  const std::string error = run.error();
  ASSERT_TRUE(std::regex_search(error, match, std::regex("started ([0-9]+)")));
  const pid_t child = std::stoi(match[1]);
  run.signal(SIGINT);
  EXPECT_EQ(run.wait(), 130) << run.error();
  EXPECT_NE(run.error().find("cancelled; 'sh' was terminated"), std::string::npos) << run.error();
  // Terminated and reaped: the process is gone.
  EXPECT_NE(::kill(child, 0), 0);
}

TEST(OrvanRun, MissingProgram)
{
  const ToolResult result = runTool({"run", "--", "/nonexistent/program"});
  EXPECT_EQ(result.code, 127);
  EXPECT_NE(result.error.find("cannot start '/nonexistent/program': No such file or directory"), std::string::npos)
      << result.error;
}

TEST(OrvanRun, AProgramEndedByASignalGives128PlusTheSignal)
{
  EXPECT_EQ(runTool({"run", "--", "sh", "-c", "kill -TERM $$"}).code, 128 + SIGTERM);
}

// memory.

TEST(OrvanMemory, SampleLineAndTable)
{
  const ToolResult result = runTool({"memory"});
  EXPECT_EQ(result.code, 0) << result.error;
  EXPECT_TRUE(
      std::regex_search(result.output, std::regex("^\\[MEMORY\\] Virtual: [0-9 ]+[GMK]B\t[0-9 ]+[GMK]B\t[0-9 ]+[GMK]B\t"
                                                  "Physical:[0-9 ]+[GMK]B\t[0-9 ]+[GMK]B\t[0-9 ]+[GMK]B\n")))
      << result.output;
  EXPECT_NE(result.output.find("virtual (commit)"), std::string::npos);
  EXPECT_NE(result.output.find("physical"), std::string::npos);
  EXPECT_NE(result.output.find("this process"), std::string::npos);
}

TEST(OrvanMemory, CtrlCEndsAWatchWith130)
{
  ToolProcess memory(toolPath(), {"memory", "--watch", "50ms"});
  ASSERT_TRUE(memory.waitForOutput("[MEMORY] Virtual: "));
  memory.signal(SIGINT);
  EXPECT_EQ(memory.wait(), 130);
}

TEST(OrvanMemory, WatchTakesTheAskedNumberOfSamples)
{
  const ToolResult result = runTool({"memory", "--watch", "20ms", "--count", "3"});
  EXPECT_EQ(result.code, 0) << result.error;
  EXPECT_EQ(count(result.output, "[MEMORY] Virtual: "), 3u) << result.output;
}

// demo.

TEST(OrvanDemo, EveryStepSucceeds)
{
  const ToolResult result = runTool({"demo"}, {}, std::chrono::seconds(120));
  EXPECT_EQ(result.code, 0) << result.output << result.error;
  EXPECT_NE(result.output.find("All 6 steps did what they should."), std::string::npos) << result.output;
  std::smatch match;
  ASSERT_TRUE(std::regex_search(result.output, match, std::regex("Log file: '([^']+)'")));
  const std::filesystem::path log = match[1].str();
  const std::string text = readFile(log);
  EXPECT_NE(text.find("===> Demo"), std::string::npos);
  EXPECT_NE(text.find("[MEMORY] Virtual: "), std::string::npos);
  EXPECT_NE(text.find("TerminateProcess called with success"), std::string::npos);
  // The run drawn from its own log, beside it.
  ASSERT_TRUE(std::regex_search(result.output, match, std::regex("Trace [^\n]*: '([^']+)'")));
  EXPECT_EQ(match[1].str(), (log.parent_path() / "demo.trace.json").string());
  EXPECT_NE(readFile(match[1].str()).find("\"name\":\"Fetch the test file\""), std::string::npos);
  ASSERT_TRUE(std::regex_search(result.output, match, std::regex("Report [^\n]*: '([^']+)'")));
  EXPECT_EQ(match[1].str(), (log.parent_path() / "demo.html").string());
  EXPECT_NE(readFile(match[1].str()).find("data-name=\"Demo\""), std::string::npos);
  std::error_code ignored;
  std::filesystem::remove_all(log.parent_path(), ignored);
}

} // namespace
