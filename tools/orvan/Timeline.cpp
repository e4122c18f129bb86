#include "Timeline.h"

#include <algorithm>
#include <cstdio>
#include <map>

namespace Orvan::Tool {

namespace Logging = Core::Logging;

namespace {

using Kind = Logging::LogRecord::Kind;

// Open steps kept per thread, and how many of the innermost a leave line is
// matched against.
constexpr std::size_t MAX_OPEN = 256;
constexpr std::size_t MATCH_DEPTH = 32;

struct OpenStep {
  TimelineStep step;
  // The latest end of its inner steps.
  std::int64_t innerEnd = 0;
};

struct ThreadState {
  std::vector<OpenStep> open;
  // The end of the last step that ended on this thread: the next one starts
  // no earlier, so that the intervals of a thread nest.
  std::int64_t lastEnd = 0;
};

class Builder {
public:
  Builder(TimelineSink& sink, TimelineSummary& summary)
      : sink(sink)
      , summary(summary)
  {
  }

  void record(const Logging::LogRecord& record, std::int64_t time)
  {
    summary.end = std::max(summary.end, time);
    if (record.continuation) {
      return; // the rest of a line already seen
    }
    ThreadState& state = threadState(record.thread);
    switch (record.kind) {
    case Kind::StepEnter: {
      if (state.open.size() >= MAX_OPEN) {
        ++summary.ignored; // no real nesting is this deep: enter lines whose leave lines never come
        break;
      }
      OpenStep open;
      open.step.thread = record.thread;
      open.step.name = record.name;
      open.step.depth = static_cast<unsigned>(state.open.size());
      open.step.start = std::max(time, state.lastEnd);
      open.step.line = record.lineNumber;
      open.innerEnd = open.step.start;
      state.open.push_back(std::move(open));
      break;
    }
    case Kind::StepLeave:
      leave(state, record, time);
      break;
    case Kind::StepIntermediate:
      mark(TimelineMark::Kind::Progress, record, time, record.name + "/" + record.text);
      break;
    case Kind::Memory:
      sink.memory(TimelineMemory{time, record.memory});
      break;
    case Kind::Message:
      if (record.level == Logging::LoggingType::Warning) {
        mark(TimelineMark::Kind::Warning, record, time, record.message);
      } else if (record.level == Logging::LoggingType::Error) {
        mark(TimelineMark::Kind::Error, record, time, record.message);
      }
      break;
    case Kind::Version:
      break;
    }
  }

  // Ends every step still open at the last line of the log.
  void finish()
  {
    for (auto& [id, state] : threads) {
      while (!state.open.empty()) {
        close(state, summary.end, true);
      }
    }
  }

private:
  ThreadState& threadState(unsigned long long id)
  {
    const auto found = threads.find(id);
    if (found != threads.end()) {
      return found->second;
    }
    summary.threads.push_back(id);
    sink.thread(id);
    return threads[id];
  }

  void mark(TimelineMark::Kind kind, const Logging::LogRecord& record, std::int64_t time, const std::string& text)
  {
    sink.mark(TimelineMark{kind, record.thread, time, text});
  }

  void leave(ThreadState& state, const Logging::LogRecord& record, std::int64_t time)
  {
    // The step that ends is the innermost open one of that name, looked for
    // among the innermost few only, so that a log whose leave lines do not
    // match costs no more per line.
    const auto searched = state.open.rbegin() + static_cast<std::ptrdiff_t>(std::min(state.open.size(), MATCH_DEPTH));
    const auto found = std::find_if(state.open.rbegin(), searched,
                                    [&](const OpenStep& open) { return open.step.name == record.name; });
    const auto matching = found == searched ? state.open.rend() : found;
    if (matching == state.open.rend()) {
      // A leave line without its enter line (a copied workflow logger ends
      // twice): the step is drawn back from the leave line.
      OpenStep open;
      open.step.thread = record.thread;
      open.step.name = record.name;
      open.step.depth = static_cast<unsigned>(state.open.size());
      open.step.start = std::max(time - record.elapsed.count(), state.lastEnd);
      open.step.line = record.lineNumber;
      open.innerEnd = open.step.start;
      state.open.push_back(std::move(open));
    } else {
      // Steps opened after the one that ends and never ended themselves.
      const auto above = static_cast<std::size_t>(matching - state.open.rbegin());
      for (std::size_t i = 0; i < above; ++i) {
        close(state, time, true);
      }
    }
    OpenStep& open = state.open.back();
    open.step.elapsed = formatElapsed(record.elapsed);
    const std::int64_t byElapsed = open.step.start + record.elapsed.count();
    close(state, record.elapsed.count() < 1000000 ? byElapsed : std::max(time, byElapsed - 100000), false);
  }

  void close(ThreadState& state, std::int64_t end, bool unfinished)
  {
    OpenStep open = std::move(state.open.back());
    state.open.pop_back();
    open.step.end = std::max({end, open.innerEnd, open.step.start});
    open.step.unfinished = unfinished;
    state.lastEnd = std::max(state.lastEnd, open.step.end);
    if (!state.open.empty()) {
      state.open.back().innerEnd = std::max(state.open.back().innerEnd, open.step.end);
    }
    ++summary.steps;
    sink.step(open.step);
  }

  static std::string formatElapsed(std::chrono::microseconds elapsed)
  {
    char text[40];
    const long long count = elapsed.count();
    if (count < 1000000) {
      std::snprintf(text, sizeof text, "%lld.%03lld ms", count / 1000, count % 1000);
    } else {
      std::snprintf(text, sizeof text, "%lld.%lld s", count / 1000000, count % 1000000 / 100000);
    }
    return text;
  }

  TimelineSink& sink;
  TimelineSummary& summary;
  std::map<unsigned long long, ThreadState> threads;
};

} // namespace

TimelineSummary readTimeline(const std::string& path, TimelineSink& sink)
{
  Logging::LogFileReader reader(path);
  reader.finish(); // the file is read as it is now
  TimelineSummary summary;
  Builder builder(sink, summary);
  std::int64_t origin = 0;
  while (const Logging::LogRecord* record = reader.next()) {
    if (summary.lines == 0) {
      // The version line follows the head at once, and has milliseconds.
      summary.started = record->time;
      origin = summary.started.milliseconds();
    }
    summary.lines = record->lineNumber;
    builder.record(*record, (record->time.milliseconds() - origin) * 1000);
  }
  if (!reader.started()) {
    throw Logging::LogFileError("'" + path + "' is not a log file of Orvan Core: it is empty.");
  }
  if (summary.lines == 0) {
    summary.started = *reader.started();
  }
  summary.version = reader.version();
  builder.finish();
  return summary;
}

std::string validUtf8(std::string_view text)
{
  std::string result;
  result.reserve(text.size());
  std::size_t i = 0;
  while (i < text.size()) {
    const auto c = static_cast<unsigned char>(text[i]);
    std::size_t length = 0;
    unsigned minimum = 0;
    unsigned code = 0;
    if (c < 0x80) {
      result.push_back(static_cast<char>(c));
      ++i;
      continue;
    }
    if ((c & 0xE0) == 0xC0) {
      length = 2;
      minimum = 0x80;
      code = c & 0x1F;
    } else if ((c & 0xF0) == 0xE0) {
      length = 3;
      minimum = 0x800;
      code = c & 0x0F;
    } else if ((c & 0xF8) == 0xF0) {
      length = 4;
      minimum = 0x10000;
      code = c & 0x07;
    }
    bool valid = length != 0 && i + length <= text.size();
    for (std::size_t k = 1; valid && k < length; ++k) {
      const auto next = static_cast<unsigned char>(text[i + k]);
      valid = (next & 0xC0) == 0x80;
      code = (code << 6) | (next & 0x3F);
    }
    valid = valid && code >= minimum && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
    if (valid) {
      result.append(text.data() + i, length);
      i += length;
    } else {
      result += "\xEF\xBF\xBD";
      ++i;
    }
  }
  return result;
}

std::string formatDuration(std::int64_t microseconds)
{
  char text[48];
  const double value = static_cast<double>(microseconds);
  if (microseconds == 0) {
    return "0";
  }
  if (microseconds < 1000) {
    std::snprintf(text, sizeof text, "%lld µs", static_cast<long long>(microseconds));
  } else if (microseconds < 1000000) {
    std::snprintf(text, sizeof text, "%.3g ms", value / 1e3);
  } else if (microseconds < 60000000) {
    std::snprintf(text, sizeof text, "%.3g s", value / 1e6);
  } else if (microseconds < 3600000000LL) {
    const long long seconds = microseconds / 1000000;
    std::snprintf(text, sizeof text, "%lld min %02lld s", seconds / 60, seconds % 60);
  } else {
    const long long minutes = microseconds / 60000000;
    std::snprintf(text, sizeof text, "%lld h %02lld min", minutes / 60, minutes % 60);
  }
  return text;
}

} // namespace Orvan::Tool
