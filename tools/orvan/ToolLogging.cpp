#include "ToolLogging.h"

#include "CommandLine.h"
#include "Console.h"

#include <Core/Logging/LoggingCallback.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <stdexcept>

namespace Orvan::Tool {

namespace Logging = Core::Logging;

ToolLogger::ToolLogger(Verbosity verbosity, std::shared_ptr<Logging::FileLogger> file)
    : verbosity(verbosity)
    , file(std::move(file))
{
}

void ToolLogger::toConsole(const char* tag, const std::string& message)
{
  // Some messages carry their own line end; the console adds one anyway.
  std::string text = message;
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) {
    text.pop_back();
  }
  Console::instance().message(tag + text);
}

namespace {

// Each level's console tag and the verbosity from which the console shows it.
// The tool says what went wrong in a sentence of its own: the library's lines
// about the same failure ("Failed to connected to ...") would only repeat it,
// so they go to the log file, and to the console from -v on (serve shows its
// connections by default).
struct LevelOnConsole {
  Logging::LoggingType type;
  const char* tag;
  Verbosity shownFrom;
};

constexpr LevelOnConsole LEVELS[] = {
    {Logging::LoggingType::Error, "[ERROR  ] ", Verbosity::Chatty},
    {Logging::LoggingType::Warning, "[WARNING] ", Verbosity::Chatty},
    {Logging::LoggingType::Info, "[INFO   ] ", Verbosity::Chatty},
    {Logging::LoggingType::Debug, "[DEBUG  ] ", Verbosity::Everything},
    {Logging::LoggingType::Verbose, "[VERBOSE] ", Verbosity::Everything},
};

} // namespace

void ToolLogger::write(Logging::LoggingType type, const std::string& message)
{
  if (file) {
    Logging::writeAt(*file, type, message);
  }
  for (const LevelOnConsole& level : LEVELS) {
    if (level.type == type && verbosity >= level.shownFrom) {
      toConsole(level.tag, message);
    }
  }
}

void ToolLogger::triggerLogMemory()
{
  if (file) {
    file->triggerLogMemory();
  }
}

LogSession::LogSession(const LogOptions& options, Verbosity defaultVerbosity)
{
  if (options.file) {
    // The file logger would only say so on standard error and carry on; a
    // log that the user asked for and cannot get is an error of the command.
    if (!std::ofstream(*options.file, std::ios::app)) {
      throw std::runtime_error("cannot write the log file '" + *options.file + "': " + std::strerror(errno));
    }
    file = std::make_shared<Logging::FileLogger>(*options.file);
    if (options.memoryPeriod) {
      file->attachMemorySpyer(*options.memoryPeriod);
    }
  } else if (options.memoryPeriod) {
    throw UsageError("option '--memory-period' needs '--log FILE' to write the samples to");
  }
  toolLogger = std::make_shared<ToolLogger>(options.verbosity.value_or(defaultVerbosity), file);
  Logging::setLogger(toolLogger);
}

LogSession::~LogSession()
{
  Logging::setLogger({});
}

} // namespace Orvan::Tool

namespace Orvan::Tool {

const char* const LOG_OPTIONS_HELP =
    "  --log FILE            write the whole log, every level, to FILE\n"
    "  --memory-period TIME  with --log: add a memory sample line to the log every TIME\n"
    "  -q, --quiet           show only the tool's own errors\n"
    "  -v, --verbose         show the library's log lines (errors, warnings, information)\n"
    "                        on standard error too; twice (-vv) shows every line\n";

void addLogOptions(CommandLine& line, LogOptions& options)
{
  line.option("--log", [&options](const std::string& file) {
    if (file.empty()) {
      throw UsageError("option '--log' needs a file name");
    }
    options.file = file;
  });
  line.duration("--memory-period", std::chrono::hours(24), true,
                [&options](std::chrono::milliseconds period) { options.memoryPeriod = period; });
  line.flag("-q,--quiet", [&options] { options.verbosity = Verbosity::Quiet; });
  line.flag("-v,--verbose", [&options] {
    options.verbosity = options.verbosity == Verbosity::Chatty || options.verbosity == Verbosity::Everything
                            ? Verbosity::Everything
                            : Verbosity::Chatty;
  });
}

} // namespace Orvan::Tool
