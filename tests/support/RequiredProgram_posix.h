#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>

#include <unistd.h>

namespace Orvan::Testing {

// The program `name` found on the search path, or an empty path.
inline std::filesystem::path findOnPath(const std::string& name)
{
  const char* path = std::getenv("PATH");
  std::istringstream directories(path != nullptr ? path : "");
  for (std::string directory; std::getline(directories, directory, ':');) {
    const std::filesystem::path candidate = std::filesystem::path(directory.empty() ? "." : directory) / name;
    if (::access(candidate.c_str(), X_OK) == 0) {
      return candidate;
    }
  }
  return {};
}

} // namespace Orvan::Testing

// Finds the program `name` (a string literal) into a new variable `found`. A
// missing program fails the test under CI, whose set-up installs it, and
// skips it elsewhere.
#define ORVAN_REQUIRE_PROGRAM(found, name)                                                                             \
  const std::filesystem::path found = ::Orvan::Testing::findOnPath(name);                                              \
  if (found.empty()) {                                                                                                 \
    if (std::getenv("CI") != nullptr) {                                                                                \
      FAIL() << name " is not installed; the test setup must install it";                                              \
    }                                                                                                                  \
    GTEST_SKIP() << name " is not installed (apt-get install " name "); skipped outside CI";                           \
  }
