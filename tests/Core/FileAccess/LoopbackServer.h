#pragma once

#include "LoopbackSocket.h"

#include <atomic>
#include <cstddef>
#include <functional>
#include <string>
#include <thread>

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

  // Ends the connection with a reset (linger 0) instead of an orderly end.
  void reset();

private:
  Loopback::Handle socket;
};

// A TCP server on 127.0.0.1, on a port of the system's choosing, that serves
// its connections one after the other on a thread of its own, each with
// `handler`. Started with `listening` false, it holds its port but refuses
// connections until listen() is called.
class LoopbackServer {
public:
  using Handler = std::function<void(Peer&)>;

  explicit LoopbackServer(Handler handler, bool listening = true);
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  unsigned short port() const { return portNumber; }

  void listen();

  // How many connections were accepted so far.
  int accepted() const { return acceptedCount.load(); }

private:
  void serve();

  Handler handler;
  unsigned short portNumber = 0;
  Loopback::Handle listener;
  std::atomic<bool> stopping{false};
  std::atomic<bool> listening{false};
  std::atomic<int> acceptedCount{0};
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
