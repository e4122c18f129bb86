#include "SystemMemory.h"

#if defined(_WIN32)
#  include "SystemMemory_windows.inc"
#else
#  include "SystemMemory_posix.inc"
#endif
