#include "norvane/runtime/sys_helpers.h"

#include <gtest/gtest.h>

#include <climits>
#include <clocale>
#include <cmath>
#include <cstring>
#include <random>
#include <string>

namespace {

TEST(SysHelpers, IntegerParsing) {
  EXPECT_EQ(KDSYS_atoi("-12abc"), -12);
  EXPECT_EQ(KDSYS_atoi("+7"), 7);
  EXPECT_EQ(KDSYS_atoi(" 12"), 0);  // no white space is skipped
  EXPECT_EQ(KDSYS_atoi("+"), 0);
  EXPECT_EQ(KDSYS_atoi("-"), 0);
  EXPECT_EQ(KDSYS_atoi("+-3"), 0);
  EXPECT_EQ(KDSYS_atoi("0x1f"), 0);
  EXPECT_EQ(KDSYS_atoi(nullptr), 0);
  EXPECT_EQ(KDSYS_atoi("2147483647"), INT_MAX);
  EXPECT_EQ(KDSYS_atoi("-2147483648"), INT_MIN);
  EXPECT_EQ(KDSYS_atoi("2147483648"), INT_MIN);  // wraps silently
  EXPECT_EQ(KDSYS_atoi("4294967297"), 1);
  EXPECT_EQ(KDSYS_wtoi(L"-0042x"), -42);
  EXPECT_EQ(KDSYS_wtoi(L"\t5"), 0);
  EXPECT_EQ(KDSYS_atoi64("9223372036854775807"), LLONG_MAX);
  EXPECT_EQ(KDSYS_atoi64("-9223372036854775808"), LLONG_MIN);
  EXPECT_EQ(KDSYS_atoi64("18446744073709551617"), 1);
  EXPECT_EQ(KDSYS_wtoi64(L"123456789012"), 123456789012LL);
  EXPECT_EQ(KDSYS_wtoi64(nullptr), 0);
}

TEST(SysHelpers, IntegerPrintingIsAlwaysDecimal) {
  char buf[32];
  wchar_t wbuf[32];
  EXPECT_STREQ(KDSYS_itoa(255, buf, 16), "255");  // the radix is ignored
  EXPECT_STREQ(KDSYS_itoa(0, buf, 10), "0");
  EXPECT_STREQ(KDSYS_itoa(-1, buf, 2), "-1");
  EXPECT_STREQ(KDSYS_itoa(INT_MIN, buf, 10), "-2147483648");
  EXPECT_STREQ(KDSYS_itoa(INT_MAX, buf, 10), "2147483647");
  EXPECT_STREQ(KDSYS_i64toa(LLONG_MIN, buf, 16), "-9223372036854775808");
  EXPECT_STREQ(KDSYS_i64toa(1000000000000LL, buf, 8), "1000000000000");
  EXPECT_STREQ(KDSYS_i64tow(-987654321012LL, wbuf, 10), L"-987654321012");
  EXPECT_STREQ(KDSYS_i64tow(0, wbuf, 10), L"0");
  EXPECT_EQ(KDSYS_itoa(1, nullptr, 10), nullptr);

  // Round trip against the C library over random values.
  std::mt19937_64 rng(20261122);
  for (int i = 0; i < 2000; ++i) {
    long long v = static_cast<long long>(rng());
    ASSERT_EQ(std::string(KDSYS_i64toa(v, buf, 10)), std::to_string(v));
    ASSERT_EQ(KDSYS_atoi64(buf), v);
    int iv = static_cast<int>(v);
    ASSERT_EQ(std::string(KDSYS_itoa(iv, buf, 10)), std::to_string(iv));
    ASSERT_EQ(KDSYS_atoi(buf), iv);
  }
}

TEST(SysHelpers, CaseMappingAndComparisonAreAsciiOnly) {
  char s[] = "AbC-\xC4\xE4z";
  EXPECT_STREQ(KDSYS_strlwr(s), "abc-\xC4\xE4z");
  EXPECT_STREQ(KDSYS_strupr(s), "ABC-\xC4\xE4Z");
  wchar_t w[] = L"Hello \u00C4\u00E4 \u03A3";
  EXPECT_STREQ(KDSYS_wcsupr(w), L"HELLO \u00C4\u00E4 \u03A3");
  EXPECT_STREQ(KDSYS_wcslwr(w), L"hello \u00C4\u00E4 \u03A3");
  EXPECT_EQ(KDSYS_strlwr(nullptr), nullptr);

  EXPECT_EQ(KDSYS_stricmp("abc", "ABD"), -1);
  EXPECT_EQ(KDSYS_stricmp("A", "a"), 0);
  EXPECT_EQ(KDSYS_stricmp("abc", "ab"), 'c');
  EXPECT_EQ(KDSYS_stricmp("", "a"), -'a');
  EXPECT_EQ(KDSYS_stricmp("[", "a"), '[' - 'a');  // '[' folds to itself
  EXPECT_EQ(KDSYS_stricmp("Z", "["), 'z' - '[');
  EXPECT_EQ(KDSYS_stricmp("\xC4", "\xE4"), 0xC4 - 0xE4);  // bytes above 0x7F are not folded
  EXPECT_GT(KDSYS_stricmp("\x80", "a"), 0);
  EXPECT_EQ(KDSYS_strnicmp("HELLO world", "hello WORLD!", 11), 0);
  EXPECT_LT(KDSYS_strnicmp("HELLO world", "hello WORLD!", 12), 0);
  EXPECT_EQ(KDSYS_strnicmp("abc", "xyz", 0), 0);
  EXPECT_EQ(KDSYS_wcsicmp(L"StrAsse", L"strasse"), 0);
  EXPECT_EQ(KDSYS_wcsicmp(L"\u00C4", L"\u00E4"), 0xC4 - 0xE4);
  EXPECT_EQ(KDSYS_wcsnicmp(L"abcD", L"ABCe", 3), 0);
  EXPECT_EQ(KDSYS_wcsnicmp(L"abcD", L"ABCe", 4), 'd' - 'e');
  EXPECT_EQ(KDSYS_stricmp(nullptr, "a"), 0);
}

TEST(SysHelpers, WcsncpyNeverPads) {
  wchar_t dst[6];
  for (wchar_t& c : dst) c = L'#';
  KDSYS_wcsncpy(dst, L"abc", 2);
  EXPECT_EQ(std::wstring(dst, 6), L"ab####");  // no terminator when n is reached
  for (wchar_t& c : dst) c = L'#';
  KDSYS_wcsncpy(dst, L"ab", 5);
  EXPECT_EQ(std::wstring(dst, 6), std::wstring(L"ab\0###", 6));  // no zero padding
  for (wchar_t& c : dst) c = L'#';
  EXPECT_EQ(KDSYS_wcsncpy(dst, L"abc", 0), dst);
  EXPECT_EQ(dst[0], L'#');
}

TEST(SysHelpers, WcstofHasNoExponent) {
  int used = -1;
  EXPECT_EQ(KDSYS_wcstof(L"1.5e3", -1, &used), 1.5f);
  EXPECT_EQ(used, 3);
  EXPECT_EQ(KDSYS_wcstof(L"-.5", -1, &used), -0.5f);
  EXPECT_EQ(used, 3);
  float negative_zero = KDSYS_wcstof(L"-0", -1, &used);
  EXPECT_EQ(negative_zero, 0.0f);
  EXPECT_TRUE(std::signbit(negative_zero));
  EXPECT_EQ(KDSYS_wcstof(L"+12.25xyz", -1, &used), 12.25f);
  EXPECT_EQ(used, 6);
  EXPECT_EQ(KDSYS_wcstof(L"12345", 3, &used), 123.0f);  // stops at len
  EXPECT_EQ(used, 3);
  EXPECT_EQ(KDSYS_wcstof(L" 1", -1, &used), 0.0f);
  EXPECT_EQ(used, 0);
  EXPECT_EQ(KDSYS_wcstof(L"+", -1, &used), 0.0f);
  EXPECT_EQ(used, 1);
  EXPECT_EQ(KDSYS_wcstof(L"7.", -1, &used), 7.0f);
  EXPECT_EQ(used, 2);
  EXPECT_EQ(KDSYS_wcstof(L"inf", -1, &used), 0.0f);
  EXPECT_EQ(KDSYS_wcstof(L"2.5", -1, nullptr), 2.5f);
  used = 99;
  EXPECT_EQ(KDSYS_wcstof(L"42", 0, &used), 0.0f);  // len 0 leaves used alone
  EXPECT_EQ(used, 99);

  // Accumulation is single precision, digit by digit: 16777217 is not a float, and the
  // fraction adds digit * 0.1^k with the scale itself kept in single precision.
  EXPECT_EQ(KDSYS_wcstof(L"16777217", -1, nullptr), 16777216.0f);
  float expected = 0.0f, scale = 0.1f;
  for (int d : {3, 3, 3, 3, 3, 3, 3, 3, 3}) {
    expected += static_cast<float>(d) * scale;
    scale *= 0.1f;
  }
  EXPECT_EQ(KDSYS_wcstof(L"0.333333333", -1, nullptr), expected);
}

TEST(SysHelpers, RoundIsSinglePrecisionHalfAwayFromZero) {
  EXPECT_EQ(KDSYS_round(0.5f), 1);
  EXPECT_EQ(KDSYS_round(-0.5f), -1);
  EXPECT_EQ(KDSYS_round(2.5f), 3);
  EXPECT_EQ(KDSYS_round(-2.5f), -3);
  EXPECT_EQ(KDSYS_round(1.49f), 1);
  EXPECT_EQ(KDSYS_round(-1.49f), -1);
  // 0.49999997 + 0.5 rounds up to 1.0 in single precision.
  EXPECT_EQ(KDSYS_round(0.49999997f), 1);
  EXPECT_EQ(KDSYS_round(NAN), 0);
  EXPECT_EQ(KDSYS_round(INFINITY), INT_MAX);
  EXPECT_EQ(KDSYS_round(-INFINITY), INT_MIN);
  EXPECT_EQ(KDSYS_round(2147483648.0f), INT_MAX);
  EXPECT_EQ(KDSYS_round(-2147483648.0f), INT_MIN);
  EXPECT_EQ(KDSYS_round(2147483520.0f), 2147483520);  // the largest float below 2^31
  EXPECT_EQ(KDSYS_round(-2147483520.0f), -2147483520);
  // The priority scale's reverse mapping.
  const int platform[] = {1, 25, 50, 75, 99}, scale[] = {-2, -1, 0, 1, 2};
  for (int i = 0; i < 5; ++i) EXPECT_EQ(KDSYS_round((static_cast<float>(platform[i]) - 50.0f) / 25.0f), scale[i]);
}

TEST(SysHelpers, MemoryAndMathematics) {
  char a[8] = "abcdefg", b[8] = "xxxxxxx";
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
