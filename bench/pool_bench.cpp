// The pools against the system heap, in one run:
// - the small-object pool manager installed as the default manager against glibc malloc/free for
//   random sizes of 16 to 1024 bytes: alloc/free pairs (with a few other blocks alive, and with
//   none), and a pattern that keeps 10 000 blocks live (each step frees a random live block and
//   allocates another);
// - the grow-only pool against malloc for 1 000 000 small allocations followed by FreeAll (for
//   malloc: a free of each block).
// The "_Threaded" runs come last: they start a thread first, after which the process is
// multi-threaded for good and every pool manager call takes its mutex.
// Run: build/release/bench/pool_bench
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <random>
#include <thread>
#include <type_traits>
#include <vector>

#include "norvane/memory/grow_only_pool.h"
#include "norvane/memory/memory_mgr.h"

namespace {

constexpr size_t kSizeCount = 1 << 16;
constexpr size_t kLive = 10000;
constexpr size_t kSmallAllocs = 1000000;

// Sizes from 16 to 1024, and live-slot indexes, drawn once with a fixed seed so that both sides
// see the same sequence.
const std::vector<uint32_t>& Sizes() {
  static const std::vector<uint32_t> sizes = [] {
    std::mt19937 rng(20240605);
    std::uniform_int_distribution<uint32_t> dist(16, 1024);
    std::vector<uint32_t> v(kSizeCount);
    for (auto& s : v) s = dist(rng);
    return v;
  }();
  return sizes;
}

const std::vector<uint32_t>& Slots() {
  static const std::vector<uint32_t> slots = [] {
    std::mt19937 rng(7);
    std::uniform_int_distribution<uint32_t> dist(0, kLive - 1);
    std::vector<uint32_t> v(kSizeCount);
    for (auto& s : v) s = dist(rng);
    return v;
  }();
  return slots;
}

// Small sizes for the grow-only comparison: 8 to 64 bytes.
const std::vector<uint32_t>& SmallSizes() {
  static const std::vector<uint32_t> sizes = [] {
    std::mt19937 rng(99);
    std::uniform_int_distribution<uint32_t> dist(8, 64);
    std::vector<uint32_t> v(kSizeCount);
    for (auto& s : v) s = dist(rng);
    return v;
  }();
  return sizes;
}

struct Malloc {
  static void* Alloc(size_t n) { return malloc(n); }
  static void Free(void* p) { free(p); }
};

struct PoolDefault {
  static void* Alloc(size_t n) { return KDMEM_DefaultAlloc(n, 0); }
  static void Free(void* p) { KDMEM_DefaultFree(p, 0); }
};

// Installs the pool manager as the default for the whole program.
CKD_MemoryMgr* PoolMgr() {
  static CKD_MemoryMgr* mgr = KDMEM_CreatePyMgr();
  return mgr;
}

// Alloc/free pairs. With hold set, one block of each 16-byte size class stays allocated
// meanwhile, as in any program that has other blocks alive: every class keeps a partly used pool.
// Without it the manager is empty between pairs, so each pair makes an arena and returns it to the
// system heap.
template <class A, bool hold>
void BM_Pairs(benchmark::State& state) {
  if (std::is_same<A, PoolDefault>::value) KDMEM_SetDefaultMgr(PoolMgr());
  std::vector<void*> held;
  for (size_t n = 16; hold && n <= 1024; n += 16) held.push_back(A::Alloc(n));
  const std::vector<uint32_t>& sizes = Sizes();
  size_t i = 0;
  for (auto _ : state) {
    void* p = A::Alloc(sizes[i++ & (kSizeCount - 1)]);
    benchmark::DoNotOptimize(p);
    A::Free(p);
  }
  for (void* p : held) A::Free(p);
  KDMEM_ResetSystemMgr();
  state.SetItemsProcessed(state.iterations());
}

template <class A>
void BM_Live10k(benchmark::State& state) {
  if (std::is_same<A, PoolDefault>::value) KDMEM_SetDefaultMgr(PoolMgr());
  const std::vector<uint32_t>& sizes = Sizes();
  const std::vector<uint32_t>& slots = Slots();
  std::vector<void*> live(kLive);
  for (size_t k = 0; k < kLive; ++k) live[k] = A::Alloc(sizes[k]);
  size_t i = 0;
  for (auto _ : state) {
    const size_t k = i & (kSizeCount - 1);
    void*& slot = live[slots[k]];
    A::Free(slot);
    slot = A::Alloc(sizes[(k + kLive) & (kSizeCount - 1)]);
    benchmark::DoNotOptimize(slot);
    ++i;
  }
  for (void* p : live) A::Free(p);
  KDMEM_ResetSystemMgr();
  state.SetItemsProcessed(state.iterations());
}

void BM_Malloc_1M(benchmark::State& state) {
  const std::vector<uint32_t>& sizes = SmallSizes();
  std::vector<void*> blocks(kSmallAllocs);
  for (auto _ : state) {
    for (size_t k = 0; k < kSmallAllocs; ++k) blocks[k] = malloc(sizes[k & (kSizeCount - 1)]);
    benchmark::DoNotOptimize(blocks.data());
    for (void* p : blocks) free(p);
  }
  state.SetItemsProcessed(state.iterations() * kSmallAllocs);
}

void BM_GrowOnly_1M(benchmark::State& state) {
  const std::vector<uint32_t>& sizes = SmallSizes();
  std::vector<void*> blocks(kSmallAllocs);
  CKD_GrowOnlyPool pool(nullptr, 256 * 1024);
  for (auto _ : state) {
    for (size_t k = 0; k < kSmallAllocs; ++k) blocks[k] = pool.Alloc(sizes[k & (kSizeCount - 1)]);
    benchmark::DoNotOptimize(blocks.data());
    pool.FreeAll();
  }
  state.SetItemsProcessed(state.iterations() * kSmallAllocs);
}

// Makes the process multi-threaded for the rest of the run.
void StartAThread() {
  static bool started = [] {
    std::thread([] {}).join();
    return true;
  }();
  (void)started;
}

template <class A>
void BM_Pairs_Threaded(benchmark::State& state) {
  StartAThread();
  BM_Pairs<A, true>(state);
}

template <class A>
void BM_Live10k_Threaded(benchmark::State& state) {
  StartAThread();
  BM_Live10k<A>(state);
}

BENCHMARK_TEMPLATE(BM_Pairs, Malloc, true);
BENCHMARK_TEMPLATE(BM_Pairs, PoolDefault, true);
BENCHMARK_TEMPLATE(BM_Pairs, Malloc, false);
BENCHMARK_TEMPLATE(BM_Pairs, PoolDefault, false);
BENCHMARK_TEMPLATE(BM_Live10k, Malloc);
BENCHMARK_TEMPLATE(BM_Live10k, PoolDefault);
BENCHMARK(BM_Malloc_1M)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GrowOnly_1M)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Pairs_Threaded, Malloc);
BENCHMARK_TEMPLATE(BM_Pairs_Threaded, PoolDefault);
BENCHMARK_TEMPLATE(BM_Live10k_Threaded, Malloc);
BENCHMARK_TEMPLATE(BM_Live10k_Threaded, PoolDefault);

}  // namespace

BENCHMARK_MAIN();
