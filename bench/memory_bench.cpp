// Allocation through the default manager against the system heap and plain new/delete.
// Run: build/release/bench/memory_bench
#include <benchmark/benchmark.h>

#include <cstdlib>

#include "norvane/memory/memory_mgr.h"
#include "norvane/memory/object.h"

namespace {

template <size_t N>
struct Plain {
  char bytes[N];
};

template <size_t N>
struct Managed : CKD_Object {
  char bytes[N];
};

void BM_Malloc(benchmark::State& state) {
  const size_t size = static_cast<size_t>(state.range(0));
  for (auto _ : state) {
    void* p = malloc(size);
    benchmark::DoNotOptimize(p);
    free(p);
  }
}

void BM_KDMEM_Default(benchmark::State& state) {
  const size_t size = static_cast<size_t>(state.range(0));
  for (auto _ : state) {
    void* p = KDMEM_DefaultAlloc(size, 0);
    benchmark::DoNotOptimize(p);
    KDMEM_DefaultFree(p, 0);
  }
}

template <size_t N>
void BM_NewDelete(benchmark::State& state) {
  for (auto _ : state) {
    auto* p = new Plain<N>;
    benchmark::DoNotOptimize(p);
    delete p;
  }
}

template <size_t N>
void BM_CKD_Object(benchmark::State& state) {
  for (auto _ : state) {
    auto* p = new Managed<N>;
    benchmark::DoNotOptimize(p);
    delete p;
  }
}

BENCHMARK(BM_Malloc)->Arg(16)->Arg(256)->Arg(4096);
BENCHMARK(BM_KDMEM_Default)->Arg(16)->Arg(256)->Arg(4096);
BENCHMARK(BM_NewDelete<16>);
BENCHMARK(BM_CKD_Object<16>);
BENCHMARK(BM_NewDelete<256>);
BENCHMARK(BM_CKD_Object<256>);
BENCHMARK(BM_NewDelete<4096>);
BENCHMARK(BM_CKD_Object<4096>);

}  // namespace

BENCHMARK_MAIN();
