// Streams against the system and the standard library: sequential reads of a 256 MiB file through
// CKD_CRTFileStream, CKD_CachedFileRead and CKD_MMapedFile against read(2), random 4 KiB reads
// through the cache, 256 MiB appended to a CKD_MemoryStream in both modes against
// std::vector<uint8_t>, a million mixed values through CKD_ArchiveSaver against appending the same
// bytes to a std::vector<uint8_t>, and Base64 of 64 MiB against OpenSSL's EVP_EncodeBlock and
// EVP_DecodeBlock (when libcrypto was found). After the table the program prints each Norvane
// figure as a ratio of its peer's throughput in the same run.
// Run: build/release/bench/streams_bench   (needs 256 MiB free in $TMPDIR or /tmp)
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "bench/rate_reporter.h"
#include "norvane/streams/archive.h"
#include "norvane/streams/base64.h"
#include "norvane/streams/file_cache.h"
#include "norvane/streams/file_stream.h"
#include "norvane/streams/memory_stream.h"
#include "norvane/streams/mmap_file.h"
#include "norvane/text/wide_string.h"
#ifdef NORVANE_BENCH_HAVE_OPENSSL
#include <openssl/evp.h>
#endif

namespace {

constexpr size_t kFileSize = 256u << 20;
constexpr size_t kBlock = 64u << 10;

// A 256 MiB file of pseudo-random bytes, made once and removed at exit.
const std::string& TestFile() {
  static std::string path = [] {
    const char* dir = getenv("TMPDIR");
    std::string p = std::string(dir ? dir : "/tmp") + "/norvane_streams_bench.bin";
    int fd = open(p.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0644);
    std::vector<uint8_t> chunk(kBlock);
    std::mt19937 rng(5);
    for (size_t done = 0; done < kFileSize; done += kBlock) {
      for (auto& b : chunk) b = static_cast<uint8_t>(rng());
      if (write(fd, chunk.data(), chunk.size()) != static_cast<ssize_t>(chunk.size())) abort();
    }
    close(fd);
    atexit([] { unlink(TestFile().c_str()); });
    return p;
  }();
  return path;
}

void BM_Read2(benchmark::State& state) {
  std::vector<uint8_t> buf(kBlock);
  for (auto _ : state) {
    int fd = open(TestFile().c_str(), O_RDONLY);
    size_t total = 0;
    while (ssize_t n = read(fd, buf.data(), buf.size())) {
      if (n < 0) break;
      total += static_cast<size_t>(n);
    }
    close(fd);
    benchmark::DoNotOptimize(total);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFileSize));
}

void BM_CRTFileStream(benchmark::State& state) {
  std::vector<uint8_t> buf(kBlock);
  for (auto _ : state) {
    IKD_FileRead* f = KD_CreateFileRead(TestFile().c_str());
    size_t total = 0;
    while (size_t n = f->ReadBlock(buf.data(), buf.size())) total += n;
    f->Release();
    benchmark::DoNotOptimize(total);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFileSize));
}

// state.range(0): the cache's chunk size; the cache holds 1 MiB.
void BM_CachedFileRead(benchmark::State& state) {
  const int chunk = static_cast<int>(state.range(0));
  std::vector<uint8_t> buf(kBlock), chunks(1 << 20);
  for (auto _ : state) {
    CKD_CachedFileRead* r = new CKD_CachedFileRead;
    r->Init(chunk, (1 << 20) / chunk, chunks.data(), nullptr);
    r->AttachFile(KD_CreateFileRead(TestFile().c_str()), true);
    size_t total = 0;
    while (size_t n = r->ReadBlock(buf.data(), buf.size())) total += n;
    r->Release();
    benchmark::DoNotOptimize(total);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFileSize));
}

// Random 4 KiB reads within the first 32 MiB, with a cache of 32 MiB: every chunk is hit after
// the first pass.
void BM_CachedRandom4K(benchmark::State& state) {
  constexpr int kChunks = 512;
  std::vector<uint8_t> chunks(static_cast<size_t>(kChunks) * kBlock), buf(4096);
  CKD_CachedFileRead* r = new CKD_CachedFileRead;
  r->Init(static_cast<int>(kBlock), kChunks, chunks.data(), nullptr);
  r->AttachFile(KD_CreateFileRead(TestFile().c_str()), true);
  std::mt19937 rng(1);
  for (auto _ : state) {
    long long offset = static_cast<long long>(rng() % ((32u << 20) - 4096));
    benchmark::DoNotOptimize(r->ReadBlock(buf.data(), offset, buf.size()));
  }
  r->Release();
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * 4096));
}

void BM_Pread4K(benchmark::State& state) {
  std::vector<uint8_t> buf(4096);
  int fd = open(TestFile().c_str(), O_RDONLY);
  std::mt19937 rng(1);
  for (auto _ : state) {
    off_t offset = static_cast<off_t>(rng() % ((32u << 20) - 4096));
    benchmark::DoNotOptimize(pread(fd, buf.data(), buf.size(), offset));
  }
  close(fd);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * 4096));
}

void BM_VectorAppend(benchmark::State& state) {
  std::vector<uint8_t> piece(4096, 1);
  for (auto _ : state) {
    std::vector<uint8_t> v;
    for (size_t done = 0; done < kFileSize; done += piece.size()) v.insert(v.end(), piece.begin(), piece.end());
    benchmark::DoNotOptimize(v.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFileSize));
}

void BM_MemoryStreamAppend(benchmark::State& state) {
  const bool consecutive = state.range(0) != 0;
  std::vector<uint8_t> piece(4096, 1);
  for (auto _ : state) {
    IKD_MemoryStream* s = KD_CreateMemoryStream(consecutive);
    for (size_t done = 0; done < kFileSize; done += piece.size()) s->WriteBlock(piece.data(), piece.size());
    benchmark::DoNotOptimize(s->GetBuffer());
    s->Release();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFileSize));
}

// state.range(0): the first view's length; 0 maps the whole file at once, else every 64 KiB read
// moves the view.
void BM_MMapedFileRead(benchmark::State& state) {
  const size_t view = state.range(0) ? static_cast<size_t>(state.range(0)) : kFileSize;
  const CKD_WideString path = CKD_WideString::FromUTF8(TestFile().c_str());
  std::vector<uint8_t> buf(kBlock);
  for (auto _ : state) {
    CKD_MMapedFile* f = CKD_MMapedFile::Create(path, 0, view);
    size_t total = 0;
    for (size_t done = 0; done < kFileSize; done += kBlock) total += f->ReadBlock(buf.data(), buf.size());
    f->Release();
    benchmark::DoNotOptimize(total);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFileSize));
}

// A million values of five kinds, as the archive writes them: int, long long, byte, float and a
// short byte string.
constexpr int kArchiveValues = 1000000;
const char kName[] = "name";

template <class T>
void Append(std::vector<uint8_t>& v, const T& value) {
  const uint8_t* p = reinterpret_cast<const uint8_t*>(&value);
  v.insert(v.end(), p, p + sizeof value);
}

void BM_ArchiveSaver(benchmark::State& state) {
  size_t bytes = 0;
  for (auto _ : state) {
    CKD_ArchiveSaver saver;
    for (int i = 0; i < kArchiveValues; i += 5) {
      saver << i << static_cast<long long>(i) * 3 << static_cast<uint8_t>(i) << static_cast<float>(i) << kName;
    }
    benchmark::DoNotOptimize(saver.GetBuffer());
    bytes = static_cast<size_t>(saver.GetLength());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

void BM_VectorArchive(benchmark::State& state) {
  size_t bytes = 0;
  for (auto _ : state) {
    std::vector<uint8_t> v;
    for (int i = 0; i < kArchiveValues; i += 5) {
      Append(v, i);
      Append(v, static_cast<long long>(i) * 3);
      Append(v, static_cast<uint8_t>(i));
      Append(v, static_cast<float>(i));
      Append(v, static_cast<int>(sizeof kName - 1));
      v.insert(v.end(), kName, kName + sizeof kName - 1);
    }
    benchmark::DoNotOptimize(v.data());
    bytes = v.size();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

constexpr int kBase64Bytes = 64 << 20;

const std::vector<uint8_t>& Base64Data() {
  static const std::vector<uint8_t> data = [] {
    std::vector<uint8_t> v(kBase64Bytes);
    std::mt19937 rng(64);
    for (auto& b : v) b = static_cast<uint8_t>(rng());
    return v;
  }();
  return data;
}

const std::string& Base64Text() {
  static const std::string text = [] {
    std::string t(static_cast<size_t>(kBase64Bytes / 3 * 4 + 4), '\0');
    t.resize(static_cast<size_t>(CKD_Base64Encoder().Encode(Base64Data().data(), kBase64Bytes, &t[0])));
    return t;
  }();
  return text;
}

void BM_Base64Encode(benchmark::State& state) {
  const CKD_Base64Encoder encoder('=');
  std::string out(Base64Text().size(), '\0');
  for (auto _ : state) benchmark::DoNotOptimize(encoder.Encode(Base64Data().data(), kBase64Bytes, &out[0]));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBase64Bytes));
}

void BM_Base64Decode(benchmark::State& state) {
  const CKD_Base64Decoder decoder('=');
  const std::string& text = Base64Text();
  std::vector<uint8_t> out(kBase64Bytes + 3);
  for (auto _ : state) benchmark::DoNotOptimize(decoder.Decode(text.data(), static_cast<int>(text.size()), out.data()));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBase64Bytes));
}

#ifdef NORVANE_BENCH_HAVE_OPENSSL
void BM_OpenSSLEncodeBlock(benchmark::State& state) {
  std::string out(Base64Text().size() + 1, '\0');
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&out[0]), Base64Data().data(), kBase64Bytes));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBase64Bytes));
}

void BM_OpenSSLDecodeBlock(benchmark::State& state) {
  const std::string& text = Base64Text();
  std::vector<uint8_t> out(kBase64Bytes + 3);
  for (auto _ : state) {
    benchmark::DoNotOptimize(EVP_DecodeBlock(out.data(), reinterpret_cast<const unsigned char*>(text.data()),
                                             static_cast<int>(text.size())));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBase64Bytes));
}
#endif

// Prints the usual table, then each Norvane case's throughput over its peer's.
class RatioReporter : public RateReporter {
 public:
  void Finalize() override {
    ConsoleReporter::Finalize();
    static const char* const kPairs[][2] = {
        {"BM_CRTFileStream", "BM_Read2"},
        {"BM_CachedFileRead/chunk:65536", "BM_Read2"},
        {"BM_CachedFileRead/chunk:262144", "BM_Read2"},
        {"BM_MMapedFileRead/view:0", "BM_Read2"},
        {"BM_MMapedFileRead/view:65536", "BM_Read2"},
        {"BM_CachedRandom4K", "BM_Pread4K"},
        {"BM_MemoryStreamAppend/consecutive:1", "BM_VectorAppend"},
        {"BM_MemoryStreamAppend/consecutive:0", "BM_VectorAppend"},
        {"BM_ArchiveSaver", "BM_VectorArchive"},
        {"BM_Base64Encode", "BM_OpenSSLEncodeBlock"},
        {"BM_Base64Decode", "BM_OpenSSLDecodeBlock"},
    };
    std::printf("\n%-38s %-24s %8s   (throughput / the peer's, same run)\n", "case", "peer", "ratio");
    for (const auto& pair : kPairs) {
      auto ours = rates_.find(pair[0]), peer = rates_.find(pair[1]);
      if (ours == rates_.end() || peer == rates_.end() || peer->second <= 0) continue;
      std::printf("%-38s %-24s %8.2f\n", pair[0], pair[1], ours->second / peer->second);
    }
  }
};

BENCHMARK(BM_Read2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CRTFileStream)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CachedFileRead)->Arg(64 << 10)->Arg(256 << 10)->ArgName("chunk")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Pread4K);
BENCHMARK(BM_CachedRandom4K);
BENCHMARK(BM_VectorAppend)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MemoryStreamAppend)->Arg(1)->Arg(0)->ArgNames({"consecutive"})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MMapedFileRead)->Arg(0)->Arg(65536)->ArgName("view")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_VectorArchive)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ArchiveSaver)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Base64Encode)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Base64Decode)->Unit(benchmark::kMillisecond);
#ifdef NORVANE_BENCH_HAVE_OPENSSL
BENCHMARK(BM_OpenSSLEncodeBlock)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenSSLDecodeBlock)->Unit(benchmark::kMillisecond);
#endif

}  // namespace

// The file is made and read once before any timing, so every reader finds it in the page cache.
int main(int argc, char** argv) {
  std::vector<uint8_t> buf(kBlock);
  int fd = open(TestFile().c_str(), O_RDONLY);
  while (read(fd, buf.data(), buf.size()) > 0) {
  }
  close(fd);
  Base64Text();  // the Base64 input, made before any timing too
  RatioReporter reporter;
  return RunBenchmarks(argc, argv, &reporter);
}
