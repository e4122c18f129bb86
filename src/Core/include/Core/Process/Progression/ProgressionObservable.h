#pragma once

#include <Core/Export.h>

#include <atomic>
#include <cstddef>
#include <list>
#include <mutex>

namespace Orvan::Core::Process::Progression {

class ProgressionObserver;

// Something whose progression (a fraction between 0.0 and 1.0) can be
// observed. Each change pokes the registered observers; an observer only
// marks the change and reads the fraction later, on its own thread.
//
// Observables are shared with observers through std::shared_ptr; observers
// keep weak references and must unregister before they die.
class ORVAN_CORE_EXPORT ProgressionObservable {
public:
  ProgressionObservable();
  ProgressionObservable(const ProgressionObservable&) = delete;
  ProgressionObservable& operator=(const ProgressionObservable&) = delete;

  // Does not tell the observers: they find out through their weak references.
  virtual ~ProgressionObservable();

  virtual double captureProgression() const = 0;
  virtual bool isCompleted() const = 0;

  // Appends `observer` to the list. Registering the same observer twice makes
  // it poked twice per change. A null observer is reported and ignored.
  void registerObserver(ProgressionObserver* observer);

  // Removes the first registration of `observer`; an unknown one is ignored.
  void unregisterObserver(ProgressionObserver* observer);

protected:
  // Pokes every registered observer, in registration order, on the calling
  // thread.
  virtual void progressionChanged();

private:
  std::list<ProgressionObserver*> observers;
  // Mirrors observers.size(), so that a change with nobody listening returns
  // without taking the lock.
  std::atomic<std::size_t> observerCount{0};
  std::mutex observersMutex;
};

} // namespace Orvan::Core::Process::Progression
