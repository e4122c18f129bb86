#include "Network/SocketStream.h"

#include <Core/Process/CancelationToken.h>
#include <SilentListener_posix.h>
#include <WaitFor.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <system_error>
#include <thread>

using Orvan::Core::Process::CancelationToken;
using Orvan::Network::basic_instream;
using Orvan::Network::StreamLimits;
using Orvan::Testing::SilentListener;
using Stream = basic_instream<char>;

namespace {

// Connects to a listener whose queue is full, so that the connection stays
// pending with no time limit, and cancels `cancelled` from another thread
// once the attempt is under way. Returns the code of the failure.
int cancelPendingConnection(const StreamLimits& limits, CancelationToken& cancelled)
{
  SilentListener server(true);
  if (!server.isReady()) {
    ADD_FAILURE() << "the listener's queue could not be filled";
    return 0;
  }
  std::atomic<bool> started{false};
  std::thread canceller([&] {
    Orvan::Testing::waitFor([&] { return started.load(); });
    cancelled.requestCancel();
  });
  int code = 0;
  try {
    started = true;
    Stream stream("127.0.0.1", server.port(), limits);
  } catch (const std::system_error& failure) {
    code = failure.code().value();
  }
  canceller.join();
  return code;
}

} // namespace

TEST(SocketCancel, TheStreamsTokenEndsAPendingConnection)
{
  CancelationToken token;
  StreamLimits limits;
  limits.token = &token;
  EXPECT_EQ(cancelPendingConnection(limits, token), ECANCELED);
}

TEST(SocketCancel, TheConnectTokenEndsAPendingConnection)
{
  CancelationToken token;
  CancelationToken connectToken;
  StreamLimits limits;
  limits.token = &token;
  limits.connectToken = &connectToken;
  EXPECT_EQ(cancelPendingConnection(limits, connectToken), ECANCELED);
  EXPECT_FALSE(token.isCancelRequested());
}
