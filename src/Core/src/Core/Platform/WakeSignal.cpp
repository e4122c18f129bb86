#include "WakeSignal.h"

#if defined(_WIN32)
#  include "WakeSignal_windows.inc"
#else
#  include "WakeSignal_posix.inc"
#endif
