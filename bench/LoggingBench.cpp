// The cost of the logging facade: a message nobody receives, and a message
// dispatched to a logger, against a direct virtual call through a locked
// weak reference (what the dispatch cannot avoid).
#include "Comparison.h"

#include <Core/Logging/LoggingCallback.h>

#include <memory>
#include <string>

namespace {

namespace Logging = Orvan::Core::Logging;

class NullLogger : public Logging::Logger {
public:
  void info(const std::string& message) override { benchmark::DoNotOptimize(message.data()); }
  void warning(const std::string&) override {}
  void error(const std::string&) override {}
  void debug(const std::string&) override {}
  void verbose(const std::string&) override {}
  void triggerLogMemory() override {}
};

const std::string MESSAGE = "Connecting to: 'data.bin@127.0.0.1:4000&timeout=30'...";

void DroppedMessage(benchmark::State& state)
{
  Logging::setLogger({});
  Logging::sLoggingFunction = nullptr;
  for (auto _ : state) {
    Logging::logInfo(MESSAGE);
  }
}
BENCHMARK(DroppedMessage);

void DispatchToLogger(benchmark::State& state)
{
  auto logger = std::make_shared<NullLogger>();
  Logging::setLogger(logger);
  for (auto _ : state) {
    Logging::logInfo(MESSAGE);
  }
  Logging::setLogger({});
}
BENCHMARK(DispatchToLogger);

void DirectCallThroughWeakPtr(benchmark::State& state)
{
  std::shared_ptr<Logging::Logger> logger = std::make_shared<NullLogger>();
  std::weak_ptr<Logging::Logger> reference = logger;
  benchmark::DoNotOptimize(reference);
  for (auto _ : state) {
    if (auto locked = reference.lock()) {
      locked->info(MESSAGE);
    }
  }
}
BENCHMARK(DirectCallThroughWeakPtr);

} // namespace

int main(int argc, char** argv)
{
  // A dropped message has an absolute target (20 ns), shown against the
  // direct call for scale.
  return Orvan::Bench::runAndCompare(
      argc, argv,
      {{"DispatchToLogger", "DirectCallThroughWeakPtr", 1.5}, {"DroppedMessage", "DirectCallThroughWeakPtr", 0}});
}
