#include "Commands.h"
#include "Console.h"
#include "Fetch.h"
#include "ToolLogging.h"

#include <Core/FileServer.h>
#include <Core/Logging/LoggingCallback.h>
#include <Core/Logging/WorkflowLogger.h>
#include <Core/Process/System.h>
#include <Core/Process/TimeoutRetry.h>
#include <Utils/Chronometer.h>
#include <Utils/FileHelper.h>

#include <cstring>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <thread>
#include <vector>

namespace Orvan::Tool {

namespace Logging = Core::Logging;
using Utils::FileHelper::toString;

namespace {

const char* const DEMO_HELP =
    "Usage: orvan demo [options]\n"
    "\n"
    "Shows the library at work, needing nothing but this program. In a new\n"
    "temporary directory it:\n"
    "  1. starts a log file with a memory spy, and traces every step in it with\n"
    "     workflow loggers;\n"
    "  2. generates a test file;\n"
    "  3. serves it on a free loopback port;\n"
    "  4. fetches it with a progress bar and compares the copy byte for byte;\n"
    "  5. runs a child program and checks its exit code;\n"
    "  6. runs a second child program that would run for ever, and cancels it;\n"
    "then prints a summary with the place of the log file, and writes the log's\n"
    "trace (demo.trace.json, see 'orvan trace') and report (demo.html, see 'orvan\n"
    "report') beside it. Exits with 0 only when every step did what it should.\n"
    "\n"
    "Options:\n"
    "  --size MIB            size of the test file (default 64)\n"
    "  --keep                keep the test file and its copy (the log file is always kept)\n"
    "  --memory-period TIME  memory sample period in the log (default 500ms)\n"
    "  -q, --quiet           show errors only\n"
    "  -v, --verbose         show the log on the console too; twice (-vv) shows every line\n"
    "  -h, --help            show this help\n";

constexpr std::size_t BLOCK = 1024 * 1024;

// Deterministic bytes that no compression or pattern could fake.
void generate(const std::filesystem::path& path, std::uint64_t size)
{
  std::ofstream output(path, std::ios::binary | std::ios::trunc);
  std::vector<char> block(BLOCK);
  std::uint64_t state = 0x9E3779B97F4A7C15ull;
  for (std::uint64_t written = 0; written < size;) {
    for (std::size_t i = 0; i + 8 <= block.size(); i += 8) {
      state ^= state << 13;
      state ^= state >> 7;
      state ^= state << 17;
      std::memcpy(block.data() + i, &state, 8);
    }
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(BLOCK, size - written));
    output.write(block.data(), static_cast<std::streamsize>(count));
    written += count;
  }
  if (!output.flush()) {
    throw std::runtime_error("cannot write '" + toString(path) + "'");
  }
}

bool sameContent(const std::filesystem::path& first, const std::filesystem::path& second)
{
  std::ifstream a(first, std::ios::binary);
  std::ifstream b(second, std::ios::binary);
  if (!a || !b) {
    return false;
  }
  std::vector<char> left(BLOCK);
  std::vector<char> right(BLOCK);
  for (;;) {
    a.read(left.data(), static_cast<std::streamsize>(left.size()));
    b.read(right.data(), static_cast<std::streamsize>(right.size()));
    if (a.gcount() != b.gcount() || std::memcmp(left.data(), right.data(), static_cast<std::size_t>(a.gcount())) != 0) {
      return false;
    }
    if (!a || !b) {
      return !a && !b;
    }
  }
}

class Steps {
public:
  explicit Steps(unsigned total)
      : total(total)
  {
  }

  // Reports one step; `ok` false marks the whole demo failed.
  void report(const std::string& what, bool ok, const std::string& detail)
  {
    ++number;
    std::ostringstream line;
    line << '[' << number << '/' << total << "] " << std::left << std::setw(44) << what << ' '
         << (ok ? "ok" : "FAILED");
    if (!detail.empty()) {
      line << ", " << detail;
    }
    Console::instance().result(line.str());
    Logging::logInfo(line.str());
    if (!ok) {
      ++failures;
    }
  }

  unsigned failed() const { return failures; }
  unsigned done() const { return number; }

private:
  unsigned total;
  unsigned number = 0;
  unsigned failures = 0;
};

} // namespace

int demoCommand(const std::vector<std::string>& words)
{
  std::uint64_t sizeMiB = 64;
  bool keep = false;
  LogOptions logOptions;
  logOptions.memoryPeriod = std::chrono::milliseconds(500);
  CommandLine line(DEMO_HELP);
  line.number("--size", 4096, [&](std::uint64_t mebibytes) { sizeMiB = mebibytes; });
  line.flag("--keep", [&] { keep = true; });
  addLogOptions(line, logOptions);
  if (!line.parse(words)) {
    return EXIT_OK;
  }
  if (logOptions.file) {
    throw UsageError("the demo writes its own log file");
  }

  CtrlC ctrlC;
  const std::filesystem::path directory = makeTemporaryDirectory("orvan-demo");
  const std::filesystem::path logPath = directory / "demo.log";
  const std::filesystem::path source = directory / "source.bin";
  const std::filesystem::path copy = directory / "fetched.bin";
  const std::uint64_t size = sizeMiB * BLOCK;
  Console::instance().result("orvan demo: working in '" + toString(directory) + "'");

  Steps steps(6);
  {
    logOptions.file = toString(logPath);
    LogSession session(logOptions, Verbosity::Normal);
    Logging::WorkflowLogger demo("Demo", false);
    steps.report("log file with a memory spy", std::filesystem::exists(logPath),
                 "a sample every " + std::to_string(logOptions.memoryPeriod->count()) + " ms");

    bool generated = false;
    {
      Logging::WorkflowLogger step("Generate the test file", false);
      try {
        generate(source, size);
        generated = std::filesystem::file_size(source) == size;
        step.traceIntermediate("wrote " + std::to_string(size) + " bytes");
      } catch (const std::exception& error) {
        Logging::logError(std::string("Cannot generate the test file: ") + error.what());
      }
      steps.report("generate the test file", generated, formatBytes(size));
    }

    std::optional<Core::FileServer> server;
    if (generated && !ctrlC.token.isCancelRequested()) {
      Logging::WorkflowLogger step("Serve the test file", false);
      try {
        Core::FileServer::Options options;
        options.maxClients = 8;
        server.emplace(source, options);
        steps.report("serve it on a free loopback port", true, "127.0.0.1:" + std::to_string(server->port()));
      } catch (const std::exception& error) {
        steps.report("serve it on a free loopback port", false, error.what());
      }
    }

    if (server && !ctrlC.token.isCancelRequested()) {
      Logging::WorkflowLogger step("Fetch the test file", false);
      std::ostringstream target;
      target << "source.bin@127.0.0.1:" << server->port() << "&timeout=10";
      Core::FileInfo finfo(target.str());
      Core::Process::TimeoutRetry retry(&ctrlC.token);
      finfo.retry = &retry;
      const FetchOutcome outcome = fetchFile(finfo, copy, ctrlC.token);
      if (outcome.status == FetchOutcome::Status::Done) {
        const bool same = sameContent(source, copy);
        step.traceIntermediate(same ? "the copy is identical" : "the copy differs");
        steps.report("fetch it with a progress bar", same,
                     formatBytes(outcome.bytes) + " in " + formatSeconds(outcome.seconds) +
                         (same ? ", identical byte for byte" : ", the copy DIFFERS"));
      } else {
        steps.report("fetch it with a progress bar", false,
                     outcome.status == FetchOutcome::Status::Cancelled ? std::string("cancelled") : outcome.error);
      }
    }

    std::string self;
    try {
      self = toString(Platform::executablePath());
    } catch (const std::exception& error) {
      Logging::logError(error.what());
    }

    if (!self.empty() && steps.done() == 4 && !ctrlC.token.isCancelRequested()) {
      Logging::WorkflowLogger step("Run a child program", false);
      const std::string command = Core::System::commandLine({self, "--version"});
      const auto code = Core::System::run(command, toString(directory), &ctrlC.token);
      steps.report("run a child program: 'orvan --version'", code && *code == 0,
                   code ? "exit code " + std::to_string(*code) : std::string("cancelled"));
    }

    if (!self.empty() && steps.done() == 5 && !ctrlC.token.isCancelRequested()) {
      Logging::WorkflowLogger step("Cancel a child program", false);
      // A server that would run until stopped: cancelled one second after it
      // starts, and the runner must give up on it within its wait cycles.
      const std::string command =
          Core::System::commandLine({self, "serve", toString(source), "--port", "0", "--quiet"});
      // Ctrl-C cancels it at once, through the link.
      Core::Process::CancelationToken childToken;
      const Core::Process::CancelationLink interrupted(&ctrlC.token, childToken);
      std::thread canceller([&] {
        childToken.waitFor(std::chrono::seconds(1));
        childToken.requestCancel();
      });
      const Utils::Chronometer chronometer;
      const auto code = Core::System::run(command, toString(directory), &childToken);
      canceller.join();
      const double seconds = std::chrono::duration<double>(chronometer.elapsed()).count();
      steps.report("cancel a second one: 'orvan serve'", !code && seconds < 15.0,
                   code ? "it ended on its own with exit code " + std::to_string(*code)
                        : "terminated after " + formatSeconds(seconds));
    }

    if (server) {
      server->stop();
    }
    server.reset();
    if (!keep) {
      std::error_code ignored;
      std::filesystem::remove(source, ignored);
      std::filesystem::remove(copy, ignored);
    }
  }

  const bool cancelled = ctrlC.token.isCancelRequested();
  const unsigned failed = steps.failed() + (steps.done() < 6 ? 6 - steps.done() : 0);
  std::string summary;
  if (cancelled) {
    summary = "Cancelled after " + std::to_string(steps.done()) + " of 6 steps.";
  } else if (failed == 0) {
    summary = "All 6 steps did what they should.";
  } else {
    summary = std::to_string(failed) + " of 6 steps FAILED.";
  }
  Console::instance().result(summary + " Log file: '" + toString(logPath) + "'");
  // The run seen as a timeline, from its own log.
  try {
    const std::string trace = writeTrace(toString(logPath), toString(directory / "demo.trace.json"));
    const std::string report = writeReport(toString(logPath), toString(directory / "demo.html"));
    Console::instance().result("Trace (Perfetto, chrome://tracing, speedscope): '" + trace + "'");
    Console::instance().result("Report (any browser): '" + report + "'");
  } catch (const std::exception& error) {
    Console::instance().message(std::string("orvan demo: cannot draw the log: ") + error.what());
    return EXIT_FAILED;
  }
  if (cancelled) {
    return CtrlC::exitCode();
  }
  return failed == 0 ? EXIT_OK : EXIT_FAILED;
}

} // namespace Orvan::Tool
