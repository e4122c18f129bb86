#pragma once

#include <chrono>

namespace Orvan::Core::Timing {

// `now` plus `period`, saturating at the clock's largest value: a period of
// any length (milliseconds::max(), centuries) gives a deadline that simply
// never comes, never an overflow.
inline std::chrono::steady_clock::time_point deadlineAfter(std::chrono::steady_clock::time_point now,
                                                           std::chrono::milliseconds period)
{
  using Clock = std::chrono::steady_clock;
  const auto room = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::time_point::max() - now);
  if (period >= room) {
    return Clock::time_point::max();
  }
  return now + period;
}

// The same from the steady clock's present.
inline std::chrono::steady_clock::time_point deadlineAfter(std::chrono::milliseconds period)
{
  return deadlineAfter(std::chrono::steady_clock::now(), period);
}

} // namespace Orvan::Core::Timing
