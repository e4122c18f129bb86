#pragma once

#include <filesystem>
#include <ios>
#include <istream>
#include <memory>

namespace Orvan::Core::Platform {

// Opens `path` for reading with `mode` (the input bit is added), so that
// other openers may still read, write, rename and delete the file. Returns
// null when the file cannot be opened (a directory included), with errno
// describing why.
std::unique_ptr<std::istream> openSharedFile(const std::filesystem::path& path, std::ios_base::openmode mode);

} // namespace Orvan::Core::Platform
