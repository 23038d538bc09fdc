// The float formatters of number_text.h, and the string and buffer members that print floats.
//
// All digits come from exact integer arithmetic on the float's value m * 2^e: a float has a 24-bit
// mantissa and e in -149..104, so every value the formatters need, floor(m * 2^e * 10^s) for the
// scales used, is computed exactly from m * 5^s (at most 155 bits) shifted by e + s, or from
// m << e (at most 128 bits) divided by 10^-s. Knowing whether each floor was exact is what makes
// the rounding correct.
//
// The shortest text that reads back follows the digit-removal scheme of Ulf Adams' Ryu: scale the
// value and the two ends of its rounding interval to integers with a few digits to spare, remove
// trailing digits while the interval still holds a number with fewer digits, then round the value
// to the digits kept.
#include <atomic>
#include <cstdint>
#include <cstring>

#include "norvane/runtime/sys_helpers.h"
#include "norvane/text/byte_string.h"
#include "norvane/text/number_text.h"
#include "norvane/text/text_buf.h"

namespace {

using u128 = unsigned __int128;

// 5^0 .. 5^55, the powers that fit in 128 bits, and 10^0 .. 10^19 in 64.
struct PowerTables {
  u128 pow5[56];
  uint64_t pow10[20];
  constexpr PowerTables() : pow5(), pow10() {
    u128 p = 1;
    for (int i = 0; i < 56; ++i, p *= 5) pow5[i] = p;
    uint64_t q = 1;
    for (int i = 0; i < 20; ++i, q *= 10) pow10[i] = q;
  }
};
constexpr PowerTables kPow;

// A decimal number: digits * 10^exponent.
struct Decimal {
  uint64_t digits;
  int exponent;
};

struct Scaled {
  uint64_t value;  // floor(m * 2^e * 10^s)
  bool exact;      // the floor dropped nothing
};

// ScaleWide returns floor(m * 2^e * 10^s) for m < 2^27, e in -151..104 and s in -38..55. The
// caller chooses s so that the result fits in 64 bits.
__attribute__((noinline)) Scaled ScaleWide(uint64_t m, int e, int s) {
  if (s >= 0) {
    // m * 5^s as three 64-bit words, then shifted by e + s.
    const u128 p5 = kPow.pow5[s];
    const u128 lo = static_cast<u128>(static_cast<uint64_t>(p5)) * m;
    const u128 hi = static_cast<u128>(static_cast<uint64_t>(p5 >> 64)) * m;
    const u128 mid = (lo >> 64) + static_cast<uint64_t>(hi);
    const uint64_t w[3] = {static_cast<uint64_t>(lo), static_cast<uint64_t>(mid),
                           static_cast<uint64_t>(mid >> 64) + static_cast<uint64_t>(hi >> 64)};
    const int shift = e + s;
    if (shift >= 0) return {w[0] << shift, true};  // fits, so the product is below 2^(64 - shift)
    const int r = -shift;
    if (r >= 192) return {0, (w[0] | w[1] | w[2]) == 0};
    const int word = r / 64, bit = r % 64;
    uint64_t value = w[word] >> bit;
    if (bit && word < 2) value |= w[word + 1] << (64 - bit);
    bool exact = !bit || (w[word] << (64 - bit)) == 0;
    for (int i = 0; i < word; ++i) exact = exact && w[i] == 0;
    return {value, exact};
  }
  // m * 2^e / 10^-s = (m << e) / 10^-s, or (m >> -e) / 10^-s for e < 0.
  bool exact = true;
  u128 num = m;
  if (e >= 0) {
    num <<= e;
  } else if (-e >= 64) {
    exact = m == 0;
    num = 0;
  } else {
    exact = (m & ((uint64_t{1} << -e) - 1)) == 0;
    num = m >> -e;
  }
  const u128 den = kPow.pow5[-s] << -s;
  exact = exact && num % den == 0;
  return {static_cast<uint64_t>(num / den), exact};
}

// Scale is ScaleWide with the common case inline: 5^s fits in 64 bits, m * 5^s in 128, and the
// result is a right shift of it.
inline Scaled Scale(uint64_t m, int e, int s) {
  if (s >= 0 && s <= 27 && e + s < 0 && e + s > -128) {
    const u128 product = static_cast<u128>(m) * static_cast<uint64_t>(kPow.pow5[s]);
    const int r = -(e + s);
    return {static_cast<uint64_t>(product >> r), (product & ((static_cast<u128>(1) << r) - 1)) == 0};
  }
  return ScaleWide(m, e, s);
}

// FloorLog10Pow2 returns floor(e * log10(2)), exactly for e in -151..102 (the floats' range).
int FloorLog10Pow2(int e) {
  const int t = e * 78913;  // log10(2) * 2^18
  return t >= 0 ? t >> 18 : -((-t + (1 << 18) - 1) >> 18);
}

// The parts of a finite, non-zero float: value = (negative ? -1 : 1) * m * 2^e.
struct FloatParts {
  uint32_t mantissa;  // the stored 23 bits
  uint32_t biased;    // the stored exponent, 0 for subnormals
  uint32_t m;
  int e;
  bool negative;
};

// Normalize drops trailing zero digits (0 stays 0 * 10^0).
Decimal Normalize(Decimal d) {
  if (d.digits == 0) return {0, 0};
  while (d.digits % 10 == 0) {
    d.digits /= 10;
    ++d.exponent;
  }
  return d;
}

// CountDigits returns the decimal digits of v (1 for 0): with t = floor(bit length * log10(2)), v
// has t or t + 1 digits.
int CountDigits(uint64_t v) {
  v |= 1;
  const int t = ((64 - __builtin_clzll(v)) * 1233) >> 12;
  return t + 1 - (v < kPow.pow10[t]);
}

// Shortest returns the decimal with the fewest digits that reads back as the float, the nearest
// to it among those (ties to an even last digit).
Decimal Shortest(const FloatParts& f) {
  // The value and the ends of its rounding interval, times 4 so that they are integers times 2^e2.
  // The interval below a power of two is half as wide.
  const int e2 = f.e - 2;
  const uint64_t mv = uint64_t{4} * f.m;
  const uint64_t mp = mv + 2;
  const uint64_t mm = mv - 1 - ((f.mantissa != 0 || f.biased <= 1) ? 1 : 0);
  // A reading exactly on an end rounds to even, back to this float when m is even.
  const bool acceptBounds = (f.m & 1) == 0;

  // 2^e2 * 10^s lies in [10, 100): the scaled interval spans tens of integers, so at least one
  // digit is removed below and the rounding digit is known exactly.
  const int s = 1 - FloorLog10Pow2(e2);
  const Scaled r = Scale(mv, e2, s), p = Scale(mp, e2, s), m = Scale(mm, e2, s);
  uint64_t vr = r.value, vp = p.value, vm = m.value;
  if (!acceptBounds && p.exact) --vp;  // the upper end itself is excluded
  bool vmIsTrailingZeros = acceptBounds && m.exact;
  bool vrIsTrailingZeros = r.exact;
  int removed = 0;
  unsigned lastRemovedDigit = 0;
  // Digits go while the interval still holds a shorter number, and then, when the lower end is
  // itself a candidate, while that end has trailing zeros.
  while (vp / 10 > vm / 10 || (vmIsTrailingZeros && vm % 10 == 0)) {
    vmIsTrailingZeros = vmIsTrailingZeros && vm % 10 == 0;
    vrIsTrailingZeros = vrIsTrailingZeros && lastRemovedDigit == 0;
    lastRemovedDigit = static_cast<unsigned>(vr % 10);
    vr /= 10;
    vp /= 10;
    vm /= 10;
    ++removed;
  }
  if (vrIsTrailingZeros && lastRemovedDigit == 5 && vr % 2 == 0) lastRemovedDigit = 4;  // a tie: to even
  const bool up = (vr == vm && (!acceptBounds || !vmIsTrailingZeros)) || lastRemovedDigit >= 5;
  return Normalize({vr + (up ? 1 : 0), removed - s});
}

// RoundAt returns the value rounded to an integer multiple of 10^-s (ties to even). The caller
// keeps value * 10^(s + 1) below 2^64.
Decimal RoundAt(const FloatParts& f, int s) {
  const Scaled x = Scale(f.m, f.e, s + 1);
  const unsigned digit = static_cast<unsigned>(x.value % 10);
  uint64_t q = x.value / 10;
  if (digit > 5 || (digit == 5 && (!x.exact || (q & 1)))) ++q;
  return Normalize({q, -s});
}

// PutDigits writes v in exactly width digits (zeros in front), two at a time.
void PutDigits(char* out, uint64_t v, int width) {
  static const char kPairs[] =
      "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
      "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
      "8081828384858687888990919293949596979899";
  for (; width >= 2; width -= 2, v /= 100) memcpy(out + width - 2, kPairs + 2 * (v % 100), 2);
  if (width) out[0] = static_cast<char>('0' + v % 10);
}

char* PutZeros(char* out, int count) {
  for (int i = 0; i < count; ++i) out[i] = '0';
  return out + count;
}

// WriteDecimal writes d as plain decimal text, '-' first when negative, and returns the length.
int WriteDecimal(char* out, bool negative, Decimal d) {
  char* p = out;
  if (negative) *p++ = '-';
  const int n = CountDigits(d.digits);
  const int whole = n + d.exponent;  // digits before the point
  if (d.exponent >= 0) {
    PutDigits(p, d.digits, n);
    p = PutZeros(p + n, d.exponent);
  } else if (whole > 0) {
    // All the digits, then the fraction moved up to make room for the point.
    PutDigits(p, d.digits, n);
    for (int i = n; i > whole; --i) p[i] = p[i - 1];
    p[whole] = '.';
    p += n + 1;
  } else {
    *p++ = '0';
    *p++ = '.';
    p = PutZeros(p, -whole);
    PutDigits(p, d.digits, n);
    p += n;
  }
  *p = 0;
  return static_cast<int>(p - out);
}

int WriteText(char* out, const char* text) {
  const size_t n = strlen(text);
  memcpy(out, text, n + 1);
  return static_cast<int>(n);
}

// Prepare does what every formatter does alike: it writes nothing for a null buffer and "0",
// "inf", "-inf" or "nan" for those values, returning the length; for every other value it
// returns -1 and the value's parts in f.
int Prepare(float value, char* buffer, FloatParts* f) {
  if (!buffer) return 0;
  uint32_t bits;
  memcpy(&bits, &value, sizeof bits);
  if ((bits & 0x7FFFFFFF) == 0) return WriteText(buffer, "0");
  if ((bits & 0x7F800000) == 0x7F800000) {
    return WriteText(buffer, (bits & 0x7FFFFF) ? "nan" : (bits >> 31) ? "-inf" : "inf");
  }
  f->mantissa = bits & 0x7FFFFF;
  f->biased = (bits >> 23) & 0xFF;
  f->m = f->biased ? f->mantissa | 0x800000 : f->mantissa;
  f->e = (f->biased ? static_cast<int>(f->biased) : 1) - 150;
  f->negative = bits >> 31;
  return -1;
}

std::atomic<int> g_FloatPrecision{6};

}  // namespace

int KD_ftoa_s(float value, char* buffer, int precision) {
  FloatParts f;
  const int done = Prepare(value, buffer, &f);
  if (done >= 0) return done;
  Decimal d = Shortest(f);
  // The shortest text has at most nine digits, so one that needs more than precision fraction
  // digits is below 10^(8 - precision), and rounding it to precision digits stays within 64 bits.
  if (precision > 0 && -d.exponent > precision) d = RoundAt(f, precision);
  return WriteDecimal(buffer, f.negative, d);
}

int KD_ftoa(float value, char* buffer, int precision) {
  FloatParts f;
  const int done = Prepare(value, buffer, &f);
  if (done >= 0) return done;
  Decimal d = Shortest(f);
  const int n = CountDigits(d.digits);
  if (precision > 0 && n > precision) {
    // The value's leading digit is in the shortest text's place: were a power of ten between
    // the two, it would be a shorter text that reads back.
    const int lead = n - 1 + d.exponent;
    d = RoundAt(f, precision - 1 - lead);
  }
  return WriteDecimal(buffer, f.negative, d);
}

int KD_ftoa_ex(float value, char* buffer) {
  FloatParts f;
  const int done = Prepare(value, buffer, &f);
  if (done >= 0) return done;
  const int digits = g_FloatPrecision.load(std::memory_order_relaxed);
  char* p = buffer;
  if (f.negative) *p++ = '-';
  if (f.e >= 40) {
    // 2^63 and above: too large for KDSYS_i64toa, and an integer, so the fraction is zero.
    char reversed[40];
    int n = 0;
    for (u128 v = static_cast<u128>(f.m) << f.e; v; v /= 10) reversed[n++] = static_cast<char>('0' + v % 10);
    while (n) *p++ = reversed[--n];
    if (digits > 0) {
      *p++ = '.';
      memset(p, '0', static_cast<size_t>(digits));
      p += digits;
    }
    *p = 0;
    return static_cast<int>(p - buffer);
  }
  uint64_t whole, fraction;
  if (f.e >= 0) {
    whole = static_cast<uint64_t>(f.m) << f.e;  // an integer below 2^63
    fraction = 0;
  } else {
    // Below 2^24: rounded at the last digit the value stays below 2^24 * 10^9.
    Decimal d = RoundAt(f, digits);
    uint64_t scaled = d.digits * kPow.pow10[d.exponent + digits];
    whole = scaled / kPow.pow10[digits];
    fraction = scaled % kPow.pow10[digits];
  }
  KDSYS_i64toa(static_cast<long long>(whole), p, 10);
  p += strlen(p);
  if (digits > 0) {
    *p++ = '.';
    for (int i = digits - 1; i >= 0; --i, fraction /= 10) p[i] = static_cast<char>('0' + fraction % 10);
    p += digits;
  }
  *p = 0;
  return static_cast<int>(p - buffer);
}

void KD_SetFloatPrecision(int digits) {
  g_FloatPrecision.store(digits < 0 ? 0 : digits > 8 ? 8 : digits, std::memory_order_relaxed);
}

int KD_GetFloatPrecision() { return g_FloatPrecision.load(std::memory_order_relaxed); }

CKD_ByteString CKD_ByteString::FormatFloat(float value, int precision) {
  char text[KD_FTOA_BUFFER_SIZE];
  int len = KD_ftoa_s(value, text, precision);
  if (len < 0) len = static_cast<int>(strlen(text));
  return CKD_ByteString(text, len);
}

CKD_ByteTextBuf& CKD_ByteTextBuf::operator<<(double value) {
  char text[KD_FTOA_BUFFER_SIZE];
  const int len = KD_ftoa_s(static_cast<float>(value), text, 0);
  AppendBlock(text, len);
  return *this;
}

CKD_WideTextBuf& CKD_WideTextBuf::operator<<(double value) {
  char text[KD_FTOA_BUFFER_SIZE];
  const int len = KD_ftoa_s(static_cast<float>(value), text, 0);
  wchar_t wide[KD_FTOA_BUFFER_SIZE];
  for (int i = 0; i < len; ++i) wide[i] = static_cast<wchar_t>(static_cast<signed char>(text[i]));
  AppendBlock(wide, 4 * len);
  return *this;
}
