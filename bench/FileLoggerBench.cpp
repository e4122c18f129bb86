// The cost of one logged line in a file, flushed at once, set against the
// physical limit (one write(2) of a preformatted line of the same length) and
// against spdlog's file sink flushing every line; the same line in a file
// that rotates by size, set against the plain file. Also the cost of one
// memory reading. Linux only, like every benchmark here: the baseline is a POSIX
// write.
#include "Comparison.h"

#include <Core/Logging/FileLogger.h>
#include <Core/Logging/MemorySpy.h>

#include <spdlog/logger.h>
#include <spdlog/sinks/basic_file_sink.h>

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>

namespace {

namespace Logging = Orvan::Core::Logging;

// All three files live side by side, on the same disk.
std::filesystem::path benchFile(const char* name)
{
  return std::filesystem::temp_directory_path() / ("orvan-bench-" + std::to_string(::getpid()) + "-" + name);
}

// A 200-byte message.
const std::string MESSAGE = [] {
  std::string text = "Transferred block 4096 of 'data.bin@127.0.0.1:4000&timeout=30': ";
  while (text.size() < 200) {
    text += "0123456789";
  }
  return text.substr(0, 200);
}();

void FileLoggerInfo(benchmark::State& state)
{
  const auto path = benchFile("file-logger.log");
  {
    Logging::FileLogger logger(path.string());
    for (auto _ : state) {
      logger.info(MESSAGE);
    }
  }
  std::filesystem::remove(path);
}
BENCHMARK(FileLoggerInfo);

// Rotating every 10 MiB (about 45 000 lines), three older files kept: the
// count of bytes on each line and the rotations, spread over the lines.
void RotatingFileLoggerInfo(benchmark::State& state)
{
  const auto path = benchFile("rotating-file-logger.log");
  {
    Logging::FileLogger::Options options;
    options.rotation = Logging::FileLogger::Rotation{10 * 1024 * 1024, 3};
    Logging::FileLogger logger(path.string(), options);
    for (auto _ : state) {
      logger.info(MESSAGE);
    }
  }
  std::filesystem::remove(path);
  for (int number = 1; number <= 3; ++number) {
    std::filesystem::remove(path.string() + "." + std::to_string(number));
  }
}
BENCHMARK(RotatingFileLoggerInfo);

// What the file logger cannot beat: one system call per line, the line
// already formatted (a prefix of the same length as the logger's).
void RawWriteOfAFormattedLine(benchmark::State& state)
{
  const auto path = benchFile("raw.log");
  const std::string line = "14:03:07.045 [INFO   ] [ 12345] " + MESSAGE + "\n";
  const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  for (auto _ : state) {
    benchmark::DoNotOptimize(::write(descriptor, line.data(), line.size()));
  }
  ::close(descriptor);
  std::filesystem::remove(path);
}
BENCHMARK(RawWriteOfAFormattedLine);

void SpdlogFlushingEveryLine(benchmark::State& state)
{
  const auto path = benchFile("spdlog.log");
  {
    auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(path.string(), true);
    spdlog::logger logger("bench", sink);
    logger.flush_on(spdlog::level::trace);
    for (auto _ : state) {
      logger.info(MESSAGE);
    }
  }
  std::filesystem::remove(path);
}
BENCHMARK(SpdlogFlushingEveryLine);

void CaptureMemoryUsage(benchmark::State& state)
{
  for (auto _ : state) {
    benchmark::DoNotOptimize(Logging::MemorySpy::captureMemoryUsage());
  }
}
BENCHMARK(CaptureMemoryUsage);

} // namespace

int main(int argc, char** argv)
{
  // The memory reading has an absolute target (30 000 ns); its time is in
  // the report above.
  return Orvan::Bench::runAndCompare(argc, argv,
                                     {{"FileLoggerInfo", "RawWriteOfAFormattedLine", 1.2},
                                      {"FileLoggerInfo", "SpdlogFlushingEveryLine", 1.0},
                                      {"RotatingFileLoggerInfo", "FileLoggerInfo", 1.1}});
}
