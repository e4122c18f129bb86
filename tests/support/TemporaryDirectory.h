#pragma once

#include <filesystem>
#include <string>

namespace Orvan::Testing {

// A fresh directory under the system's temporary directory, removed with
// everything in it when the object goes.
class TemporaryDirectory {
public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::filesystem::path& path() const { return root; }
  std::filesystem::path operator/(const std::string& name) const { return root / name; }

private:
  std::filesystem::path root;
};

// The whole content of a file, byte for byte.
std::string readFile(const std::filesystem::path& path);

// Writes `content` to `path`, replacing the file.
void writeFile(const std::filesystem::path& path, const std::string& content);

} // namespace Orvan::Testing
