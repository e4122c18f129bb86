#include <Utils/Chronometer.h>

#include <gtest/gtest.h>

#include <regex>
#include <thread>

using Orvan::Utils::Chronometer;

TEST(Chronometer, FreshChronometerShowsMillisecondsWithThreeDecimals)
{
  const Chronometer chronometer;
  EXPECT_TRUE(std::regex_match(chronometer.elapsedTimeAsStr(), std::regex(R"([0-9]+\.[0-9]{3} ms)")))
      << chronometer.elapsedTimeAsStr();
}

TEST(Chronometer, ElapsedTimeGrows)
{
  const Chronometer chronometer;
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_GE(chronometer.elapsed(), std::chrono::milliseconds(20));
}

TEST(Chronometer, SecondsFromOneSecondOn)
{
  const Chronometer chronometer;
  std::this_thread::sleep_for(std::chrono::milliseconds(1050));
  EXPECT_TRUE(std::regex_match(chronometer.elapsedTimeAsStr(), std::regex(R"([0-9]+\.[0-9] s)")))
      << chronometer.elapsedTimeAsStr();
}

TEST(Chronometer, CopyKeepsTheStartInstant)
{
  const Chronometer original;
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  const Chronometer copy(original);
  EXPECT_GE(copy.elapsed(), std::chrono::milliseconds(20));
}
