#pragma once

#include <Utils/Export.h>
#include <Utils/PackageIdentifier.h>

namespace Orvan::Utils::ErrorManagement {

// Base of every error identifier: the owning package plus a number within it.
class ORVAN_UTILS_EXPORT ErrorIdentifier {
public:
  explicit ErrorIdentifier(PackageIdentifier package);
  ErrorIdentifier(const ErrorIdentifier&) = default;
  ErrorIdentifier& operator=(const ErrorIdentifier&) = default;
  virtual ~ErrorIdentifier();

  // The error number within the package.
  virtual unsigned int getErrorId() const = 0;

  PackageIdentifier getPackage() const noexcept { return package; }

private:
  PackageIdentifier package;
};

} // namespace Orvan::Utils::ErrorManagement
