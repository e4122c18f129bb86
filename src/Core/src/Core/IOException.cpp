#include <Core/IOException.h>

namespace Orvan::Core {

IOException::IOException(const char* message)
    : std::runtime_error(message)
{
}

IOException::IOException(const std::string& message)
    : std::runtime_error(message)
{
}

// A runtime_error's text is shared, not moved: moving copies the base part.
IOException::IOException(const IOException& other) = default;
IOException::IOException(IOException&& other) noexcept = default;
IOException& IOException::operator=(const IOException& other) = default;
IOException& IOException::operator=(IOException&& other) noexcept = default;
IOException::~IOException() = default;

} // namespace Orvan::Core
