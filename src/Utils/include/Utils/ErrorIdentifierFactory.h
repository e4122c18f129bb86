#pragma once

#include <Utils/ErrorIdentifier.h>
#include <Utils/Export.h>
#include <Utils/PackageIdentifier.h>

#include <functional>
#include <memory>

// Builds error identifiers for the packages that registered a constructor.
// Every function is safe from any thread and waits for no other thread.
namespace Orvan::Utils::ErrorManagement::ErrorIdentifierFactory {

using Constructor = std::function<std::unique_ptr<ErrorIdentifier>(unsigned int)>;

// Remembers `constructor` for `package`, replacing an earlier one.
ORVAN_UTILS_EXPORT void registerConstructor(PackageIdentifier package, Constructor constructor);

// Forgets the constructor of `package`; an unknown package is ignored.
ORVAN_UTILS_EXPORT void unregisterConstructor(PackageIdentifier package);

ORVAN_UTILS_EXPORT bool isRegistered(PackageIdentifier package);

// The identifier built by the package's constructor, or null when the package
// is not registered.
ORVAN_UTILS_EXPORT std::unique_ptr<ErrorIdentifier> make(PackageIdentifier package, unsigned int errorId);

} // namespace Orvan::Utils::ErrorManagement::ErrorIdentifierFactory
