#include <Core/Process/Execute.h>

#include "Platform/Child.h"
#include "Process/CancelationState.h"
#include "Timing/Deadline.h"

#include <algorithm>
#include <filesystem>
#include <memory>

namespace Orvan::Core::Process {

namespace {

using Clock = std::chrono::steady_clock;

// How often the rest of the group is looked at once the program itself has
// ended or been killed: nothing signals the end of a process group.
constexpr std::chrono::milliseconds GROUP_CHECK_PERIOD{10};

// How long the rest of the group and the captured pipes are waited for once
// the program is reaped and its group killed. What is left then cannot be
// ended from here: a zombie whose parent reaps late, or a descendant that
// left the group and keeps a pipe open.
constexpr std::chrono::milliseconds LAST_MOMENT{100};

Platform::ChildStream toChildStream(StreamMode mode)
{
  switch (mode) {
  case StreamMode::Discard:
    return Platform::ChildStream::Discard;
  case StreamMode::Capture:
    return Platform::ChildStream::Capture;
  case StreamMode::Inherit:
    break;
  }
  return Platform::ChildStream::Inherit;
}

// Why the options cannot start anything, before the system is asked.
std::error_code refusal(const ExecuteOptions& options)
{
  const auto holdsNul = [](const std::string& text) { return text.find('\0') != std::string::npos; };
  if (options.arguments.empty() || options.arguments.front().empty() ||
      std::any_of(options.arguments.begin(), options.arguments.end(), holdsNul) || holdsNul(options.workingDirectory) ||
      options.standardInput == StreamMode::Capture) {
    return std::make_error_code(std::errc::invalid_argument);
  }
  for (const auto& [name, value] : options.environment) {
    if (name.empty() || name.find('=') != std::string::npos || holdsNul(name) || holdsNul(value)) {
      return std::make_error_code(std::errc::invalid_argument);
    }
  }
  if (!options.workingDirectory.empty()) {
    // Checked here so that a bad directory is told apart from a missing
    // program, which the system reports with the same code.
    std::error_code ignored;
    if (!std::filesystem::is_directory(std::filesystem::u8path(options.workingDirectory), ignored)) {
      return std::make_error_code(std::errc::not_a_directory);
    }
  }
  return {};
}

// Keeps up to `limit` bytes of a captured stream and notes what is dropped.
void keep(std::string& kept, const char* data, std::size_t size, std::size_t limit, bool& truncated)
{
  const std::size_t room = limit > kept.size() ? limit - kept.size() : 0;
  kept.append(data, std::min(size, room));
  truncated = truncated || size > room;
}

} // namespace

ExecuteResult execute(const ExecuteOptions& options)
{
  const Clock::time_point start = Clock::now();
  ExecuteResult result;
  const auto finish = [&result, start] {
    result.elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
    return result;
  };
  result.error = refusal(options);
  if (result.error) {
    return finish();
  }

  Platform::ChildLaunch launch;
  launch.arguments = options.arguments;
  launch.workingDirectory = options.workingDirectory;
  launch.environment = options.environment;
  launch.input = toChildStream(options.standardInput);
  launch.output = toChildStream(options.standardOutput);
  launch.error = toChildStream(options.standardError);
  std::unique_ptr<Platform::Child> child;
  result.error = Platform::Child::start(launch, child);
  if (result.error) {
    return finish();
  }

  const Platform::Child::Sink sink = [&result, &options](Platform::CapturedStream stream, const char* data,
                                                         std::size_t size) {
    keep(stream == Platform::CapturedStream::Output ? result.standardOutput : result.standardError, data, size,
         options.captureLimit, result.outputTruncated);
  };
  const Clock::time_point timeLimitEnd =
      options.timeLimit ? Timing::deadlineAfter(*options.timeLimit) : Timing::NO_DEADLINE;
  // The token wakes the pump at once; once the cancellation is seen, it is
  // watched no more (its signal stays raised).
  const Platform::WakeHandle wake = CancelationAccess::wakeHandle(options.token);
  // Ending begins with the time limit or the cancellation: the group is
  // asked to end, then killed when the grace period is over. `ending` holds
  // the outcome when the program itself was still running then; otherwise
  // its own status is reported.
  bool endingBegun = false;
  std::optional<ExecuteResult::Outcome> ending;
  Clock::time_point killAt = Timing::NO_DEADLINE;
  bool killed = false;
  // Once the program is reaped and its group killed, what is left cannot be
  // ended from here: the rest of the group and the pipes get a last moment.
  Clock::time_point lastMomentEnd = Timing::NO_DEADLINE;
  Clock::time_point drainEnd = Timing::NO_DEADLINE;
  bool drainStarted = false;
  bool pipesClosed = false;
  const auto cutOutput = [&] {
    result.outputCut = child->closeCaptured() || result.outputCut;
    pipesClosed = true;
  };
  for (;;) {
    const Clock::time_point now = Clock::now();
    const bool programEnded = child->programEnded();
    if (!endingBegun && (isCancelRequested(options.token) || now >= timeLimitEnd)) {
      endingBegun = true;
      if (!programEnded) {
        ending =
            isCancelRequested(options.token) ? ExecuteResult::Outcome::Cancelled : ExecuteResult::Outcome::TimedOut;
      } else {
        result.descendantsEnded = !child->groupEnded();
      }
      child->askToEnd();
      killAt = Timing::deadlineAfter(std::max(options.gracePeriod, std::chrono::milliseconds(0)));
    }
    if (programEnded && !drainStarted) {
      drainStarted = true;
      drainEnd = options.drainPeriod ? Timing::deadlineAfter(*options.drainPeriod) : Timing::NO_DEADLINE;
    }
    // With the program reaped and nothing of its group running, there is
    // nothing left to kill (nor a signal to send to a group that may be
    // gone): only processes that left the group may still hold the pipes.
    if (endingBegun && !killed && now >= killAt) {
      child->kill();
      killed = true;
    } else if (endingBegun && !killed && programEnded && child->groupEnded()) {
      killed = true;
    }
    if (killed && programEnded && lastMomentEnd == Timing::NO_DEADLINE) {
      lastMomentEnd = Timing::deadlineAfter(LAST_MOMENT);
    }
    const Clock::time_point later = Clock::now();
    if (!pipesClosed && (later >= drainEnd || later >= lastMomentEnd)) {
      cutOutput();
      if (!endingBegun) {
        break;
      }
    }

    // The pump wakes for the program's output, its end and the token; the
    // wait lasts until the next deadline. While the group ends, nothing
    // signals its end: it is looked at every few milliseconds.
    Clock::time_point next = std::min(pipesClosed ? Timing::NO_DEADLINE : drainEnd, lastMomentEnd);
    if (!endingBegun) {
      next = std::min(next, timeLimitEnd);
    } else if (!killed) {
      next = std::min(next, killAt);
    }
    std::chrono::milliseconds wait = Timing::timeUntil(next);
    if (endingBegun && programEnded && (wait.count() < 0 || wait > GROUP_CHECK_PERIOD)) {
      wait = GROUP_CHECK_PERIOD;
    }
    const bool ended = child->pump(wait, endingBegun ? Platform::NO_WAKE : wake, sink);
    if (ended && (!endingBegun || child->groupEnded() ||
                  (lastMomentEnd != Timing::NO_DEADLINE && Clock::now() >= lastMomentEnd))) {
      break;
    }
  }

  if (ending) {
    result.outcome = *ending;
  } else {
    const Platform::ChildEnd end = child->end();
    result.outcome = end.signalled ? ExecuteResult::Outcome::Signalled : ExecuteResult::Outcome::Exited;
    result.exitCode = end.code;
    result.signal = end.signal;
  }
  child.reset();
  return finish();
}

} // namespace Orvan::Core::Process
