#pragma once

#include <Utils/Export.h>

#include <chrono>
#include <string>

namespace Orvan::Utils {

// A stopwatch started at construction. Copies carry the same start instant.
class ORVAN_UTILS_EXPORT Chronometer {
public:
  Chronometer();
  Chronometer(const Chronometer&) = default;
  Chronometer& operator=(const Chronometer&) = default;
  ~Chronometer();

  std::chrono::steady_clock::duration elapsed() const;

  // The elapsed time with its unit: milliseconds with three decimals below one
  // second ("12.345 ms"), seconds with one decimal from there on ("3.2 s").
  std::string elapsedTimeAsStr() const;

private:
  std::chrono::steady_clock::time_point start;
};

} // namespace Orvan::Utils
