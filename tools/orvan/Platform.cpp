#include "Platform.h"

#ifdef _WIN32
#  include "Platform_windows.inc"
#else
#  include "Platform_posix.inc"
#endif
