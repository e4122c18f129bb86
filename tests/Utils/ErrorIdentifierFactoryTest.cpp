#include <Utils/ErrorIdentifierFactory.h>

#include <gtest/gtest.h>

namespace ErrorIdentifierFactory = Orvan::Utils::ErrorManagement::ErrorIdentifierFactory;
using Orvan::Utils::ErrorManagement::ErrorIdentifier;
using Orvan::Utils::ErrorManagement::PackageIdentifier;

namespace {

const auto TEST_PACKAGE = static_cast<PackageIdentifier>(901);

struct TestIdentifier : ErrorIdentifier {
  explicit TestIdentifier(unsigned int id)
      : ErrorIdentifier(TEST_PACKAGE)
      , id(id)
  {
  }
  unsigned int getErrorId() const override { return id; }
  unsigned int id;
};

} // namespace

TEST(ErrorIdentifierFactory, UnregisteredPackageGivesNull)
{
  EXPECT_FALSE(ErrorIdentifierFactory::isRegistered(TEST_PACKAGE));
  EXPECT_EQ(ErrorIdentifierFactory::make(TEST_PACKAGE, 1), nullptr);
}

TEST(ErrorIdentifierFactory, RegisteredConstructorBuildsIdentifiersUntilUnregistered)
{
  ErrorIdentifierFactory::registerConstructor(TEST_PACKAGE,
                                              [](unsigned int id) { return std::make_unique<TestIdentifier>(id); });
  EXPECT_TRUE(ErrorIdentifierFactory::isRegistered(TEST_PACKAGE));
  const auto identifier = ErrorIdentifierFactory::make(TEST_PACKAGE, 17);
  ASSERT_NE(identifier, nullptr);
  EXPECT_EQ(identifier->getPackage(), TEST_PACKAGE);
  EXPECT_EQ(identifier->getErrorId(), 17u);

  ErrorIdentifierFactory::unregisterConstructor(TEST_PACKAGE);
  EXPECT_FALSE(ErrorIdentifierFactory::isRegistered(TEST_PACKAGE));
  EXPECT_EQ(ErrorIdentifierFactory::make(TEST_PACKAGE, 17), nullptr);
}

TEST(ErrorIdentifierFactory, UnregisteringAnUnknownPackageIsHarmless)
{
  EXPECT_NO_THROW(ErrorIdentifierFactory::unregisterConstructor(static_cast<PackageIdentifier>(902)));
}
