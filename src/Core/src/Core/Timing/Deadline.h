#pragma once

#include <chrono>

namespace Orvan::Core::Timing {

// How often a wait that a cancellation token may end looks at the token: a
// pending connection, a blocked read, the pause between two connection
// attempts.
inline constexpr std::chrono::milliseconds CANCEL_CHECK_PERIOD{50};

// Now plus `period` on the steady clock, saturating at the clock's largest
// value: a period of any length (milliseconds::max(), centuries) gives a
// deadline that simply never comes, never an overflow.
inline std::chrono::steady_clock::time_point deadlineAfter(std::chrono::milliseconds period)
{
  using Clock = std::chrono::steady_clock;
  const Clock::time_point now = Clock::now();
  const auto room = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::time_point::max() - now);
  if (period >= room) {
    return Clock::time_point::max();
  }
  return now + period;
}

} // namespace Orvan::Core::Timing
