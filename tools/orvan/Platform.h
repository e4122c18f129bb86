#pragma once

// The few system services the tool needs beyond the library: terminals,
// Ctrl-C, a listening socket, command-line quoting and its own path.
// Platform.cpp picks the POSIX or the Windows implementation.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Orvan::Tool::Platform {

enum class StandardStream { Output, Error };

// Whether the stream is attached to a terminal (a console on Windows).
bool isTerminal(StandardStream stream);

// Columns of the terminal on standard error; 80 when it cannot be told.
int terminalWidth();

// Puts standard output in binary mode, so that fetched bytes pass unchanged.
void setBinaryOutput();

// While it lives, the first Ctrl-C (or termination request) calls
// `onInterrupt` on an ordinary thread, never inside a signal handler; a second
// one ends the process at once with exit code 130.
class InterruptHandler {
public:
  explicit InterruptHandler(std::function<void()> onInterrupt);
  ~InterruptHandler();
  InterruptHandler(const InterruptHandler&) = delete;
  InterruptHandler& operator=(const InterruptHandler&) = delete;

  struct State;

private:
  std::unique_ptr<State> state;
};

// Joins words into one command line that the process runner splits back into
// exactly these words: shell quoting on POSIX, the C runtime's argument rules
// on Windows.
std::string quoteCommandLine(const std::vector<std::string>& words);

// The running program's own file.
std::filesystem::path executablePath();

// One accepted TCP client; closing happens on destruction.
class Connection {
public:
  Connection(std::intptr_t socket, std::string peer);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // "address:port" of the client.
  const std::string& peer() const { return peerText; }

  // Sends every byte; false when the client has gone away.
  bool sendAll(const char* data, std::size_t size);

private:
  std::intptr_t socket;
  std::string peerText;
};

// A TCP socket listening on an IPv4 address.
class Listener {
public:
  // Binds `address` and `port` (0: a free port chosen by the system) and
  // listens. Throws std::system_error when that fails, std::runtime_error
  // when the address is not a numeric IPv4 address.
  Listener(const std::string& address, std::uint16_t port);
  ~Listener();
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  std::uint16_t port() const { return boundPort; }

  // Waits at most `timeout` for a client; null when none came.
  std::unique_ptr<Connection> accept(std::chrono::milliseconds timeout);

private:
  std::intptr_t socket;
  std::uint16_t boundPort = 0;
};

} // namespace Orvan::Tool::Platform
