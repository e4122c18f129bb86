#pragma once

#include <Core/Export.h>
#include <Core/Logging/Logger.h>

#include <mutex>
#include <string>

namespace Orvan::Core::Logging {

// Writes each message to standard output behind a ten-character level tag,
// "[WARNING] disk almost full". Construction prints "Lib Version: 7.6.3".
class ORVAN_CORE_EXPORT CoutLogger : public Logger {
public:
  CoutLogger();
  CoutLogger(const CoutLogger&) = delete;
  CoutLogger& operator=(const CoutLogger&) = delete;
  ~CoutLogger() override;

  void info(const std::string& message) override;
  void warning(const std::string& message) override;
  void error(const std::string& message) override;
  void debug(const std::string& message) override;
  void verbose(const std::string& message) override;

  // The console keeps no memory record: does nothing.
  void triggerLogMemory() override;

private:
  void writeLine(const char* tag, const std::string& message);

  std::mutex mutex;
};

} // namespace Orvan::Core::Logging
