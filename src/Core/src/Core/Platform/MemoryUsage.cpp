#include "MemoryUsage.h"

#if defined(_WIN32)
#  include "MemoryUsage_windows.inc"
#else
#  include "MemoryUsage_posix.inc"
#endif
