#pragma once

#include "CommandLine.h"
#include "Platform.h"

#include <Core/Process/CancelationToken.h>

#include <filesystem>
#include <string>
#include <vector>

namespace Orvan::Tool {

// Exit codes shared by every command.
inline constexpr int EXIT_OK = 0;
inline constexpr int EXIT_FAILED = 1;
inline constexpr int EXIT_USAGE = 2;
inline constexpr int EXIT_CANCELLED = 130;
// As curl reports a server that could not be resolved or connected to.
inline constexpr int EXIT_NOT_CONNECTED = 7;
// As GNU timeout reports a time limit that ran out.
inline constexpr int EXIT_TIMED_OUT = 124;
// As GNU timeout, env and nice report their own failures, usage errors
// included: `run` passes on its program's codes, so its own need one apart.
inline constexpr int EXIT_RUN_FAILED = 125;

// Each command reads the words after its name and returns the exit code; it
// throws UsageError for a command line it cannot accept.
int fetchCommand(const std::vector<std::string>& words);
int serveCommand(const std::vector<std::string>& words);
int runCommand(const std::vector<std::string>& words);
int memoryCommand(const std::vector<std::string>& words);
int demoCommand(const std::vector<std::string>& words);
int traceCommand(const std::vector<std::string>& words);
int reportCommand(const std::vector<std::string>& words);

// Write the trace (Trace Event Format) and the HTML report of the log file
// `log` to `destination` ("-": standard output) and return the name written
// to; throw Core::Logging::LogFileError or std::runtime_error.
std::string writeTrace(const std::string& log, const std::string& destination);
std::string writeReport(const std::string& log, const std::string& destination);

// Ctrl-C, while the object lives, requests cancellation through `token`.
class CtrlC {
public:
  CtrlC()
      : handler([this] { token.requestCancel(); })
  {
  }

  Core::Process::CancelationToken token;

  // The exit code of a command that Ctrl-C (or SIGTERM) ended: 130 (or 143).
  static int exitCode()
  {
    const int code = Platform::InterruptHandler::exitCode();
    return code != 0 ? code : EXIT_CANCELLED;
  }

private:
  Platform::InterruptHandler handler;
};

// A new empty directory under the system's temporary directory, named after
// `prefix`.
std::filesystem::path makeTemporaryDirectory(const std::string& prefix);

} // namespace Orvan::Tool
