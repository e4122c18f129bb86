#pragma once

#include <cstddef>
#include <filesystem>

// A text file written line by line, each write handed straight to the system
// (no buffer of our own, so a written line is flushed). Text mode: on
// Windows the run-time library writes "\r\n" for each "\n".
namespace Orvan::Core::Platform {

// Creates the file, or truncates an existing one, for writing. Returns a
// descriptor, or -1 when the file cannot be opened.
int openTruncatedTextFile(const std::filesystem::path& path);

// Writes all `size` bytes (several system calls only for a partial write).
void writeToFile(int descriptor, const char* data, std::size_t size);

void closeFile(int descriptor);

} // namespace Orvan::Core::Platform
