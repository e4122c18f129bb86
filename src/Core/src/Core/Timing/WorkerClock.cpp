#include "Timing/WorkerClock.h"

namespace Orvan::Core::Timing {

namespace {

class SteadyWorkerClock final : public WorkerClock {
public:
  time_point now() const override { return std::chrono::steady_clock::now(); }

  void waitUntil(std::unique_lock<std::mutex>& lock, std::condition_variable& condition, time_point deadline) override
  {
    if (deadline == time_point::max()) {
      condition.wait(lock);
    } else {
      condition.wait_until(lock, deadline);
    }
  }

  // The steady clock moves by itself: a timed wait ends on its own.
  void watch(ClockWatcher&) override {}
  void unwatch(ClockWatcher&) override {}
};

} // namespace

ClockWatcher::~ClockWatcher() = default;

WorkerClock::~WorkerClock() = default;

std::shared_ptr<WorkerClock> steadyWorkerClock()
{
  static const std::shared_ptr<WorkerClock> clock = std::make_shared<SteadyWorkerClock>();
  return clock;
}

} // namespace Orvan::Core::Timing
