#include "ProgressionRecorders.h"

#include <Core/Process/Progression/ProcessProgressionLinear.h>
#include <Core/Process/Progression/ProcessProgressionTreeNode.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using Orvan::Core::Process::Progression::ProcessProgressionLinear;
using Orvan::Core::Process::Progression::ProcessProgressionTreeNode;
using Orvan::Testing::Counting;

namespace {

// The deepest tree that is still destroyed and notified one call per level.
constexpr int LEVELS_ON_THE_STACK = 10000;

using Log = std::vector<std::string>;

// A host node that, in its destructor, reads its own progression and, when
// it has been given one, whether its parent is completed.
class ReadsItselfWhenDestroyed : public ProcessProgressionTreeNode {
public:
  ReadsItselfWhenDestroyed(std::string name, Log& log, const ProcessProgressionTreeNode* parent = nullptr)
      : name(std::move(name))
      , log(log)
      , parent(parent)
  {
  }

  ~ReadsItselfWhenDestroyed() override
  {
    log.push_back(name + " reads " + std::to_string(captureProgression()));
    if (parent != nullptr) {
      log.push_back(name + " sees its parent " + (parent->isCompleted() ? "completed" : "in progress"));
    }
  }

private:
  std::string name;
  Log& log;
  const ProcessProgressionTreeNode* parent;
};

// A host node that completes itself in its destructor: the change climbs
// through every ancestor.
class CompletesWhenDestroyed : public ProcessProgressionTreeNode {
public:
  CompletesWhenDestroyed(std::string name, Log& log)
      : name(std::move(name))
      , log(log)
  {
  }

  ~CompletesWhenDestroyed() override
  {
    setCompleted();
    log.push_back(name + " completed");
  }

private:
  std::string name;
  Log& log;
};

// Records around the change propagation it inherits.
template<class Node>
class Bracketing : public Node {
public:
  template<class... Arguments>
  Bracketing(std::string name, Log& log, Arguments&&... arguments)
      : Node(std::forward<Arguments>(arguments)...)
      , name(std::move(name))
      , log(log)
  {
  }

protected:
  void progressionChanged() override
  {
    log.push_back(name + " before");
    Node::progressionChanged();
    log.push_back(name + " after");
  }

private:
  std::string name;
  Log& log;
};

// Takes a change for itself and does not pass it on.
class KeepsChangesToItself : public ProcessProgressionTreeNode {
public:
  int changes = 0;

protected:
  void progressionChanged() override { ++changes; }
};

std::unique_ptr<ProcessProgressionTreeNode> completedNode()
{
  auto node = std::make_unique<ProcessProgressionTreeNode>();
  node->setCompleted();
  return node;
}

// A chain of `depth` levels below `root` (which is level 1), built by
// `makeNode(level)`; returns its deepest node.
template<class MakeNode>
ProcessProgressionTreeNode* growChain(ProcessProgressionTreeNode& root, int depth, MakeNode makeNode)
{
  ProcessProgressionTreeNode* deepest = &root;
  for (int level = 2; level <= depth; ++level) {
    std::unique_ptr<ProcessProgressionTreeNode> node = makeNode(level);
    ProcessProgressionTreeNode* next = node.get();
    deepest->addChild(std::move(node));
    deepest = next;
  }
  return deepest;
}

// A host node somewhere in a deep chain: whole in its destructor, it reads
// the fraction of everything below it, then completes itself, which climbs
// through its live ancestors.
class DeepHostNode : public ProcessProgressionTreeNode {
public:
  DeepHostNode(int level, Log& log)
      : level(level)
      , log(log)
  {
  }

  ~DeepHostNode() override
  {
    log.push_back(std::to_string(level) + " reads " + std::to_string(captureProgression()));
    setCompleted();
  }

private:
  int level;
  Log& log;
};

// Builds a chain `depth` levels deep whose leaf reads 0.25, with host nodes
// at `hostLevels` (in increasing order), destroys it and returns what the
// host nodes logged.
Log destroyChainWithHostNodes(int depth, const std::vector<int>& hostLevels)
{
  Log log;
  {
    ProcessProgressionTreeNode root;
    std::size_t nextHost = 0;
    ProcessProgressionTreeNode* deepest = growChain(root, depth - 1, [&](int level) {
      if (nextHost < hostLevels.size() && hostLevels[nextHost] == level) {
        ++nextHost;
        return std::unique_ptr<ProcessProgressionTreeNode>(std::make_unique<DeepHostNode>(level, log));
      }
      return std::make_unique<ProcessProgressionTreeNode>();
    });
    auto leaf = std::make_unique<ProcessProgressionLinear>(4);
    ++*leaf;
    deepest->addChild(std::move(leaf));
  }
  return log;
}

// What destroyChainWithHostNodes expects: each host node, from the top
// down, reads the leaf's fraction through the whole chain below it.
Log wholeReadings(const std::vector<int>& hostLevels)
{
  Log expected;
  for (const int level : hostLevels) {
    expected.push_back(std::to_string(level) + " reads " + std::to_string(0.25));
  }
  return expected;
}

// A chain `depth` levels deep whose root and second level bracket the
// change propagation; returns what they logged for one step of the leaf.
Log bracketedChangeAtTheLeafOfAChain(int depth)
{
  Log log;
  Bracketing<ProcessProgressionTreeNode> root("R", log);
  auto second = std::make_unique<Bracketing<ProcessProgressionTreeNode>>("A", log);
  ProcessProgressionTreeNode* deepest =
      growChain(*second, depth - 2, [](int) { return std::make_unique<ProcessProgressionTreeNode>(); });
  root.addChild(std::move(second));
  auto leaf = std::make_unique<ProcessProgressionLinear>(4);
  ProcessProgressionLinear& counter = *leaf;
  deepest->addChild(std::move(leaf));
  ++counter;
  return log;
}

std::string reading(double fraction)
{
  return std::to_string(fraction);
}

} // namespace

// The destructor body of a node runs while the node is whole; its children
// go after it, in the order they were added, while its base still holds its
// state.
TEST(ProcessProgressionTreeOrder, EachNodeIsWholeInItsDestructorThenItsChildrenGoInOrderWhileItsBaseLives)
{
  Log log;
  {
    ReadsItselfWhenDestroyed root("R", log);
    auto first = std::make_unique<ReadsItselfWhenDestroyed>("A", log, &root);
    auto second = std::make_unique<ReadsItselfWhenDestroyed>("B", log, &root);
    first->addChild(std::make_unique<ReadsItselfWhenDestroyed>("A1", log, first.get()));
    first->addChild(completedNode());
    second->addChild(completedNode());
    second->addChild(std::make_unique<ReadsItselfWhenDestroyed>("B2", log, second.get()));
    second->addChild(std::make_unique<ReadsItselfWhenDestroyed>("B3", log, second.get()));
    first->setCompleted();
    root.addChild(std::move(first));
    root.addChild(std::move(second));
  }
  EXPECT_EQ(log, (Log{"R reads " + reading(2.0 / 3.0), // (1 + 1/3) / 2
                      "A reads " + reading(1.0), "A sees its parent in progress", "A1 reads " + reading(0.0),
                      "A1 sees its parent completed", "B reads " + reading(1.0 / 3.0), "B sees its parent in progress",
                      "B2 reads " + reading(0.0), "B2 sees its parent in progress", "B3 reads " + reading(0.0),
                      "B3 sees its parent in progress"}));
}

// A grandchild completing itself in its destructor climbs through its
// parent and the root, which still exist.
TEST(ProcessProgressionTreeOrder, GrandchildCompletingInItsDestructorClimbsThroughLiveAncestors)
{
  Log log;
  {
    CompletesWhenDestroyed root("root", log);
    auto parent = std::make_unique<CompletesWhenDestroyed>("parent", log);
    parent->addChild(std::make_unique<CompletesWhenDestroyed>("first grandchild", log));
    parent->addChild(std::make_unique<CompletesWhenDestroyed>("second grandchild", log));
    root.addChild(std::move(parent));
    root.addChild(std::make_unique<CompletesWhenDestroyed>("child", log));
  }
  EXPECT_EQ(log, (Log{"root completed", "parent completed", "first grandchild completed", "second grandchild completed",
                      "child completed"}));
}

// Host nodes on both sides of the depth the stack holds, in a chain twice
// that deep, are destroyed whole, from the top down, with live ancestors.
TEST(ProcessProgressionTreeOrder, HostNodesAroundTheStackLimitOfADeepChainAreDestroyedWhole)
{
  const std::vector<int> hostLevels{2,
                                    3,
                                    LEVELS_ON_THE_STACK - 1,
                                    LEVELS_ON_THE_STACK,
                                    LEVELS_ON_THE_STACK + 1,
                                    LEVELS_ON_THE_STACK + 2,
                                    2 * LEVELS_ON_THE_STACK - 1};
  EXPECT_EQ(destroyChainWithHostNodes(2 * LEVELS_ON_THE_STACK, hostLevels), wholeReadings(hostLevels));
}

TEST(ProcessProgressionTreeOrder, HostNodesThroughoutAMillionLevelChainAreDestroyedWhole)
{
  constexpr int DEPTH = 1000000;
  const std::vector<int> hostLevels{2, LEVELS_ON_THE_STACK + 1, DEPTH / 2, DEPTH - 1};
  EXPECT_EQ(destroyChainWithHostNodes(DEPTH, hostLevels), wholeReadings(hostLevels));
}

// A change reaches the parent's override from inside the child's: the
// root's is called, and returns, while the child's is still running.
TEST(ProcessProgressionTreeOrder, OverridesOfTheChangeNestRootInnermost)
{
  EXPECT_EQ(bracketedChangeAtTheLeafOfAChain(3), (Log{"A before", "R before", "R after", "A after"}));
}

// A tree as deep as the stack holds still calls every ancestor from its
// child, one call per level.
TEST(ProcessProgressionTreeOrder, OverridesNestThroughAChainAsDeepAsTheStackHolds)
{
  EXPECT_EQ(bracketedChangeAtTheLeafOfAChain(LEVELS_ON_THE_STACK), (Log{"A before", "R before", "R after", "A after"}));
}

// The same on a thread of the default size, where host workers count.
TEST(ProcessProgressionTreeOrder, OverridesNestThroughAChainAsDeepAsTheStackHoldsOnAWorkerThread)
{
  Log log;
  std::thread worker([&log] { log = bracketedChangeAtTheLeafOfAChain(LEVELS_ON_THE_STACK); });
  worker.join();
  EXPECT_EQ(log, (Log{"A before", "R before", "R after", "A after"}));
}

// A tree as deep as the stack holds, destroyed on a worker thread, with a
// host node at its deepest level.
TEST(ProcessProgressionTreeOrder, ChainAsDeepAsTheStackHoldsIsDestroyedOnAWorkerThread)
{
  const std::vector<int> hostLevels{2, LEVELS_ON_THE_STACK - 1};
  Log log;
  std::thread worker([&] { log = destroyChainWithHostNodes(LEVELS_ON_THE_STACK, hostLevels); });
  worker.join();
  EXPECT_EQ(log, wholeReadings(hostLevels));
}

// An override that does not call the inherited propagation ends the climb:
// nothing above it hears of the change.
TEST(ProcessProgressionTreeOrder, OverrideThatDoesNotPassTheChangeOnStopsTheClimb)
{
  Counting<ProcessProgressionTreeNode> root;
  auto middle = std::make_unique<KeepsChangesToItself>();
  KeepsChangesToItself& keeper = *middle;
  auto leaf = std::make_unique<Counting<ProcessProgressionLinear>>(4);
  auto& counter = *leaf;
  middle->addChild(std::move(leaf));
  root.addChild(std::move(middle));

  ++counter;
  EXPECT_EQ(counter.notifications(), 1);
  EXPECT_EQ(keeper.changes, 1);
  EXPECT_EQ(root.notifications(), 0);
}
