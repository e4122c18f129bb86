#pragma once

#include <iostream>
#include <memory>
#include <string>

namespace Orvan::Tool {

// A file the tool writes its result to, or standard output for "-". Writes
// are buffered; close() tells whether every byte reached its place.
class OutputFile {
public:
  // `path` is UTF-8. Throws std::runtime_error when the file cannot be
  // created.
  explicit OutputFile(const std::string& path);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  void write(const std::string& text) { stream->write(text.data(), static_cast<std::streamsize>(text.size())); }

  // Throws std::runtime_error when a write failed.
  void close();

  // The path, or "standard output".
  const std::string& name() const { return path; }

private:
  std::string path;
  // The file, or null for standard output.
  std::unique_ptr<std::ostream> file;
  std::ostream* stream;
};

} // namespace Orvan::Tool
