#pragma once

#include <Core/Logging/LoggingType.h>

namespace Orvan::Core::Logging {

// The seven-character level words of log files and callback texts.
inline const char* levelWord(LoggingType type)
{
  switch (type) {
  case LoggingType::Info:
    return "INFO   ";
  case LoggingType::Warning:
    return "WARNING";
  case LoggingType::Debug:
    return "DEBUG  ";
  case LoggingType::Error:
    return "ERROR  ";
  case LoggingType::Verbose:
    return "VERBOSE";
  }
  return "";
}

// The ten-character console tags: the level word in brackets and a blank.
inline const char* consoleTag(LoggingType type)
{
  switch (type) {
  case LoggingType::Info:
    return "[INFO   ] ";
  case LoggingType::Warning:
    return "[WARNING] ";
  case LoggingType::Debug:
    return "[DEBUG  ] ";
  case LoggingType::Error:
    return "[ERROR  ] ";
  case LoggingType::Verbose:
    return "[VERBOSE] ";
  }
  return "";
}

} // namespace Orvan::Core::Logging
