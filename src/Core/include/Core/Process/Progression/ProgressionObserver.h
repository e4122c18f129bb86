#pragma once

#include <Core/Export.h>

#include <memory>

namespace Orvan::Core::Timing {
struct ClockOverride;
}

namespace Orvan::Core::Process::Progression {

class ProgressionObservable;

// Receives time-filtered readings of an observable's progression on a thread
// of its own. A change only marks the observer as having something pending;
// the thread delivers at most one reading per period, captured at delivery
// time, so any number of changes in between count as one.
//
// Build subclasses with the deferred start, so that nothing is delivered
// before the subclass exists:
//
//   class Bar : public ProgressionObserver {
//   public:
//     Bar(std::weak_ptr<ProgressionObservable> observable)
//         : ProgressionObserver(std::move(observable), 100, DeferredStart{})
//     {
//       // ... members ...
//       startObserving();   // last: from here on, deliveries may come
//     }
//     ~Bar() override { stopObserving(); }   // first: before the members go
//     void onProgressionUpdated(double fraction) override;
//   };
//
// A subclass must call stopObserving() in its own destructor: until then the
// thread may still be calling onProgressionUpdated. onProgressionUpdated must
// not change the observed progression, stop this observer or destroy it.
class ORVAN_CORE_EXPORT ProgressionObserver {
public:
  // Selects the constructor that leaves starting to startObserving().
  struct DeferredStart {};

  // `period` is the minimum time in milliseconds between two deliveries, also
  // before the first one (0: deliver as soon as a change is pending). The
  // thread starts first, then the observer registers itself if the observable
  // still exists. Throws std::system_error when the thread cannot start.
  //
  // The thread runs before a subclass's own constructor does: a change made
  // on another thread while the subclass is still being built can be
  // delivered before onProgressionUpdated is the subclass's. Prefer the
  // deferred start below.
  ProgressionObserver(std::weak_ptr<ProgressionObservable> observable, unsigned int period);

  // The same observer, not started yet: it has no thread and is not
  // registered, so nothing is delivered until startObserving() is called.
  // Stopping or destroying it before then is harmless.
  ProgressionObserver(std::weak_ptr<ProgressionObservable> observable, unsigned int period, DeferredStart);

  ProgressionObserver(const ProgressionObserver&) = delete;
  ProgressionObserver& operator=(const ProgressionObserver&) = delete;

  // Stops observing and joins the thread.
  virtual ~ProgressionObserver();

  // Starts the thread, then registers with the observable if it still
  // exists: what the two-argument constructor does. A subclass built with
  // DeferredStart calls it last in its own constructor. Only the first call
  // starts anything; a call after stopObserving() does nothing. Throws
  // std::system_error when the thread cannot start.
  void startObserving();

  // Called on the observer's thread with the fraction just captured.
  virtual void onProgressionUpdated(double progression) = 0;

  // Called by the observable on each change.
  void onObservableChanged();

  // Ends the deliveries and unregisters from the observable. Once it returns,
  // no delivery is running and none will start. Does not join the thread;
  // calling it twice is harmless.
  void stopObserving();

private:
  // Lets the library's tests run the period on a clock they move by hand.
  friend struct Timing::ClockOverride;

  class TimeFilter;

  std::unique_ptr<TimeFilter> timeFilter;
  std::weak_ptr<ProgressionObservable> observable;
};

} // namespace Orvan::Core::Process::Progression
