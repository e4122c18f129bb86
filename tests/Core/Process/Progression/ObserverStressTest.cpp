#include "ProgressionRecorders.h"

#include <AssertRecorder.h>
#include <Core/Event/EventInfo.h>
#include <Core/Logging/LoggingType.h>
#include <Core/Process/Progression/ProcessProgressionLinear.h>
#include <Core/Process/Progression/ProcessProgressionTreeNode.h>
#include <RecordingLogger.h>
#include <WaitFor.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>
#include <string>
#include <thread>
#include <variant>
#include <vector>

namespace Event = Orvan::Core::Event;
using Orvan::Core::Logging::LoggingType;
using Orvan::Core::Process::Progression::ProcessProgressionLinear;
using Orvan::Core::Process::Progression::ProcessProgressionTreeNode;
using Orvan::Testing::AssertRecorder;
using Orvan::Testing::isNonDecreasingFraction;
using Orvan::Testing::OBSERVABLE_GONE;
using Orvan::Testing::observableOf;
using Orvan::Testing::RecordingListener;
using Orvan::Testing::RecordingLogger;
using Orvan::Testing::RecordingObserver;
using Orvan::Testing::ThreeLevelTree;
using Orvan::Testing::waitFor;
using Orvan::Utils::ErrorManagement::PackageIdentifier;
using namespace std::chrono_literals;

namespace {

// Steps of each counter.
constexpr unsigned long long TOTAL = 100000000;

// Two threads each advance the two counters under one parent, one with ++ and
// one with +=, until told to stop; `rounds` counts what they did.
class Workers {
public:
  explicit Workers(const ThreeLevelTree& tree)
  {
    for (std::size_t first = 0; first < tree.counters.size(); first += 2) {
      threads.emplace_back([this, single = tree.counters[first], batched = tree.counters[first + 1]] {
        while (!stopped.load()) {
          ++*single;
          *batched += 3;
          if (++rounds % 64 == 0) {
            std::this_thread::yield();
          }
        }
      });
    }
  }

  ~Workers() { stop(); }

  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;

  void stop()
  {
    stopped.store(true);
    for (std::thread& thread : threads) {
      if (thread.joinable()) {
        thread.join();
      }
    }
  }

  std::atomic<unsigned long long> rounds{0};

private:
  std::atomic<bool> stopped{false};
  std::vector<std::thread> threads;
};

class StressProgression : public Orvan::Testing::ObservationTest {};

} // namespace

TEST_F(StressProgression, AThousandObserversComeAndGoFromFourThreadsWhileTheTreeAdvances)
{
  AssertRecorder recorder;
  ThreeLevelTree tree(TOTAL);
  auto rootToken = tree.root->getToken();
  const std::vector<ProcessProgressionTreeNode*> nodes = tree.nodes();
  RecordingObserver lasting(tree.root, 10);

  constexpr int CHURNERS = 4;
  constexpr int OBSERVERS_PER_CHURNER = 250;
  std::atomic<int> badReadings{0};
  std::atomic<int> undelivered{0};
  std::atomic<std::size_t> deliveries{0};
  {
    Workers workers(tree);
    std::vector<std::thread> churners;
    for (int churner = 0; churner < CHURNERS; ++churner) {
      churners.emplace_back([&, churner] {
        // Periods well above the time an observer takes to be built: the
        // base class registers itself before the subclass is constructed, so
        // a delivery must not come that early.
        constexpr unsigned int PERIODS[] = {20, 30, 50};
        std::deque<std::unique_ptr<RecordingObserver>> live;
        const auto retire = [&] {
          const std::vector<double> values = live.front()->values();
          live.pop_front();
          deliveries += values.size();
          if (!isNonDecreasingFraction(values)) {
            ++badReadings;
          }
        };
        for (int round = 0; round < OBSERVERS_PER_CHURNER; ++round) {
          const std::size_t at = static_cast<std::size_t>(round + churner) % nodes.size();
          live.push_back(std::make_unique<RecordingObserver>(observableOf(tree.root, nodes[at]),
                                                             PERIODS[static_cast<std::size_t>(round) % 3]));
          if (live.size() > 4) {
            // Half of them go once they have had a delivery, the others
            // whenever their turn comes, often before their first period
            // ends. Half are stopped first, half go straight away.
            if (round % 2 == 1 && !live.front()->waitForCount(1)) {
              ++undelivered;
            }
            if (round % 4 < 2) {
              live.front()->stopObserving();
            }
            retire();
          }
        }
        while (!live.empty()) {
          retire();
        }
      });
    }
    for (std::thread& churner : churners) {
      churner.join();
    }
    workers.stop();
    EXPECT_GT(workers.rounds.load(), 0u);
  }
  rootToken.reset();

  EXPECT_EQ(badReadings.load(), 0);
  EXPECT_EQ(undelivered.load(), 0);
  EXPECT_GE(deliveries.load(), static_cast<std::size_t>(CHURNERS * (OBSERVERS_PER_CHURNER - 4) / 2));
  EXPECT_TRUE(lasting.waitForLast(1.0));
  EXPECT_TRUE(isNonDecreasingFraction(lasting.values()));
  lasting.stopObserving();
  EXPECT_TRUE(recorder.reports().empty());
  EXPECT_TRUE(listener->received().empty());
  EXPECT_TRUE(logger->lines().empty());
}

// Observers on every level of a tree that advancing workers keep poking; the
// tree goes before any observer's first period ends, so each has a change
// pending. Each then reports the observable's destruction once, and its thread
// ends: nothing more comes, and stopping and destroying the observer work.
TEST_F(StressProgression, ObservablesDestroyedWithPokesPendingReportOnceEachAndTheirObserversEnd)
{
  constexpr auto PERIOD = 400ms;
  constexpr std::size_t OBSERVERS = 16;
  constexpr int ATTEMPTS = 5;
  AssertRecorder recorder;
  for (int attempt = 0; attempt < ATTEMPTS; ++attempt) {
    // Fresh receivers: an earlier attempt's observers may have reported.
    installFreshReceivers();
    const auto start = std::chrono::steady_clock::now();
    auto tree = std::make_unique<ThreeLevelTree>(TOTAL);
    const std::vector<ProcessProgressionTreeNode*> nodes = tree->nodes();
    std::vector<std::unique_ptr<RecordingObserver>> observers;
    for (std::size_t index = 0; index < OBSERVERS; ++index) {
      observers.push_back(std::make_unique<RecordingObserver>(observableOf(tree->root, nodes[index % nodes.size()]),
                                                              static_cast<unsigned int>(PERIOD.count())));
    }
    bool everyCounterMoved = false;
    {
      // Every counter must have moved, so that every node has poked its
      // observers.
      Workers workers(*tree);
      everyCounterMoved = waitFor(
          [&] {
            for (const ProcessProgressionLinear* counter : tree->counters) {
              if (counter->captureProgression() == 0.0) {
                return false;
              }
            }
            return workers.rounds.load() >= 200;
          },
          PERIOD / 4);
      workers.stop();
    }
    tree.reset();
    if (!everyCounterMoved || std::chrono::steady_clock::now() - start >= PERIOD) {
      // A busy machine: a delivery may have come before the tree went, or
      // some node was never changed.
      continue;
    }

    // The listener hears of each event before it is logged.
    ASSERT_TRUE(
        waitFor([&] { return listener->received().size() >= OBSERVERS && logger->lines().size() >= OBSERVERS; }));
    const std::vector<Event::EventInfo> events = listener->received();
    ASSERT_EQ(events.size(), OBSERVERS);
    for (const Event::EventInfo& event : events) {
      EXPECT_EQ(event.level, LoggingType::Warning);
      EXPECT_EQ(event.package, PackageIdentifier::Core);
      EXPECT_EQ(event.eventId, 12u);
      ASSERT_TRUE(event.value.has_value() && std::holds_alternative<std::string>(*event.value));
      EXPECT_EQ(std::get<std::string>(*event.value), OBSERVABLE_GONE);
    }
    EXPECT_EQ(logger->lines(), std::vector<RecordingLogger::Line>(OBSERVERS, {LoggingType::Warning, OBSERVABLE_GONE}));

    const auto stopping = std::chrono::steady_clock::now();
    for (std::size_t index = 0; index < observers.size(); ++index) {
      EXPECT_EQ(observers[index]->count(), 0u);
      if (index % 2 == 0) {
        observers[index]->stopObserving();
      }
    }
    observers.clear();
    EXPECT_LT(std::chrono::steady_clock::now() - stopping, 30s);
    EXPECT_EQ(listener->received().size(), OBSERVERS);
    EXPECT_TRUE(recorder.reports().empty());
    return;
  }
  FAIL() << "the tree was never destroyed within the observers' first period";
}

namespace {

// Built deferred, it starts last in its constructor; every delivery checks
// that the whole object is there.
class CheckingObserver : public Orvan::Core::Process::Progression::ProgressionObserver {
public:
  CheckingObserver(std::weak_ptr<Orvan::Core::Process::Progression::ProgressionObservable> observable,
                   unsigned int period, std::atomic<int>& broken)
      : ProgressionObserver(std::move(observable), period, DeferredStart{})
      , broken(broken)
      , readings(16, -1.0)
  {
    startObserving();
  }

  ~CheckingObserver() override { stopObserving(); }

  void onProgressionUpdated(double progression) override
  {
    if (whole != WHOLE || progression < 0.0 || progression > 1.0) {
      ++broken;
    }
    readings[delivered++ % readings.size()] = progression;
  }

private:
  static constexpr unsigned int WHOLE = 0x600dcafe;
  std::atomic<int>& broken;
  std::vector<double> readings;
  std::size_t delivered = 0;
  unsigned int whole = WHOLE;
};

} // namespace

// Three threads create and destroy observers with periods of 0 to 2 ms on a
// tree a thousand counters wide that two threads advance, for ten seconds:
// no delivery reaches an observer that is not whole, and nothing is reported.
TEST_F(StressProgression, DeferredObserversChurnOnAWideTreeForTenSeconds)
{
  constexpr std::size_t WIDTH = 1000;
  constexpr auto DURATION = 10s;
  AssertRecorder recorder;
  auto root = std::make_shared<ProcessProgressionTreeNode>();
  std::vector<ProcessProgressionLinear*> counters;
  for (std::size_t index = 0; index < WIDTH; ++index) {
    auto counter = std::make_unique<ProcessProgressionLinear>(TOTAL);
    counters.push_back(counter.get());
    root->addChild(std::move(counter));
  }

  std::atomic<bool> stop{false};
  std::atomic<int> broken{0};
  std::atomic<unsigned long long> observersBuilt{0};
  std::vector<std::thread> threads;
  for (std::size_t worker = 0; worker < 2; ++worker) {
    threads.emplace_back([&, worker] {
      for (std::size_t step = worker; !stop.load(); step += 7) {
        ++*counters[step % WIDTH];
      }
    });
  }
  for (unsigned int churner = 0; churner < 3; ++churner) {
    threads.emplace_back([&, churner] {
      std::deque<std::unique_ptr<CheckingObserver>> live;
      for (unsigned int round = churner; !stop.load(); ++round) {
        ProcessProgressionTreeNode* node =
            round % 4 == 0 ? root.get() : static_cast<ProcessProgressionTreeNode*>(counters[(round * 31) % WIDTH]);
        live.push_back(std::make_unique<CheckingObserver>(observableOf(root, node), round % 3, broken));
        ++observersBuilt;
        if (live.size() > 8) {
          if (round % 2 == 0) {
            live.front()->stopObserving();
          }
          live.pop_front();
        }
      }
    });
  }
  std::this_thread::sleep_for(DURATION); // the length of the churn
  stop.store(true);
  for (std::thread& thread : threads) {
    thread.join();
  }

  EXPECT_GT(observersBuilt.load(), 0u);
  EXPECT_EQ(broken.load(), 0);
  EXPECT_TRUE(recorder.reports().empty());
  EXPECT_TRUE(listener->received().empty());
}
