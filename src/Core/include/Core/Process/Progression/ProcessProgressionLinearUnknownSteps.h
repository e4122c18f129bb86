#pragma once

#include <Core/Export.h>
#include <Core/Process/Progression/ProcessProgressionLinear.h>

namespace Orvan::Core::Process::Progression {

// Counts steps against a total that is not known in advance: each increment
// that would reach the total first pushes it one step further, so the
// fraction approaches 1.0 without reaching it until the progression is
// completed. Adding steps with += does not move the total.
class ORVAN_CORE_EXPORT ProcessProgressionLinearUnknownSteps : public ProcessProgressionLinear {
public:
  // Starts from a total of one step: readings 0, 1/2, 2/3, 3/4...
  ProcessProgressionLinearUnknownSteps();

  // Follows count/estimatedSteps until the count would reach the estimate.
  explicit ProcessProgressionLinearUnknownSteps(unsigned long long estimatedSteps);

  unsigned long long operator++() override;
};

} // namespace Orvan::Core::Process::Progression
