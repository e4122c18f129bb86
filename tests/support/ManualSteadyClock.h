#pragma once

#include <atomic>
#include <chrono>

namespace Orvan::Testing {

// A clock type with the steady clock's units that moves only when a test
// advances it, for code that reads a clock type's static now() (timers) or
// is given a function to read the present (chronometers). Its time is one
// for the whole test program: a test looks at differences only.
struct ManualSteadyClock {
  using duration = std::chrono::steady_clock::duration;
  using rep = duration::rep;
  using period = duration::period;
  using time_point = std::chrono::steady_clock::time_point;
  static constexpr bool is_steady = true;

  static time_point now() { return time_point(duration(ticks().load())); }

  static void advance(duration step) { ticks().fetch_add(step.count()); }

private:
  static std::atomic<rep>& ticks()
  {
    static std::atomic<rep> value{0};
    return value;
  }
};

} // namespace Orvan::Testing
