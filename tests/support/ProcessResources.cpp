#include "ProcessResources.h"

#if defined(_WIN32)
#  include "ProcessResources_windows.inc"
#else
#  include "ProcessResources_posix.inc"
#endif
