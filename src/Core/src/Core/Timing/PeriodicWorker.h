#pragma once

#include "Timing/WorkerClock.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace Orvan::Core::Timing {

// A thread of the library that works in rounds and waits on a clock in
// between: the memory spy's sampling thread and a progression observer's
// time-filtering thread. It holds what both need: the thread, a stop flag, a
// mutex and its condition, and the waits, which end on their deadline, on a
// notification the caller asked for, or on a stop request.
//
// The owner keeps the state its thread waits on (a pending change, say)
// under this worker's mutex, taken with lock(); the calls that take a Lock
// must be handed one that holds it (CORE_ASSERT).
class PeriodicWorker final : private ClockWatcher {
public:
  using Lock = std::unique_lock<std::mutex>;

  explicit PeriodicWorker(std::shared_ptr<WorkerClock> clock);
  PeriodicWorker(const PeriodicWorker&) = delete;
  PeriodicWorker& operator=(const PeriodicWorker&) = delete;

  // Requests the stop and joins the thread, if one was started.
  ~PeriodicWorker() override;

  Lock lock();

  // Waits on `clock` from now on; only before start().
  void useClock(std::shared_ptr<WorkerClock> clock);

  // The thread, null until started; read it under lock().
  const std::thread* thread() const;

  // Starts the thread, which runs `body`. A worker starts once: a second
  // start replaces a thread that is still joinable, which ends the process
  // (std::thread's destructor calls std::terminate).
  void start(const Lock& held, std::function<void()> body);

  // Sets the stop flag, then takes and releases the mutex once before
  // notifying: the thread, which may have just found the flag clear and be
  // about to wait, either sees it or is waiting when the notification comes.
  // A round that the thread runs under the mutex finishes first.
  void requestStop();
  bool stopRequested() const;

  // Ends the pause in progress. A wake-up that comes while the thread is not
  // pausing is forgotten.
  void wakeUp();

  // Tells the thread that the state it waits on changed under `held`.
  void notify(const Lock& held);

  // On the thread: pauses for `period` on the clock, until wakeUp() or a
  // stop request. A period too long for the clock lasts until one of those.
  void pause(Lock& held, std::chrono::milliseconds period);

  // On the thread: waits, without a deadline, until `ready` holds or a stop
  // is requested.
  template<class Ready>
  void waitFor(Lock& held, Ready ready)
  {
    checkHeld(held);
    waitUntil(held, WorkerClock::time_point::max(), ready);
  }

private:
  // Every call that is handed a lock asserts that it holds this worker's
  // mutex: a lock on another mutex would leave the state unguarded and the
  // wait on the condition undefined.
  void checkHeld(const Lock& held) const;

  template<class Done>
  void waitUntil(Lock& held, WorkerClock::time_point deadline, Done done)
  {
    while (!stopRequested() && !done() && clock->now() < deadline) {
      clock->waitUntil(held, condition, deadline);
    }
  }

  void timeMoved() override;

  // Takes and releases the mutex once, then notifies the thread: a change
  // made before the call is either seen by the thread or followed by a
  // notification it receives.
  void notifyAfterLooking();

  std::shared_ptr<WorkerClock> clock;
  std::mutex mutex;
  std::condition_variable condition;
  std::atomic<bool> stopFlag{false};
  // Set by wakeUp, cleared when a pause begins; guarded by `mutex`.
  bool woken = false;
  std::unique_ptr<std::thread> workerThread;
};

} // namespace Orvan::Core::Timing
