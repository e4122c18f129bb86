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

// Logs the program's exit code and returns what run gives back for it.
unsigned long long reportExitCode(SystemCode code)
{
  if (code == 0) {
    logMessage(LoggingType::Info, "Process exit code (0) indicates success");
    return 0;
  }
  if (code == Platform::EXIT_CODE_STILL_ACTIVE) {
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
    SystemCode exitCode = 0;
    if (Platform::readExitCode(process, exitCode)) {
      reportExitCode(exitCode);
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

  SystemCode waitResult = Platform::WAIT_RESULT_TIMEOUT;
  SystemCode waitError = 0;
  bool cancelled = false;
  for (;;) {
    waitResult = Platform::waitForProcess(process, Timing::PROCESS_WAIT_CYCLE);
    switch (waitResult) {
    case Platform::WAIT_RESULT_SIGNALED:
      logMessage(LoggingType::Info, "WAIT_OBJECT_0 : Process state signaled");
      break;
    case Platform::WAIT_RESULT_ABANDONED:
      logMessage(LoggingType::Error, "WAIT_ABANDONED : Process handle has been closed");
      break;
    case Platform::WAIT_RESULT_TIMEOUT:
      break;
    case Platform::WAIT_RESULT_FAILED:
      waitError = Platform::lastSystemError();
      logMessage(LoggingType::Error, "WAIT_FAILED : Wait on process failed !");
      break;
    default:
      logMessage(LoggingType::Warning, "Unexpected enum return value from WaitForSingleObject : ", waitResult);
      break;
    }

    cancelled = Process::isCancelRequested(token);
    if (cancelled) {
      logMessage(LoggingType::Info, "Cancellation of process is requested");
    }
    if (waitResult != Platform::WAIT_RESULT_TIMEOUT || cancelled) {
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

  if (waitResult != Platform::WAIT_RESULT_SIGNALED) {
    if (waitResult == Platform::WAIT_RESULT_FAILED) {
      logMessage(LoggingType::Error, "WaitForSingleObject failed : Error code : ", waitError);
    } else {
      logMessage(LoggingType::Error, "WaitForSingleObject failed : return value ", waitResult);
    }
  }

  std::optional<unsigned long long> result;
  SystemCode exitCode = 0;
  if (Platform::readExitCode(process, exitCode)) {
    result = reportExitCode(exitCode);
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

} // namespace Orvan::Core::System
