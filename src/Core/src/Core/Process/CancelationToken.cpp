#include "Process/CancelationState.h"

namespace Orvan::Core::Process {

void CancelationState::request()
{
  std::unique_lock<std::mutex> lock(mutex);
  if (flag.load(std::memory_order_relaxed)) {
    return;
  }
  flag.store(true, std::memory_order_release);
  if (wake) {
    wake->raise();
  }
  runningThread = std::this_thread::get_id();
  while (first != nullptr) {
    CancelationCallback* const callback = first;
    first = callback->next;
    if (first != nullptr) {
      first->previous = nullptr;
    } else {
      last = nullptr;
    }
    callback->next = callback->previous = nullptr;
    callback->listed = false;
    running = callback;
    lock.unlock();
    callback->callback();
    lock.lock();
    running = nullptr;
    runningEnded.notify_all();
  }
}

Platform::WakeHandle CancelationState::wakeHandle()
{
  const std::lock_guard<std::mutex> lock(mutex);
  if (!wake) {
    wake = std::make_unique<Platform::WakeSignal>();
    if (flag.load(std::memory_order_relaxed)) {
      wake->raise();
    }
  }
  return wake->handle();
}

bool CancelationState::add(CancelationCallback& callback)
{
  const std::lock_guard<std::mutex> lock(mutex);
  if (flag.load(std::memory_order_relaxed)) {
    return false;
  }
  callback.owner = this;
  callback.listed = true;
  callback.previous = last;
  (last != nullptr ? last->next : first) = &callback;
  last = &callback;
  return true;
}

void CancelationState::remove(CancelationCallback& callback)
{
  std::unique_lock<std::mutex> lock(mutex);
  if (callback.listed) {
    (callback.previous != nullptr ? callback.previous->next : first) = callback.next;
    (callback.next != nullptr ? callback.next->previous : last) = callback.previous;
    callback.listed = false;
    return;
  }
  // Taken off the list by request(): wait until it has returned, unless this
  // is the callback's own thread (a callback that destroys its registration).
  if (running == &callback && runningThread != std::this_thread::get_id()) {
    runningEnded.wait(lock, [this, &callback] { return running != &callback; });
  }
}

CancelationToken::CancelationToken()
    : state(std::make_unique<CancelationState>())
{
}

CancelationToken::~CancelationToken() = default;

void CancelationToken::requestCancel()
{
  state->request();
}

bool CancelationToken::isCancelRequested() const
{
  return state->requested();
}

bool CancelationToken::waitFor(std::chrono::milliseconds period) const
{
  return state->requested() || Platform::waitRaised(state->wakeHandle(), period);
}

bool isCancelRequested(const CancelationToken* token)
{
  return token != nullptr && token->isCancelRequested();
}

CancelationCallback::CancelationCallback(const CancelationToken* token, std::function<void()> callback)
    : callback(std::move(callback))
{
  if (token != nullptr && !token->state->add(*this)) {
    this->callback();
  }
}

CancelationCallback::~CancelationCallback()
{
  if (owner != nullptr) {
    owner->remove(*this);
  }
}

CancelationLink::CancelationLink(const CancelationToken* source, CancelationToken& target)
    : forward(source, [&target] { target.requestCancel(); })
{
}

} // namespace Orvan::Core::Process
