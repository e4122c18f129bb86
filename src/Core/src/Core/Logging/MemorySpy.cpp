#include <Core/Logging/MemorySpy.h>
#include <Utils/CoreAssert.h>

#include "Timing/Deadline.h"

#include <iomanip>
#include <sstream>

// The sampling thread of a memory spy and the text of its lines.
// The thread takes a sample, hands it to the logger, then pauses for one
// period in a single timed wait on the condition. wakeUp() ends that pause
// early; a notification that arrives while a sample is being taken or logged
// is not remembered. The stop flag is looked at before each sample and after
// each pause, and once more under the mutex just before pausing, so that a
// stop requested while the thread is about to pause is never missed.

namespace Orvan::Core::Logging {

namespace {

constexpr std::uint64_t KIB = std::uint64_t{1} << 10;
constexpr std::uint64_t MIB = std::uint64_t{1} << 20;
constexpr std::uint64_t GIB = std::uint64_t{1} << 30;

} // namespace

std::string formatMemorySize(std::uint64_t bytes)
{
  std::ostringstream text;
  if (bytes > 10 * GIB) {
    text << bytes / GIB << "GB";
  } else if (bytes > 100 * MIB) {
    if (bytes > GIB) {
      text << bytes / GIB << ' ';
    }
    text << std::setw(3) << std::setfill('0') << (bytes / MIB) % 1024 << "MB";
  } else {
    if (bytes > MIB) {
      text << bytes / MIB << ' ';
    }
    text << std::setw(3) << std::setfill('0') << (bytes / KIB) % 1024 << "KB";
  }
  return text.str();
}

std::string formatMemoryUsage(const MemoryUsageCapture& usage)
{
  std::ostringstream text;
  text << "[MEMORY] Virtual: " << formatMemorySize(usage.virtualTotal) << '\t' << formatMemorySize(usage.virtualUsed)
       << '\t' << formatMemorySize(usage.virtualUsedByApplication) << '\t'
       << "Physical:" << formatMemorySize(usage.physicalTotal) << '\t' << formatMemorySize(usage.physicalUsed) << '\t'
       << formatMemorySize(usage.physicalUsedByApplication);
  return text.str();
}

MemorySpy::MemorySpy(Logger& logger, std::chrono::milliseconds period)
    : logger(logger)
    , stopRequested(false)
    , period(period)
{
}

MemorySpy::~MemorySpy()
{
  stopRequested = true;
  {
    // Taking the mutex once orders the flag before a pause that is about to
    // begin: the thread either sees the flag or receives the notification.
    const std::lock_guard lock(mutex);
  }
  condition.notify_all();
  if (spyerThread && spyerThread->joinable()) {
    spyerThread->join();
  }
}

// A spy is started once; the file logger starts a fresh spy each time. A
// second start is a broken contract: it is reported, and should the report
// return, the earlier thread object is replaced while still joinable, which
// ends the process (std::thread's destructor calls std::terminate).
//
// The mutex is held while the thread object is created, so that start,
// wakeUp and the pauses of the sampling thread are ordered with one another.
void MemorySpy::start()
{
  const std::lock_guard lock(mutex);
  CORE_ASSERT(spyerThread == nullptr);
  spyerThread = std::make_unique<std::thread>([this] { samplingLoop(); });
}

void MemorySpy::wakeUp()
{
  const std::lock_guard lock(mutex);
  condition.notify_all();
}

void MemorySpy::samplingLoop()
{
  if (stopRequested) {
    return;
  }
  for (;;) {
    logger.verbose(formatMemoryUsage(captureMemoryUsage()));
    {
      std::unique_lock lock(mutex);
      if (period > std::chrono::milliseconds::zero() && !stopRequested) {
        // One timed wait, no predicate: any notification ends the pause. A
        // period too long for the clock waits for a notification only.
        condition.wait_until(lock, Timing::deadlineAfter(period));
      }
    }
    if (stopRequested) {
      return;
    }
  }
}

} // namespace Orvan::Core::Logging
