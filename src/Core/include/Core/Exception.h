#pragma once

#include <Core/Export.h>

#include <exception>
#include <string>

namespace Orvan::Core {

// A general exception carrying a message. It derives straight from
// std::exception: a handler for Exception catches neither IOException nor
// ReturnStatusError.
class ORVAN_CORE_EXPORT Exception : public std::exception {
public:
  Exception();
  explicit Exception(const std::string& message);
  Exception(const Exception& other);
  Exception& operator=(const Exception& other);
  ~Exception() override;

  // The message; never null.
  const char* what() const noexcept override;

private:
  std::string message;
};

} // namespace Orvan::Core
