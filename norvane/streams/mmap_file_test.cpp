#include "norvane/streams/mmap_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "norvane/memory/memory_mgr.h"
#include "tests/support/temp_dir.h"
#include "tests/support/test_mgr.h"

namespace {

using Bytes = std::vector<uint8_t>;
using kdtest::ReadFile;
using kdtest::WriteFile;

constexpr long long k64K = 65536;

Bytes Random(size_t n, std::mt19937& rng) {
  Bytes v(n);
  for (auto& b : v) b = static_cast<uint8_t>(rng());
  return v;
}

CKD_WideString Wide(const std::string& path) { return CKD_WideString::FromUTF8(path.c_str()); }

TEST(MMapedFile, OpenExtendsTheFileToAPageMultiple) {
  kdtest::TempDir dir;
  const size_t saved_page = KD_DEFAULT_MMAP_SIZE;
  struct Case {
    long long initial;  // -1: no file yet
    size_t page;
    long long expected;
  } cases[] = {{10, 4096, 4096}, {8192, 4096, 8192}, {-1, 4096, 4096}, {5000, 8192, 8192}, {10, 0, 10}};
  std::mt19937 rng(7);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.initial);
    KD_DEFAULT_MMAP_SIZE = c.page;
    const std::string path = dir.File("open" + std::to_string(c.initial) + "_" + std::to_string(c.page));
    Bytes expected = Random(c.initial < 0 ? 0 : static_cast<size_t>(c.initial), rng);
    if (c.initial >= 0) WriteFile(path, expected);
    mode_t old_mask = umask(0);
    CKD_MMapedFile* f = CKD_MMapedFile::Create(Wide(path), 0, 4096);
    umask(old_mask);
    ASSERT_TRUE(f && f->IsValid());
    // The original bytes, then what the file gained: all 0, as the fill byte is.
    expected.resize(static_cast<size_t>(c.expected), 0);
    EXPECT_TRUE(f->GetSize() == c.expected && ReadFile<Bytes>(path) == expected);
    EXPECT_EQ(memcmp(f->GetMemory(), expected.data(), std::min<size_t>(4096, expected.size())), 0);
    struct stat st;
    EXPECT_TRUE(c.initial >= 0 || (stat(path.c_str(), &st) == 0 && (st.st_mode & 0777) == 0700u));
    // Kept as they are: no count, no end, no seeking, and sequential reads return 1.
    uint8_t buf[16];
    EXPECT_TRUE(f->Retain() == nullptr && !f->IsEOF() && f->SetPosition(0) == -1);
    EXPECT_TRUE(f->ReadBlock(buf, 10) == 1u && f->GetPosition() == 10);
    f->Release();
  }
  KD_DEFAULT_MMAP_SIZE = saved_page;
}

TEST(MMapedFile, ZeroFillFileWritesBlocksOfFillThenZeros) {
  kdtest::TempDir dir;
  const std::string path = dir.File("fill");
  for (long long size : {0, 100, 4095, 4096, 10000, -10}) {  // -10: 10 bytes at offset -1
    SCOPED_TRACE(size);
    const long long offset = size < 0 ? -1 : 3;
    WriteFile(path, Bytes(20000, 0x11));
    int fd = open(path.c_str(), O_RDWR);
    KD_ZeroFillFile(fd, offset, static_cast<size_t>(std::abs(size)), 0x1AB);
    close(fd);
    Bytes expected(20000, 0x11);
    for (long long i = 0; offset >= 0 && i < size; ++i) expected[offset + i] = i % 4096 < 1024 ? 0xAB : 0;
    EXPECT_EQ(ReadFile<Bytes>(path), expected);
  }
  KD_ZeroFillFile(-1, 0, 100, 0);  // no file: nothing
}

TEST(MMapedFile, RandomReadsAndWritesAcrossViewsMatchTheFile) {
  kdtest::TempDir dir;
  std::mt19937 rng(2024);
  const std::string path = dir.File("random");
  Bytes model = Random(3 * k64K + 4096, rng);
  WriteFile(path, model);
  CKD_MMapedFile* f = CKD_MMapedFile::Create(Wide(path), 0, k64K);
  ASSERT_TRUE(f && f->IsValid());
  model.resize(static_cast<size_t>(f->GetSize()), 0);  // as opening extended it, for any page size
  for (int i = 0; i < 600; ++i) {
    const long long offset = static_cast<long long>(rng() % (model.size() + 70000));
    const size_t size = rng() % 4 ? rng() % 3000 : rng() % 200000;
    SCOPED_TRACE(testing::Message() << "offset " << offset << " size " << size);
    // Past the end the file grows to a multiple of 64 KiB, with zeros.
    const size_t end = static_cast<size_t>((offset + static_cast<long long>(size) + k64K - 1) / k64K * k64K);
    if (end > model.size()) model.resize(end, 0);
    Bytes data = Random(size, rng), got(size + 1, 0xEE);
    if (rng() % 2) {
      ASSERT_TRUE(f->WriteBlock(data.data(), offset, size));
      std::copy(data.begin(), data.end(), model.begin() + offset);
    } else {
      ASSERT_TRUE(f->ReadBlock(got.data(), offset, size));
      ASSERT_TRUE(std::equal(got.begin(), got.end() - 1, model.begin() + offset) && got[size] == 0xEE);
    }
    ASSERT_TRUE(f->GetPosition() == offset + static_cast<long long>(size) &&
                f->GetSize() == static_cast<long long>(model.size()));
    ASSERT_TRUE(f->GetMapOffset() % k64K == 0 && f->GetMapLength() % k64K == 0);
  }
  EXPECT_TRUE(f->Flush());
  f->Release();
  EXPECT_EQ(ReadFile<Bytes>(path), model);
}

TEST(MMapedFile, ViewsMoveAndGrowAsStated) {
  kdtest::TempDir dir;
  const std::string path = dir.File("views");
  std::mt19937 rng(9);
  const Bytes original = Random(4 * k64K, rng);
  WriteFile(path, original);
  CKD_MMapedFile f(Wide(path), k64K, k64K);
  ASSERT_TRUE(f.IsValid());
  // Before the view: a 64 KiB view at 0, then the write.
  EXPECT_TRUE(f.WriteBlock("0123456789", 100, 10) && f.GetMapOffset() == 0);
  EXPECT_TRUE(f.GetMapLength() == static_cast<size_t>(k64K) && memcmp(f.GetMemory() + 100, "0123456789", 10) == 0);
  // Across the view's end: the first part from this view, the rest from the next.
  Bytes got(1000);
  EXPECT_TRUE(f.ReadBlock(got.data(), k64K - 500, 1000) && f.GetMapOffset() == k64K);
  EXPECT_TRUE(std::equal(got.begin(), got.end(), original.begin() + (k64K - 500)));
  // Past the view's end: a new view, not a split.
  EXPECT_TRUE(f.ReadBlock(got.data(), 3 * k64K + 7, 10) && f.GetMapOffset() == 3 * k64K);
  // Nothing to read: done inside the view; before it, the re-map to a view of 0 bytes fails.
  EXPECT_TRUE(f.ReadBlock(got.data(), 3 * k64K + 1, 0));
  EXPECT_FALSE(f.ReadBlock(got.data(), 2 * k64K, 0) || f.IsValid());
  // Requests that cannot be file offsets fail and leave the position as it was.
  EXPECT_FALSE(f.ReadBlock(got.data(), -1, 10) || f.ReadBlock(nullptr, 0, 10) || f.ReMap(-1, 10));
  EXPECT_FALSE(f.WriteBlock(got.data(), LLONG_MAX - 5, 10) || f.ReadBlock(got.data(), 10, static_cast<size_t>(-1)));
  EXPECT_EQ(f.GetPosition(), 3 * k64K + 1);
  // A first view longer than the file: touching its part past the end grows the file first.
  WriteFile(dir.File("small"), Bytes(4096, 1));
  CKD_MMapedFile g(Wide(dir.File("small")), 0, 2 * k64K);
  EXPECT_TRUE(g.WriteBlock("x", 70000, 1) && g.GetSize() == 2 * k64K && g.GetMapOffset() == 0);
  EXPECT_EQ(ReadFile<Bytes>(dir.File("small")).size(), static_cast<size_t>(2 * k64K));

  // Failures: no folder to open in; no memory for the object, or for the path's conversion.
  CKD_MMapedFile missing(Wide(dir.File("no/such/file")), 0, 4096);
  EXPECT_FALSE(missing.IsValid() || missing.ReadBlock(got.data(), 0, 8) || missing.Flush());
  kdtest::TestDefaultMgr mgr;
  mgr.sys().FailAll(true);
  EXPECT_EQ(CKD_MMapedFile::Create(CKD_WideString(), 0, 4096), nullptr);
  mgr.sys().FailAll(false);
  CKD_WideString oom = Wide(dir.File("oom"));
  mgr.sys().FailNth(2);
  CKD_MMapedFile* h = CKD_MMapedFile::Create(oom, 0, 4096);
  ASSERT_NE(h, nullptr);
  EXPECT_TRUE(!h->IsValid() && access(dir.File("oom").c_str(), F_OK) != 0);
  h->Release();
}

TEST(MMapedFile, SparseFileOfFiveGiBTouchedNearItsEnd) {
  kdtest::TempDir dir;
  const std::string path = dir.File("sparse");
  const long long size = 5LL << 30;
  int fd = open(path.c_str(), O_CREAT | O_RDWR, 0644);
  ASSERT_GE(fd, 0);
  const bool sparse = ftruncate(fd, size) == 0;
  close(fd);
  if (!sparse) GTEST_SKIP() << "the temporary file system holds no 5 GiB sparse file";
  CKD_MMapedFile f(Wide(path), 0, k64K);
  ASSERT_TRUE(f.IsValid() && f.GetSize() == size);
  // Near the end, then across it (the file grows by one granule); checked through the file.
  const char text[] = "near the end of five gibibytes";
  ASSERT_TRUE(f.WriteBlock(text, size - 100, sizeof text) && f.WriteBlock(text, size - 10, sizeof text));
  ASSERT_TRUE(f.GetSize() == size + k64K && f.Flush());
  fd = open(path.c_str(), O_RDONLY);
  char got[2][sizeof text] = {};
  EXPECT_EQ(pread(fd, got[0], sizeof text, size - 100) + pread(fd, got[1], sizeof text, size - 10),
            static_cast<ssize_t>(2 * sizeof text));
  EXPECT_TRUE(strcmp(got[0], text) == 0 && strcmp(got[1], text) == 0);
  struct stat st;
  EXPECT_TRUE(fstat(fd, &st) == 0 && st.st_size == size + k64K);
  EXPECT_LT(st.st_blocks * 512, 16LL << 20);  // still sparse: well under 16 MiB on disk
  close(fd);
}

}  // namespace
