#pragma once

#include <Core/Export.h>
#include <Utils/Chronometer.h>

#include <map>
#include <mutex>
#include <string>
#include <thread>

namespace Orvan::Core::Logging {

// Traces the steps of a workflow in the log. Create one as a local object at
// the start of a step: it logs "===> name" when built and "<=== name 12.345 ms"
// when it goes, and traceIntermediate logs "name/text 3.2 ms" in between.
// Lines are indented with one tab per step open on the same thread, so nested
// steps show as a tree:
//
//   ===> Load
//   	===> Parse
//   		Parse/half 1.203 ms
//   	<=== Parse 2.411 ms
//   <=== Load 2.930 ms
//
// With `debugOnly` false the enter and leave lines are at Info level and each
// asks the installed logger for a memory line; with true they are at Debug
// level and ask for none. Intermediate lines are always at Info level and
// always ask for a memory line.
//
// A copy carries the same name and start instant but opens no level, while
// its destruction closes one and writes a leave line.
class ORVAN_CORE_EXPORT WorkflowLogger {
public:
  WorkflowLogger(const std::string& name, bool debugOnly);
  WorkflowLogger(const WorkflowLogger& other);
  WorkflowLogger& operator=(const WorkflowLogger& other);
  ~WorkflowLogger();

  void traceIntermediate(const std::string& text);

private:
  // Reports a step that ends or traces on a thread with no open step.
  static void checkStepIsOpen(std::thread::id thisId);
  void send(const std::string& line) const;

  bool debugOnly;
  Utils::Chronometer chronometer;
  std::string name;

  // The number of open steps of each thread that ever opened one; an entry
  // stays, with 0, once all its steps have ended. The mutex is never held
  // while logging.
  static std::map<std::thread::id, unsigned int> indentations;
  static std::mutex indentationsMutex;
};

} // namespace Orvan::Core::Logging
