#pragma once

#include <Utils/CoreAssert.h>

#include <optional>

namespace Orvan::Utils {

// A start instant and an optional delay after which the timer has expired.
template<class Clock>
struct Timer {
  // The parameter is named as the member it sets, so that the assertion
  // reads as the timer's own condition; -Wshadow would flag that name.
#if defined(__GNUC__)
#  pragma GCC diagnostic push
#  pragma GCC diagnostic ignored "-Wshadow"
#endif
  explicit Timer(std::optional<typename Clock::duration> delay = std::nullopt)
      : start(Clock::now())
      , delay(delay)
  {
    CORE_ASSERT(!delay || delay->count() >= 0);
  }
#if defined(__GNUC__)
#  pragma GCC diagnostic pop
#endif

  // True once at least `duration` has passed since the start.
  bool hasElapsed(typename Clock::duration duration) const
  {
    CORE_ASSERT(duration.count() >= 0);
    return Clock::now() - start >= duration;
  }

  // True once the delay has passed; a timer needs a delay to expire.
  bool isExpired() const
  {
    CORE_ASSERT(delay);
    // Without a delay (reported above) the timer counts as expired.
    return !delay.has_value() || hasElapsed(*delay);
  }

  typename Clock::time_point start;
  std::optional<typename Clock::duration> delay;
};

} // namespace Orvan::Utils
