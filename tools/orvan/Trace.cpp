#include "Commands.h"
#include "Console.h"
#include "Output.h"
#include "Timeline.h"

#include <Utils/FileHelper.h>

#include <cstdio>
#include <optional>
#include <string>

namespace Orvan::Tool {

namespace {

const char* const TRACE_HELP =
    "Usage: orvan trace LOG [options]\n"
    "\n"
    "Turns a log file of the library into the Trace Event Format, the JSON that\n"
    "Perfetto (ui.perfetto.dev), chrome://tracing and speedscope open: each\n"
    "workflow step is a slice on its thread's track, progress lines, warnings and\n"
    "errors are instant events, and the memory samples are counters (process\n"
    "physical used, machine physical used, process virtual used). A step whose\n"
    "leave line is missing ends at the last line and is marked unfinished.\n"
    "Times are in microseconds since the log's first line.\n"
    "\n"
    "Exit codes: 0 written, 1 the log cannot be read or is not a log file of the\n"
    "library, or the output cannot be written, 2 bad arguments.\n"
    "\n"
    "Options:\n"
    "  -o, --output FILE     where to write the JSON (default: LOG.trace.json; '-' for\n"
    "                        standard output)\n"
    "  -h, --help            show this help\n";

// Writes the events as they come: only the open steps are held.
class TraceWriter : public TimelineSink {
public:
  // The output is created with the first event: a file that is not a log
  // leaves none behind.
  explicit TraceWriter(std::string destination)
      : destination(std::move(destination))
  {
  }

  void thread(unsigned long long id) override
  {
    const std::string tid = std::to_string(id);
    event("{\"ph\":\"M\",\"pid\":1,\"tid\":" + tid + ",\"name\":\"thread_name\",\"args\":{\"name\":\"thread " + tid +
          "\"}}");
  }

  // Arguments only for an unfinished step: speedscope tells frames apart by
  // name and arguments, and would otherwise make every step a frame of its
  // own.
  void step(const TimelineStep& step) override
  {
    event("{\"ph\":\"X\",\"pid\":1,\"tid\":" + std::to_string(step.thread) + ",\"ts\":" + std::to_string(step.start) +
          ",\"dur\":" + std::to_string(step.end - step.start) + ",\"cat\":\"step\",\"name\":" + quoted(step.name) +
          (step.unfinished ? ",\"args\":{\"unfinished\":true}}" : "}"));
  }

  void mark(const TimelineMark& mark) override
  {
    static const char* const CATEGORIES[] = {"progress", "warning", "error"};
    event("{\"ph\":\"i\",\"s\":\"t\",\"pid\":1,\"tid\":" + std::to_string(mark.thread) +
          ",\"ts\":" + std::to_string(mark.time) + ",\"cat\":\"" + CATEGORIES[static_cast<int>(mark.kind)] +
          "\",\"name\":" + quoted(mark.text) + "}");
  }

  void memory(const TimelineMemory& sample) override
  {
    counter("process physical used", sample.time, sample.memory.physicalUsedByApplication);
    counter("machine physical used", sample.time, sample.memory.physicalUsed);
    counter("process virtual used", sample.time, sample.memory.virtualUsedByApplication);
  }

  // Ends the JSON; returns the name of what was written.
  std::string finish(const TimelineSummary& summary)
  {
    event("{\"ph\":\"M\",\"pid\":1,\"name\":\"process_name\",\"args\":{\"name\":" +
          quoted("log of " + summary.started.toString()) + "}}");
    output->write("\n],\"displayTimeUnit\":\"ms\",\"otherData\":{\"version\":" + quoted(summary.version) +
                  ",\"started\":" + quoted(summary.started.toString()) + "}}\n");
    output->close();
    return output->name();
  }

private:
  void event(const std::string& text)
  {
    if (!output) {
      output.emplace(destination);
      output->write("{\"traceEvents\":[\n");
    } else {
      output->write(",\n");
    }
    output->write(text);
  }

  void counter(const char* name, std::int64_t time, std::uint64_t bytes)
  {
    event(std::string("{\"ph\":\"C\",\"pid\":1,\"ts\":") + std::to_string(time) + ",\"name\":\"" + name +
          "\",\"args\":{\"bytes\":" + std::to_string(bytes) + "}}");
  }

  // A JSON string of `text`, made valid UTF-8.
  static std::string quoted(const std::string& text)
  {
    std::string result = "\"";
    for (const char c : validUtf8(text)) {
      const auto byte = static_cast<unsigned char>(c);
      if (c == '"' || c == '\\') {
        result += '\\';
        result += c;
      } else if (byte < 0x20) {
        char escaped[8];
        std::snprintf(escaped, sizeof escaped, "\\u%04x", byte);
        result += escaped;
      } else {
        result += c;
      }
    }
    return result + "\"";
  }

  std::string destination;
  std::optional<OutputFile> output;
};

} // namespace

std::string writeTrace(const std::string& log, const std::string& destination)
{
  TraceWriter writer(destination);
  const TimelineSummary summary = readTimeline(log, writer);
  return writer.finish(summary);
}

int traceCommand(const std::vector<std::string>& words)
{
  std::string log;
  std::string destination;
  CommandLine line(TRACE_HELP);
  line.option("-o,--output", [&](const std::string& value) { destination = value; });
  line.operand("LOG", [&](const std::string& value) { log = value; });
  if (!line.parse(words)) {
    return EXIT_OK;
  }
  if (destination.empty()) {
    destination = log + ".trace.json";
  }
  try {
    const std::string written = writeTrace(log, destination);
    if (destination != "-") {
      Console::instance().result("Trace written to '" + written + "'");
    }
  } catch (const std::exception& error) {
    Console::instance().message("orvan trace: " + std::string(error.what()));
    return EXIT_FAILED;
  }
  return EXIT_OK;
}

} // namespace Orvan::Tool
