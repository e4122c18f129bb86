#include "ChildPrograms.h"
#include "LogLines.h"

#include <Core/Logging/LoggingCallback.h>
#include <Core/Process/CancelationToken.h>
#include <Core/Process/System.h>
#include <TemporaryDirectory.h>
#include <WaitFor.h>

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace Logging = Orvan::Core::Logging;
namespace System = Orvan::Core::System;
namespace Children = Orvan::Testing::ChildPrograms;
using Logging::LoggingType;
using Orvan::Core::Process::CancelationToken;
using Orvan::Testing::LogLine;
using Orvan::Testing::LogLines;
using Orvan::Testing::TemporaryDirectory;
using Orvan::Testing::waitFor;
using Clock = std::chrono::steady_clock;
using Lines = std::vector<LogLine>;

namespace {

// A wait cycle lasts one second; a little less allows for coarse clocks.
constexpr std::chrono::milliseconds ONE_WAIT_CYCLE{950};

LogLine info(const std::string& text)
{
  return {LoggingType::Info, text};
}

LogLine warning(const std::string& text)
{
  return {LoggingType::Warning, text};
}

LogLine error(const std::string& text)
{
  return {LoggingType::Error, text};
}

LogLine running(const std::string& command, const std::string& directory = "")
{
  return info("Running: '" + command + "'\n\tfrom: '" + directory + "'");
}

const LogLine STARTED = info("CreateProcess successful. Process ID <id>");
const LogLine SIGNALED = info("WAIT_OBJECT_0 : Process state signaled");
const LogLine SUCCESS = info("Process exit code (0) indicates success");
const LogLine CANCELLATION = info("Cancellation of process is requested");
const LogLine TERMINATED = info("TerminateProcess called with success");

// What a run logs when its program cannot be started.
Lines failedStart(const std::string& command, const std::string& directory, unsigned long errorCode)
{
  const std::string invalidHandle = std::to_string(Children::invalidHandleError());
  return {running(command, directory),
          error("CreateProcess : Cannot initialize process, error code : " + std::to_string(errorCode)),
          error("GetExitCodeProcess failed : Cannot get exit code after CreateProcess. Error code : " + invalidHandle),
          warning("CloseHandle : Can not close correctly process handle. Risk of memory leak"),
          info("CloseHandle error code : " + invalidHandle)};
}

} // namespace

class SystemRun : public Orvan::Testing::LoggingToLines {};

TEST_F(SystemRun, ProgramEndingWithZeroGivesZero)
{
  const std::string command = Children::exitingWith(0);
  EXPECT_EQ(System::run(command, "", nullptr), 0ULL);
  EXPECT_EQ(log->linesWithoutProcessId(), (Lines{running(command), STARTED, SIGNALED, SUCCESS}));
}

TEST_F(SystemRun, ProgramEndingWithThreeGivesThree)
{
  const std::string command = Children::exitingWith(3);
  EXPECT_EQ(System::run(command, "", nullptr), 3ULL);
  EXPECT_EQ(log->linesWithoutProcessId(), (Lines{running(command), STARTED, SIGNALED,
                                                 info("Process exited with non-zero code (dec / hex) : 3 / 3")}));
}

TEST_F(SystemRun, ExitCodeIsLoggedInDecimalAndLowercaseHexadecimal)
{
  EXPECT_EQ(System::run(Children::exitingWith(254), "", nullptr), 254ULL);
  EXPECT_EQ(log->lines().back(), info("Process exited with non-zero code (dec / hex) : 254 / fe"));
}

TEST_F(SystemRun, ProcessIdentifierIsANumber)
{
  System::run(Children::exitingWith(0), "", nullptr);
  const Lines lines = log->lines();
  ASSERT_GE(lines.size(), 2U);
  const std::string prefix = "CreateProcess successful. Process ID ";
  ASSERT_EQ(lines[1].text.substr(0, prefix.size()), prefix);
  EXPECT_GT(std::stoull(lines[1].text.substr(prefix.size())), 0ULL);
}

TEST_F(SystemRun, MissingProgramGivesZeroWithTheErrorAndCloseFailureLines)
{
  const std::string command = Children::missing() + " --help";
  EXPECT_EQ(System::run(command, "", nullptr), 0ULL);
  EXPECT_EQ(log->lines(), failedStart(command, "", Children::programNotFoundError()));
}

TEST_F(SystemRun, EmptyCommandFailsLikeAFailedStart)
{
  EXPECT_EQ(System::run("", "", nullptr), 0ULL);
  EXPECT_EQ(log->lines(), failedStart("", "", Children::emptyCommandError()));
}

TEST_F(SystemRun, VeryLongCommandLineGivesZeroWithoutCrash)
{
  // 100,000 characters: one program and one long argument.
  const std::string command =
      Children::exitingWith(0) + " " + std::string(100000 - 1 - Children::exitingWith(0).size(), 'x');
  ASSERT_EQ(command.size(), 100000U);
  EXPECT_EQ(System::run(command, "", nullptr), 0ULL);
  const Lines lines = log->linesWithoutProcessId();
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.front(), running(command));
  if (Children::acceptsVeryLongCommandLines()) {
    EXPECT_EQ(lines, (Lines{running(command), STARTED, SIGNALED, SUCCESS}));
  } else {
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines[1].type, LoggingType::Error);
    EXPECT_EQ(lines[1].text.rfind("CreateProcess : Cannot initialize process, error code : ", 0), 0U);
  }
}

TEST_F(SystemRun, WorkingDirectoryIsTheChildsCurrentDirectory)
{
  const TemporaryDirectory directory;
  const std::string command = Children::writingItsDirectoryTo("where.txt");
  const std::string path = directory.path().string();
  EXPECT_EQ(System::run(command, path, nullptr), 0ULL);
  EXPECT_EQ(log->linesWithoutProcessId(), (Lines{running(command, path), STARTED, SIGNALED, SUCCESS}));
  const std::string written = Orvan::Testing::readFile(directory / "where.txt");
  EXPECT_NE(written.find(directory.path().filename().string()), std::string::npos) << written;
}

TEST_F(SystemRun, MissingWorkingDirectoryFailsLikeAFailedStart)
{
  const TemporaryDirectory directory;
  const std::string path = (directory / "absent").string();
  const std::string command = Children::exitingWith(0);
  EXPECT_EQ(System::run(command, path, nullptr), 0ULL);
  EXPECT_EQ(log->lines(), failedStart(command, path, Children::missingDirectoryError()));
}

TEST_F(SystemRun, WorkingDirectoryThatIsAFileFailsLikeAFailedStart)
{
  const TemporaryDirectory directory;
  Orvan::Testing::writeFile(directory / "plain.txt", "not a directory");
  const std::string path = (directory / "plain.txt").string();
  const std::string command = Children::exitingWith(0);
  EXPECT_EQ(System::run(command, path, nullptr), 0ULL);
  EXPECT_EQ(log->lines(), failedStart(command, path, Children::notADirectoryError()));
}

TEST_F(SystemRun, TokenCancelledBeforeTheCallStartsTheProgramThenTerminatesItAfterOneWaitCycle)
{
  CancelationToken token;
  token.requestCancel();
  const std::string command = Children::runningFor(std::chrono::seconds(20));
  const auto start = Clock::now();
  EXPECT_EQ(System::run(command, "", &token), std::nullopt);
  const auto elapsed = Clock::now() - start;
  EXPECT_EQ(log->linesWithoutProcessId(), (Lines{running(command), STARTED, CANCELLATION, TERMINATED}));
  EXPECT_GE(elapsed, ONE_WAIT_CYCLE);
  // Terminated, not waited for.
  EXPECT_LT(elapsed, std::chrono::seconds(20));
}

TEST_F(SystemRun, CancellationWinsOverAProgramThatHasJustEnded)
{
  CancelationToken token;
  // The program has ended and the cancellation is requested before the
  // first wait: the wait reports the end, then the token is read.
  log->setHook([&token](const LogLine& line) {
    const std::string prefix = "CreateProcess successful. Process ID ";
    if (line.text.rfind(prefix, 0) == 0) {
      ASSERT_TRUE(Children::waitUntilEnded(std::stoull(line.text.substr(prefix.size()))));
      token.requestCancel();
    }
  });
  const std::string command = Children::exitingWith(0);
  EXPECT_EQ(System::run(command, "", &token), std::nullopt);
  const Lines lines = log->linesWithoutProcessId();
  ASSERT_EQ(lines.size(), 5U);
  EXPECT_EQ(Lines(lines.begin(), lines.begin() + 4), (Lines{running(command), STARTED, SIGNALED, CANCELLATION}));
  // POSIX and Wine let a program that has ended be terminated; Windows
  // itself refuses, which is logged at Info too.
  EXPECT_EQ(lines[4].type, LoggingType::Info);
  EXPECT_TRUE(lines[4] == TERMINATED || lines[4].text.rfind("TerminateProcess failed : Error code : ", 0) == 0)
      << lines[4];
}

TEST_F(SystemRun, CancellationDuringTheRunIsSeenWithinAWaitCycle)
{
  CancelationToken token;
  const std::string command = Children::runningFor(std::chrono::seconds(30));
  std::optional<unsigned long long> result = 99;
  const auto start = Clock::now();
  std::thread runner([&] { result = System::run(command, "", &token); });
  EXPECT_TRUE(waitFor([this] { return log->lines().size() >= 2; }));
  token.requestCancel();
  runner.join();
  EXPECT_EQ(result, std::nullopt);
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(30));
  EXPECT_EQ(log->linesWithoutProcessId(), (Lines{running(command), STARTED, CANCELLATION, TERMINATED}));
}

TEST_F(SystemRun, ProgramRunningTwoAndAHalfSecondsTakesThreeWaitCycles)
{
  const std::string command = Children::runningFor(std::chrono::milliseconds(2500));
  const auto start = Clock::now();
  EXPECT_EQ(System::run(command, "", nullptr), 0ULL);
  // Two silent time-outs, then the end, reported once.
  EXPECT_GE(Clock::now() - start, 2 * ONE_WAIT_CYCLE);
  EXPECT_EQ(log->linesWithoutProcessId(), (Lines{running(command), STARTED, SIGNALED, SUCCESS}));
}

TEST_F(SystemRun, FourThreadsAtOnceEachGetTheirOwnResult)
{
  CancelationToken token;
  const std::array<std::string, 4> commands{Children::exitingWith(0), Children::exitingWith(3),
                                            Children::exitingWith(42), Children::runningFor(std::chrono::seconds(30))};
  std::array<std::optional<unsigned long long>, 4> results{99, 99, 99, 99};
  std::array<std::thread::id, 4> threadIds;
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < commands.size(); ++i) {
    threads.emplace_back([&, i] {
      threadIds[i] = std::this_thread::get_id();
      results[i] = System::run(commands[i], "", i == 3 ? &token : nullptr);
    });
  }
  for (std::size_t i = 0; i < 3; ++i) {
    threads[i].join();
  }
  token.requestCancel();
  threads[3].join();

  EXPECT_EQ(results[0], 0ULL);
  EXPECT_EQ(results[1], 3ULL);
  EXPECT_EQ(results[2], 42ULL);
  EXPECT_EQ(results[3], std::nullopt);
  EXPECT_EQ(LogLines::withoutProcessId(log->linesOf(threadIds[0])),
            (Lines{running(commands[0]), STARTED, SIGNALED, SUCCESS}));
  EXPECT_EQ(
      LogLines::withoutProcessId(log->linesOf(threadIds[1])),
      (Lines{running(commands[1]), STARTED, SIGNALED, info("Process exited with non-zero code (dec / hex) : 3 / 3")}));
  EXPECT_EQ(LogLines::withoutProcessId(log->linesOf(threadIds[2])),
            (Lines{running(commands[2]), STARTED, SIGNALED,
                   info("Process exited with non-zero code (dec / hex) : 42 / 2a")}));
  EXPECT_EQ(LogLines::withoutProcessId(log->linesOf(threadIds[3])),
            (Lines{running(commands[3]), STARTED, CANCELLATION, TERMINATED}));
}

TEST_F(SystemRun, RunsWithoutAnyLoggerOrCallback)
{
  Logging::setLogger({});
  EXPECT_EQ(System::run(Children::exitingWith(5), "", nullptr), 5ULL);
  EXPECT_EQ(System::run(Children::missing(), "", nullptr), 0ULL);
  EXPECT_TRUE(log->lines().empty());
}

TEST_F(SystemRun, LinesReachTheCallbackWhenNoLoggerIsInstalled)
{
  Logging::setLogger({});
  std::vector<std::string> texts;
  const auto guard = Logging::setLoggingCallback([&texts](const std::string& text) { texts.push_back(text); });
  EXPECT_EQ(System::run(Children::exitingWith(0), "", nullptr), 0ULL);
  ASSERT_EQ(texts.size(), 4U);
  EXPECT_EQ(texts[0].substr(0, 11), "[INFO   ] [");
  EXPECT_NE(texts[0].find("] Running: '" + Children::exitingWith(0) + "'\n\tfrom: ''\n"), std::string::npos);
  EXPECT_NE(texts[3].find("] Process exit code (0) indicates success\n"), std::string::npos);
}

TEST_F(SystemRun, ExceptionFromTheLoggerReachesTheCallerAfterTheHandleIsClosed)
{
  log->setHook([](const LogLine& line) {
    if (line.text.rfind("CreateProcess successful", 0) == 0) {
      throw std::runtime_error("logger failure");
    }
  });
  EXPECT_THROW(System::run(Children::exitingWith(0), "", nullptr), std::runtime_error);
  // The valid handle closes without a word.
  EXPECT_EQ(log->lines().size(), 2U);
}
