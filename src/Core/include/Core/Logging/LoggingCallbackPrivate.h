#pragma once

#include <Core/Logging/LoggingCallback.h>
#include <Core/Logging/LoggingType.h>
#include <Utils/CoreAssert.h>
#include <Utils/ReturnStatus.h>

#include <exception>
#include <memory>
#include <sstream>
#include <type_traits>

// The typed entry of the logging facade: builds one message from several
// pieces and routes it by its level.
namespace Orvan::Core::Logging {

namespace Detail {

// Statuses and exceptions (of any derived type) are written through the
// translator, which may decline; everything else through the stream's own
// operator<<.
template<class T>
void appendPiece(std::stringstream& stream, const T& piece)
{
  if constexpr (std::is_base_of_v<Utils::ErrorManagement::ReturnStatus, T> || std::is_base_of_v<std::exception, T>) {
    makeContent(stream, piece);
  } else {
    stream << piece;
  }
}

} // namespace Detail

// Streams `pieces` one after the other, with nothing between them, and
// delivers the text at level `type`, which then goes to the installed logger
// or, when none is alive, to the callback:
//
//   logMessage(LoggingType::Info, "Running: '", command, "'");
//   logMessage(LoggingType::Error, "Cannot load: ", status);
//
// When neither a logger nor a callback is installed, nothing is formatted
// and no translator is consulted.
template<class... Pieces>
void logMessage(LoggingType type, const Pieces&... pieces)
{
  // Held until the message is delivered, so that the logger seen here is
  // still the one that receives it.
  const std::shared_ptr<Logger> logger = sLogger.lock();
  if (!logger && !sLoggingFunction) {
    return;
  }

  std::stringstream stream;
  (Detail::appendPiece(stream, pieces), ...);

  switch (type) {
  case LoggingType::Info:
    logInfo(stream.str());
    return;
  case LoggingType::Warning:
    logWarning(stream.str());
    return;
  case LoggingType::Debug:
    logDebug(stream.str());
    return;
  case LoggingType::Error:
    logError(stream.str());
    return;
  case LoggingType::Verbose:
    logVerbose(stream.str());
    return;
  }
  CORE_NEVER_COME_HERE("Added a new LoggingType? This switch case needs to be updated");
}

} // namespace Orvan::Core::Logging
