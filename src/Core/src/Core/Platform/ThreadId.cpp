#include "ThreadId.h"

#if defined(_WIN32)
#  include "ThreadId_windows.inc"
#else
#  include "ThreadId_posix.inc"
#endif
