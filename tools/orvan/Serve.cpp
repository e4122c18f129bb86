#include "Serve.h"

#include "Commands.h"
#include "Console.h"
#include "ToolLogging.h"

#include <Core/Logging/LoggingCallback.h>
#include <Utils/Chronometer.h>
#include <Utils/FileHelper.h>

#include <fstream>
#include <vector>

namespace Orvan::Tool {

namespace Logging = Core::Logging;
using Utils::FileHelper::toString;

namespace {

constexpr std::size_t CHUNK = 256 * 1024;
constexpr std::chrono::milliseconds POLL_PERIOD{100};

} // namespace

FileServer::FileServer(std::filesystem::path file, const std::string& address, std::uint16_t port,
                       unsigned maxClients)
    : file(std::move(file))
    , maxClients(maxClients)
    , listener(address, port)
{
}

FileServer::~FileServer()
{
  for (Client& client : clients) {
    if (client.thread.joinable()) {
      client.thread.join();
    }
  }
}

void FileServer::run(const Core::Process::CancelationToken& token)
{
  while (!token.isCancelRequested()) {
    {
      std::unique_lock<std::mutex> lock(mutex);
      // Reap the clients that are done.
      for (auto client = clients.begin(); client != clients.end();) {
        if (client->done) {
          client->thread.join();
          client = clients.erase(client);
        } else {
          ++client;
        }
      }
      if (clients.size() >= maxClients) {
        clientEnded.wait_for(lock, POLL_PERIOD);
        continue;
      }
    }
    std::unique_ptr<Platform::Connection> connection = listener.accept(POLL_PERIOD);
    if (!connection) {
      continue;
    }
    std::lock_guard<std::mutex> lock(mutex);
    clients.emplace_back();
    Client& client = clients.back();
    client.thread = std::thread([this, &client, &token, connection = std::move(connection)]() mutable {
      serve(*connection, token);
      connection.reset();
      std::lock_guard<std::mutex> lock(mutex);
      client.done = true;
      clientEnded.notify_all();
    });
  }
  std::list<Client> left;
  {
    std::lock_guard<std::mutex> lock(mutex);
    left.swap(clients);
  }
  for (Client& client : left) {
    client.thread.join();
  }
}

void FileServer::serve(Platform::Connection& connection, const Core::Process::CancelationToken& token)
{
  const Utils::Chronometer chronometer;
  const std::string peer = "'" + connection.peer() + "'";
  Logging::logInfo("Client " + peer + " connected");
  std::ifstream input(file, std::ios::binary);
  if (!input) {
    Logging::logError("Cannot read '" + toString(file) + "' for client " + peer);
    return;
  }
  std::vector<char> buffer(CHUNK);
  std::uint64_t sent = 0;
  while (input) {
    if (token.isCancelRequested()) {
      Logging::logWarning("Stopped sending to client " + peer + " after " + std::to_string(sent) + " bytes");
      return;
    }
    input.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
    const auto count = static_cast<std::size_t>(input.gcount());
    if (count == 0) {
      break;
    }
    if (!connection.sendAll(buffer.data(), count)) {
      Logging::logWarning("Client " + peer + " went away after " + std::to_string(sent) + " bytes");
      return;
    }
    sent += count;
  }
  ++served;
  Logging::logInfo("Sent " + std::to_string(sent) + " bytes to client " + peer + " in " + chronometer.elapsedTimeAsStr());
}

namespace {

const char* const SERVE_HELP =
    "Usage: orvan serve FILE [options]\n"
    "\n"
    "Serves FILE to every client that connects: sends the whole file, then closes\n"
    "the connection. Clients read it with 'orvan fetch NAME@ADDRESS:PORT' or with\n"
    "the library's FileInfo::makeStream. Prints the address and port it listens on.\n"
    "\n"
    "Options:\n"
    "  --port N              TCP port (default 0: a free port chosen by the system)\n"
    "  --bind ADDR           IPv4 address to listen on (default 127.0.0.1)\n"
    "  --max-clients N       clients served at once (default 64); more wait their turn\n"
    "{log-options}"
    "  -h, --help            show this help\n"
    "\n"
    "Connections are logged (shown unless -q). Ctrl-C stops the server.\n"
    "\n"
    "Example:\n"
    "  orvan serve data.bin --port 4000\n";

} // namespace

int serveCommand(Arguments& arguments)
{
  std::optional<std::string> fileText;
  std::uint16_t port = 0;
  std::string address = "127.0.0.1";
  unsigned maxClients = 64;
  LogOptions logOptions;
  while (!arguments.empty()) {
    const Arguments::Word word = arguments.next();
    if (!word.isOption) {
      if (fileText) {
        throw UsageError("one FILE only; '" + word.text + "' is one too many");
      }
      fileText = word.text;
    } else if (word.text == "-h" || word.text == "--help") {
      printHelp(SERVE_HELP);
      return EXIT_OK;
    } else if (word.text == "--port" || word.text == "-p") {
      port = static_cast<std::uint16_t>(parseNumber(word.text, arguments.value(word), 65535));
    } else if (word.text == "--bind") {
      address = arguments.value(word);
    } else if (word.text == "--max-clients") {
      maxClients = static_cast<unsigned>(parseNumber(word.text, arguments.value(word), 1024));
      if (maxClients == 0) {
        throw UsageError("option '--max-clients' needs at least 1");
      }
    } else if (!readLogOption(word.text, word.inlineValue, arguments, logOptions)) {
      throw unknownOption(word);
    }
  }
  if (!fileText) {
    throw UsageError("missing FILE");
  }
  const std::filesystem::path file = Utils::FileHelper::toPath(*fileText);
  std::error_code error;
  if (!std::filesystem::is_regular_file(file, error) || !std::ifstream(file, std::ios::binary)) {
    throw UsageError("cannot read the file '" + *fileText + "'");
  }
  const auto size = std::filesystem::file_size(file, error);

  CtrlC ctrlC;
  LogSession session(logOptions, Verbosity::Chatty);
  std::optional<FileServer> server;
  try {
    server.emplace(file, address, port, maxClients);
  } catch (const std::system_error& failure) {
    Console::instance().message(std::string("orvan serve: ") + failure.what());
    return EXIT_FAILED;
  } catch (const std::runtime_error& failure) {
    throw UsageError(failure.what());
  }
  const std::string where = address + ":" + std::to_string(server->port());
  if (logOptions.verbosity != Verbosity::Quiet) {
    Console::instance().result("Serving '" + *fileText + "' (" + std::to_string(size) + " bytes) on " + where);
  }
  Logging::logInfo("Listening on " + where + " for '" + *fileText + "'");
  server->run(ctrlC.token);
  Logging::logInfo("Stopped after serving " + std::to_string(server->clientsServed()) + " clients");
  return EXIT_OK;
}

} // namespace Orvan::Tool
