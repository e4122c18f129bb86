#include <AssertRecorder.h>
#include <Platform/SharedLibrary.h>
#include <Utils/ErrorIdentifierFactory.h>

#include <gtest/gtest.h>

namespace ErrorIdentifierFactory = Orvan::Utils::ErrorManagement::ErrorIdentifierFactory;
using Orvan::Utils::ErrorManagement::PackageIdentifier;

// This program does not link Orvan_Core: it loads and unloads it by hand.
TEST(LibraryLoad, PackageTwentyLivesAsLongAsTheLibraryIsLoaded)
{
  EXPECT_FALSE(ErrorIdentifierFactory::isRegistered(PackageIdentifier::Core));

  std::string error;
  void* library = Orvan::Testing::Platform::loadLibrary(ORVAN_CORE_LIBRARY, error);
  ASSERT_NE(library, nullptr) << error;
  EXPECT_TRUE(ErrorIdentifierFactory::isRegistered(PackageIdentifier::Core));
  {
    Orvan::Testing::AssertRecorder recorder;
    const auto identifier = ErrorIdentifierFactory::make(PackageIdentifier::Core, 0);
    ASSERT_NE(identifier, nullptr);
    EXPECT_EQ(identifier->getPackage(), PackageIdentifier::Core);
    EXPECT_EQ(recorder.reports().size(), 1u);
  }

  ASSERT_TRUE(Orvan::Testing::Platform::unloadLibrary(library));
  EXPECT_FALSE(ErrorIdentifierFactory::isRegistered(PackageIdentifier::Core));
  EXPECT_EQ(ErrorIdentifierFactory::make(PackageIdentifier::Core, 0), nullptr);
}
