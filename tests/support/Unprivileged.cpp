#include "Unprivileged.h"

#if defined(_WIN32)
#  include "Unprivileged_windows.inc"
#else
#  include "Unprivileged_posix.inc"
#endif
