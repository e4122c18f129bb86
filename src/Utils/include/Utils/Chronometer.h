#pragma once

#include <Utils/Export.h>

#include <chrono>
#include <string>

namespace Orvan::Utils {

// A stopwatch started at construction. Copies carry the same start instant.
class ORVAN_UTILS_EXPORT Chronometer {
public:
  // Where a chronometer reads the present.
  using Now = std::chrono::steady_clock::time_point (*)();

  // Reads std::chrono::steady_clock.
  Chronometer();

  // Reads `now` instead, at construction and at each reading: a test gives
  // a clock it moves by hand.
  explicit Chronometer(Now now);
  Chronometer(const Chronometer&) = default;
  Chronometer& operator=(const Chronometer&) = default;
  ~Chronometer();

  std::chrono::steady_clock::duration elapsed() const;

  // The elapsed time with its unit: milliseconds with three decimals below one
  // second ("12.345 ms"), seconds with one decimal from there on ("3.2 s").
  std::string elapsedTimeAsStr() const;

private:
  Now now;
  std::chrono::steady_clock::time_point start;
};

} // namespace Orvan::Utils
