#include "ProgressionRecorders.h"

#include <AssertRecorder.h>
#include <Core/Event/EventInfo.h>
#include <Core/Logging/LoggingType.h>
#include <Core/Process/Progression/ProcessProgressionLinear.h>
#include <Core/Process/Progression/ProgressionObservable.h>
#include <Core/Process/Progression/ProgressionObserver.h>
#include <ManualClock.h>
#include <RecordingLogger.h>
#include <WaitFor.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace Event = Orvan::Core::Event;
using Orvan::Core::Logging::LoggingType;
using Orvan::Core::Process::Progression::ProcessProgressionLinear;
using Orvan::Core::Process::Progression::ProgressionObservable;
using Orvan::Testing::AssertRecorder;
using Orvan::Testing::ManualClock;
using Orvan::Testing::OBSERVABLE_GONE;
using Orvan::Testing::RecordingListener;
using Orvan::Testing::RecordingLogger;
using Orvan::Testing::RecordingObserver;
using Orvan::Testing::waitFor;
using Orvan::Utils::ErrorManagement::PackageIdentifier;
using namespace std::chrono_literals;

namespace {

// Counts its deliveries, with period 0, into counters that outlive it: once
// it is destroyed, its thread has been joined and its count is final.
class CountingObserver : public Orvan::Core::Process::Progression::ProgressionObserver {
public:
  CountingObserver(std::weak_ptr<ProgressionObservable> observable, std::atomic<int>& delivered,
                   std::atomic<double>& last)
      : ProgressionObserver(std::move(observable), 0, DeferredStart{})
      , delivered(delivered)
      , last(last)
  {
    startObserving();
  }

  ~CountingObserver() override { stopObserving(); }

  void onProgressionUpdated(double progression) override
  {
    last.store(progression);
    ++delivered;
  }

private:
  std::atomic<int>& delivered;
  std::atomic<double>& last;
};

} // namespace

class ProgressionObserver : public Orvan::Testing::ObservationTest {};

TEST_F(ProgressionObserver, PeriodCoalescesAThousandChangesIntoOneDeliveryOfTheFinalFraction)
{
  const auto clock = std::make_shared<ManualClock>();
  auto counter = std::make_shared<ProcessProgressionLinear>(1000);
  RecordingObserver observer(counter, 100, clock);
  for (int step = 0; step < 1000; ++step) {
    ++*counter;
  }
  ASSERT_TRUE(clock->waitUntilSettled(1));
  clock->advance(99ms);
  ASSERT_TRUE(clock->waitUntilSettled(1));
  EXPECT_EQ(observer.count(), 0u) << "delivered before the period was over";

  clock->advance(1ms);
  ASSERT_TRUE(observer.waitForCount(1));
  EXPECT_EQ(observer.deliveries().front().progression, 1.0);

  // Nothing changes any more: no second delivery, however far the clock goes.
  ASSERT_TRUE(clock->waitUntilSettled(1));
  clock->advance(100ms);
  ASSERT_TRUE(clock->waitUntilSettled(1));
  clock->advance(1h);
  ASSERT_TRUE(clock->waitUntilSettled(1));
  EXPECT_EQ(observer.count(), 1u);
}

TEST_F(ProgressionObserver, AfterADeliveryTheNextWaitsAFullPeriodAgain)
{
  const auto clock = std::make_shared<ManualClock>();
  auto counter = std::make_shared<ProcessProgressionLinear>(4);
  RecordingObserver observer(counter, 100, clock);
  ++*counter;
  ASSERT_TRUE(clock->waitUntilSettled(1));
  clock->advance(100ms);
  ASSERT_TRUE(observer.waitForCount(1));

  ++*counter;
  // The observer may still be settled in its wait for a change when the
  // change comes: wait until it waits for the period instead.
  const std::vector<ManualClock::time_point> periodEnd{clock->now() + 100ms};
  ASSERT_TRUE(Orvan::Testing::waitFor([&] { return clock->deadlines() == periodEnd; }));
  ASSERT_TRUE(clock->waitUntilSettled(1));
  clock->advance(99ms);
  ASSERT_TRUE(clock->waitUntilSettled(1));
  EXPECT_EQ(observer.count(), 1u) << "delivered again before a full period";
  clock->advance(1ms);
  ASSERT_TRUE(observer.waitForCount(2));

  EXPECT_EQ(observer.values(), (std::vector<double>{0.25, 0.5}));
}

TEST_F(ProgressionObserver, PeriodZeroDeliversOncePerSpacedChange)
{
  auto counter = std::make_shared<ProcessProgressionLinear>(5);
  RecordingObserver observer(counter, 0);
  for (std::size_t step = 1; step <= 5; ++step) {
    ++*counter;
    ASSERT_TRUE(observer.waitForCount(step));
  }
  EXPECT_EQ(observer.values(), (std::vector<double>{0.2, 0.4, 0.6, 0.8, 1.0}));
}

TEST_F(ProgressionObserver, BackToBackChangesMayCoalesceButTheLastDeliveryIsFinal)
{
  auto counter = std::make_shared<ProcessProgressionLinear>(100);
  RecordingObserver observer(counter, 0);
  for (int step = 0; step < 100; ++step) {
    ++*counter;
  }
  ASSERT_TRUE(observer.waitForLast(1.0));
  const std::vector<double> values = observer.values();
  EXPECT_GE(values.size(), 1u);
  EXPECT_LE(values.size(), 100u);
  // A delivery may read a count whose poke is still to come; that poke then
  // brings the same reading again, so readings only never go down.
  for (std::size_t index = 1; index < values.size(); ++index) {
    EXPECT_LE(values[index - 1], values[index]);
  }
}

TEST_F(ProgressionObserver, NoChangeMeansNoDelivery)
{
  const auto clock = std::make_shared<ManualClock>();
  auto counter = std::make_shared<ProcessProgressionLinear>(5);
  RecordingObserver eager(counter, 0, clock);
  RecordingObserver patient(counter, 20, clock);
  ASSERT_TRUE(clock->waitUntilSettled(2));
  clock->advance(20ms);
  ASSERT_TRUE(clock->waitUntilSettled(2));
  clock->advance(1h);
  ASSERT_TRUE(clock->waitUntilSettled(2));
  EXPECT_EQ(eager.count(), 0u);
  EXPECT_EQ(patient.count(), 0u);
}

TEST_F(ProgressionObserver, CompletionIsDelivered)
{
  auto counter = std::make_shared<ProcessProgressionLinear>(5);
  RecordingObserver observer(counter, 0);
  auto token = counter->getToken();
  token.reset();
  ASSERT_TRUE(observer.waitForLast(1.0));
}

TEST_F(ProgressionObserver, RegisteringTwiceThenUnregisteringOnceLeavesOneRegistration)
{
  auto counter = std::make_shared<ProcessProgressionLinear>(4);
  {
    RecordingObserver observer(counter, 0);
    counter->registerObserver(&observer);
    counter->unregisterObserver(&observer);

    ++*counter;
    ASSERT_TRUE(observer.waitForLast(0.25));
  }
  // The destruction removed the remaining registration: a change no longer
  // reaches the (gone) observer, which the address sanitizer would notice.
  ++*counter;
  EXPECT_EQ(counter->captureProgression(), 0.5);
}

TEST_F(ProgressionObserver, UnregisteringAnUnknownObserverIsIgnored)
{
  AssertRecorder recorder;
  auto counter = std::make_shared<ProcessProgressionLinear>(2);
  auto other = std::make_shared<ProcessProgressionLinear>(2);
  RecordingObserver observer(counter, 0);
  other->unregisterObserver(&observer);
  other->unregisterObserver(nullptr);

  ++*counter;
  ASSERT_TRUE(observer.waitForLast(0.5));
  EXPECT_TRUE(recorder.reports().empty());
}

TEST_F(ProgressionObserver, RegisteringANullObserverIsReportedAndIgnored)
{
  AssertRecorder recorder;
  auto counter = std::make_shared<ProcessProgressionLinear>(2);
  counter->registerObserver(nullptr);

  const auto reports = recorder.reports();
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].message, "CORE_ASSERT failed: 'observer != nullptr'");
  EXPECT_EQ(reports[0].file, "src/Core/src/Core/Process/Progression/ProgressionObservable.cpp");
  EXPECT_GT(reports[0].line, 0u);

  RecordingObserver observer(counter, 0);
  ++*counter;
  ASSERT_TRUE(observer.waitForLast(0.5));
  EXPECT_EQ(recorder.reports().size(), 1u);
}

TEST_F(ProgressionObserver, StopThenDestroyReportsNoAssertionAndDeliversNothingMore)
{
  AssertRecorder recorder;
  auto counter = std::make_shared<ProcessProgressionLinear>(4);
  std::atomic<int> delivered{0};
  std::atomic<double> last{-1.0};
  {
    CountingObserver observer(counter, delivered, last);
    ++*counter;
    ASSERT_TRUE(waitFor([&] { return delivered.load() == 1; }));
    EXPECT_EQ(last.load(), 0.25);

    observer.stopObserving();
    observer.stopObserving();
    ++*counter;
    EXPECT_EQ(delivered.load(), 1);
  }
  // The thread has been joined: nothing more came.
  EXPECT_EQ(delivered.load(), 1);
  EXPECT_TRUE(recorder.reports().empty());
  EXPECT_TRUE(listener->received().empty());
}

TEST_F(ProgressionObserver, DestroyedWhileWaitingForItsPeriodEndsPromptly)
{
  AssertRecorder recorder;
  const auto clock = std::make_shared<ManualClock>();
  auto counter = std::make_shared<ProcessProgressionLinear>(4);
  const auto start = std::chrono::steady_clock::now();
  {
    RecordingObserver observer(counter, 3600 * 1000, clock);
    ++*counter;
    ASSERT_TRUE(clock->waitUntilSettled(1));
  }
  // The clock never moved: stopping woke the thread out of its hour-long
  // period.
  EXPECT_LT(std::chrono::steady_clock::now() - start, 60s);
  EXPECT_TRUE(recorder.reports().empty());
}

TEST_F(ProgressionObserver, ObservableDestroyedWithoutAChangeReportsNothing)
{
  AssertRecorder recorder;
  const auto clock = std::make_shared<ManualClock>();
  auto counter = std::make_shared<ProcessProgressionLinear>(4);
  RecordingObserver observer(counter, 0, clock);
  counter.reset();

  ASSERT_TRUE(clock->waitUntilSettled(1));
  clock->advance(1h);
  ASSERT_TRUE(clock->waitUntilSettled(1));
  EXPECT_TRUE(listener->received().empty());
  EXPECT_TRUE(logger->lines().empty());
  EXPECT_EQ(observer.count(), 0u);

  observer.stopObserving();
  EXPECT_TRUE(recorder.reports().empty());
}

TEST_F(ProgressionObserver, PendingChangeFindingTheObservableGoneReportsTheEvent)
{
  AssertRecorder recorder;
  const auto clock = std::make_shared<ManualClock>();
  auto counter = std::make_shared<ProcessProgressionLinear>(4);
  RecordingObserver observer(counter, 500, clock);
  ++*counter;
  counter.reset();
  // The period ends only now, with the observable already gone.
  ASSERT_TRUE(clock->waitUntilSettled(1));
  clock->advance(500ms);

  // The listener hears the event before it is logged: wait for both.
  ASSERT_TRUE(waitFor([&] { return !listener->received().empty() && !logger->lines().empty(); }));
  const std::vector<Event::EventInfo> events = listener->received();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].level, LoggingType::Warning);
  EXPECT_EQ(events[0].package, PackageIdentifier::Core);
  EXPECT_EQ(events[0].eventId, 12u);
  ASSERT_TRUE(events[0].value.has_value());
  ASSERT_TRUE(std::holds_alternative<std::string>(*events[0].value));
  EXPECT_EQ(std::get<std::string>(*events[0].value), OBSERVABLE_GONE);
  EXPECT_EQ(logger->lines(), (std::vector<RecordingLogger::Line>{{LoggingType::Warning, OBSERVABLE_GONE}}));
  EXPECT_EQ(observer.count(), 0u);

  // The observer is still an object whose stop and destruction work.
  observer.stopObserving();
  EXPECT_TRUE(recorder.reports().empty());
}

TEST_F(ProgressionObserver, ObserverOfAnObservableAlreadyGoneIsNeverPoked)
{
  AssertRecorder recorder;
  const auto clock = std::make_shared<ManualClock>();
  std::weak_ptr<ProgressionObservable> gone = std::make_shared<ProcessProgressionLinear>(4);
  {
    RecordingObserver observer(gone, 0, clock);
    RecordingObserver withoutObservable(std::weak_ptr<ProgressionObservable>(), 0, clock);
    ASSERT_TRUE(clock->waitUntilSettled(2));
    clock->advance(1h);
    ASSERT_TRUE(clock->waitUntilSettled(2));
    EXPECT_EQ(observer.count(), 0u);
    EXPECT_EQ(withoutObservable.count(), 0u);
  }
  EXPECT_TRUE(listener->received().empty());
  EXPECT_TRUE(recorder.reports().empty());
}

TEST_F(ProgressionObserver, SeveralObserversOfOneProgressionEachGetTheirDelivery)
{
  auto counter = std::make_shared<ProcessProgressionLinear>(2);
  RecordingObserver first(counter, 0);
  RecordingObserver second(counter, 10);
  ++*counter;
  ASSERT_TRUE(first.waitForLast(0.5));
  ASSERT_TRUE(second.waitForLast(0.5));
}
