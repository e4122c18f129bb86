#pragma once

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace Orvan::Core::Platform {

// The lowest descriptor a file, socket or pipe of the library may take.
// Descriptors 0, 1 and 2 are the host's standard streams even when the host
// has closed them: a socket that took descriptor 1 would receive everything
// the host (and the library) writes to standard output.
inline constexpr int FIRST_PRIVATE_DESCRIPTOR = 3;

// Returns `descriptor` when it is a private one (3 or above), else a
// close-on-exec duplicate of it at 3 or above, closing the original. A
// negative `descriptor` is returned as it is. When duplicating fails, the
// original is closed and -1 is returned with errno set.
inline int keepClearOfStandardStreams(int descriptor)
{
  if (descriptor < 0 || descriptor >= FIRST_PRIVATE_DESCRIPTOR) {
    return descriptor;
  }
  const int duplicate = ::fcntl(descriptor, F_DUPFD_CLOEXEC, FIRST_PRIVATE_DESCRIPTOR);
  const int error = errno;
  ::close(descriptor);
  errno = error;
  return duplicate;
}

} // namespace Orvan::Core::Platform
