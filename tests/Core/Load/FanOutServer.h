#pragma once

#include "LoopbackServer.h"
#include "LoopbackSocket.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace Orvan::Testing {

// A TCP server on 127.0.0.1, on a port of the system's choosing, that serves
// every accepted connection on a thread of its own, so that many clients are
// served at the same time. It accepts at most `maxConnections` connections;
// its destructor waits for every handler to return.
class FanOutServer {
public:
  using Handler = std::function<void(Peer&)>;

  FanOutServer(Handler handler, int maxConnections);
  ~FanOutServer();
  FanOutServer(const FanOutServer&) = delete;
  FanOutServer& operator=(const FanOutServer&) = delete;

  unsigned short port() const { return portNumber; }

  // How many connections were accepted so far.
  int accepted() const { return acceptedCount.load(); }

private:
  void acceptLoop();

  Handler handler;
  const int maxConnections;
  unsigned short portNumber = 0;
  Loopback::Handle listener;
  std::atomic<bool> stopping{false};
  std::atomic<int> acceptedCount{0};
  std::vector<std::thread> peers;
  std::thread acceptor;
};

} // namespace Orvan::Testing
