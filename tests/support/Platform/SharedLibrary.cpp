#include "SharedLibrary.h"

#if defined(_WIN32)
#  include "SharedLibrary_windows.inc"
#else
#  include "SharedLibrary_posix.inc"
#endif
