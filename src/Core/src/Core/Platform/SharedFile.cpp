#include "SharedFile.h"

#if defined(_WIN32)
#  include "SharedFile_windows.inc"
#else
#  include "SharedFile_posix.inc"
#endif
