#include <Core/Process/CancelationToken.h>

#include <WaitFor.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <type_traits>

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
