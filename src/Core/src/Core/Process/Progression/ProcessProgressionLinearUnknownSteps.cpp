#include <Core/Process/Progression/ProcessProgressionLinearUnknownSteps.h>

namespace Orvan::Core::Process::Progression {

ProcessProgressionLinearUnknownSteps::ProcessProgressionLinearUnknownSteps()
    : ProcessProgressionLinear(1)
{
}

ProcessProgressionLinearUnknownSteps::ProcessProgressionLinearUnknownSteps(unsigned long long estimatedSteps)
    : ProcessProgressionLinear(estimatedSteps)
{
}

unsigned long long ProcessProgressionLinearUnknownSteps::operator++()
{
  // Keep the total one step ahead of the count. Two racing increments may
  // both push it; that only lowers the reading.
  const unsigned long long count = currentStep.load();
  const unsigned long long total = maxSteps.load();
  if (count + 1 >= total) {
    maxSteps.fetch_add(1);
  }
  return ProcessProgressionLinear::operator++();
}

} // namespace Orvan::Core::Process::Progression
