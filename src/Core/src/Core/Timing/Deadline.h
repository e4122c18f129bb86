#pragma once

#include <algorithm>
#include <chrono>
#include <climits>

// Deadlines on the steady clock, with the arithmetic that must not overflow
// in one place: a period of any length gives a deadline (the largest time
// point when it would pass the clock's end), a negative period is none at
// all, and the time left before a deadline is computed without overflow from
// any present, one that reads below zero included.
namespace Orvan::Core::Timing {

using Clock = std::chrono::steady_clock;

// The deadline that never comes.
inline constexpr Clock::time_point NO_DEADLINE = Clock::time_point::max();

// `now` plus `period`, saturating at NO_DEADLINE; a negative period counts as
// zero.
inline Clock::time_point deadlineAfter(Clock::time_point now, std::chrono::milliseconds period)
{
  if (period.count() <= 0) {
    return now;
  }
  if (period > std::chrono::duration_cast<std::chrono::milliseconds>(Clock::duration::max())) {
    return NO_DEADLINE;
  }
  const auto step = std::chrono::duration_cast<Clock::duration>(period);
  if (now > NO_DEADLINE - step) {
    return NO_DEADLINE;
  }
  return now + step;
}

// The same from the steady clock's present.
inline Clock::time_point deadlineAfter(std::chrono::milliseconds period)
{
  return deadlineAfter(Clock::now(), period);
}

// The time left from `now` until `deadline`, rounded up to whole
// milliseconds: negative for NO_DEADLINE (no limit), zero once it has passed.
inline std::chrono::milliseconds timeUntil(Clock::time_point deadline, Clock::time_point now)
{
  if (deadline == NO_DEADLINE) {
    return std::chrono::milliseconds(-1);
  }
  if (deadline <= now) {
    return std::chrono::milliseconds(0);
  }
  // deadline - now may not fit the clock's duration when `now` is far below
  // zero: such a wait is as good as unlimited.
  if (now.time_since_epoch().count() < 0 &&
      deadline.time_since_epoch() > Clock::duration::max() + now.time_since_epoch()) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::duration::max());
  }
  return std::chrono::ceil<std::chrono::milliseconds>(deadline - now);
}

inline std::chrono::milliseconds timeUntil(Clock::time_point deadline)
{
  return timeUntil(deadline, Clock::now());
}

// The timeout argument of poll() for a wait until `deadline`: -1 for none,
// else the time left, capped at the largest int.
inline int pollTimeout(Clock::time_point deadline)
{
  const std::chrono::milliseconds left = timeUntil(deadline);
  return left.count() < 0 ? -1 : static_cast<int>(std::min<std::chrono::milliseconds::rep>(left.count(), INT_MAX));
}

// The timeout of a Windows wait until `deadline`: 0xFFFFFFFF (INFINITE) for
// none, else the time left, capped just below it.
inline unsigned long waitTimeoutMilliseconds(Clock::time_point deadline)
{
  const std::chrono::milliseconds left = timeUntil(deadline);
  return left.count() < 0
             ? 0xFFFFFFFFUL
             : static_cast<unsigned long>(std::min<std::chrono::milliseconds::rep>(left.count(), 0xFFFFFFFEL));
}

} // namespace Orvan::Core::Timing
