#include <Core/FileServer.h>

#include <Core/Logging/LoggingCallbackPrivate.h>
#include <Utils/Chronometer.h>
#include <Utils/FileHelper.h>

#include "Platform/Listener.h"
#include "Platform/WakeSignal.h"

#include <atomic>
#include <condition_variable>
#include <list>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace Orvan::Core {

namespace {

// How long the accepting thread rests after the system refused a connection
// for lack of descriptors or memory, so that it does not spin while that
// lasts. A stop ends the rest at once.
constexpr std::chrono::milliseconds ACCEPT_BACK_OFF{250};

FileServer::Options checked(FileServer::Options options)
{
  if (options.maxClients == 0) {
    throw std::invalid_argument("a file server needs room for at least one client");
  }
  return options;
}

std::chrono::milliseconds idlePeriod(const FileServer::Options& options)
{
  return options.idleTimeout ? *options.idleTimeout : std::chrono::milliseconds(-1);
}

FileServer::ClientOutcome outcomeOf(Platform::TransferEnd end)
{
  switch (end) {
  case Platform::TransferEnd::Complete:
    return FileServer::ClientOutcome::Served;
  case Platform::TransferEnd::Stopped:
    return FileServer::ClientOutcome::Stopped;
  case Platform::TransferEnd::IdleTimeout:
    return FileServer::ClientOutcome::IdleTimeout;
  case Platform::TransferEnd::FileError:
    return FileServer::ClientOutcome::FileError;
  case Platform::TransferEnd::ClientGone:
    break;
  }
  return FileServer::ClientOutcome::ClientGone;
}

// Logs through the facade; a logger that throws loses the message, not the
// server.
template<class... Pieces>
void logQuietly(Logging::LoggingType type, const Pieces&... pieces) noexcept
{
  try {
    Logging::logMessage(type, pieces...);
  } catch (...) {
  }
}

} // namespace

struct FileServer::State {
  State(std::filesystem::path file, Options options)
      : file(std::filesystem::absolute(file))
      , options(checked(std::move(options)))
      , listener(this->options.bindAddress, this->options.port)
  {
  }

  struct Client {
    std::unique_ptr<Platform::ClientConnection> connection;
    std::thread thread;
    bool done = false;
  };

  void acceptClients()
  {
    bool exhaustionLogged = false;
    for (;;) {
      {
        std::unique_lock lock(mutex);
        clientEnded.wait(lock, [this] {
          reapDoneClients();
          return stopping || clients.size() < options.maxClients;
        });
        if (stopping) {
          return;
        }
      }
      Platform::Accepted accepted = listener.accept(stopSignal.handle());
      switch (accepted.kind) {
      case Platform::Accepted::Kind::Stopped:
        return;
      case Platform::Accepted::Kind::Client:
        exhaustionLogged = false;
        startClient(std::move(accepted.connection));
        continue;
      case Platform::Accepted::Kind::OutOfDescriptors:
        failed += accepted.shed;
        if (!exhaustionLogged) {
          exhaustionLogged = true;
          logQuietly(Logging::LoggingType::Warning,
                     "Cannot accept clients: ", std::generic_category().message(accepted.error), "; turned away ",
                     accepted.shed, " waiting client(s)");
        }
        break;
      case Platform::Accepted::Kind::Failed:
        logQuietly(Logging::LoggingType::Warning,
                   "Cannot accept a client: ", std::generic_category().message(accepted.error));
        break;
      }
      if (Platform::waitRaised(stopSignal.handle(), ACCEPT_BACK_OFF)) {
        return;
      }
    }
  }

  void startClient(std::unique_ptr<Platform::ClientConnection> connection)
  {
    std::optional<ClientReport> refused;
    {
      const std::lock_guard lock(mutex);
      if (stopping) {
        connection->reset();
        return;
      }
      ++active;
      Client* client = nullptr;
      try {
        client = &clients.emplace_back();
        client->connection = std::move(connection);
        client->thread = std::thread([this, client] { runClient(*client); });
      } catch (const std::exception& failure) {
        // No thread (or no memory) for the client: it is turned away and the
        // server goes on.
        Platform::ClientConnection& turnedAway = client != nullptr ? *client->connection : *connection;
        turnedAway.reset();
        refused = ClientReport{turnedAway.peer(), 0, ClientOutcome::Refused};
        if (client != nullptr) {
          clients.pop_back();
        }
        --active;
        ++failed;
        logQuietly(Logging::LoggingType::Warning, "Refused client '", refused->peer, "': ", failure.what());
      }
    }
    if (refused) {
      tellHost(*refused);
    }
  }

  void runClient(Client& client)
  {
    Platform::ClientConnection& connection = *client.connection;
    ClientReport report{connection.peer(), 0, ClientOutcome::Refused};
    try {
      report.outcome = serve(connection, report.bytes);
    } catch (...) {
      // A logger that throws: the client is turned away.
      connection.reset();
      report.outcome = ClientOutcome::Refused;
    }
    bytes += report.bytes;
    if (report.outcome == ClientOutcome::Served) {
      ++served;
    } else {
      ++failed;
    }
    --active;
    tellHost(report);
    const std::lock_guard lock(mutex);
    client.done = true;
    clientEnded.notify_all();
  }

  void tellHost(const ClientReport& report) noexcept
  {
    if (!options.onClientEnd) {
      return;
    }
    try {
      options.onClientEnd(report);
    } catch (...) {
    }
  }

  // Joins the client threads that are done; the caller holds the mutex.
  void reapDoneClients()
  {
    for (auto client = clients.begin(); client != clients.end();) {
      if (client->done) {
        client->thread.join();
        client = clients.erase(client);
      } else {
        ++client;
      }
    }
  }

  ClientOutcome serve(Platform::ClientConnection& connection, std::uint64_t& sent)
  {
    const Utils::Chronometer chronometer;
    const std::string peer = "'" + connection.peer() + "'";
    Logging::logMessage(Logging::LoggingType::Info, "Client ", peer, " connected");
    const Platform::TransferEnd end = connection.sendFile(file, stopSignal.handle(), idlePeriod(options), sent);
    if (end != Platform::TransferEnd::Complete) {
      connection.reset();
      logQuietly(Logging::LoggingType::Warning, "Stopped sending '", Utils::FileHelper::toString(file), "' to client ",
                 peer, " after ", sent, " bytes");
      return outcomeOf(end);
    }
    connection.finish(stopSignal.handle(), idlePeriod(options));
    logQuietly(Logging::LoggingType::Info, "Sent ", sent, " bytes to client ", peer, " in ",
               chronometer.elapsedTimeAsStr());
    return ClientOutcome::Served;
  }

  void stop()
  {
    // Concurrent callers wait here until the first one is done.
    const std::lock_guard stopLock(stopMutex);
    if (stopped) {
      return;
    }
    {
      const std::lock_guard lock(mutex);
      stopping = true;
    }
    clientEnded.notify_all();
    stopSignal.raise();
    if (acceptor.joinable()) {
      acceptor.join();
    }
    listener.close();
    // The client threads woke on the signal and reset their connections.
    std::list<Client> left;
    {
      const std::lock_guard lock(mutex);
      left.swap(clients);
    }
    for (Client& client : left) {
      client.thread.join();
    }
    stopped = true;
  }

  const std::filesystem::path file;
  const Options options;
  Platform::ListeningSocket listener;
  Platform::WakeSignal stopSignal;
  std::atomic<std::uint64_t> served{0};
  std::atomic<std::uint64_t> failed{0};
  std::atomic<std::uint64_t> bytes{0};
  std::atomic<std::uint64_t> active{0};
  std::mutex mutex;
  std::condition_variable clientEnded;
  bool stopping = false;
  std::list<Client> clients;
  std::thread acceptor;
  std::mutex stopMutex;
  bool stopped = false;
};

FileServer::FileServer(std::filesystem::path file, Options options)
    : state(std::make_unique<State>(std::move(file), std::move(options)))
{
  state->acceptor = std::thread([this] { state->acceptClients(); });
}

FileServer::FileServer(std::filesystem::path file)
    : FileServer(std::move(file), Options{})
{
}

FileServer::~FileServer()
{
  stop();
}

std::uint16_t FileServer::port() const
{
  return state->listener.port();
}

FileInfo FileServer::descriptor() const
{
  // A server on every address is reached on the loopback one.
  const std::string& bound = state->options.bindAddress;
  const std::string address = bound == "0.0.0.0" ? "127.0.0.1" : bound;
  return FileInfo(state->file.filename(), address.c_str(), port(), FileInfo::Seconds(0));
}

std::uint64_t FileServer::clientsServed() const
{
  return state->served.load();
}

FileServer::Stats FileServer::stats() const
{
  Stats snapshot;
  snapshot.served = state->served.load();
  snapshot.failed = state->failed.load();
  snapshot.bytes = state->bytes.load();
  snapshot.active = state->active.load();
  return snapshot;
}

void FileServer::stop()
{
  state->stop();
}

} // namespace Orvan::Core
