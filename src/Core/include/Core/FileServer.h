#pragma once

#include <Core/Export.h>
#include <Core/FileInfo.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace Orvan::Core {

// Serves one file to every client that connects, as remote descriptors
// expect: the whole file, then the connection is closed. The system copies
// the file to the socket itself (sendfile on Linux, TransmitFile on
// Windows). Clients are served at the same time, each on a thread of its
// own, at most `maxClients` at once; more wait in the system's queue. Each
// connection is logged through the logging facade ("Client '<peer>'
// connected", "Sent <n> bytes to client '<peer>' in <time>"), and its outcome
// reaches the host through stats() and the optional `onClientEnd`.
//
// A transfer that does not complete (stop, a file that cannot be read or
// shrinks, a client idle for too long) ends with a reset, so that the client
// sees an error and never a shorter file. What a client sends is read and
// dropped.
//
//   FileServer server("data.bin");
//   auto stream = server.descriptor().makeStream(std::ios::binary);
class ORVAN_CORE_EXPORT FileServer {
public:
  // How one client's connection ended.
  enum class ClientOutcome {
    // The whole file was sent.
    Served,
    // stop() cut the transfer short.
    Stopped,
    // The client took nothing for the idle timeout.
    IdleTimeout,
    // The file could not be opened or read, or it shrank.
    FileError,
    // The client closed or reset the connection first.
    ClientGone,
    // The server could not take the client (no thread could be started for
    // it, or the logger threw); the connection was reset.
    Refused,
  };

  struct ClientReport {
    // "address:port" of the client.
    std::string peer;
    std::uint64_t bytes = 0;
    ClientOutcome outcome = ClientOutcome::Refused;
  };

  struct Options {
    // A numeric IPv4 address.
    std::string bindAddress = "127.0.0.1";
    // 0: a free port of the system's choosing.
    std::uint16_t port = 0;
    // At least 1.
    unsigned maxClients = 64;
    // A transfer that makes no progress for this long is reset and counted
    // as failed; none: no limit.
    std::optional<std::chrono::milliseconds> idleTimeout = std::chrono::seconds(30);
    // Called after each client ends, on the client's thread (on the
    // accepting thread for a client refused). It must not call stop().
    std::function<void(const ClientReport&)> onClientEnd;
  };

  // A snapshot of the server's counts.
  struct Stats {
    // Clients sent the whole file.
    std::uint64_t served = 0;
    // Clients whose connection ended otherwise (turned away included).
    std::uint64_t failed = 0;
    // Bytes sent to every client.
    std::uint64_t bytes = 0;
    // Clients being served now.
    std::uint64_t active = 0;
  };

  // Binds and listens before it returns, then serves on a thread of its own.
  // `file` is made absolute here: a later change of the working directory
  // changes nothing. Throws std::invalid_argument when `maxClients` is 0 and
  // std::system_error when the address is no numeric IPv4 address
  // (std::errc::invalid_argument) or cannot be bound. The file is opened for
  // each client; one that cannot be read is logged and the client's
  // connection reset.
  explicit FileServer(std::filesystem::path file, Options options);
  explicit FileServer(std::filesystem::path file);
  FileServer(const FileServer&) = delete;
  FileServer& operator=(const FileServer&) = delete;

  // Stops the server as stop() does.
  ~FileServer();

  // The port it listens on.
  std::uint16_t port() const;

  // A remote descriptor naming this server: "<file name>@<address>:<port>",
  // the address 127.0.0.1 for a server bound to 0.0.0.0.
  FileInfo descriptor() const;

  // How many clients were sent the whole file so far.
  std::uint64_t clientsServed() const;

  Stats stats() const;

  // Closes the listener (later connections are refused), resets every
  // connection (transfers under way are cut short at once) and joins the
  // server's threads before it returns. Any number of threads may call it
  // at once; calling it again does nothing.
  void stop();

private:
  struct State;
  std::unique_ptr<State> state;
};

} // namespace Orvan::Core
