#include "Commands.h"
#include "Console.h"
#include "ToolLogging.h"

#include <Core/Process/System.h>
#include <Utils/FileHelper.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace Orvan::Tool {

namespace {

const char* const RUN_HELP =
    "Usage: orvan run [options] [--] PROGRAM [ARGUMENTS...]\n"
    "\n"
    "Runs PROGRAM with the library's process runner and exits with its exit code.\n"
    "The words are quoted into one command line that the runner splits back into\n"
    "the same words; nothing is expanded and no shell is involved.\n"
    "\n"
    "Options:\n"
    "  --cwd DIR             run PROGRAM in DIR\n"
    "  --timeout S           terminate PROGRAM after S seconds\n"
    "{log-options}"
    "  -h, --help            show this help\n"
    "\n"
    "Ctrl-C or the timeout terminates PROGRAM; orvan then exits with code 130.\n"
    "A program that cannot be started gives exit code 127.\n"
    "\n"
    "Example:\n"
    "  orvan run --timeout 60 -- tar xf data.tar\n";

// The runner reports a program that could not be started only in its log.
constexpr const char* START_FAILURE = "CreateProcess : Cannot initialize process";

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
  const std::string command = Platform::quoteCommandLine(words);

  CtrlC ctrlC;
  LogSession session(logOptions, Verbosity::Normal);
  std::atomic<bool> startFailed{false};
  session.logger().setListener([&startFailed](Core::Logging::LoggingType, const std::string& message) {
    if (message.rfind(START_FAILURE, 0) == 0) {
      startFailed = true;
    }
  });

  // The timeout is one more reason to cancel.
  std::mutex mutex;
  std::condition_variable finished;
  bool done = false;
  std::atomic<bool> timedOut{false};
  std::thread timer;
  if (timeout) {
    timer = std::thread([&] {
      std::unique_lock<std::mutex> lock(mutex);
      if (!finished.wait_for(lock, std::chrono::seconds(*timeout), [&] { return done; })) {
        timedOut = true;
        ctrlC.token.requestCancel();
      }
    });
  }

  const std::optional<unsigned long long> code = Core::System::run(command, workingDirectory, &ctrlC.token);

  if (timer.joinable()) {
    {
      std::lock_guard<std::mutex> lock(mutex);
      done = true;
    }
    finished.notify_all();
    timer.join();
  }
  if (!code) {
    Console::instance().message(timedOut ? "orvan run: '" + words.front() + "' timed out after "
                                               + std::to_string(*timeout) + " s and was terminated"
                                         : "orvan run: cancelled; '" + words.front() + "' was terminated");
    return EXIT_CANCELLED;
  }
  if (startFailed) {
    Console::instance().message("orvan run: cannot start '" + words.front() + "'");
    return EXIT_NOT_STARTED;
  }
  return static_cast<int>(*code);
}

} // namespace Orvan::Tool
