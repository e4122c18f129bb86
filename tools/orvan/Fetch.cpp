#include "Fetch.h"

#include "Commands.h"
#include "Console.h"
#include "Progress.h"
#include "ToolLogging.h"

#include <Core/Logging/LoggingCallback.h>
#include <Core/Logging/WorkflowLogger.h>
#include <Core/Process/Progression/ProcessProgressionLinear.h>
#include <Core/Process/Progression/ProcessProgressionLinearUnknownSteps.h>
#include <Core/Process/TimeoutRetry.h>
#include <Utils/FileHelper.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <vector>

namespace Orvan::Tool {

namespace Progression = Core::Process::Progression;
using Utils::FileHelper::toString;

namespace {

constexpr std::size_t CHUNK = 256 * 1024;

// True for what is written in place rather than replaced: a character
// device (/dev/null, a terminal) or a FIFO.
bool isWrittenInPlace(const std::filesystem::path& output)
{
  std::error_code ignored;
  const std::filesystem::file_status status = std::filesystem::status(output, ignored);
  return std::filesystem::is_character_file(status) || std::filesystem::is_fifo(status);
}

// `path` with its symbolic links followed to what they name, even when that
// does not exist yet.
std::filesystem::path followLinks(std::filesystem::path path)
{
  std::error_code error;
  for (int hops = 0; hops < 40 && std::filesystem::is_symlink(path, error); ++hops) {
    const std::filesystem::path target = std::filesystem::read_symlink(path, error);
    if (error) {
      break;
    }
    path = target.is_absolute() ? target : path.parent_path() / target;
  }
  return path;
}

// Where the bytes go: a temporary file that replaces the output at the end;
// a device or FIFO, written in place and never removed; or standard output.
class Sink {
public:
  explicit Sink(const std::filesystem::path& output)
      : output(output)
  {
    if (output.empty()) {
      Platform::setBinaryOutput();
      return;
    }
    if (isWrittenInPlace(output)) {
      file.open(output, std::ios::binary);
      if (!file) {
        throw std::runtime_error("cannot write '" + toString(output) + "': " + std::strerror(errno));
      }
      return;
    }
    partial = output;
    partial += ".orvan-part";
    // A second Ctrl-C ends the tool at once: the partial file goes with it.
    Platform::setFileToRemoveOnExit(partial);
    file.open(partial, std::ios::binary | std::ios::trunc);
    if (!file) {
      Platform::setFileToRemoveOnExit({});
      throw std::runtime_error("cannot write '" + toString(partial) + "': " + std::strerror(errno));
    }
  }

  ~Sink()
  {
    if (!partial.empty() && !committed) {
      file.close();
      std::error_code ignored;
      std::filesystem::remove(partial, ignored);
    }
    Platform::setFileToRemoveOnExit({});
  }

  void write(const char* data, std::size_t size)
  {
    if (output.empty()) {
      if (std::fwrite(data, 1, size, stdout) != size) {
        throw std::runtime_error(std::string("cannot write to standard output: ") + std::strerror(errno));
      }
      return;
    }
    if (!file.write(data, static_cast<std::streamsize>(size))) {
      throw std::runtime_error("cannot write '" + toString(partial.empty() ? output : partial) +
                               "': " + std::strerror(errno));
    }
  }

  void commit()
  {
    if (output.empty()) {
      std::fflush(stdout);
      return;
    }
    file.close();
    if (!file) {
      throw std::runtime_error("cannot write '" + toString(partial.empty() ? output : partial) +
                               "': " + std::strerror(errno));
    }
    if (partial.empty()) {
      return; // written in place
    }
    // Only reached with --force when the output exists.
    std::error_code ignored;
    std::filesystem::remove(output, ignored);
    Platform::setFileToRemoveOnExit({});
    std::filesystem::rename(partial, output);
    committed = true;
  }

private:
  std::filesystem::path output;
  std::filesystem::path partial;
  std::ofstream file;
  bool committed = false;
};

// "cannot connect to 127.0.0.1:1 (data.bin): Connection refused": the
// target and the cause, once.
std::string connectionFailure(const Core::FileInfo& finfo, const std::exception& error)
{
  const std::string where = finfo.address + ":" + std::to_string(finfo.port);
  const std::string name = " (" + toString(finfo.filename) + "): ";
  if (const auto* failure = dynamic_cast<const std::system_error*>(&error)) {
    return "cannot connect to " + where + name + failure->code().message();
  }
  // The socket stream reports a failed resolution with the resolver's code.
  const std::string text = error.what();
  const std::string resolver = "getaddrinfo() returned: ";
  if (text.rfind(resolver, 0) == 0) {
    return "cannot resolve " + finfo.address + name +
           Platform::resolverMessage(std::atoi(text.c_str() + resolver.size()));
  }
  return "cannot connect to " + where + name + text;
}

// The port of a remote descriptor's text when it is all digits and above
// 65535, which the parser only calls a syntax error.
std::optional<std::string> portAbove65535(const std::string& text)
{
  const auto at = text.rfind('@');
  const auto colon = text.find(':', at == std::string::npos ? 0 : at);
  if (at == std::string::npos || colon == std::string::npos) {
    return std::nullopt;
  }
  const std::string port = text.substr(colon + 1, text.find('&', colon) - colon - 1);
  if (port.empty() || port.size() > 18 || port.find_first_not_of("0123456789") != std::string::npos ||
      std::stoull(port) <= 65535) {
    return std::nullopt;
  }
  return port;
}

} // namespace

FetchOutcome fetchFile(const Core::FileInfo& finfo, const std::filesystem::path& output,
                       const Core::Process::CancelationToken& token, const FetchLimits& limits)
{
  FetchOutcome outcome;
  const std::string target = toString(finfo);
  Core::Logging::WorkflowLogger step("Fetch '" + target + "'", false);

  TransferState state;
  state.name = toString(finfo.filename.filename());
  if (!finfo.isRemote()) {
    std::error_code error;
    const auto size = std::filesystem::file_size(finfo.filename, error);
    if (!error) {
      state.size = size;
    }
  }
  // A known size gives a real fraction; otherwise the unknown-steps counter
  // counts chunks until the server closes the connection.
  std::shared_ptr<Progression::ProcessProgressionLinear> counter;
  if (state.size) {
    counter = std::make_shared<Progression::ProcessProgressionLinear>(*state.size);
  } else {
    counter = std::make_shared<Progression::ProcessProgressionLinearUnknownSteps>();
  }

  // Ctrl-C ends the transfer through a link; --max-time through a timer
  // that sleeps on a token until the time is up or the fetch is over.
  Core::Process::CancelationToken transfer;
  const Core::Process::CancelationLink ctrlC(&token, transfer);
  std::atomic<bool> outOfTime{false};
  Core::Process::CancelationToken finished;
  std::thread timer;
  if (limits.maxTime) {
    const std::chrono::milliseconds maxTime = *limits.maxTime;
    timer = std::thread([&finished, &transfer, &outOfTime, &token, maxTime] {
      if (!finished.waitFor(maxTime)) {
        outOfTime = !token.isCancelRequested();
        transfer.requestCancel();
      }
    });
  }
  struct TimerStop {
    Core::Process::CancelationToken& finished;
    std::thread& timer;
    ~TimerStop()
    {
      finished.requestCancel();
      if (timer.joinable()) {
        timer.join();
      }
    }
  } timerStop{finished, timer};

  try {
    Sink sink(output);
    // Ctrl-C and the time limit end a read that waits for a silent server
    // too: both cancel the stream's own token.
    Core::FileInfo::StreamOptions options;
    options.mode = static_cast<int>(std::ios::binary);
    options.token = &transfer;
    if (limits.idleTimeout) {
      options.idleTimeout = *limits.idleTimeout;
    }
    std::unique_ptr<std::istream> stream;
    try {
      stream = finfo.makeStream(options);
    } catch (const std::exception& error) {
      const auto* failure = dynamic_cast<const std::system_error*>(&error);
      if (!finfo.isRemote() && failure != nullptr) {
        // The library's own text has an empty part ("...': : No such file
        // or directory"): the tool says it in a sentence of its own.
        outcome.status = FetchOutcome::Status::Failed;
        outcome.error = "cannot open '" + target + "': " + failure->code().message();
        return outcome;
      }
      if (!finfo.isRemote() || token.isCancelRequested() || transfer.isCancelRequested()) {
        throw;
      }
      outcome.status = FetchOutcome::Status::NotConnected;
      outcome.error = connectionFailure(finfo, error);
      return outcome;
    }
    // A failed receive comes out as the library's std::system_error.
    stream->exceptions(std::ios::badbit);
    state.start = std::chrono::steady_clock::now();
    ProgressDisplay display(counter, state);
    std::vector<char> buffer(CHUNK);
    bool cancelled = false;
    try {
      while (!(cancelled = transfer.isCancelRequested())) {
        stream->read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
        const auto count = static_cast<std::size_t>(stream->gcount());
        if (count > 0) {
          sink.write(buffer.data(), count);
          state.bytes += count;
          if (state.size) {
            *counter += count;
          } else {
            ++*counter;
          }
        }
        if (!*stream) {
          break;
        }
      }
    } catch (...) {
      display.finish(counter->captureProgression(), false);
      throw;
    }
    if (cancelled) {
      display.finish(counter->captureProgression(), false);
      outcome.status = outOfTime ? FetchOutcome::Status::TimedOut : FetchOutcome::Status::Cancelled;
    } else {
      sink.commit();
      counter->setCompleted();
      display.finish(1.0, true);
      outcome.status = FetchOutcome::Status::Done;
      step.traceIntermediate("received " + std::to_string(state.bytes.load()) + " bytes");
    }
  } catch (const std::system_error& error) {
    outcome.status = error.code() == std::errc::timed_out || outOfTime ? FetchOutcome::Status::TimedOut
                     : token.isCancelRequested()                       ? FetchOutcome::Status::Cancelled
                                                                       : FetchOutcome::Status::Failed;
    outcome.error = "reading '" + target + "' failed: " + error.code().message();
  } catch (const std::exception& error) {
    outcome.status = outOfTime                   ? FetchOutcome::Status::TimedOut
                     : token.isCancelRequested() ? FetchOutcome::Status::Cancelled
                                                 : FetchOutcome::Status::Failed;
    outcome.error = error.what();
  }
  // Which limit ran out, in the words of its option.
  if (outcome.status == FetchOutcome::Status::TimedOut && outOfTime && limits.maxTime) {
    outcome.error = "the whole fetch took over " + formatDuration(*limits.maxTime) + " (--max-time)";
  } else if (outcome.status == FetchOutcome::Status::TimedOut && limits.idleTimeout) {
    outcome.error = "no data came for " + formatDuration(*limits.idleTimeout) + " (--idle-timeout)";
  }
  outcome.bytes = state.bytes.load();
  outcome.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - state.start).count();
  return outcome;
}

namespace {

const char* const FETCH_HELP =
    "Usage: orvan fetch TARGET [options]\n"
    "\n"
    "Reads the file TARGET names and writes its bytes to a local file, with a\n"
    "progress bar on standard error when it is a terminal.\n"
    "\n"
    "TARGET is a descriptor in the text form:\n"
    "  PATH                                   a local file\n"
    "  NAME@ADDRESS:PORT[&timeout=SECONDS]    the bytes a server sends (see 'orvan serve');\n"
    "                                         connecting is retried for SECONDS\n"
    "\n"
    "Options:\n"
    "  -o, --output PATH     where to write (default: TARGET's file name in the current\n"
    "                        directory); '-' writes to standard output\n"
    "  -f, --force           replace PATH when it exists\n"
    "  --timeout TIME        retry connecting for TIME, in whole seconds (replaces the\n"
    "                        descriptor's timeout)\n"
    "  --idle-timeout TIME   fail when no byte has come for TIME (exit code 124)\n"
    "  --max-time TIME       fail when the whole fetch takes over TIME (exit code 124)\n"
    "{log-options}"
    "  -h, --help            show this help\n"
    "\n"
    "TIME is a number of seconds, or a number with a unit: 0.5, 1.5s, 250ms, 2m,\n"
    "1h, 1d (--timeout: whole seconds, so no ms).\n"
    "\n"
    "Ctrl-C stops the transfer within a second, and no partial file is left behind.\n"
    "On a terminal, a transfer that gets no data for a second says so and counts\n"
    "the seconds: \"waiting for data (5 s)\".\n"
    "\n"
    "Exit codes: 0 done; 1 the transfer or the output failed; 2 usage error;\n"
    "7 the server could not be resolved or connected to; 124 --idle-timeout or\n"
    "--max-time ran out; 130 Ctrl-C; 143 SIGTERM.\n"
    "\n"
    "A failure is told in one sentence. The library's own lines about it (socket\n"
    "errors, connection attempts) go to the log: see them with -v, its per-chunk\n"
    "\"Read\" lines with -vv, or every line in --log FILE.\n"
    "\n"
    "Example:\n"
    "  orvan fetch 'data.bin@127.0.0.1:4000&timeout=30' -o copy.bin\n";

} // namespace

int fetchCommand(const std::vector<std::string>& words)
{
  std::string targetText;
  std::optional<std::string> outputText;
  std::optional<std::chrono::milliseconds> timeout;
  FetchLimits limits;
  bool force = false;
  LogOptions logOptions;
  CommandLine line(FETCH_HELP);
  line.operand("TARGET", [&](const std::string& text) { targetText = text; });
  line.option("-o,--output", [&](const std::string& text) { outputText = text; });
  line.flag("-f,--force", [&] { force = true; });
  line.duration("--timeout", std::chrono::seconds(2147483647), false,
                [&](std::chrono::milliseconds value) { timeout = value; });
  line.duration("--idle-timeout", std::chrono::hours(24 * 365), true,
                [&](std::chrono::milliseconds value) { limits.idleTimeout = value; });
  line.duration("--max-time", std::chrono::hours(24 * 365), true,
                [&](std::chrono::milliseconds value) { limits.maxTime = value; });
  addLogOptions(line, logOptions);
  if (!line.parse(words)) {
    return EXIT_OK;
  }

  if (targetText.empty()) {
    throw UsageError("TARGET is empty");
  }
  std::optional<Core::FileInfo> finfo;
  try {
    finfo.emplace(targetText);
  } catch (const std::out_of_range&) {
    throw UsageError("bad TARGET '" + targetText + "': the port or the timeout is too large");
  } catch (const std::exception& error) {
    if (const auto port = portAbove65535(targetText)) {
      throw UsageError("bad TARGET '" + targetText + "': port " + *port + " is above 65535");
    }
    throw UsageError(std::string("bad TARGET: ") + error.what());
  }
  if (timeout) {
    finfo->timeout = std::chrono::duration_cast<Core::FileInfo::Seconds>(*timeout);
  }

  std::filesystem::path output;
  if (!outputText) {
    output = finfo->filename.filename();
    if (output.empty() || output == "." || output == "..") {
      throw UsageError("cannot tell an output file name from '" + targetText + "'; give one with -o");
    }
  } else if (*outputText != "-") {
    if (outputText->empty()) {
      throw UsageError("option '-o' needs a file name");
    }
    output = Utils::FileHelper::toPath(*outputText);
  }
  if (!output.empty()) {
    // A link is written through, not replaced.
    output = followLinks(output);
    std::error_code error;
    if (std::filesystem::is_directory(output, error)) {
      throw UsageError("'" + toString(output) + "' is a directory; give a file name with -o");
    }
    const std::filesystem::file_status status = std::filesystem::status(output, error);
    if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status) && !isWrittenInPlace(output)) {
      throw UsageError("'" + toString(output) + "' is neither a regular file, a character device nor a FIFO");
    }
    if (std::filesystem::exists(status) && !isWrittenInPlace(output) && !force) {
      Console::instance().message("orvan fetch: '" + toString(output) + "' exists; use --force to replace it");
      return EXIT_FAILED;
    }
  }

  CtrlC ctrlC;
  Core::Process::TimeoutRetry retry(&ctrlC.token);
  finfo->retry = &retry;

  LogSession session(logOptions, Verbosity::Normal);
  const FetchOutcome outcome = fetchFile(*finfo, output, ctrlC.token, limits);
  switch (outcome.status) {
  case FetchOutcome::Status::Done: {
    if (logOptions.verbosity != Verbosity::Quiet) {
      const double rate = outcome.seconds > 0.0 ? static_cast<double>(outcome.bytes) / outcome.seconds : 0.0;
      Console::instance().message("Fetched " + formatBytes(outcome.bytes) + " in " + formatSeconds(outcome.seconds) +
                                  " (" + formatBytes(static_cast<unsigned long long>(rate)) + "/s) to " +
                                  (output.empty() ? std::string("standard output") : "'" + toString(output) + "'"));
    }
    return EXIT_OK;
  }
  case FetchOutcome::Status::Cancelled:
    Console::instance().message("orvan fetch: cancelled after " + formatBytes(outcome.bytes));
    return CtrlC::exitCode();
  case FetchOutcome::Status::TimedOut:
    Console::instance().message("orvan fetch: timed out after " + formatBytes(outcome.bytes) + ": " + outcome.error);
    return EXIT_TIMED_OUT;
  case FetchOutcome::Status::NotConnected:
    Console::instance().message("orvan fetch: " + outcome.error);
    return EXIT_NOT_CONNECTED;
  case FetchOutcome::Status::Failed:
    break;
  }
  Console::instance().message("orvan fetch: " + outcome.error);
  return EXIT_FAILED;
}

} // namespace Orvan::Tool
