#pragma once

#include <Core/Export.h>
#include <Core/Logging/Logger.h>
#include <TraductionInterface/ErrorTranslator.h>
#include <Utils/Guard.h>
#include <Utils/ReturnStatus.h>

#include <exception>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <type_traits>

// The logging facade: every part of the library reports through it.
//
// A message goes to the installed logger while it is alive; when none is, to
// the installed callback; with neither, it is dropped. The settings are plain
// globals without a lock: install them while no other thread logs.
namespace Orvan::Core::Logging {

using LoggingFunction = std::function<void(const std::string&)>;

// The installed logger (the host owns it) and the installed callback.
ORVAN_CORE_EXPORT extern std::weak_ptr<Logger> sLogger;
ORVAN_CORE_EXPORT extern LoggingFunction sLoggingFunction;

// An expired or empty reference means that no logger is installed.
//
// `sLogger` is a plain global: calling setLogger while another thread logs
// (the library's own threads included: observers, memory spies, a running
// System::run) is a data race, and the host's error. The safe pattern is to
// install the logger at start-up, before any other thread that may log is
// started, and to remove it (setLogger({})) only after those threads have
// ended; in between, keep the logger alive and let it switch its output
// itself if it must.
ORVAN_CORE_EXPORT void setLogger(std::weak_ptr<Logger> logger);
ORVAN_CORE_EXPORT std::weak_ptr<Logger> getLogger();

// Installs `callback`, which receives "[LEVEL  ] [thread] message\n" for every
// message no logger takes. The returned guard's action empties the callback
// slot, whichever callback is installed by then: keep the guard for as long
// as the callback should stay.
[[nodiscard]] ORVAN_CORE_EXPORT Utils::Guard setLoggingCallback(LoggingFunction callback);

// The translator that turns statuses and exceptions into text; the host owns
// it. Without one, a DefaultTranslator is used.
ORVAN_CORE_EXPORT void setTranslator(std::weak_ptr<TraductionInterface::ErrorTranslator> translator);

ORVAN_CORE_EXPORT void logInfo(const std::string& message);
ORVAN_CORE_EXPORT void logWarning(const std::string& message);
ORVAN_CORE_EXPORT void logError(const std::string& message);
ORVAN_CORE_EXPORT void logDebug(const std::string& message);
ORVAN_CORE_EXPORT void logVerbose(const std::string& message);

// Asks the installed logger for a memory line; the callback is never involved.
ORVAN_CORE_EXPORT void triggerLogMemory();

// Appends the text of a status or an exception, through the installed
// translator when it accepts the value, else through a DefaultTranslator.
// Nothing else is written. Derived exception types take the std::exception
// specialisation.
template<class T>
void makeContent(std::stringstream& stream, const T& value);

template<>
ORVAN_CORE_EXPORT void
makeContent<Utils::ErrorManagement::ReturnStatus>(std::stringstream& stream,
                                                  const Utils::ErrorManagement::ReturnStatus& value);

template<>
ORVAN_CORE_EXPORT void makeContent<std::exception>(std::stringstream& stream, const std::exception& value);

template<class T>
void makeContent(std::stringstream& stream, const T& value)
{
  static_assert(std::is_base_of_v<std::exception, T> || std::is_base_of_v<Utils::ErrorManagement::ReturnStatus, T>,
                "makeContent writes statuses and exceptions");
  if constexpr (std::is_base_of_v<std::exception, T>) {
    makeContent<std::exception>(stream, value);
  } else {
    makeContent<Utils::ErrorManagement::ReturnStatus>(stream, value);
  }
}

} // namespace Orvan::Core::Logging
