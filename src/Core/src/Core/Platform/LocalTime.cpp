#include "LocalTime.h"

#if defined(_WIN32)
#  include "LocalTime_windows.inc"
#else
#  include "LocalTime_posix.inc"
#endif
