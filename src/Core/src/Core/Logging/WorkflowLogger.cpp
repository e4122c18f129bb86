#include <Core/Logging/LoggingCallback.h>
#include <Core/Logging/LoggingCallbackPrivate.h>
#include <Core/Logging/LoggingType.h>
#include <Core/Logging/WorkflowLogger.h>
#include <Utils/CoreAssert.h>

#include <limits>

namespace Orvan::Core::Logging {

std::map<std::thread::id, unsigned int> WorkflowLogger::indentations;
std::mutex WorkflowLogger::indentationsMutex;

namespace {

// One tab per open step, however deep. A level above this one only arises
// from a step that ends on a thread with no open step, where the level wraps
// below zero; it is written as a thread with no open step, not as billions
// of tabs.
constexpr unsigned int DEEPEST_LEVEL = static_cast<unsigned int>(std::numeric_limits<int>::max());

std::string indentation(unsigned int level)
{
  return std::string(level > DEEPEST_LEVEL ? 0 : level, '\t');
}

} // namespace

WorkflowLogger::WorkflowLogger(const std::string& name, bool debugOnly)
    : debugOnly(debugOnly)
    , name(name)
{
  const std::thread::id thisId = std::this_thread::get_id();
  std::string indent;
  {
    const std::lock_guard lock(indentationsMutex);
    unsigned int& level = indentations[thisId];
    indent = indentation(level);
    ++level;
  }
  send(indent + "===> " + this->name);
}

WorkflowLogger::WorkflowLogger(const WorkflowLogger& other) = default;

WorkflowLogger& WorkflowLogger::operator=(const WorkflowLogger& other) = default;

WorkflowLogger::~WorkflowLogger()
{
  const std::thread::id thisId = std::this_thread::get_id();
  checkStepIsOpen(thisId);
  std::string indent;
  {
    const std::lock_guard lock(indentationsMutex);
    unsigned int& level = indentations[thisId];
    --level;
    indent = indentation(level);
  }
  send(indent + "<=== " + name + " " + chronometer.elapsedTimeAsStr());
}

void WorkflowLogger::traceIntermediate(const std::string& text)
{
  const std::thread::id thisId = std::this_thread::get_id();
  checkStepIsOpen(thisId);
  std::string indent;
  {
    const std::lock_guard lock(indentationsMutex);
    indent = indentation(indentations[thisId]);
  }
  // Always at Info level with a memory line, whatever debugOnly says.
  logMessage(LoggingType::Info, indent, name, "/", text, " ", chronometer.elapsedTimeAsStr());
  triggerLogMemory();
}

// The table is read under the mutex, but the reports are made after it is
// released: an assertion handler may log, and may even trace a step.
void WorkflowLogger::checkStepIsOpen(std::thread::id thisId)
{
  bool known = false;
  bool open = false;
  {
    const std::lock_guard lock(indentationsMutex);
    const auto entry = indentations.find(thisId);
    known = entry != indentations.end();
    open = known && entry->second != 0;
  }
  if (!known) {
    CoreAssert::assertFailed("CORE_ASSERT failed: 'indentations.find(thisId) != indentations.end()'", __FILE__,
                             __LINE__);
  }
  if (!open) {
    CoreAssert::assertFailed("CORE_ASSERT failed: 'indentations[thisId] != 0'", __FILE__, __LINE__);
  }
}

void WorkflowLogger::send(const std::string& line) const
{
  if (debugOnly) {
    logMessage(LoggingType::Debug, line);
  } else {
    logMessage(LoggingType::Info, line);
    triggerLogMemory();
  }
}

} // namespace Orvan::Core::Logging
