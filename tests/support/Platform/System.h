#pragma once

#include <filesystem>

// The few system calls the test support needs, on POSIX and Windows.
namespace Orvan::Testing::Platform {

int duplicate(int descriptor);
void duplicateTo(int source, int target);
int createFile(const std::filesystem::path& path);
void close(int descriptor);
unsigned long processId();

// The operating system's number for the calling thread.
unsigned long long currentThreadId();

} // namespace Orvan::Testing::Platform
