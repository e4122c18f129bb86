// `orvan fetch` in a real (pseudo-)terminal: the bar is drawn, fits the
// terminal and ends at 100%, and the summary line follows it.

#include "SilentListener_posix.h"
#include "TemporaryDirectory.h"
#include "ToolProcess.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <regex>
#include <string>
#include <vector>

namespace {

using namespace Orvan::Testing;

struct TerminalRun {
  int code = -1;
  std::string screen;
};

// Runs orvan with `arguments` in `directory`, on a terminal `columns` wide.
TerminalRun runInTerminal(const std::vector<std::string>& arguments, const std::filesystem::path& directory,
                          unsigned short columns = 100)
{
  std::vector<std::string> words{toolPath().string()};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) {
    argv.push_back(word.data());
  }
  argv.push_back(nullptr);
  const std::string where = directory.string();

  winsize size{};
  size.ws_row = 30;
  size.ws_col = columns;
  int terminal = -1;
  const pid_t child = ::forkpty(&terminal, nullptr, nullptr, &size);
  if (child == 0) {
    if (::chdir(where.c_str()) != 0) {
      ::_exit(126);
    }
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  TerminalRun run;
  if (child < 0) {
    ADD_FAILURE() << "forkpty failed: " << errno;
    return run;
  }
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  char buffer[4096];
  while (std::chrono::steady_clock::now() < deadline) {
    pollfd entry{terminal, POLLIN, 0};
    if (::poll(&entry, 1, 100) <= 0) {
      continue;
    }
    const ssize_t count = ::read(terminal, buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      break; // the program has ended and closed the terminal
    }
    run.screen.append(buffer, static_cast<std::size_t>(count));
  }
  int status = 0;
  if (std::chrono::steady_clock::now() >= deadline) {
    ::kill(child, SIGKILL);
  }
  ::waitpid(child, &status, 0);
  ::close(terminal);
  run.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

// Every state of the bar that was drawn, in order.
std::vector<std::string> bars(const std::string& screen)
{
  std::vector<std::string> found;
  const std::regex bar("[ 0-9]{3}% \\[[#-]+\\]|     \\[[ <=>]+\\]");
  std::string piece;
  for (const char character : screen + "\r") {
    if (character == '\r' || character == '\n') {
      if (std::regex_search(piece, bar)) {
        found.push_back(piece);
      }
      piece.clear();
    } else {
      piece += character;
    }
  }
  return found;
}

// The bar's last state is full, every state fits in `columns`, and the
// summary line gives the size, the time and the rate.
void expectBarEndsAtOneHundredPercent(const TerminalRun& run, std::size_t columns = 100)
{
  EXPECT_EQ(run.code, 0) << run.screen;
  const auto drawn = bars(run.screen);
  ASSERT_FALSE(drawn.empty()) << run.screen;
  const std::string& last = drawn.back();
  EXPECT_NE(last.find("100% [####"), std::string::npos) << last;
  EXPECT_EQ(last.find('-'), std::string::npos) << last;
  // Nothing else was written into the bar's line: no chunk line of the
  // library, and the bar fits the terminal without touching its last column.
  EXPECT_EQ(run.screen.find("Read: "), std::string::npos);
  for (const auto& state : drawn) {
    EXPECT_LT(state.size(), columns) << state;
  }
  EXPECT_TRUE(std::regex_search(
      run.screen,
      std::regex("\nFetched [0-9.]+ (B|[KMG]iB) in [0-9.]+ m?s \\([0-9.]+ (B|[KMG]iB)/s\\) to 'copy\\.bin'")))
      << run.screen;
}

// `orvan serve` of `file`, ended with Ctrl-C by the destructor.
class Server {
public:
  explicit Server(const std::filesystem::path& file)
      : process(toolPath(), {"serve", file.string(), "--port", "0"})
  {
    EXPECT_TRUE(process.waitForOutput("Serving '"));
    std::smatch match;
    const std::string banner = process.output();
    if (std::regex_search(banner, match, std::regex(":([0-9]+)\n"))) {
      target = file.filename().string() + "@127.0.0.1:" + match[1].str();
    }
  }

  ~Server()
  {
    process.signal(SIGINT);
    EXPECT_EQ(process.wait(), 130);
  }

  ToolProcess process;
  std::string target;
};

TEST(OrvanTerminal, RemoteFetchDrawsABarThatEndsAtOneHundredPercent)
{
  TemporaryDirectory directory;
  const std::string content = randomBytes(16 * 1024 * 1024, 21);
  writeFile(directory / "data.bin", content);
  Server server(directory / "data.bin");
  ASSERT_FALSE(server.target.empty());

  const TerminalRun run = runInTerminal({"fetch", server.target, "-o", "copy.bin"}, directory.path());
  expectBarEndsAtOneHundredPercent(run);
  EXPECT_TRUE(readFile(directory / "copy.bin") == content);
}

TEST(OrvanTerminal, LocalFetchDrawsABarThatEndsAtOneHundredPercent)
{
  TemporaryDirectory directory;
  const std::string content = randomBytes(16 * 1024 * 1024, 22);
  writeFile(directory / "data.bin", content);
  const TerminalRun run = runInTerminal({"fetch", "data.bin", "-o", "copy.bin"}, directory.path());
  expectBarEndsAtOneHundredPercent(run);
  EXPECT_TRUE(readFile(directory / "copy.bin") == content);
}

TEST(OrvanTerminal, LogLinesAreWrittenAboveTheBar)
{
  TemporaryDirectory directory;
  writeFile(directory / "data.bin", randomBytes(4 * 1024 * 1024, 23));
  const TerminalRun run = runInTerminal({"fetch", "data.bin", "-o", "copy.bin", "-vv"}, directory.path());
  expectBarEndsAtOneHundredPercent(run);
  // Each log line starts on a line of its own, never after a bar.
  EXPECT_NE(run.screen.find("[INFO   ] Opening 'data.bin'"), std::string::npos) << run.screen;
  EXPECT_EQ(run.screen.find("]  [INFO"), std::string::npos);
}

// A transfer that ends before the first reading of the progress still
// leaves a full bar, the remote one (of unknown size) as the local one.
TEST(OrvanTerminal, ATransferShorterThanOneReadingEndsWithAFullBar)
{
  TemporaryDirectory directory;
  writeFile(directory / "tiny.bin", "tiny");
  const TerminalRun local = runInTerminal({"fetch", "tiny.bin", "-o", "copy.bin"}, directory.path());
  expectBarEndsAtOneHundredPercent(local);

  Server server(directory / "tiny.bin");
  ASSERT_FALSE(server.target.empty());
  const TerminalRun remote = runInTerminal({"fetch", server.target, "-o", "copy.bin", "-f"}, directory.path());
  expectBarEndsAtOneHundredPercent(remote);
  EXPECT_EQ(readFile(directory / "copy.bin"), "tiny");
}

// Down to 20 columns the bar keeps its percentage and its cells, leaving out
// the name, the rate and the byte counts as they no longer fit.
TEST(OrvanTerminal, TheBarFitsANarrowTerminal)
{
  TemporaryDirectory directory;
  writeFile(directory / "a-rather-long-file-name.bin", randomBytes(4 * 1024 * 1024, 24));
  for (const unsigned short columns : {20, 32, 45, 60}) {
    const TerminalRun run =
        runInTerminal({"fetch", "a-rather-long-file-name.bin", "-o", "copy.bin", "-f"}, directory.path(), columns);
    expectBarEndsAtOneHundredPercent(run, columns);
  }

  Server server(directory / "a-rather-long-file-name.bin");
  ASSERT_FALSE(server.target.empty());
  const TerminalRun remote = runInTerminal({"fetch", server.target, "-o", "copy.bin", "-f"}, directory.path(), 20);
  expectBarEndsAtOneHundredPercent(remote, 20);
}

// A server that sends nothing: after a second the bar says so and counts the
// seconds; a pipe gets nothing of that.
TEST(OrvanTerminal, AStalledTransferSaysItWaitsForData)
{
  SilentListener server;
  ASSERT_TRUE(server.isReady());
  TemporaryDirectory directory;
  const TerminalRun run =
      runInTerminal({"fetch", server.target(), "-o", "out.bin", "--idle-timeout", "3.5"}, directory.path());
  EXPECT_EQ(run.code, 124) << run.screen;
  EXPECT_NE(run.screen.find("waiting for data (1 s)"), std::string::npos) << run.screen;
  EXPECT_NE(run.screen.find("waiting for data (2 s)"), std::string::npos) << run.screen;
  EXPECT_NE(run.screen.find("no data came for 3.5 s (--idle-timeout)"), std::string::npos) << run.screen;

  const ToolResult piped =
      runTool({"fetch", server.target(), "-o", "out.bin", "--idle-timeout", "2.5"}, directory.path());
  EXPECT_EQ(piped.code, 124) << piped.error;
  EXPECT_EQ(piped.error.find("waiting"), std::string::npos) << piped.error;
}

} // namespace
