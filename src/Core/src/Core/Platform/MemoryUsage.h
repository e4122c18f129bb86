#pragma once

#include <Core/Logging/MemorySpy.h>

namespace Orvan::Core::Platform {

// The machine's and the process's memory figures, read from the system now.
Logging::MemoryUsageCapture currentMemoryUsage();

} // namespace Orvan::Core::Platform
