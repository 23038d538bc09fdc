// RateReporter: Google Benchmark's console table, keeping each run's bytes (or items) per second
// by name so that a program can print its ratios against the peers after the table (in Finalize).
#ifndef NORVANE_BENCH_RATE_REPORTER_H_
#define NORVANE_BENCH_RATE_REPORTER_H_

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

class RateReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      for (const char* counter : {"bytes_per_second", "items_per_second"}) {
        auto it = run.counters.find(counter);
        if (it != run.counters.end()) rates_[run.benchmark_name()] = it->second.value;
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }

 protected:
  std::map<std::string, double> rates_;
};

// RunBenchmarks runs the benchmarks the command line selects with reporter and returns main's exit
// status (1 for an argument Google Benchmark does not know).
inline int RunBenchmarks(int argc, char** argv, benchmark::BenchmarkReporter* reporter) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks(reporter);
  benchmark::Shutdown();
  return 0;
}

#endif  // NORVANE_BENCH_RATE_REPORTER_H_
