#include <Utils/ErrorIdentifierFactory.h>

#include <map>
#include <mutex>
#include <utility>

namespace Orvan::Utils::ErrorManagement::ErrorIdentifierFactory {
namespace {

struct Registry {
  std::mutex mutex;
  std::map<PackageIdentifier, Constructor> constructors;
};

// Never destroyed: packages unregister from their own static teardown, which
// may come after this library's.
Registry& registry()
{
  static auto* const instance = new Registry;
  return *instance;
}

} // namespace

void registerConstructor(PackageIdentifier package, Constructor constructor)
{
  Registry& current = registry();
  const std::lock_guard lock(current.mutex);
  current.constructors[package] = std::move(constructor);
}

void unregisterConstructor(PackageIdentifier package)
{
  Registry& current = registry();
  const std::lock_guard lock(current.mutex);
  current.constructors.erase(package);
}

bool isRegistered(PackageIdentifier package)
{
  Registry& current = registry();
  const std::lock_guard lock(current.mutex);
  return current.constructors.count(package) != 0;
}

std::unique_ptr<ErrorIdentifier> make(PackageIdentifier package, unsigned int errorId)
{
  Constructor constructor;
  {
    Registry& current = registry();
    const std::lock_guard lock(current.mutex);
    const auto found = current.constructors.find(package);
    if (found == current.constructors.end()) {
      return nullptr;
    }
    constructor = found->second;
  }
  // Called without the lock: a constructor may assert, log or register.
  return constructor(errorId);
}

} // namespace Orvan::Utils::ErrorManagement::ErrorIdentifierFactory
