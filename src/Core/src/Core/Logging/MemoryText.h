#pragma once

#include <Core/Logging/MemorySpy.h>

#include <cstdint>
#include <string>

namespace Orvan::Core::Logging {

// A byte count the way the memory lines show it: "16GB", "1 512MB",
// "50 020KB", "005KB" (the boundaries are strict: exactly 1 MiB is "000KB").
std::string formatMemorySize(std::uint64_t bytes);

// The sample line: "[MEMORY] Virtual: " and the six figures, tab-separated,
// with "Physical:" before the physical ones.
std::string formatMemoryUsage(const MemoryUsageCapture& usage);

// The column legend written once per attached spy.
inline constexpr const char* MEMORY_LEGEND = "[MEMORY] Virtual: PC TOTAL\t-\tPC USED\t-\tUSED BY APPLICATION\t\t"
                                             "Physical: PC TOTAL\t-\tPC USED\t-\tUSED BY APPLICATION";

} // namespace Orvan::Core::Logging
