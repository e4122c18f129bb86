#include "OutputCapture.h"

#include "Platform/System.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace Orvan::Testing {
namespace {

void flushStandardStreams()
{
  std::cout.flush();
  std::cerr.flush();
  std::fflush(stdout);
  std::fflush(stderr);
}

std::filesystem::path uniqueCaptureFile()
{
  static std::atomic<unsigned> counter{0};
  return std::filesystem::temp_directory_path() /
         ("orvan-capture-" + std::to_string(Platform::processId()) + "-" + std::to_string(counter++) + ".txt");
}

// GoogleTest writes its failure reports to standard output: one made while
// standard output was captured would end up in the capture, unseen. Once the
// test has failed, the captured text (its end, when long) is shown as well.
void showFailureReports(const std::string& captured)
{
  constexpr std::size_t SHOWN = 256 * 1024;
  const std::size_t from = captured.size() > SHOWN ? captured.size() - SHOWN : 0;
  std::cout << "--- standard output captured while the test failed";
  if (from > 0) {
    std::cout << " (its last " << SHOWN << " bytes)";
  }
  std::cout << ":\n" << captured.substr(from) << "\n--- end of captured standard output" << std::endl;
}

} // namespace

OutputCapture::OutputCapture(int descriptor)
    : descriptor(descriptor)
    , saved(-1)
    , file(uniqueCaptureFile())
    , capturing(true)
{
  flushStandardStreams();
  saved = Platform::duplicate(descriptor);
  const int target = Platform::createFile(file);
  if (saved < 0 || target < 0) {
    throw std::runtime_error("cannot redirect descriptor " + std::to_string(descriptor));
  }
  Platform::duplicateTo(target, descriptor);
  Platform::close(target);
}

OutputCapture::~OutputCapture()
{
  release();
  std::error_code ignored;
  std::filesystem::remove(file, ignored);
}

std::string OutputCapture::release()
{
  if (!capturing) {
    return {};
  }
  capturing = false;
  flushStandardStreams();
  Platform::duplicateTo(saved, descriptor);
  Platform::close(saved);
  std::ifstream input(file, std::ios::binary);
  std::string captured(std::istreambuf_iterator<char>(input), std::istreambuf_iterator<char>{});
  if (descriptor == 1 && ::testing::Test::HasFailure()) {
    showFailureReports(captured);
  }
  return captured;
}

} // namespace Orvan::Testing
