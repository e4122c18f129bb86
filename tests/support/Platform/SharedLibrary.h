#pragma once

#include <string>

namespace Orvan::Testing::Platform {

// Loads a shared library at run time; null on failure, with `error` set.
void* loadLibrary(const std::string& path, std::string& error);

// Unloads it; false on failure.
bool unloadLibrary(void* handle);

} // namespace Orvan::Testing::Platform
