#pragma once

#include <Core/Export.h>
#include <Core/Process/CancelationToken.h>

#include "Platform/Socket.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <istream>
#include <streambuf>
#include <string>

// A remote file read over TCP: the client connects, sends nothing and reads
// until the server closes the connection.
namespace Orvan::Network {

inline constexpr std::size_t NETBUF_SIZE = 1048576;

// What bounds a stream: connecting ends at `deadline` (the largest time
// point: as long as the system tries); a read fails once no byte has come
// for `idleTimeout` (0: never); `token` (null: none) ends a pending
// connection or a blocked read, and `connectToken` (null: none) a pending
// connection only. A connection given up fails as any other, with the
// connection's own error when the system has one for it, else the socket
// layer's "timed out" or "cancelled" code; a read given up throws
// std::system_error of std::errc::timed_out or std::errc::operation_canceled.
struct StreamLimits {
  std::chrono::steady_clock::time_point deadline = std::chrono::steady_clock::time_point::max();
  std::chrono::milliseconds idleTimeout{0};
  const Core::Process::CancelationToken* token = nullptr;
  const Core::Process::CancelationToken* connectToken = nullptr;

  // Whether either token asks a pending connection to end.
  bool connectingCancelled() const;
};

// What connecting waits on: one token, cancelled as soon as either of the
// limits' tokens is, so that a wait watches one wake signal whatever the
// number of tokens. The limits' tokens must outlive it.
class ConnectingCancelation {
public:
  explicit ConnectingCancelation(const StreamLimits& limits);

  // The wake signal to wait on beside the socket; NO_WAKE when the limits
  // have no token.
  Core::Platform::WakeHandle wakeHandle() const;

  // Waits at most `period` (negative: without limit); true when connecting
  // was cancelled.
  bool waitFor(std::chrono::milliseconds period) const;

private:
  bool watched;
  Core::Process::CancelationToken either;
  Core::Process::CancelationLink fromToken;
  Core::Process::CancelationLink fromConnectToken;
};

// A stream buffer that owns one connected TCP socket and refills its get area
// with whatever the socket delivers. The 1 MiB receive buffer lives inside
// the object, so that one recv takes a large chunk without any allocation;
// create these objects on the heap.
//
// There is no put area; writing, seeking and sync keep the defaults of
// std::basic_streambuf.
template<class CharT, class Traits = std::char_traits<CharT>, std::size_t BUFFER_SIZE = NETBUF_SIZE>
class basic_netbuf : public std::basic_streambuf<CharT, Traits> {
public:
  // Connects to `address` (a host name or numeric IPv4 address) and `port`
  // within `limits`. Throws std::runtime_error when the socket layer cannot
  // start or the name cannot be resolved, and std::system_error (whose
  // message is also reported as streamDiagnostics() says) when the socket
  // cannot be created or connected.
  basic_netbuf(const char* address, unsigned short port, const StreamLimits& limits = {});
  basic_netbuf(const basic_netbuf&) = delete;
  basic_netbuf& operator=(const basic_netbuf&) = delete;
  ~basic_netbuf() override;

protected:
  // Receives the next chunk, reporting it as streamDiagnostics() says (on
  // the console: "<this>\tRead: <n>b." to standard output in one call,
  // without touching the stream's formatting flags); end-of-file once the server has closed the connection. A failed
  // receive throws std::system_error (the stream turns it into its error
  // state or rethrows it, according to its exception mask).
  typename Traits::int_type underflow() override;

private:
  // Waits for data within the limits, or throws.
  void awaitData();

  CharT buffer[BUFFER_SIZE];
  std::string address;
  std::uint16_t port;
  Core::Platform::SocketHandle socket;
  StreamLimits limits;
};

// An input stream reading from its own basic_netbuf: constructing it
// connects, destroying it closes the connection.
template<class CharT, class Traits = std::char_traits<CharT>>
class basic_instream : public std::basic_istream<CharT, Traits> {
public:
  basic_instream(const char* address, unsigned short port, const StreamLimits& limits = {});
  basic_instream(const basic_instream&) = delete;
  basic_instream& operator=(const basic_instream&) = delete;
  ~basic_instream() override;

private:
  basic_netbuf<CharT, Traits, NETBUF_SIZE> buffer;
};

// The library holds the only instantiations, for char.
extern template class ORVAN_CORE_EXPORT basic_netbuf<char, std::char_traits<char>, NETBUF_SIZE>;
extern template class ORVAN_CORE_EXPORT basic_instream<char, std::char_traits<char>>;

} // namespace Orvan::Network
