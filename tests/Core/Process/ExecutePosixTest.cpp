// What only POSIX systems show of execute: signals, process groups, and the
// descriptors, threads and children left behind.
#include <ChildProcesses_posix.h>
#include <Core/Process/CancelationToken.h>
#include <Core/Process/Execute.h>
#include <TemporaryDirectory.h>
#include <WaitFor.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

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
  return ::kill(-group, 0) != 0 && errno == ESRCH;
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
