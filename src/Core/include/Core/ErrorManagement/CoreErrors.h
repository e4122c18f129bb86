#pragma once

namespace Orvan::Core::ErrorManagement {

// The library's error numbers in package 20. There are none yet: new errors
// go before LAST_ERROR, which marks the end.
enum CoreErrors : unsigned int {
  LAST_ERROR = 0,
};

} // namespace Orvan::Core::ErrorManagement
