#include <Core/Process/Progression/ProcessProgression.h>

namespace Orvan::Core::Process::Progression {

ProcessProgression::ProcessProgressionToken::ProcessProgressionToken(ProcessProgression& progression)
    : detached(false)
    , progression(progression)
{
}

ProcessProgression::ProcessProgressionToken::ProcessProgressionToken(ProcessProgressionToken&& other)
    : detached(false)
    , progression(other.progression)
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
  if (const std::shared_ptr<ProcessProgressionToken> liveToken = token.lock()) {
    liveToken->detached = true;
  }
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
