// Reading a file that a server sends, with a retry policy, a bound on silence
// and a progress observer, then telling how the stream ended: at the end of
// the file, or cut short. Start a server first, for example:
//
//   orvan serve data.bin --port 4000
//   remote_file_example 'data.bin@127.0.0.1:4000&timeout=30'

#include <Core/FileInfo.h>
#include <Core/Logging/CoutLogger.h>
#include <Core/Logging/LoggingCallback.h>
#include <Core/Process/CancelationToken.h>
#include <Core/Process/Progression/ProcessProgressionLinearUnknownSteps.h>
#include <Core/Process/Progression/ProgressionObserver.h>
#include <Core/Process/TimeoutRetry.h>
#include <Core/StreamDiagnostics.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <memory>
#include <system_error>
#include <vector>

namespace Progression = Orvan::Core::Process::Progression;

// Receives at most one reading per period, on a thread of its own.
class Display : public Progression::ProgressionObserver {
public:
  Display(const std::shared_ptr<Progression::ProgressionObservable>& observable,
          const std::atomic<std::uint64_t>& bytes)
      : ProgressionObserver(observable, 250, DeferredStart{})
      , bytes(bytes)
  {
    startObserving(); // last: deliveries may come from here on
  }

  ~Display() override { stopObserving(); }

  void onProgressionUpdated(double) override { std::cerr << bytes.load() << " bytes so far\n"; }

private:
  const std::atomic<std::uint64_t>& bytes;
};

int main(int argc, char** argv)
{
  if (argc != 2) {
    std::cerr << "usage: remote_file_example 'NAME@ADDRESS:PORT&timeout=SECONDS'\n";
    return 2;
  }
  auto logger = std::make_shared<Orvan::Core::Logging::CoutLogger>();
  Orvan::Core::Logging::setLogger(logger);

  // Connecting is retried every 500 ms until the descriptor's timeout, unless
  // the token is cancelled meanwhile.
  Orvan::Core::Process::CancelationToken token;
  Orvan::Core::Process::TimeoutRetry retry(&token);
  Orvan::Core::FileInfo finfo{std::string(argv[1])};
  finfo.retry = &retry;

  // The stream's per-chunk lines go to the logger, not among our output.
  Orvan::Core::setStreamDiagnostics(Orvan::Core::StreamDiagnostics::Log);
  Orvan::Core::FileInfo::StreamOptions options;
  options.mode = static_cast<int>(std::ios::binary);
  options.idleTimeout = std::chrono::seconds(30); // a silent server fails the read
  options.token = &token;

  try {
    const std::unique_ptr<std::istream> stream = finfo.makeStream(options);
    // A failed read (a reset, 30 s of silence) throws std::system_error
    // instead of only setting the bad state.
    stream->exceptions(std::ios::badbit);
    // The size is not known in advance: count chunks until the server closes.
    auto progression = std::make_shared<Progression::ProcessProgressionLinearUnknownSteps>();
    std::atomic<std::uint64_t> bytes{0};
    {
      Display display(progression, bytes);
      std::vector<char> buffer(64 * 1024);
      while (stream->read(buffer.data(), static_cast<std::streamsize>(buffer.size())) || stream->gcount() > 0) {
        bytes += static_cast<std::uint64_t>(stream->gcount());
        ++*progression;
      }
      progression->setCompleted();
    }
    // The loop ends at the end of the file, and only there: anything else
    // would have thrown.
    std::cerr << "received " << bytes.load() << " bytes"
              << (stream->eof() ? ", up to the end of the file" : ", cut short") << '\n';
    return stream->eof() ? 0 : 1;
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::timed_out) {
      std::cerr << "cannot read " << finfo << ": no data came for 30 s\n";
    } else {
      std::cerr << "cannot read " << finfo << ": " << error.code().message() << '\n';
    }
    return 1;
  } catch (const std::exception& error) {
    std::cerr << "cannot read " << finfo << ": " << error.what() << '\n';
    return 1;
  }
}
