#include <Core/FileInfo.h>

#include <Core/Logging/LoggingCallbackPrivate.h>
#include <Core/Process/TimeoutRetry.h>
#include <Utils/CoreAssert.h>
#include <Utils/FileHelper.h>
#include <Utils/Timer.h>

#include "Event/CoreEventReport.h"
#include "Network/SocketStream.h"
#include "Platform/SharedFile.h"
#include "Process/CancelationState.h"
#include "Timing/Deadline.h"
#include "Timing/Periods.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <limits>
#include <sstream>
#include <string>
#include <system_error>

namespace Orvan::Core {

namespace {

using Clock = std::chrono::system_clock;

// The timeout in the clock's own units; one too long for them never expires.
Clock::duration clockDelay(FileInfo::Seconds timeout)
{
  using Limits = std::numeric_limits<Clock::rep>;
  constexpr auto longest = std::chrono::duration_cast<FileInfo::Seconds>(Clock::duration(Limits::max()));
  constexpr auto shortest = std::chrono::duration_cast<FileInfo::Seconds>(Clock::duration(Limits::min()));
  if (timeout >= longest) {
    return Clock::duration::max();
  }
  if (timeout <= shortest) {
    return Clock::duration::min();
  }
  return std::chrono::duration_cast<Clock::duration>(timeout);
}

// Why the wait of a FIFO for its writer ended without one (`error` being
// the errno of the failed opening), or nothing when it did not.
std::string writerWaitEnd(int error, const Platform::WriterWait& wait)
{
  if (error == ETIMEDOUT && wait.limit.count() > 0) {
    return "no writer came within " + std::to_string(wait.limit.count()) + " ms";
  }
  if (error == ECANCELED && wait.wake != Platform::NO_WAKE) {
    return "cancelled while waiting for a writer";
  }
  return "";
}

// A FIFO waits for its writer as a file stream does; the typed form's idle
// timeout and token bound that wait, the one wait of a local file.
std::unique_ptr<std::istream> openLocal(const FileInfo& finfo, std::optional<int> mode,
                                        const Network::StreamLimits& limits)
{
  CORE_ASSERT(mode);
  const auto openMode = static_cast<std::ios_base::openmode>(mode.value_or(0));
  const Platform::WriterWait wait{limits.idleTimeout, Process::CancelationAccess::wakeHandle(limits.token)};
  std::unique_ptr<std::istream> stream = Platform::openSharedFile(finfo.filename, openMode, wait);
  if (!stream) {
    const int error = errno;
    const std::string message = "Failed to open file '" + toString(finfo) + "': " + writerWaitEnd(error, wait);
    errno = error;
    throw Utils::FileHelper::makeSystemError(message.c_str());
  }
  return stream;
}

// The system takes names up to their first NUL: a file name or an address
// holding one would open another file or reach another host than the one
// the descriptor names. Such a descriptor is refused before anything is
// opened or connected.
void refuseTruncatedNames(const FileInfo& finfo)
{
  const bool truncated = finfo.isRemote()
                             ? finfo.address.find('\0') != std::string::npos
                             : finfo.filename.native().find(std::filesystem::path::value_type{}) != std::string::npos;
  if (!truncated) {
    return;
  }
  std::string shown;
  for (const char c : toString(finfo)) {
    shown += c == '\0' ? std::string("\\0") : std::string(1, c);
  }
  const std::string message =
      std::string(finfo.isRemote() ? "The address" : "The file name") + " of '" + shown + "' holds a NUL character";
  throw std::system_error(std::make_error_code(std::errc::invalid_argument), message);
}

// The token of the descriptor's retry policy, when it is a TimeoutRetry.
const Process::CancelationToken* retryToken(const FileInfo& finfo)
{
  const auto* policy = dynamic_cast<const Process::TimeoutRetry*>(finfo.retry);
  return policy != nullptr ? policy->token : nullptr;
}

// The limits of one connection attempt and of the reads after it: a
// positive timeout bounds each pending attempt, measured from that
// attempt's start, so that a host's policy that goes on retrying past the
// timeout still gives every attempt its full time.
Network::StreamLimits attemptLimits(const FileInfo& finfo, const Network::StreamLimits& limits)
{
  Network::StreamLimits attempt = limits;
  if (finfo.timeout.count() > 0) {
    constexpr auto longest = std::chrono::duration_cast<FileInfo::Seconds>(std::chrono::milliseconds::max());
    attempt.deadline = Timing::deadlineAfter(
        finfo.timeout >= longest ? std::chrono::milliseconds::max()
                                 : std::chrono::duration_cast<std::chrono::milliseconds>(finfo.timeout));
  }
  return attempt;
}

// Connects, retrying under the descriptor's policy with a pause between
// attempts. Only failures of the socket itself are retried; a failed start-up
// or name resolution ends the attempt at once. An attempt that hangs (a
// server that drops connection requests) is given up when the descriptor's
// timeout has run out or a token is cancelled, and then fails as any other.
// The policy's token bounds connecting only: once open, the stream reads
// until the server closes, unless the host's own token (`limits.token`)
// ends it.
std::unique_ptr<std::istream> connectRemote(const FileInfo& finfo, Network::StreamLimits limits)
{
  const std::string target = toString(finfo);
  // One timer across all attempts.
  const Utils::Timer<Clock> timer(clockDelay(finfo.timeout));
  limits.connectToken = retryToken(finfo);
  for (;;) {
    Event::reportCoreEvent(Logging::LoggingType::Info, Event::CONNECTING, "Connecting to: '" + target + "'...");
    try {
      auto stream = std::make_unique<Network::basic_instream<char>>(finfo.address.c_str(), finfo.port,
                                                                    attemptLimits(finfo, limits));
      Event::reportCoreEvent(Logging::LoggingType::Info, Event::CONNECTED, "Connected to: '" + target + "'.");
      return stream;
    } catch (const std::system_error& error) {
      // The policy decides, but no attempt follows a cancellation of the
      // host's token, which the policy may not know of.
      if (finfo.retry != nullptr && (*finfo.retry)(finfo, timer) && !limits.connectingCancelled()) {
        // The pause ends at once when either token is cancelled; a pending
        // next attempt is then given up at once, and the policy hears of it.
        Network::ConnectingCancelation(limits).waitFor(Timing::CONNECT_RETRY_PAUSE);
        continue;
      }
      Event::reportCoreEvent(Logging::LoggingType::Error, Event::FAILED_TO_CONNECT,
                             "Failed to connected to: '" + target + "'!");
      throw std::system_error(error);
    }
  }
}

std::unique_ptr<std::istream> openStream(const FileInfo& finfo, std::optional<int> mode,
                                         const Network::StreamLimits& limits)
{
  std::stringstream opening;
  opening << "Opening '" << finfo << "'" << '\n';
  Logging::logMessage(Logging::LoggingType::Info, opening.str());

  refuseTruncatedNames(finfo);
  if (!finfo.isRemote()) {
    return openLocal(finfo, mode, limits);
  }
  return connectRemote(finfo, limits);
}

} // namespace

std::unique_ptr<std::istream> FileInfo::makeStream(std::optional<int> mode) const
{
  return openStream(*this, mode, {});
}

std::unique_ptr<std::istream> FileInfo::makeStream(const StreamOptions& options) const
{
  Network::StreamLimits limits;
  limits.idleTimeout = std::max(options.idleTimeout, std::chrono::milliseconds(0));
  limits.token = options.token;
  return openStream(*this, options.mode, limits);
}

} // namespace Orvan::Core
