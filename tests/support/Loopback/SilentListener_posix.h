#pragma once

#include <string>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Orvan::Testing {

// A listening socket on 127.0.0.1 that never accepts. A client's connection
// completes in its queue and then receives nothing. With `fillQueue`, the
// queue is filled by connections of its own, so that the system drops every
// further connection request: a connection to it neither succeeds nor fails.
// Without it, the queue has room for many connections that are never
// accepted, so that a client may connect again and again.
class SilentListener {
public:
  explicit SilentListener(bool fillQueue = false)
  {
    listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (::bind(listener, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        ::listen(listener, fillQueue ? 0 : 128) != 0 ||
        ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
      return;
    }
    portNumber = ntohs(address.sin_port);
    ready = !fillQueue;
    for (int i = 0; i < 64 && fillQueue && !ready; ++i) {
      const int client = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
      fillers.push_back(client);
      if (::connect(client, reinterpret_cast<sockaddr*>(&address), length) == 0) {
        continue;
      }
      pollfd watched{client, POLLOUT, 0};
      ready = errno == EINPROGRESS && ::poll(&watched, 1, 500) == 0;
    }
  }

  ~SilentListener()
  {
    for (const int client : fillers) {
      ::close(client);
    }
    ::close(listener);
  }

  SilentListener(const SilentListener&) = delete;
  SilentListener& operator=(const SilentListener&) = delete;

  // Listening (and, when asked, with its queue full).
  bool isReady() const { return ready; }
  unsigned short port() const { return portNumber; }

  // A remote descriptor naming it, as text: the tool's tests, which use it
  // too, do not link the library.
  std::string target(const std::string& name = "silent.bin") const
  {
    return name + "@127.0.0.1:" + std::to_string(portNumber);
  }

private:
  int listener = -1;
  unsigned short portNumber = 0;
  std::vector<int> fillers;
  bool ready = false;
};

} // namespace Orvan::Testing
