#pragma once

#include <Core/Event/CoreEvents.h>
#include <Core/Event/Event.h>

#include <string>

namespace Orvan::Core::Event {

// Reports one of the library's own events with its text: to the listener,
// and at the Info, Warning and Error levels to the log. Every event of the
// library is built here.
inline void reportCoreEvent(Logging::LoggingType level, CoreEvents event, const std::string& text)
{
  logEvent({level, Utils::ErrorManagement::PackageIdentifier::Core, event}, EventValue(text));
}

} // namespace Orvan::Core::Event
