#include "OutputCapture.h"

#include "Platform/System.h"

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
  return std::string(std::istreambuf_iterator<char>(input), std::istreambuf_iterator<char>());
}

} // namespace Orvan::Testing
