#include "ProgressionRecorders.h"

#include <AssertRecorder.h>
#include <Core/Process/Progression/ProcessProgressionLinear.h>
#include <Core/Process/Progression/ProcessProgressionTreeNode.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

using Orvan::Core::Process::Progression::ProcessProgressionLinear;
using Orvan::Core::Process::Progression::ProcessProgressionTreeNode;
using Orvan::Testing::AssertRecorder;
using Orvan::Testing::isNonDecreasingFraction;
using Orvan::Testing::observableOf;
using Orvan::Testing::RecordingObserver;
using Orvan::Testing::ThreeLevelTree;

namespace {

// Steps of each counter.
constexpr unsigned long long TOTAL = 1000000;

// An observer set up from a thread while the tree keeps changing. The poke
// right after construction hands the finished object to the observer's thread
// (through the filter's lock) before its first period ends.
std::unique_ptr<RecordingObserver> observe(const ThreeLevelTree& tree, ProcessProgressionTreeNode* node,
                                           unsigned int period)
{
  auto observer = std::make_unique<RecordingObserver>(observableOf(tree.root, node), period);
  observer->onObservableChanged();
  return observer;
}

} // namespace

TEST(ProgressionStress, ObserversComeAndGoOnEveryLevelWhileGrandchildrenCount)
{
  AssertRecorder recorder;
  ThreeLevelTree tree(TOTAL);
  auto rootToken = tree.root->getToken();
  const std::vector<ProcessProgressionTreeNode*> nodes = tree.nodes();

  // One observer per node stays from start to end.
  std::vector<std::unique_ptr<RecordingObserver>> lasting;
  for (ProcessProgressionTreeNode* node : nodes) {
    lasting.push_back(observe(tree, node, 10));
  }

  std::atomic<bool> churnDone{false};
  std::atomic<int> badReadings{0};
  std::atomic<std::size_t> churnDeliveries{0};

  // Each worker advances the two counters under one parent, one with ++ and
  // one with +=, until the observers have come and gone.
  auto work = [&](ProcessProgressionLinear* single, ProcessProgressionLinear* batched) {
    unsigned long long rounds = 0;
    while (!churnDone.load() || rounds < 1000) {
      ++*single;
      *batched += 3;
      ++rounds;
      if (rounds % 64 == 0) {
        std::this_thread::yield();
      }
    }
  };
  std::thread firstWorker(work, tree.counters[0], tree.counters[1]);
  std::thread secondWorker(work, tree.counters[2], tree.counters[3]);

  std::thread churn([&] {
    constexpr unsigned int PERIODS[] = {10, 15, 25};
    std::deque<std::unique_ptr<RecordingObserver>> live;
    for (std::size_t round = 0; round < 6 * nodes.size(); ++round) {
      live.push_back(observe(tree, nodes[round % nodes.size()], PERIODS[round % 3]));
      // Poked at its construction, the newcomer delivers once its first
      // period is over: the observers leave with readings to check.
      EXPECT_TRUE(live.back()->waitForCount(1));
      if (live.size() > 8) {
        std::unique_ptr<RecordingObserver> leaving = std::move(live.front());
        live.pop_front();
        if (round % 2 == 0) {
          leaving->stopObserving();
        }
        const std::vector<double> values = leaving->values();
        leaving.reset();
        churnDeliveries += values.size();
        if (!isNonDecreasingFraction(values)) {
          ++badReadings;
        }
      }
    }
    for (const auto& observer : live) {
      const std::vector<double> values = observer->values();
      churnDeliveries += values.size();
      if (!isNonDecreasingFraction(values)) {
        ++badReadings;
      }
    }
    live.clear();
    churnDone.store(true);
  });

  churn.join();
  firstWorker.join();
  secondWorker.join();
  rootToken.reset();

  EXPECT_EQ(badReadings.load(), 0);
  EXPECT_GT(churnDeliveries.load(), 0u);
  EXPECT_EQ(tree.root->captureProgression(), 1.0);
  for (std::size_t index = 0; index < nodes.size(); ++index) {
    const double last = nodes[index]->captureProgression();
    EXPECT_TRUE(lasting[index]->waitForLast(last)) << "node " << index << " should end on " << last;
    EXPECT_TRUE(isNonDecreasingFraction(lasting[index]->values())) << "node " << index;
  }
  EXPECT_GT(nodes[1]->captureProgression(), 0.0);
  EXPECT_LT(nodes[1]->captureProgression(), 1.0);
  lasting.clear();
  EXPECT_TRUE(recorder.reports().empty());
}
