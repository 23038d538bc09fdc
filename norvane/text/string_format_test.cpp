// Format and FormatV of both string kinds: the size estimate, the output against the C library's
// own printing, and the locale each form prints under.
#include <gtest/gtest.h>
#include <locale.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <random>
#include <string>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#include <sanitizer/lsan_interface.h>
#define NORVANE_TEST_LSAN 1
#endif
#endif

#include "norvane/text/string_format_internal.h"
#include "norvane/text/string_test_support.h"

// Some cases feed the format deliberately odd prefixes, widths and null strings.
#pragma GCC diagnostic ignored "-Wformat"
#pragma GCC diagnostic ignored "-Wformat-extra-args"
#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wformat-overflow"
#endif

namespace {

using kdtest::Rec;
using kdtest::Std;
using kdtext::FormatStatus;

class StringFormat : public kdtest::ManagedTest {};

FormatStatus g_status;

template <class C>
long long Estimate(const C* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  long long n = kdtext::EstimateFormatLength(fmt, args, &g_status);
  va_end(args);
  return n;
}

template <class... Args>
FormatStatus StatusOf(const char* fmt, Args... args) {
  Estimate(fmt, args...);
  return g_status;
}

TEST_F(StringFormat, EstimateRules) {
  // Literals add the rest of the format from where they stand.
  EXPECT_EQ(Estimate("abc"), 3 + 2 + 1);
  EXPECT_EQ(Estimate(""), 0);
  EXPECT_EQ(Estimate("a%%b"), 4 + 3 + 1);
  EXPECT_EQ(Estimate("x%d", 5), 3 + 32);
  EXPECT_EQ(Estimate("%5.40d", 5), 45);
  EXPECT_EQ(Estimate("%#x", 5), 2 + 32);
  EXPECT_EQ(Estimate("%c%lc", 'a', L'b'), 4);
  EXPECT_EQ(Estimate("%p", nullptr), 32);
  // Strings: at least 1, 6 for null, cut to a precision, widened to a width.
  EXPECT_EQ(Estimate("%s", "hello"), 5);
  EXPECT_EQ(Estimate("%s", ""), 1);
  EXPECT_EQ(Estimate("%s", static_cast<const char*>(nullptr)), 6);
  EXPECT_EQ(Estimate("%.2s", "hello"), 2);
  EXPECT_EQ(Estimate("%.0s", "hello"), 0);
  EXPECT_EQ(Estimate("%10s", "hi"), 10);
  EXPECT_EQ(Estimate("%*s", -7, "ab"), 7);          // a negative width counts as its magnitude
  EXPECT_EQ(Estimate("%.*s", -1, "hello"), 5);      // a negative precision counts as none
  const char unterminated[3] = {'a', 'b', 'c'};
  EXPECT_EQ(Estimate("%.3s", unterminated), 3);     // never read past the precision
  EXPECT_EQ(Estimate("%ls%S%hs", L"wide", L"wide!", "x"), 4 + 5 + 1);
  // Floating point.
  EXPECT_EQ(Estimate("%e", 1.0), 128);
  EXPECT_EQ(Estimate("%200.10e", 1.0), 210);
  EXPECT_EQ(Estimate("%f", 1.5), 8);                 // "1.500000"
  EXPECT_EQ(Estimate("%.2f", 1.5), 10);              // printed with precision 2 + 6
  EXPECT_EQ(Estimate("%10f", 1.5), 10);
  EXPECT_EQ(Estimate("%f", 1e300), 308);             // longer than the scratch area
  EXPECT_EQ(Estimate("%60.50f", 1.5), 110 + 128);
  EXPECT_EQ(Estimate("%Lf", 2.5L), 8);
  // Prefixes keep the arguments in step.
  EXPECT_EQ(Estimate("%I64d%s", 1LL, "abc"), 32 + 3);
  EXPECT_EQ(Estimate("%zu %s", static_cast<size_t>(1), "abcd"), 32 + 3 + 4);
  EXPECT_EQ(Estimate("%lld%hhd%s", 1LL, 1, "ab"), 64 + 2);
  EXPECT_EQ(Estimate("%Fs", "abc"), 3);              // 'F' before a conversion is skipped...
  EXPECT_EQ(Estimate("%F", 1.5), 8);                 // ...and alone it is the C library's 'F'
  EXPECT_EQ(Estimate("%Nd", 1), 32);
  int written = 0;
  EXPECT_EQ(Estimate("%n", &written), 0);
  EXPECT_EQ(Estimate("%yz"), 1);                     // an unknown conversion adds nothing
  EXPECT_EQ(Estimate("%"), 0);
  // Limits.
  EXPECT_EQ(Estimate("%131072d", 1), 131072);
  EXPECT_EQ(g_status, kdtext::kFormatOk);  // one more is bad: see BufferSizeAndSpecialResults
  EXPECT_EQ(StatusOf("%99999999999999999999d", 1), kdtext::kFormatBadWidth);
  EXPECT_EQ(StatusOf("%.*d", 131073, 1), kdtext::kFormatBadPrecision);
  // The wide walk measures its own literals the same way and byte or wide arguments as told.
  EXPECT_EQ(Estimate(L"ab%s", "xyz"), 4 + 3 + 3);
  EXPECT_EQ(Estimate(L"%ls|%f", L"wide", 1.5), 4 + 3 + 8);
}

template <class... Args>
std::string Printf(const char* fmt, Args... args) {
  char buf[4096];
  snprintf(buf, sizeof(buf), fmt, args...);
  return buf;
}

template <class... Args>
std::wstring WPrintf(const wchar_t* fmt, Args... args) {
  wchar_t buf[4096];
  swprintf(buf, 4096, fmt, args...);
  return buf;
}

TEST_F(StringFormat, OutputMatchesTheCLibrary) {
  CKD_ByteString s;
  CKD_WideString w;
#define EXPECT_BOTH(fmt, ...)                                    \
  s.Format(fmt, __VA_ARGS__);                                    \
  EXPECT_EQ(Std(s), Printf(fmt, __VA_ARGS__));                   \
  w.Format(L"" fmt, __VA_ARGS__);                                \
  EXPECT_EQ(Std(w), WPrintf(L"" fmt, __VA_ARGS__))
  EXPECT_BOTH("%d %s %08x", -42, "str", 0xBEEFu);
  EXPECT_BOTH("%5.2f|%-6s|%c", 3.14159, "ab", 'z');
  EXPECT_BOTH("%lld %llu", LLONG_MIN, ULLONG_MAX);
  EXPECT_BOTH("%e %g %a", 12345.678, 0.0001, 1.0);
  EXPECT_BOTH("%%%s%%", "x");
  EXPECT_BOTH("[%10.4s] [%-*d]", "abcdefgh", 6, 42);
  EXPECT_BOTH("%+d % d %#o %#x", 5, 5, 8, 255);
  EXPECT_BOTH("%s", "a somewhat longer literal argument that is measured, not guessed");
  EXPECT_BOTH("%f", 1e300);
#undef EXPECT_BOTH
  w.Format(L"%ls/%S/%s", L"\u00E9t\u00E9", L"x", "byte");
  EXPECT_EQ(Std(w), L"\u00E9t\u00E9/x/byte");

  std::mt19937 rng(99);
  for (int i = 0; i < 200; ++i) {
    int a = static_cast<int>(rng());
    unsigned b = rng();
    std::string text(rng() % 50, static_cast<char>('a' + rng() % 26));
    s.Format("%d %s %08x", a, text.c_str(), b);
    ASSERT_EQ(Std(s), Printf("%d %s %08x", a, text.c_str(), b));
  }
}

TEST_F(StringFormat, BufferSizeAndSpecialResults) {
  CKD_ByteString s;
  s.Format("%s", static_cast<const char*>(nullptr));
  EXPECT_EQ(sys.requests().back(), 6u + 32 + 25);  // a null string argument is sized as 6
  EXPECT_EQ(Std(s), "(null)");
  s.Format("%*d", 131073, 1);
  EXPECT_EQ(Std(s), "Bad width");
  s.Format("%.131073d", 1);
  EXPECT_EQ(Std(s), "Bad precision");
  s.Format("%s", "");
  EXPECT_EQ(Rec(s), nullptr);

  CKD_WideString w;
  w.Format(L"%s", "abc");
  EXPECT_EQ(sys.requests().back(), 4u * 3 + 28);  // the wide form adds no 32
  EXPECT_EQ(Std(w), L"abc");
  w.Format(L"%*d", 131073, 1);
  EXPECT_EQ(Std(w), L"Bad width");
  w.Format(L"%.*d", 131073, 1);
  EXPECT_EQ(Std(w), L"Bad precision");
  w.Format(L"");
  EXPECT_EQ(Rec(w), nullptr);

  // A string may print its own text: sole-owned with room to spare (printed in place, its text
  // would be zeroed first), sole-owned and too small (its record would be freed first), shared
  // (formatted into a record of its own).
  for (int state = 0; state < 3; ++state) {
    CKD_ByteString own("hello"), other;
    CKD_WideString wown(L"hello"), wother;
    if (state == 0) {
      own.Reserve(200);
      wown.Reserve(200);
    } else if (state == 2) {
      other = own;
      wother = wown;
    }
    own.Format("%s %s %.2s", own.c_str(), "world", own.c_str() + 3);
    EXPECT_EQ(Std(own), "hello world lo") << state;
    wown.Format(L"%ls %s!", wown.c_str(), "world");
    EXPECT_EQ(Std(wown), L"hello world!") << state;
    EXPECT_TRUE(state != 2 || (Std(other) == "hello" && Std(wother) == L"hello"));
  }

  sys.FailNth(1);
  s.Format("%d", 1);
  EXPECT_EQ(Rec(s), nullptr);
  sys.FailNth(1);
  w.Format(L"%d", 1);
  EXPECT_EQ(Rec(w), nullptr);
}

// A locale whose decimal separator is ',': an installed one, or one built with localedef into a
// temporary folder (LOCPATH). Null when neither is possible.
locale_t CommaLocale(std::string* folder) {
#if defined(NORVANE_TEST_LSAN)
  // The C library keeps the LOCPATH search list it builds for good, which is not our leak.
  __lsan::ScopedDisabler ignore_locale_loading;
#endif
  for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8"}) {
    if (locale_t l = newlocale(LC_ALL_MASK, name, static_cast<locale_t>(nullptr))) return l;
  }
  char dir[] = "/tmp/norvane_locale_XXXXXX";
  if (!mkdtemp(dir)) return nullptr;
  *folder = dir;
  std::string cmd = "localedef -i de_DE -f UTF-8 " + *folder + "/de_DE.UTF-8 >/dev/null 2>&1";
  if (system(cmd.c_str()) != 0) return nullptr;
  setenv("LOCPATH", folder->c_str(), 1);
  return newlocale(LC_ALL_MASK, "de_DE.UTF-8", static_cast<locale_t>(nullptr));
}

TEST_F(StringFormat, ByteFormUsesTheCLocaleWideFormTheThreads) {
  std::string folder;
  locale_t comma = CommaLocale(&folder);
  if (!folder.empty()) {
    std::string cmd = "rm -rf " + folder;
    EXPECT_EQ(system(cmd.c_str()), 0);
  }
  if (!comma) GTEST_SKIP() << "no locale with a decimal comma can be had here";
  locale_t previous = uselocale(comma);
  EXPECT_EQ(Printf("%.1f", 2.5), "2,5");

  CKD_ByteString s;
  s.Format("%.1f|%g", 2.5, 0.25);
  EXPECT_EQ(Std(s), "2.5|0.25");
  EXPECT_EQ(uselocale(static_cast<locale_t>(nullptr)), comma);  // the thread's locale is back

  CKD_WideString w;
  w.Format(L"%.1f", 2.5);
  EXPECT_EQ(Std(w), L"2,5");

  uselocale(previous);
  freelocale(comma);
}

}  // namespace
