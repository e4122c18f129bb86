#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace Orvan::Bench {

// A figure of ours set against the baseline measured in the same run.
struct Comparison {
  std::string ours;     // benchmark name
  std::string baseline; // benchmark name
  double targetRatio;   // ours / baseline must not exceed this; 0 when there is none
};

// Prints the console report and remembers each benchmark's time per
// iteration, so that ratios can be printed once every benchmark has run.
class RecordingReporter : public benchmark::ConsoleReporter {
public:
  void ReportRuns(const std::vector<Run>& runs) override
  {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Iteration || run.aggregate_name == "mean") {
        // In nanoseconds, whatever unit the benchmark reports in.
        times[run.run_name.function_name + run.run_name.args] =
            run.GetAdjustedRealTime() / benchmark::GetTimeUnitMultiplier(run.time_unit) * 1e9;
      }
    }
  }

  std::map<std::string, double> times;
};

// Runs the benchmarks named on the command line (all by default), then prints
// one line per comparison: both times, the ratio and the target.
inline int runAndCompare(int argc, char** argv, const std::vector<Comparison>& comparisons)
{
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  RecordingReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();

  std::printf("\n%-44s %14s %14s %8s %8s\n", "comparison", "ours", "baseline", "ratio", "target");
  for (const Comparison& comparison : comparisons) {
    const auto ours = reporter.times.find(comparison.ours);
    const auto baseline = reporter.times.find(comparison.baseline);
    if (ours == reporter.times.end() || baseline == reporter.times.end()) {
      continue;
    }
    const double ratio = ours->second / baseline->second;
    std::printf("%-44s %11.2f ns %11.2f ns %8.2f %8s\n", comparison.ours.c_str(), ours->second, baseline->second, ratio,
                comparison.targetRatio > 0 ? std::to_string(comparison.targetRatio).substr(0, 4).c_str() : "-");
  }
  return 0;
}

} // namespace Orvan::Bench
