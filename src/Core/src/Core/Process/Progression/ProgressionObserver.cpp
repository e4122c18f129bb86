#include <Core/Process/Progression/ProgressionObservable.h>
#include <Core/Process/Progression/ProgressionObserver.h>

#include <Core/Logging/LoggingType.h>
#include <Utils/CoreAssert.h>

#include "Event/CoreEventReport.h"
#include "Timing/ClockOverride.h"
#include "Timing/PeriodicWorker.h"

#include <chrono>
#include <string>
#include <thread>
#include <utility>

namespace Orvan::Core::Process::Progression {

namespace {

void reportObservableGone()
{
  Event::reportCoreEvent(Logging::LoggingType::Warning, Event::OBSERVABLE_DESTROYED,
                         "Observable has been destroyed while observer were still listenning");
}

} // namespace

// The observer's thread and what it shares with the pokes: at most one
// delivery per period, each reading the observable's fraction at delivery
// time.
class ProgressionObserver::TimeFilter {
public:
  TimeFilter(ProgressionObserver& observer, std::weak_ptr<ProgressionObservable> observable, unsigned int period,
             std::shared_ptr<Timing::WorkerClock> clock)
      : observer(&observer)
      , observable(std::move(observable))
      , period(period)
      , worker(std::move(clock))
  {
  }

  TimeFilter(const TimeFilter&) = delete;
  TimeFilter& operator=(const TimeFilter&) = delete;

  // The worker, destroyed first, joins the thread if it was started.
  ~TimeFilter()
  {
    const bool stopHasBeenCalledBeforeDestruction = worker.stopRequested();
    CORE_ASSERT(stopHasBeenCalledBeforeDestruction);
  }

  // Starts the thread, once and only before a stop; answers whether this
  // call started it.
  bool start()
  {
    const Timing::PeriodicWorker::Lock lock = worker.lock();
    if (worker.thread() != nullptr || worker.stopRequested()) {
      return false;
    }
    worker.start(lock, [this] { run(); });
    return true;
  }

  void poke()
  {
    const Timing::PeriodicWorker::Lock lock = worker.lock();
    const std::thread* const timeFilteringThread = worker.thread();
    CORE_ASSERT(timeFilteringThread != nullptr);
    if (!changePending) {
      changePending = true;
      worker.notify(lock);
    }
  }

  // Once this returns, a delivery in progress has finished and no other
  // will start.
  void requestStop() { worker.requestStop(); }

  std::weak_ptr<ProgressionObservable> observed() const { return observable; }

private:
  void run()
  {
    while (!worker.stopRequested()) {
      Timing::PeriodicWorker::Lock lock = worker.lock();
      if (period.count() > 0) {
        // A full period; pokes only mark the change meanwhile.
        worker.pause(lock, period);
      }
      worker.waitFor(lock, [this] { return changePending; });
      if (worker.stopRequested()) {
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
  // Guarded by the worker's mutex.
  bool changePending = false;
  std::chrono::milliseconds period;
  // Last, so that its thread is joined before the members above go.
  Timing::PeriodicWorker worker;

  friend struct Timing::ClockOverride;
};

ProgressionObserver::ProgressionObserver(std::weak_ptr<ProgressionObservable> observable, unsigned int period)
    : ProgressionObserver(std::move(observable), period, DeferredStart{})
{
  startObserving();
}

ProgressionObserver::ProgressionObserver(std::weak_ptr<ProgressionObservable> observable, unsigned int period,
                                         DeferredStart)
    : timeFilter(std::make_unique<TimeFilter>(*this, observable, period, Timing::steadyWorkerClock()))
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

namespace Orvan::Core::Timing {

void ClockOverride::use(Process::Progression::ProgressionObserver& observer, std::shared_ptr<WorkerClock> clock)
{
  observer.timeFilter->worker.useClock(std::move(clock));
}

} // namespace Orvan::Core::Timing
