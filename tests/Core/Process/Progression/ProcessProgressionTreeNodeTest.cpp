#include "ProgressionRecorders.h"

#include <AssertRecorder.h>
#include <Core/Process/Progression/ProcessProgressionLinear.h>
#include <Core/Process/Progression/ProcessProgressionTreeNode.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using Orvan::Core::Process::Progression::ProcessProgressionLinear;
using Orvan::Core::Process::Progression::ProcessProgressionTreeNode;
using Orvan::Testing::AssertRecorder;
using Orvan::Testing::Counting;
using Orvan::Testing::GatedObserver;
using Orvan::Testing::observableOf;

namespace {

// A counter of `total` steps that has already made `steps` of them.
std::unique_ptr<ProcessProgressionLinear> counterAt(unsigned long long steps, unsigned long long total)
{
  auto counter = std::make_unique<ProcessProgressionLinear>(total);
  *counter += steps;
  return counter;
}

struct JoinOnExit {
  std::thread& thread;
  ~JoinOnExit()
  {
    if (thread.joinable()) {
      thread.join();
    }
  }
};

} // namespace

TEST(ProcessProgressionTreeNode, WithoutChildrenReadsZero)
{
  const ProcessProgressionTreeNode node;
  EXPECT_EQ(node.captureProgression(), 0.0);
  EXPECT_FALSE(node.isCompleted());
}

TEST(ProcessProgressionTreeNode, CompletedReadsOneEvenWithChildren)
{
  ProcessProgressionTreeNode node;
  node.addChild(counterAt(0, 10));
  node.addChild(counterAt(1, 10));
  node.setCompleted();
  EXPECT_EQ(node.captureProgression(), 1.0);
  EXPECT_EQ(node[0]->captureProgression(), 0.0);
}

TEST(ProcessProgressionTreeNode, ReadsThePlainMeanOfItsChildren)
{
  ProcessProgressionTreeNode node;
  node.addChild(counterAt(4, 4));
  node.addChild(counterAt(1, 2));
  node.addChild(counterAt(0, 1000));
  EXPECT_EQ(node.captureProgression(), 0.5);
}

TEST(ProcessProgressionTreeNode, ANodeChildCountsAsOneChildWhateverItsSize)
{
  auto nested = std::make_unique<ProcessProgressionTreeNode>();
  nested->addChild(counterAt(1, 1));
  nested->addChild(counterAt(0, 1));

  ProcessProgressionTreeNode root;
  root.addChild(std::move(nested));
  root.addChild(counterAt(0, 1));
  // (0.5 + 0.0) / 2, although three counters lie below.
  EXPECT_EQ(root.captureProgression(), 0.25);

  root.addChild(counterAt(1, 1));
  EXPECT_EQ(root.captureProgression(), 0.5);
}

TEST(ProcessProgressionTreeNode, AddingANullChildIsReportedAndIgnored)
{
  AssertRecorder recorder;
  ProcessProgressionTreeNode node;
  node.addChild(nullptr);

  const auto reports = recorder.reports();
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].message, "CORE_ASSERT failed: 'child != nullptr'");
  EXPECT_EQ(reports[0].file, "src/Core/src/Core/Process/Progression/ProcessProgressionTreeNode.cpp");
  EXPECT_GT(reports[0].line, 0u);
  EXPECT_EQ(node.captureProgression(), 0.0);

  node.addChild(counterAt(1, 2));
  EXPECT_EQ(node.captureProgression(), 0.5);
  EXPECT_EQ(recorder.reports().size(), 1u);
}

TEST(ProcessProgressionTreeNode, AddingAChildSendsNoNotification)
{
  Counting<ProcessProgressionTreeNode> node;
  node.addChild(counterAt(2, 2));
  EXPECT_EQ(node.notifications(), 0);
  // The reading has changed all the same.
  EXPECT_EQ(node.captureProgression(), 1.0);
}

TEST(ProcessProgressionTreeNode, IndexesChildrenInTheOrderTheyWereAdded)
{
  ProcessProgressionTreeNode node;
  auto first = counterAt(0, 1);
  auto second = counterAt(1, 1);
  const ProcessProgressionTreeNode* firstAddress = first.get();
  const ProcessProgressionTreeNode* secondAddress = second.get();
  node.addChild(std::move(first));
  node.addChild(std::move(second));

  EXPECT_EQ(node[0], firstAddress);
  EXPECT_EQ(node[1], secondAddress);
  const ProcessProgressionTreeNode& readOnly = node;
  EXPECT_EQ(readOnly[1], secondAddress);
  EXPECT_EQ(readOnly[1]->captureProgression(), 1.0);
}

TEST(ProcessProgressionTreeNode, ChangesReachEveryAncestorOnce)
{
  auto root = std::make_unique<Counting<ProcessProgressionTreeNode>>();
  auto parent = std::make_unique<Counting<ProcessProgressionTreeNode>>();
  auto leaf = std::make_unique<Counting<ProcessProgressionLinear>>(4);
  auto& parentRef = *parent;
  auto& leafRef = *leaf;
  parent->addChild(std::move(leaf));
  root->addChild(std::move(parent));
  root->addChild(counterAt(0, 1));

  ++leafRef;
  EXPECT_EQ(leafRef.notifications(), 1);
  EXPECT_EQ(parentRef.notifications(), 1);
  EXPECT_EQ(root->notifications(), 1);
  EXPECT_EQ(root->captureProgression(), 0.125);

  parentRef.setCompleted();
  EXPECT_EQ(leafRef.notifications(), 1);
  EXPECT_EQ(root->notifications(), 2);
  EXPECT_EQ(root->captureProgression(), 0.5);
}

TEST(ProcessProgressionTreeNode, LinearCounterIgnoresItsOwnChildrenButPassesTheirChangesOn)
{
  Counting<ProcessProgressionLinear> counter(4);
  auto child = counterAt(0, 1);
  auto& childRef = *child;
  counter.addChild(std::move(child));
  ++childRef;
  EXPECT_EQ(childRef.captureProgression(), 1.0);
  EXPECT_EQ(counter.captureProgression(), 0.0);
  EXPECT_EQ(counter.notifications(), 1);
  counter += 2;
  EXPECT_EQ(counter.captureProgression(), 0.5);
}

// Each observer's thread is held inside its first delivery, so a change made
// meanwhile waits for the filter of the observer it pokes. Opening the gates
// one by one shows in which order the change reaches them.
TEST(ProcessProgressionTreeNode, GrandchildChangePokesTheRootObserversFirstThenDownToItsOwn)
{
  auto root = std::make_shared<ProcessProgressionTreeNode>();
  auto parent = std::make_unique<ProcessProgressionTreeNode>();
  auto leaf = std::make_unique<ProcessProgressionLinear>(10);
  ProcessProgressionTreeNode* parentNode = parent.get();
  ProcessProgressionLinear* counter = leaf.get();
  parent->addChild(std::move(leaf));
  root->addChild(std::move(parent));

  // Declared before the observers: their destruction opens the gates that the
  // worker may be waiting for, then the worker is joined.
  std::thread worker;
  const JoinOnExit joinWorker{worker};
  GatedObserver rootObserver(root, 0);
  GatedObserver parentObserver(observableOf(root, parentNode), 0);
  GatedObserver leafObserver(observableOf(root, counter), 0);

  ++*counter;
  ASSERT_TRUE(rootObserver.waitForCount(1));
  ASSERT_TRUE(parentObserver.waitForCount(1));
  ASSERT_TRUE(leafObserver.waitForCount(1));

  worker = std::thread([counter] { ++*counter; });

  rootObserver.open();
  ASSERT_TRUE(rootObserver.waitForCount(2));
  EXPECT_EQ(parentObserver.count(), 1u);
  EXPECT_EQ(leafObserver.count(), 1u);

  parentObserver.open();
  ASSERT_TRUE(parentObserver.waitForCount(2));
  EXPECT_EQ(leafObserver.count(), 1u);

  leafObserver.open();
  ASSERT_TRUE(leafObserver.waitForCount(2));
}

// A chain a million nodes deep: a change at its leaf reaches the observers
// of the root and of the leaf, the root reads the leaf's fraction through
// every level, and the whole chain is destroyed, all without overflowing the
// stack (at most 10,000 levels are on it at once).
TEST(ProcessProgressionTreeNode, MillionLevelChainPropagatesReadsAndGoesWithoutDeepRecursion)
{
  constexpr int DEPTH = 1000000;
  auto root = std::make_shared<ProcessProgressionTreeNode>();
  ProcessProgressionTreeNode* deepest = root.get();
  for (int level = 1; level < DEPTH - 1; ++level) {
    auto node = std::make_unique<ProcessProgressionTreeNode>();
    ProcessProgressionTreeNode* next = node.get();
    deepest->addChild(std::move(node));
    deepest = next;
  }
  auto leafOwner = std::make_unique<ProcessProgressionLinear>(4);
  ProcessProgressionLinear& leaf = *leafOwner;
  deepest->addChild(std::move(leafOwner));

  Orvan::Testing::RecordingObserver rootObserver(root, 0);
  Orvan::Testing::RecordingObserver leafObserver(observableOf(root, &leaf), 0);
  ++leaf;
  // Each reading of the root's progression climbs down the million levels,
  // taking every node's lock: under ThreadSanitizer on a loaded machine that
  // alone took more than half a minute.
  constexpr auto MILLION_LEVEL_DEADLINE = std::chrono::minutes(10);
  EXPECT_TRUE(rootObserver.waitForLast(0.25, MILLION_LEVEL_DEADLINE));
  EXPECT_TRUE(leafObserver.waitForLast(0.25, MILLION_LEVEL_DEADLINE));
  EXPECT_EQ(root->captureProgression(), 0.25);
  rootObserver.stopObserving();
  leafObserver.stopObserving();
  root.reset();
}

// Siblings are still destroyed in the order they were added, each after the
// node that held them.
TEST(ProcessProgressionTreeNode, DestroysParentsBeforeChildrenAndSiblingsInOrder)
{
  std::vector<std::string> destroyed;
  struct Named : ProcessProgressionTreeNode {
    Named(std::string name, std::vector<std::string>& destroyed)
        : name(std::move(name))
        , destroyed(destroyed)
    {
    }
    ~Named() override { destroyed.push_back(name); }
    std::string name;
    std::vector<std::string>& destroyed;
  };
  {
    Named root("root", destroyed);
    auto first = std::make_unique<Named>("first", destroyed);
    first->addChild(std::make_unique<Named>("first's child", destroyed));
    root.addChild(std::move(first));
    root.addChild(std::make_unique<Named>("second", destroyed));
  }
  EXPECT_EQ(destroyed, (std::vector<std::string>{"root", "first", "first's child", "second"}));
}
