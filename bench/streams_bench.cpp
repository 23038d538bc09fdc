// Streams against the system and the standard library: sequential reads of a 256 MiB file through
// CKD_CRTFileStream and CKD_CachedFileRead against read(2), random 4 KiB reads through the cache,
// and 256 MiB appended to a CKD_MemoryStream in both modes against std::vector<uint8_t>.
// Run: build/release/bench/streams_bench   (needs 256 MiB free in $TMPDIR or /tmp)
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "norvane/streams/file_cache.h"
#include "norvane/streams/file_stream.h"
#include "norvane/streams/memory_stream.h"

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

BENCHMARK(BM_Read2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CRTFileStream)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CachedFileRead)->Arg(64 << 10)->Arg(256 << 10)->ArgName("chunk")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Pread4K);
BENCHMARK(BM_CachedRandom4K);
BENCHMARK(BM_VectorAppend)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MemoryStreamAppend)->Arg(1)->Arg(0)->ArgNames({"consecutive"})->Unit(benchmark::kMillisecond);

}  // namespace

// The file is made and read once before any timing, so every reader finds it in the page cache.
int main(int argc, char** argv) {
  std::vector<uint8_t> buf(kBlock);
  int fd = open(TestFile().c_str(), O_RDONLY);
  while (read(fd, buf.data(), buf.size()) > 0) {
  }
  close(fd);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
