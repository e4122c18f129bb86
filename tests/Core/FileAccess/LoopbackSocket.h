#pragma once

#include <cstddef>
#include <cstdint>

// The socket calls the tests' loopback servers need, on POSIX and Windows.
namespace Orvan::Testing::Loopback {

using Handle = std::uintptr_t;
inline constexpr Handle INVALID_HANDLE = ~Handle{0};

// A TCP socket bound to 127.0.0.1 on a port the system picks, written to
// `port`; listening when `listening` is true. A bound socket that does not
// listen refuses every connection, and holds its port meanwhile.
Handle bindLoopback(bool listening, unsigned short& port);

// Makes a bound socket listen.
bool listenOn(Handle socket);

// Waits up to `milliseconds` for a connection or data to read.
bool waitReadable(Handle socket, int milliseconds);

// The next connection of a listening socket, or INVALID_HANDLE.
Handle acceptConnection(Handle listener);

// Sends every byte; false once the peer has gone.
bool sendAll(Handle socket, const char* data, std::size_t size);

void closeSocket(Handle socket);

// Closes with a linger time of zero, so that the peer gets a reset instead
// of an orderly end.
void resetSocket(Handle socket);

// True when the program runs under Wine rather than on Windows itself.
bool runningUnderWine();

// The code a refused connection reports (ECONNREFUSED or WSAECONNREFUSED).
int connectionRefusedCode();

} // namespace Orvan::Testing::Loopback
