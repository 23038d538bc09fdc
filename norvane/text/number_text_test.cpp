#include "norvane/text/number_text.h"

#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include "norvane/text/string_l.h"
#include "norvane/text/string_test_support.h"
#include "norvane/text/text_buf.h"

namespace {

uint32_t Bits(float f) {
  uint32_t b;
  memcpy(&b, &f, 4);
  return b;
}

// A random finite float, every bit pattern equally likely.
float RandomFloat(std::mt19937& rng) {
  for (;;) {
    uint32_t b = static_cast<uint32_t>(rng());
    float f;
    memcpy(&f, &b, 4);
    if (std::isfinite(f)) return f;
  }
}

// The formatters' texts, checking the lengths they return.
enum Formatter { kFtoaS, kFtoa, kFtoaEx };
std::string Format(Formatter which, float v, int precision = 0) {
  char buf[KD_FTOA_BUFFER_SIZE];
  int n = which == kFtoaS  ? KD_ftoa_s(v, buf, precision)
          : which == kFtoa ? KD_ftoa(v, buf, precision)
                           : KD_ftoa_ex(v, buf);
  EXPECT_EQ(n, static_cast<int>(strlen(buf)));
  return buf;
}

std::string Printf(const char* format, int precision, float v) {
  char buf[128];
  snprintf(buf, sizeof buf, format, precision, static_cast<double>(v));
  return buf;
}

TEST(NumberParse, Atof) {
  struct Case {
    const char* text;
    float expected;
  };
  const Case cases[] = {
      {"-3.25", -3.25f}, {"--5", -5.0f}, {"-+5", -5.0f}, {"+", 0.0f}, {"+-+", 0.0f}, {"", 0.0f}, {".5", 0.5f},
      {"1a", 59.0f},                                    // no digit test: 'a' is worth 49
      {"1e3", 633.0f},                                  // no exponent
      {"x1", 721.0f},                                   // a first character that is no sign is a digit
      {"0.5.5", 5 * 0.1f + -2 * 0.01f + 5 * 0.001f},    // '.' is worth -2
      {"0.00000000e3", 53 * 1e-9f + 3 * 1e-10f},        // eleven characters from the point: accumulated
      {"1.0000000000e3", 1000.0f},                      // twelve: strtof, exponent and all
      {"--1.5000000000e1", -15.0f},                     // strtof sees the text after the signs
  };
  for (const Case& c : cases) EXPECT_EQ(KD_atof(c.text), c.expected) << c.text;
  EXPECT_TRUE(std::signbit(KD_atof("-0")));
  // Only the view's bytes are read, on both paths.
  EXPECT_EQ(KD_atof(CKD_ByteStringC("1.25999", 4)), 1.25f);
  EXPECT_EQ(KD_atof(CKD_ByteStringC("0.1234567890129999", 14)), strtof("0.123456789012", nullptr));
  EXPECT_EQ(KD_atof(("0." + std::string(300, '0') + "1e300").c_str()), 0.1f);

  // Well-formed decimals against strtof: within the single-precision accumulation (up to seven
  // integer digits are exact; each fraction term and addition may cost an ulp), and exactly equal
  // with twelve or more characters from the point.
  std::mt19937 rng(15);
  for (int i = 0; i < 20000; ++i) {
    std::string text = rng() % 2 ? "-" : "";
    const int whole = static_cast<int>(rng() % 8), fraction = static_cast<int>(rng() % 11);
    for (int k = 0; k < whole; ++k) text += static_cast<char>('0' + rng() % 10);
    text += '.';
    for (int k = 0; k < fraction; ++k) text += static_cast<char>('0' + rng() % 10);
    const float exact = strtof(text.c_str(), nullptr);
    const float ulp = std::nextafter(std::fabs(exact), INFINITY) - std::fabs(exact);
    ASSERT_LE(std::fabs(KD_atof(text.c_str()) - exact), (2 * fraction + 1) * ulp) << text;
    const size_t tail = 12 + rng() % 10;
    while (text.size() - text.find('.') < tail) text += static_cast<char>('0' + rng() % 10);
    ASSERT_EQ(Bits(KD_atof(text.c_str())), Bits(strtof(text.c_str(), nullptr))) << text;
  }
}

TEST(NumberParse, WtofAndStrtof) {
  EXPECT_EQ(KD_wtof(L"-1.5", -1), -1.5f);
  EXPECT_EQ(KD_wtof(L"7", 0), 0.0f);
  EXPECT_EQ(KD_wtof(nullptr, 5), 0.0f);
  EXPECT_EQ(KD_wtof(L"1.5", 2), 1.0f);
  EXPECT_EQ(KD_wtof(L"--5", -1), 25.0f);  // one sign only: '-' is worth -3, -3 * 10 + 5, negated
  EXPECT_EQ(KD_wtof(L"4294967296", -1), 0.0f);  // the integer part wraps in 32 bits
  EXPECT_EQ(KD_wtof(L"2147483648", -1), -2147483648.0f);
  EXPECT_TRUE(std::signbit(KD_wtof(L"-0", -1)));
  float fraction = 0.0f, scale = 0.1f;  // every fraction digit counts
  for (int d = 1; d <= 19; ++d, scale *= 0.1f) fraction += static_cast<float>(d % 10) * scale;
  EXPECT_EQ(KD_wtof(L"0.1234567890123456789", -1), fraction);
  EXPECT_EQ(CKD_WideString(L"-12.25").GetFloat(), -12.25f);
  EXPECT_EQ(CKD_WideString().GetFloat(), 0.0f);
  CKD_WideStringL l;
  EXPECT_EQ(l.GetFloat(), 0.0f);
  l.Set(L"3.5", nullptr);
  EXPECT_EQ(l.GetFloat(), 3.5f);
  l.Empty(nullptr);

  int used = -1;
  EXPECT_EQ(KDSYS_strtof("3.25abc", 3, &used), 3.2f);
  EXPECT_EQ(used, 3);
  EXPECT_TRUE(std::signbit(KDSYS_strtof("-0", -1, nullptr)));
  used = -1;
  EXPECT_EQ(KDSYS_strtof("5", 0, &used) + KDSYS_strtof(nullptr, 3, &used), 0.0f);
  EXPECT_EQ(used, -1);
  if (kdtest::CtypeLocale utf8("C.UTF-8"); utf8.ok()) {
    EXPECT_EQ(KDSYS_strtof("7\xC3\xA9", -1, &used), 7.0f);
    EXPECT_EQ(used, 1);
    used = -1;
    EXPECT_EQ(KDSYS_strtof("7\xFF", -1, &used), 0.0f);  // not text in the locale
    EXPECT_EQ(used, -1);
  }
}

TEST(NumberParse, AtonumAndAtofix32) {
  struct Num {
    const char* text;
    long long value8, value4;  // stored with size 8, and with size 4
  };
  const Num nums[] = {
      {"123", 123, 123}, {"12x", 12, 12}, {"-5", -5, -5}, {"+", 0, 0}, {"", 0, 0}, {"4294967297", 4294967297LL, 1},
      {"9223372036854775807", 9223372036854775807LL, -1}, {"9223372036854775808", 0, 0},  // turns negative: 0
  };
  for (const Num& c : nums) {
    bool isInteger = false;
    unsigned char out[16];
    memset(out, 0xAA, sizeof out);
    KD_atonum(c.text, isInteger, out + 1, 8);  // unaligned on purpose
    KD_atonum(c.text, isInteger, out + 10, 4);
    long long v8;
    int v4;
    memcpy(&v8, out + 1, 8);
    memcpy(&v4, out + 10, 4);
    EXPECT_TRUE(isInteger);
    EXPECT_EQ(v8, c.value8) << c.text;
    EXPECT_EQ(v4, c.value4) << c.text;
    EXPECT_EQ(out[14], 0xAA);
  }
  bool isInteger = true;
  float f = 0;
  KD_atonum("--2.5", isInteger, &f, 8);
  EXPECT_FALSE(isInteger);
  EXPECT_EQ(f, -2.5f);
  KD_atonum("7", isInteger, nullptr, 8);
  EXPECT_TRUE(isInteger);

  struct Fix {
    const char* text;
    int integer;
    unsigned fraction;
  };
  const Fix fixes[] = {
      {"-1.5", -2, 0x7FFFFFFEu}, {"1.5", 1, 0x80000002u},  // .5 weighs 0x80000002
      {"-0.5", -1, 0x7FFFFFFEu}, {"-7", -7, 0}, {"", 0, 0}, {"-", 0, 0}, {"12a.5", 12, 0},
      {"2147483647", 2147483647, 0},
      {"2147483648.5", 0xFFFFFF, 0}, {"-2147483648", -0xFFFFFF, 0},
      {"9999999999", 1410065407, 0},  // wraps past the sign: unnoticed
      {"0.9999999999", 0, 4294967292u},  // nine digits at most
  };
  for (const Fix& c : fixes) {
    int integer = 99;
    unsigned fraction = 99;
    KD_atofix32(c.text, integer, fraction);
    EXPECT_EQ(integer, c.integer) << c.text;
    EXPECT_EQ(fraction, c.fraction) << c.text;
  }
  // Fractions against weights computed here, and a negative text means the same value.
  std::mt19937 rng(32);
  for (int i = 0; i < 2000; ++i) {
    std::string text = std::to_string(rng() % 100000) + ".";
    double weighed = 0;
    for (int k = 1; k <= 9; ++k) {
      text += static_cast<char>('0' + rng() % 10);
      weighed += (text.back() - '0') * std::round(4294967296.0 / std::pow(10.0, k));
    }
    int integer;
    unsigned fraction;
    KD_atofix32(text.c_str(), integer, fraction);
    ASSERT_EQ(fraction, static_cast<unsigned>(weighed)) << text;
    const double value = integer * 4294967296.0 + fraction;
    KD_atofix32(("-" + text + "5").c_str(), integer, fraction);
    ASSERT_EQ(integer * 4294967296.0 + fraction, -value) << text;
  }
}

TEST(NumberFormat, Texts) {
  struct Case {
    float value;
    int precision;
    const char *ftoa_s, *ftoa;
  };
  const Case cases[] = {
      {0.0f, 0, "0", "0"}, {-0.0f, 3, "0", "0"}, {-1.5f, 0, "-1.5", "-1.5"}, {INFINITY, 2, "inf", "inf"},
      {-INFINITY, 0, "-inf", "-inf"}, {NAN, 0, "nan", "nan"}, {1.5f, 3, "1.5", "1.5"}, {0.001f, 2, "0", "0.001"},
      {-0.001f, 2, "-0", "-0.001"}, {2.675f, 2, "2.67", "2.7"},  // 2.6749999523...
      {0.125f, 2, "0.12", "0.12"}, {0.375f, 2, "0.38", "0.38"},  // exact ties go to even
      {1234567.0f, 3, "1234567", "1230000"}, {9.9999f, 2, "10", "10"}, {16777216.0f, 1, "16777216", "20000000"},
      {1e30f, 0, "1000000000000000000000000000000", "1000000000000000000000000000000"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Format(kFtoaS, c.value, c.precision), c.ftoa_s) << c.value;
    EXPECT_EQ(Format(kFtoa, c.value, c.precision), c.ftoa) << c.value;
  }
  EXPECT_EQ(Format(kFtoaS, 1e-45f, 0), "0." + std::string(44, '0') + "1");
  EXPECT_EQ(KD_ftoa_s(1.0f, nullptr, 0) + KD_ftoa(1.0f, nullptr, 0) + KD_ftoa_ex(1.0f, nullptr), 0);

  std::mt19937 rng(1515);
  for (int i = 0; i < 100000; ++i) {
    const float v = RandomFloat(rng);
    if (v == 0) continue;
    // The shortest text reads back, and is the standard library's shortest (same decimal).
    const std::string s = Format(kFtoaS, v, 0);
    char sci[64];
    *std::to_chars(sci, sci + sizeof sci, v, std::chars_format::scientific).ptr = 0;
    ASSERT_EQ(s.find_first_not_of("-0123456789."), std::string::npos) << s;
    ASSERT_EQ(Bits(strtof(s.c_str(), nullptr)), Bits(v)) << s;
    ASSERT_EQ(strtod(s.c_str(), nullptr), strtod(sci, nullptr)) << s << " " << sci;
    ASSERT_EQ(Format(kFtoa, v, 0), s);

    // With a limit: the shortest text when it fits, else printf's correctly rounded digits.
    const int p = 1 + static_cast<int>(rng() % 12);
    const size_t point = s.find('.');
    if (point == std::string::npos || s.size() - point - 1 <= static_cast<size_t>(p)) {
      ASSERT_EQ(Format(kFtoaS, v, p), s);
    } else {
      std::string fixed = Printf("%.*f", p, v);
      fixed.erase(fixed.find_last_not_of('0') + 1);
      if (fixed.back() == '.') fixed.pop_back();
      ASSERT_EQ(Format(kFtoaS, v, p), fixed);
    }
    const int sig = 1 + static_cast<int>(rng() % 9);
    const int shortestDigits =
        static_cast<int>(strchr(sci, 'e') - sci) - (sci[0] == '-') - (strchr(sci, '.') != nullptr);
    const std::string ours = Format(kFtoa, v, sig);
    if (shortestDigits <= sig) {
      ASSERT_EQ(ours, s);
    } else {
      ASSERT_EQ(strtod(ours.c_str(), nullptr), strtod(Printf("%.*e", sig - 1, v).c_str(), nullptr)) << ours;
      ASSERT_EQ(ours.find('e'), std::string::npos);
    }
  }
}

TEST(NumberFormat, FtoaEx) {
  const int saved = KD_GetFloatPrecision();
  EXPECT_EQ(saved, 6);
  struct Case {
    int digits;
    float value;
    const char* text;
  };
  const Case cases[] = {
      {2, 2.5f, "2.50"}, {2, -0.5f, "-0.50"}, {2, 0.999f, "1.00"}, {2, 0.0f, "0"}, {2, -0.001f, "-0.00"},
      {0, 2.5f, "2"},  // a tie: to even
      {8, 1.0f / 3, "0.33333334"}, {12, 1.0f / 3, "0.33333334"}, {-3, 7.75f, "8"},  // clamped to 0..8
      {1, 4611686018427387904.0f, "4611686018427387904.0"},  // 2^62 through the 64-bit integer
      {1, 9223372036854775808.0f, "9223372036854775808.0"},  // 2^63 written in full
      {2, -INFINITY, "-inf"},
  };
  for (const Case& c : cases) {
    KD_SetFloatPrecision(c.digits);
    EXPECT_EQ(Format(kFtoaEx, c.value), c.text) << c.digits << " " << c.value;
  }
  EXPECT_EQ(KD_GetFloatPrecision(), 2);
  // Any finite non-zero float, any count: printf's fixed notation.
  std::mt19937 rng(8);
  for (int i = 0; i < 50000; ++i) {
    const float v = RandomFloat(rng);
    const int digits = static_cast<int>(rng() % 9);
    KD_SetFloatPrecision(digits);
    if (v != 0) {
      ASSERT_EQ(Format(kFtoaEx, v), Printf("%.*f", digits, v));
    }
  }
  KD_SetFloatPrecision(saved);
}

TEST(NumberFormat, StringAndBufferMembers) {
  EXPECT_TRUE(CKD_ByteString::FormatFloat(0.1f, 0) == "0.1");
  EXPECT_TRUE(CKD_ByteString::FormatFloat(2.675f, 2) == "2.67");
  kdtest::TestDefaultMgr t;
  {
    CKD_ByteTextBuf b;
    b << 0.1 << CKD_ByteStringC(" ") << 1e300 << CKD_ByteStringC(" ") << 16777217.0;
    EXPECT_TRUE(b.GetByteString() == CKD_ByteStringC("0.1 inf 16777216"));  // narrowed to float first
    CKD_WideTextBuf w;
    w << -2.5 << L"|" << 3e-8;
    EXPECT_TRUE(w.GetWideString() == CKD_WideStringC(L"-2.5|0.00000003"));
    CKD_ByteTextBuf failing;
    t.sys().FailAll(true);
    failing << 1.5;
    EXPECT_EQ(failing.GetSize(), 0);
    EXPECT_TRUE(CKD_ByteString::FormatFloat(1.5f).IsEmpty());
    t.sys().FailAll(false);
  }
  EXPECT_EQ(t.live_blocks(), 0u);
}

}  // namespace
