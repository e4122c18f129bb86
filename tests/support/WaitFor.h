#pragma once

#include <chrono>
#include <thread>

namespace Orvan::Testing {

// Generous by design: CI machines are slow and shared.
inline constexpr std::chrono::seconds DEFAULT_DEADLINE{30};

// Polls `condition` until it holds or `deadline` has passed; returns its last
// answer. For conditions that nothing can signal directly.
template<class Condition>
bool waitFor(Condition condition, std::chrono::steady_clock::duration deadline = DEFAULT_DEADLINE)
{
  const auto end = std::chrono::steady_clock::now() + deadline;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= end) {
      return condition();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

} // namespace Orvan::Testing
