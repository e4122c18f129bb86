#include "Commands.h"
#include "Console.h"
#include "ToolLogging.h"

#include <Core/Logging/LoggingCallback.h>
#include <Core/Process/Execute.h>
#include <Core/Process/System.h>
#include <Utils/FileHelper.h>

#include <chrono>

namespace Orvan::Tool {

namespace {

const char* const RUN_HELP =
    "Usage: orvan run [options] [--] PROGRAM [ARGUMENTS...]\n"
    "\n"
    "Runs PROGRAM and exits with its exit code (128 + N when signal N ended it).\n"
    "The words reach PROGRAM as they stand: nothing is expanded and no shell is\n"
    "involved.\n"
    "\n"
    "Options:\n"
    "  --cwd DIR             run PROGRAM in DIR\n"
    "  --timeout TIME        terminate PROGRAM after TIME (0: no limit)\n"
    "  --kill-after TIME     kill what is left of PROGRAM TIME after asking it to\n"
    "                        end (default 5s)\n"
    "{log-options}"
    "  -h, --help            show this help\n"
    "\n"
    "TIME is a number of seconds, or a number with a unit: 0.5, 1.5s, 250ms, 2m,\n"
    "1h, 1d. --log FILE records what ran, where, and how it ended.\n"
    "\n"
    "Ctrl-C, SIGTERM or the timeout ends PROGRAM and every process it started:\n"
    "SIGTERM to its process group, then SIGKILL after --kill-after (Windows ends\n"
    "them at once). A second Ctrl-C kills the group at once and exits.\n"
    "\n"
    "Exit codes, as GNU timeout's: PROGRAM's own; 124 when the timeout ran out;\n"
    "125 when orvan run itself failed (a usage error included); 126 when PROGRAM\n"
    "is not executable; 127 when it is not found; 128 + N when signal N ended it;\n"
    "130 after Ctrl-C; 143 after SIGTERM.\n"
    "\n"
    "Example:\n"
    "  orvan run --timeout 1.5m -- tar xf data.tar\n";

constexpr int EXIT_NOT_EXECUTABLE = 126;
constexpr int EXIT_NOT_FOUND = 127;

// The sentence of the log that says how the program ended, and the exit
// code the tool gives for it.
struct Ending {
  std::string sentence;
  int code;
};

} // namespace

int runCommand(const std::vector<std::string>& arguments)
{
  std::string workingDirectory;
  // 0: no limit.
  std::chrono::milliseconds timeout{0};
  std::chrono::milliseconds killAfter = std::chrono::seconds(5);
  LogOptions logOptions;
  std::vector<std::string> words;
  CommandLine line(RUN_HELP);
  line.option("--cwd", [&](const std::string& text) {
    std::error_code error;
    if (text.empty() || !std::filesystem::is_directory(Utils::FileHelper::toPath(text), error)) {
      throw UsageError("'" + text + "' is not a directory");
    }
    workingDirectory = text;
  });
  line.duration("--timeout", std::chrono::hours(24 * 365), true,
                [&](std::chrono::milliseconds value) { timeout = value; });
  line.duration("--kill-after", std::chrono::hours(24), true,
                [&](std::chrono::milliseconds value) { killAfter = value; });
  addLogOptions(line, logOptions);
  // The program's own options follow it untouched.
  line.passOn(words);
  if (!line.parse(arguments)) {
    return EXIT_OK;
  }
  if (words.empty()) {
    throw UsageError("missing PROGRAM");
  }
  CtrlC ctrlC;
  // A second Ctrl-C must not leave the program's group running on its own,
  // out of the terminal's reach.
  Platform::killChildGroupsOnSecondInterrupt(true);
  LogSession session(logOptions, Verbosity::Normal);
  Core::Process::ExecuteOptions options;
  options.arguments = words;
  options.workingDirectory = workingDirectory;
  options.token = &ctrlC.token;
  if (timeout.count() != 0) {
    options.timeLimit = timeout;
  }
  options.gracePeriod = killAfter;
  const std::filesystem::path where = std::filesystem::absolute(
      workingDirectory.empty() ? std::filesystem::current_path() : Utils::FileHelper::toPath(workingDirectory));
  Core::Logging::logInfo("Running " + Core::System::commandLine(words) + " in '" + Utils::FileHelper::toString(where) +
                         "'");
  const Core::Process::ExecuteResult result = Core::Process::execute(options);
  Platform::killChildGroupsOnSecondInterrupt(false);

  const std::string name = "'" + words.front() + "'";
  const std::string after = " after " + formatSeconds(std::chrono::duration<double>(result.elapsed).count());
  using Outcome = Core::Process::ExecuteResult::Outcome;
  Ending ending{"", result.exitCode};
  switch (result.outcome) {
  case Outcome::NotStarted:
    if (result.error == std::errc::no_such_file_or_directory) {
      ending.code = EXIT_NOT_FOUND;
    } else if (result.error == std::errc::not_a_directory && !workingDirectory.empty()) {
      // The directory went away after it was checked.
      ending.code = EXIT_RUN_FAILED;
    } else {
      // As GNU timeout: whatever else keeps the program from starting.
      ending.code = EXIT_NOT_EXECUTABLE;
    }
    ending.sentence = "could not start: " + result.error.message();
    Console::instance().message("orvan run: cannot start " + name + ": " + result.error.message());
    break;
  case Outcome::TimedOut:
    ending.code = EXIT_TIMED_OUT;
    ending.sentence = "timed out after " + formatDuration(timeout) + " and was terminated";
    Console::instance().message("orvan run: " + name + " " + ending.sentence);
    break;
  case Outcome::Cancelled:
    ending.code = CtrlC::exitCode();
    ending.sentence = std::string(ending.code == 143 ? "SIGTERM" : "Ctrl-C") + " ended it" + after;
    Console::instance().message(std::string("orvan run: ") + (ending.code == 143 ? "terminated" : "cancelled") + "; " +
                                name + " was terminated");
    break;
  case Outcome::Signalled:
    // As the shells report a program ended by a signal.
    ending.code = 128 + result.signal;
    ending.sentence = "ended by signal " + std::to_string(result.signal) + after;
    break;
  case Outcome::Exited:
    ending.sentence = "exited with code " + std::to_string(result.exitCode) + after;
    break;
  }
  Core::Logging::logInfo("Ended: " + name + " " + ending.sentence + "; orvan run exits with " +
                         std::to_string(ending.code));
  return ending.code;
}

} // namespace Orvan::Tool
