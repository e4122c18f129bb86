#include <Utils/ReturnStatus.h>

#include <utility>

namespace Orvan::Utils::ErrorManagement {

ReturnStatus::ReturnStatus() = default;

ReturnStatus::ReturnStatus(int code, std::string message)
    : statusCode(code)
    , text(std::move(message))
{
}

ReturnStatus::ReturnStatus(const ReturnStatus& other) = default;
ReturnStatus::ReturnStatus(ReturnStatus&& other) noexcept = default;
ReturnStatus& ReturnStatus::operator=(const ReturnStatus& other) = default;
ReturnStatus& ReturnStatus::operator=(ReturnStatus&& other) noexcept = default;
ReturnStatus::~ReturnStatus() = default;

} // namespace Orvan::Utils::ErrorManagement
