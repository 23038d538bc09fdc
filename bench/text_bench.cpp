// UTF-8 and code-page conversion against the C library's iconv(3), measured in one run so that
// the ratios between the pairs are comparable. Each side converts the same 1 MiB of text; the
// iconv side writes into a buffer made beforehand, the string members allocate their result.
// Run: build/release/bench/text_bench
#include <benchmark/benchmark.h>
#include <iconv.h>

#include <random>
#include <string>
#include <vector>

#include "norvane/text/code_page.h"
#include "norvane/text/code_page_convert.h"
#include "norvane/text/utf8.h"
#include "norvane/text/utf8_coder.h"
#include "norvane/text/wide_string.h"

namespace {

constexpr size_t kSize = 1 << 20;

// Mixed text: words of ASCII, Latin with accents, CJK ideographs and emoji, about 1 MiB of UTF-8.
struct MixedText {
  std::wstring wide;
  std::string utf8;
  MixedText() {
    std::mt19937 rng(42);
    const wchar_t latin[] = L"éèàüößçñøåÉÜ";
    while (utf8.size() < kSize - 16) {
      std::wstring word;
      int kind = static_cast<int>(rng() % 10);
      int n = 2 + static_cast<int>(rng() % 7);
      for (int i = 0; i < n; ++i) {
        if (kind < 5) word += static_cast<wchar_t>('a' + rng() % 26);
        else if (kind < 7) word += (rng() % 3) ? static_cast<wchar_t>('a' + rng() % 26) : latin[rng() % 12];
        else if (kind < 9) word += static_cast<wchar_t>(0x4E00 + rng() % 0x5000);
        else word += static_cast<wchar_t>(0x1F600 + rng() % 0x50);
      }
      word += L' ';
      wide += word;
      CKD_ByteString bytes = KD_UTF8Encode(word.c_str(), static_cast<int>(word.size()));
      utf8.append(bytes.c_str(), static_cast<size_t>(bytes.GetLength()));
    }
  }
};
const MixedText& Mixed() {
  static MixedText text;
  return text;
}

// Chinese text in code page 936: ideographs of GB2312 with ASCII spaces and punctuation.
struct GbkText {
  std::string bytes;
  std::wstring wide;
  GbkText() {
    std::mt19937 rng(7);
    while (bytes.size() < kSize) {
      if (rng() % 8 == 0) {
        bytes += (rng() % 2) ? ' ' : ',';
      } else {
        bytes += static_cast<char>(0xB0 + rng() % 0x27);  // rows B0..D6, fully defined
        bytes += static_cast<char>(0xA1 + rng() % 0x5E);
      }
    }
    wide.resize(bytes.size());
    int srcLen = static_cast<int>(bytes.size()), dstLen = static_cast<int>(wide.size());
    KD_DecodeString(936, bytes.data(), &srcLen, &wide[0], &dstLen, false);
    wide.resize(static_cast<size_t>(dstLen));
  }
};
const GbkText& Gbk() {
  static GbkText text;
  return text;
}

// One iconv conversion of in into out; returns the bytes written.
size_t Iconv(iconv_t cd, const void* in, size_t inBytes, void* out, size_t outBytes) {
  iconv(cd, nullptr, nullptr, nullptr, nullptr);
  char* ip = const_cast<char*>(static_cast<const char*>(in));
  char* op = static_cast<char*>(out);
  size_t left = outBytes;
  iconv(cd, &ip, &inBytes, &op, &left);
  return outBytes - left;
}

void BM_UTF8Decode_Iconv(benchmark::State& state) {
  const std::string& src = Mixed().utf8;
  std::vector<wchar_t> out(src.size());
  iconv_t cd = iconv_open("WCHAR_T", "UTF-8");
  for (auto _ : state) benchmark::DoNotOptimize(Iconv(cd, src.data(), src.size(), out.data(), out.size() * 4));
  iconv_close(cd);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * src.size()));
}
void BM_UTF8Decode_FromUTF8(benchmark::State& state) {
  const std::string& src = Mixed().utf8;
  for (auto _ : state) {
    CKD_WideString w = CKD_WideString::FromUTF8(src.data(), static_cast<int>(src.size()));
    benchmark::DoNotOptimize(w.c_str());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * src.size()));
}
void BM_UTF8Decode_Buffer(benchmark::State& state) {
  const std::string& src = Mixed().utf8;
  std::vector<wchar_t> out(src.size());
  for (auto _ : state) {
    int srcLen = static_cast<int>(src.size()), dstLen = static_cast<int>(out.size());
    KD_UTF8Decode(src.data(), &srcLen, out.data(), &dstLen);
    benchmark::DoNotOptimize(dstLen);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * src.size()));
}

void BM_UTF8Encode_Iconv(benchmark::State& state) {
  const std::wstring& src = Mixed().wide;
  std::vector<char> out(src.size() * 4);
  iconv_t cd = iconv_open("UTF-8", "WCHAR_T");
  for (auto _ : state) benchmark::DoNotOptimize(Iconv(cd, src.data(), src.size() * 4, out.data(), out.size()));
  iconv_close(cd);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * Mixed().utf8.size()));
}
void BM_UTF8Encode_UTF8Encode(benchmark::State& state) {
  CKD_WideString src(Mixed().wide.c_str(), static_cast<int>(Mixed().wide.size()));
  for (auto _ : state) {
    CKD_ByteString b = src.UTF8Encode();
    benchmark::DoNotOptimize(b.c_str());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * Mixed().utf8.size()));
}
// The buffer form keeps 16 bits of each character, so the emoji come out in three bytes.
void BM_UTF8Encode_Buffer(benchmark::State& state) {
  const std::wstring& src = Mixed().wide;
  std::vector<char> out(src.size() * 4);
  for (auto _ : state) {
    int srcLen = static_cast<int>(src.size()), dstLen = static_cast<int>(out.size());
    KD_UTF8Encode(src.data(), &srcLen, out.data(), &dstLen);
    benchmark::DoNotOptimize(dstLen);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * Mixed().utf8.size()));
}

void BM_CP936Decode_Iconv(benchmark::State& state) {
  const std::string& src = Gbk().bytes;
  std::vector<wchar_t> out(src.size());
  iconv_t cd = iconv_open("WCHAR_T", "CP936");
  for (auto _ : state) benchmark::DoNotOptimize(Iconv(cd, src.data(), src.size(), out.data(), out.size() * 4));
  iconv_close(cd);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * src.size()));
}
void BM_CP936Decode_Norvane(benchmark::State& state) {
  const std::string& src = Gbk().bytes;
  std::vector<wchar_t> out(src.size());
  for (auto _ : state) {
    int srcLen = static_cast<int>(src.size()), dstLen = static_cast<int>(out.size());
    KD_DecodeString(936, src.data(), &srcLen, out.data(), &dstLen, false);
    benchmark::DoNotOptimize(dstLen);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * src.size()));
}
void BM_CP936Encode_Iconv(benchmark::State& state) {
  const std::wstring& src = Gbk().wide;
  std::vector<char> out(src.size() * 2);
  iconv_t cd = iconv_open("CP936", "WCHAR_T");
  for (auto _ : state) benchmark::DoNotOptimize(Iconv(cd, src.data(), src.size() * 4, out.data(), out.size()));
  iconv_close(cd);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * Gbk().bytes.size()));
}
void BM_CP936Encode_Norvane(benchmark::State& state) {
  const std::wstring& src = Gbk().wide;
  std::vector<char> out(src.size() * 2);
  for (auto _ : state) {
    int srcLen = static_cast<int>(src.size()), dstLen = static_cast<int>(out.size());
    KD_EncodeString(936, src.data(), &srcLen, out.data(), &dstLen, false);
    benchmark::DoNotOptimize(dstLen);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * Gbk().bytes.size()));
}

BENCHMARK(BM_UTF8Decode_Iconv)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_UTF8Decode_FromUTF8)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_UTF8Decode_Buffer)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_UTF8Encode_Iconv)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_UTF8Encode_UTF8Encode)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_UTF8Encode_Buffer)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_CP936Decode_Iconv)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_CP936Decode_Norvane)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_CP936Encode_Iconv)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_CP936Encode_Norvane)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
