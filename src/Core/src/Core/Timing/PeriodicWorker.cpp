#include "Timing/PeriodicWorker.h"

#include <Utils/CoreAssert.h>

#include "Timing/Deadline.h"

#include <utility>

namespace Orvan::Core::Timing {

PeriodicWorker::PeriodicWorker(std::shared_ptr<WorkerClock> clock)
    : clock(std::move(clock))
{
  this->clock->watch(*this);
}

PeriodicWorker::~PeriodicWorker()
{
  requestStop();
  if (workerThread != nullptr && workerThread->joinable()) {
    workerThread->join();
  }
  clock->unwatch(*this);
}

PeriodicWorker::Lock PeriodicWorker::lock()
{
  return Lock(mutex);
}

void PeriodicWorker::useClock(std::shared_ptr<WorkerClock> replacement)
{
  CORE_ASSERT(workerThread == nullptr);
  clock->unwatch(*this);
  clock = std::move(replacement);
  clock->watch(*this);
}

const std::thread* PeriodicWorker::thread() const
{
  return workerThread.get();
}

void PeriodicWorker::checkHeld(const Lock& held) const
{
  CORE_ASSERT(held.mutex() == &mutex && held.owns_lock());
}

void PeriodicWorker::start(const Lock& held, std::function<void()> body)
{
  checkHeld(held);
  workerThread = std::make_unique<std::thread>(std::move(body));
}

void PeriodicWorker::requestStop()
{
  stopFlag.store(true);
  notifyAfterLooking();
}

bool PeriodicWorker::stopRequested() const
{
  return stopFlag.load();
}

void PeriodicWorker::wakeUp()
{
  const std::lock_guard held(mutex);
  woken = true;
  condition.notify_all();
}

void PeriodicWorker::notify(const Lock& held)
{
  checkHeld(held);
  condition.notify_all();
}

void PeriodicWorker::pause(Lock& held, std::chrono::milliseconds period)
{
  checkHeld(held);
  woken = false;
  waitUntil(held, deadlineAfter(clock->now(), period), [this] { return woken; });
}

// The clock stored its new time before calling.
void PeriodicWorker::timeMoved()
{
  notifyAfterLooking();
}

// The thread looks at the stop flag and the clock under the mutex: once the
// mutex has been held here, it either sees what changed before the call or is
// waiting and gets the notification.
void PeriodicWorker::notifyAfterLooking()
{
  {
    const std::lock_guard held(mutex);
  }
  condition.notify_all();
}

} // namespace Orvan::Core::Timing
