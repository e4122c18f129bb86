#pragma once

#include "Platform/WakeSignal.h"

#include <chrono>
#include <cstddef>
#include <cstdint>

struct addrinfo;

// The few socket calls the socket stream makes: Windows Sockets on Windows,
// BSD sockets elsewhere (where start-up and clean-up do nothing).
namespace Orvan::Core::Platform {

// Wide enough for a Windows SOCKET and a POSIX descriptor.
using SocketHandle = std::uintptr_t;
inline constexpr SocketHandle INVALID_SOCKET_HANDLE = ~SocketHandle{0};

// 0, or the code of the failed start-up. Each successful start-up is paired
// with one clean-up.
int startupSockets();
void cleanupSockets();

// Resolves `host` for IPv4 TCP; 0 or the resolver's own code.
int resolveTcp4(const char* host, const char* service, addrinfo*& result);
void freeAddresses(addrinfo* addresses);

// A socket for the address record (close-on-exec, so that child processes do
// not inherit it, and never one of the standard streams' descriptors), or
// INVALID_SOCKET_HANDLE.
SocketHandle openSocket(const addrinfo& address);

// Connecting without blocking, so that the caller decides how long to wait:
// startConnecting switches the socket to non-blocking mode and starts the
// connection; awaitConnection waits for it at most `wait` (a negative wait
// has no limit) or until `wake` is raised (NO_WAKE: never), and puts the
// socket back in blocking mode once the connection is made. A wait that
// ends without an outcome is Pending. On Failed, lastSocketError() tells
// why.
enum class ConnectProgress { Connected, Pending, Failed };
ConnectProgress startConnecting(SocketHandle socket, const addrinfo& address);
ConnectProgress awaitConnection(SocketHandle socket, std::chrono::milliseconds wait, WakeHandle wake = NO_WAKE);

// The error the system holds for a connection still in progress (for
// instance a host reported unreachable while the request is repeated), or
// 0 when it has none.
int pendingConnectionError(SocketHandle socket);

// The socket layer's codes for a connection given up by its caller: its time
// ran out, or it was cancelled.
extern const int CONNECT_TIMED_OUT;
extern const int CONNECT_CANCELLED;

// Waits at most `wait` (negative: without limit) for the socket to have
// data, an end or an error to read, or for `wake` to be raised (NO_WAKE:
// never): 1 when the socket has something, 0 when the wait ended without
// it (its time ran out, `wake` was raised or a signal came), -1 on failure.
int waitReadable(SocketHandle socket, std::chrono::milliseconds wait, WakeHandle wake = NO_WAKE);

// The number of bytes received, 0 when the peer has closed the connection
// in order, negative on failure.
long long receive(SocketHandle socket, char* buffer, std::size_t size);
void closeSocket(SocketHandle socket);

// The code of the last failed socket call on this thread.
int lastSocketError();

// Stores `code` in the C run-time library's errno.
void setRuntimeErrno(int code);

// The C run-time library's description of `code`, NUL-terminated, written
// into `buffer` (whose other bytes are left as they are).
void describeError(int code, char* buffer, std::size_t size);

} // namespace Orvan::Core::Platform
