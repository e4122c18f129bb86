#pragma once

#include <Core/Export.h>
#include <Core/Process/CancelationToken.h>

#include <chrono>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

// Running a program and getting a result back, without going through the
// log: why it could not start, how it ended, what it wrote.
//
//   ExecuteOptions options;
//   options.arguments = {"tar", "xf", "data.tar"};
//   options.standardOutput = StreamMode::Capture;
//   options.timeLimit = std::chrono::minutes(5);
//   const ExecuteResult result = execute(options);
//   if (result.outcome == ExecuteResult::Outcome::NotStarted) {
//     std::cerr << result.error.message() << '\n';
//   }
namespace Orvan::Core::Process {

// What a standard stream of the program is connected to: the caller's own
// stream, nothing (the null device), or a pipe whose bytes the result keeps
// (output and error only).
enum class StreamMode { Inherit, Discard, Capture };

struct ExecuteOptions {
  // The program, then its arguments, each passed as it stands: no shell, no
  // splitting, no expansion. The program is looked up on the search path
  // when its name holds no directory.
  std::vector<std::string> arguments;
  // The program's current directory; empty: the caller's.
  std::string workingDirectory;
  // Variables added to the caller's environment, replacing those of the
  // same name.
  std::map<std::string, std::string> environment;
  StreamMode standardInput = StreamMode::Inherit;
  StreamMode standardOutput = StreamMode::Inherit;
  StreamMode standardError = StreamMode::Inherit;
  // Bytes kept of each captured stream; the rest is read and dropped, and
  // the result says so.
  std::size_t captureLimit = std::size_t{64} << 20;
  // The program (and every process it started) is ended once it has run
  // this long.
  std::optional<std::chrono::milliseconds> timeLimit;
  // A cancellation ends the program and every process it started. Null:
  // none. It must outlive the call.
  const CancelationToken* token = nullptr;
  // How long the processes have to end after being asked to (SIGTERM on
  // POSIX) before they are killed. Windows ends them at once.
  std::chrono::milliseconds gracePeriod{5000};
  // How long captured streams are still read once the program has ended:
  // a process it left behind may keep them open. When the period is over,
  // the streams are closed and the result says that the output was cut.
  // std::nullopt: read until every process has closed them.
  std::optional<std::chrono::milliseconds> drainPeriod = std::chrono::milliseconds(200);
};

struct ExecuteResult {
  enum class Outcome {
    NotStarted, // `error` says why
    Exited,     // `exitCode` holds the program's exit code
    Signalled,  // POSIX: a signal ended it, `signal` says which
    Cancelled,  // the token was cancelled; the processes were ended
    TimedOut    // the time limit ran out; the processes were ended
  };
  Outcome outcome = Outcome::NotStarted;
  // -1 when the system discarded it (a POSIX host that ignores SIGCHLD).
  int exitCode = 0;
  int signal = 0;
  // Why the program could not start: no_such_file_or_directory (not found),
  // permission_denied (not executable), not_a_directory (the working
  // directory is missing or no directory), invalid_argument (no program, a
  // NUL in an argument, a captured input), or the system's own code.
  std::error_code error;
  std::string standardOutput;
  std::string standardError;
  // True when a captured stream wrote more than the capture limit.
  bool outputTruncated = false;
  // True when a captured stream was closed before every process had closed
  // it: after the drain period, or once ending the processes was over (a
  // process that left the group may keep a stream open for good).
  bool outputCut = false;
  // True when the program had ended on its own (`outcome` is Exited or
  // Signalled) and processes it started were still running when the time
  // limit or the cancellation came: those were ended.
  bool descendantsEnded = false;
  std::chrono::milliseconds elapsed{0};
};

// Starts the program, waits for it and returns how it went. Never throws
// for the program's sake (std::bad_alloc aside) and logs nothing.
//
// The program runs in a process group of its own (POSIX) or a job object
// (Windows), so that ending it on cancellation or time limit ends every
// process it started too: within 50 ms of either, the group is asked to end,
// then killed after the grace period. Once the program is reaped and the
// group killed, the rest of the group is waited for 100 ms at most: a
// process whose parent is slow to reap it has ended all the same. A program
// that ends on its own keeps its status, even when the time limit or the
// cancellation comes while processes it started still run. Captured streams
// are read together, so a program that fills both never blocks. The
// library's own descriptors and handles are not inherited, and the program
// is always waited for.
ORVAN_CORE_EXPORT ExecuteResult execute(const ExecuteOptions& options);

// The command line that hands `arguments` to a Windows program unchanged
// under the C runtime's parsing rules: each word quoted when it is empty or
// holds blanks or quotes, with backslashes doubled before quotes. A Windows
// rule on every platform: System::run on POSIX splits by the shell's rules,
// and takes this line apart otherwise (see System::commandLine for the line
// that suits the platform).
ORVAN_CORE_EXPORT std::string quoteWindowsCommandLine(const std::vector<std::string>& arguments);

// The former name of quoteWindowsCommandLine.
[[deprecated("use quoteWindowsCommandLine, or System::commandLine for System::run")]] ORVAN_CORE_EXPORT std::string
quoteCommandLine(const std::vector<std::string>& arguments);

} // namespace Orvan::Core::Process
