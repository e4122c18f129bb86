#include <Core/Process/TimeoutRetry.h>

#include <Utils/CoreAssert.h>

#include "Event/CoreEventReport.h"

#include <sstream>
#include <string>

namespace Orvan::Core::Process {

TimeoutRetry::TimeoutRetry(CancelationToken* const cancelation)
    : token(cancelation)
{
}

bool TimeoutRetry::operator()(const FileInfo& finfo, const Utils::Timer<std::chrono::system_clock>& timer)
{
  CORE_ASSERT(finfo.isRemote());
  const bool expired = timer.isExpired();
  if (expired && finfo.timeout.count() > 0) {
    Event::reportCoreEvent(Logging::LoggingType::Warning, Event::TIMEOUT_REACHED,
                           "Timeout reached while connecting to: '" + toString(finfo) + "'");
  }
  if (isCancelRequested(token)) {
    Event::reportCoreEvent(Logging::LoggingType::Warning, Event::CANCELLED_CONNECTION,
                           "Cancelled connection to: '" + toString(finfo) + "'");
    return false;
  }
  return !expired;
}

} // namespace Orvan::Core::Process
