// POSIX only: Windows starts its programs in Process_windows.inc and
// Child_windows.inc.
#if !defined(_WIN32)
#  include "Reaper_posix.inc"
#  include "Spawn_posix.inc"
#endif
