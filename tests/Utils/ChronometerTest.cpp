#include <ManualSteadyClock.h>
#include <Utils/Chronometer.h>
#include <WaitFor.h>

#include <gtest/gtest.h>

#include <chrono>
#include <regex>

using Orvan::Testing::ManualSteadyClock;
using Orvan::Testing::waitFor;
using Orvan::Utils::Chronometer;
using namespace std::chrono_literals;

TEST(Chronometer, FreshChronometerShowsMillisecondsWithThreeDecimals)
{
  const Chronometer chronometer;
  EXPECT_TRUE(std::regex_match(chronometer.elapsedTimeAsStr(), std::regex(R"([0-9]+\.[0-9]{3} ms)")))
      << chronometer.elapsedTimeAsStr();
}

TEST(Chronometer, ElapsedTimeGrows)
{
  const Chronometer chronometer;
  const auto started = std::chrono::steady_clock::now(); // at or after the chronometer's start
  ASSERT_TRUE(waitFor([&] { return std::chrono::steady_clock::now() - started >= 20ms; }));
  EXPECT_GE(chronometer.elapsed(), 20ms);
}

TEST(Chronometer, ReadsTheClockItIsGiven)
{
  const Chronometer chronometer(ManualSteadyClock::now);
  EXPECT_EQ(chronometer.elapsed(), 0ns);
  ManualSteadyClock::advance(12345678ns);
  EXPECT_EQ(chronometer.elapsed(), 12345678ns);
  EXPECT_EQ(chronometer.elapsedTimeAsStr(), "12.346 ms");
}

TEST(Chronometer, SecondsFromOneSecondOn)
{
  const Chronometer chronometer(ManualSteadyClock::now);
  ManualSteadyClock::advance(999999us);
  EXPECT_EQ(chronometer.elapsedTimeAsStr(), "999.999 ms");
  ManualSteadyClock::advance(1us);
  EXPECT_EQ(chronometer.elapsedTimeAsStr(), "1.0 s");
  ManualSteadyClock::advance(2200ms);
  EXPECT_TRUE(std::regex_match(chronometer.elapsedTimeAsStr(), std::regex(R"([0-9]+\.[0-9] s)")))
      << chronometer.elapsedTimeAsStr();
  EXPECT_EQ(chronometer.elapsedTimeAsStr(), "3.2 s");
}

TEST(Chronometer, CopyKeepsTheStartInstant)
{
  const Chronometer original(ManualSteadyClock::now);
  ManualSteadyClock::advance(20ms);
  const Chronometer copy(original);
  EXPECT_EQ(copy.elapsed(), 20ms);
  ManualSteadyClock::advance(5ms);
  EXPECT_EQ(copy.elapsed(), 25ms);
  EXPECT_EQ(original.elapsed(), 25ms);
}
