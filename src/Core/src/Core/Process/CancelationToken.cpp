#include <Core/Process/CancelationToken.h>

namespace Orvan::Core::Process {

CancelationToken::CancelationToken()
    : cancelRequested(std::make_unique<std::atomic<bool>>(false))
{
}

CancelationToken::~CancelationToken() = default;

void CancelationToken::requestCancel()
{
  cancelRequested->store(true, std::memory_order_release);
}

bool CancelationToken::isCancelRequested() const
{
  return cancelRequested->load(std::memory_order_acquire);
}

bool isCancelRequested(const CancelationToken* token)
{
  return token != nullptr && token->isCancelRequested();
}

} // namespace Orvan::Core::Process
