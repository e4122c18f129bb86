#include "ProgressionRecorders.h"

#include <AssertRecorder.h>
#include <Core/Process/Progression/ProcessProgressionLinear.h>
#include <Core/Process/Progression/ProgressionObserver.h>
#include <ManualClock.h>
#include <Timing/ClockOverride.h>
#include <Timing/WorkerClock.h>
#include <WaitFor.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using Orvan::Core::Process::Progression::ProcessProgressionLinear;
using Orvan::Core::Process::Progression::ProgressionObservable;
using Orvan::Core::Process::Progression::ProgressionObserver;
using Orvan::Testing::AssertRecorder;
using Orvan::Testing::ManualClock;
using Orvan::Testing::waitFor;
using namespace std::chrono_literals;

namespace {

// Counts its deliveries; built deferred, it starts only when told to.
class UnstartedObserver : public ProgressionObserver {
public:
  UnstartedObserver(std::weak_ptr<ProgressionObservable> observable, unsigned int period,
                    std::shared_ptr<Orvan::Core::Timing::WorkerClock> clock = nullptr)
      : ProgressionObserver(std::move(observable), period, DeferredStart{})
  {
    if (clock != nullptr) {
      Orvan::Core::Timing::ClockOverride::use(*this, std::move(clock));
    }
  }

  ~UnstartedObserver() override { stopObserving(); }

  void onProgressionUpdated(double) override { ++delivered; }

  std::atomic<int> delivered{0};
};

// A second base class that takes a while to build, as a subclass's own parts
// may.
struct SlowlyBuiltPart {
  SlowlyBuiltPart()
  {
    const auto end = std::chrono::steady_clock::now() + 100us;
    while (std::chrono::steady_clock::now() < end) {
    }
    built.store(true);
  }

  std::atomic<bool> built{false};
};

// Checks, at every delivery, that its second base has been built.
class ObserverWithASlowPart : public ProgressionObserver, public SlowlyBuiltPart {
public:
  explicit ObserverWithASlowPart(std::weak_ptr<ProgressionObservable> observable)
      : ProgressionObserver(std::move(observable), 0, DeferredStart{})
  {
    startObserving();
  }

  ~ObserverWithASlowPart() override { stopObserving(); }

  void onProgressionUpdated(double) override
  {
    ++delivered;
    if (!built.load()) {
      ++early;
    }
  }

  std::atomic<int> delivered{0};
  std::atomic<int> early{0};
};

} // namespace

TEST(DeferredObserver, DeliversNothingBeforeItStarts)
{
  const auto clock = std::make_shared<ManualClock>();
  auto counter = std::make_shared<ProcessProgressionLinear>(10);
  UnstartedObserver observer(counter, 0, clock);
  ++*counter;
  // Not registered yet: the change above is not even pending, and the thread
  // goes on waiting for one however far the clock goes.
  observer.startObserving();
  ASSERT_TRUE(clock->waitUntilSettled(1));
  clock->advance(1h);
  ASSERT_TRUE(clock->waitUntilSettled(1));
  EXPECT_EQ(observer.delivered.load(), 0);

  ++*counter;
  EXPECT_TRUE(waitFor([&] { return observer.delivered.load() == 1; }));
}

TEST(DeferredObserver, NeverStartedObserverStopsAndGoesWithoutReport)
{
  AssertRecorder recorder;
  auto counter = std::make_shared<ProcessProgressionLinear>(10);
  {
    UnstartedObserver stopped(counter, 0);
    stopped.stopObserving();
    stopped.stopObserving();
    UnstartedObserver dropped(counter, 0);
  }
  ++*counter;
  EXPECT_EQ(recorder.messages(), std::vector<std::string>{});
}

TEST(DeferredObserver, SecondStartIsIgnored)
{
  AssertRecorder recorder;
  auto counter = std::make_shared<ProcessProgressionLinear>(10);
  {
    UnstartedObserver observer(counter, 0);
    observer.startObserving();
    observer.startObserving();
    ++*counter;
    EXPECT_TRUE(waitFor([&] { return observer.delivered.load() == 1; }));
  }
  // Registered twice, the observer would still be on the list after its
  // destruction unregistered it once, and this change would call it.
  ++*counter;
  EXPECT_EQ(recorder.messages(), std::vector<std::string>{});
}

TEST(DeferredObserver, StartAfterStopDoesNothing)
{
  AssertRecorder recorder;
  const auto clock = std::make_shared<ManualClock>();
  auto counter = std::make_shared<ProcessProgressionLinear>(10);
  {
    UnstartedObserver observer(counter, 0, clock);
    observer.stopObserving();
    observer.startObserving();
    // Not registered: the change does not reach the observer, which would
    // report a poke without a thread.
    ++*counter;
    EXPECT_TRUE(clock->settled(0)) << "a thread waits on the clock";
    EXPECT_EQ(observer.delivered.load(), 0);
  }
  // Destroyed (no thread to join): a registration left behind would reach
  // the gone observer here, which the address sanitizer would notice.
  ++*counter;
  EXPECT_EQ(recorder.messages(), std::vector<std::string>{});
}

// A poke that finds no thread to wake is reported with the name of the
// thread it looked for.
TEST(DeferredObserver, PokeBeforeTheStartIsReportedAsMissingItsThread)
{
  AssertRecorder recorder;
  auto counter = std::make_shared<ProcessProgressionLinear>(10);
  UnstartedObserver observer(counter, 0);
  observer.onObservableChanged();

  const auto reports = recorder.reports();
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].message, "CORE_ASSERT failed: 'timeFilteringThread != nullptr'");
  EXPECT_EQ(observer.delivered.load(), 0);
}

TEST(DeferredObserver, StartedObserverOfAGoneObservableIsNeverPoked)
{
  AssertRecorder recorder;
  auto counter = std::make_shared<ProcessProgressionLinear>(10);
  UnstartedObserver observer(counter, 0);
  counter.reset();
  observer.startObserving();
  observer.stopObserving();
  EXPECT_EQ(observer.delivered.load(), 0);
  EXPECT_EQ(recorder.messages(), std::vector<std::string>{});
}

// Observers built while another thread advances their progression with no
// pause: a subclass that starts last is never called before it is whole.
TEST(DeferredObserver, SubclassBuiltSlowlyIsWholeAtEveryDelivery)
{
  auto counter = std::make_shared<ProcessProgressionLinear>(1000000000ULL);
  std::atomic<bool> stop{false};
  std::thread worker([&] {
    while (!stop.load()) {
      ++*counter;
    }
  });
  int delivered = 0;
  int early = 0;
  for (int round = 0; round < 200; ++round) {
    ObserverWithASlowPart observer(counter);
    EXPECT_TRUE(waitFor([&] { return observer.delivered.load() > 0; }));
    delivered += observer.delivered.load();
    early += observer.early.load();
  }
  stop.store(true);
  worker.join();
  EXPECT_GE(delivered, 200);
  EXPECT_EQ(early, 0);
}

// The two-argument constructor starts at once, as before.
TEST(DeferredObserver, ImmediateConstructorStillStartsAtOnce)
{
  auto counter = std::make_shared<ProcessProgressionLinear>(4);

  class Immediate : public ProgressionObserver {
  public:
    explicit Immediate(std::weak_ptr<ProgressionObservable> observable)
        : ProgressionObserver(std::move(observable), 0)
    {
    }
    ~Immediate() override { stopObserving(); }
    void onProgressionUpdated(double value) override { last.store(value); }
    std::atomic<double> last{-1.0};
  } observer(counter);

  ++*counter;
  EXPECT_TRUE(waitFor([&] { return observer.last.load() == 0.25; }));
}
