#include "norvane/text/url_text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

#include "norvane/text/string_test_support.h"

namespace {

using kdtest::CtypeLocale;
using kdtest::Std;

TEST(UrlText, EncodeSetAndHex) {
  // Every ASCII character alone, through both encoders: escaped exactly when listed.
  const std::string listed = "\"#%<>[\\]^`{|}~\x7F";
  for (wchar_t c = 1; c < 0x80; ++c) {
    char expected[4];
    const bool escaped = c <= 0x20 || listed.find(static_cast<char>(c)) != std::string::npos;
    snprintf(expected, sizeof expected, escaped ? "%%%02X" : "%c", static_cast<unsigned>(c));
    EXPECT_EQ(Std(KD_UrlEncode(CKD_WideString(c))), expected) << static_cast<int>(c);
    EXPECT_EQ(Std(KD_EncodeURI(CKD_WideString(c))), expected) << static_cast<int>(c);
  }
  EXPECT_EQ(Std(KD_UrlEncode(L"a b")), "a%20b");
  EXPECT_EQ(Std(KD_EncodeURI(L"\u00E9\U0001F600")), "%C3%A9%F0%9F%98%80");
  EXPECT_EQ(Std(KD_EncodeURI(CKD_WideString(L"a\0b", 3))), "a%00b");
  EXPECT_TRUE(KD_EncodeURI(CKD_WideString()).IsEmpty());
  EXPECT_TRUE(KD_UrlEncode(CKD_WideString()).IsEmpty());
}

TEST(UrlText, DecodeRules) {
  struct Case {
    const char* in;
    const wchar_t* out;
  };
  const Case cases[] = {
      {"%41", L"A"},       {"%4", L"%4"},         {"a%4", L"a%4"},  {"%", L"%"},        {"%%41", L"%A"},
      {"%4g%41", L"%4gA"}, {"%6a%6A", L"jj"},     {"a%2", L"a%2"},  {"100%", L"100%"}, {"%25%32%35", L"%25"},
      {"+", L"+"},         {"", L""},
  };
  for (const Case& c : cases) {
    EXPECT_TRUE(KD_UrlDecode(c.in) == c.out) << c.in;
    EXPECT_TRUE(KD_DecodeURI(c.in) == c.out) << c.in;
  }
  EXPECT_TRUE(KD_DecodeURI("%F0%9F%98%80%c3%a9") == L"\U0001F600\u00E9");
  EXPECT_TRUE(KD_DecodeURI("a%00b") == CKD_WideString(L"a\0b", 3));  // UTF-8 keeps U+0000
  EXPECT_TRUE(KD_UrlDecode("a%00b") == L"a");                         // the locale's conversion stops there
}

TEST(UrlText, LocaleForms) {
  {
    CtypeLocale c("C");
    EXPECT_EQ(Std(KD_UrlEncode(L"a\u00E9b")), "ab");  // not representable: dropped
    EXPECT_TRUE(KD_UrlDecode("%C3%A9").IsEmpty());
    EXPECT_EQ(Std(KD_UrlEncode(CKD_WideString(L"a\0b", 3))), "ab");  // U+0000 gives no bytes
  }
  CtypeLocale utf8("C.UTF-8");
  if (!utf8.ok()) GTEST_SKIP() << "no C.UTF-8 locale";
  EXPECT_EQ(Std(KD_UrlEncode(L"\u00E9 \u20AC")), "%C3%A9%20%E2%82%AC");
  EXPECT_TRUE(KD_UrlDecode("%C3%A9%20%E2%82%ac") == L"\u00E9 \u20AC");

  // Round trips: the URI forms for every code point the six-byte UTF-8 holds, the URL forms for
  // Unicode text in this locale.
  std::mt19937 rng(1515);
  for (int i = 0; i < 2000; ++i) {
    std::wstring any, unicode;
    for (int k = static_cast<int>(rng() % 30); k > 0; --k) {
      any += static_cast<wchar_t>(rng() >> (1 + rng() % 31));
      wchar_t c = static_cast<wchar_t>(1 + rng() % 0x10FFFF);
      unicode += c >= 0xD800 && c < 0xE000 ? L'?' : c;
    }
    CKD_WideString a(any.c_str(), static_cast<int>(any.size())), u(unicode.c_str(), static_cast<int>(unicode.size()));
    ASSERT_TRUE(KD_DecodeURI(KD_EncodeURI(a)) == a);
    ASSERT_TRUE(KD_UrlDecode(KD_UrlEncode(u)) == u);
    ASSERT_EQ(Std(KD_UrlEncode(u)), Std(KD_EncodeURI(u)));  // UTF-8 is this locale's encoding
  }
}

TEST(UrlText, OutOfMemory) {
  kdtest::TestDefaultMgr t;
  {
    CKD_WideString text(L"a b \u00E9");
    CKD_ByteString escaped("a%20b");
    t.sys().FailAll(true);
    EXPECT_TRUE(KD_EncodeURI(text).IsEmpty());
    EXPECT_TRUE(KD_UrlEncode(text).IsEmpty());
    EXPECT_TRUE(KD_DecodeURI(escaped).IsEmpty());
    EXPECT_TRUE(KD_UrlDecode(escaped).IsEmpty());
    t.sys().FailAll(false);
    // Every allocation along an encoding failing in turn.
    for (long n = 1; n < 8; ++n) {
      t.sys().FailNth(n);
      CKD_ByteString r = KD_EncodeURI(text);
      EXPECT_TRUE(r.IsEmpty() || Std(r) == "a%20b%20%C3%A9");
    }
    t.sys().Reset();
  }
  EXPECT_EQ(t.live_blocks(), 0u);
}

}  // namespace
