// Fuzzes the POSIX command-line splitter and quoting.
//
// The input is taken two ways. As a command line: splitting it either fails
// (an unbalanced quote, a NUL) or gives words that, quoted, split back into
// the same words. As words separated by NUL bytes (which no word can hold):
// quoted, they split back into exactly these words.

#include "Platform/CommandLine.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using Orvan::Core::Platform::quotePosixCommandLine;
using Orvan::Core::Platform::splitPosixCommandLine;
using Words = std::vector<std::string>;

void checkRoundTrip(const Words& words, const char* what)
{
  const std::string line = quotePosixCommandLine(words);
  Words back;
  if (!splitPosixCommandLine(line, back) || back != words) {
    std::fprintf(stderr, "command line finding (%s): the quoted line '%s' does not split back\n", what, line.c_str());
    std::abort();
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
  const std::string input(reinterpret_cast<const char*>(data), size);

  Words split;
  if (splitPosixCommandLine(input, split)) {
    checkRoundTrip(split, "words split from the input");
  }

  Words words;
  std::size_t start = 0;
  for (std::size_t end = input.find('\0'); start <= input.size(); end = input.find('\0', start)) {
    if (end == std::string::npos) {
      end = input.size();
    }
    words.push_back(input.substr(start, end - start));
    start = end + 1;
  }
  checkRoundTrip(words, "words separated by NUL");
  return 0;
}
