#pragma once

#include <filesystem>
#include <string>

namespace Orvan::Testing {

// Redirects a standard stream (1: standard output, 2: standard error) into a
// file at the descriptor level, so that everything written to it, through
// std::cout, printf or the C runtime, is captured for real.
class OutputCapture {
public:
  explicit OutputCapture(int descriptor);
  ~OutputCapture();
  OutputCapture(const OutputCapture&) = delete;
  OutputCapture& operator=(const OutputCapture&) = delete;

  // Ends the capture (once) and returns every byte written meanwhile.
  std::string release();

private:
  int descriptor;
  int saved;
  std::filesystem::path file;
  bool capturing;
};

// Standard output and error as written on this platform, with "\r\n" line
// ends (text-mode descriptors on Windows) turned into "\n".
inline std::string withPlainLineEnds(std::string text)
{
  std::string::size_type at = 0;
  while ((at = text.find("\r\n", at)) != std::string::npos) {
    text.erase(at, 1);
  }
  return text;
}

} // namespace Orvan::Testing
