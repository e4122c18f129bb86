#include <Timing/Deadline.h>

#include <gtest/gtest.h>

#include <chrono>

using namespace std::chrono_literals;
using Orvan::Core::Timing::Clock;
using Orvan::Core::Timing::deadlineAfter;
using Orvan::Core::Timing::NO_DEADLINE;
using Orvan::Core::Timing::pollTimeout;
using Orvan::Core::Timing::timeUntil;

TEST(Deadline, APeriodIsAddedToThePresent)
{
  const Clock::time_point now{1h};
  EXPECT_EQ(deadlineAfter(now, 1500ms), now + 1500ms);
}

TEST(Deadline, PeriodsPastTheClocksEndNeverCome)
{
  const Clock::time_point now{1h};
  EXPECT_EQ(deadlineAfter(now, std::chrono::milliseconds::max()), NO_DEADLINE);
  EXPECT_EQ(deadlineAfter(NO_DEADLINE - 1ms, 2ms), NO_DEADLINE);
}

TEST(Deadline, NegativePeriodsCountAsZero)
{
  const Clock::time_point now{1h};
  EXPECT_EQ(deadlineAfter(now, -1ms), now);
  EXPECT_EQ(deadlineAfter(now, std::chrono::milliseconds::min()), now);
}

TEST(Deadline, AClockThatReadsBelowZeroGivesDeadlinesWithoutOverflow)
{
  const Clock::time_point early = Clock::time_point::min() + 1h;
  EXPECT_EQ(deadlineAfter(early, 5ms), early + 5ms);
  EXPECT_EQ(deadlineAfter(early, std::chrono::milliseconds::max()), NO_DEADLINE);
  EXPECT_EQ(deadlineAfter(early, std::chrono::milliseconds::min()), early);
  // The time left from far below zero to far above it does not fit the
  // clock's duration: it reads as the longest wait there is.
  EXPECT_GT(timeUntil(NO_DEADLINE - 1h, early), std::chrono::hours(24 * 365 * 100));
  EXPECT_EQ(timeUntil(early + 5ms, early), 5ms);
}

TEST(Deadline, TimeLeftIsRoundedUpAndNeverNegative)
{
  const Clock::time_point now{1h};
  EXPECT_EQ(timeUntil(now + 1500us, now), 2ms);
  EXPECT_EQ(timeUntil(now - 1s, now), 0ms);
  EXPECT_EQ(timeUntil(NO_DEADLINE, now), -1ms);
}

TEST(Deadline, PollTimeoutsAreMinusOneForNoneAndCappedOtherwise)
{
  EXPECT_EQ(pollTimeout(NO_DEADLINE), -1);
  EXPECT_EQ(pollTimeout(Clock::now() - 1s), 0);
  EXPECT_EQ(pollTimeout(NO_DEADLINE - 1ms), INT_MAX);
}
