#pragma once

#include "LoopbackSocket.h"

#include <atomic>
#include <cstddef>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace Orvan::Testing {

// One accepted connection, handed to a server's handler. It is closed in
// order after the handler returns, unless the handler reset it.
class Peer {
public:
  explicit Peer(Loopback::Handle socket);
  ~Peer();
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  bool send(const std::string& data);
  bool send(const char* data, std::size_t size);

  // Each later send leaves at once, without waiting to be coalesced with the
  // next one.
  void sendWithoutDelay();

  // Ends the connection with a reset (linger 0) instead of an orderly end.
  void reset();

private:
  Loopback::Handle socket;
};

// Serving every connection on a thread of its own, so that many clients are
// served at the same time, and accepting at most `maxConnections`.
struct FanOut {
  int maxConnections;
};

// A TCP server on 127.0.0.1, on a port of the system's choosing, that hands
// each connection it accepts to `handler`: the faulty, slow, silent and
// numerous servers of the socket tests, benchmarks and fuzz targets.
class LoopbackServer {
public:
  using Handler = std::function<void(Peer&)>;

  // Serves its connections one after the other on a thread of its own.
  // Started with `listening` false, it holds its port but refuses
  // connections until listen() is called.
  explicit LoopbackServer(Handler handler, bool listening = true);

  // Serves up to `fanOut.maxConnections` connections at once, with room in
  // its queue for all of them: a burst beyond the queue is not always
  // refused, since with SYN cookies the system may drop connections that the
  // client already counts as established, and a client that sends nothing
  // then waits in receive for good. The destructor waits for every handler
  // to return.
  LoopbackServer(Handler handler, FanOut fanOut);

  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  unsigned short port() const { return portNumber; }

  void listen();

  // How many connections were accepted so far.
  int accepted() const { return acceptedCount.load(); }

private:
  LoopbackServer(Handler handler, bool listening, int backlog, int maxConnections, bool fanOut);

  void serve();

  Handler handler;
  const int backlog;
  const int maxConnections;
  const bool fanOut;
  unsigned short portNumber = 0;
  Loopback::Handle listener;
  std::atomic<bool> stopping{false};
  std::atomic<bool> listening{false};
  std::atomic<int> acceptedCount{0};
  std::vector<std::thread> peers;
  std::thread thread;
};

// A port on 127.0.0.1 that is bound but not listening: every connection to it
// is refused, and no other program can take it while this object lives.
class RefusingPort {
public:
  RefusingPort();
  ~RefusingPort();
  RefusingPort(const RefusingPort&) = delete;
  RefusingPort& operator=(const RefusingPort&) = delete;

  unsigned short port() const { return portNumber; }

private:
  unsigned short portNumber = 0;
  Loopback::Handle socket;
};

} // namespace Orvan::Testing
