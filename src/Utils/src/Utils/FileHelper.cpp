#include <Utils/FileHelper.h>

#include <cerrno>
#include <utility>

namespace Orvan::Utils::FileHelper {

std::filesystem::path toPath(std::string text)
{
  return std::filesystem::u8path(std::move(text));
}

std::string toString(std::filesystem::path path)
{
  return path.u8string();
}

std::system_error makeSystemError(const char* message)
{
  return std::system_error(errno, std::generic_category(), message);
}

} // namespace Orvan::Utils::FileHelper
