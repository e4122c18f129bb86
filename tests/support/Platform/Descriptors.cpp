#include "Descriptors.h"

#if defined(_WIN32)
#include "Descriptors_windows.inc"
#else
#include "Descriptors_posix.inc"
#endif
