#include "LogFile.h"

#if defined(_WIN32)
#  include "LogFile_windows.inc"
#else
#  include "LogFile_posix.inc"
#endif
