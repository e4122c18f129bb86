#pragma once

#include <cstdint>

namespace Orvan::Utils::ErrorManagement {

// Numbers the packages of the product, so that their error numbers never
// collide. Each package owns its value.
enum class PackageIdentifier : std::int32_t {
  Core = 20,
};

} // namespace Orvan::Utils::ErrorManagement
