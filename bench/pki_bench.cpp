// Random numbers against the system, in one run: 1000 GUIDs from KD_GUID_CreateV4 against 1000
// reads of 16 bytes from getrandom(2), the call a program would otherwise make for a GUID's
// randomness. After the table the program prints the GUIDs' time as a ratio of getrandom's.
// Run: build/release/bench/pki_bench
#include <benchmark/benchmark.h>
#include <sys/random.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "norvane/runtime/random.h"

namespace {

constexpr int kGuids = 1000;

void BM_Guids_Norvane(benchmark::State& state) {
  uint8_t guid[16];
  for (auto _ : state) {
    for (int i = 0; i < kGuids; ++i) {
      KD_GUID_CreateV4(guid);
      benchmark::DoNotOptimize(guid);
    }
  }
  state.SetItemsProcessed(state.iterations() * kGuids);
}

void BM_Guids_Getrandom(benchmark::State& state) {
  uint8_t guid[16];
  for (auto _ : state) {
    for (int i = 0; i < kGuids; ++i) {
      if (getrandom(guid, sizeof guid, 0) != static_cast<ssize_t>(sizeof guid)) abort();
      benchmark::DoNotOptimize(guid);
    }
  }
  state.SetItemsProcessed(state.iterations() * kGuids);
}

BENCHMARK(BM_Guids_Norvane)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Guids_Getrandom)->Unit(benchmark::kMicrosecond);

// Prints the usual table, then each Norvane case's time over its peer's (above 1: slower).
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) times_[run.benchmark_name()] = run.GetAdjustedRealTime();
    ConsoleReporter::ReportRuns(runs);
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    const struct {
      const char* label;
      const char* ours;
      const char* peer;
    } pairs[] = {{"1000 GUIDs / 1000 getrandom(16)", "BM_Guids_Norvane", "BM_Guids_Getrandom"}};
    std::printf("\n%-34s %8s   (time / peer's time, same run)\n", "case", "ratio");
    for (const auto& p : pairs) {
      if (times_.count(p.ours) && times_.count(p.peer)) {
        std::printf("%-34s %8.2f\n", p.label, times_[p.ours] / times_[p.peer]);
      }
    }
  }

 private:
  std::map<std::string, double> times_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
