#include "Child.h"

#if defined(_WIN32)
#  include "Child_windows.inc"
#else
#  include "Child_posix.inc"
#endif
