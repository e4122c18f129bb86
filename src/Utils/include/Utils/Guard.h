#pragma once

#include <Utils/Export.h>

#include <functional>

namespace Orvan::Utils {

// Runs an action once, when the guard goes out of scope. A moved-from guard
// runs nothing.
class ORVAN_UTILS_EXPORT Guard {
public:
  explicit Guard(const std::function<void()>& action);
  Guard(Guard&& other) noexcept;
  Guard& operator=(Guard&& other) noexcept;
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;
  ~Guard();

private:
  void run() noexcept;

  std::function<void()> action;
};

} // namespace Orvan::Utils
