// `orvan run` keeps the conventions of GNU timeout: its exit codes, its
// durations, its handling of SIGINT and SIGTERM, and nothing of the program's
// process group left behind. Where timeout is installed, the same cases run
// under both and must agree.

#include "RequiredProgram_posix.h"
#include "TemporaryDirectory.h"
#include "ToolProcess.h"
#include "WaitFor.h"

#include <gtest/gtest.h>

#include <signal.h>

#include <chrono>
#include <fstream>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace Orvan::Testing;
using std::chrono::steady_clock;

// Whether a process of `pid` still runs (a zombie does not count).
bool running(pid_t pid)
{
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string stat;
  if (::kill(pid, 0) != 0 || !std::getline(file, stat)) {
    return false;
  }
  const auto end = stat.rfind(')');
  return end != std::string::npos && end + 2 < stat.size() && stat[end + 2] != 'Z';
}

// The pids a shell wrote into `file`, once it has.
std::vector<pid_t> pidsIn(const std::filesystem::path& file)
{
  std::vector<pid_t> pids;
  const auto written = [&] {
    std::error_code ignored;
    return std::filesystem::exists(file, ignored) && readFile(file).find('\n') != std::string::npos;
  };
  if (!waitFor(written)) {
    return pids;
  }
  std::istringstream words(readFile(file));
  for (long pid = 0; words >> pid;) {
    pids.push_back(static_cast<pid_t>(pid));
  }
  return pids;
}

// A shell whose process group holds itself and a background sleep; it
// writes both pids into `file`.
std::vector<std::string> groupOfTwo(const std::filesystem::path& file)
{
  return {"sh", "-c", "sleep 60 & echo $$ $! > '" + file.string() + "'; wait"};
}

// A shell running a second one in the foreground, which becomes a sleep: a
// terminal's Ctrl-C reaches both (a background job would ignore it). Both
// pids go into `file`.
std::vector<std::string> foregroundPair(const std::filesystem::path& file)
{
  const std::string path = file.string();
  return {"sh", "-c",
          "echo $$ > '" + path + ".part'; sh -c 'echo $$ >> \"$0.part\" && mv \"$0.part\" \"$0\" && exec sleep 60' '" +
              path + "'"};
}

// orvan run, or GNU timeout, with a time limit and a command.
struct Runner {
  std::string name;
  std::filesystem::path program;
  std::vector<std::string> (*words)(const std::string& limit, const std::vector<std::string>& command);
};

std::vector<std::string> orvanWords(const std::string& limit, const std::vector<std::string>& command)
{
  std::vector<std::string> words{"run", "--timeout", limit, "--"};
  words.insert(words.end(), command.begin(), command.end());
  return words;
}

std::vector<std::string> timeoutWords(const std::string& limit, const std::vector<std::string>& command)
{
  std::vector<std::string> words{limit};
  words.insert(words.end(), command.begin(), command.end());
  return words;
}

std::vector<Runner> runners()
{
  std::vector<Runner> found{{"orvan run", toolPath(), orvanWords}};
  const std::filesystem::path timeout = findOnPath("timeout");
  if (!timeout.empty()) {
    found.push_back({"timeout", timeout, timeoutWords});
  }
  return found;
}

// Runs `command` under `runner`; sends `signal` once the command has written
// its pids into `pidFile` (when given); returns the exit code.
int runUnder(const Runner& runner, const std::string& limit, const std::vector<std::string>& command, int signal = 0,
             const std::filesystem::path& pidFile = {})
{
  ToolProcess process(runner.program, runner.words(limit, command));
  if (signal != 0) {
    EXPECT_FALSE(pidsIn(pidFile).empty()) << runner.name;
    process.signal(signal);
  }
  return process.wait();
}

TEST(OrvanRunLikeTimeout, ExitCodesAgree)
{
  TemporaryDirectory directory;
  writeFile(directory / "script.sh", "#!/bin/sh\nexit 0\n");
  const struct {
    const char* what;
    std::string limit;
    std::vector<std::string> command;
    int code;
  } cases[] = {
      {"success", "30", {"true"}, 0},
      {"the program's own code", "30", {"sh", "-c", "exit 3"}, 3},
      {"a timeout", "0.5", {"sleep", "30"}, 124},
      {"a fractional timeout with a unit", "0.3s", {"sleep", "30"}, 124},
      {"a timeout in minutes", "0.01m", {"sleep", "30"}, 124},
      {"a signal", "30", {"sh", "-c", "kill -TERM $$"}, 143},
      {"not found", "30", {(directory / "missing").string()}, 127},
      {"not executable", "30", {(directory / "script.sh").string()}, 126},
  };
  for (const Runner& runner : runners()) {
    for (const auto& test : cases) {
      const auto started = steady_clock::now();
      EXPECT_EQ(runUnder(runner, test.limit, test.command), test.code) << runner.name << ": " << test.what;
      EXPECT_LT(steady_clock::now() - started, std::chrono::seconds(20)) << runner.name << ": " << test.what;
    }
  }
}

TEST(OrvanRunLikeTimeout, SigintAndSigtermEndTheGroupWith130And143)
{
  for (const Runner& runner : runners()) {
    for (const int signal : {SIGINT, SIGTERM}) {
      TemporaryDirectory directory;
      const auto pidFile = directory / "pids";
      EXPECT_EQ(runUnder(runner, "60", foregroundPair(pidFile), signal, pidFile), 128 + signal) << runner.name;
      // GNU timeout itself exits at once, leaving its child, when the signal
      // comes before it has recorded the child's pid: a race of its own that
      // a loaded machine shows. The group is checked for orvan run alone.
      if (runner.program != toolPath()) {
        continue;
      }
      for (const pid_t pid : pidsIn(pidFile)) {
        EXPECT_TRUE(waitFor([&] { return !running(pid); })) << runner.name << ": " << pid << " still runs";
      }
    }
  }
}

TEST(OrvanRunLikeTimeout, NothingOfTheGroupOutlivesATimeout)
{
  for (const Runner& runner : runners()) {
    TemporaryDirectory directory;
    const auto pidFile = directory / "pids";
    EXPECT_EQ(runUnder(runner, "1.5", groupOfTwo(pidFile)), 124) << runner.name;
    const auto pids = pidsIn(pidFile);
    EXPECT_EQ(pids.size(), 2u) << runner.name;
    for (const pid_t pid : pids) {
      EXPECT_TRUE(waitFor([&] { return !running(pid); })) << runner.name << ": " << pid << " still runs";
    }
  }
}

// As the first process of a PID namespace (a container's init), the runner
// is the parent of every orphan: once the time limit has ended the group, it
// must reap the orphans itself, or wait for zombies for good.
TEST(OrvanRunLikeTimeout, AsAContainersFirstProcessATimeoutReturnsAtOnce)
{
  const std::filesystem::path unshare = findOnPath("unshare");
  if (unshare.empty()) {
    GTEST_SKIP() << "unshare is not installed";
  }
  // --kill-child ends the namespace with unshare, should the runner hang.
  const std::vector<std::string> namespaceWords{"--pid", "--kill-child"};
  {
    std::vector<std::string> probe = namespaceWords;
    probe.push_back("true");
    ToolProcess process(unshare, probe);
    if (process.wait(std::chrono::seconds(30)) != 0) {
      GTEST_SKIP() << "this machine refuses a new PID namespace: " << process.error();
    }
  }
  for (const Runner& runner : runners()) {
    std::vector<std::string> words = namespaceWords;
    words.push_back(runner.program.string());
    for (const std::string& word : runner.words("1", {"sh", "-c", "sleep 30 & sleep 30"})) {
      words.push_back(word);
    }
    const auto started = steady_clock::now();
    ToolProcess process(unshare, words);
    EXPECT_EQ(process.wait(std::chrono::seconds(20)), 124) << runner.name;
    const auto took = steady_clock::now() - started;
    // 1.2 s, with room for a loaded machine (and for starting unshare).
    EXPECT_LE(took, std::chrono::milliseconds(1200 + 400))
        << runner.name << ": " << std::chrono::duration<double>(took).count() << " s";
  }
}

// A second Ctrl-C ends the tool at once; the program's group, in a group of
// its own out of the terminal's reach, is killed first. Here the group
// outlives the first: its sleep ignores SIGTERM and the shell only notes it.
TEST(OrvanRun, ASecondCtrlCKillsTheProgramsGroup)
{
  TemporaryDirectory directory;
  const auto pidFile = directory / "pids";
  const auto termFile = directory / "term";
  ToolProcess run(toolPath(),
                  {"run", "--kill-after", "60", "--", "sh", "-c",
                   "trap 'echo > \"" + termFile.string() + "\"' TERM; (trap '' TERM; exec sleep 60) & echo $$ $! > '" +
                       pidFile.string() + "'; while :; do wait; done"});
  const auto pids = pidsIn(pidFile);
  ASSERT_EQ(pids.size(), 2u);
  // The first asks the group to end: the shell notes it, the sleep ignores
  // it, and both wait for --kill-after.
  run.signal(SIGINT);
  ASSERT_TRUE(waitFor([&] { return std::filesystem::exists(termFile); }));
  EXPECT_TRUE(running(pids[0]) && running(pids[1]));
  const auto signalled = steady_clock::now();
  run.signal(SIGINT);
  EXPECT_EQ(run.wait(), 130) << run.error();
  EXPECT_LT(steady_clock::now() - signalled, std::chrono::seconds(10));
  for (const pid_t pid : pids) {
    EXPECT_TRUE(waitFor([&] { return !running(pid); })) << pid << " still runs";
  }
}

TEST(OrvanRun, SigtermGives143AndSaysSo)
{
  TemporaryDirectory directory;
  const auto pidFile = directory / "pids";
  std::vector<std::string> words{"run", "--"};
  const auto command = foregroundPair(pidFile);
  words.insert(words.end(), command.begin(), command.end());
  ToolProcess run(toolPath(), words);
  ASSERT_FALSE(pidsIn(pidFile).empty());
  run.signal(SIGTERM);
  EXPECT_EQ(run.wait(), 143);
  EXPECT_EQ(run.error(), "orvan run: terminated; 'sh' was terminated\n");
}

TEST(OrvanRun, DurationsTakeFractionsAndUnits)
{
  for (const std::string limit : {"0.5", "1.5s", "250ms", "0.005m"}) {
    const auto started = steady_clock::now();
    const ToolResult result = runTool({"run", "--timeout", limit, "--kill-after", "0.5", "--", "sleep", "30"});
    EXPECT_EQ(result.code, 124) << limit << ": " << result.error;
    EXPECT_LT(steady_clock::now() - started, std::chrono::seconds(15)) << limit;
  }
  // Rounded up to the millisecond, never down to "no limit".
  EXPECT_EQ(runTool({"run", "--timeout", "0.0001", "--", "sleep", "30"}).code, 124);
  EXPECT_EQ(runTool({"memory", "--watch", "20ms", "--count", "2"}).code, 0);
  EXPECT_EQ(runTool({"memory", "--watch", "0.02", "--count", "2"}).code, 0);
  // A program ignoring SIGTERM is killed --kill-after later.
  const auto started = steady_clock::now();
  EXPECT_EQ(
      runTool({"run", "--timeout", "0.2", "--kill-after", "0.3s", "--", "sh", "-c", "trap '' TERM; sleep 30"}).code,
      124);
  EXPECT_LT(steady_clock::now() - started, std::chrono::seconds(15));
}

TEST(OrvanRun, EveryDurationOptionSaysItsFormsInItsHelp)
{
  for (const std::string command : {"run", "fetch", "memory"}) {
    const ToolResult help = runTool({command, "--help"});
    EXPECT_NE(help.output.find("TIME is a number of seconds, or a number with a unit: 0.5, 1.5s, 250ms, 2m,\n1h, 1d"),
              std::string::npos)
        << help.output;
    EXPECT_EQ(help.output.find(" MS "), std::string::npos) << help.output;
    EXPECT_EQ(help.output.find(" S "), std::string::npos) << help.output;
  }
  const ToolResult run = runTool({"run", "--help"});
  EXPECT_NE(run.output.find("125 when orvan run itself failed (a usage error included)"), std::string::npos)
      << run.output;
}

TEST(OrvanRun, ItsOwnFailuresAre125)
{
  TemporaryDirectory directory;
  EXPECT_EQ(runTool({"run", "--cwd", (directory / "missing").string(), "--", "true"}).code, 125);
  EXPECT_EQ(runTool({"run", "--bogus", "--", "true"}).code, 125);
  EXPECT_EQ(runTool({"run", "--timeout", "soon", "--", "true"}).code, 125);
  EXPECT_EQ(runTool({"run"}).code, 125);
  EXPECT_EQ(runTool({"run", "--log", (directory / "no" / "run.log").string(), "--", "true"}).code, 125);
  // The program's own 2 stays apart.
  EXPECT_EQ(runTool({"run", "--", "sh", "-c", "exit 2"}).code, 2);
}

TEST(OrvanRun, TheLogSaysWhatRanWhereAndHowItEnded)
{
  TemporaryDirectory directory;
  const auto log = directory / "run.log";
  const std::string where = std::filesystem::canonical(directory.path()).string();
  EXPECT_EQ(runTool({"run", "--log", log.string(), "--cwd", where, "--", "sh", "-c", "exit 3", "it's"}).code, 3);
  const std::string text = readFile(log);
  EXPECT_NE(text.find("[INFO   ] "), std::string::npos) << text;
  EXPECT_NE(text.find("Running sh -c 'exit 3' 'it'\\''s' in '" + where + "'"), std::string::npos) << text;
  EXPECT_TRUE(
      std::regex_search(text, std::regex("Ended: 'sh' exited with code 3 after [0-9.]+ m?s; orvan run exits with 3")))
      << text;

  const auto timedOut = directory / "timeout.log";
  EXPECT_EQ(runTool({"run", "--log", timedOut.string(), "--timeout", "0.2", "--", "sleep", "30"}).code, 124);
  EXPECT_NE(
      readFile(timedOut).find("Ended: 'sleep' timed out after 200 ms and was terminated; orvan run exits with 124"),
      std::string::npos)
      << readFile(timedOut);

  const auto signalled = directory / "signal.log";
  EXPECT_EQ(runTool({"run", "--log", signalled.string(), "--", "sh", "-c", "kill -KILL $$"}).code, 137);
  EXPECT_TRUE(std::regex_search(
      readFile(signalled), std::regex("Ended: 'sh' ended by signal 9 after [0-9.]+ m?s; orvan run exits with 137")))
      << readFile(signalled);

  const auto missing = directory / "missing.log";
  EXPECT_EQ(runTool({"run", "--log", missing.string(), "--", (directory / "nothing").string()}).code, 127);
  EXPECT_NE(readFile(missing).find("could not start: No such file or directory; orvan run exits with 127"),
            std::string::npos)
      << readFile(missing);
}

} // namespace
