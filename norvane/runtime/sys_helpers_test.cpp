#include "norvane/runtime/sys_helpers.h"

#include <gtest/gtest.h>

#include <climits>
#include <clocale>
#include <cmath>
#include <cstring>
#include <random>
#include <string>

namespace {

// An optional sign, then decimal digits: no white space is skipped, and overflow wraps silently.
TEST(SysHelpers, IntegerParsing) {
  const struct {
    const char* text;
    int value;
  } ints[] = {{"-12abc", -12}, {"+7", 7},   {" 12", 0},   {"+", 0},           {"-", 0},
              {"+-3", 0},      {"0x1f", 0}, {nullptr, 0}, {"4294967297", 1},  {"2147483647", INT_MAX},
              {"-2147483648", INT_MIN},     {"2147483648", INT_MIN}};  // wraps
  for (const auto& c : ints) EXPECT_EQ(KDSYS_atoi(c.text), c.value) << (c.text ? c.text : "null");
  EXPECT_EQ(KDSYS_wtoi(L"-0042x"), -42);
  EXPECT_EQ(KDSYS_wtoi(L"\t5"), 0);
  EXPECT_EQ(KDSYS_atoi64("9223372036854775807"), LLONG_MAX);
  EXPECT_EQ(KDSYS_atoi64("-9223372036854775808"), LLONG_MIN);
  EXPECT_EQ(KDSYS_atoi64("18446744073709551617"), 1);
  EXPECT_EQ(KDSYS_wtoi64(L"123456789012"), 123456789012LL);
  EXPECT_EQ(KDSYS_wtoi64(nullptr), 0);
}

// The radix argument is ignored: the output is always decimal.
TEST(SysHelpers, IntegerPrintingIsAlwaysDecimal) {
  char buf[32];
  wchar_t wbuf[32];
  EXPECT_STREQ(KDSYS_itoa(255, buf, 16), "255");
  EXPECT_STREQ(KDSYS_itoa(INT_MIN, buf, 10), "-2147483648");
  EXPECT_STREQ(KDSYS_i64toa(LLONG_MIN, buf, 16), "-9223372036854775808");
  EXPECT_STREQ(KDSYS_i64tow(-987654321012LL, wbuf, 10), L"-987654321012");
  EXPECT_STREQ(KDSYS_i64tow(0, wbuf, 10), L"0");
  EXPECT_EQ(KDSYS_itoa(1, nullptr, 10), nullptr);

  // Round trip against the C library over random values, 0 and the largest values included.
  std::mt19937_64 rng(20261122);
  for (int i = 0; i < 2000; ++i) {
    long long v = i == 0 ? 0 : i == 1 ? LLONG_MAX : static_cast<long long>(rng());
    ASSERT_EQ(std::string(KDSYS_i64toa(v, buf, 8)), std::to_string(v));
    ASSERT_EQ(KDSYS_atoi64(buf), v);
    int iv = i == 1 ? INT_MAX : static_cast<int>(v);
    ASSERT_EQ(std::string(KDSYS_itoa(iv, buf, 10)), std::to_string(iv));
    ASSERT_EQ(KDSYS_atoi(buf), iv);
  }
}

// Only ASCII letters are mapped or folded; bytes above 0x7F and other wide characters are not.
TEST(SysHelpers, CaseMappingAndComparisonAreAsciiOnly) {
  char s[] = "AbC-\xC4\xE4z";
  EXPECT_STREQ(KDSYS_strlwr(s), "abc-\xC4\xE4z");
  EXPECT_STREQ(KDSYS_strupr(s), "ABC-\xC4\xE4Z");
  wchar_t w[] = L"Hello \u00C4\u00E4 \u03A3";
  EXPECT_STREQ(KDSYS_wcsupr(w), L"HELLO \u00C4\u00E4 \u03A3");
  EXPECT_STREQ(KDSYS_wcslwr(w), L"hello \u00C4\u00E4 \u03A3");
  EXPECT_EQ(KDSYS_strlwr(nullptr), nullptr);

  // The result is the difference of the first folded characters that differ.
  const struct {
    const char *a, *b;
    int result;
  } compared[] = {{"abc", "ABD", -1},  {"A", "a", 0},         {"abc", "ab", 'c'},          {"", "a", -'a'},
                  {"[", "a", '[' - 'a'}, {"Z", "[", 'z' - '['}, {"\xC4", "\xE4", 0xC4 - 0xE4}, {"\x80", "a", 0x80 - 'a'},
                  {nullptr, "a", 0}};
  for (const auto& c : compared) EXPECT_EQ(KDSYS_stricmp(c.a, c.b), c.result) << (c.a ? c.a : "null");
  EXPECT_EQ(KDSYS_strnicmp("HELLO world", "hello WORLD!", 11), 0);
  EXPECT_EQ(KDSYS_strnicmp("HELLO world", "hello WORLD!", 12), -'!');
  EXPECT_EQ(KDSYS_strnicmp("abc", "xyz", 0), 0);
  EXPECT_EQ(KDSYS_wcsicmp(L"StrAsse", L"strasse"), 0);
  EXPECT_EQ(KDSYS_wcsicmp(L"\u00C4", L"\u00E4"), 0xC4 - 0xE4);
  EXPECT_EQ(KDSYS_wcsnicmp(L"abcD", L"ABCe", 3), 0);
  EXPECT_EQ(KDSYS_wcsnicmp(L"abcD", L"ABCe", 4), 'd' - 'e');
}

// Unlike wcsncpy, no zero padding and no terminator when n is reached.
TEST(SysHelpers, WcsncpyNeverPads) {
  const struct {
    const wchar_t* src;
    size_t n;
    std::wstring result;
  } cases[] = {{L"abc", 2, L"ab####"}, {L"ab", 5, std::wstring(L"ab\0###", 6)}, {L"abc", 0, L"######"}};
  for (const auto& c : cases) {
    wchar_t dst[6];
    std::fill(dst, dst + 6, L'#');
    EXPECT_EQ(KDSYS_wcsncpy(dst, c.src, c.n), dst);
    EXPECT_EQ(std::wstring(dst, 6), c.result) << c.n;
  }
}

// An optional sign, digits and a fraction, accumulated in single precision: no exponent, no
// white space, no infinity. used counts the characters taken, the sign included.
TEST(SysHelpers, WcstofHasNoExponent) {
  const struct {
    const wchar_t* text;
    int len;
    float value;
    int used;
  } cases[] = {{L"1.5e3", -1, 1.5f, 3}, {L"-.5", -1, -0.5f, 3},  {L"+12.25xyz", -1, 12.25f, 6}, {L"12345", 3, 123.0f, 3},
               {L" 1", -1, 0.0f, 0},    {L"+", -1, 0.0f, 1},      {L"7.", -1, 7.0f, 2},           {L"inf", -1, 0.0f, 0},
               {L"-0", -1, -0.0f, 2},   {L"42", 0, 0.0f, 99},     // a length of 0 leaves used alone
               {L"16777217", -1, 16777216.0f, 8}};                // 2^24 + 1 is not a float
  for (const auto& c : cases) {
    int used = 99;
    EXPECT_EQ(KDSYS_wcstof(c.text, c.len, &used), c.value) << c.text;
    EXPECT_EQ(used, c.used) << c.text;
  }
  EXPECT_TRUE(std::signbit(KDSYS_wcstof(L"-0", -1, nullptr)));  // "-" flips the sign bit
  // The fraction adds digit * 0.1^k with the scale itself kept in single precision.
  float expected = 0.0f, scale = 0.1f;
  for (int k = 0; k < 9; ++k, scale *= 0.1f) expected += 3.0f * scale;
  EXPECT_EQ(KDSYS_wcstof(L"0.333333333", -1, nullptr), expected);
}

// Halves round away from zero, in single precision; NaN gives 0 and the ends saturate.
TEST(SysHelpers, RoundIsSinglePrecisionHalfAwayFromZero) {
  const struct {
    float value;
    int rounded;
  } cases[] = {{0.5f, 1},           {-0.5f, -1},           {2.5f, 3},          {-2.5f, -3},
               {1.49f, 1},          {-1.49f, -1},          {NAN, 0},           {INFINITY, INT_MAX},
               {-INFINITY, INT_MIN}, {2147483648.0f, INT_MAX}, {-2147483648.0f, INT_MIN},
               {0.49999997f, 1},                                           // + 0.5 is 1.0 in single precision
               {2147483520.0f, 2147483520}, {-2147483520.0f, -2147483520}};  // the largest float below 2^31
  for (const auto& c : cases) EXPECT_EQ(KDSYS_round(c.value), c.rounded) << c.value;
}

TEST(SysHelpers, MemoryAndMathematics) {
  char a[8] = "abcdefg", b[8] = "xxxxxxx";
  // memcpy32 copies only with both pointers and a non-zero size, and returns dst in every case.
  EXPECT_EQ(KDSYS_memcpy32(b, nullptr, 3), b);
  EXPECT_EQ(KDSYS_memcpy32(nullptr, a, 3), nullptr);
  EXPECT_EQ(KDSYS_memcpy32(b, a, 0), b);
  EXPECT_STREQ(b, "xxxxxxx");
  EXPECT_EQ(KDSYS_memcpy32(b, a, 3), b);
  EXPECT_STREQ(b, "abcxxxx");
  EXPECT_EQ(KDSYS_memcmp32(a, b, 3), 0);
  EXPECT_LT(KDSYS_memcmp32(a, b, 4), 0);
  EXPECT_EQ(KDSYS_memcmp32(nullptr, nullptr, 0), 0);
  KDSYS_memset8(b, 'q', 2);
  KDSYS_memset32(b + 5, 0x141, 1);  // the fill value is a byte
  EXPECT_STREQ(b, "qqcxxAx");
  KDSYS_memmove32(a + 1, a, 5);
  EXPECT_STREQ(a, "aabcdeg");

  EXPECT_FLOAT_EQ(KDSYS_logb(2.0f, 8.0f), 3.0f);
  EXPECT_FLOAT_EQ(KDSYS_logb(10.0f, 0.001f), -3.0f);
  EXPECT_FLOAT_EQ(KDSYS_tan(0.7853982f), 1.0f);
}

TEST(SysHelpers, PlatformForwards) {
  char buf[16] = "unchanged";
  EXPECT_EQ(KDSYS_GetFullPathName("a/b", 3, buf), 4u);  // too small: the size needed
  EXPECT_STREQ(buf, "unchanged");
  EXPECT_EQ(KDSYS_GetFullPathName("a/b", 4, buf), 3u);
  EXPECT_STREQ(buf, "a/b");
  EXPECT_EQ(KDSYS_GetFullPathName("../x", 100, nullptr), 5u);
  EXPECT_EQ(KDSYS_GetModuleFileName(nullptr, buf, sizeof buf), 0xFFFFFFFFu);
  EXPECT_STREQ(buf, "a/b");

  // Conversions follow the current locale; "C" is in force in a test program.
  ASSERT_NE(setlocale(LC_CTYPE, "C"), nullptr);
  EXPECT_EQ(KDSYS_WideCharToMultiByte(1252, 0, L"hello", 2, nullptr, 0), 5);  // length needed
  EXPECT_EQ(KDSYS_WideCharToMultiByte(0, 0, L"hello", -1, buf, sizeof buf), 5);
  EXPECT_STREQ(buf, "hello");
  EXPECT_EQ(KDSYS_WideCharToMultiByte(0, 0, L"\u4E2D", -1, buf, sizeof buf), 0);  // unconvertible
  wchar_t wbuf[8];
  EXPECT_EQ(KDSYS_MultiByteToWideChar(936, 0, "abc", 1, wbuf, 8), 3);
  EXPECT_STREQ(wbuf, L"abc");
  EXPECT_EQ(KDSYS_MultiByteToWideChar(0, 0, nullptr, 0, wbuf, 8), 0);

  auto format = [](char* out, size_t size, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    int n = _vsnprintf(out, size, fmt, args);
    va_end(args);
    return n;
  };
  EXPECT_EQ(format(buf, sizeof buf, "%d-%s", 42, "x"), 4);
  EXPECT_STREQ(buf, "42-x");
  EXPECT_EQ(format(buf, 4, "%s", "truncated"), 9);
  EXPECT_STREQ(buf, "tru");
}

}  // namespace
