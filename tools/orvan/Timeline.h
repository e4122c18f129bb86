#pragma once

#include <Core/Logging/LogFileReader.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Orvan::Tool {

// A log file seen as a timeline: the workflow steps of each thread as
// intervals, the marks (progress lines, warnings, errors) and the memory
// samples, in microseconds since the log's first line.

struct TimelineStep {
  unsigned long long thread = 0;
  std::string name;
  unsigned depth = 0;
  std::int64_t start = 0;
  std::int64_t end = 0;
  // The duration as the log wrote it; empty for a step without a leave line.
  std::string elapsed;
  // The leave line is missing: the step ends at the last line of the log.
  bool unfinished = false;
  std::uint64_t line = 0;
};

struct TimelineMark {
  enum class Kind { Progress, Warning, Error };
  Kind kind = Kind::Progress;
  unsigned long long thread = 0;
  std::int64_t time = 0;
  std::string text;
};

struct TimelineMemory {
  std::int64_t time = 0;
  Core::Logging::MemoryUsageCapture memory;
};

// Receives the timeline while the log is read: steps when they end (so
// inner steps before outer ones), marks and samples in the log's order.
class TimelineSink {
public:
  virtual ~TimelineSink() = default;
  virtual void thread(unsigned long long id) = 0;
  virtual void step(const TimelineStep& step) = 0;
  virtual void mark(const TimelineMark& mark) = 0;
  virtual void memory(const TimelineMemory& sample) = 0;
};

struct TimelineSummary {
  // The time of the first line.
  Core::Logging::LogDateTime started;
  std::string version;
  // The time of the last line.
  std::int64_t end = 0;
  std::vector<unsigned long long> threads;
  std::uint64_t lines = 0;
  std::uint64_t steps = 0;
  // Enter lines left out because 256 steps were already open on their
  // thread.
  std::uint64_t ignored = 0;
};

// Reads the whole log file at `path` into `sink`. Steps of one thread nest
// as in the log: a step starts at its enter line, no earlier than the end of
// the thread's previous step, lasts the duration its leave line gives (below
// a second, where that text is precise to the microsecond; else up to the
// leave line) and covers its inner steps. Throws Core::Logging::LogFileError.
TimelineSummary readTimeline(const std::string& path, TimelineSink& sink);

// `text` with every byte that is not part of valid UTF-8 replaced by U+FFFD.
std::string validUtf8(std::string_view text);

// "12.3 ms", "4.56 s", "1 h 02 min" for a duration in microseconds.
std::string formatDuration(std::int64_t microseconds);

} // namespace Orvan::Tool
