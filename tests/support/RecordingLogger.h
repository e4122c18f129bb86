#pragma once

#include <Core/Logging/Logger.h>
#include <Core/Logging/LoggingType.h>

#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace Orvan::Testing {

// A logger that remembers every message with its level, for tests that check
// what the library logged.
class RecordingLogger : public Core::Logging::Logger {
public:
  using Line = std::pair<Core::Logging::LoggingType, std::string>;

  void info(const std::string& message) override { record(Core::Logging::LoggingType::Info, message); }
  void warning(const std::string& message) override { record(Core::Logging::LoggingType::Warning, message); }
  void error(const std::string& message) override { record(Core::Logging::LoggingType::Error, message); }
  void debug(const std::string& message) override { record(Core::Logging::LoggingType::Debug, message); }
  void verbose(const std::string& message) override { record(Core::Logging::LoggingType::Verbose, message); }

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

private:
  void record(Core::Logging::LoggingType type, const std::string& message)
  {
    const std::lock_guard lock(mutex);
    recorded.emplace_back(type, message);
  }

  mutable std::mutex mutex;
  std::vector<Line> recorded;
  int memoryRequests = 0;
};

} // namespace Orvan::Testing
