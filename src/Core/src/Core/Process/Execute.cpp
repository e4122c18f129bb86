#include <Core/Process/Execute.h>

#include "Platform/Child.h"
#include "Timing/Deadline.h"

#include <algorithm>
#include <filesystem>
#include <memory>

namespace Orvan::Core::Process {

namespace {

using Clock = std::chrono::steady_clock;

// The longest the loop waits between two looks at the token and the time
// limit: a cancellation takes effect well within 50 ms.
constexpr std::chrono::milliseconds CHECK_PERIOD{10};

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
      options.timeLimit ? Timing::deadlineAfter(*options.timeLimit) : Clock::time_point::max();
  // Once ending, the program and its group are asked to end, then killed
  // when the grace period is over; the loop lasts until none is left.
  std::optional<ExecuteResult::Outcome> ending;
  Clock::time_point killAt = Clock::time_point::max();
  bool killed = false;
  for (;;) {
    const Clock::time_point now = Clock::now();
    if (!ending && isCancelRequested(options.token)) {
      ending = ExecuteResult::Outcome::Cancelled;
    } else if (!ending && now >= timeLimitEnd) {
      ending = ExecuteResult::Outcome::TimedOut;
    }
    if (ending && killAt == Clock::time_point::max()) {
      child->askToEnd();
      killAt = Timing::deadlineAfter(std::max(options.gracePeriod, std::chrono::milliseconds(0)));
    }
    if (ending && !killed && Clock::now() >= killAt) {
      child->kill();
      killed = true;
    }
    // Nothing to look at but the program: the pump wakes for its output and
    // its end alone.
    const bool watching = ending || options.token != nullptr || options.timeLimit;
    const std::chrono::milliseconds wait = watching ? CHECK_PERIOD : std::chrono::milliseconds(1000);
    const bool ended = child->pump(wait, sink);
    if (ended && (!ending || child->groupEnded())) {
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

std::string quoteCommandLine(const std::vector<std::string>& arguments)
{
  std::string line;
  for (const std::string& argument : arguments) {
    if (!line.empty()) {
      line += ' ';
    }
    if (!argument.empty() && argument.find_first_of(" \t\n\v\"") == std::string::npos) {
      line += argument;
      continue;
    }
    line += '"';
    std::size_t backslashes = 0;
    for (const char character : argument) {
      if (character == '\\') {
        ++backslashes;
        continue;
      }
      // Backslashes are literal unless a quote follows them.
      line.append(character == '"' ? backslashes * 2 + 1 : backslashes, '\\');
      backslashes = 0;
      line += character;
    }
    // Before the closing quote, every backslash is doubled.
    line.append(backslashes * 2, '\\');
    line += '"';
  }
  return line;
}

} // namespace Orvan::Core::Process
