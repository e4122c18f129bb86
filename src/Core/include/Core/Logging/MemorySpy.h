#pragma once

#include <Core/Export.h>
#include <Core/Logging/Logger.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace Orvan::Core::Timing {
class PeriodicWorker;
struct ClockOverride;
} // namespace Orvan::Core::Timing

namespace Orvan::Core::Logging {

// One reading of the machine's and the process's memory use, in bytes.
struct MemoryUsageCapture {
  // Commit limit of the machine and the memory committed on it.
  std::uint64_t virtualTotal = 0;
  std::uint64_t virtualUsed = 0;
  // Private memory of this process.
  std::uint64_t virtualUsedByApplication = 0;
  // Installed physical memory and the part of it in use.
  std::uint64_t physicalTotal = 0;
  std::uint64_t physicalUsed = 0;
  // Resident set (working set) of this process.
  std::uint64_t physicalUsedByApplication = 0;
};

// A byte count the way the memory lines show it: "16GB", "1 512MB",
// "50 020KB", "005KB" (the boundaries are strict: exactly 1 MiB is "000KB").
ORVAN_CORE_EXPORT std::string formatMemorySize(std::uint64_t bytes);

// The sample line a memory spy writes for `usage`: "[MEMORY] Virtual: " and
// the six figures, tab-separated, with "Physical:" before the physical ones.
// A host prints it without any log file:
//
//   std::cout << MEMORY_LEGEND << '\n'
//             << formatMemoryUsage(MemorySpy::captureMemoryUsage()) << '\n';
ORVAN_CORE_EXPORT std::string formatMemoryUsage(const MemoryUsageCapture& usage);

// The column legend written once per attached spy, before its samples.
inline constexpr const char* MEMORY_LEGEND =
    "[MEMORY] Virtual: PC TOTAL\t-\tPC USED\t-\tUSED BY APPLICATION\t\t"
    "Physical: PC TOTAL\t-\tPC USED\t-\tUSED BY APPLICATION";

// Samples the memory use on a thread of its own and hands each sample, as one
// "[MEMORY] Virtual: ..." line, to a logger at the verbose level. A file
// logger runs one for each call of its attachMemorySpyer; hosts use the
// one-shot captureMemoryUsage.
class ORVAN_CORE_EXPORT MemorySpy {
public:
  // A period of zero or less samples back to back.
  MemorySpy(Logger& logger, std::chrono::milliseconds period);

  MemorySpy(const MemorySpy&) = delete;
  MemorySpy& operator=(const MemorySpy&) = delete;

  // Stops and joins the sampling thread; when the stop lands while a sample
  // is being taken, this may wait up to one period.
  ~MemorySpy();

  // Starts the sampling thread, which takes its first sample at once. A spy
  // starts once only.
  void start();

  // Ends the current pause between samples, so that the next sample is taken
  // now. A call made while a sample is being taken has no effect.
  void wakeUp();

  // Reads the memory figures now.
  static MemoryUsageCapture captureMemoryUsage();

private:
  // Lets the library's tests pause the spy on a clock they move by hand.
  friend struct Timing::ClockOverride;

  void samplingLoop();

  Logger& logger;
  std::chrono::milliseconds period;
  // The sampling thread with its stop flag, mutex and pauses.
  std::unique_ptr<Timing::PeriodicWorker> sampler;
};

} // namespace Orvan::Core::Logging
