#include "Socket.h"

#if defined(_WIN32)
#  include "Socket_windows.inc"
#else
#  include "Socket_posix.inc"
#endif
