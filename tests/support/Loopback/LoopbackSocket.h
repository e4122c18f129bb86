#pragma once

#include <cstddef>
#include <cstdint>

// The socket calls the loopback servers of the tests, benchmarks and fuzz
// targets need, on POSIX and Windows.
namespace Orvan::Testing::Loopback {

using Handle = std::uintptr_t;
inline constexpr Handle INVALID_HANDLE = ~Handle{0};

// Room in a listener's queue for connections not accepted yet.
inline constexpr int DEFAULT_BACKLOG = 16;

// A TCP socket bound to 127.0.0.1 on a port the system picks, written to
// `port`; listening when `listening` is true. A bound socket that does not
// listen refuses every connection, and holds its port meanwhile.
Handle bindLoopback(bool listening, unsigned short& port);

// Makes a bound socket listen, with room for `backlog` pending connections.
bool listenOn(Handle socket, int backlog = DEFAULT_BACKLOG);

// A port on 127.0.0.1 that was free a moment ago, for a server of another
// program to listen on.
unsigned short freePort();

// Waits up to `milliseconds` for a connection or data to read.
bool waitReadable(Handle socket, int milliseconds);

// The next connection of a listening socket, or INVALID_HANDLE.
Handle acceptConnection(Handle listener);

// Sends each piece at once instead of letting the system coalesce them.
void sendWithoutDelay(Handle socket);

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
