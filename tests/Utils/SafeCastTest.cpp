#include <Utils/SafeCast.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

using Orvan::Utils::safe_cast;

TEST(SafeCast, ValuesThatFitAreConverted)
{
  EXPECT_EQ(safe_cast<std::size_t>(5), 5u);
  EXPECT_EQ(safe_cast<std::uint8_t>(255), 255);
  EXPECT_EQ(safe_cast<int>(std::uint64_t{42}), 42);
  EXPECT_EQ(safe_cast<std::int8_t>(-128), -128);
}

TEST(SafeCast, ValuesThatDoNotFitThrow)
{
  EXPECT_THROW(safe_cast<std::size_t>(-1), std::out_of_range);
  EXPECT_THROW(safe_cast<std::uint8_t>(256), std::out_of_range);
  EXPECT_THROW(safe_cast<int>(std::numeric_limits<std::uint64_t>::max()), std::out_of_range);
  EXPECT_THROW(safe_cast<std::int8_t>(-129), std::out_of_range);
}
