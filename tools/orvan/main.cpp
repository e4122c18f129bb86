// orvan: the command-line tool over the Orvan Core library.

#include "CommandLine.h"
#include "Commands.h"
#include "Console.h"

#include <Core/StreamDiagnostics.h>
#include <Core/Version.h>

#include <chrono>
#include <cstdio>
#include <exception>
#include <random>
#include <string>
#include <vector>

namespace Orvan::Tool {

std::filesystem::path makeTemporaryDirectory(const std::string& prefix)
{
  const std::filesystem::path base = std::filesystem::temp_directory_path();
  std::random_device device;
  std::mt19937_64 random(device() ^
                         static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count()));
  for (int attempt = 0; attempt < 100; ++attempt) {
    const std::filesystem::path candidate = base / (prefix + "-" + std::to_string(random() % 1000000000));
    if (std::filesystem::create_directory(candidate)) {
      return candidate;
    }
  }
  throw std::runtime_error("cannot create a temporary directory in '" + base.string() + "'");
}

namespace {

const char* const MAIN_HELP =
    "Usage: orvan COMMAND [options]\n"
    "\n"
    "A small tool over the Orvan Core library.\n"
    "\n"
    "Commands:\n"
    "  fetch TARGET    read a local or remote file, with a progress bar\n"
    "  serve FILE      serve FILE to every client that connects (the remote-file protocol)\n"
    "  run PROGRAM     run a program, cancelled by Ctrl-C or a timeout\n"
    "  memory          show the machine's and this process's memory figures\n"
    "  demo            show every part at work, needing nothing but this program\n"
    "  trace LOG       turn a log file into a trace for Perfetto, chrome://tracing, speedscope\n"
    "  report LOG      draw a log file as one HTML page: timeline, memory, longest steps\n"
    "\n"
    "'orvan help COMMAND' or 'orvan COMMAND --help' tells more about each, with\n"
    "its exit codes. Exit codes: 0 success, 1 failure, 2 bad arguments (run: 125\n"
    "for its own failures, usage errors included), 130 cancelled by Ctrl-C, 143 by\n"
    "SIGTERM. Durations (TIME) are seconds, or a number with a unit: 0.5, 1.5s,\n"
    "250ms, 2m, 1h, 1d.\n"
    "\n"
    "Options:\n"
    "  -h, --help      show this help\n"
    "  --version       show the version\n";

struct Command {
  const char* name;
  int (*run)(const std::vector<std::string>&);
  // The exit code of a usage error and of any other failure of the command
  // itself.
  int usageCode = EXIT_USAGE;
  int failureCode = EXIT_FAILED;
};

const Command COMMANDS[] = {
    {"fetch", fetchCommand},   {"serve", serveCommand}, {"run", runCommand, EXIT_RUN_FAILED, EXIT_RUN_FAILED},
    {"memory", memoryCommand}, {"demo", demoCommand},   {"trace", traceCommand},
    {"report", reportCommand},
};

int usageError(const std::string& command, const std::string& message, int code = EXIT_USAGE)
{
  const std::string name = command.empty() ? "orvan" : "orvan " + command;
  Console::instance().message(name + ": " + message);
  Console::instance().message("Try '" + name + " --help'.");
  return code;
}

int main(const std::vector<std::string>& words)
{
  // The library's per-chunk lines and socket messages go to the log, never
  // to the standard streams, which carry the tool's own output.
  Core::setStreamDiagnostics(Core::StreamDiagnostics::Log);
  if (words.empty()) {
    std::fputs(MAIN_HELP, stderr);
    return EXIT_USAGE;
  }
  // The tool's own options come before the command; the command reads the
  // words after its name.
  bool version = false;
  std::vector<std::string> command;
  try {
    CommandLine line(MAIN_HELP);
    line.flag("--version", [&] { version = true; });
    line.passOn(command);
    if (!line.parse(words)) {
      return EXIT_OK;
    }
  } catch (const UsageError& error) {
    return usageError("", error.what());
  }
  if (version) {
    std::printf("orvan %s\n", Core::VERSION);
    return EXIT_OK;
  }
  if (command.empty() || (command.front() == "help" && command.size() != 2)) {
    std::fputs(MAIN_HELP, stdout);
    return EXIT_OK;
  }
  if (command.front() == "help") {
    // "orvan help COMMAND" is "orvan COMMAND --help".
    return main({command[1], "--help"});
  }
  for (const Command& known : COMMANDS) {
    if (command.front() == known.name) {
      try {
        return known.run(std::vector<std::string>(command.begin() + 1, command.end()));
      } catch (const UsageError& error) {
        return usageError(known.name, error.what(), known.usageCode);
      } catch (const std::exception& error) {
        Console::instance().message(std::string("orvan ") + known.name + ": " + error.what());
        return known.failureCode;
      }
    }
  }
  return usageError("", "unknown command '" + command.front() + "'");
}

} // namespace

} // namespace Orvan::Tool

int main(int argc, char** argv)
{
  try {
    return Orvan::Tool::main(std::vector<std::string>(argv + 1, argv + argc));
  } catch (const std::exception& error) {
    Orvan::Tool::Console::instance().message(std::string("orvan: ") + error.what());
    return Orvan::Tool::EXIT_FAILED;
  }
}
