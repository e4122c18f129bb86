#pragma once

#include <cstdint>

namespace Orvan::Core::Event {

// The numbers of the events this library reports, all in package 20.
enum CoreEvents : std::uint32_t {
  CANCELLED_CONNECTION = 2,
  CONNECTING = 3,
  FAILED_TO_CONNECT = 4,
  CONNECTED = 5,
  TIMEOUT_REACHED = 6,
  OBSERVABLE_DESTROYED = 12,
};

} // namespace Orvan::Core::Event
