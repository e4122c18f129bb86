#pragma once

#include <cstddef>
#include <filesystem>

// The few system calls the test support needs, on POSIX and Windows.
namespace Orvan::Testing::Platform {

int duplicate(int descriptor);
void duplicateTo(int source, int target);
int createFile(const std::filesystem::path& path);
void close(int descriptor);

// A pipe whose ends child programs do not inherit; false when it cannot be made.
bool createPipe(int& readEnd, int& writeEnd);

// Reads what is there, up to `size` bytes: the count, 0 at the end of the
// data, negative on failure.
long readSome(int descriptor, char* buffer, std::size_t size);
unsigned long processId();

// The operating system's number for the calling thread.
unsigned long long currentThreadId();

} // namespace Orvan::Testing::Platform
