#pragma once

#include <Core/Export.h>
#include <Core/Logging/LevelLogger.h>

#include <mutex>
#include <string>

namespace Orvan::Core::Logging {

// Writes each message to standard output behind a ten-character level tag,
// "[WARNING] disk almost full". Construction prints "Lib Version: 7.6.3".
class ORVAN_CORE_EXPORT CoutLogger : public LevelLogger {
public:
  CoutLogger();
  CoutLogger(const CoutLogger&) = delete;
  CoutLogger& operator=(const CoutLogger&) = delete;
  ~CoutLogger() override;

  // The console keeps no memory record: does nothing.
  void triggerLogMemory() override;

protected:
  void write(LoggingType type, const std::string& message) override;

private:
  std::mutex mutex;
};

} // namespace Orvan::Core::Logging
