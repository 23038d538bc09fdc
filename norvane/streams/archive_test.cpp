#include "norvane/streams/archive.h"

#include <gtest/gtest.h>

#include <functional>
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
  for (const char* p = hex; *p; p += *p == ' ' ? 1 : 2) {
    if (*p != ' ') out.push_back(static_cast<uint8_t>(std::stoi(std::string(p, 2), nullptr, 16)));
  }
  return out;
}

Bytes Saved(const CKD_ArchiveSaver& saver) { return Bytes(saver.GetBuffer(), saver.GetBuffer() + saver.GetLength()); }

// The archive format, byte for byte, for each kind of value; into the buffer and into a stream.
TEST(ArchiveSaver, WritesTheByteFormat) {
  const wchar_t wide[] = L"ABCD";
  const struct {
    std::function<void(CKD_ArchiveSaver&)> save;
    const char* hex;
  } cases[] = {
      {[](CKD_ArchiveSaver& s) { s << 1 << "ab" << -1LL; }, "01000000 02000000 6162 FFFFFFFFFFFFFFFF"},
      {[](CKD_ArchiveSaver& s) { s << static_cast<uint8_t>(0xAB) << true << false << 0xDEADBEEFu; }, "AB 01 00 EFBEADDE"},
      {[](CKD_ArchiveSaver& s) { s << 1.0f << -2.5f << 0x0102030405060708LL; }, "0000803F 000020C0 0807060504030201"},
      {[](CKD_ArchiveSaver& s) { s << CKD_ByteString("xyz") << CKD_ByteStringC("q\0r", 3); },
       "03000000 78797A 03000000 710072"},
      {[](CKD_ArchiveSaver& s) { s << CKD_ByteStringC() << static_cast<const char*>(nullptr); }, "00000000 00000000"},
      {[](CKD_ArchiveSaver& s) { s << CKD_WideString(L"A\u00E9\u20AC"); }, "06000000 4100 E900 AC20"},
      // The character count, then that many bytes of the characters' memory.
      {[&](CKD_ArchiveSaver& s) { s << wide << static_cast<const wchar_t*>(nullptr); }, "04000000 41000000 00000000"},
      {[](CKD_ArchiveSaver& s) { s.Write("\x01\x02\x03", 3).Write(nullptr, 5).Write("zz", -1); }, "010203"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.hex);
    CKD_ArchiveSaver buffered;
    c.save(buffered);
    EXPECT_EQ(Saved(buffered), Hex(c.hex));
    IKD_MemoryStream* stream = KD_CreateMemoryStream(true);
    CKD_ArchiveSaver streamed(stream);
    c.save(streamed);
    Bytes written(static_cast<size_t>(stream->GetSize()));
    stream->ReadBlock(written.data(), 0LL, written.size());
    EXPECT_TRUE(written == Hex(c.hex) && streamed.GetLength() == 0);
    stream->Release();
  }
  // Values the buffer cannot hold are dropped.
  kdtest::TestMgr mgr;
  {
    CKD_ArchiveSaver saver(mgr.allocator());
    mgr.sys().FailAll(true);
    saver << 7 << static_cast<uint8_t>(1) << "text";
    mgr.sys().FailAll(false);
    saver << 7 << static_cast<uint8_t>(1);
    EXPECT_EQ(Saved(saver), Hex("07000000 01"));
  }
  EXPECT_EQ(mgr.live_blocks(), 0u);
}

TEST(ArchiveLoader, ReadsBackWhatWasSavedAndStopsAtTheEnd) {
  std::mt19937 rng(11);
  CKD_ArchiveSaver saver;
  std::vector<std::pair<long long, CKD_WideString>> saved;
  for (int n = 0; n < 50; ++n) {
    const long long v = static_cast<long long>(rng()) << 31 ^ static_cast<long long>(rng());
    CKD_WideString text;
    for (unsigned k = rng() % 10; k; --k) text += static_cast<wchar_t>(1 + rng() % 0xD7FF);
    saver << static_cast<uint8_t>(v) << (v % 2 == 0) << static_cast<int>(v) << static_cast<unsigned>(v)
          << static_cast<float>(v) << v << CKD_ByteString::FormatInteger64(v) << text;
    saved.emplace_back(v, text);
  }
  CKD_ArchiveLoader loader(saver.GetBuffer(), static_cast<unsigned>(saver.GetLength()));
  for (const auto& [v, text] : saved) {
    uint8_t u8;
    bool b;
    int i;
    unsigned u;
    float f;
    long long ll;
    CKD_ByteString bytes;
    CKD_WideString wide;
    loader >> u8 >> b >> i >> u >> f >> ll >> bytes >> wide;
    ASSERT_TRUE(u8 == static_cast<uint8_t>(v) && b == (v % 2 == 0) && i == static_cast<int>(v) &&
                u == static_cast<unsigned>(v) && f == static_cast<float>(v) && ll == v);
    ASSERT_TRUE(bytes == CKD_ByteString::FormatInteger64(v) && wide == text);
  }
  EXPECT_TRUE(loader.IsEOF());

  // Short input: the target and the offset stay as they were; Read skips with a null buffer.
  const Bytes three = Hex("010203");
  CKD_ArchiveLoader short_input(three.data(), 3);
  int i = 42;
  CKD_ByteString s("kept");
  short_input >> i >> s;
  EXPECT_TRUE(i == 42 && s == "kept" && short_input.GetOffset() == 0 && !short_input.Read(nullptr, 4));
  EXPECT_TRUE(short_input.Read(nullptr, 2) && short_input.GetOffset() == 2);
  // String lengths below 1 or past the end: an empty string, only the length consumed.
  for (const char* hex : {"00000000 41", "FBFFFFFF 41", "05000000 41"}) {
    const Bytes data = Hex(hex);
    CKD_ArchiveLoader bytes_loader(data.data(), 5), wide_loader(data.data(), 5);
    CKD_ByteString target("old");
    CKD_WideString wide(L"old");
    bytes_loader >> target;
    wide_loader >> wide;
    EXPECT_TRUE(target.IsEmpty() && wide.IsEmpty() && bytes_loader.GetOffset() == 4) << hex;
  }
  // Any byte but 0 is a true bool; a null range has nothing in it.
  const uint8_t two = 2;
  bool b = false;
  CKD_ArchiveLoader(&two, 1) >> b;
  EXPECT_TRUE(b && CKD_ArchiveLoader(nullptr, 100).IsEOF());
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
    EXPECT_TRUE(a.AppendBlock("0123456789", 10) == 10 && a.GetLength() == 2);
    EXPECT_EQ(a.blocks, (std::vector<std::string>{"0123", "4567"}));
    EXPECT_TRUE(a.AppendBlock(nullptr, 5) == 0 && a.AppendBlock("x", 0) == 0);
    // Numbers as decimal text; the unsigned one printed as a signed int.
    a.blocks.clear();
    EXPECT_TRUE(a.AppendDWord(1234) == 4 && a.AppendDWord(0xFFFFFFFFu) == 2 && a.AppendInt64(-9000000000LL) == 11);
    EXPECT_TRUE(a.AppendByte('!') == 1 && a.AppendString(CKD_ByteStringC("ab")) == 2 && a.Flush());
    EXPECT_EQ(a.blocks, (std::vector<std::string>{"8912", "34-1", "-900", "0000", "000!", "ab"}));
    // A failing DoWork stops the append; the buffer starts again empty.
    a.fail = true;
    EXPECT_TRUE(a.AppendBlock("abcdef", 6) == -1 && a.GetLength() == 0 && !a.Flush());
    a.Clear();
    EXPECT_TRUE(a.GetBuffer() == nullptr && mgr.live_blocks() == 0);
    // The buffer cannot be had, or has no size.
    mgr.sys().FailAll(true);
    EXPECT_EQ(a.AppendByte(1), -1);
    mgr.sys().FailAll(false);
    EXPECT_EQ(RecordingArchive(0).AppendByte(1), -1);
  }
  EXPECT_EQ(mgr.live_blocks(), 0u);
}

TEST(FileBufferArchive, WritesThroughToAFile) {
  kdtest::TempDir dir;
  const std::string path = dir.File("archive.txt");
  {
    CKD_FileBufferArchive a(8);
    EXPECT_FALSE(a.Flush());  // no file
    EXPECT_FALSE(a.AttachFile(static_cast<const char*>(nullptr)) || a.AttachFile(nullptr, true));
    EXPECT_FALSE(a.AttachFile(dir.File("no/such/folder").c_str()));
    ASSERT_TRUE(a.AttachFile(path.c_str()));
    EXPECT_EQ(a.AppendString(CKD_ByteStringC("hello, archive")), 14);
    EXPECT_EQ(kdtest::ReadFile(path), "hello, a");  // one full buffer so far
    EXPECT_TRUE(a.Flush());
    EXPECT_EQ(kdtest::ReadFile(path), "hello, archive");
    // Flushing nothing: a file stream counts writing 0 bytes as a failure.
    EXPECT_FALSE(a.Flush());
    // The wide path replaces the owned file (released: the leak check would see it otherwise).
    ASSERT_TRUE(a.AttachFile(CKD_WideString::FromUTF8(dir.File("second.txt").c_str()).c_str()));
  }
  // A caller's file: attached twice without a double release, kept after Clear.
  IKD_FileWrite* file = KD_CreateFileWrite(path.c_str());
  ASSERT_NE(file, nullptr);
  {
    CKD_FileBufferArchive a(4);
    EXPECT_TRUE(a.AttachFile(file, true) && a.AttachFile(file, false));
    a.AppendString(CKD_ByteStringC("abcdef"));
    EXPECT_TRUE(a.Flush());
    a.Clear();
    EXPECT_EQ(a.GetFile(), nullptr);
  }
  EXPECT_EQ(kdtest::ReadFile(path), "abcdef");
  file->Release();
}

}  // namespace
