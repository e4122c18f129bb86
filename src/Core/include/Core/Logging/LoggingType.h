#pragma once

#include <cstdint>

namespace Orvan::Core::Logging {

// The five levels. Callers store and pass the numbers, so the values are part
// of the interface; note that Debug comes before Error here.
enum class LoggingType : std::int32_t {
  Info = 0,
  Warning = 1,
  Debug = 2,
  Error = 3,
  Verbose = 4,
};

} // namespace Orvan::Core::Logging
