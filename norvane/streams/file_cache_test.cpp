#include "norvane/streams/file_cache.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "norvane/streams/cache_streams.h"
#include "norvane/streams/memory_stream.h"
#include "tests/support/test_mgr.h"
#include "tests/support/vtable.h"

namespace {

// A "file": a memory stream over known bytes, counting the reads that reach it.
struct CountingFile : CKD_MemoryStream {
  explicit CountingFile(const std::vector<uint8_t>& bytes)
      : CKD_MemoryStream(const_cast<uint8_t*>(bytes.data()), bytes.size(), false, nullptr) {}
  bool ReadBlock(void* buffer, long long offset, size_t size) override {
    ++reads;
    return CKD_MemoryStream::ReadBlock(buffer, offset, size);
  }
  using CKD_MemoryStream::ReadBlock;
  int reads = 0;
};

std::vector<uint8_t> FileBytes(size_t n) {
  std::vector<uint8_t> v(n);
  std::mt19937 rng(static_cast<unsigned>(n));
  for (auto& b : v) b = static_cast<uint8_t>(rng());
  return v;
}

std::vector<long long> Offsets(const CKD_FileCache& c) {
  std::vector<long long> out;
  for (int i = 0; i < c.GetUsedCount(); ++i) out.push_back(c.GetChunk(i)->m_nOffset);
  return out;
}

TEST(CachedFileRead, EvictsTheOldestAndKeepsTheTableSorted) {
  auto bytes = FileBytes(20000);
  CountingFile file(bytes);
  std::vector<uint8_t> chunks(2 * 4096);
  CKD_CachedFileRead* r = new CKD_CachedFileRead;
  EXPECT_FALSE(r->AttachFile(&file, false));  // not initialised yet
  ASSERT_TRUE(r->Init(4096, 2, chunks.data(), nullptr));
  EXPECT_FALSE(r->Init(4096, 2, chunks.data(), nullptr));
  ASSERT_TRUE(r->AttachFile(&file, false));
  const CKD_FileCache& cache = r->GetData()->m_Cache;

  uint8_t b[5000];
  ASSERT_TRUE(r->ReadBlock(b, 0LL, 11));
  ASSERT_TRUE(r->ReadBlock(b, 8192LL, 9));
  EXPECT_EQ(Offsets(cache), (std::vector<long long>{0, 8192}));
  ASSERT_TRUE(r->ReadBlock(b, 4096LL, 5));  // evicts the chunk at 0, the oldest
  EXPECT_EQ(Offsets(cache), (std::vector<long long>{4096, 8192}));
  int reads = file.reads;
  ASSERT_TRUE(r->ReadBlock(b, 8200LL, 10));  // a hit: no file read
  EXPECT_EQ(file.reads, reads);

  // A read across two chunks evicts the least recently used ones.
  ASSERT_TRUE(r->ReadBlock(b, 3000LL, 5000));
  EXPECT_TRUE(r->GetPosition() == 8000 && Offsets(cache) == (std::vector<long long>{0, 4096}));

  // Reads stop at the end of the file.
  EXPECT_FALSE(r->ReadBlock(b, 19990LL, 11) || r->ReadBlock(b, -1LL, 1) || r->ReadBlock(b, 0LL, 0));
  EXPECT_TRUE(r->ReadBlock(b, 19990LL, 10) && r->IsEOF() && r->ReadBlock(b, 10) == 0u);
  EXPECT_FALSE(r->WriteBlock(b, 0LL, 1) || r->Flush() || r->SetRange(0, 1));  // a reader only
  r->Release();
}

TEST(CachedFileRead, ReadsMatchTheFileForAnyLayout) {
  auto bytes = FileBytes(300000);
  struct Layout {
    int chunk_size, chunk_count;
  };
  for (Layout l : {Layout{4096, 1}, Layout{4096, 3}, Layout{8192, 16}, Layout{1024, 8}, Layout{65536, 2}}) {
    CountingFile file(bytes);
    std::vector<uint8_t> chunks(static_cast<size_t>(l.chunk_size) * l.chunk_count);
    CKD_CachedFileRead* r = new CKD_CachedFileRead;
    ASSERT_TRUE(r->Init(l.chunk_size, l.chunk_count, chunks.data(), nullptr));
    ASSERT_TRUE(r->AttachFile(&file, false));
    if (l.chunk_size < 4096) {
      EXPECT_EQ(r->GetData()->m_Cache.GetChunkCount(), 0);  // caches nothing
    }
    std::mt19937 rng(l.chunk_size + l.chunk_count);
    std::vector<uint8_t> got(40000);
    for (int i = 0; i < 300; ++i) {
      size_t size = 1 + rng() % got.size();
      long long offset = static_cast<long long>(rng() % (bytes.size() - size + 1));
      if (i % 10 == 0) r->PreCache(offset, 3);
      ASSERT_TRUE(r->ReadBlock(got.data(), offset, size));
      ASSERT_EQ(memcmp(got.data(), bytes.data() + offset, size), 0) << l.chunk_size << "x" << l.chunk_count;
      const CKD_FileCache& c = r->GetData()->m_Cache;
      auto offsets = Offsets(c);
      ASSERT_TRUE(std::is_sorted(offsets.begin(), offsets.end()));
      ASSERT_TRUE(std::adjacent_find(offsets.begin(), offsets.end()) == offsets.end());
    }
    // Sequential reading from the start sees the whole file.
    r->AttachFile(&file, false);
    std::vector<uint8_t> all(bytes.size());
    size_t total = r->ReadBlock(all.data(), 0LL, 1) ? 1 : 0;
    while (size_t n = r->ReadBlock(all.data() + total, 7000)) total += n;
    EXPECT_EQ(total, bytes.size());
    EXPECT_EQ(all, bytes);
    r->Release();
  }
}

TEST(CachedFileRead, OwnershipAndAllocators) {
  kdtest::TestDefaultMgr def;
  auto bytes = FileBytes(5000);
  // A file taken over is released when another is attached, and with the reader.
  IKD_MemoryStream* first = KD_CreateMemoryStream(const_cast<uint8_t*>(bytes.data()), bytes.size(), false);
  IKD_MemoryStream* second = KD_CreateMemoryStream(const_cast<uint8_t*>(bytes.data()), bytes.size(), false);
  kdtest::TestMgr other;
  void* raw = other.allocator()->m_Alloc(other.allocator(), sizeof(CKD_CachedFileRead));
  CKD_CachedFileRead* r = ::new (raw) CKD_CachedFileRead;
  std::vector<uint8_t> chunks(4096);
  ASSERT_TRUE(r->Init(4096, 1, chunks.data(), other.allocator()));
  ASSERT_TRUE(r->AttachFile(first, true));
  ASSERT_TRUE(r->AttachFile(second, true));
  EXPECT_EQ(def.live_blocks(), 2u);  // the first stream went: the second and its block list remain
  EXPECT_EQ(r->Retain(), r);
  r->Release();
  EXPECT_EQ(r->GetSize(), 5000);  // still held
  r->Release();  // gives the reader, its data and table back to the allocator
  EXPECT_TRUE(other.live_blocks() == 0 && def.live_blocks() == 0);

  // Without memory for its data a reader stays uninitialised.
  CKD_CachedFileRead* broke = new CKD_CachedFileRead;
  def.sys().FailNth(1);
  EXPECT_FALSE(broke->Init(4096, 1, chunks.data(), nullptr));
  EXPECT_TRUE(broke->GetSize() == 0 && broke->IsEOF());
  broke->Release();
}

TEST(LimitCacheStream, CountsEverythingStoresWhatFits) {
  CKD_LimitCacheStream* none = new CKD_LimitCacheStream(100, 50, 0);
  EXPECT_TRUE(none->GetCapacity() == 0u && none->WriteBlock("0123456789", 10) && none->WriteBlock("x", 0LL, 1));
  EXPECT_TRUE(none->GetSize() == 11 && none->GetPosition() == 11 && none->SetPosition(3) == 11 && none->IsEOF());
  EXPECT_EQ(none->Retain(), nullptr);
  none->Release();

  CKD_LimitCacheStream* s = new CKD_LimitCacheStream(12, 100, 4);
  EXPECT_EQ(s->GetCapacity(), 16u);
  EXPECT_TRUE(s->WriteBlock("0123456789", 10) && s->WriteBlock("abcdefghij", 10));  // the second is only counted
  EXPECT_TRUE(s->GetSize() == 20 && memcmp(s->GetBuffer(), "0123456789", 10) == 0);
  // Reads that would copy from beyond the capacity fail, even where the counted size reaches.
  char wide[20];
  EXPECT_FALSE(s->ReadBlock(wide, 0LL, 20) || s->ReadBlock(wide, 10LL, 7));
  EXPECT_TRUE(s->ReadBlock(wide, 10LL, 6) && s->ReadBlock(nullptr, 0LL, 20));  // nothing copied: true as before
  EXPECT_TRUE(s->ReadBlock(wide, 20) == 0u && s->GetPosition() == 0);
  EXPECT_EQ(s->ReadBlock(wide, 16), 16u);
  EXPECT_EQ(s->ReadBlock(wide, 4), 0u);  // position 16: the rest lies beyond the capacity
  EXPECT_EQ(s->SetPosition(18), 18);
  EXPECT_EQ(s->ReadBlock(nullptr, 8), 2u);  // no destination: counted and moved as before
  CKD_LimitCacheStream* ins = new CKD_LimitCacheStream(16, 16, 0);
  ins->WriteBlock("abef", 4);
  EXPECT_TRUE(ins->WriteBlock("cd", 2LL, 2) && ins->WriteBlock(nullptr, 0LL, 0));  // an insertion
  EXPECT_FALSE(ins->WriteBlock("z", 7LL, 1));
  char out[8] = {};
  EXPECT_TRUE(ins->ReadBlock(out, 0LL, 6) && ins->GetPosition() == 0);  // reading at an offset does not move
  EXPECT_STREQ(out, "abcdef");
  EXPECT_FALSE(ins->ReadBlock(out, 3LL, 4));
  EXPECT_TRUE(ins->SetPosition(4) == 4 && ins->ReadBlock(out, 8) == 2u && ins->IsEOF());
  ins->Release();
  s->Release();
}

TEST(ContinuousBytesCache, SlidesOverConsecutiveWrites) {
  IKD_BytesCache* c = KD_CreateContinuousBytesCache(8);
  auto* cc = static_cast<CKD_ContinuousBytesCache*>(c);
  const uint8_t data[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
  c->Write(data, 100, 6);
  EXPECT_TRUE(cc->GetStart() == 100 && cc->GetLength() == 6);
  c->Write(data + 6, 106, 6);  // behind, two bytes of room: slides by four
  EXPECT_TRUE(cc->GetStart() == 104 && cc->GetLength() == 8);
  uint8_t out[12] = {};
  IKD_BytesCache::Span got = c->Read(out, IKD_BytesCache::Span{100, 12});
  EXPECT_TRUE(got.start == 104 && got.length == 8 && memcmp(out + 4, data + 4, 8) == 0);
  EXPECT_EQ(c->Read(out, IKD_BytesCache::Span{112, 4}).length + c->Read(out, IKD_BytesCache::Span{90, 14}).length, 0u);

  c->Write(data, 102, 2);  // in front
  EXPECT_TRUE(cc->GetStart() == 102 && cc->GetLength() == 8);
  EXPECT_EQ(memcmp(cc->GetBuffer(), "\x00\x01\x04\x05\x06\x07\x08\x09", 8), 0);
  c->Write(data, 500, 12);  // far away and too big: keeps the last eight bytes
  EXPECT_TRUE(cc->GetStart() == 504 && memcmp(cc->GetBuffer(), data + 4, 8) == 0);

  // Fill records its run as starting at 0, whatever offset it read from.
  auto bytes = FileBytes(64);
  IKD_MemoryStream* file = KD_CreateMemoryStream(bytes.data(), bytes.size(), false);
  c->Fill(file, 40, 20);
  EXPECT_TRUE(cc->GetStart() == 0 && cc->GetLength() == 8 && memcmp(cc->GetBuffer(), bytes.data() + 40, 8) == 0);
  c->Clear();
  EXPECT_EQ(cc->GetLength(), 0u);
  file->Release();
  delete c;

  EXPECT_EQ(kdtest::VirtualSlots(&IKD_BytesCache::Fill, &IKD_BytesCache::Read, &IKD_BytesCache::Write,
                                 &IKD_BytesCache::Clear),
            (std::vector<long>{0, 1, 2, 3}));
  kdtest::TestDefaultMgr t;
  t.sys().FailAll(true);
  EXPECT_EQ(KD_CreateContinuousBytesCache(8), nullptr);
  t.sys().FailAll(false);
  EXPECT_EQ(KD_CreateContinuousBytesCache(0), nullptr);
  EXPECT_EQ(t.live_blocks(), 0u);
}

}  // namespace
