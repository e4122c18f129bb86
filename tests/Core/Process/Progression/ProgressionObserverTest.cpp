#include "ProgressionRecorders.h"

#include <AssertRecorder.h>
#include <Core/Event/EventInfo.h>
#include <Core/Logging/LoggingType.h>
#include <Core/Process/Progression/ProcessProgressionLinear.h>
#include <Core/Process/Progression/ProgressionObservable.h>
#include <Core/Process/Progression/ProgressionObserver.h>
#include <RecordingLogger.h>
#include <WaitFor.h>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <variant>
#include <vector>

namespace Event = Orvan::Core::Event;
using Orvan::Core::Logging::LoggingType;
using Orvan::Core::Process::Progression::ProcessProgressionLinear;
using Orvan::Core::Process::Progression::ProgressionObservable;
using Orvan::Testing::AssertRecorder;
using Orvan::Testing::OBSERVABLE_GONE;
using Orvan::Testing::RecordingListener;
using Orvan::Testing::RecordingLogger;
using Orvan::Testing::RecordingObserver;
using Orvan::Testing::waitFor;
using Orvan::Utils::ErrorManagement::PackageIdentifier;
using namespace std::chrono_literals;

namespace {

// Long enough for a thread that could deliver to do so: only used to show
// that nothing comes.
constexpr auto QUIET_SPELL = 200ms;

// Tests that need the machine to set up a scene within a period start again
// when a busy machine was too slow for it.
constexpr int ATTEMPTS = 5;

} // namespace

class ProgressionObserver : public Orvan::Testing::ObservationTest {};

TEST_F(ProgressionObserver, PeriodCoalescesAThousandChangesIntoOneDeliveryOfTheFinalFraction)
{
  for (int attempt = 0; attempt < ATTEMPTS; ++attempt) {
    auto counter = std::make_shared<ProcessProgressionLinear>(1000);
    const auto constructed = std::chrono::steady_clock::now();
    RecordingObserver observer(counter, 100);
    for (int step = 0; step < 1000; ++step) {
      ++*counter;
    }
    if (std::chrono::steady_clock::now() - constructed >= 50ms) {
      continue;
    }

    ASSERT_TRUE(observer.waitForCount(1));
    const RecordingObserver::Delivery delivery = observer.deliveries().front();
    EXPECT_EQ(delivery.progression, 1.0);
    EXPECT_GE(delivery.at - constructed, 90ms);

    // Nothing changes any more: no second delivery, however long we wait.
    std::this_thread::sleep_for(QUIET_SPELL);
    EXPECT_EQ(observer.count(), 1u);
    return;
  }
  FAIL() << "a thousand changes never fitted within 50 ms of the observer's construction";
}

TEST_F(ProgressionObserver, AfterADeliveryTheNextWaitsAFullPeriodAgain)
{
  auto counter = std::make_shared<ProcessProgressionLinear>(4);
  RecordingObserver observer(counter, 100);
  ++*counter;
  ASSERT_TRUE(observer.waitForCount(1));
  ++*counter;
  ASSERT_TRUE(observer.waitForCount(2));

  const auto deliveries = observer.deliveries();
  EXPECT_EQ(deliveries[0].progression, 0.25);
  EXPECT_EQ(deliveries[1].progression, 0.5);
  EXPECT_GE(deliveries[1].at - deliveries[0].at, 90ms);
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
  auto counter = std::make_shared<ProcessProgressionLinear>(5);
  RecordingObserver eager(counter, 0);
  RecordingObserver patient(counter, 20);
  std::this_thread::sleep_for(QUIET_SPELL);
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
  {
    RecordingObserver observer(counter, 0);
    ++*counter;
    ASSERT_TRUE(observer.waitForLast(0.25));

    observer.stopObserving();
    observer.stopObserving();
    ++*counter;
    std::this_thread::sleep_for(QUIET_SPELL);
    EXPECT_EQ(observer.count(), 1u);
  }
  EXPECT_TRUE(recorder.reports().empty());
  EXPECT_TRUE(listener->received().empty());
}

TEST_F(ProgressionObserver, DestroyedWhileWaitingForItsPeriodEndsPromptly)
{
  AssertRecorder recorder;
  auto counter = std::make_shared<ProcessProgressionLinear>(4);
  const auto start = std::chrono::steady_clock::now();
  {
    RecordingObserver observer(counter, 3600 * 1000);
    ++*counter;
  }
  // Stopping wakes the thread out of its hour-long period.
  EXPECT_LT(std::chrono::steady_clock::now() - start, 60s);
  EXPECT_TRUE(recorder.reports().empty());
}

TEST_F(ProgressionObserver, ObservableDestroyedWithoutAChangeReportsNothing)
{
  AssertRecorder recorder;
  auto counter = std::make_shared<ProcessProgressionLinear>(4);
  RecordingObserver observer(counter, 0);
  counter.reset();

  std::this_thread::sleep_for(QUIET_SPELL);
  EXPECT_TRUE(listener->received().empty());
  EXPECT_TRUE(logger->lines().empty());
  EXPECT_EQ(observer.count(), 0u);

  observer.stopObserving();
  EXPECT_TRUE(recorder.reports().empty());
}

TEST_F(ProgressionObserver, PendingChangeFindingTheObservableGoneReportsTheEvent)
{
  AssertRecorder recorder;
  for (int attempt = 0; attempt < ATTEMPTS; ++attempt) {
    // Fresh receivers: an earlier attempt may have reported in the meantime.
    installFreshReceivers();

    auto counter = std::make_shared<ProcessProgressionLinear>(4);
    const auto constructed = std::chrono::steady_clock::now();
    RecordingObserver observer(counter, 500);
    ++*counter;
    counter.reset();
    if (std::chrono::steady_clock::now() - constructed >= 500ms) {
      // The delivery may have come before the observable went.
      continue;
    }

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
    return;
  }
  FAIL() << "the observable was never destroyed within the observer's first period";
}

TEST_F(ProgressionObserver, ObserverOfAnObservableAlreadyGoneIsNeverPoked)
{
  AssertRecorder recorder;
  std::weak_ptr<ProgressionObservable> gone = std::make_shared<ProcessProgressionLinear>(4);
  {
    RecordingObserver observer(gone, 0);
    RecordingObserver withoutObservable(std::weak_ptr<ProgressionObservable>(), 0);
    std::this_thread::sleep_for(QUIET_SPELL);
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
