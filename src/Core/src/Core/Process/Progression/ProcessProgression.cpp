#include <Core/Process/Progression/ProcessProgression.h>

namespace Orvan::Core::Process::Progression {

ProcessProgression::ProcessProgressionToken::ProcessProgressionToken(ProcessProgression& progression)
    : detached(false), progression(progression)
{
}

ProcessProgression::ProcessProgressionToken::ProcessProgressionToken(ProcessProgressionToken&& other)
    : detached(false), progression(other.progression)
{
  other.detached = true;
}

ProcessProgression::ProcessProgressionToken::~ProcessProgressionToken()
{
  if (!detached) {
    progression.setCompleted();
  }
}

ProcessProgression::ProcessProgression() = default;

ProcessProgression::~ProcessProgression()
{
  const std::lock_guard lock(tokenMutex);
  if (const std::shared_ptr<ProcessProgressionToken> liveToken = token.lock()) {
    liveToken->detached = true;
  }
}

void ProcessProgression::keepToken(const std::shared_ptr<ProcessProgressionToken>& newToken)
{
  // A weak reference is not safe to assign from two threads at once.
  const std::lock_guard lock(tokenMutex);
  token = newToken;
}

bool ProcessProgression::isCompleted() const
{
  return completed.load();
}

void ProcessProgression::setCompleted()
{
  completed.store(true);
  progressionChanged();
}

} // namespace Orvan::Core::Process::Progression
