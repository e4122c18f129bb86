#pragma once

#include <chrono>
#include <cstdint>

// A signal that is raised once and for all and then stays raised, which any
// number of the library's waits watch beside what they wait for: an eventfd
// on POSIX (readable once raised, and never read), a manual-reset event on
// Windows. It is what lets a cancellation wake a blocked call at once instead
// of the call polling a flag.
namespace Orvan::Core::Platform {

// The system's reference to a wake signal: a descriptor on POSIX, a HANDLE on
// Windows. NO_WAKE is none; a wait given NO_WAKE watches only its own thing.
using WakeHandle = std::uintptr_t;
inline constexpr WakeHandle NO_WAKE = ~WakeHandle{0};

class WakeSignal {
public:
  // Throws std::system_error when the system has no descriptor or event left.
  WakeSignal();
  ~WakeSignal();
  WakeSignal(const WakeSignal&) = delete;
  WakeSignal& operator=(const WakeSignal&) = delete;

  // Raises the signal; raising it again changes nothing.
  void raise() noexcept;

  WakeHandle handle() const noexcept { return wakeHandle; }

private:
  WakeHandle wakeHandle;
};

// Waits at most `wait` (negative: without limit) for `wake` to be raised;
// true when it was. A signal interrupting the wait does not end it early.
bool waitRaised(WakeHandle wake, std::chrono::milliseconds wait);

} // namespace Orvan::Core::Platform
