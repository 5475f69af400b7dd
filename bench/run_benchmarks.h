// The part every benchmark program shares: run, print plain text, keep the times to compare.
#pragma once

#include <benchmark/benchmark.h>

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

}  // namespace snmplumi::bench
