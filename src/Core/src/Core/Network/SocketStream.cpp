#include "Network/SocketStream.h"

#include <Core/Logging/LoggingCallbackPrivate.h>
#include <Core/Process/CancelationToken.h>
#include <Core/StreamDiagnostics.h>

#include "Process/CancelationState.h"
#include "Timing/Deadline.h"

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

// Writes `text` to `stream` in one call and flushes it. The line is formatted
// beforehand on its own, so the host's stream flags are never touched, and
// one write keeps the line whole among the host's own output.
void writeWhole(std::ostream& stream, const std::string& text)
{
  stream.write(text.data(), static_cast<std::streamsize>(text.size()));
  stream.flush();
}

// Waits for a pending connection within `limits`: Connected, Failed with the
// socket error set, or Failed with `code` set when the connection is given
// up. A connection given up keeps the error the system has for it, if any.
Platform::ConnectProgress awaitWithin(Platform::SocketHandle socket, const StreamLimits& limits, int& code)
{
  const ConnectingCancelation cancelation(limits);
  for (;;) {
    const bool cancelled = limits.connectingCancelled();
    const std::chrono::milliseconds left = Core::Timing::timeUntil(limits.deadline);
    const bool expired = !cancelled && left.count() == 0;
    const bool givingUp = cancelled || expired;
    // Once given up, one last look without waiting: a connection made or
    // refused meanwhile is reported as such.
    const Platform::ConnectProgress progress =
        Platform::awaitConnection(socket, givingUp ? std::chrono::milliseconds(0) : left, cancelation.wakeHandle());
    if (progress != Platform::ConnectProgress::Pending) {
      code = Platform::lastSocketError();
      return progress;
    }
    if (givingUp) {
      const int pending = Platform::pendingConnectionError(socket);
      code = pending != 0 ? pending : cancelled ? Platform::CONNECT_CANCELLED : Platform::CONNECT_TIMED_OUT;
      return Platform::ConnectProgress::Failed;
    }
  }
}

std::string endpoint(const std::string& address, std::uint16_t port)
{
  return address + ":" + std::to_string(port);
}

// Reports the socket error `code` as the diagnostics setting says, and
// throws the std::system_error for it, whose text is "<text>, error #<code>:
// <description>". On the console, the description is padded with NULs to
// its full field.
[[noreturn]] void reportSocketError(int code, const char* text, const std::string& address, std::uint16_t port)
{
  char description[DESCRIPTION_FIELD + 1] = {};
  Platform::describeError(code, description, sizeof description);
  description[DESCRIPTION_FIELD] = '\0';

  std::string message = text;
  message += ", error #";
  message += std::to_string(code);
  message += ": ";
  switch (Core::streamDiagnostics()) {
  case Core::StreamDiagnostics::Console:
    writeWhole(std::cerr, message + std::string(description, DESCRIPTION_FIELD) + '\n');
    break;
  case Core::StreamDiagnostics::Log:
    Core::Logging::logMessage(Core::Logging::LoggingType::Error, std::string(text), " (", endpoint(address, port),
                              "), error #", code, ": ", description);
    break;
  case Core::StreamDiagnostics::Silent:
    break;
  }
  message += description;
  throw std::system_error(code, std::system_category(), message);
}

// Reads the last socket error, stores it in errno and reports it.
[[noreturn]] void reportLastSocketError(const char* text, const std::string& address, std::uint16_t port)
{
  const int code = Platform::lastSocketError();
  Platform::setRuntimeErrno(code);
  reportSocketError(code, text, address, port);
}

} // namespace

bool StreamLimits::connectingCancelled() const
{
  return Core::Process::isCancelRequested(token) || Core::Process::isCancelRequested(connectToken);
}

ConnectingCancelation::ConnectingCancelation(const StreamLimits& limits)
    : watched(limits.token != nullptr || limits.connectToken != nullptr)
    , fromToken(limits.token, either)
    , fromConnectToken(limits.connectToken, either)
{
}

Core::Platform::WakeHandle ConnectingCancelation::wakeHandle() const
{
  return watched ? Core::Process::CancelationAccess::wakeHandle(&either) : Core::Platform::NO_WAKE;
}

bool ConnectingCancelation::waitFor(std::chrono::milliseconds period) const
{
  return either.waitFor(period);
}

template<class CharT, class Traits, std::size_t BUFFER_SIZE>
basic_netbuf<CharT, Traits, BUFFER_SIZE>::basic_netbuf(const char* address, unsigned short port,
                                                       const StreamLimits& limits)
    : std::basic_streambuf<CharT, Traits>()
    , address(address)
    , port(port)
    , socket(Platform::INVALID_SOCKET_HANDLE)
    , limits(limits)
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
    reportSocketError(code, "Invalid socket", this->address, port);
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
    reportSocketError(code, "Failed to connect to server.", this->address, port);
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
void basic_netbuf<CharT, Traits, BUFFER_SIZE>::awaitData()
{
  const Core::Timing::Clock::time_point idleEnd =
      limits.idleTimeout.count() > 0 ? Core::Timing::deadlineAfter(limits.idleTimeout) : Core::Timing::NO_DEADLINE;
  const Platform::WakeHandle wake = Core::Process::CancelationAccess::wakeHandle(limits.token);
  for (;;) {
    if (Core::Process::isCancelRequested(limits.token)) {
      throw std::system_error(std::make_error_code(std::errc::operation_canceled),
                              "Reading from " + endpoint(address, port) + " was cancelled");
    }
    const std::chrono::milliseconds left = Core::Timing::timeUntil(idleEnd);
    if (left.count() == 0) {
      throw std::system_error(std::make_error_code(std::errc::timed_out),
                              "No data from " + endpoint(address, port) + " for " +
                                  std::to_string(limits.idleTimeout.count()) + " ms");
    }
    const int ready = Platform::waitReadable(socket, left, wake);
    if (ready > 0) {
      return;
    }
    if (ready < 0) {
      reportLastSocketError("Failed to read data on socket", address, port);
    }
  }
}

template<class CharT, class Traits, std::size_t BUFFER_SIZE>
typename Traits::int_type basic_netbuf<CharT, Traits, BUFFER_SIZE>::underflow()
{
  if (limits.token != nullptr || limits.idleTimeout.count() > 0) {
    awaitData();
  }
  const long long received = Platform::receive(socket, reinterpret_cast<char*>(buffer), sizeof buffer);
  if (received < 0) {
    reportLastSocketError("Failed to read data on socket", address, port);
  }
  if (received == 0) {
    return std::basic_streambuf<CharT, Traits>::underflow();
  }
  switch (Core::streamDiagnostics()) {
  case Core::StreamDiagnostics::Console: {
    std::ostringstream line;
    line << static_cast<const void*>(this) << "\tRead: " << received << "b.\n";
    writeWhole(std::cout, line.str());
    break;
  }
  case Core::StreamDiagnostics::Log:
    Core::Logging::logMessage(Core::Logging::LoggingType::Debug, "Read: ", received, " b. from ",
                              endpoint(address, port));
    break;
  case Core::StreamDiagnostics::Silent:
    break;
  }
  const std::size_t count = static_cast<std::size_t>(received) / sizeof(CharT);
  this->setg(buffer, buffer, buffer + count);
  return Traits::to_int_type(buffer[0]);
}

template<class CharT, class Traits>
basic_instream<CharT, Traits>::basic_instream(const char* address, unsigned short port, const StreamLimits& limits)
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
