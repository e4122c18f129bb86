#pragma once

#include "Platform/WakeSignal.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

// A started program with its group of processes and its pipes: a process
// group and pidfd or waitpid on POSIX, a job object on Windows.
namespace Orvan::Core::Platform {

enum class ChildStream { Inherit, Discard, Capture };

struct ChildLaunch {
  std::vector<std::string> arguments;
  std::string workingDirectory;
  std::map<std::string, std::string> environment;
  ChildStream input = ChildStream::Inherit;
  ChildStream output = ChildStream::Inherit;
  ChildStream error = ChildStream::Inherit;
};

// Which captured stream some bytes come from.
enum class CapturedStream { Output, Error };

struct ChildEnd {
  bool signalled = false;
  int code = 0;   // the exit code, when not signalled
  int signal = 0; // the signal that ended it
};

class Child {
public:
  using Sink = std::function<void(CapturedStream, const char*, std::size_t)>;

  // Starts the program; on failure returns the system's reason and leaves
  // `child` null.
  static std::error_code start(const ChildLaunch& launch, std::unique_ptr<Child>& child);

  // Kills whatever of the group is left and reaps the program.
  virtual ~Child() = default;

  // Waits at most `wait` (negative: without limit) for bytes on the captured
  // pipes, for the program to end or for `wake` to be raised, handing every
  // byte read to `sink`. True once the program has ended (and is reaped) and
  // every captured pipe is at its end.
  virtual bool pump(std::chrono::milliseconds wait, WakeHandle wake, const Sink& sink) = 0;

  // Asks every process of the group to end (SIGTERM); Windows ends the job.
  virtual void askToEnd() = 0;
  // Ends every process of the group at once.
  virtual void kill() = 0;
  // True when no process of the group runs any more; a process that has
  // ended but is not yet reaped (by whoever is its parent) does not count.
  // When this process reaps orphans (a subreaper, or the first process of a
  // namespace), it reaps those of the group here.
  virtual bool groupEnded() = 0;

  // True once the program itself has ended and been reaped.
  virtual bool programEnded() const = 0;
  // Stops reading the captured pipes and closes them, whoever else holds
  // their other end; true when one was still open.
  virtual bool closeCaptured() = 0;

  // How the program ended; meaningful once programEnded() is true.
  virtual ChildEnd end() const = 0;

protected:
  Child() = default;
};

} // namespace Orvan::Core::Platform
