#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

// The server side of a TCP connection: a listening socket and the clients it
// accepts, with the file transfer that the system does itself (sendfile on
// Linux, TransmitFile on Windows). Sockets are not inherited by child
// processes and never take the standard streams' descriptors.
namespace Orvan::Core::Platform {

// One accepted client; closed on destruction.
class ClientConnection {
public:
  ClientConnection(std::uintptr_t socket, std::string peer);
  ~ClientConnection();
  ClientConnection(const ClientConnection&) = delete;
  ClientConnection& operator=(const ClientConnection&) = delete;

  // "address:port" of the client.
  const std::string& peer() const { return peerText; }

  // Sends the whole file; the number of bytes sent, which is less than the
  // file's size when the client went away, the connection was shut down or
  // the file could not be read (`complete` false).
  std::uint64_t sendFile(const std::filesystem::path& file, bool& complete);

  // Ends the connection in both directions from another thread, so that a
  // transfer under way stops at once.
  void shutDown();

private:
  std::uintptr_t socket;
  std::string peerText;
  // Windows: the event that shutDown sets to cancel a transfer under way.
  [[maybe_unused]] std::uintptr_t stopEvent = 0;
};

// A TCP socket listening on an IPv4 address.
class ListeningSocket {
public:
  // Binds `address` and `port` (0: a free port chosen by the system) and
  // listens. Throws std::system_error when that fails (std::errc::
  // invalid_argument when the address is not a numeric IPv4 address).
  ListeningSocket(const std::string& address, std::uint16_t port);
  ~ListeningSocket();
  ListeningSocket(const ListeningSocket&) = delete;
  ListeningSocket& operator=(const ListeningSocket&) = delete;

  std::uint16_t port() const { return boundPort; }

  // Waits at most `timeout` for a client; null when none came.
  std::unique_ptr<ClientConnection> accept(std::chrono::milliseconds timeout);

private:
  std::uintptr_t socket;
  std::uint16_t boundPort = 0;
};

} // namespace Orvan::Core::Platform
