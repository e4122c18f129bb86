#pragma once

#include <cstdint>

// The memory figures read straight from the system by the tests, to check
// the library's readings against: /proc on Linux, the memory status and
// process counters on Windows.
namespace Orvan::Testing::Platform {

struct SystemMemory {
  std::uint64_t virtualTotal = 0;
  std::uint64_t virtualUsed = 0;
  std::uint64_t virtualUsedByApplication = 0;
  std::uint64_t physicalTotal = 0;
  std::uint64_t physicalUsed = 0;
  std::uint64_t physicalUsedByApplication = 0;
};

SystemMemory readSystemMemory();

} // namespace Orvan::Testing::Platform
