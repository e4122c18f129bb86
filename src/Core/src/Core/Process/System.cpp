#include <Core/Logging/LoggingCallbackPrivate.h>
#include <Core/Process/System.h>

#include "Platform/Process.h"
#include "Timing/Periods.h"

#include <sstream>

namespace Orvan::Core::System {

namespace {

using Logging::LoggingType;
using Logging::logMessage;
using Platform::SystemCode;

// The exit code given to a program killed on cancellation.
constexpr SystemCode CANCELLED_EXIT_CODE = 1;

// The numbers the log gives the wait results and the code of a program that
// has not ended, as the Windows services number them, on every platform.
constexpr SystemCode WAIT_OBJECT_0_CODE = 0;
constexpr SystemCode WAIT_ABANDONED_CODE = 128;
constexpr SystemCode WAIT_TIMEOUT_CODE = 258;
constexpr SystemCode WAIT_FAILED_CODE = 0xFFFFFFFF;
constexpr SystemCode STILL_ACTIVE_CODE = 259;

// The wait result's number, for the log.
SystemCode waitResultCode(const Platform::ProcessWait& wait)
{
  switch (wait.outcome) {
  case Platform::WaitOutcome::Ended:
    return WAIT_OBJECT_0_CODE;
  case Platform::WaitOutcome::TimedOut:
    return WAIT_TIMEOUT_CODE;
  case Platform::WaitOutcome::Failed:
    return WAIT_FAILED_CODE;
  case Platform::WaitOutcome::Abandoned:
    return WAIT_ABANDONED_CODE;
  case Platform::WaitOutcome::Unexpected:
    break;
  }
  return wait.value;
}

// The exit code as the log and the result give it: a program still running
// reads as STILL_ACTIVE.
SystemCode exitCode(const Platform::ProcessExit& exit)
{
  return exit.running ? STILL_ACTIVE_CODE : exit.code;
}

// Logs the program's exit code and returns what run gives back for it.
unsigned long long reportExitCode(SystemCode code)
{
  if (code == 0) {
    logMessage(LoggingType::Info, "Process exit code (0) indicates success");
    return 0;
  }
  if (code == STILL_ACTIVE_CODE) {
    logMessage(LoggingType::Warning, "Process is still active and not terminated as expected");
    return 1;
  }
  std::ostringstream hexadecimal;
  hexadecimal << std::hex << code;
  logMessage(LoggingType::Info, "Process exited with non-zero code (dec / hex) : ", code, " / ", hexadecimal.str());
  return code;
}

// Closes the process handle, logging a failure.
void closeProcessHandle(Platform::ProcessHandle& process)
{
  if (!Platform::closeProcess(process)) {
    const SystemCode error = Platform::lastSystemError();
    logMessage(LoggingType::Warning, "CloseHandle : Can not close correctly process handle. Risk of memory leak");
    logMessage(LoggingType::Info, "CloseHandle error code : ", error);
  }
}

// Closes the handle when run leaves early through an exception (thrown by a
// logger), so that no handle is lost and, on POSIX, no zombie is left.
class HandleCloser {
public:
  explicit HandleCloser(Platform::ProcessHandle& process)
      : process(process)
  {
  }
  HandleCloser(const HandleCloser&) = delete;
  HandleCloser& operator=(const HandleCloser&) = delete;

  ~HandleCloser()
  {
    if (!closed) {
      // An exception is already on its way to the caller; a second one,
      // from logging a close failure, is dropped.
      try {
        closeProcessHandle(process);
      } catch (...) {
      }
    }
  }

  void close()
  {
    closed = true;
    closeProcessHandle(process);
  }

private:
  Platform::ProcessHandle& process;
  bool closed = false;
};

} // namespace

std::optional<unsigned long long> run(const std::string& command, const std::string& workingDirectory,
                                      const Process::CancelationToken* token)
{
  logMessage(LoggingType::Info, "Running: '", command, "'\n\tfrom: '", workingDirectory, "'");

  Platform::ProcessHandle process;
  const bool started = Platform::startProcess(command, workingDirectory, process);
  HandleCloser closer(process);

  if (!started) {
    logMessage(LoggingType::Error,
               "CreateProcess : Cannot initialize process, error code : ", Platform::lastSystemError());
    Platform::ProcessExit exit;
    if (Platform::readExitCode(process, exit)) {
      reportExitCode(exitCode(exit));
    } else {
      logMessage(LoggingType::Error,
                 "GetExitCodeProcess failed : Cannot get exit code after CreateProcess. Error code : ",
                 Platform::lastSystemError());
    }
    // A program that could not be started gives 0, like one that succeeded;
    // only the log tells them apart. The empty handle is closed all the same.
    closer.close();
    return 0;
  }

  logMessage(LoggingType::Info, "CreateProcess successful. Process ID ", process.id);

  Platform::ProcessWait wait;
  SystemCode waitError = 0;
  bool cancelled = false;
  for (;;) {
    wait = Platform::waitForProcess(process, Timing::PROCESS_WAIT_CYCLE);
    switch (wait.outcome) {
    case Platform::WaitOutcome::Ended:
      logMessage(LoggingType::Info, "WAIT_OBJECT_0 : Process state signaled");
      break;
    case Platform::WaitOutcome::Abandoned:
      logMessage(LoggingType::Error, "WAIT_ABANDONED : Process handle has been closed");
      break;
    case Platform::WaitOutcome::TimedOut:
      break;
    case Platform::WaitOutcome::Failed:
      waitError = Platform::lastSystemError();
      logMessage(LoggingType::Error, "WAIT_FAILED : Wait on process failed !");
      break;
    case Platform::WaitOutcome::Unexpected:
      logMessage(LoggingType::Warning, "Unexpected enum return value from WaitForSingleObject : ", wait.value);
      break;
    }

    cancelled = Process::isCancelRequested(token);
    if (cancelled) {
      logMessage(LoggingType::Info, "Cancellation of process is requested");
    }
    if (wait.outcome != Platform::WaitOutcome::TimedOut || cancelled) {
      break;
    }
  }

  // Cancellation wins, even over a program that has just ended. The killed
  // program is not waited for.
  if (cancelled) {
    if (Platform::terminateProcess(process, CANCELLED_EXIT_CODE)) {
      logMessage(LoggingType::Info, "TerminateProcess called with success");
    } else {
      logMessage(LoggingType::Info, "TerminateProcess failed : Error code : ", Platform::lastSystemError());
    }
    closer.close();
    return std::nullopt;
  }

  if (wait.outcome != Platform::WaitOutcome::Ended) {
    if (wait.outcome == Platform::WaitOutcome::Failed) {
      logMessage(LoggingType::Error, "WaitForSingleObject failed : Error code : ", waitError);
    } else {
      logMessage(LoggingType::Error, "WaitForSingleObject failed : return value ", waitResultCode(wait));
    }
  }

  std::optional<unsigned long long> result;
  Platform::ProcessExit exit;
  if (Platform::readExitCode(process, exit)) {
    result = reportExitCode(exitCode(exit));
  } else {
    const SystemCode error = Platform::lastSystemError();
    logMessage(LoggingType::Info, "GetExitCodeProcess : failed to get exit code : error code : ", error);
    // Why, in words, for whoever reads the debug lines.
    logMessage(LoggingType::Debug, "GetExitCodeProcess : ", Platform::explainSystemError(error));
    result = 1;
  }
  closer.close();
  return result;
}

std::string commandLine(const std::vector<std::string>& words)
{
  return Platform::commandLineFor(words);
}

} // namespace Orvan::Core::System
