#include "norvane/streams/archive.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "norvane/streams/file_stream.h"
#include "norvane/streams/memory_stream.h"
#include "tests/support/temp_dir.h"
#include "tests/support/test_mgr.h"
#include "tests/support/vtable.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes Hex(const char* hex) {
  Bytes out;
  for (const char* p = hex; *p;) {
    if (*p == ' ') {
      ++p;
      continue;
    }
    out.push_back(static_cast<uint8_t>(std::stoi(std::string(p, 2), nullptr, 16)));
    p += 2;
  }
  return out;
}

Bytes Saved(const CKD_ArchiveSaver& saver) { return Bytes(saver.GetBuffer(), saver.GetBuffer() + saver.GetLength()); }

// The archive format, byte for byte, for each kind of value.
TEST(ArchiveSaver, WritesTheByteFormat) {
  const wchar_t wide[] = L"ABCD";
  const struct {
    const char* name;
    std::function<void(CKD_ArchiveSaver&)> save;
    const char* hex;
  } cases[] = {
      {"int, string, long long", [](CKD_ArchiveSaver& s) { s << 1 << "ab" << -1LL; },
       "01000000 02000000 6162 FFFFFFFFFFFFFFFF"},
      {"byte and bools", [](CKD_ArchiveSaver& s) { s << static_cast<uint8_t>(0xAB) << true << false; }, "AB 01 00"},
      {"unsigned", [](CKD_ArchiveSaver& s) { s << 0xDEADBEEFu; }, "EFBEADDE"},
      {"float", [](CKD_ArchiveSaver& s) { s << 1.0f << -2.5f; }, "0000803F 000020C0"},
      {"long long", [](CKD_ArchiveSaver& s) { s << 0x0102030405060708LL; }, "0807060504030201"},
      {"byte strings", [](CKD_ArchiveSaver& s) { s << CKD_ByteString("xyz") << CKD_ByteStringC("q\0r", 3); },
       "03000000 78797A 03000000 710072"},
      {"empty and null texts", [](CKD_ArchiveSaver& s) { s << CKD_ByteStringC() << static_cast<const char*>(nullptr); },
       "00000000 00000000"},
      {"wide string as UTF-16LE", [](CKD_ArchiveSaver& s) { s << CKD_WideString(L"A\u00E9\u20AC"); },
       "06000000 4100 E900 AC20"},
      // The character count, then that many bytes of the characters' memory.
      {"wide text pointer", [&](CKD_ArchiveSaver& s) { s << wide << static_cast<const wchar_t*>(nullptr); },
       "04000000 41000000 00000000"},
      {"raw bytes", [](CKD_ArchiveSaver& s) { s.Write("\x01\x02\x03", 3).Write(nullptr, 5).Write("zz", -1); }, "010203"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    CKD_ArchiveSaver buffered;
    c.save(buffered);
    EXPECT_EQ(Saved(buffered), Hex(c.hex));
    // Into a stream: the same bytes, and the buffer stays empty.
    IKD_MemoryStream* stream = KD_CreateMemoryStream(true);
    CKD_ArchiveSaver streamed(stream);
    c.save(streamed);
    EXPECT_EQ(streamed.GetLength(), 0);
    Bytes written(static_cast<size_t>(stream->GetSize()));
    if (!written.empty()) {
      EXPECT_TRUE(stream->ReadBlock(written.data(), 0LL, written.size()));
    }
    EXPECT_EQ(written, Hex(c.hex));
    stream->Release();
  }
}

TEST(ArchiveSaver, DropsWhatTheBufferCannotHold) {
  kdtest::TestMgr mgr;
  {
    CKD_ArchiveSaver saver(mgr.allocator());
    mgr.sys().FailAll(true);
    saver << 7 << static_cast<uint8_t>(1) << "text" << CKD_WideString(L"w");
    EXPECT_EQ(saver.GetLength(), 0);
    mgr.sys().FailAll(false);
    saver << 7 << static_cast<uint8_t>(1);
    EXPECT_EQ(Saved(saver), Hex("07000000 01"));
    // A single byte makes room for 100 more at once: a hundred bytes need no further growth.
    const long allocs = mgr.sys().allocs() + mgr.sys().reallocs();
    for (int i = 0; i < 99; ++i) saver << static_cast<uint8_t>(i);
    EXPECT_EQ(mgr.sys().allocs() + mgr.sys().reallocs(), allocs);
  }
  EXPECT_EQ(mgr.live_blocks(), 0u);
}

TEST(ArchiveLoader, ReadsBackWhatWasSavedAndStopsAtTheEnd) {
  std::mt19937 rng(11);
  CKD_ArchiveSaver saver;
  struct Values {
    uint8_t u8;
    bool b;
    int i;
    unsigned u;
    float f;
    long long ll;
    CKD_ByteString bytes;
    CKD_WideString wide;
  };
  std::vector<Values> saved;
  for (int n = 0; n < 50; ++n) {
    Values v{static_cast<uint8_t>(rng()), rng() % 2 == 0, static_cast<int>(rng()), static_cast<unsigned>(rng()),
             static_cast<float>(static_cast<int>(rng())) / 7.0f, static_cast<long long>(rng()) << 31 ^ static_cast<long long>(rng()),
             CKD_ByteString(), CKD_WideString()};
    for (unsigned k = rng() % 20; k; --k) v.bytes += static_cast<char>(rng());
    for (unsigned k = rng() % 10; k; --k) v.wide += static_cast<wchar_t>(1 + rng() % 0xD7FF);
    saver << v.u8 << v.b << v.i << v.u << v.f << v.ll << v.bytes << v.wide;
    saved.push_back(v);
  }
  CKD_ArchiveLoader loader(saver.GetBuffer(), static_cast<unsigned>(saver.GetLength()));
  for (const Values& v : saved) {
    Values got{};
    loader >> got.u8 >> got.b >> got.i >> got.u >> got.f >> got.ll >> got.bytes >> got.wide;
    ASSERT_TRUE(got.u8 == v.u8 && got.b == v.b && got.i == v.i && got.u == v.u && got.f == v.f && got.ll == v.ll);
    ASSERT_TRUE(got.bytes == v.bytes && got.wide == v.wide);
  }
  EXPECT_TRUE(loader.IsEOF());

  // Short input: the target and the offset stay as they were.
  const Bytes three = Hex("010203");
  CKD_ArchiveLoader short_input(three.data(), 3);
  int i = 42;
  short_input >> i;
  EXPECT_TRUE(i == 42 && short_input.GetOffset() == 0);
  CKD_ByteString s("kept");
  short_input >> s;
  EXPECT_TRUE(s == "kept" && short_input.GetOffset() == 0);
  EXPECT_FALSE(short_input.Read(nullptr, 4));
  EXPECT_TRUE(short_input.Read(nullptr, 2) && short_input.GetOffset() == 2);  // skipped
  // String lengths below 1 or past the end: an empty string, only the length consumed.
  for (const char* hex : {"00000000 41", "FBFFFFFF 41", "05000000 41"}) {
    SCOPED_TRACE(hex);
    const Bytes data = Hex(hex);
    CKD_ArchiveLoader loader2(data.data(), static_cast<unsigned>(data.size()));
    CKD_ByteString target("old");
    loader2 >> target;
    EXPECT_TRUE(target.IsEmpty());
    EXPECT_EQ(loader2.GetOffset(), 4u);
    CKD_ArchiveLoader loader3(data.data(), static_cast<unsigned>(data.size()));
    CKD_WideString wide(L"old");
    loader3 >> wide;
    EXPECT_TRUE(wide.IsEmpty());
  }
  // Any byte but 0 is a true bool; a null range has nothing in it.
  const Bytes two = Hex("02");
  bool b = false;
  CKD_ArchiveLoader(two.data(), 1) >> b;
  EXPECT_TRUE(b);
  CKD_ArchiveLoader none(nullptr, 100);
  EXPECT_TRUE(none.IsEOF());
  none >> i;
  EXPECT_EQ(i, 42);
}

// Records what DoWork is handed; fails on demand.
class RecordingArchive : public IKD_BufferArchive {
 public:
  using IKD_BufferArchive::IKD_BufferArchive;
  bool DoWork(const void* data, size_t size) override {
    blocks.emplace_back(static_cast<const char*>(data), size);
    return !fail;
  }
  std::vector<std::string> blocks;
  bool fail = false;
};

TEST(BufferArchive, HandsFullBuffersToDoWork) {
  EXPECT_EQ(kdtest::VirtualSlots(&IKD_BufferArchive::Clear, &IKD_BufferArchive::DoWork), (std::vector<long>{2, 3}));
  kdtest::TestMgr mgr;
  {
    RecordingArchive a(4, mgr.allocator());
    EXPECT_EQ(a.AppendBlock("0123456789", 10), 10);
    EXPECT_EQ(a.blocks, (std::vector<std::string>{"0123", "4567"}));
    EXPECT_EQ(a.GetLength(), 2);
    EXPECT_EQ(a.AppendBlock(nullptr, 5), 0);
    EXPECT_EQ(a.AppendBlock("x", 0), 0);
    // Numbers as decimal text; the unsigned one printed as a signed int.
    a.blocks.clear();
    EXPECT_EQ(a.AppendDWord(1234), 4);
    EXPECT_EQ(a.AppendDWord(0xFFFFFFFFu), 2);
    EXPECT_EQ(a.AppendInt64(-9000000000LL), 11);
    EXPECT_EQ(a.AppendByte('!'), 1);
    EXPECT_EQ(a.AppendString(CKD_ByteStringC("ab")), 2);
    EXPECT_TRUE(a.Flush());
    EXPECT_EQ(a.blocks, (std::vector<std::string>{"8912", "34-1", "-900", "0000", "000!", "ab"}));
    EXPECT_EQ(a.GetLength(), 0);
    // A failing DoWork stops the append; the buffer starts again empty.
    a.fail = true;
    EXPECT_EQ(a.AppendBlock("abcdef", 6), -1);
    EXPECT_EQ(a.GetLength(), 0);
    EXPECT_FALSE(a.Flush());
    a.Clear();
    EXPECT_EQ(a.GetBuffer(), nullptr);
    EXPECT_EQ(mgr.live_blocks(), 0u);
    // The buffer cannot be had, or has no size.
    mgr.sys().FailAll(true);
    EXPECT_EQ(a.AppendByte(1), -1);
    mgr.sys().FailAll(false);
    RecordingArchive empty(0);
    EXPECT_EQ(empty.AppendByte(1), -1);
    EXPECT_EQ(a.AppendByte(1), 1);
  }
  EXPECT_EQ(mgr.live_blocks(), 0u);
}

TEST(FileBufferArchive, WritesThroughToAFile) {
  kdtest::TempDir dir;
  const std::string path = dir.File("archive.txt");
  auto contents = [&] {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  };
  {
    CKD_FileBufferArchive a(8);
    EXPECT_FALSE(a.DoWork("x", 1));  // no file yet
    EXPECT_FALSE(a.Flush());
    EXPECT_FALSE(a.AttachFile(static_cast<const char*>(nullptr)));
    EXPECT_FALSE(a.AttachFile(static_cast<IKD_StreamWrite*>(nullptr), true));
    EXPECT_FALSE(a.AttachFile(dir.File("no/such/folder").c_str()));
    EXPECT_EQ(a.GetFile(), nullptr);
    ASSERT_TRUE(a.AttachFile(path.c_str()));
    EXPECT_EQ(a.AppendString(CKD_ByteStringC("hello, archive")), 14);
    EXPECT_EQ(contents(), "hello, a");  // one full buffer so far
    EXPECT_TRUE(a.Flush());
    EXPECT_EQ(contents(), "hello, archive");
    // Flushing nothing: a file stream counts writing 0 bytes as a failure.
    EXPECT_FALSE(a.Flush());
    // The wide path replaces the owned file (released: the leak check would see it otherwise).
    ASSERT_TRUE(a.AttachFile(CKD_WideString::FromUTF8(dir.File("second.txt").c_str()).c_str()));
    a.AppendDWord(42);
  }  // the destructor releases the owned file without flushing
  // A caller's file: attached twice without a double release, kept after Clear.
  IKD_FileWrite* file = KD_CreateFileWrite(path.c_str());
  ASSERT_NE(file, nullptr);
  {
    CKD_FileBufferArchive a(4);
    EXPECT_TRUE(a.AttachFile(file, false));
    EXPECT_TRUE(a.AttachFile(file, false));
    a.AppendString(CKD_ByteStringC("abcdef"));
    EXPECT_TRUE(a.Flush());
    a.Clear();
    EXPECT_EQ(a.GetFile(), nullptr);
  }
  EXPECT_EQ(contents(), "abcdef");
  file->Release();
}

}  // namespace
