#pragma once

#include <Core/Export.h>
#include <Utils/ErrorIdentifier.h>

namespace Orvan::Core::ErrorManagement {

// An error of the library's package (20) with its number.
struct ORVAN_CORE_EXPORT PackageIdEnumErrorIdentifier : public Utils::ErrorManagement::ErrorIdentifier {
  explicit PackageIdEnumErrorIdentifier(unsigned int errorId);
  ~PackageIdEnumErrorIdentifier() override;

  unsigned int getErrorId() const override;

private:
  unsigned int errorId;
};

} // namespace Orvan::Core::ErrorManagement
