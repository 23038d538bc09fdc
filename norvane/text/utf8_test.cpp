#include "norvane/text/utf8.h"

#include <gtest/gtest.h>
#include <iconv.h>

#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "norvane/text/utf16.h"
#include "norvane/text/utf8_coder.h"
#include "tests/support/test_mgr.h"

namespace {

using kdtest::TestDefaultMgr;

std::wstring DecodeWithObject(const std::string& bytes) {
  CKD_UTF8Decoder decoder;
  for (unsigned char b : bytes) decoder.Input(b);
  CKD_WideStringC r = decoder.GetResult();
  return std::wstring(r.GetPtr() ? r.GetPtr() : L"", static_cast<size_t>(r.GetLength()));
}

std::string EncodeWithObject(const std::wstring& text) {
  CKD_UTF8Encoder encoder;
  for (wchar_t c : text) encoder.Input(c);
  CKD_ByteStringC r = encoder.GetResult();
  return std::string(r.GetCStr() ? r.GetCStr() : "", static_cast<size_t>(r.GetLength()));
}

std::wstring W(const CKD_WideString& s) { return std::wstring(s.c_str(), static_cast<size_t>(s.GetLength())); }
std::string B(const CKD_ByteString& s) { return std::string(s.c_str(), static_cast<size_t>(s.GetLength())); }

// The buffer forms with room for `room` units (0: no destination, they only count). Each gives the
// source units consumed, the units produced (or needed) and what was written; the room is zeroed
// first, and one unit beyond it must stay untouched.
std::tuple<int, int, std::wstring> BufferDecode(const std::string& bytes, int room) {
  std::vector<wchar_t> out(static_cast<size_t>(room) + 1, 0);
  int srcLen = static_cast<int>(bytes.size()), dstLen = room;
  EXPECT_EQ(KD_UTF8Decode(bytes.data(), &srcLen, room ? out.data() : nullptr, &dstLen), 1);
  EXPECT_EQ(out[static_cast<size_t>(room)], 0);
  return {srcLen, dstLen, out.data()};
}

std::tuple<int, int, std::string> BufferEncode(const std::wstring& text, int room) {
  std::vector<char> out(static_cast<size_t>(room) + 1, 0);
  int srcLen = static_cast<int>(text.size()), dstLen = room;
  EXPECT_EQ(KD_UTF8Encode(text.data(), &srcLen, room ? out.data() : nullptr, &dstLen), 1);
  EXPECT_EQ(out[static_cast<size_t>(room)], 0);
  return {srcLen, dstLen, out.data()};
}

TEST(UTF8Coder, DecoderAndEncoderRules) {
  // Both directions, the early five- and six-byte forms and surrogates included.
  const std::pair<std::string, std::wstring> kBoth[] = {
      {"a\xC3\xA9\xE2\x82\xAC", L"a\u00E9\u20AC"},
      {"\xF0\x9F\x98\x80", std::wstring(1, 0x1F600)},
      {"\xED\xA0\x80", std::wstring(1, 0xD800)},
      {"\xF8\x88\x80\x80\x80", std::wstring(1, 0x200000)},
      {"\xFD\xBF\xBF\xBF\xBF\xBF", std::wstring(1, 0x7FFFFFFF)},
  };
  for (const auto& [bytes, text] : kBoth) {
    EXPECT_EQ(DecodeWithObject(bytes), text);
    EXPECT_EQ(EncodeWithObject(text), bytes);
  }
  EXPECT_EQ(DecodeWithObject("\xC3\x41"), L"A");            // an ASCII byte drops the sequence
  EXPECT_EQ(DecodeWithObject("\xC0\x80"), L"\uFFFD");       // an overlong 0
  EXPECT_EQ(DecodeWithObject("\xC1\x81"), L"A");            // other overlong forms keep their value
  EXPECT_EQ(DecodeWithObject("\xA9"), L"");                 // a stray continuation byte vanishes
  EXPECT_EQ(DecodeWithObject("a\xFE\xFF" "b"), L"ab");      // FE and FF are ignored
  EXPECT_EQ(DecodeWithObject("\xE2\x82\xFE\xAC"), L"\u20AC");  // ... and keep the pending state
  EXPECT_EQ(DecodeWithObject("\xE2\x82\xC3\xA9"), L"\u00E9");  // a lead byte replaces a sequence
  EXPECT_EQ(DecodeWithObject("x\xE2\x82"), L"x");              // cut off at the end
  EXPECT_EQ(EncodeWithObject(std::wstring{L'a', static_cast<wchar_t>(0x80000000), L'b'}), "ab");

  CKD_UTF8Decoder d;
  d.Input(0xE2);
  d.Clear();
  d.Input(0x82);
  d.AppendChar(0x12345);
  EXPECT_EQ(d.GetResult().GetLength(), 1);
  EXPECT_EQ(d.GetResult()[0], 0x12345);

  // The buffer grows by ExpandBuf(100) when full: 128 bytes at first, then by quarters.
  CKD_UTF8Encoder e;
  e.Input(L'a');
  EXPECT_EQ(e.GetBuffer().GetAllocSize(), 128);
  for (int i = 0; i < 128; ++i) e.Input(L'b');
  EXPECT_EQ(e.GetBuffer().GetAllocSize(), 256);
}

TEST(UTF8Buffer, DecodeCounts) {
  using R = std::tuple<int, int, std::wstring>;
  EXPECT_EQ(BufferDecode("abc", 2), R(2, 2, L"ab"));
  EXPECT_EQ(BufferDecode("a\xC3\xA9z\xE2\x82", 0), R(4, 3, L""));  // a truncated sequence is not consumed
  // A stray continuation byte, FE or FF end the conversion.
  for (const char* text : {"ab\x80" "cd", "ab\xFE" "cd", "ab\xFF" "cd"})
    EXPECT_EQ(BufferDecode(text, 8), R(2, 2, L"ab")) << text;
  // Bytes dropped before a completed character count as consumed.
  EXPECT_EQ(BufferDecode("\xC3\x41", 8), R(2, 1, L"A"));
  EXPECT_EQ(BufferDecode("\xC0\x80", 8), R(2, 1, L"\uFFFD"));
  // Destination edges around the eight-byte ASCII path.
  const std::string ascii(40, 'q');
  for (int room = 1; room <= 20; ++room) ASSERT_EQ(BufferDecode(ascii, room), R(room, room, std::wstring(room, L'q')));
  EXPECT_EQ(BufferDecode("", 5), R(0, 0, L""));

  wchar_t out[4];
  int srcLen = 3, dstLen = 4;
  EXPECT_EQ(KD_UTF8Decode("abc", nullptr, out, &dstLen), -1);
  EXPECT_EQ(KD_UTF8Decode("abc", &srcLen, out, nullptr), -1);
}

TEST(UTF8Buffer, EncodeCounts) {
  using R = std::tuple<int, int, std::string>;
  EXPECT_EQ(BufferEncode(std::wstring(1, 0x1F600), 16), R(1, 3, "\xEF\x98\x80"));  // U+F600: truncated to 16 bits
  // The character that does not fit is counted, not written.
  EXPECT_EQ(BufferEncode(L"ab\u20AC", 4), R(3, 5, "ab"));
  EXPECT_EQ(BufferEncode(L"ab\u20AC", 5), R(3, 5, "ab\xE2\x82\xAC"));
  EXPECT_EQ(BufferEncode(L"ab\u20AC", 0), R(3, 5, ""));
  const std::wstring ascii(30, L'z');
  for (int room = 1; room <= 12; ++room)
    ASSERT_EQ(BufferEncode(ascii, room), R(room + 1, room + 1, std::string(room, 'z')));  // the first left out counts

  char out[4];
  int dstLen = 4;
  EXPECT_EQ(KD_UTF8Encode(L"abc", nullptr, out, &dstLen), -1);
}

TEST(UTF8Buffer, IsUTF8Data) {
  auto check = [](const std::string& s, bool ok, int len) {
    int n = static_cast<int>(s.size());
    EXPECT_EQ(KD_IsUTF8Data(reinterpret_cast<const uint8_t*>(s.data()), &n), ok) << s;
    EXPECT_EQ(n, len) << s;
  };
  check("abc", true, 0);
  check("\xC3\xA9" "a", true, 2);
  check("\x80", false, 0);
  check("abcdefghij\xC3\xA9klmnopqrstu", true, 12);
  check("\xC3\xA9\xE2\x82", true, 2);   // cut off at the end
  check("\xC3\xA9\xE2\x41\x41", false, 2);
  check("\xFE", false, 0);
  check("\xFD\xBF\xBF\xBF\xBF\xBF", true, 6);
  int n = 0;
  EXPECT_TRUE(KD_IsUTF8Data(reinterpret_cast<const uint8_t*>("\x80"), &n));
  EXPECT_EQ(n, 0);
  EXPECT_FALSE(KD_IsUTF8Data(reinterpret_cast<const uint8_t*>("a"), nullptr));
}

TEST(UTF16, ConversionsAndSwap) {
  uint16_t units[4] = {0x41, 0xD83D, 0xDE00, 0xFFFF};
  wchar_t wide[4];
  KD_UTF16ToWCharCopy(units, wide, 4);
  EXPECT_EQ(wide[1], 0xD83D);
  EXPECT_EQ(wide[3], 0xFFFF);
  alignas(4) uint8_t buffer[16];
  memcpy(buffer, units, 8);
  KD_UTF16ToWChar(buffer, 4);
  EXPECT_EQ(memcmp(buffer, wide, 16), 0);
  const wchar_t chars[3] = {0x1F600, 0x41, static_cast<wchar_t>(0x12345678)};
  uint16_t narrow[3];
  KD_WCharToUTF16Copy(chars, narrow, 3);
  EXPECT_EQ(narrow[0], 0xF600);
  EXPECT_EQ(narrow[2], 0x5678);
  memcpy(buffer, chars, 12);
  KD_WCharToUTF16(buffer, 3);
  EXPECT_EQ(memcmp(buffer, narrow, 6), 0);

  wchar_t swapped[3] = {0x1234, static_cast<wchar_t>(0x12345678), 0x41};
  wchar_t copy[3];
  KD_SwapByteOrderCopy(swapped, copy, 3);
  KD_SwapByteOrder(swapped, 3);
  EXPECT_EQ(swapped[0], 0x12);  // bits 8..15 only
  EXPECT_EQ(swapped[1], 0x56);
  EXPECT_EQ(swapped[2], 0);
  EXPECT_EQ(memcmp(swapped, copy, sizeof copy), 0);
}

// Random text of every length class, with a fixed seed.
std::wstring RandomText(std::mt19937& rng, int n) {
  std::wstring s;
  for (int i = 0; i < n; ++i) {
    switch (rng() % 5) {
      case 0: s += static_cast<wchar_t>(0x20 + rng() % 0x5F); break;
      case 1: s += static_cast<wchar_t>(0xA0 + rng() % 0x700); break;
      case 2: s += static_cast<wchar_t>(0x4E00 + rng() % 0x5000); break;
      case 3: s += static_cast<wchar_t>(0x1F300 + rng() % 0x300); break;
      default: s += static_cast<wchar_t>(rng() % 0x7FFFFFFF); break;
    }
  }
  return s;
}

// Random text through every entry point: the fast paths against the coder objects, damaged bytes
// included, and the well-formed part against the C library's iconv.
TEST(UTF8String, FastPathsMatchTheCodersAndIconv) {
  iconv_t cd = iconv_open("WCHAR_T", "UTF-8");
  ASSERT_NE(cd, reinterpret_cast<iconv_t>(-1));
  std::mt19937 rng(1234);
  for (int round = 0; round < 300; ++round) {
    std::wstring text = RandomText(rng, static_cast<int>(rng() % 200));
    std::string utf8 = EncodeWithObject(text);
    EXPECT_EQ(B(KD_UTF8Encode(text.c_str(), static_cast<int>(text.size()))), utf8);
    EXPECT_EQ(B(CKD_WideString(text.c_str(), static_cast<int>(text.size())).UTF8Encode()), utf8);
    EXPECT_EQ(W(CKD_WideString::FromUTF8(utf8.c_str(), static_cast<int>(utf8.size()))), text);
    CKD_ByteStringL l;
    KD_UTF8Encode(text.c_str(), static_cast<int>(text.size()), l, nullptr);
    EXPECT_EQ(std::string(l.c_str(), static_cast<size_t>(l.GetLength())), utf8);
    l.Empty(nullptr);
    // Damaged bytes decode as the decoder object decodes them.
    std::string damaged = utf8;
    for (int k = 0; k < 3 && !damaged.empty(); ++k) damaged[rng() % damaged.size()] = static_cast<char>(rng());
    std::wstring want = DecodeWithObject(damaged);
    EXPECT_EQ(W(CKD_WideString::FromUTF8(damaged.c_str(), static_cast<int>(damaged.size()))), want);
    EXPECT_EQ(W(CKD_ByteString(damaged.c_str(), static_cast<int>(damaged.size())).UTF8Decode()), want);

    std::wstring valid;
    for (wchar_t c : text)
      if (c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF)) valid += c;
    std::string bytes = EncodeWithObject(valid);
    std::vector<wchar_t> out(bytes.size() + 1);
    char* in = &bytes[0];
    size_t inLeft = bytes.size(), outLeft = out.size() * sizeof(wchar_t);
    char* o = reinterpret_cast<char*>(out.data());
    ASSERT_NE(iconv(cd, &in, &inLeft, &o, &outLeft), static_cast<size_t>(-1));
    std::wstring theirs(out.data(), (out.size() * sizeof(wchar_t) - outLeft) / sizeof(wchar_t));
    ASSERT_EQ(theirs, valid);
    int srcLen = static_cast<int>(bytes.size()), dstLen = static_cast<int>(out.size());
    KD_UTF8Decode(bytes.c_str(), &srcLen, out.data(), &dstLen);
    EXPECT_EQ(std::wstring(out.data(), static_cast<size_t>(dstLen)), theirs);
    EXPECT_EQ(srcLen, static_cast<int>(bytes.size()));
  }
  iconv_close(cd);
  EXPECT_TRUE(CKD_WideString::FromUTF8(nullptr, 5).IsEmpty());
  EXPECT_TRUE(CKD_WideString::FromUTF8("abc", 0).IsEmpty());
  EXPECT_EQ(W(CKD_WideString::FromUTF8("h\xC3\xA9", -1)), L"h\u00E9");
  EXPECT_TRUE(CKD_ByteString().UTF8Decode().IsEmpty());
  EXPECT_TRUE(KD_UTF8Encode(nullptr, 3).IsEmpty());
  EXPECT_EQ(B(KD_UTF8Encode(L"x\u00E9", -1)), "x\xC3\xA9");
}

// The coders drop the units they cannot store and go on; the string forms come back empty.
TEST(UTF8String, AllocationFailure) {
  TestDefaultMgr t;
  CKD_WideString w(L"abc\u00E9");
  CKD_ByteString b("h\xC3\xA9llo");
  CKD_UTF8Encoder encoder;
  CKD_UTF8Decoder decoder;
  t.sys().FailAll(true);
  encoder.Input(L'a');
  decoder.Input('x');
  EXPECT_TRUE(w.UTF8Encode().IsEmpty());
  EXPECT_TRUE(b.UTF8Decode().IsEmpty());
  EXPECT_TRUE(CKD_WideString::FromUTF8("h\xC3\xA9").IsEmpty());
  CKD_ByteStringL l;
  KD_UTF8Encode(L"abc", 3, l, nullptr);
  EXPECT_TRUE(l.IsEmpty());
  t.sys().FailAll(false);
  encoder.Input(L'b');
  decoder.Input('y');
  EXPECT_EQ(std::string(encoder.GetResult().GetCStr(), 1), "b");
  ASSERT_EQ(decoder.GetResult().GetLength(), 1);
  EXPECT_EQ(decoder.GetResult()[0], L'y');
}

}  // namespace
