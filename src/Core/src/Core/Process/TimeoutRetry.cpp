#include <Core/Process/TimeoutRetry.h>

#include <Core/Event/CoreEvents.h>
#include <Core/Event/Event.h>
#include <Utils/CoreAssert.h>

#include <sstream>
#include <string>

namespace Orvan::Core::Process {

namespace {

void reportWarning(Event::CoreEvents event, const std::string& text)
{
  Event::logEvent({Logging::LoggingType::Warning, Utils::ErrorManagement::PackageIdentifier::Core, event},
                  Event::EventValue(text));
}

} // namespace

TimeoutRetry::TimeoutRetry(CancelationToken* const token)
    : token(token)
{
}

bool TimeoutRetry::operator()(const FileInfo& finfo, const Utils::Timer<std::chrono::system_clock>& timer)
{
  CORE_ASSERT(finfo.isRemote());
  const bool expired = timer.isExpired();
  if (expired && finfo.timeout.count() > 0) {
    reportWarning(Event::TIMEOUT_REACHED, "Timeout reached while connecting to: '" + toString(finfo) + "'");
  }
  if (isCancelRequested(token)) {
    reportWarning(Event::CANCELLED_CONNECTION, "Cancelled connection to: '" + toString(finfo) + "'");
    return false;
  }
  return !expired;
}

} // namespace Orvan::Core::Process
