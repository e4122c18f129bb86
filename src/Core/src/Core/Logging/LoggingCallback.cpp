#include <Core/Logging/LoggingCallback.h>
#include <TraductionInterface/DefaultTranslator.h>

#include "LevelText.h"
#include "Platform/ThreadId.h"

#include <iomanip>
#include <utility>

namespace Orvan::Core::Logging {

std::weak_ptr<Logger> sLogger;
LoggingFunction sLoggingFunction;

namespace {

std::weak_ptr<TraductionInterface::ErrorTranslator> sTranslator;

// "[LEVEL  ] [  4242] message\n"
std::string formatCallbackMessage(LoggingType type, const std::string& message)
{
  std::stringstream text;
  text << '[' << levelWord(type) << ']' << " [" << std::setw(6) << std::setfill(' ') << Platform::currentThreadId()
       << "] " << message << std::endl;
  return text.str();
}

void deliver(LoggingType type, void (Logger::*level)(const std::string&), const std::string& message)
{
  if (const std::shared_ptr<Logger> logger = sLogger.lock()) {
    ((*logger).*level)(message);
  } else if (sLoggingFunction) {
    sLoggingFunction(formatCallbackMessage(type, message));
  }
}

template<class Value>
void translate(std::stringstream& stream, const Value& value)
{
  const std::shared_ptr<TraductionInterface::ErrorTranslator> translator = sTranslator.lock();
  if (translator && translator->canTranslate(value)) {
    stream << translator->translate(value);
  } else {
    stream << TraductionInterface::DefaultTranslator().translate(value);
  }
}

} // namespace

void setLogger(std::weak_ptr<Logger> logger)
{
  sLogger = std::move(logger);
}

std::weak_ptr<Logger> getLogger()
{
  return sLogger;
}

Utils::Guard setLoggingCallback(LoggingFunction callback)
{
  sLoggingFunction = std::move(callback);
  return Utils::Guard([] { sLoggingFunction = nullptr; });
}

void setTranslator(std::weak_ptr<TraductionInterface::ErrorTranslator> translator)
{
  sTranslator = std::move(translator);
}

void logInfo(const std::string& message)
{
  deliver(LoggingType::Info, &Logger::info, message);
}

void logWarning(const std::string& message)
{
  deliver(LoggingType::Warning, &Logger::warning, message);
}

void logError(const std::string& message)
{
  deliver(LoggingType::Error, &Logger::error, message);
}

void logDebug(const std::string& message)
{
  deliver(LoggingType::Debug, &Logger::debug, message);
}

void logVerbose(const std::string& message)
{
  deliver(LoggingType::Verbose, &Logger::verbose, message);
}

void triggerLogMemory()
{
  if (const std::shared_ptr<Logger> logger = sLogger.lock()) {
    logger->triggerLogMemory();
  }
}

template<>
void makeContent<Utils::ErrorManagement::ReturnStatus>(std::stringstream& stream,
                                                       const Utils::ErrorManagement::ReturnStatus& value)
{
  translate(stream, value);
}

template<>
void makeContent<std::exception>(std::stringstream& stream, const std::exception& value)
{
  translate(stream, value);
}

} // namespace Orvan::Core::Logging
