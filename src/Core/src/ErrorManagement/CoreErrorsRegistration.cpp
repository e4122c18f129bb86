#include <Core/ErrorManagement/CoreErrors.h>
#include <Core/ErrorManagement/PackageIdEnumErrorIdentifier.h>
#include <Utils/CoreAssert.h>
#include <Utils/ErrorIdentifierFactory.h>

#include <memory>

namespace Orvan::Core::ErrorManagement {
namespace {

using Utils::ErrorManagement::ErrorIdentifier;
using Utils::ErrorManagement::PackageIdentifier;
namespace ErrorIdentifierFactory = Utils::ErrorManagement::ErrorIdentifierFactory;

std::unique_ptr<ErrorIdentifier> makeCoreErrorIdentifier(unsigned int errorId)
{
  // The library defines no error yet, so every number is out of range and
  // reported; the identifier is still built with the number asked for.
  CORE_ASSERT(errorId < Orvan::Core::ErrorManagement::CoreErrors::LAST_ERROR);
  return std::make_unique<PackageIdEnumErrorIdentifier>(errorId);
}

// Registers the library's package while the library is loaded.
struct Registration {
  Registration()
  {
    ErrorIdentifierFactory::registerConstructor(PackageIdentifier::Core,
                                                ErrorIdentifierFactory::Constructor(makeCoreErrorIdentifier));
  }
  ~Registration() { ErrorIdentifierFactory::unregisterConstructor(PackageIdentifier::Core); }
  Registration(const Registration&) = delete;
  Registration& operator=(const Registration&) = delete;
};

const Registration registration;

} // namespace
} // namespace Orvan::Core::ErrorManagement
