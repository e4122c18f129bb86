#include "System.h"

#if defined(_WIN32)
#  include "System_windows.inc"
#else
#  include "System_posix.inc"
#endif
