#pragma once

#include <Core/Event/Event.h>
#include <Core/Process/Progression/ProcessProgressionLinear.h>
#include <Core/Process/Progression/ProcessProgressionTreeNode.h>
#include <Core/Process/Progression/ProgressionObservable.h>
#include <Core/Process/Progression/ProgressionObserver.h>
#include <EventRecorder.h>
#include <FacadeReset.h>
#include <RecordingLogger.h>
#include <Timing/ClockOverride.h>
#include <Timing/WorkerClock.h>
#include <WaitFor.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace Orvan::Testing {

namespace Progression = Core::Process::Progression;

// What an observer reports when a pending change finds its observable gone.
inline const std::string OBSERVABLE_GONE = "Observable has been destroyed while observer were still listenning";

// The observable face of a node owned by a tree: it shares the root's
// lifetime, as an observer's weak reference expects.
inline std::shared_ptr<Progression::ProgressionObservable>
observableOf(const std::shared_ptr<Progression::ProcessProgressionTreeNode>& root,
             Progression::ProcessProgressionTreeNode* node)
{
  return std::shared_ptr<Progression::ProgressionObservable>(root, node);
}

// The observer tests know the event recorder as the listener they install.
using RecordingListener = EventRecorder;

// A test that records what observers log and report as events. Each call to
// installFreshReceivers starts over with empty ones.
class ObservationTest : public FacadeReset {
protected:
  ObservationTest() { installFreshReceivers(); }

  void installFreshReceivers()
  {
    logger = std::make_shared<RecordingLogger>();
    listener = std::make_shared<RecordingListener>();
    Core::Logging::setLogger(logger);
    Core::Event::setEventListenner(listener);
  }

  std::shared_ptr<RecordingLogger> logger;
  std::shared_ptr<RecordingListener> listener;
};

// A three-level tree: a root, two parents, two counters of `total` steps under
// each parent.
struct ThreeLevelTree {
  explicit ThreeLevelTree(unsigned long long total)
  {
    for (int parentIndex = 0; parentIndex < 2; ++parentIndex) {
      auto parent = std::make_unique<Progression::ProcessProgressionTreeNode>();
      parents.push_back(parent.get());
      for (int counterIndex = 0; counterIndex < 2; ++counterIndex) {
        auto counter = std::make_unique<Progression::ProcessProgressionLinear>(total);
        counters.push_back(counter.get());
        parent->addChild(std::move(counter));
      }
      root->addChild(std::move(parent));
    }
  }

  // The root, then the parents, then the counters.
  std::vector<Progression::ProcessProgressionTreeNode*> nodes() const
  {
    std::vector<Progression::ProcessProgressionTreeNode*> all{root.get()};
    all.insert(all.end(), parents.begin(), parents.end());
    all.insert(all.end(), counters.begin(), counters.end());
    return all;
  }

  std::shared_ptr<Progression::ProcessProgressionTreeNode> root =
      std::make_shared<Progression::ProcessProgressionTreeNode>();
  std::vector<Progression::ProcessProgressionTreeNode*> parents;
  std::vector<Progression::ProcessProgressionLinear*> counters;
};

// The readings of a progression whose counters only grow never go down and
// stay within [0, 1].
inline bool isNonDecreasingFraction(const std::vector<double>& values)
{
  for (std::size_t index = 0; index < values.size(); ++index) {
    if (values[index] < 0.0 || values[index] > 1.0 || (index > 0 && values[index] < values[index - 1])) {
      return false;
    }
  }
  return true;
}

// Remembers every delivery with the moment it arrived.
class RecordingObserver : public Progression::ProgressionObserver {
public:
  struct Delivery {
    double progression;
    std::chrono::steady_clock::time_point at;
  };

  RecordingObserver(std::weak_ptr<Progression::ProgressionObservable> observable, unsigned int period,
                    std::shared_ptr<Core::Timing::WorkerClock> clock = nullptr)
      : ProgressionObserver(std::move(observable), period, DeferredStart{})
  {
    if (clock != nullptr) {
      Core::Timing::ClockOverride::use(*this, std::move(clock));
    }
    startObserving();
  }

  ~RecordingObserver() override { stopObserving(); }

  void onProgressionUpdated(double progression) override
  {
    const std::lock_guard lock(mutex);
    recorded.push_back({progression, std::chrono::steady_clock::now()});
  }

  std::vector<Delivery> deliveries() const
  {
    const std::lock_guard lock(mutex);
    return recorded;
  }

  std::vector<double> values() const
  {
    std::vector<double> result;
    for (const Delivery& delivery : deliveries()) {
      result.push_back(delivery.progression);
    }
    return result;
  }

  std::size_t count() const
  {
    const std::lock_guard lock(mutex);
    return recorded.size();
  }

  bool waitForCount(std::size_t expected) const
  {
    return waitFor([&] { return count() >= expected; });
  }

  // Waits until the last delivery carries `progression`.
  bool waitForLast(double progression,
                   std::chrono::steady_clock::duration deadline = Orvan::Testing::DEFAULT_DEADLINE) const
  {
    return waitFor(
        [&] {
          const std::lock_guard lock(mutex);
          return !recorded.empty() && recorded.back().progression == progression;
        },
        deadline);
  }

private:
  mutable std::mutex mutex;
  std::vector<Delivery> recorded;
};

// Holds each delivery inside onProgressionUpdated until the test opens the
// gate; the observer's own thread is then busy with that delivery.
class GatedObserver : public Progression::ProgressionObserver {
public:
  GatedObserver(std::weak_ptr<Progression::ProgressionObservable> observable, unsigned int period)
      : ProgressionObserver(std::move(observable), period, DeferredStart{})
  {
    startObserving();
  }

  ~GatedObserver() override
  {
    open();
    stopObserving();
  }

  void onProgressionUpdated(double progression) override
  {
    std::unique_lock lock(mutex);
    recorded.push_back(progression);
    changed.notify_all();
    changed.wait(lock, [this] { return isOpen; });
  }

  void open()
  {
    const std::lock_guard lock(mutex);
    isOpen = true;
    changed.notify_all();
  }

  std::size_t count() const
  {
    const std::lock_guard lock(mutex);
    return recorded.size();
  }

  bool waitForCount(std::size_t expected) const
  {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, DEFAULT_DEADLINE, [&] { return recorded.size() >= expected; });
  }

private:
  mutable std::mutex mutex;
  mutable std::condition_variable changed;
  std::vector<double> recorded;
  bool isOpen = false;
};

// Counts the change notifications a node sends.
template<class Node>
class Counting : public Node {
public:
  using Node::Node;

  int notifications() const { return calls; }

protected:
  void progressionChanged() override
  {
    ++calls;
    Node::progressionChanged();
  }

private:
  int calls = 0;
};

} // namespace Orvan::Testing
