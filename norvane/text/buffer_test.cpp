#include "norvane/text/binary_buf.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

#include "norvane/text/string_buf.h"
#include "norvane/text/string_l.h"
#include "norvane/text/text_buf.h"
#include "tests/support/test_mgr.h"

namespace {

using kdtest::TestDefaultMgr;
using kdtest::TestMgr;

std::string Bytes(const CKD_BinaryBuf& b) {
  return std::string(reinterpret_cast<const char*>(b.GetBuffer()), static_cast<size_t>(b.GetSize()));
}
std::string Bytes(const CKD_StringBufBase& s) { return std::string(s.GetBuffer(), static_cast<size_t>(s.GetSize())); }

TEST(BinaryBuf, GrowthRule) {
  TestDefaultMgr t;
  {
    CKD_BinaryBuf b;
    ASSERT_TRUE(b.AppendByte(1));
    EXPECT_EQ(b.GetAllocSize(), 128);  // at least 128
    ASSERT_TRUE(b.AppendFill(2, 127));
    EXPECT_EQ(b.GetAllocSize(), 128);
    ASSERT_TRUE(b.AppendByte(3));
    EXPECT_EQ(b.GetAllocSize(), 256);  // 129 rounded up to the step of 128
    ASSERT_TRUE(b.EstimateSize(1000));
    EXPECT_EQ(b.GetAllocSize(), 1024);  // step max(256 / 4, 128) = 128
    ASSERT_TRUE(b.AppendFill(0, 1024 - b.GetSize() + 1));
    EXPECT_EQ(b.GetAllocSize(), 1280);  // step 1024 / 4 = 256
    EXPECT_EQ(t.sys().requests().front(), 128u);

    // A fixed step.
    CKD_BinaryBuf s;
    ASSERT_TRUE(s.EstimateSize(10, 1000));
    EXPECT_EQ(s.GetAllocSize(), 1000);
    ASSERT_TRUE(s.AppendFill(7, 1001));
    EXPECT_EQ(s.GetAllocSize(), 2000);
    EXPECT_TRUE(s.EstimateSize(5));  // fits: nothing changes but the step
    EXPECT_EQ(s.GetAllocStep(), 0);

    // Growth failure keeps the old contents and sizes.
    t.sys().FailAll(true);
    EXPECT_FALSE(b.AppendFill(9, 5000));
    EXPECT_EQ(b.GetSize(), 1025);
    EXPECT_EQ(b.GetAllocSize(), 1280);
    EXPECT_EQ(b.GetBuffer()[0], 1);
    EXPECT_FALSE(b.CopyData("x", 5000));  // a replacement that cannot grow loses nothing either
    EXPECT_EQ(b.GetSize(), 1025);
    EXPECT_EQ(b.GetBuffer()[128], 3);
    CKD_BinaryBuf none(64);
    EXPECT_EQ(none.GetBuffer(), nullptr);
    EXPECT_EQ(none.GetSize(), 0);
    t.sys().FailAll(false);
  }
  EXPECT_EQ(t.live_blocks(), 0u);
  EXPECT_GT(t.oom().calls, 0);
}

TEST(BinaryBuf, Editing) {
  CKD_BinaryBuf b;
  ASSERT_TRUE(b.CopyData("hello world!", 12));
  b.Delete(5, 10);  // past the end, or from a negative start: nothing
  b.Delete(-1, 2);
  EXPECT_EQ(Bytes(b), "hello world!");
  b.Delete(5, 6);
  ASSERT_TRUE(b.InsertBlock(5, ", you", 5));
  EXPECT_EQ(Bytes(b), "hello, you!");
  ASSERT_TRUE(b.InsertBlock(0, nullptr, 2));  // room opened and counted, not written
  ASSERT_TRUE(b.AppendBlock(nullptr, 10));
  EXPECT_EQ(b.GetSize(), 23);
  EXPECT_FALSE(b.AppendBlock("x", -1));
  ASSERT_TRUE(b.CopyData(nullptr, 0));
  EXPECT_EQ(b.GetSize(), 0);
  EXPECT_GT(b.GetAllocSize(), 0);  // memory kept
  b.CopyData("abc", 3);
  CKD_ByteString s;
  s = b;
  EXPECT_TRUE(s == "abc" && b.GetByteString() == s);
}

// A buffer may be given its own bytes to append or insert, whether or not growth moves the block
// (step 1: every addition reallocates). Checked against a string model.
TEST(BinaryBuf, OwnBytesAsArgument) {
  std::mt19937 rng(11);
  CKD_BinaryBuf b;
  b.EstimateSize(0, 1);
  ASSERT_TRUE(b.AppendBlock("0123456789", 10));
  std::string model = "0123456789";
  for (int i = 0; i < 300 && model.size() < 4000; ++i) {
    int size = static_cast<int>(model.size());
    int from = static_cast<int>(rng() % size), n = 1 + static_cast<int>(rng() % (size - from));
    if (rng() % 2) {
      ASSERT_TRUE(b.AppendBlock(b.GetBuffer() + from, n));
      model += model.substr(static_cast<size_t>(from), static_cast<size_t>(n));
    } else {
      int pos = static_cast<int>(rng() % (size + 1));
      ASSERT_TRUE(b.InsertBlock(pos, b.GetBuffer() + from, n));
      model.insert(static_cast<size_t>(pos), model.substr(static_cast<size_t>(from), static_cast<size_t>(n)));
    }
    ASSERT_EQ(Bytes(b), model) << i;
    if (rng() % 4 == 0) {  // now and then a copy of part of itself
      ASSERT_TRUE(b.CopyData(b.GetBuffer() + from, n));
      model = model.substr(static_cast<size_t>(from), static_cast<size_t>(n));
    }
  }
}

TEST(BinaryBuf, OwnershipTransfers) {
  TestMgr a;
  IKD_Allocator* al = a.allocator();
  {
    CKD_BinaryBuf src(al), dst(al);
    ASSERT_TRUE(src.AppendBlock("0123456789", 10));
    dst.TakeOver(src);
    EXPECT_EQ(dst.GetAllocSize(), 10);  // the data size, not the allocation
    EXPECT_EQ(src.GetBuffer(), nullptr);
    EXPECT_EQ(src.GetSize(), 0);
    EXPECT_EQ(src.GetAllocSize(), 0);
    long reallocs = a.sys().reallocs();
    ASSERT_TRUE(dst.AppendByte('!'));
    EXPECT_EQ(a.sys().reallocs(), reallocs + 1);
    EXPECT_EQ(Bytes(dst), "0123456789!");

    uint8_t* block = dst.GetBuffer();
    dst.DetachBuffer();
    EXPECT_EQ(dst.GetBuffer(), nullptr);
    EXPECT_EQ(dst.GetSize(), 0);
    EXPECT_EQ(dst.GetAllocSize(), 128);  // left as it was
    ASSERT_TRUE(dst.AppendByte('x'));    // a detached buffer makes a new block
    EXPECT_NE(dst.GetBuffer(), nullptr);
    al->m_Free(al, block);

    void* adopted = al->m_Alloc(al, 4);
    memcpy(adopted, "wxyz", 4);
    dst.AttachData(adopted, 4);
    EXPECT_EQ(Bytes(dst), "wxyz");
    EXPECT_EQ(dst.GetAllocSize(), 4);
    CKD_ByteStringL l;
    dst.GetByteStringL(l);
    EXPECT_STREQ(l.c_str(), "wxyz");
    l.Empty(al);

    a.sys().FailAll(true);
    EXPECT_FALSE(dst.AppendByte('!'));
    EXPECT_EQ(Bytes(dst), "wxyz");
    a.sys().FailAll(false);
  }
  EXPECT_EQ(a.live_blocks(), 0u);
}

TEST(TextBuf, ByteAndWide) {
  CKD_ByteTextBuf b;
  b << CKD_ByteStringC("n=") << -42 << ' ' << 4000000000u << ',' << -9000000000LL;
  EXPECT_EQ(Bytes(b), "n=-42" "32" "4000000000" "44" "-9000000000");  // a char goes in as an int
  // A buffer's own text as the operand, also where the append grows the block.
  CKD_ByteTextBuf c;
  c << CKD_ByteStringC("xyz");
  c << c;
  for (int i = 0; i < 6; ++i) c << c.GetByteString();
  c << b;
  std::string expect;
  for (int i = 0; i < 128; ++i) expect += "xyz";
  EXPECT_EQ(Bytes(c), expect + Bytes(b));
  c = CKD_ByteStringC(reinterpret_cast<const char*>(c.GetBuffer()) + 1, 2);
  EXPECT_EQ(Bytes(c), "yz");

  CKD_WideTextBuf w;
  w << -42 << L"ab" << CKD_WideString(L"\u00E9") << CKD_WideStringC(L"cd", 1) << static_cast<const wchar_t*>(nullptr);
  EXPECT_TRUE(w.AppendChar(0x1F600));
  EXPECT_EQ(w.GetSize(), 4 * 8);
  CKD_WideStringC view = w.GetWideString();
  EXPECT_EQ(std::wstring(view.GetPtr(), 8), std::wstring(L"-42ab\u00E9c") + static_cast<wchar_t>(0x1F600));
  w << w;
  EXPECT_EQ(w.GetLength(), 16);
  CKD_WideStringL l;
  w.GetWideStringL(l);
  EXPECT_EQ(l.GetLength(), 16);
  l.Empty(nullptr);
  for (int i = 0; i < 4; ++i) w << w.GetWideString();  // its own text, moved by each growth
  EXPECT_EQ(w.GetLength(), 256);
  EXPECT_EQ(w.GetChars()[255], static_cast<wchar_t>(0x1F600));
  w = CKD_WideStringC(L"x");
  EXPECT_EQ(w.GetLength(), 1);

  TestDefaultMgr t;
  CKD_ByteTextBuf f;
  CKD_WideTextBuf g;
  t.sys().FailAll(true);
  f << CKD_ByteStringC("abc") << 12;
  g << L"abc" << 7;
  EXPECT_FALSE(g.AppendChar(L'x'));
  EXPECT_EQ(f.GetLength(), 0);
  EXPECT_EQ(g.GetLength(), 0);
  t.sys().FailAll(false);
}

TEST(StringBuf, FixedCapacity) {
  CKD_StringBuf<8> s;
  // The characters follow the two counts.
  EXPECT_EQ(static_cast<const void*>(s.GetBuffer()), static_cast<const void*>(reinterpret_cast<const char*>(&s) + 8));
  s.Copy("abc");
  s.Append(-255, CKD_ByteString::FORMAT_SIGNED);
  s.Append(255, CKD_ByteString::FORMAT_HEX | CKD_ByteString::FORMAT_UPPERCASE);  // cut at the limit
  EXPECT_EQ(Bytes(s), "abc-255F");
  s.Append("more");  // full: nothing, silently
  EXPECT_EQ(s.GetSize(), 8);
  s.Copy("0123456789");
  CKD_StringBuf<8> copy(s);
  EXPECT_EQ(Bytes(copy), "01234567");
  CKD_StringBuf<24> h;
  h.Append(-1, 0);
  h.Append(-1, CKD_ByteString::FORMAT_HEX);
  EXPECT_EQ(Bytes(h), "4294967295ffffffff");
}

TEST(StringL, AllocatorBound) {
  TestMgr a;
  IKD_Allocator* al = a.allocator();
  CKD_ByteStringL b;
  b.Set("hello", al);
  char* p = b.AllocBuffer(3, al);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(b.GetLength(), 3);
  EXPECT_EQ(p[3], 0);
  b.Set(CKD_ByteStringC(), al);
  EXPECT_EQ(b.GetPtr(), nullptr);
  // Set may be given the string's own characters.
  b.Set("hello", al);
  b.Set(CKD_ByteStringC(b.c_str() + 1, 3), al);
  EXPECT_STREQ(b.c_str(), "ell");
  a.sys().FailAll(true);
  EXPECT_EQ(b.AllocBuffer(3, al), nullptr);
  b.Set("x", al);
  EXPECT_TRUE(b.IsEmpty());
  a.sys().FailAll(false);

  CKD_WideStringL w;
  w.Set(L"  42 \t ", al);
  w.TrimRight(L" \t");
  EXPECT_EQ(w.GetLength(), 4);
  EXPECT_EQ(w.GetInteger(), 0);  // leading blanks are not skipped
  w.Set(L"-17x", al);
  w.Set(CKD_WideStringC(w.GetPtr(), 3), al);
  EXPECT_EQ(w.GetLength(), 3);
  EXPECT_EQ(w.GetInteger(), -17);
  w.TrimRight(L"-17x");
  EXPECT_EQ(w.GetLength(), 0);
  ASSERT_NE(w.GetPtr(), nullptr);  // memory kept
  EXPECT_EQ(w.GetPtr()[0], 0);
  w.TrimRight(nullptr);
  w.Empty(al);
  EXPECT_EQ(w.GetInteger(), 0);
  EXPECT_EQ(a.live_blocks(), 0u);

  TestDefaultMgr t;
  CKD_WideStringL d;
  d.Set(L"abc", nullptr);
  EXPECT_EQ(t.sys().requests().back(), 16u);  // 4 units of 4 bytes from the default manager
  d.Empty(nullptr);
}

}  // namespace
