#pragma once

#include "Platform.h"

#include <Core/Process/CancelationToken.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <list>
#include <mutex>
#include <string>
#include <thread>

namespace Orvan::Tool {

// The server side of the remote-file protocol: each client that connects is
// sent the whole file, then the connection is closed. Clients are served at
// the same time, each on a thread of its own, at most `maxClients` at once;
// more wait in the system's queue. Every connection is logged through the
// library's logging facade.
class FileServer {
public:
  // Binds and listens at once; throws what Platform::Listener throws.
  FileServer(std::filesystem::path file, const std::string& address, std::uint16_t port, unsigned maxClients);
  ~FileServer();
  FileServer(const FileServer&) = delete;
  FileServer& operator=(const FileServer&) = delete;

  std::uint16_t port() const { return listener.port(); }

  // Accepts and serves clients until `token` asks to stop; transfers under
  // way are cut short, and every client thread has ended when it returns.
  void run(const Core::Process::CancelationToken& token);

  std::uint64_t clientsServed() const { return served.load(); }

private:
  struct Client {
    std::thread thread;
    bool done = false;
  };

  void serve(Platform::Connection& connection, const Core::Process::CancelationToken& token);

  std::filesystem::path file;
  unsigned maxClients;
  Platform::Listener listener;
  std::mutex mutex;
  std::condition_variable clientEnded;
  std::list<Client> clients;
  std::atomic<std::uint64_t> served{0};
};

} // namespace Orvan::Tool
