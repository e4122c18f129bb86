#pragma once

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <signal.h>

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

// True when a process of `group` runs. A process that has ended and waits
// to be reaped (an orphan whose new parent is slow to reap it) does not.
inline bool processOfGroupRuns(pid_t group)
{
  if (::kill(-group, 0) != 0 && errno == ESRCH) {
    return false;
  }
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", ignored)) {
    std::ifstream file(entry.path() / "stat");
    std::string stat;
    if (!std::getline(file, stat) || stat.rfind(')') == std::string::npos) {
      continue;
    }
    // "pid (name) state ppid pgrp ...": the name may hold anything.
    std::istringstream fields(stat.substr(stat.rfind(')') + 1));
    char state = 0;
    long parent = 0;
    long memberOf = 0;
    if (fields >> state >> parent >> memberOf && memberOf == group && state != 'Z' && state != 'X') {
      return true;
    }
  }
  return false;
}

} // namespace Orvan::Testing
