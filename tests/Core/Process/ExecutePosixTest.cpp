// What only POSIX systems show of execute: signals, process groups, and the
// descriptors, threads and children left behind.
#include "ChildPrograms.h"

#include <ChildProcesses_posix.h>
#include <Core/Process/CancelationToken.h>
#include <Core/Process/Execute.h>
#include <TemporaryDirectory.h>
#include <WaitFor.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

using Orvan::Core::Process::CancelationToken;
using Orvan::Core::Process::execute;
using Orvan::Core::Process::ExecuteOptions;
using Orvan::Core::Process::ExecuteResult;
using Orvan::Core::Process::StreamMode;
using Orvan::Testing::hasNoChild;
using Orvan::Testing::openDescriptorCount;
using Orvan::Testing::TemporaryDirectory;
using Orvan::Testing::threadCount;
using Outcome = ExecuteResult::Outcome;
using namespace std::chrono_literals;

namespace {

ExecuteOptions shell(const std::string& script)
{
  ExecuteOptions options;
  options.arguments = {"sh", "-c", script};
  options.standardOutput = StreamMode::Capture;
  options.standardError = StreamMode::Capture;
  return options;
}

bool groupIsGone(pid_t group)
{
  return !Orvan::Testing::processOfGroupRuns(group);
}

// Runs `script` and cancels it once the script has written its process
// group's id into the file named by $ORVAN_READY; returns the result, the
// group's id and the time from the cancellation to the return.
ExecuteResult cancelWhenReady(const std::string& script, std::chrono::milliseconds grace, pid_t& group,
                              std::chrono::steady_clock::duration& sinceCancel)
{
  TemporaryDirectory directory;
  const std::filesystem::path ready = directory / "ready";
  CancelationToken token;
  ExecuteOptions options = shell(script);
  options.environment["ORVAN_READY"] = ready.string();
  options.token = &token;
  options.gracePeriod = grace;
  std::string written;
  std::chrono::steady_clock::time_point cancelled;
  std::thread canceller([&] {
    Orvan::Testing::waitFor([&] {
      written = std::filesystem::exists(ready) ? Orvan::Testing::readFile(ready) : std::string();
      return !written.empty() && written.back() == '\n';
    });
    cancelled = std::chrono::steady_clock::now();
    token.requestCancel();
  });
  ExecuteResult result = execute(options);
  const auto returned = std::chrono::steady_clock::now();
  canceller.join();
  sinceCancel = returned - cancelled;
  group = static_cast<pid_t>(std::atol(written.c_str()));
  return result;
}

} // namespace

TEST(ExecutePosix, AProgramEndedByASignalSaysWhich)
{
  const ExecuteResult result = execute(shell("kill -9 $$"));
  EXPECT_EQ(result.outcome, Outcome::Signalled);
  EXPECT_EQ(result.signal, SIGKILL);
}

TEST(ExecutePosix, AProgramThatIsNotExecutableDoesNotStartAndSaysWhy)
{
  TemporaryDirectory directory;
  const auto path = directory / "not-executable";
  Orvan::Testing::writeFile(path, "#!/bin/sh\nexit 0\n");
  ::chmod(path.c_str(), 0644);
  ExecuteOptions options;
  options.arguments = {path.string()};
  const ExecuteResult result = execute(options);
  EXPECT_EQ(result.outcome, Outcome::NotStarted);
  EXPECT_EQ(result.error, std::make_error_code(std::errc::permission_denied)) << result.error.message();
}

TEST(ExecutePosix, ACancellationEndsEveryProcessOfTheGroup)
{
  pid_t group = 0;
  std::chrono::steady_clock::duration sinceCancel{};
  const ExecuteResult result =
      cancelWhenReady("sleep 60 & sleep 60 & echo $$ > \"$ORVAN_READY\"; wait", 5s, group, sinceCancel);
  EXPECT_EQ(result.outcome, Outcome::Cancelled);
  ASSERT_GT(group, 0);
  EXPECT_TRUE(groupIsGone(group));
  EXPECT_LT(sinceCancel, 5s) << "the processes ended when asked, before the grace period was over";
  EXPECT_TRUE(hasNoChild());
}

TEST(ExecutePosix, AProcessThatIgnoresTermIsKilledAfterTheGracePeriod)
{
  pid_t group = 0;
  std::chrono::steady_clock::duration sinceCancel{};
  const ExecuteResult result =
      cancelWhenReady("sh -c 'trap \"\" TERM; echo $PPID > \"$ORVAN_READY\"; while :; do sleep 0.05; done' & wait",
                      700ms, group, sinceCancel);
  EXPECT_EQ(result.outcome, Outcome::Cancelled);
  ASSERT_GT(group, 0);
  EXPECT_TRUE(groupIsGone(group));
  EXPECT_GE(sinceCancel, 700ms) << "killed only once the grace period after the cancellation was over";
  EXPECT_TRUE(hasNoChild());
}

TEST(ExecutePosix, TheProgramInheritsOnlyTheStandardDescriptors)
{
  const ExecuteResult result = execute(shell("ls /proc/$$/fd"));
  EXPECT_EQ(result.standardOutput, "0\n1\n2\n");
}

TEST(ExecutePosix, AThousandRunsLeaveNoDescriptorThreadOrChild)
{
  const std::size_t descriptors = openDescriptorCount();
  const std::size_t threads = threadCount();
  for (int run = 0; run < 1000; ++run) {
    const ExecuteResult result = execute(shell("echo out; echo err >&2"));
    ASSERT_EQ(result.outcome, Outcome::Exited);
    ASSERT_EQ(result.standardOutput, "out\n");
    ASSERT_EQ(result.standardError, "err\n");
  }
  EXPECT_EQ(openDescriptorCount(), descriptors);
  EXPECT_EQ(threadCount(), threads);
  EXPECT_TRUE(hasNoChild());
}

namespace {

// Seconds, for the messages of the timing tests.
double seconds(std::chrono::steady_clock::duration duration)
{
  return std::chrono::duration<double>(duration).count();
}

// The script of a program that ends at once and leaves a process behind
// that holds its captured output for 8 s.
const char* const LEAVES_A_SLEEPER = "echo started; sleep 8 & exit 3";

} // namespace

TEST(ExecutePosix, TheOutputIsReadForTheDrainPeriodOnlyOnceTheProgramHasEnded)
{
  const auto start = std::chrono::steady_clock::now();
  const ExecuteResult result = execute(shell(LEAVES_A_SLEEPER));
  const auto took = std::chrono::steady_clock::now() - start;
  EXPECT_LT(took, 3s) << "took " << seconds(took) << " s: the sleeper held the run";
  EXPECT_EQ(result.outcome, Outcome::Exited);
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_EQ(result.standardOutput, "started\n");
  EXPECT_TRUE(result.outputCut);
  EXPECT_FALSE(result.descendantsEnded);
}

TEST(ExecutePosix, TheProgramsOwnStatusWinsOverALaterTimeLimit)
{
  ExecuteOptions options = shell(LEAVES_A_SLEEPER);
  options.drainPeriod = std::nullopt;
  options.timeLimit = 1s;
  const ExecuteResult result = execute(options);
  EXPECT_EQ(result.outcome, Outcome::Exited);
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_EQ(result.standardOutput, "started\n");
  EXPECT_TRUE(result.descendantsEnded);
  EXPECT_FALSE(result.outputCut) << "the sleeper was ended, which closed the output";
  EXPECT_LT(result.elapsed, 4s);
}

TEST(ExecutePosix, ADescendantThatLeftTheGroupDoesNotHoldTheRunOnceEndingIsOver)
{
  CancelationToken token;
  ExecuteOptions options = shell("setsid sleep 8 & exit 0");
  options.drainPeriod = std::nullopt;
  options.timeLimit = 500ms;
  options.token = &token;
  std::thread canceller([&token] {
    std::this_thread::sleep_for(700ms);
    token.requestCancel();
  });
  const auto start = std::chrono::steady_clock::now();
  const ExecuteResult result = execute(options);
  const auto took = std::chrono::steady_clock::now() - start;
  canceller.join();
  EXPECT_LT(took, 2500ms) << "took " << seconds(took) << " s";
  EXPECT_EQ(result.outcome, Outcome::Exited);
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_TRUE(result.outputCut);
}

namespace {

// Runs `script` with a time limit of 1 s below a subreaper that reaps
// nothing in its first five seconds (ExecuteUnderSlowReaper.cpp); returns
// what the run printed: the outcome and execute's elapsed milliseconds.
std::string executeUnderASlowReaper(const std::string& script)
{
  const std::string helper = (std::filesystem::path(Orvan::Testing::ChildPrograms::testChild()).parent_path() /
                              "Orvan_Core_Process_slow_reaper")
                                 .string();
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) {
    return "no pipe";
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
  std::vector<std::string> words = {helper, "1000", "sh", "-c", script};
  std::vector<char*> arguments;
  for (std::string& word : words) {
    arguments.push_back(word.data());
  }
  arguments.push_back(nullptr);
  pid_t pid = 0;
  const int spawned = posix_spawn(&pid, helper.c_str(), &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(ends[1]);
  // The line comes when execute returns: within 6 s whatever execute does,
  // since the subreaper reaps everything after five.
  std::string line;
  char buffer[256];
  pollfd readable{ends[0], POLLIN, 0};
  while (spawned == 0 && line.find('\n') == std::string::npos && ::poll(&readable, 1, 30000) > 0) {
    const ssize_t got = ::read(ends[0], buffer, sizeof buffer);
    if (got <= 0) {
      break;
    }
    line.append(buffer, static_cast<std::size_t>(got));
  }
  ::close(ends[0]);
  if (spawned == 0) {
    ::kill(pid, SIGKILL);
    int status = 0;
    ::waitpid(pid, &status, 0);
  }
  return line;
}

} // namespace

TEST(ExecutePosix, AKilledGroupWhoseOrphansAreReapedLateEndsTheRunAtOnce)
{
  // The group's processes stay zombies after the time limit has ended them:
  // the background sleep always, the foreground one when it outlives the
  // shell by a moment.
  for (const std::string script : {"sleep 10; echo no", "sleep 10 & sleep 10; echo no"}) {
    const std::string line = executeUnderASlowReaper(script);
    int outcome = -1;
    long long elapsed = -1;
    ASSERT_EQ(std::sscanf(line.c_str(), "%d %lld", &outcome, &elapsed), 2) << script << ": " << line;
    EXPECT_EQ(outcome, static_cast<int>(Outcome::TimedOut)) << script;
    // 1.1 s, with room for a loaded machine: the old wait lasted until the
    // subreaper reaped, 5 s.
    EXPECT_LE(elapsed, 1100 + 400) << script << ": ms from the start to the return";
  }
}
