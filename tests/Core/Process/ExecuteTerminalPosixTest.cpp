// Programs that use the caller's terminal, and stopped programs: run in a
// pseudo-terminal of their own, in a forked copy of the test whose
// controlling terminal it is.
#include <Core/Process/CancelationToken.h>
#include <Core/Process/Execute.h>
#include <TemporaryDirectory.h>
#include <WaitFor.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

using Orvan::Core::Process::CancelationToken;
using Orvan::Core::Process::execute;
using Orvan::Core::Process::ExecuteOptions;
using Orvan::Core::Process::ExecuteResult;
using Orvan::Core::Process::StreamMode;
using Outcome = ExecuteResult::Outcome;
using namespace std::chrono_literals;

namespace {

// Everything the terminal shows until `expected` appears or `deadline`
// passes.
std::string readUntil(int master, const std::string& expected, std::chrono::steady_clock::duration deadline)
{
  std::string shown;
  const auto end = std::chrono::steady_clock::now() + deadline;
  while (shown.find(expected) == std::string::npos) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    if (left <= 0ms) {
      break;
    }
    pollfd entry{master, POLLIN, 0};
    if (::poll(&entry, 1, static_cast<int>(left.count())) <= 0) {
      continue;
    }
    char buffer[256];
    const ssize_t got = ::read(master, buffer, sizeof buffer);
    if (got <= 0) {
      break; // every copy of the terminal's other side is closed
    }
    shown.append(buffer, static_cast<std::size_t>(got));
  }
  return shown;
}

} // namespace

TEST(ExecuteTerminal, AProgramReadsWhatIsTypedOnTheInheritedTerminalAndTheTerminalIsGivenBack)
{
  int master = -1;
  const pid_t copy = ::forkpty(&master, nullptr, nullptr, nullptr);
  ASSERT_GE(copy, 0) << "no pseudo-terminal: " << std::strerror(errno);
  if (copy == 0) {
    // The copy owns the terminal, as a shell's command does.
    ExecuteOptions options;
    options.arguments = {"sh", "-c", "read x; echo got $x"};
    options.timeLimit = 10s;
    const ExecuteResult result = execute(options);
    // Back in the foreground: a read from the terminal is not stopped.
    const bool foreground = ::tcgetpgrp(STDIN_FILENO) == ::getpgrp();
    ::_exit(result.outcome == Outcome::Exited && result.exitCode == 0 && foreground ? 0 : 1);
  }
  const std::string typed = "hello\n";
  ASSERT_EQ(::write(master, typed.data(), typed.size()), static_cast<ssize_t>(typed.size()));
  const std::string shown = readUntil(master, "got hello", 15s);
  int status = 0;
  ASSERT_EQ(::waitpid(copy, &status, 0), copy);
  ::close(master);
  EXPECT_NE(shown.find("got hello"), std::string::npos) << "the terminal showed: " << shown;
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
      << "the program ended well and the terminal came back (status " << status << ")";
}

TEST(ExecuteTerminal, ACancellationEndsAStoppedProgramWithinTheGracePeriod)
{
  // The program stops itself; a process of its group says so once it is
  // stopped and then runs on.
  const Orvan::Testing::TemporaryDirectory directory;
  const std::filesystem::path ready = directory / "ready";
  CancelationToken token;
  ExecuteOptions options;
  options.arguments = {"sh", "-c",
                       "(while [ \"$(cut -d' ' -f3 /proc/$$/stat)\" != T ]; do sleep 0.01; done; "
                       "echo stopped > \"$ORVAN_READY\"; exec sleep 60) & kill -STOP $$"};
  options.environment["ORVAN_READY"] = ready.string();
  options.token = &token;
  options.gracePeriod = 3s;
  std::chrono::steady_clock::time_point cancelled;
  std::thread canceller([&] {
    Orvan::Testing::waitFor([&] { return std::filesystem::exists(ready); });
    cancelled = std::chrono::steady_clock::now();
    token.requestCancel();
  });
  const ExecuteResult result = execute(options);
  const auto sinceCancel = std::chrono::steady_clock::now() - cancelled;
  canceller.join();
  EXPECT_EQ(result.outcome, Outcome::Cancelled);
  EXPECT_LT(sinceCancel, 2s) << "the stopped program ended when asked, not when killed after the grace period";
}
