#include "ChildPrograms.h"

#include <Core/Process/Execute.h>
#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <windows.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

using Orvan::Core::Process::execute;
using Orvan::Core::Process::ExecuteOptions;
using Orvan::Core::Process::ExecuteResult;
using Orvan::Core::Process::StreamMode;
using Orvan::Testing::TemporaryDirectory;
using Outcome = ExecuteResult::Outcome;
using namespace std::chrono_literals;

namespace {

// A batch file in `directory` that hands all its arguments, as cmd.exe
// received them, to the tests' child program, which prints each in
// brackets.
std::filesystem::path forwardingBatchFile(const TemporaryDirectory& directory, const std::string& name)
{
  const std::filesystem::path path = directory / name;
  Orvan::Testing::writeFile(path, "@\"" + Orvan::Testing::ChildPrograms::testChild() + "\" args %*\r\n");
  return path;
}

ExecuteOptions runningBatch(const TemporaryDirectory& directory, const std::filesystem::path& batch,
                            const std::vector<std::string>& words)
{
  ExecuteOptions options;
  options.arguments = {batch.string()};
  options.arguments.insert(options.arguments.end(), words.begin(), words.end());
  options.workingDirectory = directory.path().string();
  options.standardOutput = StreamMode::Capture;
  options.standardError = StreamMode::Capture;
  return options;
}

// The processor time that this process has used so far, user and kernel.
std::chrono::microseconds processorTime()
{
  FILETIME creation{}, exit{}, kernel{}, user{};
  ::GetProcessTimes(::GetCurrentProcess(), &creation, &exit, &kernel, &user);
  const auto ticks = [](const FILETIME& time) {
    return (static_cast<unsigned long long>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
  };
  return std::chrono::microseconds((ticks(kernel) + ticks(user)) / 10);
}

} // namespace

TEST(ExecuteWindows, ABatchFilesArgumentsReachItUnchangedAndRunNothing)
{
  TemporaryDirectory directory;
  const std::filesystem::path batch = forwardingBatchFile(directory, "forward.bat");
  const std::vector<std::string> words = {"a&echo.X",
                                          "a&echo X > marker",
                                          "x\" & echo X > marker & \"",
                                          "\" | echo X > marker",
                                          "!OS!",
                                          "^",
                                          "^\"^",
                                          "|",
                                          "<",
                                          ">",
                                          "(",
                                          ")",
                                          "a b",
                                          "\"",
                                          "\"\"",
                                          "q\"uote",
                                          "back\\\"quote",
                                          "back\\\\\"quote",
                                          "C:\\dir\\",
                                          "two words\\\\",
                                          "\\",
                                          "",
                                          "plain",
                                          "\t",
                                          ",;="};
  for (const std::string& word : words) {
    const ExecuteResult result = execute(runningBatch(directory, batch, {word}));
    EXPECT_EQ(result.outcome, Outcome::Exited) << word << ": " << result.error.message();
    EXPECT_EQ(result.standardOutput, "[" + word + "]") << word << "\n" << result.standardError;
    EXPECT_FALSE(std::filesystem::exists(directory / "marker")) << word;
  }
  // All at once, one word each.
  const ExecuteResult result = execute(runningBatch(directory, batch, words));
  std::string expected;
  for (const std::string& word : words) {
    expected += "[" + word + "]";
  }
  EXPECT_EQ(result.standardOutput, expected);
  EXPECT_FALSE(std::filesystem::exists(directory / "marker"));
}

TEST(ExecuteWindows, ABatchFileIsKnownInAnyCaseAndWithTrailingDots)
{
  TemporaryDirectory directory;
  const std::filesystem::path batch = forwardingBatchFile(directory, "forward.cmd");
  ExecuteOptions options = runningBatch(directory, batch, {"a&echo X > marker"});
  options.arguments.front() = (directory / "FORWARD.CMD.").string();
  const ExecuteResult result = execute(options);
  EXPECT_TRUE(result.outcome == Outcome::NotStarted || result.standardOutput == "[a&echo X > marker]")
      << result.standardOutput;
  EXPECT_FALSE(std::filesystem::exists(directory / "marker"));
}

TEST(ExecuteWindows, ArgumentsThatCannotPassThroughCmdAreRefused)
{
  TemporaryDirectory directory;
  const std::filesystem::path batch = forwardingBatchFile(directory, "forward.bat");
  for (const std::string word : {"a\nb", "a\rb", "a\r\necho X > marker", "%OS%", "%PATH%", "%%OS%%", "%1", "100%",
                                 "x\" & echo %OS% > marker & \""}) {
    const ExecuteResult result = execute(runningBatch(directory, batch, {"plain", word}));
    EXPECT_EQ(result.outcome, Outcome::NotStarted) << word << ": " << result.standardOutput;
    EXPECT_EQ(result.error, std::make_error_code(std::errc::invalid_argument)) << word;
  }
  EXPECT_FALSE(std::filesystem::exists(directory / "marker"));
}

TEST(ExecuteWindows, AMissingBatchFileDoesNotStart)
{
  TemporaryDirectory directory;
  const ExecuteResult result = execute(runningBatch(directory, directory / "missing.bat", {"a"}));
  EXPECT_EQ(result.outcome, Outcome::NotStarted);
  EXPECT_EQ(result.error, std::make_error_code(std::errc::no_such_file_or_directory));
}

TEST(ExecuteWindows, WaitingForAQuietCapturedProgramTakesNoProcessorTime)
{
  ExecuteOptions options;
  options.arguments = {Orvan::Testing::ChildPrograms::testChild(), "sleep", "3000"};
  options.standardOutput = StreamMode::Capture;
  options.standardError = StreamMode::Capture;
  const auto before = processorTime();
  const ExecuteResult result = execute(options);
  const auto used = processorTime() - before;
  EXPECT_EQ(result.outcome, Outcome::Exited);
  std::printf("processor time while a captured program slept %lld ms: %lld us\n",
              static_cast<long long>(result.elapsed.count()), static_cast<long long>(used.count()));
  // Starting the program costs a little; waiting for it costs nothing.
  EXPECT_LT(used, 50ms);
}
