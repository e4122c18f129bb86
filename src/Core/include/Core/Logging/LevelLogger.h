#pragma once

#include <Core/Export.h>
#include <Core/Logging/Logger.h>
#include <Core/Logging/LoggingType.h>

#include <string>

namespace Orvan::Core::Logging {

// Calls the method of `logger` for `type`: info for LoggingType::Info, and
// so on.
ORVAN_CORE_EXPORT void writeAt(Logger& logger, LoggingType type, const std::string& message);

// A logger written as one function: each of the five level methods hands its
// message to write with its level. Memory requests are ignored unless
// triggerLogMemory is overridden.
//
//   class Collector : public LevelLogger {
//     void write(LoggingType type, const std::string& message) override { ... }
//   };
class ORVAN_CORE_EXPORT LevelLogger : public Logger {
public:
  void info(const std::string& message) final;
  void warning(const std::string& message) final;
  void error(const std::string& message) final;
  void debug(const std::string& message) final;
  void verbose(const std::string& message) final;
  void triggerLogMemory() override;

protected:
  // Receives every message, from any thread; the implementation locks.
  virtual void write(LoggingType type, const std::string& message) = 0;
};

} // namespace Orvan::Core::Logging
