#include "LoopbackServer.h"

#include <chrono>
#include <limits>
#include <stdexcept>
#include <utility>

namespace Orvan::Testing {

Peer::Peer(Loopback::Handle socket)
    : socket(socket)
{
}

Peer::~Peer()
{
  if (socket != Loopback::INVALID_HANDLE) {
    Loopback::closeSocket(socket);
  }
}

bool Peer::send(const std::string& data)
{
  return send(data.data(), data.size());
}

bool Peer::send(const char* data, std::size_t size)
{
  return socket != Loopback::INVALID_HANDLE && Loopback::sendAll(socket, data, size);
}

void Peer::sendWithoutDelay()
{
  if (socket != Loopback::INVALID_HANDLE) {
    Loopback::sendWithoutDelay(socket);
  }
}

void Peer::reset()
{
  if (socket != Loopback::INVALID_HANDLE) {
    Loopback::resetSocket(socket);
    socket = Loopback::INVALID_HANDLE;
  }
}

LoopbackServer::LoopbackServer(Handler handler, bool listening)
    : LoopbackServer(std::move(handler), listening, Loopback::DEFAULT_BACKLOG, std::numeric_limits<int>::max(), false)
{
}

LoopbackServer::LoopbackServer(Handler handler, FanOut fanOut)
    : LoopbackServer(std::move(handler), true, fanOut.maxConnections + Loopback::DEFAULT_BACKLOG, fanOut.maxConnections,
                     true)
{
}

LoopbackServer::LoopbackServer(Handler handler, bool listening, int backlog, int maxConnections, bool fanOut)
    : handler(std::move(handler))
    , backlog(backlog)
    , maxConnections(maxConnections)
    , fanOut(fanOut)
    , listener(Loopback::bindLoopback(false, portNumber))
{
  if (listener == Loopback::INVALID_HANDLE) {
    throw std::runtime_error("cannot bind on 127.0.0.1");
  }
  if (listening) {
    try {
      listen();
    } catch (...) {
      Loopback::closeSocket(listener);
      throw;
    }
  }
  if (fanOut) {
    peers.reserve(static_cast<std::size_t>(maxConnections));
  }
  thread = std::thread([this] { serve(); });
}

LoopbackServer::~LoopbackServer()
{
  stopping = true;
  thread.join();
  for (std::thread& peer : peers) {
    peer.join();
  }
  Loopback::closeSocket(listener);
}

void LoopbackServer::listen()
{
  if (!listening && !Loopback::listenOn(listener, backlog)) {
    throw std::runtime_error("cannot listen on 127.0.0.1");
  }
  listening = true;
}

void LoopbackServer::serve()
{
  while (!stopping && acceptedCount < maxConnections) {
    if (!listening) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      continue;
    }
    // Short waits, so that the destructor never waits long for the thread.
    if (!Loopback::waitReadable(listener, 20)) {
      continue;
    }
    const Loopback::Handle socket = Loopback::acceptConnection(listener);
    if (socket == Loopback::INVALID_HANDLE) {
      continue;
    }
    ++acceptedCount;
    if (fanOut) {
      peers.emplace_back([this, socket] {
        Peer peer(socket);
        handler(peer);
      });
    } else {
      Peer peer(socket);
      handler(peer);
    }
  }
}

RefusingPort::RefusingPort()
    : socket(Loopback::bindLoopback(false, portNumber))
{
  if (socket == Loopback::INVALID_HANDLE) {
    throw std::runtime_error("cannot bind on 127.0.0.1");
  }
}

RefusingPort::~RefusingPort()
{
  Loopback::closeSocket(socket);
}

} // namespace Orvan::Testing
