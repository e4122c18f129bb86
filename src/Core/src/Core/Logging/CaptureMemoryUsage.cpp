#include <Core/Logging/MemorySpy.h>

#include "Platform/MemoryUsage.h"

namespace Orvan::Core::Logging {

MemoryUsageCapture MemorySpy::captureMemoryUsage()
{
  return Platform::currentMemoryUsage();
}

} // namespace Orvan::Core::Logging
