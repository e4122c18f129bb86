#include "TemporaryDirectory.h"

#include <atomic>
#include <chrono>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace Orvan::Testing {

TemporaryDirectory::TemporaryDirectory()
{
  static std::atomic<unsigned> counter{0};
  const auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
  root = std::filesystem::temp_directory_path() /
         ("orvan-test-" + std::to_string(stamp) + "-" + std::to_string(counter++));
  std::filesystem::create_directories(root);
}

TemporaryDirectory::~TemporaryDirectory()
{
  std::error_code ignored;
  std::filesystem::remove_all(root, ignored);
}

std::string readFile(const std::filesystem::path& path)
{
  std::ifstream input(path, std::ios::binary);
  if (!input) {
    throw std::runtime_error("cannot read " + path.string());
  }
  return std::string(std::istreambuf_iterator<char>(input), std::istreambuf_iterator<char>());
}

void writeFile(const std::filesystem::path& path, const std::string& content)
{
  std::ofstream output(path, std::ios::binary | std::ios::trunc);
  output << content;
  if (!output) {
    throw std::runtime_error("cannot write " + path.string());
  }
}

} // namespace Orvan::Testing
