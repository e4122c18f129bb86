#pragma once

#include <Core/Export.h>
#include <Core/Logging/LevelLogger.h>
#include <Core/Logging/LoggingType.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Orvan::Core::Logging {

// Sends each message to any number of loggers, in the order they were
// added, each with a threshold of its own (see LevelThreshold.h):
//
//   auto file = std::make_shared<FileLogger>("service.log");
//   auto console = std::make_shared<CoutLogger>();
//   auto all = std::make_shared<FanOutLogger>();
//   all->add(file);                         // everything
//   all->add(console, LoggingType::Warning); // warnings and errors
//   setLogger(all);
//
// Outputs are held by weak references: one whose owner let it go is
// skipped, and forgotten at the next add. Messages and adds may come from
// any thread. No lock is held while an output writes, so an output may
// itself log; each output sees the messages of one thread in order.
class ORVAN_CORE_EXPORT FanOutLogger : public LevelLogger {
public:
  struct Output {
    std::weak_ptr<Logger> logger;
    // Messages less severe than this do not reach the output.
    LoggingType threshold = LoggingType::Verbose;
  };

  FanOutLogger();
  explicit FanOutLogger(std::vector<Output> outputs);
  FanOutLogger(const FanOutLogger&) = delete;
  FanOutLogger& operator=(const FanOutLogger&) = delete;
  ~FanOutLogger() override;

  void add(std::weak_ptr<Logger> logger, LoggingType threshold = LoggingType::Verbose);

  // Forwarded to every output that is still there.
  void triggerLogMemory() override;

protected:
  void write(LoggingType type, const std::string& message) override;

private:
  using Outputs = std::vector<Output>;

  std::shared_ptr<const Outputs> snapshot() const;

  mutable std::mutex mutex;
  // Replaced whole by add, so that a writer walks a list that no add
  // changes under it. Guarded by `mutex`.
  std::shared_ptr<const Outputs> outputs;
};

} // namespace Orvan::Core::Logging
