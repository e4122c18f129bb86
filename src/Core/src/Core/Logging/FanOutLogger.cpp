#include <Core/Logging/FanOutLogger.h>
#include <Core/Logging/LevelThreshold.h>

#include <utility>

namespace Orvan::Core::Logging {

FanOutLogger::FanOutLogger()
    : outputs(std::make_shared<const Outputs>())
{
}

FanOutLogger::FanOutLogger(std::vector<Output> initial)
    : outputs(std::make_shared<const Outputs>(std::move(initial)))
{
}

FanOutLogger::~FanOutLogger() = default;

void FanOutLogger::add(std::weak_ptr<Logger> logger, LoggingType threshold)
{
  const std::lock_guard lock(mutex);
  auto next = std::make_shared<Outputs>();
  next->reserve(outputs->size() + 1);
  for (const Output& output : *outputs) {
    if (!output.logger.expired()) {
      next->push_back(output);
    }
  }
  next->push_back(Output{std::move(logger), threshold});
  outputs = std::move(next);
}

std::shared_ptr<const FanOutLogger::Outputs> FanOutLogger::snapshot() const
{
  const std::lock_guard lock(mutex);
  return outputs;
}

void FanOutLogger::write(LoggingType type, const std::string& message)
{
  const std::shared_ptr<const Outputs> current = snapshot();
  for (const Output& output : *current) {
    if (!reachesThreshold(type, output.threshold)) {
      continue;
    }
    // Held for the call: an owner letting it go meanwhile does not destroy
    // it in the middle of its write.
    if (const std::shared_ptr<Logger> logger = output.logger.lock()) {
      writeAt(*logger, type, message);
    }
  }
}

void FanOutLogger::triggerLogMemory()
{
  const std::shared_ptr<const Outputs> current = snapshot();
  for (const Output& output : *current) {
    if (const std::shared_ptr<Logger> logger = output.logger.lock()) {
      logger->triggerLogMemory();
    }
  }
}

} // namespace Orvan::Core::Logging
