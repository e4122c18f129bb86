#include <Core/ErrorManagement/PackageIdEnumErrorIdentifier.h>

namespace Orvan::Core::ErrorManagement {

PackageIdEnumErrorIdentifier::PackageIdEnumErrorIdentifier(unsigned int errorId)
    : ErrorIdentifier(Utils::ErrorManagement::PackageIdentifier::Core)
    , errorId(errorId)
{
}

PackageIdEnumErrorIdentifier::~PackageIdEnumErrorIdentifier() = default;

unsigned int PackageIdEnumErrorIdentifier::getErrorId() const
{
  return errorId;
}

} // namespace Orvan::Core::ErrorManagement
