#pragma once

#include <Core/Export.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

namespace Orvan::Core::Timing {

// Told by a clock whose time is moved by hand that it has moved, so that a
// thread waiting for one of its deadlines looks at the time again.
class ORVAN_CORE_EXPORT ClockWatcher {
public:
  ClockWatcher() = default;
  ClockWatcher(const ClockWatcher&) = delete;
  ClockWatcher& operator=(const ClockWatcher&) = delete;
  virtual ~ClockWatcher();

  // Called on the thread that moved the time. It takes the waiting thread's
  // mutex, so the clock must not be holding a lock that thread may want.
  virtual void timeMoved() = 0;
};

// The time base of the library's own threads: the pauses of a memory spy
// between its samples and the period of a progression observer. The default,
// steadyWorkerClock(), follows std::chrono::steady_clock; a test gives a clock
// it moves by hand, so that it decides when a period is over instead of
// waiting for it.
//
// A clock that moves by itself ignores watchers. A clock moved by hand
// stores its new time first and then calls timeMoved() on every watcher;
// together with waitUntil blocking on the caller's condition, no deadline it
// reaches is missed by a waiting thread.
class ORVAN_CORE_EXPORT WorkerClock {
public:
  using time_point = std::chrono::steady_clock::time_point;
  using duration = std::chrono::steady_clock::duration;

  WorkerClock() = default;
  WorkerClock(const WorkerClock&) = delete;
  WorkerClock& operator=(const WorkerClock&) = delete;
  virtual ~WorkerClock();

  virtual time_point now() const = 0;

  // Blocks the calling thread, whose `lock` holds the mutex that guards
  // `condition`, until `deadline` has come on this clock or `condition` is
  // notified; it may also return early for no reason, so the caller looks at
  // its state and the time again. time_point::max() is a deadline that never
  // comes.
  virtual void waitUntil(std::unique_lock<std::mutex>& lock, std::condition_variable& condition,
                         time_point deadline) = 0;

  // Registers and removes a watcher; neither is called while the watcher's
  // thread holds its own mutex. A watcher stays valid until removed.
  virtual void watch(ClockWatcher& watcher) = 0;
  virtual void unwatch(ClockWatcher& watcher) = 0;
};

// The clock every memory spy and progression observer uses unless given
// another one: std::chrono::steady_clock, shared by all of them.
ORVAN_CORE_EXPORT std::shared_ptr<WorkerClock> steadyWorkerClock();

} // namespace Orvan::Core::Timing
