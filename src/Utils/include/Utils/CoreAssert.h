#pragma once

#include <Utils/Export.h>

#include <functional>
#include <string>

namespace Orvan::CoreAssert {

// Receives every failed assertion. It may return: callers then carry on as if
// the condition had held.
using AssertHandler = std::function<void(const std::string& message, const char* file, unsigned long long line)>;

// Installs `handler` and returns the one it replaces. An empty handler
// restores the default one, which writes "file:line: message" to standard
// error.
ORVAN_UTILS_EXPORT AssertHandler setAssertHandler(AssertHandler handler);

// Hands a failed assertion to the installed handler. Safe from any thread.
ORVAN_UTILS_EXPORT void assertFailed(const std::string& message, const char* file, unsigned long long line);

} // namespace Orvan::CoreAssert

// Reports `condition` when it is false. The condition is evaluated like the
// condition of an ordinary `if`, every time the macro is reached.
#define CORE_ASSERT(condition)                                                                                         \
  do {                                                                                                                 \
    if (!(condition)) {                                                                                                \
      ::Orvan::CoreAssert::assertFailed("CORE_ASSERT failed: '" #condition "'", __FILE__, __LINE__);                   \
    }                                                                                                                  \
  } while (false)

// Marks a place control must never reach; `text` is a string literal.
#define CORE_NEVER_COME_HERE(text)                                                                                     \
  ::Orvan::CoreAssert::assertFailed("CORE_NEVER_COME_HERE triggered: '" #text "'", __FILE__, __LINE__)
