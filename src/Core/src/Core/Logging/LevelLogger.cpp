#include <Core/Logging/LevelLogger.h>

namespace Orvan::Core::Logging {

void writeAt(Logger& logger, LoggingType type, const std::string& message)
{
  switch (type) {
  case LoggingType::Info:
    logger.info(message);
    return;
  case LoggingType::Warning:
    logger.warning(message);
    return;
  case LoggingType::Error:
    logger.error(message);
    return;
  case LoggingType::Debug:
    logger.debug(message);
    return;
  case LoggingType::Verbose:
    logger.verbose(message);
    return;
  }
}

void LevelLogger::info(const std::string& message)
{
  write(LoggingType::Info, message);
}

void LevelLogger::warning(const std::string& message)
{
  write(LoggingType::Warning, message);
}

void LevelLogger::error(const std::string& message)
{
  write(LoggingType::Error, message);
}

void LevelLogger::debug(const std::string& message)
{
  write(LoggingType::Debug, message);
}

void LevelLogger::verbose(const std::string& message)
{
  write(LoggingType::Verbose, message);
}

void LevelLogger::triggerLogMemory() {}

} // namespace Orvan::Core::Logging
