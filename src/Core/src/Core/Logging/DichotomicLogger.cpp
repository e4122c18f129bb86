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

void DichotomicLogger::info(const std::string& message)
{
  const std::shared_ptr<Logger> filtered = filteredLogger.logger.lock();
  if (filtered) {
    filtered->info(message);
  }
  if (const std::shared_ptr<Logger> complete = completeLogger.logger.lock()) {
    complete->info(message);
  }
}

// Warnings and errors: the filtered logger, then the console echo (always,
// even when the filtered logger is itself a console logger), then the
// complete logger.
void DichotomicLogger::warning(const std::string& message)
{
  const std::shared_ptr<Logger> filtered = filteredLogger.logger.lock();
  if (filtered) {
    filtered->warning(message);
  }
  writeConsoleLine(consoleTag(LoggingType::Warning), message);
  if (const std::shared_ptr<Logger> complete = completeLogger.logger.lock()) {
    complete->warning(message);
  }
}

void DichotomicLogger::error(const std::string& message)
{
  const std::shared_ptr<Logger> filtered = filteredLogger.logger.lock();
  if (filtered) {
    filtered->error(message);
  }
  writeConsoleLine(consoleTag(LoggingType::Error), message);
  if (const std::shared_ptr<Logger> complete = completeLogger.logger.lock()) {
    complete->error(message);
  }
}

void DichotomicLogger::debug(const std::string& message)
{
  if (const std::shared_ptr<Logger> complete = completeLogger.logger.lock()) {
    complete->debug(message);
  }
}

void DichotomicLogger::verbose(const std::string& message)
{
  if (const std::shared_ptr<Logger> complete = completeLogger.logger.lock()) {
    complete->verbose(message);
  }
}

void DichotomicLogger::triggerLogMemory()
{
  if (const std::shared_ptr<Logger> complete = completeLogger.logger.lock()) {
    complete->triggerLogMemory();
  }
}

} // namespace Orvan::Core::Logging
