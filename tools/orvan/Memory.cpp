#include "Commands.h"
#include "Console.h"

#include <Core/Logging/MemorySpy.h>

#include <chrono>
#include <iomanip>
#include <optional>
#include <sstream>

namespace Orvan::Tool {

namespace Logging = Core::Logging;

namespace {

const char* const MEMORY_HELP =
    "Usage: orvan memory [options]\n"
    "\n"
    "Prints the memory spy's sample line, as it appears in log files, and a table\n"
    "of its six figures: the machine's commit limit and committed memory with this\n"
    "process's private memory, and the machine's physical memory and the part in use\n"
    "with this process's resident set.\n"
    "\n"
    "Options:\n"
    "  --watch TIME          take a sample every TIME until Ctrl-C\n"
    "  --count N             stop after N samples (default: 1, or no limit with --watch)\n"
    "  -h, --help            show this help\n"
    "\n"
    "TIME is a number of seconds, or a number with a unit: 0.5, 1.5s, 250ms, 2m,\n"
    "1h, 1d.\n";

std::string table(const Logging::MemoryUsageCapture& usage)
{
  std::ostringstream text;
  const auto row = [&text](const char* name, std::uint64_t total, std::uint64_t used, std::uint64_t own) {
    text << std::left << std::setw(20) << name << std::right << std::setw(14) << formatBytes(total) << std::setw(14)
         << formatBytes(used) << std::setw(16) << formatBytes(own) << '\n';
  };
  text << std::left << std::setw(20) << "" << std::right << std::setw(14) << "total" << std::setw(14) << "used"
       << std::setw(16) << "this process" << '\n';
  row("virtual (commit)", usage.virtualTotal, usage.virtualUsed, usage.virtualUsedByApplication);
  row("physical", usage.physicalTotal, usage.physicalUsed, usage.physicalUsedByApplication);
  std::string result = text.str();
  result.pop_back();
  return result;
}

} // namespace

int memoryCommand(const std::vector<std::string>& words)
{
  std::optional<std::chrono::milliseconds> watch;
  std::optional<std::uint64_t> count;
  CommandLine line(MEMORY_HELP);
  line.duration("--watch", std::chrono::hours(24), true, [&](std::chrono::milliseconds period) {
    if (period.count() == 0) {
      throw UsageError("option '--watch' needs at least 1ms");
    }
    watch = period;
  });
  line.number("--count", 1000000000, [&](std::uint64_t samples) {
    if (samples == 0) {
      throw UsageError("option '--count' needs at least 1");
    }
    count = samples;
  });
  if (!line.parse(words)) {
    return EXIT_OK;
  }
  if (count && *count > 1 && !watch) {
    throw UsageError("option '--count' above 1 needs '--watch TIME'");
  }
  const std::uint64_t wanted = count ? *count : (watch ? 0 : 1);

  CtrlC ctrlC;
  // The sample line is the one a memory spy writes into a log file, made by
  // the same function.
  for (std::uint64_t printed = 0; wanted == 0 || printed < wanted; ++printed) {
    if (printed > 0) {
      // Ctrl-C ends the pause at once.
      if (ctrlC.token.waitFor(*watch)) {
        break;
      }
      Console::instance().result("");
    }
    const Logging::MemoryUsageCapture usage = Logging::MemorySpy::captureMemoryUsage();
    Console::instance().result(Logging::formatMemoryUsage(usage));
    Console::instance().result(table(usage));
  }
  return ctrlC.token.isCancelRequested() ? CtrlC::exitCode() : EXIT_OK;
}

} // namespace Orvan::Tool
