#include "ChildPrograms.h"

#if defined(_WIN32)
#  include "ChildPrograms_windows.inc"
#else
#  include "ChildPrograms_posix.inc"
#endif
