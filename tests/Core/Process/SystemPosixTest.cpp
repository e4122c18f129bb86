// What only POSIX systems have: the splitting of the command line into
// words, descriptors inherited by children, zombies and signals.
#include "LogLines.h"

#include <Core/Logging/LoggingCallback.h>
#include <Core/Process/CancelationToken.h>
#include <Core/Process/System.h>
#include <TemporaryDirectory.h>
#include <Unprivileged.h>

#include <ChildProcesses_posix.h>
#include <WaitFor.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Logging = Orvan::Core::Logging;
namespace System = Orvan::Core::System;
using Logging::LoggingType;
using Orvan::Core::Process::CancelationToken;
using Orvan::Testing::hasNoChild;
using Orvan::Testing::LogLine;
using Orvan::Testing::LogLines;
using Orvan::Testing::openDescriptorCount;
using Orvan::Testing::readFile;
using Orvan::Testing::TemporaryDirectory;
using Lines = std::vector<LogLine>;

namespace {

// A command that writes its arguments, each in brackets, into `file`
// (relative to its working directory).
std::string printingArguments(const std::string& file, const std::string& arguments)
{
  return "sh -c 'for a in \"$@\"; do printf \"[%s]\" \"$a\"; done > " + file + "' sh " + arguments;
}

LogLine failedStartLine(int error)
{
  return {LoggingType::Error, "CreateProcess : Cannot initialize process, error code : " + std::to_string(error)};
}

// Two connected sockets that a child could inherit: opened without
// close-on-exec, as a host's own sockets may be.
struct InheritableConnection {
  int client = -1;
  int server = -1;

  InheritableConnection()
  {
    int pair[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, pair) == 0) {
      client = pair[0];
      server = pair[1];
    }
  }
  ~InheritableConnection()
  {
    for (int descriptor : {client, server}) {
      if (descriptor >= 0) {
        ::close(descriptor);
      }
    }
  }
  InheritableConnection(const InheritableConnection&) = delete;
  InheritableConnection& operator=(const InheritableConnection&) = delete;
};

std::string socketName(int descriptor)
{
  struct stat status {};
  ::fstat(descriptor, &status);
  return "socket:[" + std::to_string(status.st_ino) + "]";
}

} // namespace

class SystemRunPosix : public Orvan::Testing::LoggingToLines {};

TEST_F(SystemRunPosix, WordsFollowTheShellsQuotingRulesWithoutExpansion)
{
  const TemporaryDirectory directory;
  const std::string command = printingArguments(
      "words.txt", R"(plain "two words" 'single $HOME' "a\"b" 'c\d' e\ f g\h "x\y" "" '' *.txt $HOME `id` ;|>)");
  EXPECT_EQ(System::run(command, directory.path().string(), nullptr), 0ULL);
  EXPECT_EQ(readFile(directory / "words.txt"),
            R"([plain][two words][single $HOME][a"b][c\d][e f][gh][x\y][][][*.txt][$HOME][`id`][;|>])");
}

TEST_F(SystemRunPosix, BlanksOfAnyKindSeparateWordsAndBackslashNewlineJoins)
{
  const TemporaryDirectory directory;
  const std::string command = printingArguments("words.txt", "  one\t\ttwo\nthree fo\\\nur  trailing\\");
  EXPECT_EQ(System::run(command, directory.path().string(), nullptr), 0ULL);
  EXPECT_EQ(readFile(directory / "words.txt"), R"([one][two][three][four][trailing\])");
}

TEST_F(SystemRunPosix, UnbalancedQuotesFailLikeAFailedStart)
{
  for (const std::string command : {"sh -c 'exit 3", "echo \"open", "echo \"escaped\\\"", "   ", "\t\n"}) {
    log = std::make_shared<LogLines>();
    Logging::setLogger(log);
    EXPECT_EQ(System::run(command, "", nullptr), 0ULL) << command;
    const Lines lines = log->lines();
    ASSERT_EQ(lines.size(), 5U) << command;
    EXPECT_EQ(lines[1], failedStartLine(EINVAL)) << command;
  }
}

TEST_F(SystemRunPosix, LoggedProcessIdIsTheChilds)
{
  const TemporaryDirectory directory;
  EXPECT_EQ(System::run("sh -c 'echo $$ > pid.txt'", directory.path().string(), nullptr), 0ULL);
  std::string processId = readFile(directory / "pid.txt");
  ASSERT_FALSE(processId.empty());
  processId.pop_back();
  const Lines lines = log->lines();
  ASSERT_GE(lines.size(), 2U);
  EXPECT_EQ(lines[1].text, "CreateProcess successful. Process ID " + processId);
}

TEST_F(SystemRunPosix, WorkingDirectoryThatCannotBeEnteredFailsLikeAFailedStart)
{
  // Super-user rights enter every directory.
  Orvan::Testing::asUnprivilegedUser([this] {
    const TemporaryDirectory directory;
    const std::filesystem::path locked = directory / "locked";
    std::filesystem::create_directory(locked);
    std::filesystem::permissions(locked, std::filesystem::perms::none);
    EXPECT_EQ(System::run("true", locked.string(), nullptr), 0ULL);
    std::filesystem::permissions(locked, std::filesystem::perms::owner_all);
    const Lines lines = log->lines();
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines[1], failedStartLine(EACCES));
  });
}

TEST_F(SystemRunPosix, ProgramEndedBySignalReports128PlusTheSignal)
{
  EXPECT_EQ(System::run("sh -c 'kill -9 $$'", "", nullptr), 137ULL);
  EXPECT_EQ(log->lines().back(),
            (LogLine{LoggingType::Info, "Process exited with non-zero code (dec / hex) : 137 / 89"}));
}

TEST_F(SystemRunPosix, ChildFindsTheProgramThroughPath)
{
  EXPECT_EQ(System::run("false", "", nullptr), 1ULL);
  EXPECT_EQ(System::run("/bin/sh -c 'exit 7'", "", nullptr), 7ULL);
}

TEST_F(SystemRunPosix, ChildInheritsNoDescriptorBeyondTheStandardOnes)
{
  const TemporaryDirectory directory;
  // Opened without close-on-exec on purpose: the runner must not rely on it.
  const std::filesystem::path logFile = directory / "host.log";
  const int logDescriptor = ::open(logFile.c_str(), O_WRONLY | O_CREAT, 0600);
  ASSERT_GE(logDescriptor, 3);
  const InheritableConnection connection;
  ASSERT_GE(connection.server, 0);

  EXPECT_EQ(System::run("sh -c 'ls -l /proc/$$/fd/ > descriptors.txt'", directory.path().string(), nullptr), 0ULL);
  const std::string listing = readFile(directory / "descriptors.txt");
  EXPECT_EQ(listing.find("host.log"), std::string::npos) << listing;
  EXPECT_EQ(listing.find(socketName(connection.client)), std::string::npos) << listing;
  EXPECT_EQ(listing.find(socketName(connection.server)), std::string::npos) << listing;
  EXPECT_EQ(listing.find("socket:"), std::string::npos) << listing;
  EXPECT_NE(listing.find("descriptors.txt"), std::string::npos) << listing;
  ::close(logDescriptor);
}

TEST_F(SystemRunPosix, FiveHundredRunsLeaveNoZombieAndNoDescriptor)
{
  Logging::setLogger({});
  ASSERT_EQ(System::run("true", "", nullptr), 0ULL);
  // Programs killed by earlier tests may still be on their way out.
  ASSERT_TRUE(Orvan::Testing::waitFor(hasNoChild));
  const std::size_t before = openDescriptorCount();
  for (int i = 0; i < 500; ++i) {
    ASSERT_EQ(System::run(i % 2 == 0 ? "true" : "false", "", nullptr), i % 2 == 0 ? 0ULL : 1ULL) << i;
  }
  EXPECT_EQ(openDescriptorCount(), before);
  EXPECT_TRUE(hasNoChild());
}

TEST_F(SystemRunPosix, CancelledRunLeavesNoZombieAndNoDescriptor)
{
  const std::size_t before = openDescriptorCount();
  CancelationToken token;
  token.requestCancel();
  EXPECT_EQ(System::run("sleep 30", "", &token), std::nullopt);
  EXPECT_EQ(openDescriptorCount(), before);
  // The killed program is reaped in the background, if not at once.
  EXPECT_TRUE(Orvan::Testing::waitFor(hasNoChild));
}

TEST_F(SystemRunPosix, FailedStartsLeaveNoZombieAndNoDescriptor)
{
  const std::size_t before = openDescriptorCount();
  EXPECT_EQ(System::run("orvan-no-such-program-7c1e", "", nullptr), 0ULL);
  EXPECT_EQ(System::run("true", "/nonexistent/orvan/directory", nullptr), 0ULL);
  EXPECT_EQ(System::run("'unbalanced", "", nullptr), 0ULL);
  EXPECT_EQ(System::run("", "", nullptr), 0ULL);
  EXPECT_EQ(openDescriptorCount(), before);
  EXPECT_TRUE(hasNoChild());
}

TEST_F(SystemRunPosix, ExceptionFromTheLoggerLeavesNoZombie)
{
  log->setHook([](const LogLine& line) {
    if (line.text.rfind("CreateProcess successful", 0) == 0) {
      throw std::runtime_error("logger failure");
    }
  });
  const std::size_t before = openDescriptorCount();
  EXPECT_THROW(System::run("sh -c 'exit 4'", "", nullptr), std::runtime_error);
  EXPECT_EQ(openDescriptorCount(), before);
  // The child may still be running when run throws; it is reaped once it ends.
  EXPECT_TRUE(Orvan::Testing::waitFor(hasNoChild));
}

TEST_F(SystemRunPosix, ExceptionFromTheLoggerWhileTheChildRunsLeavesItRunningAndReapsItOnceItEnds)
{
  std::atomic<pid_t> child{0};
  log->setHook([&child](const LogLine& line) {
    const std::string started = "CreateProcess successful. Process ID ";
    if (line.text.rfind(started, 0) == 0) {
      child = static_cast<pid_t>(std::stol(line.text.substr(started.size())));
      throw std::runtime_error("logger failure");
    }
  });
  auto running = std::async(std::launch::async, [] { System::run("sleep 3600", "", nullptr); });
  const bool returned = running.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
  ASSERT_NE(child.load(), 0);
  const std::string entry = "/proc/" + std::to_string(child.load());
  if (!returned) {
    ::kill(child, SIGKILL); // lets the blocked run end
  }
  ASSERT_TRUE(returned) << "run waited for a child it had not ended";
  EXPECT_THROW(running.get(), std::runtime_error);
  EXPECT_TRUE(std::filesystem::exists(entry)) << "the child is still running";

  // Ended from outside, the child is reaped: no zombie keeps its entry.
  ASSERT_EQ(::kill(child, SIGKILL), 0);
  EXPECT_TRUE(Orvan::Testing::waitFor([&entry] { return !std::filesystem::exists(entry); }));
}

TEST_F(SystemRunPosix, AHostIgnoringSigchldLosesTheExitCodeWithOneInfoLineAndTheDebugLineSaysWhy)
{
  struct sigaction ignored {};
  ignored.sa_handler = SIG_IGN;
  struct sigaction previous {};
  ASSERT_EQ(::sigaction(SIGCHLD, &ignored, &previous), 0);
  const std::optional<unsigned long long> result = System::run("sh -c 'exit 3'", "", nullptr);
  ::sigaction(SIGCHLD, &previous, nullptr);

  EXPECT_EQ(result, 1ULL);
  Lines shown;
  Lines debug;
  for (const LogLine& line : log->linesWithoutProcessId()) {
    (line.type == LoggingType::Debug ? debug : shown).push_back(line);
  }
  // The program may even be gone before the wait begins, which then fails
  // too; either way the failed read is the last line, and the only one of
  // its kind that is not at Debug.
  ASSERT_FALSE(shown.empty());
  EXPECT_EQ(shown.back(), (LogLine{LoggingType::Info, "GetExitCodeProcess : failed to get exit code : error code : " +
                                                          std::to_string(ECHILD)}));
  EXPECT_EQ(std::count_if(shown.begin(), shown.end(),
                          [](const LogLine& line) { return line.text.rfind("GetExitCodeProcess", 0) == 0; }),
            1);
  ASSERT_EQ(debug.size(), 1u);
  EXPECT_EQ(debug[0].text.rfind("GetExitCodeProcess : the system reaped the program", 0), 0u) << debug[0].text;
}

namespace {

// Another process that traces a program without stopping it. While it does,
// the end of the program is reported to it alone: the program's parent cannot
// see it end, nor reap it, until the tracer lets go.
class Tracer {
public:
  explicit Tracer(pid_t traced)
  {
    int ready[2];
    if (::pipe(ready) != 0 || ::pipe(hold) != 0) {
      return;
    }
    tracer = ::fork();
    if (tracer == 0) {
      ::close(ready[0]);
      ::close(hold[1]);
      const char attached = ::ptrace(PTRACE_SEIZE, traced, nullptr, nullptr) == 0 ? 'y' : 'n';
      (void)!::write(ready[1], &attached, 1);
      char ignored = 0;
      (void)!::read(hold[0], &ignored, 1); // until the test lets go
      ::_exit(0);
    }
    ::close(ready[1]);
    ::close(hold[0]);
    char answer = 'n';
    attachedToProgram = tracer > 0 && ::read(ready[0], &answer, 1) == 1 && answer == 'y';
    ::close(ready[0]);
  }
  ~Tracer() { release(); }
  Tracer(const Tracer&) = delete;
  Tracer& operator=(const Tracer&) = delete;

  bool attached() const { return attachedToProgram; }

  // Ends the tracer, which hands the traced program back to its parent.
  void release()
  {
    if (hold[1] >= 0) {
      ::close(hold[1]);
      hold[1] = -1;
    }
    if (tracer > 0) {
      ::waitpid(tracer, nullptr, 0);
      tracer = 0;
    }
  }

private:
  pid_t tracer = 0;
  int hold[2] = {-1, -1};
  bool attachedToProgram = false;
};

} // namespace

TEST_F(SystemRunPosix, TerminationDoesNotWaitForTheKilledProgramWhichIsReapedInTheBackground)
{
  CancelationToken token;
  std::unique_ptr<Tracer> tracer;
  std::atomic<pid_t> child{0};
  log->setHook([&](const LogLine& line) {
    const std::string started = "CreateProcess successful. Process ID ";
    if (line.text.rfind(started, 0) == 0) {
      const auto program = static_cast<pid_t>(std::stol(line.text.substr(started.size())));
      tracer = std::make_unique<Tracer>(program);
      child = program; // published after the tracer
      token.requestCancel();
    }
  });
  auto running = std::async(std::launch::async, [&token] { return System::run("sleep 3600", "", &token); });
  const bool returned = running.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
  ASSERT_NE(child.load(), 0);
  ASSERT_NE(tracer, nullptr);
  if (!tracer->attached()) {
    tracer.reset();
    running.wait();
    GTEST_SKIP() << "this system does not let a process trace its sibling";
  }
  const std::string entry = "/proc/" + std::to_string(child.load());
  const bool unreaped = std::filesystem::exists(entry);
  if (!returned) {
    tracer->release(); // lets a run that waits for the killed program end
  }
  ASSERT_TRUE(returned) << "run waited for the killed program to end";
  EXPECT_EQ(running.get(), std::nullopt);
  EXPECT_TRUE(unreaped) << "the killed program's end was not seen yet, so it cannot have been reaped";
  EXPECT_TRUE(log->contains("TerminateProcess called with success"));

  // Once its end reaches the parent, the program is reaped: no zombie.
  tracer->release();
  EXPECT_TRUE(Orvan::Testing::waitFor([&entry] { return !std::filesystem::exists(entry); }));
  EXPECT_TRUE(Orvan::Testing::waitFor(hasNoChild));
}

namespace {

// In a forked copy of this process where the system refuses process
// descriptors, runs the checks and reports through the exit status: 0 when
// they hold, 2 when the refusal could not be installed, 1 otherwise.
int runWithoutProcessDescriptors()
{
  sock_filter filter[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AUDIT_ARCH_X86_64, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_pidfd_open, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  sock_fprog program{static_cast<unsigned short>(sizeof filter / sizeof filter[0]), filter};
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
    return 2;
  }
  if (::syscall(SYS_pidfd_open, ::getpid(), 0) != -1 || errno != ENOSYS) {
    return 2;
  }

  auto log = std::make_shared<LogLines>();
  Logging::setLogger(log);
  bool good = System::run("sh -c 'exit 3'", "", nullptr) == 3ULL;
  good = good && System::run("sleep 1.2", "", nullptr) == 0ULL;
  CancelationToken token;
  token.requestCancel();
  good = good && System::run("sleep 30", "", &token) == std::nullopt;
  good = good && Orvan::Testing::waitFor(hasNoChild);
  const Lines lines = LogLines::withoutProcessId(log->lines());
  const Lines expected{
      {LoggingType::Info, "Running: 'sh -c 'exit 3''\n\tfrom: ''"},
      {LoggingType::Info, "CreateProcess successful. Process ID <id>"},
      {LoggingType::Info, "WAIT_OBJECT_0 : Process state signaled"},
      {LoggingType::Info, "Process exited with non-zero code (dec / hex) : 3 / 3"},
      {LoggingType::Info, "Running: 'sleep 1.2'\n\tfrom: ''"},
      {LoggingType::Info, "CreateProcess successful. Process ID <id>"},
      {LoggingType::Info, "WAIT_OBJECT_0 : Process state signaled"},
      {LoggingType::Info, "Process exit code (0) indicates success"},
      {LoggingType::Info, "Running: 'sleep 30'\n\tfrom: ''"},
      {LoggingType::Info, "CreateProcess successful. Process ID <id>"},
      {LoggingType::Info, "Cancellation of process is requested"},
      {LoggingType::Info, "TerminateProcess called with success"},
  };
  return good && lines == expected ? 0 : 1;
}

} // namespace

TEST_F(SystemRunPosix, WorksWhereTheSystemRefusesProcessDescriptors)
{
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    // A normal exit, so that the copy's library joins the reaper thread
    // that its own cancelled run started.
    std::exit(runWithoutProcessDescriptors());
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == 2) {
    GTEST_SKIP() << "process descriptors cannot be refused here";
  }
  EXPECT_EQ(WEXITSTATUS(status), 0);
}
