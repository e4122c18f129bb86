#pragma once

#include <Core/Logging/LoggingType.h>
#include <Utils/PackageIdentifier.h>

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

namespace Orvan::Core::Event {

using EventValue = std::optional<std::variant<int, double, std::string>>;

// An event as the reporting component describes it. `level` decides whether
// and how the event is logged; `package` and `eventId` are passed on as they
// are.
struct LoggingEventInfo {
  Logging::LoggingType level;
  Utils::ErrorManagement::PackageIdentifier package;
  std::uint32_t eventId;
};

// What the listener receives: the description plus the event's payload.
struct EventInfo {
  Logging::LoggingType level;
  Utils::ErrorManagement::PackageIdentifier package;
  std::uint32_t eventId;
  EventValue value;
};

} // namespace Orvan::Core::Event
