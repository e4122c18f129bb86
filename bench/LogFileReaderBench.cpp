// Reading a log file back: LogFileReader, every line parsed into a typed
// record, set against a plain std::getline loop over the same file, which
// only splits it into lines. Both report bytes per second.
#include "Comparison.h"

#include <Core/Logging/LogFileReader.h>
#include <Core/Logging/MemorySpy.h>

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

namespace Logging = Orvan::Core::Logging;

// About 64 MiB of a typical log: workflow steps nested three deep on four
// threads, progress lines, messages, memory samples, a warning now and then.
const std::filesystem::path& logFile()
{
  static const std::filesystem::path path = [] {
    const auto file =
        std::filesystem::temp_directory_path() / ("orvan-bench-" + std::to_string(::getpid()) + "-reader.log");
    std::ofstream out(file, std::ios::binary);
    out << "[Y-m-d X]2026-11-24 08:00:00\n08:00:00.000 [VERSION ] [ 30089] 7.6.3\n";
    Logging::MemoryUsageCapture usage{24ull << 30, 5ull << 30, 300ull << 20, 23ull << 30, 4ull << 30, 120ull << 20};
    const std::string memory = Logging::formatMemoryUsage(usage);
    char prefix[64];
    std::uint64_t written = 0;
    for (long i = 0; written < 64ull * 1024 * 1024; ++i) {
      const long ms = 8 * 3600000L + i * 7;
      std::snprintf(prefix, sizeof prefix, "%02ld:%02ld:%02ld.%03ld [%s] [%6ld] ", ms / 3600000 % 24, ms / 60000 % 60,
                    ms / 1000 % 60, ms % 1000, i % 5 == 4 ? "VERBOSE" : "INFO   ", 30089 + i % 4);
      std::string line = prefix;
      switch (i % 10) {
      case 0:
        line += "===> Fetch 'source.bin@127.0.0.1:46003&timeout=10'";
        break;
      case 1:
        line += "\t===> Parse the header";
        break;
      case 2:
        line += "\t\tParse the header/read 4096 bytes 12.345 ms";
        break;
      case 3:
        line += "\t<=== Parse the header 25.120 ms";
        break;
      case 4:
      case 9:
        line += memory;
        break;
      case 5:
        line += "Connected to: 'source.bin@127.0.0.1:46003&timeout=10'.";
        break;
      case 6:
        line += "Read: 113152 b. from 127.0.0.1:46003";
        break;
      case 7:
        line += "<=== Fetch 'source.bin@127.0.0.1:46003&timeout=10' 1.2 s";
        break;
      default:
        line += "a message of ordinary length, with a number 4096 and a file name data.bin";
      }
      line += '\n';
      out << line;
      written += line.size();
    }
    return file;
  }();
  return path;
}

void LogFileReaderAllRecords(benchmark::State& state)
{
  const std::string path = logFile().string();
  const auto size = static_cast<std::int64_t>(std::filesystem::file_size(path));
  std::uint64_t steps = 0;
  for (auto _ : state) {
    Logging::LogFileReader reader(path);
    reader.finish();
    while (const Logging::LogRecord* record = reader.next()) {
      steps += record->kind == Logging::LogRecord::Kind::StepEnter ? 1 : 0;
    }
  }
  benchmark::DoNotOptimize(steps);
  state.SetBytesProcessed(state.iterations() * size);
}
BENCHMARK(LogFileReaderAllRecords)->Unit(benchmark::kMillisecond);

void GetlineLoop(benchmark::State& state)
{
  const auto path = logFile();
  const auto size = static_cast<std::int64_t>(std::filesystem::file_size(path));
  std::uint64_t bytes = 0;
  for (auto _ : state) {
    std::ifstream in(path, std::ios::binary);
    std::string line;
    while (std::getline(in, line)) {
      bytes += line.size();
    }
  }
  benchmark::DoNotOptimize(bytes);
  state.SetBytesProcessed(state.iterations() * size);
}
BENCHMARK(GetlineLoop)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
  const int result = Orvan::Bench::runAndCompare(argc, argv, {{"LogFileReaderAllRecords", "GetlineLoop", 3.0}});
  std::filesystem::remove(logFile());
  return result;
}
