#pragma once

#include "WaitFor.h"

#include <Timing/WorkerClock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <vector>

namespace Orvan::Testing {

// A clock for the library's periodic threads that moves only when the test
// advances it. Advancing wakes every thread waiting on it, and the test can
// wait until those threads have all gone back to waiting after having seen
// the present time: then nothing they do is under way, and whatever the
// present allowed them to do is done. A test thus shows that nothing comes
// before a period is over by advancing to just short of it, and that
// something comes once it is over, without sleeping.
class ManualClock final : public Core::Timing::WorkerClock {
public:
  ManualClock()
      : ticks(std::chrono::steady_clock::now().time_since_epoch().count())
  {
  }

  time_point now() const override { return time_point(duration(ticks.load())); }

  // Moves the time forward by `step`, saturating at the clock's largest
  // value, then wakes the waiting threads.
  void advance(duration step)
  {
    const std::lock_guard lock(watchersMutex);
    const duration::rep current = ticks.load();
    const duration::rep room = duration::max().count() - current;
    ticks.store(step.count() >= room ? duration::max().count() : current + step.count());
    for (Core::Timing::ClockWatcher* watcher : watchers) {
      watcher->timeMoved();
    }
  }

  // True when exactly `threads` threads wait on this clock, each of them
  // having found the present time not yet at its deadline.
  bool settled(std::size_t threads) const
  {
    const std::lock_guard lock(waitersMutex);
    const time_point present = now();
    return waiters.size() == threads &&
           std::all_of(waiters.begin(), waiters.end(), [&](const Waiter* waiter) { return waiter->seen == present; });
  }

  // Waits (with the tests' generous deadline) until settled(threads).
  bool waitUntilSettled(std::size_t threads) const
  {
    return waitFor([&] { return settled(threads); });
  }

  // The deadlines the waiting threads wait for (time_point::max(): none).
  std::vector<time_point> deadlines() const
  {
    const std::lock_guard lock(waitersMutex);
    std::vector<time_point> result;
    for (const Waiter* waiter : waiters) {
      result.push_back(waiter->deadline);
    }
    return result;
  }

  void waitUntil(std::unique_lock<std::mutex>& lock, std::condition_variable& condition, time_point deadline) override
  {
    Waiter self{now(), deadline};
    {
      const std::lock_guard guard(waitersMutex);
      if (self.seen >= deadline) {
        return;
      }
      waiters.push_back(&self);
    }
    // advance() stores the time before it wakes anyone, and waking takes
    // the caller's mutex, which this thread holds until it waits.
    condition.wait(lock);
    const std::lock_guard guard(waitersMutex);
    waiters.erase(std::find(waiters.begin(), waiters.end(), &self));
  }

  void watch(Core::Timing::ClockWatcher& watcher) override
  {
    const std::lock_guard lock(watchersMutex);
    watchers.push_back(&watcher);
  }

  void unwatch(Core::Timing::ClockWatcher& watcher) override
  {
    const std::lock_guard lock(watchersMutex);
    watchers.erase(std::find(watchers.begin(), watchers.end(), &watcher));
  }

private:
  struct Waiter {
    time_point seen;
    time_point deadline;
  };

  std::atomic<duration::rep> ticks;
  // Taken by advance() before a watcher's mutex: never taken while holding
  // one.
  std::mutex watchersMutex;
  std::vector<Core::Timing::ClockWatcher*> watchers;
  // Taken last, and held for no other lock.
  mutable std::mutex waitersMutex;
  std::vector<Waiter*> waiters;
};

} // namespace Orvan::Testing
