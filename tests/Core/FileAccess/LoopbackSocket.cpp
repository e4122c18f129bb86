#include "LoopbackSocket.h"

#if defined(_WIN32)
#  include "LoopbackSocket_windows.inc"
#else
#  include "LoopbackSocket_posix.inc"
#endif
