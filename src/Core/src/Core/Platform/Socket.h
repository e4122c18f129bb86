#pragma once

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
// not inherit it), or INVALID_SOCKET_HANDLE.
SocketHandle openSocket(const addrinfo& address);
bool connectSocket(SocketHandle socket, const addrinfo& address);

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
