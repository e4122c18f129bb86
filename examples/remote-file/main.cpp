// Reading a file that a server sends, with a retry policy and a progress
// observer. Start a server first, for example:
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

#include <atomic>
#include <cstdint>
#include <iostream>
#include <memory>
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

  try {
    const std::unique_ptr<std::istream> stream = finfo.makeStream(std::nullopt);
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
    std::cerr << "received " << bytes.load() << " bytes\n";
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "cannot read " << finfo << ": " << error.what() << '\n';
    return 1;
  }
}
