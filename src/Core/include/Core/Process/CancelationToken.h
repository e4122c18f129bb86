#pragma once

#include <Core/Export.h>

#include <chrono>
#include <functional>
#include <memory>

namespace Orvan::Core::Process {

class CancelationState;

// A cooperative cancellation flag. The host hands the token's address to a
// long-running operation and later calls requestCancel from any thread. Once
// set, the flag stays set.
//
// The library's own blocking calls (a program's run, a connection, a read, a
// pause between two attempts) do not poll the flag: they wait on the token
// beside what they wait for, and requestCancel wakes them at once. A host
// can do the same with waitFor, or have a function called on cancellation
// with a CancelationCallback.
class ORVAN_CORE_EXPORT CancelationToken {
public:
  CancelationToken();
  CancelationToken(const CancelationToken&) = delete;
  CancelationToken& operator=(const CancelationToken&) = delete;
  // Every CancelationCallback and CancelationLink on the token must be gone.
  ~CancelationToken();

  // Sets the flag, wakes every wait on the token and runs the registered
  // callbacks on this thread, in the order of their registration. Only the
  // first request does anything.
  void requestCancel();
  bool isCancelRequested() const;

  // Waits at most `period` for a cancellation (a negative period: without
  // limit); true when one was requested.
  bool waitFor(std::chrono::milliseconds period) const;

private:
  friend class CancelationCallback;
  friend struct CancelationAccess;

  // On the heap, so that the token itself is one pointer wide: the flag, the
  // callbacks and the signal that wakes the waits.
  std::unique_ptr<CancelationState> state;
};

// False for a null token (an operation that cannot be cancelled).
ORVAN_CORE_EXPORT bool isCancelRequested(const CancelationToken* token);

// Runs `callback` once when the token is cancelled, on the thread that
// cancels it, or at once in this constructor when it already is; never after
// this object is destroyed. A null token never calls it. The destructor
// deregisters the callback: when the callback is running on another thread
// at that moment, it waits for it to return (from inside the callback itself
// it does not wait). The callback must not throw.
class ORVAN_CORE_EXPORT CancelationCallback {
public:
  CancelationCallback(const CancelationToken* token, std::function<void()> callback);
  ~CancelationCallback();
  CancelationCallback(const CancelationCallback&) = delete;
  CancelationCallback& operator=(const CancelationCallback&) = delete;

private:
  friend class CancelationState;

  // The token's block while registered; `listed` until request() takes the
  // callback off the list to run it.
  CancelationState* owner = nullptr;
  bool listed = false;
  std::function<void()> callback;
  CancelationCallback* next = nullptr;
  CancelationCallback* previous = nullptr;
};

// Cancels `target` when `source` is cancelled (at once when it already is),
// for as long as the link lives: an operation with a token of its own that
// the host's token ends too. A null source links nothing.
class ORVAN_CORE_EXPORT CancelationLink {
public:
  CancelationLink(const CancelationToken* source, CancelationToken& target);

private:
  CancelationCallback forward;
};

} // namespace Orvan::Core::Process
