#pragma once

#include <Core/Event/EventInfo.h>
#include <Core/Event/EventListener.h>
#include <Core/Export.h>
#include <Utils/ReturnStatus.h>

#include <exception>
#include <memory>

// Event reporting: each event goes to the host's listener and, at the Info,
// Warning and Error levels, to the log.
namespace Orvan::Core::Event {

// Installs the listener (a weak reference: the host owns it). No lock is
// taken: install it while no events are being reported.
ORVAN_CORE_EXPORT void setEventListenner(std::weak_ptr<EventListener> listener);
ORVAN_CORE_EXPORT std::weak_ptr<EventListener> getListener();

// The listener receives the translated status. Logged at Info (level 0),
// Warning (1) or Error (3); other levels are not logged.
ORVAN_CORE_EXPORT void logEvent(const LoggingEventInfo& info, const Utils::ErrorManagement::ReturnStatus& status);

// The listener receives exactly `value`. Only a string payload is logged, at
// Info (0), Warning (1) or Error (3).
ORVAN_CORE_EXPORT void logEvent(const LoggingEventInfo& info, const EventValue& value);

// The listener receives the translated exception. Levels 0 and 3 are logged
// as errors, level 1 as a warning: an exception is never an Info line.
ORVAN_CORE_EXPORT void logEvent(const LoggingEventInfo& info, const std::exception& exception);

} // namespace Orvan::Core::Event
