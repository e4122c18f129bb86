#include "Listener.h"

#if defined(_WIN32)
#  include "Listener_windows.inc"
#else
#  include "Listener_posix.inc"
#endif
