// UTF-8 and code-page conversion against the C library's iconv(3), measured in one run so that
// the ratios between the pairs are comparable. Each side converts the same 1 MiB of text; the
// iconv side writes into a buffer made beforehand, the string members allocate their result.
// Number text against the C and C++ libraries' parsers and formatters, and URI escaping against
// iconv's UTF-8 conversion of the same text. The ratios are printed at the end.
// Run: build/bench/bench/text_bench
#include <benchmark/benchmark.h>
#include <iconv.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "bench/rate_reporter.h"
#include "norvane/text/code_page.h"
#include "norvane/text/code_page_convert.h"
#include "norvane/text/number_text.h"
#include "norvane/text/url_text.h"
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

// Number text: 4096 short decimals such as "-1234.5678" (the parsers' everyday input, under twelve
// characters from the point) and 4096 floats from 1e-3 to 1e6.
constexpr int kNumbers = 4096;
const std::vector<std::string>& Decimals() {
  static const std::vector<std::string> texts = [] {
    std::mt19937 rng(3);
    std::vector<std::string> out;
    for (int i = 0; i < kNumbers; ++i) {
      std::string t = rng() % 4 ? "" : "-";
      t += std::to_string(rng() % 1000000) + "." + std::to_string(rng() % 10000);
      out.push_back(t);
    }
    return out;
  }();
  return texts;
}
const std::vector<float>& Floats() {
  static const std::vector<float> values = [] {
    std::mt19937 rng(4);
    std::vector<float> out;
    for (int i = 0; i < kNumbers; ++i) {
      out.push_back(std::ldexp(1.0f + (rng() % 0x800000) / 8388608.0f, static_cast<int>(rng() % 30) - 10));
    }
    return out;
  }();
  return values;
}

template <class Parse>
void ParseAll(benchmark::State& state, Parse parse) {
  const std::vector<std::string>& texts = Decimals();
  for (auto _ : state) {
    float sum = 0;
    for (const std::string& t : texts) sum += parse(t);
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * texts.size()));
}
void BM_Atof_Strtof(benchmark::State& state) {
  ParseAll(state, [](const std::string& t) { return strtof(t.c_str(), nullptr); });
}
void BM_Atof_FromChars(benchmark::State& state) {
  ParseAll(state, [](const std::string& t) {
    float v = 0;
    std::from_chars(t.data(), t.data() + t.size(), v);
    return v;
  });
}
void BM_Atof_Norvane(benchmark::State& state) {
  ParseAll(state, [](const std::string& t) { return KD_atof(CKD_ByteStringC(t.data(), static_cast<int>(t.size()))); });
}

template <class Format>
void FormatAll(benchmark::State& state, Format format) {
  const std::vector<float>& values = Floats();
  char buffer[KD_FTOA_BUFFER_SIZE];
  for (auto _ : state) {
    int total = 0;
    for (float v : values) total += format(v, buffer);
    benchmark::DoNotOptimize(total);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * values.size()));
}
void BM_Ftoa_Snprintf(benchmark::State& state) {
  FormatAll(state, [](float v, char* b) { return snprintf(b, KD_FTOA_BUFFER_SIZE, "%g", static_cast<double>(v)); });
}
void BM_Ftoa_ToChars(benchmark::State& state) {
  FormatAll(state, [](float v, char* b) {
    return static_cast<int>(std::to_chars(b, b + KD_FTOA_BUFFER_SIZE, v).ptr - b);
  });
}
void BM_Ftoa_Norvane(benchmark::State& state) { FormatAll(state, [](float v, char* b) { return KD_ftoa_s(v, b, 0); }); }

// URI escaping of the mixed text (1 MiB as UTF-8), and unescaping 1 MiB of its escaped form.
void BM_EncodeURI_Norvane(benchmark::State& state) {
  CKD_WideString src(Mixed().wide.c_str(), static_cast<int>(Mixed().wide.size()));
  for (auto _ : state) {
    CKD_ByteString b = KD_EncodeURI(src);
    benchmark::DoNotOptimize(b.c_str());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * Mixed().utf8.size()));
}
void BM_DecodeURI_Norvane(benchmark::State& state) {
  CKD_ByteString escaped = KD_EncodeURI(CKD_WideString(Mixed().wide.c_str(), static_cast<int>(Mixed().wide.size())));
  CKD_ByteString src(escaped.c_str(), static_cast<int>(kSize));
  for (auto _ : state) {
    CKD_WideString w = KD_DecodeURI(src);
    benchmark::DoNotOptimize(w.c_str());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kSize));
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
BENCHMARK(BM_Atof_Strtof)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Atof_FromChars)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Atof_Norvane)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Ftoa_Snprintf)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Ftoa_ToChars)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Ftoa_Norvane)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_EncodeURI_Norvane)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_DecodeURI_Norvane)->Unit(benchmark::kMicrosecond);

// Prints the usual table, then each Norvane case's rate over its peers' (same run).
class RatioReporter : public RateReporter {
 public:
  void Finalize() override {
    ConsoleReporter::Finalize();
    static const char* const kPairs[][2] = {
        {"BM_UTF8Decode_FromUTF8", "BM_UTF8Decode_Iconv"}, {"BM_UTF8Decode_Buffer", "BM_UTF8Decode_Iconv"},
        {"BM_UTF8Encode_UTF8Encode", "BM_UTF8Encode_Iconv"}, {"BM_UTF8Encode_Buffer", "BM_UTF8Encode_Iconv"},
        {"BM_CP936Decode_Norvane", "BM_CP936Decode_Iconv"}, {"BM_CP936Encode_Norvane", "BM_CP936Encode_Iconv"},
        {"BM_Atof_Norvane", "BM_Atof_Strtof"},           {"BM_Atof_Norvane", "BM_Atof_FromChars"},
        {"BM_Ftoa_Norvane", "BM_Ftoa_Snprintf"},         {"BM_Ftoa_Norvane", "BM_Ftoa_ToChars"},
        {"BM_EncodeURI_Norvane", "BM_UTF8Encode_Iconv"}, {"BM_DecodeURI_Norvane", "BM_UTF8Decode_Iconv"},
    };
    std::printf("\n%-26s %-22s %8s   (rate / peer's rate, same run)\n", "case", "peer", "ratio");
    for (const auto& pair : kPairs) {
      auto ours = rates_.find(pair[0]), peer = rates_.find(pair[1]);
      if (ours == rates_.end() || peer == rates_.end() || peer->second == 0) continue;
      std::printf("%-26s %-22s %8.2f\n", pair[0] + 3, pair[1] + 3, ours->second / peer->second);
    }
  }
};

}  // namespace

int main(int argc, char** argv) {
  RatioReporter reporter;
  return RunBenchmarks(argc, argv, &reporter);
}
