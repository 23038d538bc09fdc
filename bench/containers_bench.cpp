// CKD_MapPtrToPtr against std::unordered_map<void*, void*>, and CKD_ArrayTemplate<int> against
// std::vector<int>. Keys are the addresses of live 16-byte heap blocks, as a map of objects sees.
// Run: build/release/bench/containers_bench
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <random>
#include <unordered_map>
#include <vector>

#include "norvane/containers/array.h"
#include "norvane/containers/map_ptr_to_ptr.h"

namespace {

// n keys to insert and n others that are never inserted, in random order. Heap keys are the
// addresses of live 16-byte blocks (what a map of objects sees); spread keys are random 64-bit
// values, which show the map's own costs apart from how its hash treats aligned addresses.
struct Keys {
  std::vector<std::unique_ptr<char[]>> blocks;
  std::vector<void*> hit, miss;
  Keys(size_t n, bool heap) {
    std::mt19937_64 rng(7);
    for (size_t i = 0; i < 2 * n; ++i) {
      void* k;
      if (heap) {
        blocks.emplace_back(new char[16]);
        k = blocks.back().get();
      } else {
        k = reinterpret_cast<void*>(static_cast<uintptr_t>(rng()));
      }
      (i % 2 ? miss : hit).push_back(k);
    }
    std::shuffle(hit.begin(), hit.end(), rng);
    std::shuffle(miss.begin(), miss.end(), rng);
  }
};

// state.range(0) is the entry count; state.range(1) is 1 for heap keys, 0 for spread keys.
const Keys& KeysFor(const benchmark::State& state) {
  static std::vector<std::unique_ptr<Keys>> cache[2];
  size_t n = static_cast<size_t>(state.range(0));
  bool heap = state.range(1) != 0;
  for (auto& k : cache[heap]) {
    if (k->hit.size() == n) return *k;
  }
  cache[heap].emplace_back(new Keys(n, heap));
  return *cache[heap].back();
}

struct NorvaneMap {
  CKD_MapPtrToPtr map{10};
  void Insert(void* k, void* v) { map[k] = v; }
  bool Find(void* k, void*& v) const { return map.Lookup(k, v); }
  uintptr_t Sum() const {
    uintptr_t s = 0;
    void* pos = map.GetStartPosition();
    while (pos) {
      void *k, *v;
      map.GetNextAssoc(pos, k, v);
      s += reinterpret_cast<uintptr_t>(v);
    }
    return s;
  }
};

struct StdMap {
  std::unordered_map<void*, void*> map;
  void Insert(void* k, void* v) { map[k] = v; }
  bool Find(void* k, void*& v) const {
    auto it = map.find(k);
    if (it == map.end()) return false;
    v = it->second;
    return true;
  }
  uintptr_t Sum() const {
    uintptr_t s = 0;
    for (auto& e : map) s += reinterpret_cast<uintptr_t>(e.second);
    return s;
  }
};

template <class Map>
void BM_Insert(benchmark::State& state) {
  const Keys& keys = KeysFor(state);
  for (auto _ : state) {
    Map m;
    for (void* k : keys.hit) m.Insert(k, k);
    benchmark::DoNotOptimize(&m);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Map>
void Lookup(benchmark::State& state, bool hit) {
  const Keys& keys = KeysFor(state);
  Map m;
  for (void* k : keys.hit) m.Insert(k, k);
  const std::vector<void*>& probe = hit ? keys.hit : keys.miss;
  for (auto _ : state) {
    size_t found = 0;
    for (void* k : probe) {
      void* v;
      found += m.Find(k, v);
    }
    benchmark::DoNotOptimize(found);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Map>
void BM_LookupHit(benchmark::State& state) {
  Lookup<Map>(state, true);
}

template <class Map>
void BM_LookupMiss(benchmark::State& state) {
  Lookup<Map>(state, false);
}

template <class Map>
void BM_Iterate(benchmark::State& state) {
  const Keys& keys = KeysFor(state);
  Map m;
  for (void* k : keys.hit) m.Insert(k, k);
  for (auto _ : state) benchmark::DoNotOptimize(m.Sum());
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

#define MAP_BENCH(fn)                                                                             \
  BENCHMARK_TEMPLATE(fn, StdMap)->ArgsProduct({{1000, 16000}, {1, 0}})->ArgNames({"n", "heap"}); \
  BENCHMARK_TEMPLATE(fn, NorvaneMap)->ArgsProduct({{1000, 16000}, {1, 0}})->ArgNames({"n", "heap"});
MAP_BENCH(BM_Insert)
MAP_BENCH(BM_LookupHit)
MAP_BENCH(BM_LookupMiss)
MAP_BENCH(BM_Iterate)

// A million entries: the table stops growing at 16384 buckets, so chains grow long.
BENCHMARK_TEMPLATE(BM_LookupHit, StdMap)->Args({1000000, 1})->Args({1000000, 0})->ArgNames({"n", "heap"});
BENCHMARK_TEMPLATE(BM_LookupHit, NorvaneMap)->Args({1000000, 1})->Args({1000000, 0})->ArgNames({"n", "heap"});

void BM_VectorPushBack(benchmark::State& state) {
  for (auto _ : state) {
    std::vector<int> v;
    for (int i = 0; i < 1000000; ++i) v.push_back(i);
    benchmark::DoNotOptimize(v.data());
  }
  state.SetItemsProcessed(state.iterations() * 1000000);
}

void BM_ArrayTemplateAdd(benchmark::State& state) {
  for (auto _ : state) {
    CKD_ArrayTemplate<int> a;
    for (int i = 0; i < 1000000; ++i) a.Add(i);
    benchmark::DoNotOptimize(a.GetData());
  }
  state.SetItemsProcessed(state.iterations() * 1000000);
}

BENCHMARK(BM_VectorPushBack);
BENCHMARK(BM_ArrayTemplateAdd);

}  // namespace

// Large blocks stay in the heap for the whole run, so that both sides reuse memory instead of
// paying the kernel for fresh pages in some repetitions and not in others.
int main(int argc, char** argv) {
  mallopt(M_MMAP_THRESHOLD, 64 << 20);
  mallopt(M_TRIM_THRESHOLD, 256 << 20);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
