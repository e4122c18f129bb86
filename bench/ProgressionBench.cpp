// The cost of counting a step: on a lone counter against the bare atomic
// addition it is built on, and on a counter deep in a tree whose root is
// observed.
#include "Comparison.h"

#include <Core/Process/Progression/ProcessProgressionLinear.h>
#include <Core/Process/Progression/ProcessProgressionTreeNode.h>
#include <Core/Process/Progression/ProgressionObserver.h>

#include <atomic>
#include <memory>
#include <utility>

namespace {

namespace Progression = Orvan::Core::Process::Progression;

constexpr unsigned long long MANY_STEPS = 1ULL << 62;

void BareAtomicFetchAdd(benchmark::State& state)
{
  std::atomic<unsigned long long> count{0};
  for (auto _ : state) {
    benchmark::DoNotOptimize(count.fetch_add(1));
  }
}
BENCHMARK(BareAtomicFetchAdd);

void LoneCounterIncrement(benchmark::State& state)
{
  Progression::ProcessProgressionLinear counter(MANY_STEPS);
  for (auto _ : state) {
    benchmark::DoNotOptimize(++counter);
  }
}
BENCHMARK(LoneCounterIncrement);

class DiscardingObserver : public Progression::ProgressionObserver {
public:
  DiscardingObserver(std::weak_ptr<Progression::ProgressionObservable> observable, unsigned int period)
      : ProgressionObserver(std::move(observable), period, DeferredStart{})
  {
    startObserving();
  }
  ~DiscardingObserver() override { stopObserving(); }
  void onProgressionUpdated(double progression) override { benchmark::DoNotOptimize(progression); }
};

void ObservedGrandchildIncrement(benchmark::State& state)
{
  auto root = std::make_shared<Progression::ProcessProgressionTreeNode>();
  auto parent = std::make_unique<Progression::ProcessProgressionTreeNode>();
  auto leaf = std::make_unique<Progression::ProcessProgressionLinear>(MANY_STEPS);
  Progression::ProcessProgressionLinear& counter = *leaf;
  parent->addChild(std::move(leaf));
  parent->addChild(std::make_unique<Progression::ProcessProgressionLinear>(1));
  root->addChild(std::move(parent));
  root->addChild(std::make_unique<Progression::ProcessProgressionLinear>(1));
  DiscardingObserver observer(root, 100);

  for (auto _ : state) {
    benchmark::DoNotOptimize(++counter);
  }
}
BENCHMARK(ObservedGrandchildIncrement);

} // namespace

int main(int argc, char** argv)
{
  // The observed grandchild has an absolute target (150 ns per increment),
  // shown against the bare atomic for scale.
  return Orvan::Bench::runAndCompare(
      argc, argv,
      {{"LoneCounterIncrement", "BareAtomicFetchAdd", 3}, {"ObservedGrandchildIncrement", "BareAtomicFetchAdd", 0}});
}
