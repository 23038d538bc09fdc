#include "norvane/streams/memory_stream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "tests/support/test_mgr.h"
#include "tests/support/vtable.h"

namespace {

using kdtest::TestDefaultMgr;

using ReadAt = bool (IKD_FileRead::*)(void*, long long, size_t);
using ReadNext = size_t (IKD_StreamRead::*)(void*, size_t);
using WriteAt = bool (IKD_FileStream::*)(const void*, long long, size_t);
using Append = bool (IKD_FileStream::*)(const void*, size_t);
using WriteSideAt = bool (IKD_FileWrite::*)(const void*, long long, size_t);
using WriteSideAppend = bool (IKD_StreamWrite::*)(const void*, size_t);

// The gaps in the numbering are the two slots of the virtual destructor.
TEST(StreamInterfaces, SlotOrder) {
  using kdtest::VirtualSlots;
  EXPECT_EQ(VirtualSlots(&IKD_StreamRead::Release, &IKD_StreamRead::IsEOF, &IKD_StreamRead::GetPosition,
                         ReadNext(&IKD_StreamRead::ReadBlock), &IKD_StreamRead::SetPosition, &IKD_FileRead::GetSize,
                         &IKD_FileRead::SetRange, &IKD_FileRead::ClearRange, ReadAt(&IKD_FileRead::ReadBlock),
                         &IKD_FileStream::Retain, WriteAt(&IKD_FileStream::WriteBlock),
                         Append(&IKD_FileStream::WriteBlock), &IKD_FileStream::Flush,
                         &IKD_MemoryStream::IsConsecutive, &IKD_MemoryStream::EstimateSize, &IKD_MemoryStream::GetBuffer,
                         &IKD_MemoryStream::AttachBuffer, &IKD_MemoryStream::DetachBuffer),
            (std::vector<long>{0, 1, 2, 3, 4, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19}));
  // The write side as seen through the second base, and the file access.
  EXPECT_EQ(VirtualSlots(&IKD_StreamWrite::Release, WriteSideAppend(&IKD_StreamWrite::WriteBlock),
                         &IKD_StreamWrite::Flush, &IKD_FileWrite::GetSize, WriteSideAt(&IKD_FileWrite::WriteBlock)),
            (std::vector<long>{0, 1, 2, 5, 6}));
  EXPECT_EQ(VirtualSlots(&IKD_FileAccess::Release, &IKD_FileAccess::Retain, &IKD_FileAccess::GetPath,
                         &IKD_FileAccess::CreateFileStream),
            (std::vector<long>{0, 1, 2, 3}));
}

std::vector<uint8_t> Pattern(size_t n, unsigned seed) {
  std::vector<uint8_t> v(n);
  std::mt19937 rng(seed);
  for (auto& b : v) b = static_cast<uint8_t>(rng());
  return v;
}

// A consecutive stream grows its one buffer by 64 KiB at a time, a chunked one adds 64 KiB blocks.
TEST(MemoryStream, GrowthInBothModes) {
  IKD_MemoryStream* s = KD_CreateMemoryStream(true);
  auto* m = static_cast<CKD_MemoryStream*>(s);
  auto data = Pattern(70000, 1);
  ASSERT_TRUE(s->WriteBlock(data.data(), 0LL, 10));
  EXPECT_TRUE(m->GetTotalSize() == 65536 && s->GetSize() == 10 && s->GetPosition() == 10);
  ASSERT_TRUE(s->WriteBlock(data.data() + 10, 10LL, 65527));
  EXPECT_TRUE(m->GetTotalSize() == 131072 && s->GetSize() == 65537);
  EXPECT_EQ(memcmp(s->GetBuffer(), data.data(), 65537), 0);
  s->Release();

  IKD_MemoryStream* c = KD_CreateMemoryStream(false);
  auto* cm = static_cast<CKD_MemoryStream*>(c);
  ASSERT_TRUE(c->WriteBlock(data.data(), 200000LL, 1));
  EXPECT_TRUE(cm->GetBlockCount() == 4 && cm->GetTotalSize() == 262144 && c->GetSize() == 200001);
  // Appending goes to the end through the default WriteBlock.
  ASSERT_TRUE(c->WriteBlock(data.data(), 3) && c->GetSize() == 200004);
  uint8_t back[4];
  ASSERT_TRUE(c->ReadBlock(back, 200000LL, 4));
  EXPECT_TRUE(back[0] == data[0] && memcmp(back + 1, data.data(), 3) == 0);
  EXPECT_FALSE(c->ReadBlock(back, 0LL, 0) || c->ReadBlock(nullptr, 0LL, 1) || c->ReadBlock(back, -1LL, 1) ||
               c->ReadBlock(back, 200001LL, 4) || c->WriteBlock(nullptr, 0LL, 4) || c->WriteBlock(back, -5LL, 4));
  EXPECT_TRUE(c->SetPosition(200004) == 200004 && c->IsEOF() && c->ReadBlock(back, 4) == 0u);
  EXPECT_EQ(c->SetPosition(200005), -1);
  c->Release();
}

TEST(MemoryStream, MatchesAVectorUnderRandomWritesAndReads) {
  for (bool consecutive : {true, false}) {
    TestDefaultMgr t;
    IKD_MemoryStream* s = KD_CreateMemoryStream(consecutive);
    s->EstimateSize(0, 5000);  // small blocks, so reads and writes cross them
    std::vector<uint8_t> model;
    std::vector<bool> written;
    std::mt19937 rng(consecutive ? 11 : 12);
    for (int step = 0; step < 400; ++step) {
      size_t offset = rng() % (model.size() + 9000);
      size_t size = 1 + rng() % 12000;
      auto data = Pattern(size, static_cast<unsigned>(step));
      ASSERT_TRUE(s->WriteBlock(data.data(), static_cast<long long>(offset), size));
      model.resize(std::max(model.size(), offset + size));
      written.resize(model.size());
      memcpy(model.data() + offset, data.data(), size);
      std::fill(written.begin() + offset, written.begin() + offset + size, true);
      ASSERT_TRUE(s->GetSize() == static_cast<long long>(model.size()) &&
                  s->GetPosition() == static_cast<long long>(offset + size));
      size_t at = rng() % model.size();
      size_t len = 1 + rng() % (model.size() - at);
      std::vector<uint8_t> got(len);
      ASSERT_TRUE(s->ReadBlock(got.data(), static_cast<long long>(at), len));
      // Bytes never written are unspecified; compare only where the model was written.
      for (size_t i = 0; i < len; i += 97) ASSERT_TRUE(!written[at + i] || got[i] == model[at + i]) << step;
    }
    // Sequential reads from the start see everything that was written last.
    s->SetPosition(0);
    std::vector<uint8_t> all(model.size());
    size_t total = 0;
    while (size_t n = s->ReadBlock(all.data() + total, 7777)) total += n;
    EXPECT_EQ(total, model.size());
    s->Release();
    EXPECT_TRUE(t.live_blocks() == 0 && t.sys().bad_frees() == 0);
  }
}

// Offsets of block reads are range-relative; the quirks of sequential reads and IsEOF are kept.
TEST(MemoryStream, RangesKeepTheirQuirks) {
  IKD_MemoryStream* s = KD_CreateMemoryStream(true);
  auto data = Pattern(100, 3);
  s->WriteBlock(data.data(), 0LL, 100);
  EXPECT_FALSE(s->SetRange(-1, 10) || s->SetRange(90, 20));
  ASSERT_TRUE(s->SetRange(10, 20));
  EXPECT_TRUE(s->GetSize() == 20 && s->GetPosition() == 0);
  uint8_t b[8];
  ASSERT_TRUE(s->ReadBlock(b, 5LL, 4));  // range-relative
  EXPECT_TRUE(memcmp(b, data.data() + 15, 4) == 0 && s->GetPosition() == 9);
  // A sequential read adds the range offset a second time: it reads from 10 + 9 + 10.
  EXPECT_TRUE(s->ReadBlock(b, 4) == 4u && memcmp(b, data.data() + 29, 4) == 0);
  // IsEOF compares the stored position (offset included) with the range size.
  EXPECT_TRUE(s->SetPosition(12) == 12 && s->IsEOF() && s->SetPosition(21) == -1);
  s->ClearRange();
  EXPECT_EQ(s->GetSize(), 100);
  s->Release();
}

TEST(MemoryStream, BuffersAttachDetachAndTakeOver) {
  TestDefaultMgr t;
  // EstimateSize on a new consecutive stream allocates 4096 bytes, leaving the total at 0.
  IKD_MemoryStream* s = KD_CreateMemoryStream(true);
  s->EstimateSize(100, 100);
  auto* m = static_cast<CKD_MemoryStream*>(s);
  EXPECT_TRUE(m->GetGrowSize() == 4096 && m->GetTotalSize() == 0 && t.sys().SizeOf(s->GetBuffer()) == 4096u);
  EXPECT_TRUE(s->WriteBlock("abcdef", 0LL, 6) && m->GetTotalSize() == 4096u);

  // Detach hands the buffer out and leaves an empty chunked stream, on which attaching is ignored.
  uint8_t* taken = s->GetBuffer();
  s->DetachBuffer();
  EXPECT_TRUE(!s->IsConsecutive() && s->GetSize() == 0 && memcmp(taken, "abcdef", 6) == 0);
  s->AttachBuffer(taken, 6, true);
  EXPECT_EQ(s->GetBuffer(), nullptr);
  ASSERT_TRUE(s->WriteBlock("xy", 0LL, 2));  // chunked now, owning its blocks
  s->Release();
  EXPECT_EQ(t.live_blocks(), 1u);  // only the detached buffer, which is ours
  KDMEM_DefaultFree(taken, 0);

  // A stream over a caller's buffer frees it only when it took it over. Growing past a buffer it
  // does not own moves the contents into one it does.
  uint8_t* owned = static_cast<uint8_t*>(KDMEM_DefaultAlloc(16, 0));
  uint8_t mine[16] = "caller's bytes!";
  IKD_MemoryStream* over = KD_CreateMemoryStream(mine, 16, false);
  ASSERT_TRUE(over->GetSize() == 16 && over->WriteBlock("!", 16LL, 1) && over->GetBuffer() != mine);
  EXPECT_EQ(memcmp(over->GetBuffer(), "caller's bytes!\0!", 17), 0);
  EXPECT_STREQ(reinterpret_cast<char*>(mine), "caller's bytes!");
  uint8_t* moved = over->GetBuffer();
  over->AttachBuffer(owned, 16, true);  // the buffer held until now is the caller's to free
  KDMEM_DefaultFree(moved, 0);
  over->Release();  // frees owned
  EXPECT_TRUE(t.live_blocks() == 0 && t.sys().bad_frees() == 0);
}

TEST(MemoryStream, ReferencesAllocatorsAndFailures) {
  TestDefaultMgr def;
  kdtest::TestMgr other;
  IKD_MemoryStream* s = KD_CreateMemoryStream(false, other.allocator());
  ASSERT_TRUE(s && s->WriteBlock("data", 70000LL, 4));
  EXPECT_TRUE(other.live_blocks() == 1 + 1 + 2u && def.live_blocks() == 0u);  // stream, block array, two blocks
  EXPECT_EQ(s->Retain(), s);
  static_cast<IKD_FileWrite*>(s)->Release();  // through the second base: one reference left
  EXPECT_EQ(s->GetSize(), 70004);
  s->Release();
  EXPECT_EQ(other.live_blocks(), 0u);

  // Every allocation failing in turn: nothing crashes or leaks, and failed writes say so.
  for (int n = 1; n <= 8; ++n) {
    def.sys().Reset();
    def.sys().FailNth(n);
    for (bool consecutive : {true, false}) {
      IKD_MemoryStream* f = KD_CreateMemoryStream(consecutive);
      if (!f) continue;
      std::vector<uint8_t> big(150000, 7);
      uint8_t b;
      EXPECT_TRUE(!f->WriteBlock(big.data(), 0LL, big.size()) || f->ReadBlock(&b, 149999LL, 1));
      f->EstimateSize(10, 10);
      f->Release();
    }
    EXPECT_EQ(def.live_blocks(), 0u) << "allocation " << n << " failing";
  }
}

// After a failed growth a consecutive stream keeps the new total size but no buffer: writes inside
// it fail, reads succeed without copying, and a write that can allocate again succeeds.
TEST(MemoryStream, WritesAfterAFailedGrowth) {
  kdtest::TestMgr t;
  IKD_MemoryStream* s = KD_CreateMemoryStream(true, t.allocator());
  ASSERT_TRUE(s && s->WriteBlock("abcd", 0LL, 4));
  t.sys().FailAll(true);
  std::vector<uint8_t> big(100000, 1);
  EXPECT_TRUE(!s->WriteBlock(big.data(), 0LL, big.size()) && s->GetBuffer() == nullptr);
  // The failed write counted nothing but moved the position first.
  EXPECT_TRUE(s->GetSize() == 4 && s->GetPosition() == 100000);
  EXPECT_FALSE(s->WriteBlock("xy", 10LL, 2) || s->WriteBlock("xy", 2));  // no buffer to copy into
  EXPECT_EQ(s->GetSize(), 4);
  uint8_t b[4] = {9, 9, 9, 9};
  EXPECT_TRUE(s->ReadBlock(b, 0LL, 4) && b[0] == 9);  // succeeds without copying
  t.sys().FailAll(false);
  std::vector<uint8_t> bigger(300000, 2);
  EXPECT_TRUE(s->WriteBlock(bigger.data(), 0LL, bigger.size()) && s->ReadBlock(b, 299996LL, 4) && b[3] == 2);
  s->Release();
  EXPECT_EQ(t.live_blocks(), 0u);
}

}  // namespace
