#include <Core/Process/CancelationToken.h>

#include <WaitFor.h>

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <type_traits>
#include <vector>

using Orvan::Core::Process::CancelationToken;
using Orvan::Core::Process::isCancelRequested;

TEST(CancelationToken, FreshTokenIsNotCancelled)
{
  const CancelationToken token;
  EXPECT_FALSE(token.isCancelRequested());
  EXPECT_FALSE(isCancelRequested(&token));
}

TEST(CancelationToken, RequestStaysSetAndRepeatingItChangesNothing)
{
  CancelationToken token;
  token.requestCancel();
  EXPECT_TRUE(token.isCancelRequested());
  token.requestCancel();
  EXPECT_TRUE(token.isCancelRequested());
  EXPECT_TRUE(isCancelRequested(&token));
}

TEST(CancelationToken, NullTokenIsNeverCancelled)
{
  EXPECT_FALSE(isCancelRequested(nullptr));
}

// A token is one pointer wide, and neither copied nor moved: checked when this
// file compiles.
static_assert(sizeof(CancelationToken) == sizeof(void*));
static_assert(!std::is_copy_constructible_v<CancelationToken>);
static_assert(!std::is_copy_assignable_v<CancelationToken>);
static_assert(!std::is_move_constructible_v<CancelationToken>);
static_assert(!std::is_move_assignable_v<CancelationToken>);

TEST(CancelationToken, DestroyedTokenReleasesItsFlag)
{
  // The leak checker of the sanitizer builds verifies the release.
  for (int i = 0; i < 100; ++i) {
    auto token = std::make_unique<CancelationToken>();
    if (i % 2 == 0) {
      token->requestCancel();
    }
    EXPECT_EQ(token->isCancelRequested(), i % 2 == 0);
  }
}

TEST(CancelationToken, RequestFromAnotherThreadIsSeenByThePollingOne)
{
  CancelationToken token;
  std::atomic<bool> polling{false};
  std::atomic<long> polls{0};
  std::thread worker([&] {
    polling = true;
    while (!isCancelRequested(&token)) {
      ++polls;
      std::this_thread::yield();
    }
  });
  ASSERT_TRUE(Orvan::Testing::waitFor([&] { return polling.load(); }));
  token.requestCancel();
  worker.join();
  EXPECT_TRUE(token.isCancelRequested());
}

using Orvan::Core::Process::CancelationCallback;
using Orvan::Core::Process::CancelationLink;

TEST(CancelationToken, CallbacksRunOnCancellationInTheOrderOfTheirRegistration)
{
  CancelationToken token;
  std::vector<int> calls;
  CancelationCallback first(&token, [&] { calls.push_back(1); });
  CancelationCallback second(&token, [&] { calls.push_back(2); });
  EXPECT_TRUE(calls.empty());
  token.requestCancel();
  EXPECT_EQ(calls, (std::vector<int>{1, 2}));
  token.requestCancel();
  EXPECT_EQ(calls, (std::vector<int>{1, 2}));
}

TEST(CancelationToken, CallbackOnACancelledTokenRunsAtOnce)
{
  CancelationToken token;
  token.requestCancel();
  int calls = 0;
  CancelationCallback callback(&token, [&] { ++calls; });
  EXPECT_EQ(calls, 1);
}

TEST(CancelationToken, CallbackOnANullTokenNeverRuns)
{
  int calls = 0;
  {
    CancelationCallback callback(nullptr, [&] { ++calls; });
  }
  EXPECT_EQ(calls, 0);
}

TEST(CancelationToken, DestroyedCallbackNeverRuns)
{
  CancelationToken token;
  int calls = 0;
  auto first = std::make_unique<CancelationCallback>(&token, [&] { calls += 1; });
  CancelationCallback second(&token, [&] { calls += 10; });
  auto third = std::make_unique<CancelationCallback>(&token, [&] { calls += 100; });
  first.reset();
  third.reset();
  token.requestCancel();
  EXPECT_EQ(calls, 10);
}

TEST(CancelationToken, CallbackMayDestroyItsOwnRegistration)
{
  CancelationToken token;
  std::unique_ptr<CancelationCallback> callback;
  bool ran = false;
  callback = std::make_unique<CancelationCallback>(&token, [&] {
    ran = true;
    callback.reset();
  });
  token.requestCancel();
  EXPECT_TRUE(ran);
  EXPECT_EQ(callback, nullptr);
}

TEST(CancelationToken, DestroyingACallbackWaitsUntilItHasReturnedOnTheCancellingThread)
{
  CancelationToken token;
  std::mutex mutex;
  std::condition_variable changed;
  bool entered = false;
  bool release = false;
  bool returned = false;
  auto callback = std::make_unique<CancelationCallback>(&token, [&] {
    std::unique_lock<std::mutex> lock(mutex);
    entered = true;
    changed.notify_all();
    changed.wait(lock, [&] { return release; });
    returned = true;
  });
  std::thread canceller([&] { token.requestCancel(); });
  {
    std::unique_lock<std::mutex> lock(mutex);
    ASSERT_TRUE(changed.wait_for(lock, Orvan::Testing::DEFAULT_DEADLINE, [&] { return entered; }));
  }
  std::thread destroyer([&] {
    callback.reset();
    const std::lock_guard<std::mutex> lock(mutex);
    EXPECT_TRUE(returned);
  });
  {
    const std::lock_guard<std::mutex> lock(mutex);
    release = true;
  }
  changed.notify_all();
  destroyer.join();
  canceller.join();
}

TEST(CancelationToken, WaitEndsAtOnceOnACancellationFromAnotherThread)
{
  CancelationToken token;
  std::thread canceller([&] {
    // Whether it comes before or during the wait, the wait ends with it.
    token.requestCancel();
  });
  EXPECT_TRUE(token.waitFor(std::chrono::hours(1)));
  canceller.join();
}

TEST(CancelationToken, WaitWithoutLimitEndsOnCancellation)
{
  CancelationToken token;
  std::atomic<bool> waiting{false};
  std::thread waiter([&] {
    waiting = true;
    EXPECT_TRUE(token.waitFor(std::chrono::milliseconds(-1)));
  });
  ASSERT_TRUE(Orvan::Testing::waitFor([&] { return waiting.load(); }));
  token.requestCancel();
  waiter.join();
}

TEST(CancelationToken, WaitWithoutCancellationLastsItsPeriod)
{
  const CancelationToken token;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(token.waitFor(std::chrono::milliseconds(30)));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
  EXPECT_FALSE(token.waitFor(std::chrono::milliseconds(0)));
}

TEST(CancelationToken, LinkedTokenIsCancelledWithItsSource)
{
  CancelationToken source;
  CancelationToken target;
  {
    const CancelationLink link(&source, target);
    EXPECT_FALSE(target.isCancelRequested());
    source.requestCancel();
    EXPECT_TRUE(target.isCancelRequested());
  }
  EXPECT_TRUE(target.waitFor(std::chrono::milliseconds(0)));
}

TEST(CancelationToken, LinkToACancelledSourceCancelsAtOnceAndAGoneLinkNothing)
{
  CancelationToken cancelled;
  cancelled.requestCancel();
  CancelationToken first;
  const CancelationLink link(&cancelled, first);
  EXPECT_TRUE(first.isCancelRequested());

  CancelationToken source;
  CancelationToken second;
  {
    const CancelationLink gone(&source, second);
  }
  source.requestCancel();
  EXPECT_FALSE(second.isCancelRequested());
  const CancelationLink none(nullptr, second);
  EXPECT_FALSE(second.isCancelRequested());
}

TEST(CancelationToken, ManyThreadsWaitAndRegisterWhileOneCancels)
{
  CancelationToken token;
  std::atomic<int> called{0};
  // Each registration lives until every thread is done: one destroyed as
  // soon as its thread's wait ends may be taken off before its turn comes,
  // and then rightly never runs.
  std::vector<std::unique_ptr<CancelationCallback>> callbacks(8);
  std::vector<std::thread> threads;
  for (auto& callback : callbacks) {
    threads.emplace_back([&] {
      callback = std::make_unique<CancelationCallback>(&token, [&] { ++called; });
      EXPECT_TRUE(token.waitFor(std::chrono::milliseconds(-1)));
    });
  }
  token.requestCancel();
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(called.load(), 8);
}
