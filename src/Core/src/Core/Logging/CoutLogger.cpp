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

void CoutLogger::triggerLogMemory() {}

void CoutLogger::write(LoggingType type, const std::string& message)
{
  const std::lock_guard lock(mutex);
  writeConsoleLine(consoleTag(type), message);
}

} // namespace Orvan::Core::Logging
