#include "norvane/streams/mmap_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "norvane/memory/memory_mgr.h"
#include "tests/support/temp_dir.h"
#include "tests/support/test_mgr.h"

namespace {

using kdtest::TempDir;
using Bytes = std::vector<uint8_t>;

constexpr long long k64K = 65536;

void WriteFile(const std::string& path, const Bytes& bytes) {
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

Bytes ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

Bytes Random(size_t n, std::mt19937& rng) {
  Bytes v(n);
  for (auto& b : v) b = static_cast<uint8_t>(rng());
  return v;
}

CKD_WideString Wide(const std::string& path) { return CKD_WideString::FromUTF8(path.c_str()); }

// Sets KD_DEFAULT_MMAP_SIZE for one scope.
class PageSize {
 public:
  explicit PageSize(size_t size) : saved_(KD_DEFAULT_MMAP_SIZE) { KD_DEFAULT_MMAP_SIZE = size; }
  ~PageSize() { KD_DEFAULT_MMAP_SIZE = saved_; }

 private:
  size_t saved_;
};

TEST(MMapedFile, OpenExtendsTheFileToAPageMultiple) {
  TempDir dir;
  struct Case {
    long long initial;  // -1: no file yet
    size_t page;
    long long expected;
  };
  const Case cases[] = {{10, 4096, 4096}, {8192, 4096, 8192}, {0, 4096, 4096},  {4097, 4096, 8192},
                        {-1, 4096, 4096}, {5000, 8192, 8192}, {10, 0, 10}};
  std::mt19937 rng(7);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.initial);
    PageSize page(c.page);
    const std::string path = dir.File("open" + std::to_string(c.initial) + "_" + std::to_string(c.page));
    const Bytes original = Random(c.initial < 0 ? 0 : static_cast<size_t>(c.initial), rng);
    if (c.initial >= 0) WriteFile(path, original);
    mode_t old_mask = umask(0);
    CKD_MMapedFile* f = CKD_MMapedFile::Create(Wide(path), 0, 4096);
    umask(old_mask);
    ASSERT_NE(f, nullptr);
    EXPECT_TRUE(f->IsValid());
    EXPECT_EQ(f->GetSize(), c.expected);
    const Bytes now = ReadFile(path);
    ASSERT_EQ(static_cast<long long>(now.size()), c.expected);
    EXPECT_TRUE(std::equal(original.begin(), original.end(), now.begin()));
    // The fill byte is 0, so every byte the file gained is 0.
    EXPECT_TRUE(std::all_of(now.begin() + static_cast<long>(original.size()), now.end(), [](uint8_t b) { return b == 0; }));
    EXPECT_EQ(memcmp(f->GetMemory(), now.data(), static_cast<size_t>(std::min<long long>(4096, c.expected))), 0);
    struct stat st;
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    if (c.initial < 0) {
      EXPECT_EQ(st.st_mode & 0777, 0700u);
    }
    // Kept as they are: no count, no end, no seeking, and sequential reads return 1.
    EXPECT_EQ(f->Retain(), nullptr);
    uint8_t buf[16];
    EXPECT_EQ(f->ReadBlock(buf, 10), 1u);
    EXPECT_EQ(f->GetPosition(), 10);
    EXPECT_TRUE(f->ReadBlock(buf, std::max(0LL, c.expected - 16), 16));
    EXPECT_FALSE(f->IsEOF());
    EXPECT_EQ(f->SetPosition(0), -1);
    EXPECT_FALSE(f->SetRange(0, 1));
    EXPECT_EQ(f->GetName(), Wide(path));
    EXPECT_TRUE(f->Flush());
    f->Release();
  }
}

TEST(MMapedFile, FailedOpenOrMappingLeavesAnInvalidObject) {
  TempDir dir;
  uint8_t buf[8] = {};
  // No folder: nothing opens; reads and writes fail without touching memory.
  CKD_MMapedFile* missing = CKD_MMapedFile::Create(Wide(dir.File("no/such/file")), 0, 4096);
  ASSERT_NE(missing, nullptr);
  EXPECT_FALSE(missing->IsValid());
  EXPECT_EQ(missing->GetMemory(), nullptr);
  EXPECT_FALSE(missing->ReadBlock(buf, 0, 8));
  EXPECT_FALSE(missing->WriteBlock(buf, 0, 8));
  EXPECT_FALSE(missing->Flush());
  missing->Release();
  // An offset off the page grid, or length 0, cannot be mapped; the file itself opens and works.
  for (long long offset : {1LL, 0LL}) {
    CKD_MMapedFile f(Wide(dir.File("grid")), offset, offset ? 4096 : 0);
    EXPECT_FALSE(f.IsValid());
    EXPECT_EQ(f.GetMapLength(), 0u);
    EXPECT_TRUE(f.WriteBlock("abcdefgh", 100, 8));
    EXPECT_TRUE(f.IsValid());
    EXPECT_TRUE(f.ReadBlock(buf, 100, 8));
    EXPECT_EQ(memcmp(buf, "abcdefgh", 8), 0);
  }
  // Out of memory: no object, or (the path's conversion failing) an object that opened nothing.
  kdtest::TestDefaultMgr mgr;
  mgr.sys().FailAll(true);
  EXPECT_EQ(CKD_MMapedFile::Create(CKD_WideString(), 0, 4096), nullptr);
  mgr.sys().FailAll(false);
  CKD_WideString path = Wide(dir.File("oom"));
  mgr.sys().FailNth(2);
  CKD_MMapedFile* f = CKD_MMapedFile::Create(path, 0, 4096);
  ASSERT_NE(f, nullptr);
  EXPECT_FALSE(f->IsValid());
  EXPECT_NE(access(dir.File("oom").c_str(), F_OK), 0);
  f->Release();
}

TEST(MMapedFile, ZeroFillFileWritesBlocksOfFillThenZeros) {
  TempDir dir;
  const std::string path = dir.File("fill");
  struct Case {
    long long offset;
    size_t size;
  };
  for (Case c : {Case{0, 0}, Case{10, 100}, Case{7, 4095}, Case{0, 4096}, Case{3, 10000}, Case{-1, 10}}) {
    SCOPED_TRACE(c.size);
    WriteFile(path, Bytes(20000, 0x11));
    int fd = open(path.c_str(), O_RDWR);
    KD_ZeroFillFile(fd, c.offset, c.size, 0x1AB);
    close(fd);
    Bytes expected(20000, 0x11);
    for (size_t i = 0; c.offset >= 0 && i < c.size; ++i) expected[c.offset + i] = i % 4096 < 1024 ? 0xAB : 0;
    EXPECT_EQ(ReadFile(path), expected);
  }
  KD_ZeroFillFile(-1, 0, 100, 0);  // no file: nothing
}

// A model of the file: its bytes, grown as the mapped file grows it.
void Grow(Bytes& model, long long end) {
  long long size = (end + k64K - 1) / k64K * k64K;
  if (size > static_cast<long long>(model.size())) model.resize(static_cast<size_t>(size), 0);
}

TEST(MMapedFile, RandomReadsAndWritesAcrossViewsMatchTheFile) {
  TempDir dir;
  std::mt19937 rng(2024);
  const std::string path = dir.File("random");
  Bytes model = Random(300000, rng);
  WriteFile(path, model);
  model.resize(303104, 0);  // extended to the next multiple of 4096
  PageSize page(4096);
  CKD_MMapedFile* f = CKD_MMapedFile::Create(Wide(path), 0, k64K);
  ASSERT_TRUE(f && f->IsValid());
  ASSERT_EQ(f->GetSize(), static_cast<long long>(model.size()));
  for (int i = 0; i < 600; ++i) {
    const long long offset = static_cast<long long>(rng() % (model.size() + 70000));
    const size_t size = rng() % 4 ? rng() % 3000 : rng() % 200000;
    SCOPED_TRACE(testing::Message() << "offset " << offset << " size " << size);
    if (rng() % 2) {
      Bytes data = Random(size, rng);
      ASSERT_TRUE(f->WriteBlock(data.data(), offset, size));
      Grow(model, offset + static_cast<long long>(size));
      std::copy(data.begin(), data.end(), model.begin() + offset);
    } else {
      Bytes got(size + 1, 0xEE);
      ASSERT_TRUE(f->ReadBlock(got.data(), offset, size));
      Grow(model, offset + static_cast<long long>(size));
      ASSERT_TRUE(std::equal(got.begin(), got.begin() + static_cast<long>(size), model.begin() + offset));
      ASSERT_EQ(got[size], 0xEE);
    }
    ASSERT_EQ(f->GetPosition(), offset + static_cast<long long>(size));
    ASSERT_EQ(f->GetSize(), static_cast<long long>(model.size()));
    // Every view is 64 KiB aligned and a multiple of 64 KiB long.
    ASSERT_EQ(f->GetMapOffset() % k64K, 0);
    ASSERT_EQ(f->GetMapLength() % k64K, 0u);
  }
  // Sequential writes and reads continue at the position.
  ASSERT_TRUE(f->WriteBlock("seq", 3) && f->WriteBlock("uel", 3));
  Grow(model, f->GetPosition());
  std::copy_n("sequel", 6, model.begin() + (f->GetPosition() - 6));
  EXPECT_TRUE(f->Flush());
  f->Release();
  EXPECT_EQ(ReadFile(path), model);
}

TEST(MMapedFile, ViewsMoveAndGrowAsStated) {
  TempDir dir;
  const std::string path = dir.File("views");
  std::mt19937 rng(9);
  const Bytes original = Random(4 * k64K, rng);
  WriteFile(path, original);
  CKD_MMapedFile f(Wide(path), k64K, k64K);
  ASSERT_TRUE(f.IsValid());
  EXPECT_EQ(f.GetMapOffset(), k64K);
  // Before the view: a 64 KiB view at 0, then the write.
  EXPECT_TRUE(f.WriteBlock("0123456789", 100, 10));
  EXPECT_EQ(f.GetMapOffset(), 0);
  EXPECT_EQ(f.GetMapLength(), static_cast<size_t>(k64K));
  EXPECT_EQ(memcmp(f.GetMemory() + 100, "0123456789", 10), 0);
  // Across the view's end: the first part from this view, the rest from the next.
  Bytes got(1000);
  EXPECT_TRUE(f.ReadBlock(got.data(), k64K - 500, 1000));
  EXPECT_TRUE(std::equal(got.begin(), got.end(), original.begin() + (k64K - 500)));
  EXPECT_EQ(f.GetMapOffset(), k64K);
  // Past the view's end, and exactly at it: a new view, not a split.
  EXPECT_TRUE(f.ReadBlock(got.data(), 3 * k64K + 7, 10));
  EXPECT_EQ(f.GetMapOffset(), 3 * k64K);
  EXPECT_TRUE(f.ReadBlock(got.data(), 4 * k64K - 10, 10));
  // Nothing to read: done inside the view; before it, the re-map to a view of 0 bytes fails.
  EXPECT_TRUE(f.ReadBlock(got.data(), 3 * k64K + 1, 0));
  EXPECT_FALSE(f.ReadBlock(got.data(), 2 * k64K, 0));
  EXPECT_FALSE(f.IsValid());
  // ReMap of a covered range keeps the view.
  EXPECT_TRUE(f.ReMap(5, 10));
  EXPECT_TRUE(f.ReMap(8, 100));
  EXPECT_EQ(f.GetMapOffset(), 0);
  // Requests that cannot be file offsets fail and leave everything as it was.
  const long long position = f.GetPosition();
  EXPECT_FALSE(f.ReadBlock(got.data(), -1, 10));
  EXPECT_FALSE(f.ReadBlock(nullptr, 0, 10));
  EXPECT_FALSE(f.WriteBlock(got.data(), LLONG_MAX - 5, 10));
  EXPECT_FALSE(f.ReadBlock(got.data(), 10, static_cast<size_t>(-1)));
  EXPECT_FALSE(f.ReMap(-1, 10));
  EXPECT_EQ(f.GetPosition(), position);
  EXPECT_EQ(f.GetSize(), 4 * k64K);
  // Past the file's end, by a re-map or inside a view reaching past it: the file grows.
  EXPECT_TRUE(f.WriteBlock("end", 4 * k64K + 5, 3));
  EXPECT_EQ(f.GetSize(), 5 * k64K);
  EXPECT_TRUE(f.WriteBlock("far", 4 * k64K + 5 + k64K, 3));
  EXPECT_EQ(f.GetSize(), 6 * k64K);
  EXPECT_TRUE(f.ReMap(6 * k64K - 10, 5));  // a view of 64 KiB ends at the file's end
  struct stat st;
  ASSERT_EQ(stat(path.c_str(), &st), 0);
  EXPECT_EQ(st.st_size, 6 * k64K);

  // A first view longer than the file: touching its part past the end grows the file first.
  const std::string small = dir.File("small");
  WriteFile(small, Bytes(4096, 1));
  CKD_MMapedFile g(Wide(small), 0, 2 * k64K);
  ASSERT_TRUE(g.IsValid());
  EXPECT_TRUE(g.WriteBlock("x", 70000, 1));
  EXPECT_EQ(g.GetSize(), 2 * k64K);
  EXPECT_TRUE(g.ReadBlock(got.data(), 2 * k64K - 10, 10));
  EXPECT_EQ(g.GetMapOffset(), 0);
}

TEST(MMapedFile, SparseFileOfFiveGiBTouchedNearItsEnd) {
  TempDir dir;
  const std::string path = dir.File("sparse");
  const long long size = 5LL << 30;
  int fd = open(path.c_str(), O_CREAT | O_RDWR, 0644);
  ASSERT_GE(fd, 0);
  if (ftruncate(fd, size) != 0) {
    close(fd);
    GTEST_SKIP() << "the temporary file system holds no 5 GiB sparse file";
  }
  close(fd);
  CKD_MMapedFile f(Wide(path), 0, k64K);
  ASSERT_TRUE(f.IsValid());
  EXPECT_EQ(f.GetSize(), size);
  const char text[] = "near the end of five gibibytes";
  ASSERT_TRUE(f.WriteBlock(text, size - 100, sizeof text));
  EXPECT_EQ(f.GetMapOffset(), (size - 100) / k64K * k64K);
  char got[sizeof text] = {};
  ASSERT_TRUE(f.ReadBlock(got, size - 100, sizeof text));
  EXPECT_STREQ(got, text);
  // Across the end: the file grows by one granule.
  ASSERT_TRUE(f.WriteBlock(text, size - 10, sizeof text));
  EXPECT_EQ(f.GetSize(), size + k64K);
  ASSERT_TRUE(f.Flush());
  fd = open(path.c_str(), O_RDONLY);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(pread(fd, got, sizeof text, size - 100), static_cast<ssize_t>(sizeof text));
  EXPECT_STREQ(got, text);
  EXPECT_EQ(pread(fd, got, sizeof text, size - 10), static_cast<ssize_t>(sizeof text));
  EXPECT_STREQ(got, text);
  struct stat st;
  ASSERT_EQ(fstat(fd, &st), 0);
  close(fd);
  EXPECT_EQ(st.st_size, size + k64K);
  EXPECT_LT(st.st_blocks * 512, 16LL << 20);  // still sparse: well under 16 MiB on disk
}

}  // namespace
