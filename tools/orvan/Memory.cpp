#include "Commands.h"
#include "Console.h"

#include <Core/Logging/FileLogger.h>
#include <Core/Logging/MemorySpy.h>
#include <Utils/FileHelper.h>

#include <fstream>
#include <iomanip>
#include <sstream>
#include <thread>

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
    "  --watch MS            take a sample every MS milliseconds until Ctrl-C\n"
    "  --count N             stop after N samples (default: 1, or no limit with --watch)\n"
    "  -h, --help            show this help\n";

// The sample lines, and only them, start with this text in a log file line.
constexpr const char* SAMPLE_MARK = "[MEMORY] Virtual: ";
// The column legend starts with the same text.
constexpr const char* LEGEND_MARK = "[MEMORY] Virtual: PC TOTAL";

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

// Reads the complete lines added to a file since the last call.
class LineFollower {
public:
  explicit LineFollower(std::filesystem::path path)
      : path(std::move(path))
  {
  }

  std::vector<std::string> newLines()
  {
    std::vector<std::string> lines;
    std::ifstream input(path, std::ios::binary);
    if (!input) {
      return lines;
    }
    input.seekg(static_cast<std::streamoff>(offset));
    std::string content((std::istreambuf_iterator<char>(input)), std::istreambuf_iterator<char>());
    std::size_t start = 0;
    for (std::size_t end; (end = content.find('\n', start)) != std::string::npos; start = end + 1) {
      std::string line = content.substr(start, end - start);
      if (!line.empty() && line.back() == '\r') {
        line.pop_back();
      }
      lines.push_back(std::move(line));
    }
    offset += start;
    return lines;
  }

private:
  std::filesystem::path path;
  std::uint64_t offset = 0;
};

} // namespace

int memoryCommand(Arguments& arguments)
{
  std::optional<std::uint64_t> watch;
  std::optional<std::uint64_t> count;
  while (!arguments.empty()) {
    const Arguments::Word word = arguments.next();
    if (word.text == "-h" || word.text == "--help") {
      printHelp(MEMORY_HELP);
      return EXIT_OK;
    }
    if (word.text == "--watch") {
      watch = parseNumber(word.text, arguments.value(word), 86400000);
      if (*watch == 0) {
        throw UsageError("option '--watch' needs at least 1 millisecond");
      }
    } else if (word.text == "--count") {
      count = parseNumber(word.text, arguments.value(word), 1000000000);
      if (*count == 0) {
        throw UsageError("option '--count' needs at least 1");
      }
    } else if (word.isOption) {
      throw unknownOption(word);
    } else {
      throw UsageError("unexpected argument '" + word.text + "'");
    }
  }
  if (count && *count > 1 && !watch) {
    throw UsageError("option '--count' above 1 needs '--watch MS'");
  }
  const std::uint64_t wanted = count ? *count : (watch ? 0 : 1);

  CtrlC ctrlC;
  // The memory spy writes its sample lines into a file logger; the line shown
  // is the one it wrote, read back from a scratch log file.
  const std::filesystem::path directory = makeTemporaryDirectory("orvan-memory");
  const std::filesystem::path logPath = directory / "memory.log";
  std::uint64_t printed = 0;
  bool failed = false;
  {
    Logging::FileLogger logger(Utils::FileHelper::toString(logPath));
    // Without --watch one sample is enough: the spy takes it at once and then
    // waits for a period that never ends before the logger goes.
    logger.attachMemorySpyer(std::chrono::milliseconds(watch ? *watch : 3600000));
    LineFollower follower(logPath);
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(watch.value_or(0))
                    + std::chrono::seconds(30);
    while (!ctrlC.token.isCancelRequested() && (wanted == 0 || printed < wanted)) {
      bool any = false;
      for (const std::string& line : follower.newLines()) {
        const auto mark = line.find(SAMPLE_MARK);
        if (mark == std::string::npos || line.find(LEGEND_MARK) != std::string::npos) {
          continue;
        }
        if (wanted != 0 && printed == wanted) {
          break;
        }
        if (printed > 0) {
          Console::instance().result("");
        }
        Console::instance().result(line.substr(mark));
        Console::instance().result(table(Logging::MemorySpy::captureMemoryUsage()));
        ++printed;
        any = true;
      }
      const auto now = std::chrono::steady_clock::now();
      if (any) {
        deadline = now + std::chrono::milliseconds(watch.value_or(0)) + std::chrono::seconds(30);
      } else if (now > deadline) {
        Console::instance().message("orvan memory: the memory spy wrote no sample");
        failed = true;
        break;
      } else {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
      }
    }
  }
  std::error_code ignored;
  std::filesystem::remove_all(directory, ignored);
  return failed ? EXIT_FAILED : EXIT_OK;
}

} // namespace Orvan::Tool
