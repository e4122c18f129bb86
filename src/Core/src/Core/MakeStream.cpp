#include <Core/FileInfo.h>

#include <Core/Event/CoreEvents.h>
#include <Core/Event/Event.h>
#include <Core/Logging/LoggingCallbackPrivate.h>
#include <Utils/CoreAssert.h>
#include <Utils/FileHelper.h>
#include <Utils/Timer.h>

#include "Network/SocketStream.h"
#include "Platform/SharedFile.h"

#include <chrono>
#include <limits>
#include <sstream>
#include <string>
#include <system_error>
#include <thread>

namespace Orvan::Core {

namespace {

using Clock = std::chrono::system_clock;

constexpr std::chrono::milliseconds RETRY_PAUSE{500};

std::string textForm(const FileInfo& finfo)
{
  std::ostringstream stream;
  stream << finfo;
  return stream.str();
}

void reportEvent(Logging::LoggingType level, Event::CoreEvents event, const std::string& text)
{
  Event::logEvent({level, Utils::ErrorManagement::PackageIdentifier::Core, event}, Event::EventValue(text));
}

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

std::unique_ptr<std::istream> openLocal(const FileInfo& finfo, std::optional<int> mode)
{
  CORE_ASSERT(mode);
  const auto openMode = static_cast<std::ios_base::openmode>(mode.value_or(0));
  std::unique_ptr<std::istream> stream = Platform::openSharedFile(finfo.filename, openMode);
  if (!stream) {
    const std::string message = "Failed to open file '" + textForm(finfo) + "': ";
    throw Utils::FileHelper::makeSystemError(message.c_str());
  }
  return stream;
}

// Connects, retrying under the descriptor's policy with a pause between
// attempts. Only failures of the socket itself are retried; a failed start-up
// or name resolution ends the attempt at once.
std::unique_ptr<std::istream> connectRemote(const FileInfo& finfo)
{
  const std::string target = textForm(finfo);
  // One timer across all attempts.
  const Utils::Timer<Clock> timer(clockDelay(finfo.timeout));
  for (;;) {
    reportEvent(Logging::LoggingType::Info, Event::CONNECTING, "Connecting to: '" + target + "'...");
    try {
      auto stream = std::make_unique<Network::basic_instream<char>>(finfo.address.c_str(), finfo.port);
      reportEvent(Logging::LoggingType::Info, Event::CONNECTED, "Connected to: '" + target + "'.");
      return stream;
    } catch (const std::system_error& error) {
      if (finfo.retry != nullptr && (*finfo.retry)(finfo, timer)) {
        std::this_thread::sleep_for(RETRY_PAUSE);
        continue;
      }
      reportEvent(Logging::LoggingType::Error, Event::FAILED_TO_CONNECT, "Failed to connected to: '" + target + "'!");
      throw std::system_error(error);
    }
  }
}

} // namespace

std::unique_ptr<std::istream> FileInfo::makeStream(std::optional<int> mode) const
{
  std::stringstream opening;
  opening << "Opening '" << *this << "'" << '\n';
  Logging::logMessage(Logging::LoggingType::Info, opening.str());

  if (!isRemote()) {
    return openLocal(*this, mode);
  }
  return connectRemote(*this);
}

} // namespace Orvan::Core
