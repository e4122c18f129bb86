#include <Core/Process/Progression/ProgressionObservable.h>
#include <Core/Process/Progression/ProgressionObserver.h>

#include <Core/Event/CoreEvents.h>
#include <Core/Event/Event.h>
#include <Core/Logging/LoggingType.h>
#include <Utils/CoreAssert.h>
#include <Utils/PackageIdentifier.h>

#include "Timing/Deadline.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

namespace Orvan::Core::Process::Progression {

namespace {

void reportObservableGone()
{
  Event::logEvent(Event::LoggingEventInfo{Logging::LoggingType::Warning,
                                          Utils::ErrorManagement::PackageIdentifier::Core, Event::OBSERVABLE_DESTROYED},
                  Event::EventValue(std::string("Observable has been destroyed while observer were still listenning")));
}

} // namespace

// The observer's thread and what it shares with the pokes: at most one
// delivery per period, each reading the observable's fraction at delivery
// time.
class ProgressionObserver::TimeFilter {
public:
  TimeFilter(ProgressionObserver& observer, std::weak_ptr<ProgressionObservable> observable, unsigned int period)
      : observer(&observer)
      , observable(std::move(observable))
      , period(period)
  {
  }

  TimeFilter(const TimeFilter&) = delete;
  TimeFilter& operator=(const TimeFilter&) = delete;

  ~TimeFilter()
  {
    const bool stopHasBeenCalledBeforeDestruction = stopRequested.load();
    CORE_ASSERT(stopHasBeenCalledBeforeDestruction);
    if (!stopHasBeenCalledBeforeDestruction) {
      // Joining a thread nobody told to stop would wait for good.
      requestStop();
    }
    if (!started) {
      // A deferred observer that never started has no thread to end.
      return;
    }
    CORE_ASSERT(timeFilteringThread != nullptr);
    if (timeFilteringThread != nullptr && timeFilteringThread->joinable()) {
      timeFilteringThread->join();
    }
  }

  // Starts the thread, once and only before a stop; answers whether this
  // call started it.
  bool start()
  {
    const std::lock_guard lock(mutex);
    if (started || stopRequested.load()) {
      return false;
    }
    timeFilteringThread = std::make_unique<std::thread>([this] { run(); });
    started = true;
    return true;
  }

  void poke()
  {
    CORE_ASSERT(timeFilteringThread != nullptr);
    const std::lock_guard lock(mutex);
    if (!changePending) {
      changePending = true;
      wakeUp.notify_one();
    }
  }

  void requestStop()
  {
    stopRequested.store(true);
    // The thread may have just found the flag clear and be about to wait:
    // once we have held its mutex, it is either waiting (and the notification
    // reaches it) or will check the flag again before it waits. This also
    // lets a delivery in progress finish before stopping returns.
    {
      const std::lock_guard lock(mutex);
    }
    wakeUp.notify_one();
  }

  std::weak_ptr<ProgressionObservable> observed() const { return observable; }

private:
  void run()
  {
    while (!stopRequested.load()) {
      std::unique_lock lock(mutex);
      if (period.count() > 0) {
        // A full period; pokes only mark the change meanwhile.
        wakeUp.wait_until(lock, Timing::deadlineAfter(period), [this] { return stopRequested.load(); });
        if (stopRequested.load()) {
          return;
        }
      }
      wakeUp.wait(lock, [this] { return changePending || stopRequested.load(); });
      if (stopRequested.load()) {
        return;
      }
      std::shared_ptr<ProgressionObservable> current = observable.lock();
      if (current == nullptr) {
        // Nothing can poke this observer any more: end for good.
        reportObservableGone();
        return;
      }
      observer->onProgressionUpdated(current->captureProgression());
      changePending = false;
      current.reset();
    }
  }

  ProgressionObserver* observer;
  std::weak_ptr<ProgressionObservable> observable;
  bool changePending = false;
  std::atomic<bool> stopRequested{false};
  std::chrono::duration<std::int64_t, std::milli> period;
  std::mutex mutex;
  std::condition_variable wakeUp;
  std::unique_ptr<std::thread> timeFilteringThread;
  // Set once the thread exists; guarded by `mutex`, then read by the
  // destruction, which no other call may overlap.
  bool started = false;
};

ProgressionObserver::ProgressionObserver(std::weak_ptr<ProgressionObservable> observable, unsigned int period)
    : ProgressionObserver(std::move(observable), period, DeferredStart{})
{
  startObserving();
}

ProgressionObserver::ProgressionObserver(std::weak_ptr<ProgressionObservable> observable, unsigned int period,
                                         DeferredStart)
    : timeFilter(std::make_unique<TimeFilter>(*this, observable, period))
    , observable(std::move(observable))
{
}

void ProgressionObserver::startObserving()
{
  if (!timeFilter->start()) {
    return;
  }
  if (const std::shared_ptr<ProgressionObservable> current = observable.lock()) {
    current->registerObserver(this);
  }
}

ProgressionObserver::~ProgressionObserver()
{
  stopObserving();
  observable.reset();
  timeFilter.reset();
}

void ProgressionObserver::onObservableChanged()
{
  timeFilter->poke();
}

void ProgressionObserver::stopObserving()
{
  timeFilter->requestStop();
  if (const std::shared_ptr<ProgressionObservable> current = timeFilter->observed().lock()) {
    current->unregisterObserver(this);
  }
}

} // namespace Orvan::Core::Process::Progression
