#pragma once

#include <Utils/CoreAssert.h>

#include <optional>

namespace Orvan::Utils {

// A start instant and an optional delay after which the timer has expired.
template<class Clock>
struct Timer {
  explicit Timer(std::optional<typename Clock::duration> expiresAfter = std::nullopt)
      : start(Clock::now())
      , delay(expiresAfter)
  {
    // Checks the member, already set, so that a report names it `delay`.
    CORE_ASSERT(!delay || delay->count() >= 0);
  }

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
