#pragma once

#include <Core/Process/CancelationToken.h>

#include "Platform/WakeSignal.h"

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

namespace Orvan::Core::Process {

// The heap block of a token: the flag, the registered callbacks (an
// intrusive list, so that registering allocates nothing) and, made on first
// demand, the wake signal that the library's blocking waits watch.
class CancelationState {
public:
  bool requested() const { return flag.load(std::memory_order_acquire); }
  void request();

  // The signal raised on cancellation, made on the first call.
  Platform::WakeHandle wakeHandle();

  // False when the token is already cancelled: the caller then runs the
  // callback itself.
  bool add(CancelationCallback& callback);
  void remove(CancelationCallback& callback);

private:
  std::atomic<bool> flag{false};
  std::mutex mutex;
  std::unique_ptr<Platform::WakeSignal> wake;
  CancelationCallback* first = nullptr;
  CancelationCallback* last = nullptr;
  // The callback that request() is running, on which thread, and the
  // condition that its end is told by.
  CancelationCallback* running = nullptr;
  std::thread::id runningThread;
  std::condition_variable runningEnded;
};

// What the library's waits need of a token.
struct CancelationAccess {
  // The token's wake signal; NO_WAKE for a null token.
  static Platform::WakeHandle wakeHandle(const CancelationToken* token)
  {
    return token == nullptr ? Platform::NO_WAKE : token->state->wakeHandle();
  }
};

} // namespace Orvan::Core::Process
