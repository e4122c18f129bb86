#include <Core/FileServer.h>

#include <Core/Logging/LoggingCallbackPrivate.h>
#include <Utils/Chronometer.h>
#include <Utils/FileHelper.h>

#include "Platform/Listener.h"

#include <atomic>
#include <condition_variable>
#include <list>
#include <mutex>
#include <thread>

namespace Orvan::Core {

namespace {

// How often the accepting thread looks at the stop flag.
constexpr std::chrono::milliseconds POLL_PERIOD{50};

} // namespace

struct FileServer::State {
  State(std::filesystem::path file, Options options)
      : file(std::move(file))
      , options(std::move(options))
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
    while (!stopping.load()) {
      {
        std::unique_lock lock(mutex);
        reapDoneClients();
        if (clients.size() >= options.maxClients) {
          clientEnded.wait_for(lock, POLL_PERIOD);
          continue;
        }
      }
      std::unique_ptr<Platform::ClientConnection> connection = listener.accept(POLL_PERIOD);
      if (!connection) {
        continue;
      }
      const std::lock_guard lock(mutex);
      if (stopping.load()) {
        break;
      }
      clients.emplace_back();
      Client& client = clients.back();
      client.connection = std::move(connection);
      client.thread = std::thread([this, &client] {
        serve(*client.connection);
        const std::lock_guard lock(mutex);
        client.done = true;
        clientEnded.notify_all();
      });
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

  void serve(Platform::ClientConnection& connection)
  {
    const Utils::Chronometer chronometer;
    const std::string peer = "'" + connection.peer() + "'";
    Logging::logMessage(Logging::LoggingType::Info, "Client ", peer, " connected");
    bool complete = false;
    const std::uint64_t sent = connection.sendFile(file, complete);
    if (!complete) {
      Logging::logMessage(Logging::LoggingType::Warning, "Stopped sending '", Utils::FileHelper::toString(file),
                          "' to client ", peer, " after ", sent, " bytes");
      return;
    }
    ++served;
    Logging::logMessage(Logging::LoggingType::Info, "Sent ", sent, " bytes to client ", peer, " in ",
                        chronometer.elapsedTimeAsStr());
  }

  void stop()
  {
    stopping = true;
    if (acceptor.joinable()) {
      acceptor.join();
    }
    std::list<Client> left;
    {
      const std::lock_guard lock(mutex);
      for (Client& client : clients) {
        client.connection->shutDown();
      }
      left.swap(clients);
    }
    for (Client& client : left) {
      client.thread.join();
    }
  }

  const std::filesystem::path file;
  const Options options;
  Platform::ListeningSocket listener;
  std::atomic<bool> stopping{false};
  std::atomic<std::uint64_t> served{0};
  std::mutex mutex;
  std::condition_variable clientEnded;
  std::list<Client> clients;
  std::thread acceptor;
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
  return FileInfo(state->file.filename(), state->options.bindAddress.c_str(), port(), FileInfo::Seconds(0));
}

std::uint64_t FileServer::clientsServed() const
{
  return state->served.load();
}

void FileServer::stop()
{
  state->stop();
}

} // namespace Orvan::Core
