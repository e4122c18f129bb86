#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

// The few process services the process runner needs: start a program, wait
// for it with a time-out, terminate it, read its exit code, close it, and the
// last system error. Results are told in the platform's neutral terms; the
// runner turns them into its own codes and messages.
namespace Orvan::Core::Platform {

using SystemCode = std::uint32_t;

// How a wait for a process ended.
enum class WaitOutcome {
  Ended,      // the process has ended
  TimedOut,   // the time-out passed first
  Failed,     // the wait itself failed; the last system error says why
  Abandoned,  // the system reports the handle abandoned (Windows only)
  Unexpected, // the system answered something else: see ProcessWait::value
};

struct ProcessWait {
  WaitOutcome outcome = WaitOutcome::TimedOut;
  // What the system answered, for an Unexpected outcome.
  SystemCode value = 0;
};

// A process's exit code, read without waiting.
struct ProcessExit {
  // True while the process runs (on Windows also for a program that ended
  // with the code the system uses for "still running").
  bool running = false;
  // The exit code once ended; POSIX reports 128 + the signal number for a
  // program ended by a signal.
  SystemCode code = 0;
};

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

// Waits at most `timeout` for the process to end.
ProcessWait waitForProcess(const ProcessHandle& process, std::chrono::milliseconds timeout);

// Ends the process at once; `exitCode` is what it reports where the system
// lets the killer choose. Does not wait for the process to end. Returns false
// (last system error set) on failure.
bool terminateProcess(const ProcessHandle& process, SystemCode exitCode);

// Reads the exit code without waiting. Returns false (last system error set)
// on failure.
bool readExitCode(const ProcessHandle& process, ProcessExit& exit);

// Releases the handle; afterwards the handle is empty. Returns false (last
// system error set) when it was empty or could not be closed. Never waits:
// a process still running keeps running (on POSIX it is reaped in the
// background once it ends).
bool closeProcess(ProcessHandle& process);

// The command line that startProcess splits back into exactly `words`: the
// POSIX shell's quoting on POSIX, the C runtime's on Windows.
std::string commandLineFor(const std::vector<std::string>& words);

// The calling thread's last system error code.
SystemCode lastSystemError();

// Why a call failed with `error`, in words.
std::string explainSystemError(SystemCode error);

} // namespace Orvan::Core::Platform
