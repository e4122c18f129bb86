#include "LoopbackSocket.h"

#if defined(_WIN32)
#  include "LoopbackSocket_windows.inc"
#else
#  include "LoopbackSocket_posix.inc"
#endif

namespace Orvan::Testing::Loopback {

unsigned short freePort()
{
  unsigned short port = 0;
  const Handle socket = bindLoopback(false, port);
  if (socket != INVALID_HANDLE) {
    closeSocket(socket);
  }
  return port;
}

} // namespace Orvan::Testing::Loopback
