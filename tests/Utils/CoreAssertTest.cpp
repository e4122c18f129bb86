#include <AssertRecorder.h>
#include <OutputCapture.h>
#include <Utils/CoreAssert.h>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

using Orvan::Testing::AssertRecorder;
using Orvan::Testing::OutputCapture;

namespace {

bool alwaysFalse()
{
  return false;
}

} // namespace

TEST(CoreAssert, PassingConditionReportsNothing)
{
  AssertRecorder recorder;
  CORE_ASSERT(1 + 1 == 2);
  EXPECT_TRUE(recorder.reports().empty());
}

TEST(CoreAssert, FailedConditionReportsItsSourceTextFileAndLine)
{
  AssertRecorder recorder;
  const int value = 3;
  // clang-format off
  const unsigned long long line = __LINE__; CORE_ASSERT(value  <   2);
  // clang-format on
  const auto reports = recorder.reports();
  ASSERT_EQ(reports.size(), 1u);
  // The preprocessor folds the blanks of the condition's text.
  EXPECT_EQ(reports[0].message, "CORE_ASSERT failed: 'value < 2'");
  EXPECT_EQ(reports[0].file, "tests/Utils/CoreAssertTest.cpp");
  EXPECT_EQ(reports[0].line, line);
}

TEST(CoreAssert, ConditionIsEvaluatedEveryTime)
{
  AssertRecorder recorder;
  for (int i = 0; i < 3; ++i) {
    CORE_ASSERT(alwaysFalse());
  }
  EXPECT_EQ(recorder.messages(), std::vector<std::string>(3, "CORE_ASSERT failed: 'alwaysFalse()'"));
}

TEST(CoreAssert, NeverComeHereKeepsTheLiteralsQuotes)
{
  AssertRecorder recorder;
  CORE_NEVER_COME_HERE("unreachable branch");
  EXPECT_EQ(recorder.messages(), std::vector<std::string>{"CORE_NEVER_COME_HERE triggered: '\"unreachable branch\"'"});
}

TEST(CoreAssert, SetAssertHandlerReturnsTheHandlerItReplaces)
{
  int firstCalls = 0;
  int secondCalls = 0;
  auto original =
      Orvan::CoreAssert::setAssertHandler([&](const std::string&, const char*, unsigned long long) { ++firstCalls; });
  auto first =
      Orvan::CoreAssert::setAssertHandler([&](const std::string&, const char*, unsigned long long) { ++secondCalls; });
  Orvan::CoreAssert::assertFailed("x", "f", 1);
  first("y", "g", 2);
  Orvan::CoreAssert::setAssertHandler(original);
  EXPECT_EQ(firstCalls, 1);
  EXPECT_EQ(secondCalls, 1);
}

TEST(CoreAssert, DefaultHandlerWritesFileLineAndMessageToStandardError)
{
  auto original = Orvan::CoreAssert::setAssertHandler(nullptr);
  OutputCapture standardError(2);
  OutputCapture standardOutput(1);
  Orvan::CoreAssert::assertFailed("CORE_ASSERT failed: 'x'", "src/a.cpp", 42);
  const std::string output = standardOutput.release();
  const std::string error = standardError.release();
  Orvan::CoreAssert::setAssertHandler(original);
  EXPECT_EQ(error, "src/a.cpp:42: CORE_ASSERT failed: 'x'\n");
  EXPECT_EQ(output, "");
}

TEST(CoreAssert, HandlerMayBeCalledFromManyThreads)
{
  AssertRecorder recorder;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 250; ++i) {
        CORE_ASSERT(alwaysFalse());
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(recorder.reports().size(), 1000u);
}
