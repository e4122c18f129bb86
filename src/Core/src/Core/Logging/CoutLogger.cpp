#include <Core/Logging/CoutLogger.h>
#include <Core/Version.h>

#include "LevelText.h"

#include <iostream>

namespace Orvan::Core::Logging {

CoutLogger::CoutLogger()
{
  std::cout << "Lib Version: " << VERSION << std::endl;
}

CoutLogger::~CoutLogger() = default;

void CoutLogger::info(const std::string& message)
{
  writeLine(consoleTag(LoggingType::Info), message);
}

void CoutLogger::warning(const std::string& message)
{
  writeLine(consoleTag(LoggingType::Warning), message);
}

void CoutLogger::error(const std::string& message)
{
  writeLine(consoleTag(LoggingType::Error), message);
}

void CoutLogger::debug(const std::string& message)
{
  writeLine(consoleTag(LoggingType::Debug), message);
}

void CoutLogger::verbose(const std::string& message)
{
  writeLine(consoleTag(LoggingType::Verbose), message);
}

void CoutLogger::triggerLogMemory() {}

void CoutLogger::writeLine(const char* tag, const std::string& message)
{
  const std::lock_guard lock(mutex);
  writeConsoleLine(tag, message);
}

} // namespace Orvan::Core::Logging
