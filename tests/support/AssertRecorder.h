#pragma once

#include <Utils/CoreAssert.h>

#include <mutex>
#include <string>
#include <vector>

namespace Orvan::Testing {

struct AssertReport {
  std::string message;
  std::string file;
  unsigned long long line = 0;
};

// Records the assertion reports made while it lives, instead of printing
// them, and puts the previous handler back when it goes.
class AssertRecorder {
public:
  AssertRecorder()
      : previous(
            CoreAssert::setAssertHandler([this](const std::string& message, const char* file, unsigned long long line) {
              const std::lock_guard lock(mutex);
              recorded.push_back({message, file, line});
            }))
  {
  }

  ~AssertRecorder() { CoreAssert::setAssertHandler(previous); }

  AssertRecorder(const AssertRecorder&) = delete;
  AssertRecorder& operator=(const AssertRecorder&) = delete;

  std::vector<AssertReport> reports() const
  {
    const std::lock_guard lock(mutex);
    return recorded;
  }

  std::vector<std::string> messages() const
  {
    std::vector<std::string> result;
    for (const AssertReport& report : reports()) {
      result.push_back(report.message);
    }
    return result;
  }

private:
  mutable std::mutex mutex;
  std::vector<AssertReport> recorded;
  CoreAssert::AssertHandler previous;
};

} // namespace Orvan::Testing
