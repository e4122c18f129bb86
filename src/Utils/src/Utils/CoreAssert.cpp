#include <Utils/CoreAssert.h>

#include <iostream>
#include <mutex>
#include <utility>

namespace Orvan::CoreAssert {
namespace {

void writeToStandardError(const std::string& message, const char* file, unsigned long long line)
{
  std::cerr << file << ':' << line << ": " << message << std::endl;
}

struct HandlerSlot {
  std::mutex mutex;
  AssertHandler handler = writeToStandardError;
};

// Never destroyed: assertions may fire while other libraries' statics are
// being torn down.
HandlerSlot& slot()
{
  static auto* const instance = new HandlerSlot;
  return *instance;
}

} // namespace

AssertHandler setAssertHandler(AssertHandler handler)
{
  if (!handler) {
    handler = writeToStandardError;
  }
  HandlerSlot& current = slot();
  const std::lock_guard lock(current.mutex);
  return std::exchange(current.handler, std::move(handler));
}

void assertFailed(const std::string& message, const char* file, unsigned long long line)
{
  // The handler is copied out so that it runs without the lock: it may
  // install another handler or assert again.
  AssertHandler handler;
  {
    HandlerSlot& current = slot();
    const std::lock_guard lock(current.mutex);
    handler = current.handler;
  }
  handler(message, file, line);
}

} // namespace Orvan::CoreAssert
