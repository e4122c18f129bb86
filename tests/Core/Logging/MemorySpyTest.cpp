// The spies that pause here run on a clock the tests move by hand: a pause
// ends when the test says so, and a test that shows that no sample comes
// moves the clock past the period before looking.
#include "LogFile.h"

#include <Core/Logging/LevelLogger.h>
#include <Core/Logging/MemorySpy.h>
#include <ManualClock.h>
#include <Timing/ClockOverride.h>
#include <Utils/CoreAssert.h>
#include <WaitFor.h>

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

using Orvan::Core::Logging::formatMemorySize;
using Orvan::Core::Logging::formatMemoryUsage;
using Orvan::Core::Logging::LoggingType;
using Orvan::Core::Logging::MemorySpy;
using Orvan::Core::Logging::MemoryUsageCapture;
using Orvan::Core::Timing::ClockOverride;
using Orvan::Testing::isMemorySample;
using Orvan::Testing::ManualClock;
using Orvan::Testing::waitFor;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

constexpr std::uint64_t KIB = 1024;
constexpr std::uint64_t MIB = 1024 * KIB;
constexpr std::uint64_t GIB = 1024 * MIB;

// Keeps the verbose lines it receives; other levels are not expected from a
// spy.
class SampleRecorder : public Orvan::Core::Logging::LevelLogger {
public:
  void triggerLogMemory() override { unexpected("triggerLogMemory"); }

  std::vector<std::string> received() const
  {
    const std::lock_guard lock(mutex);
    return samples;
  }

  std::size_t count() const { return received().size(); }

protected:
  void write(LoggingType type, const std::string& message) override
  {
    if (type != LoggingType::Verbose) {
      unexpected("level " + std::to_string(static_cast<int>(type)) + " " + message);
      return;
    }
    const std::lock_guard lock(mutex);
    samples.push_back(message);
  }

private:
  void unexpected(const std::string& call)
  {
    const std::lock_guard lock(mutex);
    samples.push_back("unexpected " + call);
  }

  mutable std::mutex mutex;
  std::vector<std::string> samples;
};

// Holds every sample until released, so that the spy can be caught while
// it is logging.
class BlockingLogger : public SampleRecorder {
public:
  void release()
  {
    {
      const std::lock_guard lock(gate);
      open = true;
    }
    opened.notify_all();
  }

protected:
  void write(LoggingType type, const std::string& message) override
  {
    SampleRecorder::write(type, message);
    std::unique_lock lock(gate);
    opened.wait(lock, [this] { return open; });
  }

private:
  std::mutex gate;
  std::condition_variable opened;
  bool open = false;
};

struct SecondStart {};

} // namespace

TEST(MemorySize, AboveTenGibibytesShowsWholeGigabytes)
{
  EXPECT_EQ(formatMemorySize(16 * GIB), "16GB");
  EXPECT_EQ(formatMemorySize(10 * GIB + 1), "10GB");
  EXPECT_EQ(formatMemorySize(10737418241ull), "10GB");
  EXPECT_EQ(formatMemorySize(1024 * GIB + 5 * MIB), "1024GB");
}

TEST(MemorySize, BetweenHundredMebibytesAndTenGibibytesShowsMegabytes)
{
  EXPECT_EQ(formatMemorySize(8 * GIB), "8 000MB");
  EXPECT_EQ(formatMemorySize(GIB + GIB / 2), "1 512MB");
  EXPECT_EQ(formatMemorySize(512 * MIB), "512MB");
  EXPECT_EQ(formatMemorySize(100 * MIB + 1), "100MB");
  EXPECT_EQ(formatMemorySize(GIB + 1), "1 000MB");
  EXPECT_EQ(formatMemorySize(3 * GIB + 7 * MIB + 999 * KIB), "3 007MB");
}

TEST(MemorySize, UpToHundredMebibytesShowsKilobytes)
{
  EXPECT_EQ(formatMemorySize(50 * MIB + 20 * KIB), "50 020KB");
  EXPECT_EQ(formatMemorySize(5 * KIB), "005KB");
  EXPECT_EQ(formatMemorySize(MIB + 1), "1 000KB");
  EXPECT_EQ(formatMemorySize(1023), "000KB");
  EXPECT_EQ(formatMemorySize(0), "000KB");
}

TEST(MemorySize, BoundariesAreStrict)
{
  EXPECT_EQ(formatMemorySize(1048576), "000KB");
  EXPECT_EQ(formatMemorySize(1073741824), "000MB");
  EXPECT_EQ(formatMemorySize(104857600), "100 000KB");
  EXPECT_EQ(formatMemorySize(10737418240ull), "10 000MB");
  EXPECT_EQ(formatMemorySize(10737418241ull), "10GB");
}

TEST(MemorySampleLine, SixFiguresSeparatedByTabsWithNoTrailingTab)
{
  MemoryUsageCapture usage;
  usage.virtualTotal = 16 * GIB;
  usage.virtualUsed = 8 * GIB;
  usage.virtualUsedByApplication = 50 * MIB + 20 * KIB;
  usage.physicalTotal = 12 * GIB;
  usage.physicalUsed = GIB + GIB / 2;
  usage.physicalUsedByApplication = 5 * KIB;
  EXPECT_EQ(formatMemoryUsage(usage), "[MEMORY] Virtual: 16GB\t8 000MB\t50 020KB\tPhysical:12GB\t1 512MB\t005KB");
}

TEST(MemorySpy, TakesItsFirstSampleRightAfterStart)
{
  const auto clock = std::make_shared<ManualClock>();
  SampleRecorder logger;
  MemorySpy spy(logger, 1h);
  ClockOverride::use(spy, clock);
  spy.start();
  // Pausing, with the clock where it was at the start.
  ASSERT_TRUE(clock->waitUntilSettled(1));
  const auto samples = logger.received();
  ASSERT_EQ(samples.size(), 1u);
  EXPECT_TRUE(isMemorySample(samples.front())) << samples.front();
}

TEST(MemorySpy, PeriodOfZeroSamplesBackToBack)
{
  SampleRecorder logger;
  MemorySpy spy(logger, 0ms);
  spy.start();
  EXPECT_TRUE(waitFor([&] { return logger.count() >= 100; }));
}

TEST(MemorySpy, NegativePeriodSamplesBackToBack)
{
  SampleRecorder logger;
  MemorySpy spy(logger, -5ms);
  spy.start();
  EXPECT_TRUE(waitFor([&] { return logger.count() >= 100; }));
}

TEST(MemorySpy, WakeUpDuringAPauseSamplesAtOnceAndTheNextSampleFollowsAFullPeriodLater)
{
  const auto period = 1500ms;
  const auto clock = std::make_shared<ManualClock>();
  SampleRecorder logger;
  MemorySpy spy(logger, period);
  ClockOverride::use(spy, clock);
  spy.start();
  ASSERT_TRUE(clock->waitUntilSettled(1));
  clock->advance(500ms);
  ASSERT_TRUE(clock->waitUntilSettled(1));
  ASSERT_EQ(logger.count(), 1u);

  // The spy is pausing: the wake-up cuts the pause short.
  spy.wakeUp();
  ASSERT_TRUE(waitFor([&] { return logger.count() >= 2; }));
  ASSERT_TRUE(clock->waitUntilSettled(1));
  EXPECT_EQ(clock->deadlines(), std::vector<ManualClock::time_point>{clock->now() + period});

  // A full pause follows the woken sample.
  clock->advance(period - 1ms);
  ASSERT_TRUE(clock->waitUntilSettled(1));
  EXPECT_EQ(logger.count(), 2u);
  clock->advance(1ms);
  ASSERT_TRUE(waitFor([&] { return logger.count() >= 3; }));
  ASSERT_TRUE(clock->waitUntilSettled(1));

  const auto samples = logger.received();
  EXPECT_EQ(samples.size(), 3u);
  for (const auto& sample : samples) {
    EXPECT_TRUE(isMemorySample(sample)) << sample;
  }
}

TEST(MemorySpy, WakeUpBeforeStartHasNoEffect)
{
  SampleRecorder logger;
  MemorySpy spy(logger, 1h);
  spy.wakeUp();
  EXPECT_EQ(logger.count(), 0u);
}

TEST(MemorySpy, DestroyingAWaitingSpyReturnsPromptly)
{
  const auto clock = std::make_shared<ManualClock>();
  SampleRecorder logger;
  auto spy = std::make_unique<MemorySpy>(logger, 1h);
  ClockOverride::use(*spy, clock);
  spy->start();
  ASSERT_TRUE(clock->waitUntilSettled(1));
  // The clock stays where it is: only the stop can end the pause.
  const auto start = Clock::now();
  spy.reset();
  EXPECT_LT(Clock::now() - start, 30s); // far below the hour of the period
  EXPECT_EQ(logger.count(), 1u);
}

TEST(MemorySpy, DestroyingASamplingSpyWaitsAtMostOnePeriod)
{
  const auto period = 1s;
  BlockingLogger logger;
  auto spy = std::make_unique<MemorySpy>(logger, period);
  spy->start();
  ASSERT_TRUE(waitFor([&] { return logger.count() == 1; })); // now held inside verbose()

  const auto start = Clock::now();
  std::thread destroyer([&] { spy.reset(); });
  logger.release();
  destroyer.join();
  EXPECT_LT(Clock::now() - start, period + 30s);
  EXPECT_LE(logger.count(), 2u);
}

TEST(MemorySpy, DestroyingASpyThatNeverStartedReturnsAtOnce)
{
  SampleRecorder logger;
  {
    MemorySpy spy(logger, 1h);
  }
  EXPECT_EQ(logger.count(), 0u);
}

TEST(MemorySpy, SecondStartIsReportedFromItsFixedPlace)
{
  struct Report {
    std::string message;
    std::string file;
    unsigned long long line;
  };
  std::vector<Report> reports;
  // The handler throws, so that the second start goes no further than its
  // report (returning would replace a running thread and end the process).
  const auto previous =
      Orvan::CoreAssert::setAssertHandler([&](const std::string& message, const char* file, unsigned long long line) {
        reports.push_back({message, file, line});
        throw SecondStart{};
      });

  SampleRecorder logger;
  MemorySpy spy(logger, 1h);
  spy.start();
  EXPECT_THROW(spy.start(), SecondStart);
  Orvan::CoreAssert::setAssertHandler(previous);

  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].message, "CORE_ASSERT failed: 'spyerThread == nullptr'");
  EXPECT_EQ(reports[0].file, "src/Core/src/Core/Logging/MemorySpy.cpp");
  EXPECT_EQ(reports[0].line, 88u);
  // The first thread carries on and is stopped with the spy.
  EXPECT_TRUE(waitFor([&] { return logger.count() >= 1; }));
}

// Periods too long for the clock (the largest count of milliseconds, three
// centuries) pause until a wake-up: the first sample, then one per wake-up,
// and nothing else, however far the clock goes (a deadline that overflowed
// would have come long ago).
TEST(MemorySpy, HugePeriodsSampleOnlyAtStartAndOnWakeUp)
{
  for (const std::chrono::milliseconds period :
       {std::chrono::milliseconds::max(), std::chrono::milliseconds(std::chrono::hours(24 * 365 * 300))}) {
    const auto clock = std::make_shared<ManualClock>();
    SampleRecorder logger;
    MemorySpy spy(logger, period);
    ClockOverride::use(spy, clock);
    spy.start();
    ASSERT_TRUE(clock->waitUntilSettled(1));
    ASSERT_EQ(logger.count(), 1u);
    EXPECT_EQ(clock->deadlines(), std::vector<ManualClock::time_point>{ManualClock::time_point::max()});
    for (std::size_t expected = 2; expected <= 3; ++expected) {
      spy.wakeUp();
      ASSERT_TRUE(waitFor([&] { return logger.count() >= expected; }));
      ASSERT_TRUE(clock->waitUntilSettled(1));
    }
    // Two centuries on, still nothing comes unasked.
    clock->advance(std::chrono::hours(24 * 365 * 200));
    ASSERT_TRUE(clock->waitUntilSettled(1));
    EXPECT_EQ(logger.count(), 3u);
  }
}
