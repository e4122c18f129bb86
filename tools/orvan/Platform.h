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
// one removes the file named by setFileToRemoveOnExit and ends the process at
// once with the exit code of the first (130 for SIGINT, 143 for SIGTERM).
class InterruptHandler {
public:
  explicit InterruptHandler(std::function<void()> onInterrupt);
  ~InterruptHandler();
  InterruptHandler(const InterruptHandler&) = delete;
  InterruptHandler& operator=(const InterruptHandler&) = delete;

  // The exit code for the first interrupt received: 128 + its signal number
  // (130 for Ctrl-C, 143 for a termination request); 0 while none came.
  static int exitCode();

  struct State;

private:
  std::unique_ptr<State> state;
};

// The file that an exit on a second interrupt removes first (a partial
// download); empty: none. The path is copied; set it again with an empty
// path once the file is done with.
void setFileToRemoveOnExit(const std::filesystem::path& path);

// While on, a second interrupt first kills (SIGKILL) the process group of
// every child of the tool, so that nothing it started keeps running out of
// the terminal's reach. Windows needs nothing: a child's job object ends with
// the tool.
void killChildGroupsOnSecondInterrupt(bool on);

// The numeric IPv4 address of `name` ("localhost": "127.0.0.1"; a numeric
// address stands for itself). Throws std::runtime_error with the resolver's
// text when there is none.
std::string resolveIPv4(const std::string& name);

// The resolver's own text for its error `code` (what getaddrinfo returned).
std::string resolverMessage(int code);

// The running program's own file.
std::filesystem::path executablePath();

} // namespace Orvan::Tool::Platform
