#pragma once

#include <Core/Logging/FileLogger.h>
#include <Core/Logging/LevelLogger.h>
#include <Core/Logging/LoggingType.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace Orvan::Tool {

// How much of the log the console shows.
enum class Verbosity { Quiet, Normal, Chatty, Everything };

// The logger the tool installs in the library: every message goes to the log
// file when there is one; the console shows the levels its verbosity allows,
// above any progress bar. Memory requests reach the log file's memory spy.
class ToolLogger : public Core::Logging::LevelLogger {
public:
  ToolLogger(Verbosity verbosity, std::shared_ptr<Core::Logging::FileLogger> file);

  void triggerLogMemory() override;

protected:
  void write(Core::Logging::LoggingType type, const std::string& message) override;

private:
  void toConsole(const char* tag, const std::string& message);

  Verbosity verbosity;
  std::shared_ptr<Core::Logging::FileLogger> file;
};

// The logging options every command shares.
struct LogOptions {
  std::optional<std::string> file;
  std::optional<std::chrono::milliseconds> memoryPeriod;
  std::optional<Verbosity> verbosity;
};

// Installs a ToolLogger in the library for its lifetime, with a file logger
// (and its memory spy) when asked for. Create and destroy it while no other
// thread logs.
class LogSession {
public:
  LogSession(const LogOptions& options, Verbosity defaultVerbosity);
  ~LogSession();
  LogSession(const LogSession&) = delete;
  LogSession& operator=(const LogSession&) = delete;

  ToolLogger& logger() { return *toolLogger; }

private:
  std::shared_ptr<Core::Logging::FileLogger> file;
  std::shared_ptr<ToolLogger> toolLogger;
};

} // namespace Orvan::Tool

namespace Orvan::Tool {

class CommandLine;

// Adds the logging options every command shares to `line`: --log FILE,
// --memory-period MS, -q/--quiet, -v/--verbose (given twice: everything).
void addLogOptions(CommandLine& line, LogOptions& options);

// The help text of those options.
extern const char* const LOG_OPTIONS_HELP;

} // namespace Orvan::Tool
