// Byte and wide strings against std::string / std::wstring, measured in one run so that the
// ratios between the pairs are comparable.
// Run: build/release/bench/string_bench
#include <benchmark/benchmark.h>

#include <cstdio>
#include <functional>
#include <random>
#include <string>

#include "norvane/text/byte_string.h"
#include "norvane/text/wide_string.h"

namespace {

std::string RandomText(size_t n, unsigned seed) {
  std::mt19937 rng(seed);
  std::string s(n, ' ');
  for (char& c : s) c = static_cast<char>('a' + rng() % 26);
  return s;
}

// Copying a 1 KiB string: the record is shared, the standard string copies.
void BM_Copy1K_Std(benchmark::State& state) {
  std::string src = RandomText(1024, 1);
  for (auto _ : state) {
    std::string copy(src);
    benchmark::DoNotOptimize(copy.data());
  }
}
void BM_Copy1K_Norvane(benchmark::State& state) {
  std::string text = RandomText(1024, 1);
  CKD_ByteString src(text.c_str());
  for (auto _ : state) {
    CKD_ByteString copy(src);
    benchmark::DoNotOptimize(copy.c_str());
  }
}

// Appending one byte a million times to an empty string.
void BM_Append1M_Std(benchmark::State& state) {
  for (auto _ : state) {
    std::string s;
    for (int i = 0; i < 1000000; ++i) s += static_cast<char>('a' + (i & 15));
    benchmark::DoNotOptimize(s.data());
  }
}
void BM_Append1M_Norvane(benchmark::State& state) {
  for (auto _ : state) {
    CKD_ByteString s;
    for (int i = 0; i < 1000000; ++i) s += static_cast<char>('a' + (i & 15));
    benchmark::DoNotOptimize(s.c_str());
  }
}

// Finding a 16-byte needle placed near the end of 1 MiB of random letters.
struct FindInput {
  std::string hay, needle;
  FindInput() : hay(RandomText(1 << 20, 2)), needle(RandomText(16, 3)) {
    hay.replace(hay.size() - 100, needle.size(), needle);
  }
};
void BM_Find1M_Std(benchmark::State& state) {
  FindInput in;
  for (auto _ : state) benchmark::DoNotOptimize(in.hay.find(in.needle));
}
void BM_Find1M_Norvane(benchmark::State& state) {
  FindInput in;
  CKD_ByteString hay(in.hay.c_str());
  CKD_ByteStringC needle(in.needle.c_str());
  for (auto _ : state) benchmark::DoNotOptimize(hay.Find(needle));
}

// Replacing every "the" in 64 KiB of text by "a longer word".
std::string ReplaceText() {
  std::string base = RandomText(64 * 1024, 4);
  for (size_t i = 0; i + 3 < base.size(); i += 97) base.replace(i, 3, "the");
  return base;
}
void BM_Replace64K_Std(benchmark::State& state) {
  std::string text = ReplaceText();
  for (auto _ : state) {
    // The usual way with the standard string: one pass building the result.
    std::string out;
    out.reserve(text.size());
    size_t from = 0;
    for (size_t at; (at = text.find("the", from)) != std::string::npos; from = at + 3) {
      out.append(text, from, at - from);
      out += "a longer word";
    }
    out.append(text, from, std::string::npos);
    benchmark::DoNotOptimize(out.data());
  }
}
void BM_Replace64K_Norvane(benchmark::State& state) {
  std::string text = ReplaceText();
  CKD_ByteString src(text.c_str());
  for (auto _ : state) {
    CKD_ByteString s(src);
    s.Replace("the", "a longer word");
    benchmark::DoNotOptimize(s.c_str());
  }
}

// Format("%d %s %08x") against snprintf into a std::string sized by a first call.
void BM_Format_Std(benchmark::State& state) {
  int i = 0;
  for (auto _ : state) {
    ++i;
    int n = snprintf(nullptr, 0, "%d %s %08x", i, "name", static_cast<unsigned>(i) * 2654435761u);
    std::string s(static_cast<size_t>(n), '\0');
    snprintf(&s[0], s.size() + 1, "%d %s %08x", i, "name", static_cast<unsigned>(i) * 2654435761u);
    benchmark::DoNotOptimize(s.data());
  }
}
void BM_Format_Norvane(benchmark::State& state) {
  int i = 0;
  for (auto _ : state) {
    ++i;
    CKD_ByteString s;
    s.Format("%d %s %08x", i, "name", static_cast<unsigned>(i) * 2654435761u);
    benchmark::DoNotOptimize(s.c_str());
  }
}

// The hash codes over 1 KiB against std::hash of the standard strings.
void BM_HashA1K_Std(benchmark::State& state) {
  std::string s = RandomText(1024, 5);
  std::hash<std::string> h;
  for (auto _ : state) benchmark::DoNotOptimize(h(s));
}
void BM_HashA1K_Norvane(benchmark::State& state) {
  std::string s = RandomText(1024, 5);
  for (auto _ : state) benchmark::DoNotOptimize(KD_HashCode_String_GetA(s.data(), static_cast<int>(s.size()), false));
}
void BM_HashW1K_Std(benchmark::State& state) {
  std::string a = RandomText(1024, 6);
  std::wstring s(a.begin(), a.end());
  std::hash<std::wstring> h;
  for (auto _ : state) benchmark::DoNotOptimize(h(s));
}
void BM_HashW1K_Norvane(benchmark::State& state) {
  std::string a = RandomText(1024, 6);
  std::wstring s(a.begin(), a.end());
  for (auto _ : state) benchmark::DoNotOptimize(KD_HashCode_String_GetW(s.data(), static_cast<int>(s.size()), false));
}

BENCHMARK(BM_Copy1K_Std);
BENCHMARK(BM_Copy1K_Norvane);
BENCHMARK(BM_Append1M_Std)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Append1M_Norvane)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Find1M_Std)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Find1M_Norvane)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Replace64K_Std)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Replace64K_Norvane)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Format_Std);
BENCHMARK(BM_Format_Norvane);
BENCHMARK(BM_HashA1K_Std);
BENCHMARK(BM_HashA1K_Norvane);
BENCHMARK(BM_HashW1K_Std);
BENCHMARK(BM_HashW1K_Norvane);

}  // namespace

BENCHMARK_MAIN();
