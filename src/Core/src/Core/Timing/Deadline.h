#pragma once

#include "Timing/Periods.h"

#include <algorithm>
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

// How long one wait may last on the way to `deadline`: until it (negative:
// no limit when it is the largest time point), and no longer than a token
// check period when `watchingToken`, so that a cancellation is noticed.
inline std::chrono::milliseconds nextWait(std::chrono::steady_clock::time_point deadline, bool watchingToken)
{
  using Clock = std::chrono::steady_clock;
  std::chrono::milliseconds wait(-1);
  if (deadline != Clock::time_point::max()) {
    const Clock::time_point now = Clock::now();
    wait = deadline > now ? std::chrono::ceil<std::chrono::milliseconds>(deadline - now) : std::chrono::milliseconds(0);
  }
  if (watchingToken) {
    wait = wait.count() < 0 ? CANCEL_CHECK_PERIOD : std::min(wait, CANCEL_CHECK_PERIOD);
  }
  return wait;
}

} // namespace Orvan::Core::Timing
