#include <Utils/Guard.h>

#include <utility>

namespace Orvan::Utils {

Guard::Guard(const std::function<void()>& action)
    : action(action)
{
}

Guard::Guard(Guard&& other) noexcept
    : action(std::exchange(other.action, nullptr))
{
}

Guard& Guard::operator=(Guard&& other) noexcept
{
  if (this != &other) {
    run();
    action = std::exchange(other.action, nullptr);
  }
  return *this;
}

Guard::~Guard()
{
  run();
}

void Guard::run() noexcept
{
  if (action) {
    std::exchange(action, nullptr)();
  }
}

} // namespace Orvan::Utils
