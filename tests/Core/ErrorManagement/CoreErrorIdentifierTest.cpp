#include <AssertRecorder.h>
#include <Core/ErrorManagement/CoreErrors.h>
#include <Core/ErrorManagement/PackageIdEnumErrorIdentifier.h>
#include <Utils/ErrorIdentifierFactory.h>

#include <gtest/gtest.h>

#include <limits>

namespace ErrorIdentifierFactory = Orvan::Utils::ErrorManagement::ErrorIdentifierFactory;
using Orvan::Testing::AssertRecorder;
using Orvan::Utils::ErrorManagement::PackageIdentifier;

TEST(CoreErrorIdentifier, PackageTwentyIsRegisteredWhileTheLibraryIsLoaded)
{
  EXPECT_EQ(static_cast<int>(PackageIdentifier::Core), 20);
  EXPECT_TRUE(ErrorIdentifierFactory::isRegistered(PackageIdentifier::Core));
}

TEST(CoreErrorIdentifier, EveryRequestIsReportedAndStillAnswered)
{
  AssertRecorder recorder;
  const auto identifier = ErrorIdentifierFactory::make(PackageIdentifier::Core, 0);
  ASSERT_NE(identifier, nullptr);
  EXPECT_EQ(identifier->getPackage(), PackageIdentifier::Core);
  EXPECT_EQ(identifier->getErrorId(), 0u);

  const auto reports = recorder.reports();
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].message, "CORE_ASSERT failed: 'errorId < Orvan::Core::ErrorManagement::CoreErrors::LAST_ERROR'");
  EXPECT_EQ(reports[0].file, "src/Core/src/ErrorManagement/CoreErrorsRegistration.cpp");
}

TEST(CoreErrorIdentifier, LargeNumbersAreKeptUnchanged)
{
  AssertRecorder recorder;
  const unsigned int largest = std::numeric_limits<unsigned int>::max();
  const auto identifier = ErrorIdentifierFactory::make(PackageIdentifier::Core, largest);
  ASSERT_NE(identifier, nullptr);
  EXPECT_EQ(identifier->getErrorId(), largest);
  EXPECT_EQ(recorder.reports().size(), 1u);
}

TEST(CoreErrorIdentifier, IdentifierIsAPackageIdEnumErrorIdentifier)
{
  AssertRecorder recorder;
  const auto identifier = ErrorIdentifierFactory::make(PackageIdentifier::Core, 9);
  EXPECT_NE(dynamic_cast<const Orvan::Core::ErrorManagement::PackageIdEnumErrorIdentifier*>(identifier.get()), nullptr);
  EXPECT_EQ(Orvan::Core::ErrorManagement::PackageIdEnumErrorIdentifier(9).getErrorId(), 9u);
}
