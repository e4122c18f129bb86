#pragma once

#include <cerrno>
#include <cstddef>
#include <filesystem>

#include <sys/wait.h>

// What a POSIX test counts of its own process after running programs.
namespace Orvan::Testing {

// The entries of a /proc directory of this process.
inline std::size_t procEntries(const char* directory)
{
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(directory)) {
    ++count;
  }
  return count;
}

inline std::size_t openDescriptorCount()
{
  return procEntries("/proc/self/fd");
}

inline std::size_t threadCount()
{
  return procEntries("/proc/self/task");
}

// True when this process has no child at all, running or zombie. Asks
// without reaping, so that it cannot hide a zombie that was left.
inline bool hasNoChild()
{
  siginfo_t information{};
  return ::waitid(P_ALL, 0, &information, WEXITED | WNOHANG | WNOWAIT) == -1 && errno == ECHILD;
}

} // namespace Orvan::Testing
