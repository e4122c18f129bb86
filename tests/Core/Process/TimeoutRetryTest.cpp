
#include <AssertRecorder.h>
#include <Core/Event/CoreEvents.h>
#include <Core/FileInfo.h>
#include <Core/Process/TimeoutRetry.h>
#include <RecordingTest.h>
#include <WaitFor.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

using Orvan::Core::FileInfo;
using Orvan::Core::Logging::LoggingType;
using Orvan::Core::Process::CancelationToken;
using Orvan::Core::Process::TimeoutRetry;
using Orvan::Testing::AssertRecorder;
using Orvan::Testing::RecordingLogger;
using Orvan::Testing::RecordingTest;
using Clock = std::chrono::system_clock;
using Timer = Orvan::Utils::Timer<Clock>;
using namespace std::chrono_literals;
namespace Events = Orvan::Core::Event;

namespace {

class TimeoutRetryTest : public RecordingTest {};

Timer timerOf(FileInfo::Seconds seconds)
{
  return Timer(std::chrono::duration_cast<Clock::duration>(seconds));
}

} // namespace

TEST_F(TimeoutRetryTest, ZeroTimeoutGivesUpAtOnceAndSaysNothing)
{
  TimeoutRetry policy;
  const FileInfo finfo(std::string("f@host:80"));
  EXPECT_FALSE(policy(finfo, timerOf(finfo.timeout)));
  EXPECT_TRUE(events->entries().empty());
  EXPECT_TRUE(logger->lines().empty());
}

TEST_F(TimeoutRetryTest, RetriesUntilTheTimeoutThenReportsIt)
{
  TimeoutRetry policy;
  const FileInfo finfo(std::string("f@host:80&timeout=2"));
  const Timer timer = timerOf(finfo.timeout);
  EXPECT_TRUE(policy(finfo, timer));
  EXPECT_TRUE(policy(finfo, timer));
  EXPECT_TRUE(events->entries().empty());

  ASSERT_TRUE(
      Orvan::Testing::waitFor([&] { return timer.hasElapsed(std::chrono::duration_cast<Clock::duration>(2s)); }));
  EXPECT_FALSE(policy(finfo, timer));

  const auto entries = events->entries();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].info.level, LoggingType::Warning);
  EXPECT_EQ(entries[0].info.package, Orvan::Utils::ErrorManagement::PackageIdentifier::Core);
  EXPECT_EQ(entries[0].info.eventId, Events::TIMEOUT_REACHED);
  EXPECT_EQ(events->texts(), std::vector<std::string>{"Timeout reached while connecting to: 'f@host:80&timeout=2'"});
  EXPECT_EQ(logger->lines(),
            (std::vector<RecordingLogger::Line>{
                {LoggingType::Warning, "Timeout reached while connecting to: 'f@host:80&timeout=2'"}}));
}

TEST_F(TimeoutRetryTest, CancelledTokenGivesUpWhateverTheTime)
{
  CancelationToken token;
  token.requestCancel();
  TimeoutRetry policy(&token);
  const FileInfo finfo(std::string("f@host:80&timeout=30"));
  EXPECT_FALSE(policy(finfo, timerOf(finfo.timeout)));
  const auto entries = events->entries();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].info.level, LoggingType::Warning);
  EXPECT_EQ(entries[0].info.eventId, Events::CANCELLED_CONNECTION);
  EXPECT_EQ(events->texts(), std::vector<std::string>{"Cancelled connection to: 'f@host:80&timeout=30'"});
  EXPECT_EQ(logger->lines(), (std::vector<RecordingLogger::Line>{
                                 {LoggingType::Warning, "Cancelled connection to: 'f@host:80&timeout=30'"}}));
}

TEST_F(TimeoutRetryTest, UncancelledTokenLetsTheTimerDecide)
{
  CancelationToken token;
  TimeoutRetry policy(&token);
  const FileInfo finfo(std::string("f@host:80&timeout=30"));
  EXPECT_TRUE(policy(finfo, timerOf(finfo.timeout)));
  token.requestCancel();
  EXPECT_FALSE(policy(finfo, timerOf(finfo.timeout)));
  EXPECT_EQ(events->ids(), std::vector<std::uint32_t>{Events::CANCELLED_CONNECTION});
}

TEST_F(TimeoutRetryTest, ExpiredAndCancelledReportsBothTimeoutFirst)
{
  CancelationToken token;
  token.requestCancel();
  TimeoutRetry policy(&token);
  const FileInfo finfo(std::string("f@host:80&timeout=1"));
  // The timer the caller started has run out already.
  EXPECT_FALSE(policy(finfo, Timer(Clock::duration::zero())));
  EXPECT_EQ(events->ids(), (std::vector<std::uint32_t>{Events::TIMEOUT_REACHED, Events::CANCELLED_CONNECTION}));
}

TEST_F(TimeoutRetryTest, LocalDescriptorIsReportedThenHandledAlike)
{
  AssertRecorder recorder;
  TimeoutRetry policy;
  const FileInfo finfo(std::string("data.bin"));
  EXPECT_TRUE(policy(finfo, timerOf(30s)));
  EXPECT_EQ(recorder.messages(), std::vector<std::string>{"CORE_ASSERT failed: 'finfo.isRemote()'"});
  ASSERT_EQ(recorder.reports().size(), 1u);
  EXPECT_EQ(recorder.reports()[0].file, "src/Core/src/Core/Process/TimeoutRetry.cpp");
}

TEST_F(TimeoutRetryTest, TimerWithoutDelayIsReportedAndCountsAsExpired)
{
  AssertRecorder recorder;
  TimeoutRetry policy;
  const FileInfo finfo(std::string("f@host:80&timeout=5"));
  const Timer timer;
  EXPECT_FALSE(policy(finfo, timer));
  EXPECT_EQ(recorder.messages(), std::vector<std::string>{"CORE_ASSERT failed: 'delay'"});
}

TEST_F(TimeoutRetryTest, ZeroDurationHasElapsedImmediately)
{
  const Timer timer(Clock::duration(std::chrono::duration_cast<Clock::duration>(1h)));
  EXPECT_TRUE(timer.hasElapsed(Clock::duration::zero()));
  EXPECT_FALSE(timer.isExpired());
}

TEST_F(TimeoutRetryTest, TimerReadsTheWallClock)
{
  static_assert(std::is_same_v<decltype(Timer::start), Clock::time_point>);
  TimeoutRetry policy;
  const FileInfo finfo(std::string("f@host:80&timeout=2"));

  // The wall clock set back by an hour during the retries: the start now
  // lies ahead of "now", so giving up comes later.
  Timer setBack = timerOf(finfo.timeout);
  setBack.start =
      Clock::now() - std::chrono::duration_cast<Clock::duration>(3s) + std::chrono::duration_cast<Clock::duration>(1h);
  EXPECT_TRUE(policy(finfo, setBack));

  // Set forward by an hour: the time is up at once.
  Timer setForward = timerOf(finfo.timeout);
  setForward.start = Clock::now() - std::chrono::duration_cast<Clock::duration>(1h);
  EXPECT_FALSE(policy(finfo, setForward));
  EXPECT_EQ(events->ids(), std::vector<std::uint32_t>{Events::TIMEOUT_REACHED});
}

TEST_F(TimeoutRetryTest, DefaultPolicyHasNoTokenAndCopiesShareIt)
{
  const TimeoutRetry none;
  EXPECT_EQ(none.token, nullptr);
  CancelationToken token;
  const TimeoutRetry policy(&token);
  const TimeoutRetry copy(policy);
  EXPECT_EQ(copy.token, &token);
}

TEST_F(TimeoutRetryTest, OnePolicyServesSeveralThreadsAtOnce)
{
  CancelationToken token;
  TimeoutRetry policy(&token);
  const FileInfo finfo(std::string("f@host:80&timeout=30"));
  const Timer timer = timerOf(finfo.timeout);
  std::atomic<int> retries{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int n = 0; n < 50; ++n) {
        retries += policy(finfo, timer) ? 1 : 0;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(retries.load(), 200);
  EXPECT_TRUE(events->entries().empty());
}
