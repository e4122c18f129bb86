#pragma once

#include <Core/Event/EventInfo.h>
#include <Core/Export.h>

namespace Orvan::Core::Event {

// The host's receiver of events, installed with setEventListenner.
struct ORVAN_CORE_EXPORT EventListener {
  EventListener() = default;
  EventListener(const EventListener&) = default;
  EventListener& operator=(const EventListener&) = default;
  virtual ~EventListener();

  virtual void onEvent(const EventInfo& info) = 0;
};

} // namespace Orvan::Core::Event
