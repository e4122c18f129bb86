#include <Core/Event/Event.h>
#include <Core/Logging/LoggingCallbackPrivate.h>

#include <sstream>
#include <utility>

namespace Orvan::Core::Event {

using Logging::LoggingType;
using Utils::ErrorManagement::ReturnStatus;

namespace {

std::weak_ptr<EventListener> sListener;

EventInfo makeEventInfo(const LoggingEventInfo& info, EventValue value)
{
  return EventInfo{info.level, info.package, info.eventId, std::move(value)};
}

// Statuses and exceptions reach the listener as their translated text.
template<class Value>
void notifyTranslated(EventListener* listener, const LoggingEventInfo& info, const Value& value)
{
  std::stringstream text;
  Logging::makeContent(text, value);
  if (listener != nullptr) {
    listener->onEvent(makeEventInfo(info, text.str()));
  }
}

} // namespace

void setEventListenner(std::weak_ptr<EventListener> listener)
{
  sListener = std::move(listener);
}

std::weak_ptr<EventListener> getListener()
{
  return sListener;
}

void logEvent(const LoggingEventInfo& info, const ReturnStatus& status)
{
  const std::shared_ptr<EventListener> listener = sListener.lock();
  notifyTranslated(listener.get(), info, status);
  switch (info.level) {
  case LoggingType::Info:
  case LoggingType::Warning:
  case LoggingType::Error:
    Logging::logMessage(info.level, status);
    break;
  default:
    break;
  }
}

void logEvent(const LoggingEventInfo& info, const std::exception& exception)
{
  const std::shared_ptr<EventListener> listener = sListener.lock();
  notifyTranslated(listener.get(), info, exception);
  switch (info.level) {
  case LoggingType::Info:
  case LoggingType::Error:
    Logging::logMessage(LoggingType::Error, exception);
    break;
  case LoggingType::Warning:
    Logging::logMessage(LoggingType::Warning, exception);
    break;
  default:
    break;
  }
}

void logEvent(const LoggingEventInfo& info, const EventValue& value)
{
  const std::shared_ptr<EventListener> listener = sListener.lock();
  if (listener) {
    listener->onEvent(makeEventInfo(info, value));
  }
  const std::string* text = value ? std::get_if<std::string>(&*value) : nullptr;
  if (text == nullptr) {
    return;
  }
  switch (info.level) {
  case LoggingType::Info:
  case LoggingType::Warning:
  case LoggingType::Error:
    Logging::logMessage(info.level, *text);
    break;
  default:
    break;
  }
}

} // namespace Orvan::Core::Event
