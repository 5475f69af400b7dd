// The part every benchmark program shares: run, print plain text, keep the times to compare.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace snmplumi::bench {

// Runs the registered benchmarks, printing them as plain text (these runs end up in CI logs),
// and returns the real time of every run by name, aggregates included
// ("BM_X/repeats:5_median").
inline std::map<std::string, double> RunBenchmarks(int *argc, char **argv) {
  class Collector : public benchmark::ConsoleReporter {
   public:
    Collector() : ConsoleReporter(OO_Tabular) {}
    void ReportRuns(const std::vector<Run> &runs) override {
      for (const Run &run : runs) times[run.benchmark_name()] = run.GetAdjustedRealTime();
      ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, double> times;
  };
  benchmark::Initialize(argc, argv);
  Collector reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  return reporter.times;
}

// Prints a blank line and "label (median): RATIO  (target <= target)", the ratio of the median
// times of two benchmarks run with Repetitions(5); nothing when either did not run.
inline void PrintRatio(const std::map<std::string, double> &times, const char *ours,
                       const char *floor, const char *label, const char *target) {
  auto median = [&times](const char *name) {
    auto found = times.find(std::string(name) + "/repeats:5_median");
    return found != times.end() ? found->second : 0.0;
  };
  if (median(ours) > 0 && median(floor) > 0) {
    std::printf("\n%s (median): %.3f  (target <= %s)\n", label, median(ours) / median(floor),
                target);
  }
}

}  // namespace snmplumi::bench
