#include <Core/Logging/Logger.h>

namespace Orvan::Core::Logging {

Logger::~Logger() = default;

} // namespace Orvan::Core::Logging
