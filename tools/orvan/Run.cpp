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
    "  --timeout S           terminate PROGRAM after S seconds\n"
    "{log-options}"
    "  -h, --help            show this help\n"
    "\n"
    "Ctrl-C or the timeout terminates PROGRAM and every process it started; orvan\n"
    "then exits with code 130.\n"
    "A program that cannot be started gives exit code 127.\n"
    "\n"
    "Example:\n"
    "  orvan run --timeout 60 -- tar xf data.tar\n";

constexpr int EXIT_NOT_STARTED = 127;

} // namespace

int runCommand(Arguments& arguments)
{
  std::string workingDirectory;
  std::optional<std::uint64_t> timeout;
  LogOptions logOptions;
  std::vector<std::string> words;
  while (!arguments.empty()) {
    const Arguments::Word word = arguments.next();
    if (word.text == "--") {
      words = arguments.rest();
      break;
    }
    if (!word.isOption) {
      // The program's own options follow it untouched.
      words.push_back(word.text);
      for (std::string& rest : arguments.rest()) {
        words.push_back(std::move(rest));
      }
      break;
    }
    if (word.text == "-h" || word.text == "--help") {
      printHelp(RUN_HELP);
      return EXIT_OK;
    }
    if (word.text == "--cwd") {
      workingDirectory = arguments.value(word);
      std::error_code error;
      if (workingDirectory.empty()
          || !std::filesystem::is_directory(Utils::FileHelper::toPath(workingDirectory), error)) {
        throw UsageError("'" + workingDirectory + "' is not a directory");
      }
    } else if (word.text == "--timeout") {
      timeout = parseNumber(word.text, arguments.value(word), 31536000);
    } else if (!readLogOption(word.text, word.inlineValue, arguments, logOptions)) {
      throw unknownOption(word);
    }
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
  if (timeout) {
    options.timeLimit = std::chrono::seconds(*timeout);
  }
  const Core::Process::ExecuteResult result = Core::Process::execute(options);

  using Outcome = Core::Process::ExecuteResult::Outcome;
  switch (result.outcome) {
  case Outcome::NotStarted:
    Console::instance().message("orvan run: cannot start '" + words.front() + "': " + result.error.message());
    return EXIT_NOT_STARTED;
  case Outcome::TimedOut:
    Console::instance().message("orvan run: '" + words.front() + "' timed out after " + std::to_string(*timeout)
                                + " s and was terminated");
    return EXIT_CANCELLED;
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
