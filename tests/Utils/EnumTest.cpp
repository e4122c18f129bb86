#include <Utils/Enum.h>

#include <gtest/gtest.h>

namespace {
enum class Colour { Red, Green, Blue };
} // namespace

template<>
struct Orvan::Utils::Enum::Traits<Colour> {
  static constexpr std::size_t count = 3;
};

TEST(Enum, CountComesFromTheEnumerationsTraits)
{
  static_assert(Orvan::Utils::Enum::count<Colour>() == 3);
  EXPECT_EQ(Orvan::Utils::Enum::count<Colour>(), 3u);
}
