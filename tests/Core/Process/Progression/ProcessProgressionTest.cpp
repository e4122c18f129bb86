#include "ProgressionRecorders.h"

#include <Core/Process/Progression/ProcessProgression.h>
#include <Core/Process/Progression/ProcessProgressionLinear.h>
#include <Core/Process/Progression/ProcessProgressionLinearUnknownSteps.h>
#include <Core/Process/Progression/ProcessProgressionTreeNode.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

using Orvan::Core::Process::Progression::ProcessProgression;
using Orvan::Core::Process::Progression::ProcessProgressionLinear;
using Orvan::Core::Process::Progression::ProcessProgressionLinearUnknownSteps;
using Orvan::Core::Process::Progression::ProcessProgressionTreeNode;
using Orvan::Testing::Counting;
using Token = ProcessProgression::ProcessProgressionToken;

TEST(ProcessProgressionLinear, WithoutTotalReadsZeroUntilGivenOneWhichSendsNoNotification)
{
  Counting<ProcessProgressionLinear> counter(0);
  for (int step = 0; step < 10; ++step) {
    ++counter;
  }
  EXPECT_EQ(counter.captureProgression(), 0.0);
  EXPECT_EQ(counter.notifications(), 10);

  counter.updateMaxSteps(20);
  EXPECT_EQ(counter.captureProgression(), 0.5);
  EXPECT_EQ(counter.notifications(), 10);
}

TEST(ProcessProgressionLinear, DefaultConstructedCountsWithoutATotal)
{
  ProcessProgressionLinear counter;
  counter += 7;
  EXPECT_EQ(counter.captureProgression(), 0.0);
  EXPECT_FALSE(counter.isCompleted());
}

TEST(ProcessProgressionLinear, CountPastTheTotalReadsOneWithoutCompleting)
{
  ProcessProgressionLinear counter(4);
  EXPECT_EQ(counter += 6, 6u);
  EXPECT_EQ(counter.captureProgression(), 1.0);
  EXPECT_FALSE(counter.isCompleted());
}

TEST(ProcessProgressionLinear, CompletedReadsOneWhateverItsCounters)
{
  ProcessProgressionLinear withoutTotal(0);
  withoutTotal.setCompleted();
  EXPECT_EQ(withoutTotal.captureProgression(), 1.0);

  ProcessProgressionLinear halfway(10);
  halfway += 5;
  halfway.setCompleted();
  EXPECT_TRUE(halfway.isCompleted());
  EXPECT_EQ(halfway.captureProgression(), 1.0);

  // Counting goes on after completion; the reading stays 1.0.
  EXPECT_EQ(++halfway, 6u);
  EXPECT_EQ(halfway.captureProgression(), 1.0);
}

TEST(ProcessProgressionLinear, IncrementsReturnTheNewCountAndNotifyEachTime)
{
  Counting<ProcessProgressionLinear> counter(10);
  EXPECT_EQ(++counter, 1u);
  EXPECT_EQ(++counter, 2u);
  EXPECT_EQ(counter += 5, 7u);
  EXPECT_EQ(counter += 0, 7u);
  EXPECT_EQ(counter.notifications(), 4);
  EXPECT_DOUBLE_EQ(counter.captureProgression(), 0.7);
}

TEST(ProcessProgressionLinear, UpdatingTheTotalToZeroReadsZeroAgain)
{
  Counting<ProcessProgressionLinear> counter(10);
  counter += 5;
  EXPECT_EQ(counter.captureProgression(), 0.5);
  counter.updateMaxSteps(0);
  EXPECT_EQ(counter.captureProgression(), 0.0);
  EXPECT_EQ(counter.notifications(), 1);
}

TEST(ProcessProgressionLinear, IsDefaultConstructibleInArrays)
{
  ProcessProgressionLinear counters[3];
  ++counters[1];
  counters[1].updateMaxSteps(4);
  EXPECT_EQ(counters[0].captureProgression(), 0.0);
  EXPECT_EQ(counters[1].captureProgression(), 0.25);

  const auto onHeap = std::make_unique<ProcessProgressionLinear[]>(2);
  EXPECT_EQ(onHeap[1].captureProgression(), 0.0);
}

TEST(ProcessProgressionLinear, CountsEveryStepOfConcurrentWorkers)
{
  constexpr int WORKERS = 4;
  constexpr int STEPS = 10000;
  ProcessProgressionLinear counter(2 * WORKERS * STEPS);
  std::vector<std::thread> workers;
  for (int worker = 0; worker < WORKERS; ++worker) {
    workers.emplace_back([&counter, worker] {
      for (int step = 0; step < STEPS; ++step) {
        if (worker % 2 == 0) {
          ++counter;
        } else {
          counter += 1;
        }
      }
    });
  }
  for (std::thread& worker : workers) {
    worker.join();
  }
  EXPECT_EQ(counter.captureProgression(), 0.5);
  EXPECT_EQ(counter += 0, static_cast<unsigned long long>(WORKERS) * STEPS);
}

TEST(ProcessProgressionLinearUnknownSteps, DefaultReadingsApproachOneStepByStep)
{
  ProcessProgressionLinearUnknownSteps counter;
  EXPECT_EQ(counter.captureProgression(), 0.0);
  EXPECT_EQ(++counter, 1u);
  EXPECT_DOUBLE_EQ(counter.captureProgression(), 1.0 / 2.0);
  ++counter;
  EXPECT_DOUBLE_EQ(counter.captureProgression(), 2.0 / 3.0);
  EXPECT_EQ(++counter, 3u);
  EXPECT_DOUBLE_EQ(counter.captureProgression(), 3.0 / 4.0);

  // The total is now 4: one step added with += reaches it.
  counter += 1;
  EXPECT_EQ(counter.captureProgression(), 1.0);
  EXPECT_FALSE(counter.isCompleted());
}

TEST(ProcessProgressionLinearUnknownSteps, ZeroEstimateReadsOneAfterEachIncrement)
{
  ProcessProgressionLinearUnknownSteps counter(0);
  EXPECT_EQ(counter.captureProgression(), 0.0);
  for (int step = 0; step < 4; ++step) {
    ++counter;
    EXPECT_EQ(counter.captureProgression(), 1.0);
  }
  EXPECT_FALSE(counter.isCompleted());
}

TEST(ProcessProgressionLinearUnknownSteps, FollowsTheEstimateThenStaysOneStepAhead)
{
  ProcessProgressionLinearUnknownSteps counter(4);
  const std::vector<double> expected{0.25, 0.5, 0.75, 0.8, 5.0 / 6.0};
  for (const double reading : expected) {
    ++counter;
    EXPECT_DOUBLE_EQ(counter.captureProgression(), reading);
  }
}

TEST(ProcessProgressionLinearUnknownSteps, AddingStepsDoesNotMoveTheTotal)
{
  Counting<ProcessProgressionLinearUnknownSteps> counter(4);
  EXPECT_EQ(counter += 3, 3u);
  EXPECT_EQ(counter.captureProgression(), 0.75);
  counter += 10;
  EXPECT_EQ(counter.captureProgression(), 1.0);
  EXPECT_EQ(counter.notifications(), 2);
}

TEST(ProcessProgressionLinearUnknownSteps, CompletesOnlyWhenTold)
{
  ProcessProgressionLinearUnknownSteps counter;
  for (int step = 0; step < 1000; ++step) {
    ++counter;
  }
  EXPECT_LT(counter.captureProgression(), 1.0);
  counter.setCompleted();
  EXPECT_EQ(counter.captureProgression(), 1.0);
}

TEST(ProcessProgression, SetCompletedNotifiesEachTime)
{
  Counting<ProcessProgressionTreeNode> node;
  EXPECT_FALSE(node.isCompleted());
  node.setCompleted();
  node.setCompleted();
  EXPECT_TRUE(node.isCompleted());
  EXPECT_EQ(node.notifications(), 2);
}

TEST(ProcessProgressionToken, LastHolderLettingGoCompletesTheProgression)
{
  Counting<ProcessProgressionLinear> counter(10);
  std::shared_ptr<Token> token = counter.getToken();
  std::shared_ptr<Token> sameToken = token;

  token.reset();
  EXPECT_FALSE(counter.isCompleted());
  EXPECT_EQ(counter.notifications(), 0);

  sameToken.reset();
  EXPECT_TRUE(counter.isCompleted());
  EXPECT_EQ(counter.captureProgression(), 1.0);
  EXPECT_EQ(counter.notifications(), 1);
}

TEST(ProcessProgressionToken, CompletingAChildNotifiesItsParent)
{
  Counting<ProcessProgressionTreeNode> parent;
  auto child = std::make_unique<ProcessProgressionLinear>(4);
  ProcessProgressionLinear& counter = *child;
  parent.addChild(std::move(child));
  parent.addChild(std::make_unique<ProcessProgressionLinear>(4));

  counter.getToken().reset();
  EXPECT_TRUE(counter.isCompleted());
  EXPECT_EQ(parent.notifications(), 1);
  EXPECT_EQ(parent.captureProgression(), 0.5);
  EXPECT_FALSE(parent.isCompleted());
}

TEST(ProcessProgressionToken, ProgressionDestroyedFirstIsLeftAlone)
{
  auto counter = std::make_unique<ProcessProgressionLinear>(10);
  std::shared_ptr<Token> token = counter->getToken();
  counter.reset();
  // The token was detached by the progression's destruction: dropping it
  // touches nothing. The address sanitizer build fails this test on a use of
  // the freed progression.
  token.reset();
}

TEST(ProcessProgressionToken, MovedFromTokenIsInert)
{
  Counting<ProcessProgressionTreeNode> node;
  std::shared_ptr<Token> token = node.getToken();
  {
    Token moved(std::move(*token));
    token.reset();
    EXPECT_FALSE(node.isCompleted());
    EXPECT_EQ(node.notifications(), 0);
  }
  EXPECT_TRUE(node.isCompleted());
  EXPECT_EQ(node.notifications(), 1);
}

TEST(ProcessProgressionToken, MovingFromADetachedTokenArmsTheNewOne)
{
  Counting<ProcessProgressionTreeNode> node;
  std::shared_ptr<Token> token = node.getToken();
  std::optional<Token> first(std::in_place, std::move(*token));
  std::optional<Token> second(std::in_place, std::move(*token));

  token.reset();
  EXPECT_EQ(node.notifications(), 0);
  second.reset();
  EXPECT_EQ(node.notifications(), 1);
  first.reset();
  EXPECT_EQ(node.notifications(), 2);
}

TEST(ProcessProgressionToken, NewTokenReplacesTheOldOneWithoutDetachingIt)
{
  Counting<ProcessProgressionTreeNode> node;
  std::shared_ptr<Token> older = node.getToken();
  std::shared_ptr<Token> newer = node.getToken();
  EXPECT_NE(older, newer);
  older.reset();
  EXPECT_TRUE(node.isCompleted());
  newer.reset();
  EXPECT_EQ(node.notifications(), 2);
}

// Four threads counting at once never let the count catch the total: every
// reading taken before completion, by a reader or by an observer, is below
// 1.0.
TEST(ProcessProgressionLinearUnknownSteps, ConcurrentIncrementsNeverReadOneBeforeCompletion)
{
  constexpr int THREADS = 4;
  constexpr int INCREMENTS = 100000;
  auto counter = std::make_shared<ProcessProgressionLinearUnknownSteps>();
  Orvan::Testing::RecordingObserver observer(counter, 0);
  std::atomic<int> running{THREADS};
  std::atomic<int> readingsOfOne{0};
  std::atomic<long long> readings{0};
  std::thread reader([&] {
    while (running.load() > 0) {
      if (counter->captureProgression() >= 1.0) {
        ++readingsOfOne;
      }
      ++readings;
    }
  });
  std::vector<std::thread> workers;
  for (int thread = 0; thread < THREADS; ++thread) {
    workers.emplace_back([&] {
      for (int step = 0; step < INCREMENTS; ++step) {
        ++*counter;
      }
      --running;
    });
  }
  for (std::thread& worker : workers) {
    worker.join();
  }
  reader.join();

  EXPECT_GT(readings.load(), 0);
  EXPECT_EQ(readingsOfOne.load(), 0);
  EXPECT_LT(counter->captureProgression(), 1.0);
  observer.stopObserving();
  for (const double value : observer.values()) {
    EXPECT_LT(value, 1.0);
  }
  counter->setCompleted();
  EXPECT_EQ(counter->captureProgression(), 1.0);
}

// Tokens handed out on two threads at once; each completes the progression
// when it goes.
TEST(ProcessProgressionToken, TokensHandedOutOnTwoThreadsAtOnce)
{
  ProcessProgressionTreeNode node;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 2; ++thread) {
    threads.emplace_back([&node] {
      for (int round = 0; round < 20000; ++round) {
        std::shared_ptr<Token> token = node.getToken();
        EXPECT_NE(token, nullptr);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_TRUE(node.isCompleted());
}
