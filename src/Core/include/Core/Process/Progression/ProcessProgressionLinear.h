#pragma once

#include <Core/Export.h>
#include <Core/Process/Progression/ProcessProgressionTreeNode.h>

#include <atomic>

namespace Orvan::Core::Process::Progression {

// Counts steps against a known total. Counting is lock-free and may happen on
// several threads at once. Children given to a counter are ignored by its own
// fraction.
class ORVAN_CORE_EXPORT ProcessProgressionLinear : public ProcessProgressionTreeNode {
public:
  // Without a total (0) the counter reads 0.0 until updateMaxSteps gives it
  // one or it is completed.
  explicit ProcessProgressionLinear(unsigned long long maxSteps = 0);

  // 1.0 when completed, 0.0 without a total, else the count over the total,
  // at most 1.0.
  double captureProgression() const override;

  // One more step; notifies and returns the new count.
  virtual unsigned long long operator++();

  // `steps` more steps (0 still notifies); returns the new count.
  virtual unsigned long long operator+=(unsigned long long steps);

  // Replaces the total without notifying: observers see it at the next change.
  void updateMaxSteps(unsigned long long maxSteps);

protected:
  std::atomic<unsigned long long> currentStep{0};
  std::atomic<unsigned long long> maxSteps;
};

} // namespace Orvan::Core::Process::Progression
