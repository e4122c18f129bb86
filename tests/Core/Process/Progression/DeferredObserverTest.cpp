#include "ProgressionRecorders.h"

#include <AssertRecorder.h>
#include <Core/Process/Progression/ProcessProgressionLinear.h>
#include <Core/Process/Progression/ProgressionObserver.h>
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
using Orvan::Testing::waitFor;
using namespace std::chrono_literals;

namespace {

// Counts its deliveries; built deferred, it starts only when told to.
class UnstartedObserver : public ProgressionObserver {
public:
  UnstartedObserver(std::weak_ptr<ProgressionObservable> observable, unsigned int period)
      : ProgressionObserver(std::move(observable), period, DeferredStart{})
  {
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
  auto counter = std::make_shared<ProcessProgressionLinear>(10);
  UnstartedObserver observer(counter, 0);
  ++*counter;
  // Not registered yet: the change above is not even pending.
  observer.startObserving();
  std::this_thread::sleep_for(100ms); // proves that nothing comes
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
  auto counter = std::make_shared<ProcessProgressionLinear>(10);
  UnstartedObserver observer(counter, 0);
  observer.stopObserving();
  observer.startObserving();
  ++*counter;
  std::this_thread::sleep_for(100ms); // proves that nothing comes
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
