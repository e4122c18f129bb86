#include <Core/Logging/MemorySpy.h>

#include "Platform/MemoryUsage.h"

namespace Orvan::Core::Logging {

MemoryUsageCapture MemorySpy::captureMemoryUsage()
{
  const Platform::MemoryFigures figures = Platform::currentMemoryUsage();
  MemoryUsageCapture usage;
  usage.virtualTotal = figures.virtualTotal;
  usage.virtualUsed = figures.virtualUsed;
  usage.virtualUsedByApplication = figures.virtualUsedByApplication;
  usage.physicalTotal = figures.physicalTotal;
  usage.physicalUsed = figures.physicalUsed;
  usage.physicalUsedByApplication = figures.physicalUsedByApplication;
  return usage;
}

} // namespace Orvan::Core::Logging
