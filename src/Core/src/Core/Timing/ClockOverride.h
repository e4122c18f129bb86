#pragma once

#include <Core/Export.h>

#include "Timing/WorkerClock.h"

#include <memory>

namespace Orvan::Core::Logging {
class MemorySpy;
}

namespace Orvan::Core::Process::Progression {
class ProgressionObserver;
}

namespace Orvan::Core::Timing {

// Puts a memory spy's pauses or a progression observer's period on `clock`
// instead of the steady clock, so that a test moves the time by hand and
// decides when a period is over. Only before the spy or the observer starts
// its thread (a deferred observer, a spy before start()). Exported for the
// library's tests, which reach it through the internal headers; hosts do not
// see it.
struct ORVAN_CORE_EXPORT ClockOverride {
  static void use(Logging::MemorySpy& spy, std::shared_ptr<WorkerClock> clock);
  static void use(Process::Progression::ProgressionObserver& observer, std::shared_ptr<WorkerClock> clock);
};

} // namespace Orvan::Core::Timing
