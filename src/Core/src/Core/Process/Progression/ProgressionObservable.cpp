#include <Core/Process/Progression/ProgressionObservable.h>
#include <Core/Process/Progression/ProgressionObserver.h>

#include <Utils/CoreAssert.h>

#include <algorithm>

namespace Orvan::Core::Process::Progression {

ProgressionObservable::ProgressionObservable() = default;

ProgressionObservable::~ProgressionObservable() = default;

void ProgressionObservable::registerObserver(ProgressionObserver* observer)
{
  CORE_ASSERT(observer != nullptr);
  if (observer == nullptr) {
    // A null entry would be called at the next change.
    return;
  }
  const std::lock_guard lock(observersMutex);
  observers.push_back(observer);
  observerCount.store(observers.size(), std::memory_order_relaxed);
}

void ProgressionObservable::unregisterObserver(ProgressionObserver* observer)
{
  const std::lock_guard lock(observersMutex);
  const auto found = std::find(observers.begin(), observers.end(), observer);
  if (found != observers.end()) {
    observers.erase(found);
    observerCount.store(observers.size(), std::memory_order_relaxed);
  }
}

void ProgressionObservable::progressionChanged()
{
  if (observerCount.load(std::memory_order_relaxed) == 0) {
    return;
  }
  // A poke only marks the observer, so it is made under the lock.
  const std::lock_guard lock(observersMutex);
  for (ProgressionObserver* observer : observers) {
    CORE_ASSERT(observer != nullptr);
    if (observer != nullptr) {
      observer->onObservableChanged();
    }
  }
}

} // namespace Orvan::Core::Process::Progression
