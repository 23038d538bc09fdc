// CKD_MapPtrToPtr against std::unordered_map<void*, void*>, CKD_ArrayTemplate<int> against
// std::vector<int>, CKD_BaseSegmentedArray against std::deque<int>, CKD_CMapByteStringToPtr
// against std::unordered_map<std::string, void*> and CKD_CMapDWordToDWord against a sorted
// std::vector searched with std::lower_bound. Keys of the pointer maps are the addresses of live
// 16-byte heap blocks, as a map of objects sees. After the table, each Norvane figure is printed
// as a ratio of its peer's items per second in the same run (above 1: Norvane is faster).
// Run: build/release/bench/containers_bench
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "bench/rate_reporter.h"
#include "norvane/containers/array.h"
#include "norvane/containers/compact_map.h"
#include "norvane/containers/map_ptr_to_ptr.h"
#include "norvane/containers/segmented_array.h"

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

// Segmented arrays of ints: state.range(0) elements, state.range(1) to a segment (the deque keeps
// 128 ints to a block), index tables of 128 entries.
struct DequeInts {
  std::deque<int> d;
  explicit DequeInts(int) {}
  void Add(int v) { d.push_back(v); }
  int Get(int i) const { return d[static_cast<size_t>(i)]; }
};

struct SegInts {
  CKD_BaseSegmentedArray a;
  explicit SegInts(int segment_units) : a(sizeof(int), segment_units, 128) {}
  void Add(int v) { *static_cast<int*>(a.Add()) = v; }
  int Get(int i) const { return *static_cast<const int*>(a.GetAt(i)); }
};

// The typed layer, whose shape is known when it is compiled; read unchecked, as the deque is.
template <int kSegmentUnits>
struct TypedInts {
  CKD_SegmentedArray<int, kSegmentUnits, 128> a;
  explicit TypedInts(int) {}
  void Add(int v) { a.Add(v); }
  int Get(int i) const { return a[i]; }
};

template <class A>
void BM_SegAdd(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  for (auto _ : state) {
    A a(static_cast<int>(state.range(1)));
    for (int i = 0; i < n; ++i) a.Add(i);
    benchmark::DoNotOptimize(&a);
  }
  state.SetItemsProcessed(state.iterations() * n);
}

// Reads every element, in order (sequential) or in a shuffled order (random).
template <class A>
void SegGet(benchmark::State& state, bool shuffled) {
  const int n = static_cast<int>(state.range(0));
  A a(static_cast<int>(state.range(1)));
  for (int i = 0; i < n; ++i) a.Add(i);
  std::vector<int> order(static_cast<size_t>(n));
  for (int i = 0; i < n; ++i) order[static_cast<size_t>(i)] = i;
  if (shuffled) std::shuffle(order.begin(), order.end(), std::mt19937(11));
  for (auto _ : state) {
    long long sum = 0;
    for (int i : order) sum += a.Get(i);
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * n);
}

template <class A>
void BM_SegGetAt(benchmark::State& state) {
  SegGet<A>(state, false);
}

template <class A>
void BM_SegGetAtRandom(benchmark::State& state) {
  SegGet<A>(state, true);
}

#define SEG_BENCH(fn)                                                                                     \
  BENCHMARK_TEMPLATE(fn, DequeInts)->ArgsProduct({{1000000}, {128, 1024}})->ArgNames({"n", "seg"}); \
  BENCHMARK_TEMPLATE(fn, SegInts)->ArgsProduct({{1000000}, {128, 1024}})->ArgNames({"n", "seg"});   \
  BENCHMARK_TEMPLATE(fn, TypedInts<128>)->Args({1000000, 128})->ArgNames({"n", "seg"});            \
  BENCHMARK_TEMPLATE(fn, TypedInts<1024>)->Args({1000000, 1024})->ArgNames({"n", "seg"});
SEG_BENCH(BM_SegAdd)
SEG_BENCH(BM_SegGetAt)
SEG_BENCH(BM_SegGetAtRandom)

// String-keyed lookups of state.range(0) short keys ("name" and a number, 5 to 8 bytes), each
// looked up once per iteration in a shuffled order. The compact map searches its entries one by
// one, so it pays at small sizes only; the sizes between find where it stops paying.
std::vector<std::string> StringKeys(int n) {
  std::vector<std::string> keys;
  for (int i = 0; i < n; ++i) keys.push_back("name" + std::to_string(i * 7919 % 10000));
  return keys;
}

struct StdStringMap {
  std::unordered_map<std::string, void*> map;
  void Insert(const std::string& k, void* v) { map[k] = v; }
  bool Find(const std::string& k, void*& v) const {
    auto it = map.find(k);
    if (it == map.end()) return false;
    v = it->second;
    return true;
  }
};

struct CompactMap {
  CKD_CMapByteStringToPtr map;
  void Insert(const std::string& k, void* v) { map.SetAt(CKD_ByteStringC(k.data(), static_cast<int>(k.size())), v); }
  bool Find(const std::string& k, void*& v) const {
    return map.Lookup(CKD_ByteStringC(k.data(), static_cast<int>(k.size())), v);
  }
};

template <class Map>
void BM_StringLookup(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  std::vector<std::string> keys = StringKeys(n);
  Map m;
  for (const std::string& k : keys) m.Insert(k, &m);
  std::shuffle(keys.begin(), keys.end(), std::mt19937(3));
  for (auto _ : state) {
    size_t found = 0;
    for (const std::string& k : keys) {
      void* v;
      found += m.Find(k, v);
    }
    benchmark::DoNotOptimize(found);
  }
  state.SetItemsProcessed(state.iterations() * n);
}

BENCHMARK_TEMPLATE(BM_StringLookup, StdStringMap)->RangeMultiplier(2)->Range(4, 4096)->ArgNames({"n"});
BENCHMARK_TEMPLATE(BM_StringLookup, CompactMap)->RangeMultiplier(2)->Range(4, 4096)->ArgNames({"n"});

// 32-bit keys: state.range(0) distinct random keys below 2^31 (where the map's comparison is
// exact), each looked up once per iteration in a shuffled order.
struct SortedVector {
  std::vector<std::pair<uint32_t, uint32_t>> records;
  void Build(std::vector<uint32_t> keys) {
    std::sort(keys.begin(), keys.end());
    for (uint32_t k : keys) records.emplace_back(k, k ^ 1);
  }
  bool Find(uint32_t k, uint32_t& v) const {
    auto it = std::lower_bound(records.begin(), records.end(), k, [](const auto& r, uint32_t key) { return r.first < key; });
    if (it == records.end() || it->first != k) return false;
    v = it->second;
    return true;
  }
};

struct DWordMap {
  CKD_CMapDWordToDWord map;
  void Build(const std::vector<uint32_t>& keys) {
    for (uint32_t k : keys) map.SetAt(k, k ^ 1);
  }
  bool Find(uint32_t k, uint32_t& v) const { return map.Lookup(k, v); }
};

template <class Map>
void BM_DWordLookup(benchmark::State& state) {
  const size_t n = static_cast<size_t>(state.range(0));
  std::mt19937 rng(17);
  std::vector<uint32_t> keys;
  std::map<uint32_t, bool> seen;
  while (keys.size() < n) {
    uint32_t k = rng() & 0x7FFFFFFF;
    if (seen.emplace(k, true).second) keys.push_back(k);
  }
  Map m;
  m.Build(keys);
  for (auto _ : state) {
    size_t found = 0;
    for (uint32_t k : keys) {
      uint32_t v;
      found += m.Find(k, v);
    }
    benchmark::DoNotOptimize(found);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(n));
}

BENCHMARK_TEMPLATE(BM_DWordLookup, SortedVector)->Arg(16)->Arg(256)->Arg(4096)->Arg(65536)->ArgNames({"n"});
BENCHMARK_TEMPLATE(BM_DWordLookup, DWordMap)->Arg(16)->Arg(256)->Arg(4096)->Arg(65536)->ArgNames({"n"});

// Prints the usual table, then each Norvane case's items per second over its peer's.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.aggregate_name == "stddev" || run.aggregate_name == "cv") continue;
      auto it = run.counters.find("items_per_second");
      if (it != run.counters.end()) rates_[run.benchmark_name()] = it->second.value;
    }
    ConsoleReporter::ReportRuns(runs);
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    // Each peer's name, and what turns it into the name of the Norvane case it is measured against.
    static const std::pair<const char*, const char*> kPairs[] = {
        {"<StdMap>", "<NorvaneMap>"},   {"BM_VectorPushBack", "BM_ArrayTemplateAdd"},
        {"<DequeInts>", "<SegInts>"},   {"<DequeInts>", "<TypedInts<128>>"},
        {"<DequeInts>", "<TypedInts<1024>>"}, {"<StdStringMap>", "<CompactMap>"},
        {"<SortedVector>", "<DWordMap>"}};
    std::printf("\n%-48s %8s   (items per second / the peer's, same run)\n", "case", "ratio");
    for (const auto& [name, rate] : rates_) {
      for (const auto& [peer, norvane] : kPairs) {
        const size_t at = name.find(peer);
        if (at == std::string::npos) continue;
        std::string ours = name;
        ours.replace(at, strlen(peer), norvane);
        auto it = rates_.find(ours);
        if (it != rates_.end()) std::printf("%-48s %8.2f\n", ours.c_str(), it->second / rate);
      }
    }
  }

 private:
  std::map<std::string, double> rates_;
};

}  // namespace

// Large blocks stay in the heap for the whole run, so that both sides reuse memory instead of
// paying the kernel for fresh pages in some repetitions and not in others.
int main(int argc, char** argv) {
  mallopt(M_MMAP_THRESHOLD, 64 << 20);
  mallopt(M_TRIM_THRESHOLD, 256 << 20);
  RatioReporter reporter;
  return RunBenchmarks(argc, argv, &reporter);
}
