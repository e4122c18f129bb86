// Setting up the library's logging in a host program: operator messages on
// the console, everything (with memory samples) in a log file, and the steps
// of the work traced as a tree.
//
//   logging_example [LOG_FILE]      (default: example.log)

#include <Core/Logging/CoutLogger.h>
#include <Core/Logging/DichotomicLogger.h>
#include <Core/Logging/FileLogger.h>
#include <Core/Logging/LoggingCallback.h>
#include <Core/Logging/MemorySpy.h>
#include <Core/Logging/WorkflowLogger.h>

#include <chrono>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace Logging = Orvan::Core::Logging;

int main(int argc, char** argv)
{
  const std::string path = argc > 1 ? argv[1] : "example.log";

  // The host owns its loggers; the library only keeps weak references.
  auto console = std::make_shared<Logging::CoutLogger>();
  auto file = std::make_shared<Logging::FileLogger>(path);
  file->attachMemorySpyer(std::chrono::milliseconds(200));
  // Info, warnings and errors on the console; every level in the file.
  auto logger = std::make_shared<Logging::DichotomicLogger>(Logging::DichotomicLogger::FilteredLogger{console},
                                                            Logging::DichotomicLogger::CompleteLogger{file});
  Logging::setLogger(logger);

  {
    Logging::WorkflowLogger work("Sort", false);
    std::vector<int> values;
    {
      Logging::WorkflowLogger step("Fill", false);
      for (int i = 0; i < 1000000; ++i) {
        values.push_back(static_cast<int>((i * 7919LL) % 1000003));
      }
      step.traceIntermediate(std::to_string(values.size()) + " values");
    }
    Logging::logDebug("only in the file");
    if (values.size() > 100000) {
      Logging::logWarning("more than 100000 values");
    }
  }

  const Logging::MemoryUsageCapture memory = Logging::MemorySpy::captureMemoryUsage();
  Logging::logInfo("resident set: " + std::to_string(memory.physicalUsedByApplication / 1024) + " KiB");

  // Once the logger is gone, messages fall back to a callback, if any.
  Logging::setLogger({});
  const auto guard = Logging::setLoggingCallback([](const std::string& text) { std::cout << "callback: " << text; });
  Logging::logInfo("no logger any more");

  std::cout << "log file: " << path << std::endl;
  return 0;
}
