#pragma once

#include <Core/Logging/LoggingType.h>

namespace Orvan::Core::Logging {

// The levels from the least to the most severe: Verbose, Debug, Info,
// Warning, Error. The numbers of LoggingType do not follow that order.
constexpr int severity(LoggingType type)
{
  switch (type) {
  case LoggingType::Verbose:
    return 0;
  case LoggingType::Debug:
    return 1;
  case LoggingType::Info:
    return 2;
  case LoggingType::Warning:
    return 3;
  case LoggingType::Error:
    return 4;
  }
  return 0;
}

// Whether a line of level `type` passes a threshold: it is at least as
// severe. A threshold of Verbose lets everything through; one of Info drops
// the debug and verbose lines.
constexpr bool reachesThreshold(LoggingType type, LoggingType threshold)
{
  return severity(type) >= severity(threshold);
}

} // namespace Orvan::Core::Logging
