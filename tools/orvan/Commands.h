#pragma once

#include "Arguments.h"
#include "Platform.h"

#include <Core/Process/CancelationToken.h>

#include <filesystem>
#include <string>

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

// Each command reads its own words and returns the exit code; it throws
// UsageError for a command line it cannot accept.
int fetchCommand(Arguments& arguments);
int serveCommand(Arguments& arguments);
int runCommand(Arguments& arguments);
int memoryCommand(Arguments& arguments);
int demoCommand(Arguments& arguments);

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

// Writes a command's help to standard output, with the shared logging
// options in place of "{log-options}".
void printHelp(const std::string& text);

// A new empty directory under the system's temporary directory, named after
// `prefix`.
std::filesystem::path makeTemporaryDirectory(const std::string& prefix);

} // namespace Orvan::Tool
