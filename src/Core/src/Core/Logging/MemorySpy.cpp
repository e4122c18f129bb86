#include <Core/Logging/MemorySpy.h>
#include <Utils/CoreAssert.h>

#include "Timing/ClockOverride.h"
#include "Timing/PeriodicWorker.h"

#include <iomanip>
#include <sstream>
#include <utility>

// The sampling thread of a memory spy and the text of its lines.
// The thread takes a sample, hands it to the logger, then pauses for one
// period on the spy's clock. wakeUp() ends that pause early; a wake-up that
// arrives while a sample is being taken or logged is not remembered. The
// stop flag is looked at before each sample and after each pause, and once
// more under the mutex just before pausing, so that a stop requested while
// the thread is about to pause is never missed.

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

// The spy pauses on the steady clock. The library's tests hand a spy that
// has not started yet a clock they move by hand (Timing::ClockOverride, at
// the end of this file), so that they end a pause without waiting for it;
// hosts have no such seam.
MemorySpy::MemorySpy(Logger& logger, std::chrono::milliseconds period)
    : logger(logger)
    , period(period)
    , sampler(std::make_unique<Timing::PeriodicWorker>(Timing::steadyWorkerClock()))
{
}

// The worker requests the stop, then joins the thread: the stop is seen
// before the next pause or ends the one in progress, and a sample being
// logged is finished first.
MemorySpy::~MemorySpy() = default;

// A spy is started once; the file logger starts a fresh spy each time. A
// second start is a broken contract: it is reported, and should the report
// return, the earlier thread object is replaced while still joinable, which
// ends the process (std::thread's destructor calls std::terminate).
//
// The mutex is held while the thread is created, so that start, wakeUp and
// the pauses of the sampling thread are ordered with one another. The report
// names the thread as the spy has always called it and comes from this very
// line: hosts' handlers recognise it by its text, file and line, so the
// lines above it keep their count.
void MemorySpy::start()
{
  const Timing::PeriodicWorker::Lock lock = sampler->lock();
  const std::thread* const spyerThread = sampler->thread();
  CORE_ASSERT(spyerThread == nullptr);
  sampler->start(lock, [this] { samplingLoop(); });
}

void MemorySpy::wakeUp()
{
  sampler->wakeUp();
}

void MemorySpy::samplingLoop()
{
  if (sampler->stopRequested()) {
    return;
  }
  for (;;) {
    logger.verbose(formatMemoryUsage(captureMemoryUsage()));
    if (period > std::chrono::milliseconds::zero()) {
      Timing::PeriodicWorker::Lock lock = sampler->lock();
      sampler->pause(lock, period);
    }
    if (sampler->stopRequested()) {
      return;
    }
  }
}

} // namespace Orvan::Core::Logging

namespace Orvan::Core::Timing {

void ClockOverride::use(Logging::MemorySpy& spy, std::shared_ptr<WorkerClock> clock)
{
  spy.sampler->useClock(std::move(clock));
}

} // namespace Orvan::Core::Timing
