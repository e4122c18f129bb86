#include <Core/Process/Progression/ProcessProgressionLinear.h>

#include <algorithm>

namespace Orvan::Core::Process::Progression {

ProcessProgressionLinear::ProcessProgressionLinear(unsigned long long maxSteps)
    : maxSteps(maxSteps)
{
}

double ProcessProgressionLinear::captureProgression() const
{
  if (isCompleted()) {
    return 1.0;
  }
  unsigned long long total = maxSteps.load();
  if (total == 0) {
    return 0.0;
  }
  const unsigned long long count = currentStep.load();
  if (count >= total) {
    // Other threads may have counted past the total read above, pushing the
    // total on before each step: read it again, after the count.
    total = std::max(total, maxSteps.load());
  }
  return std::min(static_cast<double>(count) / static_cast<double>(total), 1.0);
}

unsigned long long ProcessProgressionLinear::operator++()
{
  const unsigned long long previous = currentStep.fetch_add(1);
  progressionChanged();
  return previous + 1;
}

unsigned long long ProcessProgressionLinear::operator+=(unsigned long long steps)
{
  const unsigned long long previous = currentStep.fetch_add(steps);
  progressionChanged();
  return previous + steps;
}

void ProcessProgressionLinear::updateMaxSteps(unsigned long long maxSteps)
{
  this->maxSteps.store(maxSteps);
}

} // namespace Orvan::Core::Process::Progression
