#include "ChildPrograms.h"

#include <Core/Process/CancelationToken.h>
#include <Core/Process/Execute.h>
#include <TemporaryDirectory.h>
#include <WaitFor.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

using Orvan::Core::Process::CancelationToken;
using Orvan::Core::Process::execute;
using Orvan::Core::Process::ExecuteOptions;
using Orvan::Core::Process::ExecuteResult;
using Orvan::Core::Process::quoteWindowsCommandLine;
using Orvan::Core::Process::StreamMode;
using Orvan::Testing::TemporaryDirectory;
using Outcome = ExecuteResult::Outcome;
using namespace std::chrono_literals;

namespace {

ExecuteOptions child(std::vector<std::string> words)
{
  ExecuteOptions options;
  options.arguments = {Orvan::Testing::ChildPrograms::testChild()};
  options.arguments.insert(options.arguments.end(), words.begin(), words.end());
  return options;
}

ExecuteOptions capturing(std::vector<std::string> words)
{
  ExecuteOptions options = child(std::move(words));
  options.standardOutput = StreamMode::Capture;
  options.standardError = StreamMode::Capture;
  return options;
}

} // namespace

TEST(Execute, TheExitCodeComesBack)
{
  for (const int code : {0, 1, 7, 255}) {
    const ExecuteResult result = execute(child({"exit", std::to_string(code)}));
    EXPECT_EQ(result.outcome, Outcome::Exited);
    EXPECT_EQ(result.exitCode, code);
    EXPECT_FALSE(result.error);
  }
}

TEST(Execute, AMissingProgramDoesNotStartAndSaysWhy)
{
  ExecuteOptions options;
  options.arguments = {Orvan::Testing::ChildPrograms::missing()};
  const ExecuteResult result = execute(options);
  EXPECT_EQ(result.outcome, Outcome::NotStarted);
  EXPECT_EQ(result.error, std::make_error_code(std::errc::no_such_file_or_directory)) << result.error.message();
}

TEST(Execute, AMissingWorkingDirectoryDoesNotStartAndSaysWhy)
{
  TemporaryDirectory directory;
  ExecuteOptions options = child({"exit", "0"});
  options.workingDirectory = (directory / "missing").string();
  const ExecuteResult result = execute(options);
  EXPECT_EQ(result.outcome, Outcome::NotStarted);
  EXPECT_EQ(result.error, std::make_error_code(std::errc::not_a_directory));
}

TEST(Execute, OptionsThatCannotStartAnythingAreRefused)
{
  ExecuteOptions none;
  EXPECT_EQ(execute(none).error, std::make_error_code(std::errc::invalid_argument));
  ExecuteOptions nul = child({std::string("a\0b", 3)});
  EXPECT_EQ(execute(nul).error, std::make_error_code(std::errc::invalid_argument));
  ExecuteOptions input = child({"read"});
  input.standardInput = StreamMode::Capture;
  EXPECT_EQ(execute(input).error, std::make_error_code(std::errc::invalid_argument));
  ExecuteOptions variable = child({"exit", "0"});
  variable.environment["A=B"] = "c";
  EXPECT_EQ(execute(variable).error, std::make_error_code(std::errc::invalid_argument));
}

TEST(Execute, TenMebibytesOnBothStreamsAreCapturedWhole)
{
  constexpr std::size_t SIZE = 10 * 1024 * 1024;
  const ExecuteResult result = execute(capturing({"write", std::to_string(SIZE), std::to_string(SIZE)}));
  EXPECT_EQ(result.outcome, Outcome::Exited);
  EXPECT_EQ(result.standardOutput, std::string(SIZE, 'o'));
  EXPECT_EQ(result.standardError, std::string(SIZE, 'e'));
  EXPECT_FALSE(result.outputTruncated);
}

TEST(Execute, OutputBeyondTheLimitIsDroppedAndTheResultSaysSo)
{
  ExecuteOptions options = capturing({"write", "300000", "10"});
  options.captureLimit = 1000;
  const ExecuteResult result = execute(options);
  EXPECT_EQ(result.outcome, Outcome::Exited);
  EXPECT_EQ(result.standardOutput, std::string(1000, 'o'));
  EXPECT_EQ(result.standardError, std::string(10, 'e'));
  EXPECT_TRUE(result.outputTruncated);
}

TEST(Execute, DiscardedOutputIsNotKept)
{
  ExecuteOptions options = capturing({"write", "1000", "1000"});
  options.standardOutput = StreamMode::Discard;
  options.standardInput = StreamMode::Discard;
  const ExecuteResult result = execute(options);
  EXPECT_EQ(result.standardOutput, "");
  EXPECT_EQ(result.standardError, std::string(1000, 'e'));
}

TEST(Execute, ArgumentsArriveAsTheyStand)
{
  const std::vector<std::string> words = {"a b", "", "q\"uote", "back\\slash\\", "tab\there", "*", "$HOME", "%PATH%"};
  std::vector<std::string> arguments = {"args"};
  arguments.insert(arguments.end(), words.begin(), words.end());
  const ExecuteResult result = execute(capturing(arguments));
  std::string expected;
  for (const std::string& word : words) {
    expected += "[" + word + "]";
  }
  EXPECT_EQ(result.standardOutput, expected);
}

TEST(Execute, QuotingFollowsTheRuntimesRules)
{
  EXPECT_EQ(quoteWindowsCommandLine({"plain", "two words", ""}), "plain \"two words\" \"\"");
  EXPECT_EQ(quoteWindowsCommandLine({"a\"b"}), "\"a\\\"b\"");
  EXPECT_EQ(quoteWindowsCommandLine({"dir\\ with\\"}), "\"dir\\ with\\\\\"");
  EXPECT_EQ(quoteWindowsCommandLine({"back\\\"quote"}), "\"back\\\\\\\"quote\"");
  EXPECT_EQ(quoteWindowsCommandLine({"C:\\no\\quotes"}), "C:\\no\\quotes");
}

TEST(Execute, TheEnvironmentIsAddedToTheCallers)
{
  ExecuteOptions options = capturing({"env", "ORVAN_EXECUTE_VALUE"});
  options.environment["ORVAN_EXECUTE_VALUE"] = "forty two";
  EXPECT_EQ(execute(options).standardOutput, "forty two");
  ExecuteOptions inherited = capturing({"env", "PATH"});
  EXPECT_NE(execute(inherited).standardOutput, "<unset>");
}

TEST(Execute, TheWorkingDirectoryIsTheProgramsOwn)
{
  TemporaryDirectory directory;
  ExecuteOptions options = capturing({"cwd"});
  options.workingDirectory = directory.path().string();
  const ExecuteResult result = execute(options);
  ASSERT_EQ(result.outcome, Outcome::Exited);
  std::error_code error;
  EXPECT_TRUE(std::filesystem::equivalent(result.standardOutput, directory.path(), error)) << result.standardOutput;
}

TEST(Execute, TheTimeLimitEndsTheProgram)
{
  ExecuteOptions options = child({"sleep", "60000"});
  options.timeLimit = 200ms;
  const ExecuteResult result = execute(options);
  EXPECT_EQ(result.outcome, Outcome::TimedOut);
  EXPECT_GE(result.elapsed, 200ms);
  EXPECT_LT(result.elapsed, 20s);
}

TEST(Execute, TheMostNegativeTimeLimitEndsTheProgramAtOnce)
{
  ExecuteOptions options = child({"sleep", "60000"});
  options.timeLimit = std::chrono::milliseconds::min();
  options.drainPeriod = std::chrono::milliseconds::min();
  options.gracePeriod = std::chrono::milliseconds::min();
  const ExecuteResult result = execute(options);
  EXPECT_EQ(result.outcome, Outcome::TimedOut);
  EXPECT_LT(result.elapsed, 20s);
}

TEST(Execute, ACancellationEndsTheProgram)
{
  TemporaryDirectory directory;
  const std::filesystem::path started = directory / "started";
  CancelationToken token;
  ExecuteOptions options = child({"started", started.string(), "60000"});
  options.token = &token;
  // Cancelled once the program runs.
  std::thread canceller([&] {
    Orvan::Testing::waitFor([&] { return std::filesystem::exists(started); });
    token.requestCancel();
  });
  const ExecuteResult result = execute(options);
  canceller.join();
  EXPECT_EQ(result.outcome, Outcome::Cancelled);
  EXPECT_LT(result.elapsed, 20s);
}

TEST(Execute, AnAlreadyCancelledTokenEndsTheProgramAtOnce)
{
  CancelationToken token;
  token.requestCancel();
  ExecuteOptions options = child({"sleep", "60000"});
  options.token = &token;
  EXPECT_EQ(execute(options).outcome, Outcome::Cancelled);
}
