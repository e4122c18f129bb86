#include <Utils/ErrorIdentifier.h>

namespace Orvan::Utils::ErrorManagement {

ErrorIdentifier::ErrorIdentifier(PackageIdentifier package)
    : package(package)
{
}

ErrorIdentifier::~ErrorIdentifier() = default;

} // namespace Orvan::Utils::ErrorManagement
