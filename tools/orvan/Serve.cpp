#include "Commands.h"
#include "Console.h"
#include "ToolLogging.h"

#include <Core/FileServer.h>
#include <Core/Logging/LoggingCallback.h>
#include <Utils/FileHelper.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <optional>

namespace Orvan::Tool {

namespace Logging = Core::Logging;
using Utils::FileHelper::toString;

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
    "  --bind ADDR           IPv4 address or host name to listen on (default 127.0.0.1)\n"
    "  --max-clients N       clients served at once (default 64); more wait their turn\n"
    "{log-options}"
    "  -h, --help            show this help\n"
    "\n"
    "Connections are logged (shown unless -q). Ctrl-C stops the server (exit code\n"
    "130; 143 for SIGTERM).\n"
    "\n"
    "Exit codes: 130 Ctrl-C; 143 SIGTERM; 1 FILE cannot be read or the address\n"
    "cannot be resolved or bound; 2 usage error.\n"
    "\n"
    "Example:\n"
    "  orvan serve data.bin --port 4000\n";

} // namespace

int serveCommand(const std::vector<std::string>& words)
{
  std::string fileText;
  std::uint16_t port = 0;
  std::string address = "127.0.0.1";
  unsigned maxClients = 64;
  LogOptions logOptions;
  CommandLine line(SERVE_HELP);
  line.operand("FILE", [&](const std::string& text) { fileText = text; });
  line.number("--port,-p", 65535, [&](std::uint64_t number) { port = static_cast<std::uint16_t>(number); });
  line.option("--bind", [&](const std::string& text) { address = text; });
  line.number("--max-clients", 1024, [&](std::uint64_t number) {
    if (number == 0) {
      throw UsageError("option '--max-clients' needs at least 1");
    }
    maxClients = static_cast<unsigned>(number);
  });
  addLogOptions(line, logOptions);
  if (!line.parse(words)) {
    return EXIT_OK;
  }
  const std::filesystem::path file = Utils::FileHelper::toPath(fileText);
  std::error_code error;
  const bool regular = std::filesystem::is_regular_file(file, error);
  if (error || !regular) {
    Console::instance().message("orvan serve: cannot serve '" + fileText +
                                "': " + (error ? error.message() : std::string("not a regular file")));
    return EXIT_FAILED;
  }
  if (!std::ifstream(file, std::ios::binary)) {
    Console::instance().message("orvan serve: cannot read '" + fileText + "': " + std::strerror(errno));
    return EXIT_FAILED;
  }
  const auto size = std::filesystem::file_size(file, error);
  // The server takes a numeric address: a name is resolved here.
  try {
    address = Platform::resolveIPv4(address);
  } catch (const std::exception& failure) {
    Console::instance().message("orvan serve: cannot resolve '" + address + "': " + failure.what());
    return EXIT_FAILED;
  }

  CtrlC ctrlC;
  LogSession session(logOptions, Verbosity::Chatty);
  std::optional<Core::FileServer> server;
  try {
    Core::FileServer::Options options;
    options.bindAddress = address;
    options.port = port;
    options.maxClients = maxClients;
    server.emplace(file, options);
  } catch (const std::system_error& failure) {
    if (failure.code() == std::errc::invalid_argument) {
      throw UsageError(failure.what());
    }
    Console::instance().message(std::string("orvan serve: ") + failure.what());
    return EXIT_FAILED;
  }
  const std::string where = address + ":" + std::to_string(server->port());
  if (logOptions.verbosity != Verbosity::Quiet) {
    Console::instance().result("Serving '" + fileText + "' (" + std::to_string(size) + " bytes) on " + where);
  }
  Logging::logInfo("Listening on " + where + " for '" + fileText + "'");
  // Sleeps until Ctrl-C or SIGTERM cancels the token.
  ctrlC.token.waitFor(std::chrono::milliseconds(-1));
  server->stop();
  const std::uint64_t served = server->clientsServed();
  Logging::logInfo("Stopped after serving " + std::to_string(served) + (served == 1 ? " client" : " clients"));
  return CtrlC::exitCode();
}

} // namespace Orvan::Tool
