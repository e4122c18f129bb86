#pragma once

#include <limits>
#include <stdexcept>
#include <type_traits>

namespace Orvan::Utils {

// Converts an integer to the integer type `To`, throwing std::out_of_range
// when the value does not fit.
template<class To, class From>
constexpr To safe_cast(From value)
{
  static_assert(std::is_integral_v<To> && std::is_integral_v<From>, "safe_cast converts integers");
  constexpr bool fromSigned = std::is_signed_v<From>;
  constexpr bool toSigned = std::is_signed_v<To>;
  bool fits = true;
  if constexpr (fromSigned && !toSigned) {
    fits = value >= 0 && static_cast<std::make_unsigned_t<From>>(value) <= std::numeric_limits<To>::max();
  } else if constexpr (!fromSigned && toSigned) {
    fits = value <= static_cast<std::make_unsigned_t<To>>(std::numeric_limits<To>::max());
  } else {
    fits = value >= std::numeric_limits<To>::min() && value <= std::numeric_limits<To>::max();
  }
  if (!fits) {
    throw std::out_of_range("safe_cast: value does not fit the target type");
  }
  return static_cast<To>(value);
}

} // namespace Orvan::Utils
