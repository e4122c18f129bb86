#include "FanOutServer.h"

#include <stdexcept>
#include <utility>

#if defined(_WIN32)
#  include <winsock2.h>
#else
#  include <sys/socket.h>
#endif

namespace Orvan::Testing {

namespace {

// Listens with room for every connection at once. A burst beyond the backlog
// is not always refused: with SYN cookies the system may drop connections
// that the client already counts as established, and a client that sends
// nothing then waits in receive for good.
bool listenForAll(Loopback::Handle socket, int connections)
{
#if defined(_WIN32)
  return ::listen(static_cast<SOCKET>(socket), connections) == 0;
#else
  return ::listen(static_cast<int>(socket), connections) == 0;
#endif
}

} // namespace

FanOutServer::FanOutServer(Handler handler, int maxConnections)
    : handler(std::move(handler))
    , maxConnections(maxConnections)
    , listener(Loopback::bindLoopback(false, portNumber))
{
  if (listener == Loopback::INVALID_HANDLE) {
    throw std::runtime_error("cannot bind on 127.0.0.1");
  }
  if (!listenForAll(listener, maxConnections + 16)) {
    Loopback::closeSocket(listener);
    throw std::runtime_error("cannot listen on 127.0.0.1");
  }
  peers.reserve(static_cast<std::size_t>(maxConnections));
  acceptor = std::thread([this] { acceptLoop(); });
}

FanOutServer::~FanOutServer()
{
  stopping = true;
  acceptor.join();
  for (std::thread& peer : peers) {
    peer.join();
  }
  Loopback::closeSocket(listener);
}

void FanOutServer::acceptLoop()
{
  while (!stopping && acceptedCount < maxConnections) {
    // Short waits, so that the destructor never waits long for the thread.
    if (!Loopback::waitReadable(listener, 20)) {
      continue;
    }
    const Loopback::Handle socket = Loopback::acceptConnection(listener);
    if (socket == Loopback::INVALID_HANDLE) {
      continue;
    }
    ++acceptedCount;
    peers.emplace_back([this, socket] {
      Peer peer(socket);
      handler(peer);
    });
  }
}

} // namespace Orvan::Testing
