#include <AssertRecorder.h>
#include <ManualSteadyClock.h>
#include <Utils/Timer.h>

#include <gtest/gtest.h>

#include <chrono>

using Clock = std::chrono::system_clock;
using Orvan::Testing::AssertRecorder;
using Orvan::Testing::ManualSteadyClock;
using Orvan::Utils::Timer;

TEST(Timer, ZeroDurationHasElapsedImmediately)
{
  const Timer<Clock> timer(std::chrono::seconds(5));
  EXPECT_TRUE(timer.hasElapsed(Clock::duration::zero()));
}

TEST(Timer, ZeroDelayIsExpiredAtOnce)
{
  const Timer<Clock> timer(Clock::duration::zero());
  EXPECT_TRUE(timer.isExpired());
}

TEST(Timer, ExpiresOnceItsDelayHasPassed)
{
  const Timer<ManualSteadyClock> timer(std::chrono::milliseconds(50));
  EXPECT_FALSE(timer.hasElapsed(std::chrono::hours(1)));
  EXPECT_FALSE(timer.isExpired());
  ManualSteadyClock::advance(std::chrono::milliseconds(49));
  EXPECT_FALSE(timer.isExpired());
  EXPECT_TRUE(timer.hasElapsed(std::chrono::milliseconds(49)));
  ManualSteadyClock::advance(std::chrono::milliseconds(1));
  EXPECT_TRUE(timer.isExpired());
  EXPECT_FALSE(timer.hasElapsed(std::chrono::hours(1)));
}

TEST(Timer, SecondsAreConvertedToTheClocksUnitExactly)
{
  const Timer<Clock> timer(std::chrono::seconds(30));
  EXPECT_EQ(timer.delay, std::chrono::duration_cast<Clock::duration>(std::chrono::seconds(30)));
}

TEST(Timer, WithoutDelayIsExpiredReportsTheAssertion)
{
  AssertRecorder recorder;
  const Timer<Clock> timer;
  EXPECT_TRUE(recorder.messages().empty());
  timer.isExpired();
  EXPECT_EQ(recorder.messages(), std::vector<std::string>{"CORE_ASSERT failed: 'delay'"});
}

TEST(Timer, NegativeDelayAndDurationAreReported)
{
  AssertRecorder recorder;
  const Timer<Clock> timer(std::chrono::seconds(-1));
  timer.hasElapsed(std::chrono::seconds(-1));
  EXPECT_EQ(recorder.messages(), (std::vector<std::string>{"CORE_ASSERT failed: '!delay || delay->count() >= 0'",
                                                           "CORE_ASSERT failed: 'duration.count() >= 0'"}));
}
