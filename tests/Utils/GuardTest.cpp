#include <Utils/Guard.h>

#include <gtest/gtest.h>

#include <utility>

using Orvan::Utils::Guard;

TEST(Guard, RunsItsActionOnceAtDestruction)
{
  int calls = 0;
  {
    Guard guard([&] { ++calls; });
    EXPECT_EQ(calls, 0);
  }
  EXPECT_EQ(calls, 1);
}

TEST(Guard, MovedFromGuardRunsNothing)
{
  int calls = 0;
  {
    Guard first([&] { ++calls; });
    Guard second(std::move(first));
  }
  EXPECT_EQ(calls, 1);
}

TEST(Guard, MoveAssignmentRunsTheReplacedAction)
{
  int first = 0;
  int second = 0;
  {
    Guard guard([&] { ++first; });
    guard = Guard([&] { ++second; });
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 0);
  }
  EXPECT_EQ(first, 1);
  EXPECT_EQ(second, 1);
}

TEST(Guard, EmptyActionIsHarmless)
{
  EXPECT_NO_THROW({ Guard guard{std::function<void()>()}; });
}
