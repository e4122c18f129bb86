#pragma once

#include <Core/Logging/LevelLogger.h>
#include <Core/Logging/LoggingType.h>

#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace Orvan::Testing {

// A logger that remembers every message with its level, for tests that check
// what the library logged.
class RecordingLogger : public Core::Logging::LevelLogger {
public:
  using Line = std::pair<Core::Logging::LoggingType, std::string>;

  void triggerLogMemory() override
  {
    const std::lock_guard lock(mutex);
    ++memoryRequests;
  }

  std::vector<Line> lines() const
  {
    const std::lock_guard lock(mutex);
    return recorded;
  }

  int memoryRequestCount() const
  {
    const std::lock_guard lock(mutex);
    return memoryRequests;
  }

protected:
  void write(Core::Logging::LoggingType type, const std::string& message) override
  {
    const std::lock_guard lock(mutex);
    recorded.emplace_back(type, message);
  }

private:
  mutable std::mutex mutex;
  std::vector<Line> recorded;
  int memoryRequests = 0;
};

} // namespace Orvan::Testing
