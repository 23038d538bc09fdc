#include "norvane/streams/file_stream.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <clocale>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "norvane/streams/file_cache.h"
#include "norvane/streams/kdcrt_file_internal.h"
#include "norvane/text/byte_string.h"
#include "tests/support/temp_dir.h"
#include "tests/support/test_mgr.h"
#include "tests/support/vtable.h"

namespace {

using kdtest::TempDir;
using kdtest::WriteFile;

std::vector<uint8_t> Bytes(size_t n) {
  std::vector<uint8_t> v(n);
  for (size_t i = 0; i < n; ++i) v[i] = static_cast<uint8_t>(i * 7 + 3);
  return v;
}

TEST(FileAccess, SlotOrder) {
  using OpenBytes = bool (IKDCRT_FileAccess::*)(const CKD_ByteStringC&, uint32_t);
  using OpenWide = bool (IKDCRT_FileAccess::*)(const CKD_WideStringC&, uint32_t);
  EXPECT_EQ(kdtest::VirtualSlots(OpenBytes(&IKDCRT_FileAccess::Open), OpenWide(&IKDCRT_FileAccess::Open),
                                 &IKDCRT_FileAccess::Close, &IKDCRT_FileAccess::Release, &IKDCRT_FileAccess::GetSize,
                                 &IKDCRT_FileAccess::GetPosition, &IKDCRT_FileAccess::SetPosition,
                                 &IKDCRT_FileAccess::Read, &IKDCRT_FileAccess::Write, &IKDCRT_FileAccess::ReadPos,
                                 &IKDCRT_FileAccess::WritePos, &IKDCRT_FileAccess::Flush, &IKDCRT_FileAccess::Truncate),
            (std::vector<long>{2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14}));
  EXPECT_EQ(kdtest::VirtualSlot(&CKD_CRTFileAccess::Init), 6);
}

TEST(FileAccess, OpenModes) {
  TempDir dir;
  std::string path = dir.File("modes.bin");
  EXPECT_EQ(KD_File_Open(path.c_str(), KD_FILEMODE_ReadOnly), nullptr);  // missing
  mode_t old_mask = umask(0);
  _KD_HFILE* f = KD_File_Open(path.c_str(), 0);
  umask(old_mask);
  struct stat st;
  ASSERT_TRUE(f && stat(path.c_str(), &st) == 0);
  EXPECT_EQ(st.st_mode & 0777, 0644u);
  EXPECT_EQ(KD_File_Write(f, "hello world", 11), 11u);
  char buf[16] = {};
  EXPECT_EQ(KD_File_ReadPos(f, buf, 5, 6), 5u);
  EXPECT_STREQ(buf, "world");
  // At exactly the size nothing is read and the position does not move.
  EXPECT_EQ(KD_File_SetPosition(f, 3), 3);
  EXPECT_EQ(KD_File_ReadPos(f, buf, 5, 11), 0u);
  EXPECT_EQ(KD_File_GetPosition(f), 3);
  EXPECT_TRUE(KD_File_WritePos(f, "!", 1, 20) == 1u && KD_File_GetSize(f) == 21);  // past the end: the file grows
  EXPECT_TRUE(KD_File_Flush(f) && KD_File_Truncate(f, 5) && KD_File_GetSize(f) == 5);
  KD_File_Close(f);

  // Read-only wins over truncation and leaves the contents; writes then fail.
  f = KD_File_Open(path.c_str(), KD_FILEMODE_ReadOnly | KD_FILEMODE_Truncate);
  ASSERT_TRUE(f && KD_File_GetSize(f) == 5);
  EXPECT_EQ(KD_File_Write(f, "x", 1), static_cast<size_t>(-1));
  KD_File_Close(f);
  f = KD_File_Open(path.c_str(), KD_FILEMODE_Truncate);
  EXPECT_TRUE(f && KD_File_GetSize(f) == 0);
  KD_File_Close(f);

  // Null handles and closed files answer quietly: size 0, position -1, nothing read.
  EXPECT_TRUE(KD_File_GetSize(nullptr) == 0 && KD_File_GetPosition(nullptr) == -1 && !KD_File_Flush(nullptr) &&
              KD_File_Read(nullptr, buf, 1) == 0);
  KD_File_Close(nullptr);
  CKDCRT_FileAccess_Posix closed;
  EXPECT_TRUE(closed.GetSize() == 0 && closed.GetPosition() == -1 && closed.Read(buf, 1) == 0 && !closed.Truncate(0));
  ASSERT_TRUE(closed.Open(CKD_ByteStringC(path.c_str()), 0));
  EXPECT_FALSE(closed.Open(CKD_ByteStringC(path.c_str()), 0));  // already open
}

// Reads are limited to the range and relative to it; writes are not limited by it.
TEST(FileStream, RangesAndPositions) {
  TempDir dir;
  auto bytes = Bytes(100);
  WriteFile(dir.File("range.bin"), bytes);
  IKD_FileStream* s = KD_CreateFileStream(dir.File("range.bin").c_str(), 0);
  ASSERT_NE(s, nullptr);
  EXPECT_TRUE(!s->SetRange(90, 20) && s->GetSize() == 100);
  ASSERT_TRUE(s->SetRange(10, 20));
  EXPECT_TRUE(s->GetSize() == 20 && s->GetPosition() == 0);
  uint8_t b[8];
  EXPECT_FALSE(s->ReadBlock(b, 15LL, 6) || s->ReadBlock(b, -1LL, 1));
  ASSERT_TRUE(s->ReadBlock(b, 15LL, 5));
  EXPECT_EQ(memcmp(b, bytes.data() + 25, 5), 0);
  EXPECT_TRUE(s->SetPosition(20) == 20 && s->IsEOF() && s->SetPosition(21) == -1);
  EXPECT_EQ(s->SetPosition(16), 16);
  EXPECT_EQ(s->ReadBlock(b, 8), 4u);  // a sequential read stops at the range's end
  EXPECT_EQ(memcmp(b, bytes.data() + 26, 4), 0);
  ASSERT_TRUE(s->WriteBlock("xyz", 95LL, 3));
  s->ClearRange();
  ASSERT_TRUE(s->GetSize() == 108 && s->ReadBlock(b, 105LL, 3));
  EXPECT_EQ(memcmp(b, "xyz", 3), 0);
  EXPECT_TRUE(s->WriteBlock("end", 3) && s->GetSize() == 111 && s->Flush());  // appends
  EXPECT_FALSE(s->ReadBlock(b, 111LL, 1));
  s->Release();
}

TEST(FileStream, BothSidesReleaseOneObject) {
  TempDir dir;
  kdtest::TestDefaultMgr t;
  IKD_FileWrite* w = KD_CreateFileWrite(dir.File("w.bin").c_str());
  ASSERT_NE(w, nullptr);
  IKD_FileStream* s = static_cast<IKD_FileStream*>(w);
  EXPECT_EQ(s->Retain(), s);
  EXPECT_TRUE(w->WriteBlock("abc", 3));
  w->Release();
  EXPECT_EQ(t.live_blocks(), 2u);  // the stream and its file access
  s->Release();
  EXPECT_TRUE(t.live_blocks() == 0 && t.sys().bad_frees() == 0);
  EXPECT_EQ(KD_CreateFileWrite(static_cast<const char*>(nullptr)), nullptr);

  // From a caller's allocator: the stream and its file come from it and go back to it, also when
  // the file cannot be opened.
  kdtest::TestMgr other;
  IKD_FileStream* a = KD_CreateFileStream(dir.File("w.bin").c_str(), 0, other.allocator());
  ASSERT_TRUE(a && a->GetSize() == 3 && other.live_blocks() == 2u);
  a->Release();
  EXPECT_EQ(KD_CreateFileStream(dir.File("none/x").c_str(), 0, other.allocator()), nullptr);
  EXPECT_TRUE(other.live_blocks() == 0 && t.live_blocks() == 0);
}

TEST(FileStream, WidePathsAndFileAccess) {
  TempDir dir;
  std::string utf8 = dir.File("na\xC3\xAFve-\xE5\x90\x8D.txt");
  std::string base = dir.File("");
  std::wstring wide = std::wstring(base.begin(), base.end()) + L"na\u00EFve-\u540D.txt";
  IKD_FileStream* s = KD_CreateFileStream(wide.c_str(), 0);
  ASSERT_TRUE(s && s->WriteBlock("wide", 4));
  s->Release();
  struct stat st;
  ASSERT_EQ(stat(utf8.c_str(), &st), 0);  // the name on disk is the UTF-8 bytes

  EXPECT_EQ(KD_CreateDefaultFileAccess(CKD_WideStringC(L"")), nullptr);
  IKD_FileAccess* access = KD_CreateDefaultFileAccess(CKD_WideStringC(wide.c_str()));
  CKD_WideString path;
  ASSERT_NE(access, nullptr);
  access->GetPath(path);
  EXPECT_EQ(std::wstring(path.c_str()), wide);
  IKD_FileStream* again = access->CreateFileStream(KD_FILEMODE_ReadOnly);
  ASSERT_TRUE(again && again->GetSize() == 4);
  again->Release();
  EXPECT_EQ(access->Retain(), access);
  access->Release();
  access->Release();

  // KDSYS_wfopen converts to the local encoding: the name is found under a UTF-8 locale.
  std::string saved = setlocale(LC_CTYPE, nullptr);
  if (setlocale(LC_CTYPE, "C.UTF-8")) {
    FILE* f = KDSYS_wfopen(wide.c_str(), L"rb");
    ASSERT_NE(f, nullptr);
    char buf[8] = {};
    EXPECT_EQ(fread(buf, 1, 8, f), 4u);
    fclose(f);
  }
  setlocale(LC_CTYPE, saved.c_str());
  EXPECT_EQ(KDSYS_wfopen(nullptr, L"rb"), nullptr);
}

TEST(FileStream, SystemErrorsEndTheCallOnly) {
  // A full device: the write fails and the stream stays usable.
  IKD_FileStream* full = KD_CreateFileStream("/dev/full", 0);
  if (full) {
    EXPECT_TRUE(!full->WriteBlock("data", 4) && full->GetSize() == 0);
    full->Release();
  }
  // A folder opens read-only but cannot be read.
  IKD_FileStream* folder = KD_CreateFileStream("/tmp", KD_FILEMODE_ReadOnly);
  ASSERT_NE(folder, nullptr);
  uint8_t b[16];
  EXPECT_TRUE(folder->ReadBlock(b, sizeof b) == static_cast<size_t>(-1) && !folder->ReadBlock(b, 0LL, 1));
  folder->Release();
}

// Threads share one cached reader over a real file; eight small chunks keep them evicting each
// other's chunks.
TEST(FileStream, CachedReadsOfARealFileFromThreads) {
  TempDir dir;
  std::vector<uint8_t> bytes(3 << 20);
  std::mt19937 fill(17);
  for (auto& b : bytes) b = static_cast<uint8_t>(fill());
  WriteFile(dir.File("big.bin"), bytes);
  std::vector<uint8_t> chunks(8 * 4096);
  CKD_CachedFileRead* r = new CKD_CachedFileRead;
  ASSERT_TRUE(r->Init(4096, 8, chunks.data(), nullptr));
  ASSERT_TRUE(r->AttachFile(KD_CreateFileRead(dir.File("big.bin").c_str()), true));
  std::vector<std::thread> threads;
  std::vector<int> bad(4);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      std::mt19937 rng(100 + t);
      std::vector<uint8_t> got(20000);
      for (int i = 0; i < 400; ++i) {
        size_t size = 1 + rng() % got.size();
        long long offset = static_cast<long long>(rng() % (bytes.size() - size));
        if (!r->ReadBlock(got.data(), offset, size) || memcmp(got.data(), bytes.data() + offset, size) != 0) ++bad[t];
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(bad, std::vector<int>(4, 0));
  r->Release();
}

}  // namespace
