#pragma once

#include <chrono>

// The fixed periods of the library's blocking calls, in one place.

namespace Orvan::Core::Timing {

// How long System::run waits for its program at a time before it reads the
// cancellation token again.
inline constexpr std::chrono::milliseconds PROCESS_WAIT_CYCLE{1000};

// The pause between two connection attempts that the retry policy allows.
inline constexpr std::chrono::milliseconds CONNECT_RETRY_PAUSE{500};

} // namespace Orvan::Core::Timing
