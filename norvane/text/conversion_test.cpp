// Conversions between wide text and bytes: the UTF-8 coders and buffer forms, UTF-16, the
// code-page conversions and the character maps.
#include "norvane/text/code_page_convert.h"

#include <gtest/gtest.h>
#include <iconv.h>

#include <algorithm>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "norvane/text/char_map.h"
#include "norvane/text/code_page.h"
#include "norvane/text/string_test_support.h"
#include "norvane/text/utf16.h"
#include "norvane/text/utf8.h"
#include "norvane/text/utf8_coder.h"
#include "tests/support/test_mgr.h"

namespace {

using kdtest::Std;
using kdtest::TestDefaultMgr;

// The source units consumed, the units produced (or needed) and what was written.
template <class Out>
using Converted = std::tuple<int, int, std::basic_string<Out>>;
using Decoded = Converted<wchar_t>;
using Encoded = Converted<char>;

// Convert calls convert(src, &srcLen, dst, &dstLen) with room for `room` units (0: no destination,
// it only counts). The call must return 1 and leave the unit beyond the room untouched.
template <class Out, class In, class F>
Converted<Out> Convert(F convert, const std::basic_string<In>& src, int room) {
  std::vector<Out> out(static_cast<size_t>(room) + 1, 0);
  int srcLen = static_cast<int>(src.size()), dstLen = room;
  EXPECT_EQ(convert(src.data(), &srcLen, room ? out.data() : nullptr, &dstLen), 1);
  EXPECT_EQ(out[static_cast<size_t>(room)], 0);
  return {srcLen, dstLen, std::basic_string<Out>(out.data(), static_cast<size_t>(std::min(dstLen, room)))};
}

// IconvToWide decodes bytes in the named encoding with iconv; false when iconv cannot.
bool IconvToWide(const char* encoding, std::string bytes, std::wstring* text) {
  iconv_t cd = iconv_open("WCHAR_T", encoding);
  if (cd == reinterpret_cast<iconv_t>(-1)) return false;
  std::vector<wchar_t> out(bytes.size() + 1);
  char *in = &bytes[0], *o = reinterpret_cast<char*>(out.data());
  size_t inLeft = bytes.size(), outLeft = out.size() * sizeof(wchar_t);
  const bool ok = iconv(cd, &in, &inLeft, &o, &outLeft) != static_cast<size_t>(-1);
  iconv_close(cd);
  text->assign(out.data(), (out.size() * sizeof(wchar_t) - outLeft) / sizeof(wchar_t));
  return ok;
}

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

// The buffer forms with room for `room` units (see Convert).
Decoded BufferDecode(const std::string& bytes, int room) { return Convert<wchar_t>(KD_UTF8Decode, bytes, room); }
Encoded BufferEncode(const std::wstring& text, int room) {
  auto encode = [](const wchar_t* s, int* n, char* d, int* m) { return KD_UTF8Encode(s, n, d, m); };
  return Convert<char>(encode, text, room);
}

// KD_DecodeString / KD_EncodeString with room for `room` units (see Convert).
Decoded DecodeIn(uint16_t page, const std::string& bytes, int room, bool strict = false) {
  auto decode = [&](const char* s, int* n, wchar_t* d, int* m) { return KD_DecodeString(page, s, n, d, m, strict); };
  return Convert<wchar_t>(decode, bytes, room);
}
Encoded EncodeIn(uint16_t page, const std::wstring& text, int room, bool strict = false) {
  auto encode = [&](const wchar_t* s, int* n, char* d, int* m) { return KD_EncodeString(page, s, n, d, m, strict); };
  return Convert<char>(encode, text, room);
}

// With room enough for any result.
std::wstring Decode(uint16_t page, const std::string& bytes, bool strict = false) {
  return std::get<2>(DecodeIn(page, bytes, static_cast<int>(bytes.size()) + 1, strict));
}
std::string Encode(uint16_t page, const std::wstring& text, bool strict = false) {
  return std::get<2>(EncodeIn(page, text, 4 * static_cast<int>(text.size()) + 1, strict));
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
  for (int b : {0x41, 0xE2, 0x82}) d.Input(static_cast<uint8_t>(b));
  d.Clear();  // drops the output and the pending sequence
  d.Input(0xAC);
  d.AppendChar(0x12345);
  EXPECT_EQ(d.GetResult().GetLength(), 1);
  EXPECT_EQ(d.GetResult()[0], 0x12345);
}

TEST(UTF8Buffer, Counts) {
  EXPECT_EQ(BufferDecode("abc", 2), Decoded(2, 2, L"ab"));
  EXPECT_EQ(BufferDecode("a\xC3\xA9z\xE2\x82", 0), Decoded(4, 3, L""));  // a truncated sequence is not consumed
  // A stray continuation byte, FE or FF end the conversion.
  for (const char* text : {"ab\x80" "cd", "ab\xFE" "cd", "ab\xFF" "cd"})
    EXPECT_EQ(BufferDecode(text, 8), Decoded(2, 2, L"ab")) << text;
  // Bytes dropped before a completed character count as consumed.
  EXPECT_EQ(BufferDecode("\xC3\x41", 8), Decoded(2, 1, L"A"));
  EXPECT_EQ(BufferDecode("\xC0\x80", 8), Decoded(2, 1, L"\uFFFD"));
  EXPECT_EQ(BufferDecode("", 5), Decoded(0, 0, L""));
  // Destination edges around the eight-byte ASCII path.
  const std::string ascii(40, 'q');
  for (int room = 1; room <= 20; ++room)
    ASSERT_EQ(BufferDecode(ascii, room), Decoded(room, room, std::wstring(room, L'q')));

  EXPECT_EQ(BufferEncode(std::wstring(1, 0x1F600), 16), Encoded(1, 3, "\xEF\x98\x80"));  // U+F600: truncated to 16 bits
  // The character that does not fit is counted, not written.
  EXPECT_EQ(BufferEncode(L"ab\u20AC", 4), Encoded(3, 5, std::string("ab\0\0", 4)));
  EXPECT_EQ(BufferEncode(L"ab\u20AC", 5), Encoded(3, 5, "ab\xE2\x82\xAC"));
  EXPECT_EQ(BufferEncode(L"ab\u20AC", 0), Encoded(3, 5, ""));
  const std::wstring wide(30, L'z');
  for (int room = 1; room <= 12; ++room)
    ASSERT_EQ(BufferEncode(wide, room), Encoded(room + 1, room + 1, std::string(room, 'z')));  // + the one left out

  int n = 3;
  EXPECT_EQ(KD_UTF8Decode("abc", nullptr, nullptr, &n), -1);
  EXPECT_EQ(KD_UTF8Decode("abc", &n, nullptr, nullptr), -1);
  EXPECT_EQ(KD_UTF8Encode(L"abc", nullptr, nullptr, &n), -1);
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
  std::mt19937 rng(1234);
  for (int round = 0; round < 300; ++round) {
    std::wstring text = RandomText(rng, static_cast<int>(rng() % 200));
    std::string utf8 = EncodeWithObject(text);
    EXPECT_EQ(Std(KD_UTF8Encode(text.c_str(), static_cast<int>(text.size()))), utf8);
    EXPECT_EQ(Std(CKD_WideString(text.c_str(), static_cast<int>(text.size())).UTF8Encode()), utf8);
    EXPECT_EQ(Std(CKD_WideString::FromUTF8(utf8.c_str(), static_cast<int>(utf8.size()))), text);
    CKD_ByteStringL l;
    KD_UTF8Encode(text.c_str(), static_cast<int>(text.size()), l, nullptr);
    EXPECT_EQ(std::string(l.c_str(), static_cast<size_t>(l.GetLength())), utf8);
    l.Empty(nullptr);
    // Damaged bytes decode as the decoder object decodes them.
    std::string damaged = utf8;
    for (int k = 0; k < 3 && !damaged.empty(); ++k) damaged[rng() % damaged.size()] = static_cast<char>(rng());
    std::wstring want = DecodeWithObject(damaged);
    EXPECT_EQ(Std(CKD_WideString::FromUTF8(damaged.c_str(), static_cast<int>(damaged.size()))), want);
    EXPECT_EQ(Std(CKD_ByteString(damaged.c_str(), static_cast<int>(damaged.size())).UTF8Decode()), want);

    std::wstring valid;
    for (wchar_t c : text)
      if (c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF)) valid += c;
    std::string bytes = EncodeWithObject(valid);
    std::wstring theirs;
    ASSERT_TRUE(IconvToWide("UTF-8", bytes, &theirs));
    ASSERT_EQ(theirs, valid);
    const int n = static_cast<int>(bytes.size());
    EXPECT_EQ(BufferDecode(bytes, n + 1), Decoded(n, static_cast<int>(valid.size()), valid));
  }
  EXPECT_TRUE(CKD_WideString::FromUTF8(nullptr, 5).IsEmpty());
  EXPECT_TRUE(CKD_WideString::FromUTF8("abc", 0).IsEmpty());
  EXPECT_EQ(Std(CKD_WideString::FromUTF8("h\xC3\xA9", -1)), L"h\u00E9");
  EXPECT_TRUE(CKD_ByteString().UTF8Decode().IsEmpty());
  EXPECT_TRUE(KD_UTF8Encode(nullptr, 3).IsEmpty());
  EXPECT_EQ(Std(KD_UTF8Encode(L"x\u00E9", -1)), "x\xC3\xA9");
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

TEST(CodePageConvert, TablePages) {
  EXPECT_EQ(Decode(936, "a\xB0\xA1\x80z"), L"a\u554A\u20ACz");
  EXPECT_EQ(Encode(936, L"a\u554A\u20ACz"), "a\xB0\xA1\x80z");
  EXPECT_EQ(Decode(1252, "\x80\x81\xE9"), L"\u20AC?\u00E9");  // undefined: the default character
  EXPECT_EQ(Encode(1252, L"\u20AC\u4E00\u00E9"), "\x80?\xE9");
  EXPECT_EQ(Encode(932, std::wstring(1, 0x1F600)), "?");
  EXPECT_EQ(Encode(932, L"\u3042\uFF61"), "\x82\xA0\xA1");

  // An unmapped pair is one default character; a lead byte before a byte below 0x40, which no
  // page takes as a trail byte, is replaced alone.
  EXPECT_EQ(Decode(936, "\x81\x20" "b"), L"? b");
  EXPECT_EQ(Decode(950, "\x81\x40" "b"), L"?b");
  EXPECT_EQ(Decode(932, "\xF0\xFD" "b"), L"?b");
  // The user-defined rows of 932 and 950 are characters of the private-use area.
  EXPECT_EQ(Decode(932, "\xF0\x40" "b" "\xF9\xFC"), L"\uE000b\uE757");
  EXPECT_EQ(Decode(932, "\x80\xA0\xFD\xFF"), L"\u0080\uF8F0\uF8F1\uF8F3");
  EXPECT_EQ(Decode(950, "\xC6\xA1\xC8\xFE"), L"\uF6B1\uF848");
  EXPECT_EQ(Encode(950, L"\uF6B1\uF70F"), "\xC6\xA1\xC7\x40");
  EXPECT_EQ(Decode(949, "\xFF" "a"), L"?a");  // a byte that is neither mapped nor a lead byte

  // A lead byte at the end waits for its trail byte.
  EXPECT_EQ(DecodeIn(936, "ab\xB0", 4), Decoded(2, 2, L"ab"));
  // Strict conversions stop before what they would replace.
  EXPECT_EQ(DecodeIn(1252, "ab\x81" "c", 5, true), Decoded(2, 2, L"ab"));
  EXPECT_EQ(EncodeIn(1252, L"ab\u4E00c", 17, true), Encoded(2, 2, "ab"));
  // Destination edges: a two-byte code that does not fit is neither written nor counted.
  EXPECT_EQ(EncodeIn(936, L"abc\u554A", 4), Encoded(3, 3, "abc"));
  EXPECT_EQ(EncodeIn(936, L"abc\u554A", 0), Encoded(4, 5, ""));
  EXPECT_EQ(DecodeIn(936, "a\xB0\xA1z!", 2), Decoded(3, 2, L"a\u554A"));

  // Unknown pages and null lengths.
  char out[4];
  wchar_t wide[4];
  int srcLen = 3, dstLen = 3;
  EXPECT_EQ(KD_DecodeString(437, "abc", &srcLen, wide, &dstLen, false), -1);
  EXPECT_EQ(srcLen, 0);
  EXPECT_EQ(dstLen, 0);
  srcLen = 3;
  dstLen = 3;
  EXPECT_EQ(KD_EncodeString(0, L"abc", &srcLen, out, &dstLen, false), -1);
  EXPECT_EQ(KD_DecodeString(1252, "abc", nullptr, wide, &dstLen, false), -1);
  EXPECT_EQ(KD_EncodeString(1252, L"abc", &srcLen, out, nullptr, false), -1);
}

TEST(CodePageConvert, UnicodePages) {
  const std::wstring text = {L'a', 0xE9, 0x1F600, 0xFFFF};
  EXPECT_EQ(Encode(1200, text), std::string("a\0\xE9\0\x3D\xD8\x00\xDE\xFF\xFF", 10));
  EXPECT_EQ(Encode(1201, text), std::string("\0a\0\xE9\xD8\x3D\xDE\x00\xFF\xFF", 10));
  EXPECT_EQ(Decode(1200, Encode(1200, text)), text);
  EXPECT_EQ(Decode(1201, Encode(1201, text)), text);
  EXPECT_EQ(Encode(1200, std::wstring(1, 0x110000)), "\xFD\xFF");
  EXPECT_EQ(EncodeIn(1200, std::wstring(1, 0x110000), 4, true), Encoded(0, 0, ""));
  // Lone surrogates pass unless strict; an odd byte or a high surrogate at the end waits.
  EXPECT_EQ(Decode(1200, std::string("\x00\xDC" "a\0", 4)), std::wstring({0xDC00, L'a'}));
  EXPECT_EQ(Decode(1200, std::string("\x00\xDC", 2), true), L"");
  EXPECT_EQ(DecodeIn(1200, std::string("a\0b", 3), 4), Decoded(2, 1, L"a"));
  EXPECT_EQ(DecodeIn(1200, std::string("a\0\x3D\xD8", 4), 4), Decoded(2, 1, L"a"));
  EXPECT_EQ(Decode(1200, std::string("\x3D\xD8" "a\0", 4)), std::wstring({0xD83D, L'a'}));

  // UTF-8 goes to the UTF-8 buffer functions, with their rules.
  EXPECT_EQ(Decode(65001, "h\xC3\xA9"), L"h\u00E9");
  EXPECT_EQ(Encode(65001, std::wstring(1, 0x1F600)), "\xEF\x98\x80");
}

// The conversion loops agree with the C library's iconv over random text of every page, the
// user-defined rows of 932 and 950 included. glibc's CP932 lacks Windows' five single bytes (0x80,
// 0xA0, 0xFD-0xFF) and its GBK the euro byte: those are left out.
TEST(CodePageConvert, AgreesWithIconv) {
  const uint16_t kPages[] = {874, 932, 936, 949, 950, 1250, 1251, 1252, 1253, 1254, 1256, 1257};
  std::mt19937 rng(7);
  for (uint16_t number : kPages) {
    IKD_CodePage* page = IKD_CodePage::Create(number);
    std::vector<uint16_t> codes;
    for (uint32_t code = 0; code < 0x10000; ++code) {
      if (code >= 256 && !page->IsLeadByte(static_cast<uint8_t>(code >> 8))) continue;
      if (code == 0 || (number == 936 && code == 0x80)) continue;
      if (number == 932 && (code == 0x80 || code == 0xA0 || (code >= 0xFD && code <= 0xFF))) continue;
      if (page->IsValidCharcode(static_cast<uint16_t>(code))) codes.push_back(static_cast<uint16_t>(code));
    }
    page->Release();
    std::string bytes;
    for (int i = 0; i < 4000; ++i) {
      uint16_t code = codes[rng() % codes.size()];
      if (code > 0xFF) bytes += static_cast<char>(code >> 8);
      bytes += static_cast<char>(code);
    }
    std::string name = "CP" + std::to_string(number);
    std::wstring theirs;
    ASSERT_TRUE(IconvToWide(name.c_str(), bytes, &theirs)) << name;
    std::wstring ours = Decode(number, bytes);
    ASSERT_TRUE(ours == theirs) << name;
    // Back to bytes: the same, but for characters with several codes (932, 950), which come back
    // to their canonical code.
    std::string back = Encode(number, ours);
    EXPECT_TRUE(Decode(number, back) == ours) << name;
    if (number != 932 && number != 950) {
      EXPECT_TRUE(back == bytes) << name;
    }
  }
}

TEST(CharMap, Maps) {
  CKD_CharMap* def = CKD_CharMap::GetDefaultMapper(0);
  CKD_CharMap* cp1252 = CKD_CharMap::GetDefaultMapper(1252);
  ASSERT_NE(def, nullptr);
  ASSERT_NE(cp1252, nullptr);
  EXPECT_NE(def, cp1252);
  EXPECT_EQ(def->m_GetCodePage, nullptr);
  EXPECT_EQ(cp1252->m_GetCodePage(cp1252), 1252);
  EXPECT_EQ(CKD_CharMap::GetDefaultMapper(65001), nullptr);
  EXPECT_EQ(CKD_CharMap::GetDefaultMapper(437), nullptr);
  for (int page : {874, 932, 936, 949, 950, 1250, 1251, 1253, 1254, 1255, 1256, 1257, 1258})
    EXPECT_EQ(CKD_CharMap::GetDefaultMapper(page)->m_GetCodePage(CKD_CharMap::GetDefaultMapper(page)), page);

  CKD_WideString w;
  w.ConvertFrom(CKD_ByteString("\xB0\xA1" "a"), CKD_CharMap::GetDefaultMapper(936));
  EXPECT_TRUE(w == L"\u554Aa");
  CKD_ByteString b;
  b.ConvertFrom(w, CKD_CharMap::GetDefaultMapper(936));
  EXPECT_TRUE(b == "\xB0\xA1" "a");
  b.ConvertFrom(CKD_WideString(L"\u554A"), cp1252);
  EXPECT_TRUE(b == "?");
  w.ConvertFrom(CKD_ByteString(), cp1252);
  EXPECT_TRUE(w.IsEmpty());

  // The default map follows the process locale, whatever the code page.
  if (kdtest::CtypeLocale utf8("C.UTF-8"); utf8.ok()) {
    EXPECT_TRUE(CKD_WideString::FromLocal("h\xC3\xA9") == L"h\u00E9");
    EXPECT_TRUE(CKD_ByteString::FromUnicode(L"h\u00E9") == "h\xC3\xA9");
    EXPECT_TRUE(CKD_ByteString::FromUnicode(CKD_WideString(L"x\u20AC")) == "x\xE2\x82\xAC");
    CKD_WideString viaDefault;
    viaDefault.ConvertFrom(CKD_ByteString("\xC3\xA9"));
    EXPECT_TRUE(viaDefault == L"\u00E9");
  }
  kdtest::CtypeLocale c("C");
  EXPECT_TRUE(CKD_WideString::FromLocal("abc", 2) == L"ab");
  EXPECT_TRUE(CKD_ByteString::FromUnicode(L"\u00E9").IsEmpty());  // not representable in "C"
  EXPECT_TRUE(CKD_ByteString::FromUnicode(nullptr).IsEmpty());

  kdtest::TestDefaultMgr t;
  CKD_WideString src(L"\u554A");
  CKD_ByteString converted;
  t.sys().FailAll(true);
  converted.ConvertFrom(src, CKD_CharMap::GetDefaultMapper(936));
  EXPECT_TRUE(converted.IsEmpty());
  t.sys().FailAll(false);
}

}  // namespace
