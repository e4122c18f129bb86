#pragma once

#include <Core/Export.h>

#include <stdexcept>
#include <string>

namespace Orvan::Core {

// An input or output failure, with the text it was given.
struct ORVAN_CORE_EXPORT IOException : public std::runtime_error {
  explicit IOException(const char* message);
  explicit IOException(const std::string& message);
  IOException(const IOException& other);
  IOException(IOException&& other) noexcept;
  IOException& operator=(const IOException& other);
  IOException& operator=(IOException&& other) noexcept;
  ~IOException() override;
};

} // namespace Orvan::Core
