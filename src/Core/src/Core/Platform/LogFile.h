#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>

// A text file written line by line, each write handed straight to the system
// (no buffer of our own, so a written line is flushed). Text mode: on
// Windows the run-time library writes "\r\n" for each "\n".
namespace Orvan::Core::Platform {

// Creates the file, or truncates an existing one, then opens it for
// appending: each write lands at the file's end as it is at that moment, so
// another writer on the same file, or a truncation from outside (a log
// rotation that copies and truncates), never leaves a hole of NULs or has
// lines overwritten. Returns a descriptor (never one of the standard
// streams'), or -1 when the file cannot be opened.
int openTruncatedTextFile(const std::filesystem::path& path);

// Opens the file for appending as above, creating it when it is missing but
// keeping what it holds. Returns -1 when the file cannot be opened.
int openAppendedTextFile(const std::filesystem::path& path);

// The size of the open file in bytes, 0 when it cannot be told.
std::uint64_t fileSize(int descriptor);

// The bytes that writing `size` bytes of `data` adds to the file: more than
// `size` where each line end is stored as two characters.
std::uint64_t storedSize(const char* data, std::size_t size);

// Writes the `size` bytes (several system calls only for a partial write)
// and returns how many were written: fewer when the system refuses the rest
// (a full disk, a file size limit).
std::size_t writeToFile(int descriptor, const char* data, std::size_t size);

void closeFile(int descriptor);

} // namespace Orvan::Core::Platform
