#pragma once

#include <ctime>

namespace Orvan::Core::Platform {

// The local calendar time of `time`, computed in a thread-safe way.
std::tm localTime(std::time_t time);

} // namespace Orvan::Core::Platform
