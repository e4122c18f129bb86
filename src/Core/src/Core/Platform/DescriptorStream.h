#pragma once

#include <ext/stdio_filebuf.h>

#include <ios>
#include <istream>

namespace Orvan::Core::Platform {

// An input stream over a C run-time descriptor that the library opened
// itself (libstdc++ only); the stream closes the descriptor. `ate` is
// honoured: the stream starts at the file's end.
class DescriptorStream : public std::istream {
public:
  DescriptorStream(int descriptor, std::ios_base::openmode mode)
      : std::istream(nullptr)
      , buffer(descriptor, mode)
  {
    rdbuf(&buffer);
    if ((mode & std::ios_base::ate) != 0 && buffer.is_open()) {
      seekg(0, std::ios_base::end);
    }
  }

  // False when the buffer did not take the descriptor over (a mode that no
  // file stream accepts); the descriptor is then still the caller's.
  bool isOpen() const { return buffer.is_open(); }

private:
  __gnu_cxx::stdio_filebuf<char> buffer;
};

} // namespace Orvan::Core::Platform
