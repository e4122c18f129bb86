#include <Core/Exception.h>

namespace Orvan::Core {

Exception::Exception() = default;

Exception::Exception(const std::string& message)
    : message(message)
{
}

Exception::Exception(const Exception& other) = default;

Exception& Exception::operator=(const Exception& other) = default;

Exception::~Exception() = default;

const char* Exception::what() const noexcept
{
  return message.c_str();
}

} // namespace Orvan::Core
