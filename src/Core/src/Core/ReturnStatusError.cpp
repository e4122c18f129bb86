#include <Core/Logging/LoggingCallback.h>
#include <Core/ReturnStatusError.h>
#include <Utils/CoreAssert.h>

#include <sstream>
#include <utility>

namespace Orvan::Core {

using Utils::ErrorManagement::ReturnStatus;

namespace {

std::string translated(const ReturnStatus& status)
{
  std::stringstream text;
  Logging::makeContent(text, status);
  return text.str();
}

} // namespace

ReturnStatusError::ReturnStatusError(ReturnStatus rs)
    : std::runtime_error(translated(rs))
    , status(rs)
{
  CORE_ASSERT(!rs);
}

ReturnStatusError::ReturnStatusError(const ReturnStatusError& other) = default;
ReturnStatusError::ReturnStatusError(ReturnStatusError&& other) noexcept = default;
ReturnStatusError& ReturnStatusError::operator=(const ReturnStatusError& other) = default;
ReturnStatusError& ReturnStatusError::operator=(ReturnStatusError&& other) noexcept = default;
ReturnStatusError::~ReturnStatusError() = default;

const ReturnStatus& ReturnStatusError::getStatus() const
{
  return status;
}

} // namespace Orvan::Core
