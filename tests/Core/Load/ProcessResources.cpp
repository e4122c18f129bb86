#include "ProcessResources.h"

#if defined(_WIN32)

#  include <windows.h>

namespace Orvan::Testing::ProcessResources {

std::optional<std::size_t> openHandleCount()
{
  DWORD count = 0;
  if (!::GetProcessHandleCount(::GetCurrentProcess(), &count) || count == 0) {
    return std::nullopt;
  }
  return count;
}

std::optional<bool> waitingInReceive(unsigned long long /*threadId*/)
{
  return std::nullopt;
}

} // namespace Orvan::Testing::ProcessResources

#else

#  include <filesystem>
#  include <fstream>
#  include <string>

#  include <sys/syscall.h>

namespace Orvan::Testing::ProcessResources {

std::optional<std::size_t> openHandleCount()
{
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    ++count;
  }
  return count;
}

std::optional<bool> waitingInReceive(unsigned long long threadId)
{
  // The first field is the number of the system call the thread is blocked
  // in, or "running"; recv is the recvfrom system call.
  std::ifstream file("/proc/self/task/" + std::to_string(threadId) + "/syscall");
  std::string call;
  if (!(file >> call)) {
    return std::nullopt;
  }
  return call == std::to_string(SYS_recvfrom);
}

} // namespace Orvan::Testing::ProcessResources

#endif
