#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

// The one way the library starts a program on POSIX, for the process runner
// and for execute alike, and the few calls every started program needs: its
// process descriptor, signals that cannot hit a reused process id, and reaping.
namespace Orvan::Core::Platform {

// What a standard stream of the program is connected to: the caller's own
// (inherited), /dev/null, or a descriptor of the caller (any other value).
inline constexpr int SPAWN_INHERIT = -1;
inline constexpr int SPAWN_DISCARD = -2;

struct SpawnRequest {
  // The program and its arguments; the program is looked for through PATH.
  std::vector<std::string> arguments;
  // The program's environment, one "NAME=value" a line; null for the caller's.
  const std::vector<std::string>* environment = nullptr;
  // The program's current directory; the caller's when empty.
  std::string workingDirectory;
  // Starts the program in a process group of its own, so that ending the
  // group ends every process it started.
  bool ownGroup = false;
  // Standard input, output and error.
  int streams[3] = {SPAWN_INHERIT, SPAWN_INHERIT, SPAWN_INHERIT};
  // With ownGroup: a terminal (a descriptor of the caller's, under the same
  // number in the program) whose foreground group the program's group
  // becomes, or -1.
  int foregroundTerminal = -1;
};

// Starts the program with an empty signal mask, default signal dispositions
// and nothing open beyond descriptors 0, 1 and 2. Returns 0 or an error
// number.
int spawnProgram(const SpawnRequest& request, pid_t& pid);

// The caller's terminal that a program with these streams would use, when
// the caller is in its foreground: the first standard stream left inherited
// that is a terminal. -1 when there is none. A program in a group of its own
// that reads such a terminal would be stopped (SIGTTIN) unless its group is
// made the foreground one, as shells do.
int inheritedForegroundTerminal(const int (&streams)[3]);

// Makes the caller's group the foreground group of `terminal` again, after a
// program of another group had it.
void takeTerminalBack(int terminal);

// A process descriptor for `pid` (clear of the standard streams), or -1 where
// the system refuses one (old kernels, some sandboxes).
int openProcessDescriptor(pid_t pid);

// Sends `signal` through the process descriptor when there is one (so that a
// reused process id is never hit), else to `pid`. Returns 0 or -1 with errno.
int signalProcess(pid_t pid, int descriptor, int signal);

// waitpid, again after a signal's interruption.
pid_t reapChild(pid_t pid, int& status, int options);

// Leaves a child that may still run to a background thread, which reaps it
// once it ends, so that no zombie is left.
void reapInBackground(pid_t pid);

} // namespace Orvan::Core::Platform
