#pragma once

#include <Core/Logging/LoggingType.h>

#include <cstring>
#include <iostream>
#include <string>

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

// Writes "tag message\n" to std::cout and flushes it. The line is handed to
// the stream in one piece: standard output is synchronised with C stdio, whose
// lock is held for one call at a time, so a line written in pieces (tag,
// message, end of line) could have other threads' pieces between its own.
// Built whole, the lines of console loggers and of the dichotomic logger's
// echo stay whole when they interleave.
inline void writeConsoleLine(const char* tag, const std::string& message)
{
  std::string line;
  const std::size_t tagLength = std::strlen(tag);
  line.reserve(tagLength + message.size() + 1);
  line.append(tag, tagLength);
  line.append(message);
  line.push_back('\n');
  std::cout.write(line.data(), static_cast<std::streamsize>(line.size()));
  std::cout.flush();
}

} // namespace Orvan::Core::Logging
