#include "Commands.h"
#include "Console.h"
#include "ToolLogging.h"

#include <Core/Process/Execute.h>
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
    "  --timeout S           terminate PROGRAM after S seconds (0: no limit)\n"
    "  --kill-after S        kill what is left of PROGRAM S seconds after asking it to\n"
    "                        end (default 5)\n"
    "{log-options}"
    "  -h, --help            show this help\n"
    "\n"
    "Ctrl-C or the timeout ends PROGRAM and every process it started: SIGTERM to its\n"
    "process group, then SIGKILL after --kill-after (Windows ends them at once).\n"
    "\n"
    "Exit codes: PROGRAM's own; 124 when the timeout ran out; 130 after Ctrl-C;\n"
    "126 when PROGRAM is not executable; 127 when it is not found; 128 + N when\n"
    "signal N ended it; 2 for a usage error.\n"
    "\n"
    "Example:\n"
    "  orvan run --timeout 60 -- tar xf data.tar\n";

constexpr int EXIT_NOT_EXECUTABLE = 126;
constexpr int EXIT_NOT_FOUND = 127;

} // namespace

int runCommand(const std::vector<std::string>& arguments)
{
  std::string workingDirectory;
  // Seconds; 0: no limit.
  std::uint64_t timeout = 0;
  std::uint64_t killAfter = 5;
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
  line.number("--timeout", 31536000, [&](std::uint64_t seconds) { timeout = seconds; });
  line.number("--kill-after", 86400, [&](std::uint64_t seconds) { killAfter = seconds; });
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
  LogSession session(logOptions, Verbosity::Normal);
  Core::Process::ExecuteOptions options;
  options.arguments = words;
  options.workingDirectory = workingDirectory;
  options.token = &ctrlC.token;
  if (timeout != 0) {
    options.timeLimit = std::chrono::seconds(timeout);
  }
  options.gracePeriod = std::chrono::seconds(killAfter);
  const Core::Process::ExecuteResult result = Core::Process::execute(options);

  using Outcome = Core::Process::ExecuteResult::Outcome;
  switch (result.outcome) {
  case Outcome::NotStarted:
    Console::instance().message("orvan run: cannot start '" + words.front() + "': " + result.error.message());
    return result.error == std::errc::permission_denied ? EXIT_NOT_EXECUTABLE : EXIT_NOT_FOUND;
  case Outcome::TimedOut:
    Console::instance().message("orvan run: '" + words.front() + "' timed out after " + std::to_string(timeout) +
                                " s and was terminated");
    return EXIT_TIMED_OUT;
  case Outcome::Cancelled:
    Console::instance().message("orvan run: cancelled; '" + words.front() + "' was terminated");
    return EXIT_CANCELLED;
  case Outcome::Signalled:
    // As the shells report a program ended by a signal.
    return 128 + result.signal;
  case Outcome::Exited:
    break;
  }
  return result.exitCode;
}

} // namespace Orvan::Tool
