#pragma once

#include <Core/Export.h>
#include <Core/Logging/LevelLogger.h>

#include <memory>
#include <string>

namespace Orvan::Core::Logging {

// Feeds two loggers: a filtered one, which receives what matters to an
// operator (info, warning, error), and a complete one, which receives
// everything, memory requests included. Warnings and errors are also echoed
// to standard output with the console tags, whatever the two loggers are.
//
//   auto file = std::make_shared<FileLogger>("run.log");
//   auto console = std::make_shared<CoutLogger>();
//   auto both = std::make_shared<DichotomicLogger>(DichotomicLogger::FilteredLogger{console},
//                                                  DichotomicLogger::CompleteLogger{file});
//
// Both are held by weak references: either may be empty or expire at any
// time, and is then skipped.
class ORVAN_CORE_EXPORT DichotomicLogger : public LevelLogger {
public:
  struct FilteredLogger {
    std::weak_ptr<Logger> logger;
  };
  struct CompleteLogger {
    std::weak_ptr<Logger> logger;
  };

  DichotomicLogger(FilteredLogger filtered, CompleteLogger complete);
  DichotomicLogger(const DichotomicLogger& other);
  DichotomicLogger& operator=(const DichotomicLogger& other);
  ~DichotomicLogger() override;

  void triggerLogMemory() override;

protected:
  // Info, warnings and errors go to the filtered logger (warnings and errors
  // are also echoed to the console), then every level to the complete one.
  void write(LoggingType type, const std::string& message) override;

private:
  FilteredLogger filteredLogger;
  CompleteLogger completeLogger;
};

} // namespace Orvan::Core::Logging
