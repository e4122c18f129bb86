#include <Core/Logging/DichotomicLogger.h>

#include "Logging/LevelText.h"

#include <iostream>
#include <utility>

namespace Orvan::Core::Logging {

DichotomicLogger::DichotomicLogger(FilteredLogger filtered, CompleteLogger complete)
    : filteredLogger(std::move(filtered))
    , completeLogger(std::move(complete))
{
}

DichotomicLogger::DichotomicLogger(const DichotomicLogger& other) = default;

DichotomicLogger& DichotomicLogger::operator=(const DichotomicLogger& other) = default;

DichotomicLogger::~DichotomicLogger() = default;

// The filtered logger, then for warnings and errors the console echo
// (always, even when the filtered logger is itself a console logger), then
// the complete logger.
void DichotomicLogger::write(LoggingType type, const std::string& message)
{
  const bool filteredLevel = type == LoggingType::Info || type == LoggingType::Warning || type == LoggingType::Error;
  // Held until the whole operation returns: an owner that lets the filtered
  // logger go during the echo or the complete logger's call does not
  // destroy it in the middle of the operation.
  std::shared_ptr<Logger> filtered;
  if (filteredLevel) {
    filtered = filteredLogger.logger.lock();
    if (filtered) {
      writeAt(*filtered, type, message);
    }
  }
  if (type == LoggingType::Warning || type == LoggingType::Error) {
    writeConsoleLine(consoleTag(type), message);
  }
  if (const std::shared_ptr<Logger> complete = completeLogger.logger.lock()) {
    writeAt(*complete, type, message);
  }
}

void DichotomicLogger::triggerLogMemory()
{
  if (const std::shared_ptr<Logger> complete = completeLogger.logger.lock()) {
    complete->triggerLogMemory();
  }
}

} // namespace Orvan::Core::Logging
