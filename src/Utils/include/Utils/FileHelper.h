#pragma once

#include <Utils/Export.h>

#include <filesystem>
#include <string>
#include <system_error>

// The product's strings are UTF-8 on every platform; these helpers convert
// them to and from paths.
namespace Orvan::Utils::FileHelper {

ORVAN_UTILS_EXPORT std::filesystem::path toPath(std::string text);

ORVAN_UTILS_EXPORT std::string toString(std::filesystem::path path);

// The error the caller has just met (the C library's errno), described by
// `message`; built without throwing, for the caller to throw.
ORVAN_UTILS_EXPORT std::system_error makeSystemError(const char* message);

} // namespace Orvan::Utils::FileHelper
