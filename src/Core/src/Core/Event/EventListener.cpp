#include <Core/Event/EventListener.h>

namespace Orvan::Core::Event {

EventListener::~EventListener() = default;

} // namespace Orvan::Core::Event
