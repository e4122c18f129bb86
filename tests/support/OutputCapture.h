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

} // namespace Orvan::Testing
