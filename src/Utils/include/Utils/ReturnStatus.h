#pragma once

#include <Utils/Export.h>

#include <string>

namespace Orvan::Utils::ErrorManagement {

// The outcome of an operation: success, or a failure with a code and a text.
// A default-constructed status is a success.
class ORVAN_UTILS_EXPORT ReturnStatus {
public:
  ReturnStatus();
  // A failure when `code` is not 0; a code of 0 means success whatever the text.
  ReturnStatus(int code, std::string message);
  ReturnStatus(const ReturnStatus& other);
  ReturnStatus(ReturnStatus&& other) noexcept;
  ReturnStatus& operator=(const ReturnStatus& other);
  ReturnStatus& operator=(ReturnStatus&& other) noexcept;
  ~ReturnStatus();

  int code() const noexcept { return statusCode; }
  const std::string& message() const noexcept { return text; }

  // True for success.
  explicit operator bool() const noexcept { return statusCode == 0; }

  friend bool operator==(const ReturnStatus& lhs, const ReturnStatus& rhs)
  {
    return lhs.statusCode == rhs.statusCode && lhs.text == rhs.text;
  }
  friend bool operator!=(const ReturnStatus& lhs, const ReturnStatus& rhs) { return !(lhs == rhs); }

private:
  int statusCode = 0;
  std::string text;
};

} // namespace Orvan::Utils::ErrorManagement
