#pragma once

#include <Core/Export.h>

#include <atomic>
#include <memory>

namespace Orvan::Core::Process {

// A cooperative cancellation flag. The host hands the token's address to a
// long-running operation and later calls requestCancel from any thread; the
// operation polls the flag and stops on its own. Once set, the flag stays set.
class ORVAN_CORE_EXPORT CancelationToken {
public:
  CancelationToken();
  CancelationToken(const CancelationToken&) = delete;
  CancelationToken& operator=(const CancelationToken&) = delete;
  ~CancelationToken();

  void requestCancel();
  bool isCancelRequested() const;

private:
  // On the heap, so that the token itself is one pointer wide.
  std::unique_ptr<std::atomic<bool>> cancelRequested;
};

// False for a null token (an operation that cannot be cancelled).
ORVAN_CORE_EXPORT bool isCancelRequested(const CancelationToken* token);

} // namespace Orvan::Core::Process
