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
  // The total is pushed one step ahead before the count would reach it, and
  // the count moves only from the value that check was made for: when
  // another thread counted in between, both are looked at again. So however
  // many threads count at once, the count never catches the total (pushing
  // it twice only lowers the reading).
  unsigned long long count = currentStep.load();
  for (;;) {
    unsigned long long total = maxSteps.load();
    if (count + 1 >= total) {
      maxSteps.compare_exchange_strong(total, total + 1);
    }
    if (currentStep.compare_exchange_weak(count, count + 1)) {
      break;
    }
  }
  progressionChanged();
  return count + 1;
}

} // namespace Orvan::Core::Process::Progression
