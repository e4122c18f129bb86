#include "Network/SocketStream.h"

#include <Core/Process/CancelationToken.h>

#include <algorithm>
#include <cstring>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>

namespace Orvan::Network {

namespace {

namespace Platform = Core::Platform;

// The description of a socket error is written as a fixed field of this many
// characters, padded with NULs.
constexpr std::size_t DESCRIPTION_FIELD = 2047;

// How often a pending connection looks at its cancellation token.
constexpr std::chrono::milliseconds CANCEL_CHECK_PERIOD{50};

// Writes `text` to `stream` in one call and flushes it. The line is formatted
// beforehand on its own, so the host's stream flags are never touched, and
// one write keeps the line whole among the host's own output.
void writeWhole(std::ostream& stream, const std::string& text)
{
  stream.write(text.data(), static_cast<std::streamsize>(text.size()));
  stream.flush();
}

// Waits for a pending connection within `limits`: Connected, Failed with the
// socket error set, or Failed with `code` set when the connection is given up.
Platform::ConnectProgress awaitWithin(Platform::SocketHandle socket, const ConnectLimits& limits, int& code)
{
  using Clock = std::chrono::steady_clock;
  for (;;) {
    if (Core::Process::isCancelRequested(limits.token)) {
      code = Platform::CONNECT_CANCELLED;
      return Platform::ConnectProgress::Failed;
    }
    std::chrono::milliseconds wait(-1);
    if (limits.deadline != Clock::time_point::max()) {
      const Clock::time_point now = Clock::now();
      wait = limits.deadline > now ? std::chrono::ceil<std::chrono::milliseconds>(limits.deadline - now)
                                   : std::chrono::milliseconds(0);
    }
    if (limits.token != nullptr) {
      wait = wait.count() < 0 ? CANCEL_CHECK_PERIOD : std::min(wait, CANCEL_CHECK_PERIOD);
    }
    const Platform::ConnectProgress progress = Platform::awaitConnection(socket, wait);
    if (progress != Platform::ConnectProgress::Pending) {
      code = Platform::lastSocketError();
      return progress;
    }
    if (Clock::now() >= limits.deadline) {
      code = Platform::CONNECT_TIMED_OUT;
      return Platform::ConnectProgress::Failed;
    }
  }
}

// Writes "<text>, error #<code>: <description>" to standard error, the
// description padded with NULs to its full field, and throws the
// std::system_error for `code` whose text stops where the description ends.
[[noreturn]] void reportSocketError(int code, const char* text)
{
  char description[DESCRIPTION_FIELD + 1] = {};
  Platform::describeError(code, description, sizeof description);
  description[DESCRIPTION_FIELD] = '\0';

  std::string message = text;
  message += ", error #";
  message += std::to_string(code);
  message += ": ";
  message.append(description, DESCRIPTION_FIELD);

  writeWhole(std::cerr, message + '\n');
  throw std::system_error(code, std::system_category(), message.c_str());
}

// Reads the last socket error, stores it in errno and reports it.
[[noreturn]] void reportLastSocketError(const char* text)
{
  const int code = Platform::lastSocketError();
  Platform::setRuntimeErrno(code);
  reportSocketError(code, text);
}

} // namespace

template<class CharT, class Traits, std::size_t BUFFER_SIZE>
basic_netbuf<CharT, Traits, BUFFER_SIZE>::basic_netbuf(const char* address, unsigned short port,
                                                       const ConnectLimits& limits)
    : std::basic_streambuf<CharT, Traits>()
    , address(address)
    , port(port)
    , socket(Platform::INVALID_SOCKET_HANDLE)
{
  const int started = Platform::startupSockets();
  if (started != 0) {
    throw std::runtime_error("WSAStartup() returned: " + std::to_string(started));
  }

  addrinfo* addresses = nullptr;
  const int resolved = Platform::resolveTcp4(address, std::to_string(port).c_str(), addresses);
  if (resolved != 0) {
    Platform::cleanupSockets();
    throw std::runtime_error("getaddrinfo() returned: " + std::to_string(resolved));
  }

  // Only the first address is ever tried.
  const addrinfo& first = *addresses;
  socket = Platform::openSocket(first);
  if (socket == Platform::INVALID_SOCKET_HANDLE) {
    const int code = Platform::lastSocketError();
    Platform::setRuntimeErrno(code);
    Platform::freeAddresses(addresses);
    Platform::cleanupSockets();
    reportSocketError(code, "Invalid socket");
  }

  // A connection that can be made at once is made, whatever the limits; one
  // that is pending is waited for within them.
  Platform::ConnectProgress progress = Platform::startConnecting(socket, first);
  int code = progress == Platform::ConnectProgress::Failed ? Platform::lastSocketError() : 0;
  if (progress == Platform::ConnectProgress::Pending) {
    progress = awaitWithin(socket, limits, code);
  }
  if (progress != Platform::ConnectProgress::Connected) {
    Platform::setRuntimeErrno(code);
    Platform::closeSocket(socket);
    socket = Platform::INVALID_SOCKET_HANDLE;
    Platform::freeAddresses(addresses);
    Platform::cleanupSockets();
    reportSocketError(code, "Failed to connect to server.");
  }

  Platform::freeAddresses(addresses);
  this->setg(buffer, buffer, buffer);
}

template<class CharT, class Traits, std::size_t BUFFER_SIZE>
basic_netbuf<CharT, Traits, BUFFER_SIZE>::~basic_netbuf()
{
  Platform::closeSocket(socket);
  socket = Platform::INVALID_SOCKET_HANDLE;
  Platform::cleanupSockets();
}

template<class CharT, class Traits, std::size_t BUFFER_SIZE>
typename Traits::int_type basic_netbuf<CharT, Traits, BUFFER_SIZE>::underflow()
{
  const long long received = Platform::receive(socket, reinterpret_cast<char*>(buffer), sizeof buffer);
  if (received < 0) {
    reportLastSocketError("Failed to read data on socket");
  }
  if (received == 0) {
    return std::basic_streambuf<CharT, Traits>::underflow();
  }
  std::ostringstream line;
  line << static_cast<const void*>(this) << "\tRead: " << received << "b.\n";
  writeWhole(std::cout, line.str());
  const std::size_t count = static_cast<std::size_t>(received) / sizeof(CharT);
  this->setg(buffer, buffer, buffer + count);
  return Traits::to_int_type(buffer[0]);
}

template<class CharT, class Traits>
basic_instream<CharT, Traits>::basic_instream(const char* address, unsigned short port,
                                              const ConnectLimits& limits)
    : std::basic_istream<CharT, Traits>(nullptr)
    , buffer(address, port, limits)
{
  // Attached once it exists; a failed connection leaves no stream.
  this->rdbuf(&buffer);
}

template<class CharT, class Traits>
basic_instream<CharT, Traits>::~basic_instream() = default;

template class basic_netbuf<char, std::char_traits<char>, NETBUF_SIZE>;
template class basic_instream<char, std::char_traits<char>>;

} // namespace Orvan::Network
