#pragma once

#include <filesystem>

// The few descriptor calls the test support needs, on POSIX and Windows.
namespace Orvan::Testing::Platform {

int duplicate(int descriptor);
void duplicateTo(int source, int target);
int createFile(const std::filesystem::path& path);
void close(int descriptor);
unsigned long processId();

} // namespace Orvan::Testing::Platform
