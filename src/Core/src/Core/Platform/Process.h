#pragma once

#include <chrono>
#include <cstdint>
#include <string>

// The few process services the process runner needs: start a program, wait
// for it with a time-out, terminate it, read its exit code, close it, and the
// last system error. Codes and results are numbered as the Windows services
// number them, on every platform, so that the runner's messages are the same
// everywhere.
namespace Orvan::Core::Platform {

using SystemCode = std::uint32_t;

// Results of waitForProcess.
inline constexpr SystemCode WAIT_RESULT_SIGNALED = 0;
inline constexpr SystemCode WAIT_RESULT_ABANDONED = 128;
inline constexpr SystemCode WAIT_RESULT_TIMEOUT = 258;
inline constexpr SystemCode WAIT_RESULT_FAILED = 0xFFFFFFFF;

// The exit code read from a process that has not ended yet.
inline constexpr SystemCode EXIT_CODE_STILL_ACTIVE = 259;

// A started program. A default-constructed handle is empty: no program, and
// every operation on it fails.
struct ProcessHandle {
  // The system's reference to the process: the process HANDLE on Windows,
  // the process id on POSIX. 0 when empty.
  std::uintptr_t handle = 0;
  // POSIX: a process descriptor (pidfd) when the system offers one, else -1.
  int descriptor = -1;
  // The process identifier, as shown in the log.
  unsigned long long id = 0;
};

// Starts `command` (a whole command line) in `workingDirectory` (the
// caller's own when empty). On failure returns false, leaves `process` empty
// and sets the last system error.
bool startProcess(const std::string& command, const std::string& workingDirectory, ProcessHandle& process);

// Waits at most `timeout` for the process to end. Returns one of the
// WAIT_RESULT_ values; after WAIT_RESULT_FAILED the last system error says
// why.
SystemCode waitForProcess(const ProcessHandle& process, std::chrono::milliseconds timeout);

// Ends the process at once; `exitCode` is what it reports where the system
// lets the killer choose. Does not wait for the process to end. Returns false
// (last system error set) on failure.
bool terminateProcess(const ProcessHandle& process, SystemCode exitCode);

// Reads the exit code without waiting: EXIT_CODE_STILL_ACTIVE while the
// process runs. Returns false (last system error set) on failure.
bool readExitCode(const ProcessHandle& process, SystemCode& exitCode);

// Releases the handle; afterwards the handle is empty. Returns false (last
// system error set) when it was empty or could not be closed. Never waits:
// a process still running keeps running (on POSIX it is reaped in the
// background once it ends).
bool closeProcess(ProcessHandle& process);

// The calling thread's last system error code.
SystemCode lastSystemError();

// Why a call failed with `error`, in words.
std::string explainSystemError(SystemCode error);

} // namespace Orvan::Core::Platform
