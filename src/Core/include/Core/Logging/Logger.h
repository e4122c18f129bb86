#pragma once

#include <Core/Export.h>

#include <string>

namespace Orvan::Core::Logging {

// A logging back end. It receives finished message texts, one call per
// message, from any thread; each implementation does its own locking.
class ORVAN_CORE_EXPORT Logger {
public:
  Logger() = default;
  Logger(const Logger&) = default;
  Logger& operator=(const Logger&) = default;
  virtual ~Logger();

  virtual void info(const std::string& message) = 0;
  virtual void warning(const std::string& message) = 0;
  virtual void error(const std::string& message) = 0;
  virtual void debug(const std::string& message) = 0;
  virtual void verbose(const std::string& message) = 0;

  // Asks the back end to record the process's memory use now, if it can.
  virtual void triggerLogMemory() = 0;
};

} // namespace Orvan::Core::Logging
