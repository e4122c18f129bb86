#include <AssertRecorder.h>
#include <Core/Logging/LoggingCallback.h>
#include <Core/Logging/LoggingType.h>
#include <Core/Logging/WorkflowLogger.h>
#include <FacadeReset.h>
#include <RecordingLogger.h>

#include <gtest/gtest.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <regex>
#include <string>
#include <thread>
#include <vector>

using Orvan::Core::Logging::LoggingType;
using Orvan::Core::Logging::WorkflowLogger;
using Orvan::Testing::AssertRecorder;
using Orvan::Testing::RecordingLogger;
using Line = RecordingLogger::Line;

namespace {

// The elapsed text of the companion's chronometer: "12.345 ms" or "3.2 s".
const std::string ELAPSED = R"((\d+\.\d{3} ms|\d+\.\d s))";

// Checks each logged line against its level and a pattern in which "E"
// stands for an elapsed text (and tabs are literal).
void expectLines(const std::vector<Line>& lines, const std::vector<Line>& patterns)
{
  ASSERT_EQ(lines.size(), patterns.size());
  for (std::size_t i = 0; i < lines.size(); ++i) {
    std::string pattern;
    for (char c : patterns[i].second) {
      if (c == 'E') {
        pattern += ELAPSED;
      } else if (std::string("\\^$.|?*+()[]{}").find(c) != std::string::npos) {
        pattern += std::string("\\") + c;
      } else {
        pattern += c;
      }
    }
    EXPECT_EQ(lines[i].first, patterns[i].first) << "line " << i << ": " << lines[i].second;
    EXPECT_TRUE(std::regex_match(lines[i].second, std::regex(pattern)))
        << "line " << i << ": '" << lines[i].second << "' against '" << patterns[i].second << "'";
  }
}

// Runs `body` on a thread of its own and waits for it.
template<class Body>
void onNewThread(Body body)
{
  std::thread thread(body);
  thread.join();
}

// A step that is never closed: it makes up, on its thread, for a level that
// a test closed once too often, so that the thread's level is back to zero
// when it ends (a later thread may carry the same identifier).
void leaveStepOpenForGood(const std::string& name)
{
  static std::vector<WorkflowLogger*>* const kept = new std::vector<WorkflowLogger*>;
  static std::mutex mutex;
  const std::lock_guard lock(mutex);
  kept->push_back(new WorkflowLogger(name, true));
}

class WorkflowLoggerTest : public Orvan::Testing::FacadeReset {
protected:
  WorkflowLoggerTest() { Orvan::Core::Logging::setLogger(logger); }

  std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
};

} // namespace

// Runs first in this program, while no other thread has opened a step, so
// that its thread is surely unknown to the table.
TEST_F(WorkflowLoggerTest, TracingOnAThreadThatNeverOpenedAStepReportsBothChecksAndCarriesOn)
{
  AssertRecorder asserts;
  onNewThread([] {
    WorkflowLogger step("Step", true);
    onNewThread([&step] { step.traceIntermediate("elsewhere"); });
  });
  ASSERT_EQ(asserts.reports().size(), 2u);
  EXPECT_EQ(asserts.reports()[0].message, "CORE_ASSERT failed: 'indentations.find(thisId) != indentations.end()'");
  EXPECT_EQ(asserts.reports()[1].message, "CORE_ASSERT failed: 'indentations[thisId] != 0'");
  EXPECT_EQ(asserts.reports()[0].file, "src/Core/src/Core/Logging/WorkflowLogger.cpp");
  EXPECT_EQ(asserts.reports()[1].file, "src/Core/src/Core/Logging/WorkflowLogger.cpp");
  // The trace is logged all the same, with no indentation (its thread's
  // level is 0), and the step itself ends normally.
  expectLines(logger->lines(), {{LoggingType::Debug, "===> Step"},
                                {LoggingType::Info, "Step/elsewhere E"},
                                {LoggingType::Debug, "<=== Step E"}});
}

TEST_F(WorkflowLoggerTest, NestedStepsShowAsATree)
{
  onNewThread([] {
    WorkflowLogger load("Load", false);
    {
      WorkflowLogger parse("Parse", false);
      parse.traceIntermediate("half");
    }
  });
  expectLines(logger->lines(), {{LoggingType::Info, "===> Load"},
                                {LoggingType::Info, "\t===> Parse"},
                                {LoggingType::Info, "\t\tParse/half E"},
                                {LoggingType::Info, "\t<=== Parse E"},
                                {LoggingType::Info, "<=== Load E"}});
  EXPECT_EQ(logger->memoryRequestCount(), 5);
}

TEST_F(WorkflowLoggerTest, FirstStepOnAFreshThreadIsNotIndentedAndItsTracesCarryOneTab)
{
  onNewThread([] {
    WorkflowLogger step("Fetch", false);
    step.traceIntermediate("connected");
    step.traceIntermediate("received");
  });
  expectLines(logger->lines(), {{LoggingType::Info, "===> Fetch"},
                                {LoggingType::Info, "\tFetch/connected E"},
                                {LoggingType::Info, "\tFetch/received E"},
                                {LoggingType::Info, "<=== Fetch E"}});
}

TEST_F(WorkflowLoggerTest, TwoThreadsWithOverlappingStepsIndentIndependently)
{
  std::mutex mutex;
  std::condition_variable changed;
  int stage = 0;
  const auto waitStage = [&](int wanted) {
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] { return stage >= wanted; });
  };
  const auto setStage = [&](int next) {
    {
      const std::lock_guard lock(mutex);
      stage = next;
    }
    changed.notify_all();
  };

  // A opens, B opens while A is open, A traces, B traces, A closes, B closes.
  std::thread first([&] {
    {
      WorkflowLogger step("A", false);
      setStage(1);
      waitStage(2);
      step.traceIntermediate("a");
      setStage(3);
      waitStage(4);
    }
    setStage(5);
  });
  std::thread second([&] {
    waitStage(1);
    WorkflowLogger step("B", false);
    setStage(2);
    waitStage(3);
    step.traceIntermediate("b");
    setStage(4);
    waitStage(5);
  });
  first.join();
  second.join();

  expectLines(logger->lines(), {{LoggingType::Info, "===> A"},
                                {LoggingType::Info, "===> B"},
                                {LoggingType::Info, "\tA/a E"},
                                {LoggingType::Info, "\tB/b E"},
                                {LoggingType::Info, "<=== A E"},
                                {LoggingType::Info, "<=== B E"}});
}

TEST_F(WorkflowLoggerTest, DebugOnlyStepIsAtDebugLevelWithoutMemoryLinesButItsTracesAreNot)
{
  onNewThread([this] {
    WorkflowLogger step("Quiet", true);
    EXPECT_EQ(logger->memoryRequestCount(), 0);
    step.traceIntermediate("progress");
    EXPECT_EQ(logger->memoryRequestCount(), 1);
  });
  expectLines(logger->lines(), {{LoggingType::Debug, "===> Quiet"},
                                {LoggingType::Info, "\tQuiet/progress E"},
                                {LoggingType::Debug, "<=== Quiet E"}});
  EXPECT_EQ(logger->memoryRequestCount(), 1);
}

TEST_F(WorkflowLoggerTest, InfoStepAsksForAMemoryLineAfterEachOfItsLines)
{
  onNewThread([this] {
    WorkflowLogger step("Busy", false);
    EXPECT_EQ(logger->lines().size(), 1u);
    EXPECT_EQ(logger->memoryRequestCount(), 1);
  });
  EXPECT_EQ(logger->memoryRequestCount(), 2);
}

TEST_F(WorkflowLoggerTest, AfterAllStepsHaveEndedANewStepStartsWithoutIndentation)
{
  onNewThread([] {
    {
      WorkflowLogger outer("First", true);
      WorkflowLogger inner("Inner", true);
    }
    WorkflowLogger again("Second", true);
    again.traceIntermediate("t");
  });
  expectLines(logger->lines(), {{LoggingType::Debug, "===> First"},
                                {LoggingType::Debug, "\t===> Inner"},
                                {LoggingType::Debug, "\t<=== Inner E"},
                                {LoggingType::Debug, "<=== First E"},
                                {LoggingType::Debug, "===> Second"},
                                {LoggingType::Info, "\tSecond/t E"},
                                {LoggingType::Debug, "<=== Second E"}});
}

TEST_F(WorkflowLoggerTest, AThreadWhoseStepsHaveEndedKeepsItsEntryAtZero)
{
  AssertRecorder asserts;
  onNewThread([] {
    WorkflowLogger step("Step", true);
    onNewThread([&step] {
      {
        WorkflowLogger once("Once", true);
      }
      // The entry is there, with 0: only the level check fails.
      step.traceIntermediate("from a thread with no open step");
    });
  });
  EXPECT_EQ(asserts.messages(), std::vector<std::string>{"CORE_ASSERT failed: 'indentations[thisId] != 0'"});
  expectLines(logger->lines(), {{LoggingType::Debug, "===> Step"},
                                {LoggingType::Debug, "===> Once"},
                                {LoggingType::Debug, "<=== Once E"},
                                {LoggingType::Info, "Step/from a thread with no open step E"},
                                {LoggingType::Debug, "<=== Step E"}});
}

TEST_F(WorkflowLoggerTest, DestroyingACopyWritesASecondLeaveLineAndLowersTheLevelAgain)
{
  AssertRecorder asserts;
  onNewThread([] {
    WorkflowLogger outer("Outer", true);
    {
      WorkflowLogger inner("Inner", true);
      {
        WorkflowLogger copy(inner);
      }
      // One level lower than it would be without the copy.
      WorkflowLogger probe("Probe", true);
    }
    // The copy closed a level that the outer step opened: a step left open
    // makes up for it.
    leaveStepOpenForGood("Balance");
  });
  expectLines(logger->lines(), {{LoggingType::Debug, "===> Outer"},
                                {LoggingType::Debug, "\t===> Inner"},
                                {LoggingType::Debug, "\t<=== Inner E"},
                                {LoggingType::Debug, "\t===> Probe"},
                                {LoggingType::Debug, "\t<=== Probe E"},
                                {LoggingType::Debug, "<=== Inner E"},
                                {LoggingType::Debug, "===> Balance"},
                                {LoggingType::Debug, "<=== Outer E"}});
  EXPECT_TRUE(asserts.reports().empty());
}

TEST_F(WorkflowLoggerTest, EndingAStepBelowZeroIsReportedAndWrittenWithoutIndentation)
{
  AssertRecorder asserts;
  onNewThread([] {
    {
      WorkflowLogger step("Twice", true);
      WorkflowLogger copy(step);
    }
    // The level wrapped below zero; one more step brings it back to 0.
    leaveStepOpenForGood("Balance");
  });
  EXPECT_EQ(asserts.messages(), std::vector<std::string>{"CORE_ASSERT failed: 'indentations[thisId] != 0'"});
  const std::vector<Line> lines = logger->lines();
  ASSERT_EQ(lines.size(), 4u);
  expectLines(std::vector<Line>(lines.begin(), lines.begin() + 2),
              {{LoggingType::Debug, "===> Twice"}, {LoggingType::Debug, "<=== Twice E"}});
  EXPECT_TRUE(std::regex_match(lines[2].second, std::regex("<=== Twice " + ELAPSED))) << lines[2].second;
  EXPECT_EQ(lines[3].second, "===> Balance");
}

TEST_F(WorkflowLoggerTest, SeventyNestedStepsGetOneTabPerOpenStep)
{
  onNewThread([] {
    std::vector<std::unique_ptr<WorkflowLogger>> steps;
    for (int step = 1; step <= 70; ++step) {
      steps.push_back(std::make_unique<WorkflowLogger>("Step" + std::to_string(step), true));
    }
    while (!steps.empty()) {
      steps.pop_back();
    }
  });
  const std::vector<Line> lines = logger->lines();
  ASSERT_EQ(lines.size(), 140u);
  EXPECT_EQ(lines[69].second, std::string(69, '\t') + "===> Step70");
  EXPECT_TRUE(std::regex_match(lines[70].second, std::regex("\t{69}<=== Step70 " + ELAPSED))) << lines[70].second;
  EXPECT_TRUE(std::regex_match(lines[139].second, std::regex("<=== Step1 " + ELAPSED))) << lines[139].second;
}

TEST_F(WorkflowLoggerTest, CopyAssignmentCopiesNameAndStartInstant)
{
  onNewThread([] {
    WorkflowLogger first("First", true);
    WorkflowLogger second("Second", true);
    second = first;
    second.traceIntermediate("as first");
    // Both now end as "First"; the level of "Second" is closed by one of them.
  });
  expectLines(logger->lines(), {{LoggingType::Debug, "===> First"},
                                {LoggingType::Debug, "\t===> Second"},
                                {LoggingType::Info, "\t\tFirst/as first E"},
                                {LoggingType::Debug, "\t<=== First E"},
                                {LoggingType::Debug, "<=== First E"}});
}

TEST_F(WorkflowLoggerTest, LeaveLineHasOneBlankBeforeTheElapsedTimeEvenWithAnEmptyName)
{
  onNewThread([] {
    WorkflowLogger step("", false);
    step.traceIntermediate("");
  });
  expectLines(logger->lines(),
              {{LoggingType::Info, "===> "}, {LoggingType::Info, "\t/ E"}, {LoggingType::Info, "<===  E"}});
}

TEST_F(WorkflowLoggerTest, WithoutLoggerOrCallbackLinesAreDroppedAndNothingBreaks)
{
  Orvan::Core::Logging::setLogger({});
  onNewThread([] {
    WorkflowLogger step("Silent", false);
    step.traceIntermediate("nobody listens");
  });
  EXPECT_TRUE(logger->lines().empty());
  EXPECT_EQ(logger->memoryRequestCount(), 0);
}

TEST_F(WorkflowLoggerTest, ThroughTheCallbackLinesCarryTheLevelWordAndTheTabs)
{
  Orvan::Core::Logging::setLogger({});
  std::vector<std::string> texts;
  const auto guard = Orvan::Core::Logging::setLoggingCallback([&](const std::string& text) { texts.push_back(text); });
  onNewThread([] {
    WorkflowLogger outer("Outer", true);
    WorkflowLogger inner("Inner", false);
  });
  ASSERT_EQ(texts.size(), 4u);
  EXPECT_TRUE(std::regex_match(texts[0], std::regex(R"(\[DEBUG  \] \[ *\d+\] ===> Outer\n)"))) << texts[0];
  EXPECT_TRUE(std::regex_match(texts[1], std::regex(R"(\[INFO   \] \[ *\d+\] \t===> Inner\n)"))) << texts[1];
  EXPECT_TRUE(std::regex_match(texts[2], std::regex(R"(\[INFO   \] \[ *\d+\] \t<=== Inner )" + ELAPSED + "\n")))
      << texts[2];
  EXPECT_TRUE(std::regex_match(texts[3], std::regex(R"(\[DEBUG  \] \[ *\d+\] <=== Outer )" + ELAPSED + "\n")))
      << texts[3];
}
