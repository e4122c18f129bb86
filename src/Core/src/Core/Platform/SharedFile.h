#pragma once

#include <chrono>
#include <filesystem>
#include <ios>
#include <istream>
#include <memory>

#include "Platform/WakeSignal.h"

namespace Orvan::Core::Platform {

// What may end a FIFO's wait for its writer before the writer comes: a span
// of time (0: none) and a wake signal, a cancellation's (NO_WAKE: none). With
// neither, the FIFO waits as a file stream waits for it, as long as it takes.
struct WriterWait {
  std::chrono::milliseconds limit{0};
  WakeHandle wake = NO_WAKE;
};

// Opens `path` for reading with `mode` (the input bit is added), so that
// other openers may still read, write, rename and delete the file. Returns
// null when the file cannot be opened (a directory included), with errno
// describing why. A FIFO opened for reading only waits for its writer, as a
// file stream does, within `wait`: when the wait ends first, null is
// returned with errno ETIMEDOUT or ECANCELED. (Windows has no FIFOs among
// its files.)
std::unique_ptr<std::istream> openSharedFile(const std::filesystem::path& path, std::ios_base::openmode mode,
                                             const WriterWait& wait = {});

} // namespace Orvan::Core::Platform
