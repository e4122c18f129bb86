#include "Output.h"

#include <Utils/FileHelper.h>

#include <fstream>
#include <stdexcept>

namespace Orvan::Tool {

OutputFile::OutputFile(const std::string& path)
    : path(path == "-" ? "standard output" : path)
{
  if (path == "-") {
    stream = &std::cout;
    return;
  }
  auto opened = std::make_unique<std::ofstream>(Utils::FileHelper::toPath(path), std::ios::binary | std::ios::trunc);
  if (!opened->is_open()) {
    throw std::runtime_error("cannot create '" + path + "'");
  }
  stream = opened.get();
  file = std::move(opened);
}

OutputFile::~OutputFile() = default;

void OutputFile::close()
{
  stream->flush();
  bool written = static_cast<bool>(*stream);
  if (file) {
    auto& opened = static_cast<std::ofstream&>(*file);
    opened.close();
    written = written && !opened.fail();
  }
  if (!written) {
    throw std::runtime_error("cannot write '" + path + "'");
  }
}

} // namespace Orvan::Tool
