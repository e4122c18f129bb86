// The version, as a string and as numbers the preprocessor can compare.

#include <Core/Version.h>

#include <gtest/gtest.h>

#include <string>

#if !defined(ORVAN_CORE_VERSION_MAJOR) || !defined(ORVAN_CORE_VERSION_MINOR) || !defined(ORVAN_CORE_VERSION_PATCH)
#  error "Core/Version.h defines the version as numbers"
#endif

#if ORVAN_CORE_VERSION_MAJOR > 7 || (ORVAN_CORE_VERSION_MAJOR == 7 && ORVAN_CORE_VERSION_MINOR >= 6)
constexpr bool AT_LEAST_7_6 = true;
#else
constexpr bool AT_LEAST_7_6 = false;
#endif

TEST(Version, TheNumbersAreTheString)
{
  EXPECT_TRUE(AT_LEAST_7_6);
  EXPECT_EQ(std::to_string(ORVAN_CORE_VERSION_MAJOR) + "." + std::to_string(ORVAN_CORE_VERSION_MINOR) + "." +
                std::to_string(ORVAN_CORE_VERSION_PATCH),
            Orvan::Core::VERSION);
  EXPECT_STREQ(Orvan::Core::VERSION, "7.6.3");
}
