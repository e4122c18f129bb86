#pragma once

#include <Core/Export.h>
#include <Core/FileInfo.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

namespace Orvan::Core {

// Serves one file to every client that connects, as remote descriptors
// expect: the whole file, then the connection is closed. The system copies
// the file to the socket itself (sendfile on Linux, TransmitFile on
// Windows). Clients are served at the same time, each on a thread of its
// own, at most `maxClients` at once; more wait in the system's queue. Each
// connection is logged through the logging facade ("Client '<peer>'
// connected", "Sent <n> bytes to client '<peer>' in <time>").
//
//   FileServer server("data.bin");
//   auto stream = server.descriptor().makeStream(std::ios::binary);
class ORVAN_CORE_EXPORT FileServer {
public:
  struct Options {
    // A numeric IPv4 address.
    std::string bindAddress = "127.0.0.1";
    // 0: a free port of the system's choosing.
    std::uint16_t port = 0;
    unsigned maxClients = 64;
  };

  // Binds and listens before it returns, then serves on a thread of its own.
  // Throws std::system_error when the address is no numeric IPv4 address
  // (std::errc::invalid_argument) or cannot be bound. The file is opened
  // for each client; one that cannot be read is logged and the client's
  // connection closed.
  explicit FileServer(std::filesystem::path file, Options options);
  explicit FileServer(std::filesystem::path file);
  FileServer(const FileServer&) = delete;
  FileServer& operator=(const FileServer&) = delete;

  // Stops the server as stop() does.
  ~FileServer();

  // The port it listens on.
  std::uint16_t port() const;

  // A remote descriptor naming this server: "<file name>@<address>:<port>".
  FileInfo descriptor() const;

  // How many clients were sent the whole file so far.
  std::uint64_t clientsServed() const;

  // Closes the listener and every connection (transfers under way are cut
  // short) and joins the server's threads. Calling it again does nothing.
  void stop();

private:
  struct State;
  std::unique_ptr<State> state;
};

} // namespace Orvan::Core
