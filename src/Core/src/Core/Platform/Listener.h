#pragma once

#include "Platform/WakeSignal.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

// The server side of a TCP connection: a listening socket and the clients it
// accepts, with the file transfer that the system does itself (sendfile on
// Linux, TransmitFile on Windows). Every wait also watches a wake signal, so
// that a server's stop ends it at once. Sockets are not inherited by child
// processes and never take the standard streams' descriptors.
namespace Orvan::Core::Platform {

// How a file transfer ended.
enum class TransferEnd {
  Complete,
  // The wake signal was raised.
  Stopped,
  // Nothing could be sent for the idle period.
  IdleTimeout,
  // The file could not be opened or read, or it shrank while it was sent.
  FileError,
  // The client closed or reset the connection.
  ClientGone,
};

// One accepted client; closed on destruction.
class ClientConnection {
public:
  ClientConnection(std::uintptr_t socket, std::string peer);
  ~ClientConnection();
  ClientConnection(const ClientConnection&) = delete;
  ClientConnection& operator=(const ClientConnection&) = delete;

  // "address:port" of the client.
  const std::string& peer() const { return peerText; }

  // Sends the file as it is when opened, reading and dropping what the
  // client sends meanwhile. Gives up when `stop` is raised or when nothing
  // could be sent for `idle` (negative: no limit). `sent` counts the bytes
  // sent.
  TransferEnd sendFile(const std::filesystem::path& file, WakeHandle stop, std::chrono::milliseconds idle,
                       std::uint64_t& sent);

  // Ends a complete transfer cleanly: half-closes the connection, then reads
  // and drops what the client still sends until it closes its side (at most
  // `idle` without data, or until `stop`), and closes. Closing with unread
  // data would reset the connection and could cost the client the end of
  // the file.
  void finish(WakeHandle stop, std::chrono::milliseconds idle);

  // Closes the connection abortively: the client sees a reset, never a
  // clean end of file, so a cut transfer cannot pass for a whole one.
  void reset() noexcept;

private:
  std::uintptr_t socket;
  bool open = true;
  std::string peerText;
};

// What one accept gave.
struct Accepted {
  enum class Kind {
    Client,
    // The wake signal was raised.
    Stopped,
    // No descriptor (or buffer) was left for the connection: the waiting
    // connections were turned away (`shed` of them) with a reset.
    OutOfDescriptors,
    // Another error, in `error` (errno or a Winsock error).
    Failed,
  };
  Kind kind = Kind::Failed;
  std::unique_ptr<ClientConnection> connection;
  unsigned shed = 0;
  int error = 0;
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

  // Waits for a client until `stop` is raised. An aborted connection or an
  // interrupted call is retried at once.
  Accepted accept(WakeHandle stop);

  // Stops listening: later connections are refused. Not while another
  // thread is in accept().
  void close() noexcept;

private:
  std::uintptr_t socket;
  bool open = true;
  std::uint16_t boundPort = 0;
  // POSIX: a descriptor kept in reserve, given up to accept and turn away
  // the waiting connections when the process has no descriptor left.
  [[maybe_unused]] int reserve = -1;
  // Windows: the event that a waiting connection sets.
  [[maybe_unused]] std::uintptr_t acceptEvent = 0;
};

} // namespace Orvan::Core::Platform
