#pragma once

#include <Core/Export.h>
#include <Utils/ReturnStatus.h>

#include <stdexcept>

namespace Orvan::Core {

// Turns a failed status into an exception. Its text is the status's
// translation (see Logging::makeContent), fixed when the exception is built.
struct ORVAN_CORE_EXPORT ReturnStatusError : public std::runtime_error {
  // `rs` must report a failure; a successful status is reported through
  // CORE_ASSERT and still yields an exception.
  explicit ReturnStatusError(Utils::ErrorManagement::ReturnStatus rs);
  ReturnStatusError(const ReturnStatusError& other);
  ReturnStatusError(ReturnStatusError&& other) noexcept;
  ReturnStatusError& operator=(const ReturnStatusError& other);
  ReturnStatusError& operator=(ReturnStatusError&& other) noexcept;
  ~ReturnStatusError() override;

  const Utils::ErrorManagement::ReturnStatus& getStatus() const;

private:
  Utils::ErrorManagement::ReturnStatus status;
};

} // namespace Orvan::Core
