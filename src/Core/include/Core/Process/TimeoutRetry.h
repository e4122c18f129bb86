#pragma once

#include <Core/Export.h>
#include <Core/FileInfo.h>
#include <Core/Process/CancelationToken.h>
#include <Utils/Timer.h>

#include <chrono>

namespace Orvan::Core::Process {

// Retries a failed connection until the timer has expired, unless the token
// asks for cancellation. Reports "Timeout reached" (event 6, when the
// descriptor has a positive timeout) and "Cancelled" (event 2) as warnings.
// Holds nothing but the token pointer, so one policy may serve many
// descriptors on many threads at once.
//
// Its destructor is public and not virtual, which -Wnon-virtual-dtor flags;
// but the interface's own destructor is protected, so no policy can be
// deleted through the interface, the one fault that warning is about.
#if defined(__GNUC__)
#  pragma GCC diagnostic push
#  pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#endif
struct ORVAN_CORE_EXPORT TimeoutRetry : public FileInfo::RetryInterface {
  // A null token never cancels. The token must outlive the policy's use.
  explicit TimeoutRetry(CancelationToken* const cancelation = nullptr);
  TimeoutRetry(const TimeoutRetry&) = default;
  TimeoutRetry& operator=(const TimeoutRetry&) = default;

  bool operator()(const FileInfo& finfo, const Utils::Timer<std::chrono::system_clock>& timer) override;

  CancelationToken* token;
};
#if defined(__GNUC__)
#  pragma GCC diagnostic pop
#endif

} // namespace Orvan::Core::Process
