#pragma once

#include <cstdint>

namespace Orvan::Core::Platform {

// The machine's and the process's memory figures, in bytes.
struct MemoryFigures {
  // Commit limit of the machine and the memory committed on it.
  std::uint64_t virtualTotal = 0;
  std::uint64_t virtualUsed = 0;
  // Private memory of this process.
  std::uint64_t virtualUsedByApplication = 0;
  // Installed physical memory and the part of it in use.
  std::uint64_t physicalTotal = 0;
  std::uint64_t physicalUsed = 0;
  // Resident set (working set) of this process.
  std::uint64_t physicalUsedByApplication = 0;
};

// The figures, read from the system now.
MemoryFigures currentMemoryUsage();

} // namespace Orvan::Core::Platform
