#include "Process.h"

#if defined(_WIN32)
#  include "Process_windows.inc"
#else
#  include "Process_posix.inc"
#endif
