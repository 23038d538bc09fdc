// The public word-array kernels on 32-bit words. The heavy ones (products, division) hand even
// lengths to the active kernel variant; the rest are plain loops over words.
#include "norvane/crypto/pki_words.h"

#include <cstring>

#include "norvane/crypto/pki_kernels_internal.h"

void KDPKI_Copy(uint32_t* dst, const uint32_t* src, size_t n) {
  if (n && dst != src) std::memmove(dst, src, n * 4);
}

void KDPKI_SetWords(uint32_t* dst, uint32_t value, size_t n) {
  for (size_t i = 0; i < n; ++i) dst[i] = value;
}

int KDPKI_WordsCompare(const uint32_t* a, const uint32_t* b, size_t n) {
  while (n-- > 0) {
    if (a[n] != b[n]) return a[n] > b[n] ? 1 : -1;
  }
  return 0;
}

size_t KDPKI_CountWord32(const uint32_t* a, size_t n) {
  while (n > 0 && a[n - 1] == 0) --n;
  return n;
}

size_t KDPKI_EvenWordCount(const uint32_t* a, size_t n) {
  const size_t c = KDPKI_CountWord32(a, n);
  return c + (c & 1);
}

size_t KDPKI_BitsToWords(size_t bits) { return (bits + 31) / 32; }

unsigned KDPKI_BitPrecision(uint32_t w) {
  // Binary search on the position of the top bit.
  if (!w) return 0;
  unsigned lo = 1, hi = 32;
  while (lo < hi) {
    const unsigned mid = (lo + hi) / 2;
    if ((w >> mid) == 0) {
      hi = mid;
    } else {
      lo = mid + 1;
    }
  }
  return lo;
}

size_t KDPKI_RoundupSize(size_t n) {
  static const uint8_t kSmall[9] = {2, 2, 2, 4, 4, 8, 8, 8, 8};
  if (n <= 8) return kSmall[n];
  if (n <= 16) return 16;
  if (n <= 32) return 32;
  if (n <= 64) return 64;
  if (n > (size_t{1} << 31)) return 0;
  // 2^(bit length of n - 1); n - 1 fits in a word here.
  return size_t{1} << KDPKI_BitPrecision(static_cast<uint32_t>(n - 1));
}

uint32_t KDPKI_GetBit(const uint32_t* a, size_t n, size_t i) { return i / 32 < n ? (a[i / 32] >> (i % 32)) & 1 : 0; }

uint32_t KDPKI_AdditionWithSameLength(uint32_t* c, const uint32_t* a, const uint32_t* b, size_t n) {
  uint64_t carry = 0;
  for (size_t i = 0; i < n; ++i) {
    carry += static_cast<uint64_t>(a[i]) + b[i];
    c[i] = static_cast<uint32_t>(carry);
    carry >>= 32;
  }
  return static_cast<uint32_t>(carry);
}

uint32_t KDPKI_SubstractWithSameLength(uint32_t* c, const uint32_t* a, const uint32_t* b, size_t n) {
  uint32_t borrow = 0;
  for (size_t i = 0; i < n; ++i) {
    const uint64_t t = static_cast<uint64_t>(a[i]) - b[i] - borrow;
    c[i] = static_cast<uint32_t>(t);
    borrow = static_cast<uint32_t>(t >> 63);
  }
  return borrow;
}

uint32_t KDPKI_Increment(uint32_t* a, size_t n, uint32_t w) {
  for (size_t i = 0; i < n && w; ++i) {
    const uint32_t old = a[i];
    a[i] = old + w;
    w = a[i] < old;
  }
  return w;
}

uint32_t KDPKI_Decrement(uint32_t* a, size_t n, uint32_t w) {
  for (size_t i = 0; i < n && w; ++i) {
    const uint32_t old = a[i];
    a[i] = old - w;
    w = old < w;
  }
  return w;
}

void KDPKI_TwosComplement(uint32_t* a, size_t n) {
  for (size_t i = 0; i < n; ++i) a[i] = ~a[i];
  KDPKI_Increment(a, n, 1);
}

uint32_t KDPKI_LinearMultiply(uint32_t* c, const uint32_t* a, uint32_t w, size_t n) {
  uint64_t carry = 0;
  for (size_t i = 0; i < n; ++i) {
    carry += static_cast<uint64_t>(a[i]) * w;
    c[i] = static_cast<uint32_t>(carry);
    carry >>= 32;
  }
  return static_cast<uint32_t>(carry);
}

uint32_t KDPKI_LinearAdd(uint32_t* c, const uint32_t* a, uint32_t w, size_t n) {
  uint64_t carry = 0;
  for (size_t i = 0; i < n; ++i) {
    carry += static_cast<uint64_t>(a[i]) * w + c[i];
    c[i] = static_cast<uint32_t>(carry);
    carry >>= 32;
  }
  return static_cast<uint32_t>(carry);
}

uint32_t KDPKI_ShiftWordsLeftByBits(uint32_t* a, size_t n, unsigned bits) {
  if (!bits || !n) return 0;
  const uint32_t out = a[n - 1] >> (32 - bits);
  for (size_t i = n - 1; i > 0; --i) a[i] = (a[i] << bits) | (a[i - 1] >> (32 - bits));
  a[0] <<= bits;
  return out;
}

uint32_t KDPKI_ShiftWordsRightByBits(uint32_t* a, size_t n, unsigned bits) {
  if (!bits || !n) return 0;
  const uint32_t out = a[0] << (32 - bits);
  for (size_t i = 0; i + 1 < n; ++i) a[i] = (a[i] >> bits) | (a[i + 1] << (32 - bits));
  a[n - 1] >>= bits;
  return out;
}

void KDPKI_ShiftWordsLeftByWords(uint32_t* a, size_t n, size_t words) {
  if (words >= n) words = n;
  if (words == 0) return;
  KDPKI_Copy(a + words, a, n - words);
  KDPKI_SetWords(a, 0, words);
}

void KDPKI_ShiftWordsRightByWords(uint32_t* a, size_t n, size_t words) {
  if (words >= n) words = n;
  if (words == 0) return;
  KDPKI_Copy(a, a + words, n - words);
  KDPKI_SetWords(a + n - words, 0, words);
}

void KDPKI_Multiplication(const uint32_t* a, size_t na, const uint32_t* b, size_t nb, uint32_t* result) {
  if (!na || !nb) return;
  // The shorter operand is the multiplier; on equal lengths the first one.
  const uint32_t* x = a;
  const uint32_t* y = b;
  size_t nx = na, ny = nb;
  if (nb < na) {
    x = b;
    y = a;
    nx = nb;
    ny = na;
  }
  if (nx == 2 && x[1] == 0) {
    KDPKI_SetWords(result, 0, na + nb);
    if (x[0] == 1) {
      KDPKI_Copy(result, y, ny);
    } else if (x[0] != 0) {
      result[ny] = KDPKI_LinearMultiply(result, y, x[0], ny);
    }
    return;
  }
  const kdpki::Kernels& k = ((nx | ny) & 1) ? kdpki::PortableKernels() : kdpki::ActiveKernels();
  k.mul(result, y, ny, x, nx);
}

uint32_t KDPKI_SubatomicDivide(uint32_t* a, const uint32_t* b) {
  // Estimate from the top two words over b[1], then correct: the estimate is at most two above.
  const uint64_t top = (static_cast<uint64_t>(a[2]) << 32) | a[1];
  uint64_t q = top / b[1];
  if (q > 0xFFFFFFFFu) q = 0xFFFFFFFFu;
  // a -= q * b over three words, tracking the sign in a fourth.
  const uint64_t p0 = q * b[0], p1 = q * b[1];
  uint64_t t = static_cast<uint64_t>(a[0]) - static_cast<uint32_t>(p0);
  uint32_t r0 = static_cast<uint32_t>(t);
  int64_t carry = static_cast<int64_t>(t) >> 32;  // 0 or -1
  t = static_cast<uint64_t>(a[1]) - static_cast<uint32_t>(p1) - (p0 >> 32) + static_cast<uint64_t>(carry);
  uint32_t r1 = static_cast<uint32_t>(t);
  carry = static_cast<int64_t>(t) >> 32;
  int64_t r2 = static_cast<int64_t>(a[2]) - static_cast<int64_t>(p1 >> 32) + carry;
  while (r2 < 0) {
    --q;
    const uint64_t s0 = static_cast<uint64_t>(r0) + b[0];
    r0 = static_cast<uint32_t>(s0);
    const uint64_t s1 = static_cast<uint64_t>(r1) + b[1] + (s0 >> 32);
    r1 = static_cast<uint32_t>(s1);
    r2 += static_cast<int64_t>(s1 >> 32);
  }
  a[0] = r0;
  a[1] = r1;
  a[2] = 0;
  return static_cast<uint32_t>(q);
}

void KDPKI_AtomicDivide(uint32_t* q, const uint32_t* a, const uint32_t* b) {
  uint32_t t[4] = {a[0], a[1], a[2], a[3]};
  q[1] = KDPKI_SubatomicDivide(t + 1, b);
  q[0] = KDPKI_SubatomicDivide(t, b);
}

void KDPKI_CorrectQuotientEstimate(uint32_t* r, uint32_t* t, uint32_t* q, const uint32_t* b, size_t n) {
  // t = q * b (n + 2 words), r -= t.
  KDPKI_SetWords(t, 0, n + 2);
  t[n] = KDPKI_LinearMultiply(t, b, q[0], n);
  t[n + 1] = KDPKI_LinearAdd(t + 1, b, q[1], n);
  KDPKI_SubstractWithSameLength(r, r, t, n + 2);
  while (r[n] || r[n + 1] || KDPKI_WordsCompare(r, b, n) >= 0) {
    const uint32_t borrow = KDPKI_SubstractWithSameLength(r, r, b, n);
    KDPKI_Decrement(r + n, 2, borrow);
    KDPKI_Increment(q, 2, 1);
  }
}

namespace kdpki {

// Two-word quotient digits: the divisor is shifted (by up to 63 bits) so that its top word has
// its top bit set; each digit is estimated from the remainder's top four words over the divisor's
// top two words plus one, which never overestimates, and KDPKI_CorrectQuotientEstimate brings it
// up to the true digit (at most three steps).
void DivideWordsPortable(uint32_t* q, uint32_t* r, const uint32_t* a, size_t na, const uint32_t* b, size_t nb,
                         uint32_t* scratch) {
  uint32_t* ta = scratch;         // na + 2 words: the shifted dividend, then the remainder
  uint32_t* tb = ta + na + 2;     // nb words: the shifted divisor
  uint32_t* tt = tb + nb;         // nb + 2 words for the correction
  const size_t zero_words = b[nb - 1] == 0 ? 1 : 0;
  const unsigned bits = 32 - KDPKI_BitPrecision(b[nb - 1 - zero_words]);
  KDPKI_SetWords(tb, 0, zero_words);
  KDPKI_Copy(tb + zero_words, b, nb - zero_words);
  KDPKI_ShiftWordsLeftByBits(tb, nb, bits);
  KDPKI_SetWords(ta, 0, zero_words);
  KDPKI_Copy(ta + zero_words, a, na);
  ta[na + zero_words] = 0;
  if (!zero_words) ta[na + 1] = 0;
  KDPKI_ShiftWordsLeftByBits(ta, na + 2, bits);

  uint32_t bt[2] = {tb[nb - 2], tb[nb - 1]};
  const bool overflow = KDPKI_Increment(bt, 2, 1) != 0;  // top two words all ones
  for (size_t i = na; i >= nb; i -= 2) {
    uint32_t* digit = q + (i - nb);
    if (overflow) {
      digit[0] = ta[i];
      digit[1] = ta[i + 1];
    } else {
      KDPKI_AtomicDivide(digit, ta + i - 2, bt);
    }
    KDPKI_CorrectQuotientEstimate(ta + i - nb, tt, digit, tb, nb);
    if (i < nb + 2) break;
  }
  // Undo the normalisation on the remainder.
  KDPKI_ShiftWordsRightByBits(ta, nb, bits);
  KDPKI_Copy(r, ta + zero_words, nb - zero_words);
  KDPKI_SetWords(r + nb - zero_words, 0, zero_words);
}

}  // namespace kdpki

void KDPKI_DivideWords(uint32_t* r, uint32_t* q, uint32_t* t, const uint32_t* a, size_t na, const uint32_t* b,
                       size_t nb) {
  kdpki::ActiveKernels().div(q, r, a, na, b, nb, t);
}

namespace {

// -m^-1 mod 2^32 for an odd m.
uint32_t NegInverse32(uint32_t m) {
  uint32_t y = m;  // correct to 3 bits; each step doubles them
  for (int i = 0; i < 4; ++i) y *= 2 - m * y;
  return 0 - y;
}

// Trailing zero bits of the non-zero n-word x.
size_t TrailingZeros(const uint32_t* x) {
  size_t words = 0;
  while (x[words] == 0) ++words;
  return words * 32 + static_cast<size_t>(__builtin_ctz(x[words]));
}

void ShiftRight(uint32_t* x, size_t n, size_t bits) {
  KDPKI_ShiftWordsRightByWords(x, n, bits / 32);
  KDPKI_ShiftWordsRightByBits(x, n, static_cast<unsigned>(bits % 32));
}

void ShiftLeft(uint32_t* x, size_t n, size_t bits) {
  KDPKI_ShiftWordsLeftByWords(x, n, bits / 32);
  KDPKI_ShiftWordsLeftByBits(x, n, static_cast<unsigned>(bits % 32));
}

}  // namespace

unsigned KDPKI_AlmostInverse(uint32_t* r, uint32_t* t, const uint32_t* a, size_t na, const uint32_t* m, size_t n) {
  // Kaliski: u = m, v = a, x = 0, s = 1; while v > 0 each step halves u or v (doubling s or x)
  // or replaces the larger of two odd values by half their difference; k counts the steps. Runs
  // of zero bits are taken in one shift, which is the same as taking them one step at a time.
  // Throughout, m = u s + v x with s, x <= m, so s and x fit n + 1 words.
  uint32_t* u = t;
  uint32_t* v = t + n;
  uint32_t* s = t + 2 * n;
  uint32_t* x = t + 3 * n + 1;
  KDPKI_Copy(u, m, n);
  KDPKI_SetWords(v, 0, n);
  KDPKI_Copy(v, a, na < n ? na : n);
  KDPKI_SetWords(s, 0, n + 1);
  s[0] = 1;
  KDPKI_SetWords(x, 0, n + 1);
  size_t k = 0;
  while (KDPKI_CountWord32(v, n) != 0) {
    if ((u[0] & 1) == 0) {
      const size_t z = TrailingZeros(u);
      ShiftRight(u, n, z);
      ShiftLeft(s, n + 1, z);
      k += z;
    } else if ((v[0] & 1) == 0) {
      const size_t z = TrailingZeros(v);
      ShiftRight(v, n, z);
      ShiftLeft(x, n + 1, z);
      k += z;
    } else if (KDPKI_WordsCompare(u, v, n) > 0) {
      KDPKI_SubstractWithSameLength(u, u, v, n);
      KDPKI_ShiftWordsRightByBits(u, n, 1);
      KDPKI_AdditionWithSameLength(x, x, s, n + 1);
      KDPKI_ShiftWordsLeftByBits(s, n + 1, 1);
      ++k;
    } else {
      KDPKI_SubstractWithSameLength(v, v, u, n);
      KDPKI_ShiftWordsRightByBits(v, n, 1);
      KDPKI_AdditionWithSameLength(s, s, x, n + 1);
      KDPKI_ShiftWordsLeftByBits(x, n + 1, 1);
      ++k;
    }
  }
  if (KDPKI_CountWord32(u, n) != 1 || u[0] != 1) {  // gcd(a, m) > 1
    KDPKI_SetWords(r, 0, n);
    return 0;
  }
  // x may reach up to 2m: reduce once, then r = m - x.
  if (x[n] != 0 || KDPKI_WordsCompare(x, m, n) >= 0) {
    const uint32_t borrow = KDPKI_SubstractWithSameLength(x, x, m, n);
    x[n] -= borrow;
  }
  KDPKI_SubstractWithSameLength(r, m, x, n);
  return static_cast<unsigned>(k);
}

void KDPKI_DivideByPower2Mod(uint32_t* r, const uint32_t* a, size_t k, const uint32_t* m, size_t n) {
  KDPKI_Copy(r, a, n);
  if (!n) return;
  const uint32_t minv = NegInverse32(m[0]);
  // Each step adds the multiple of m that clears the low bits, then shifts them out.
  while (k > 0) {
    const unsigned step = k >= 32 ? 32 : static_cast<unsigned>(k);
    const uint32_t mask = step == 32 ? 0xFFFFFFFFu : (1u << step) - 1;
    const uint32_t f = (r[0] * minv) & mask;
    const uint32_t carry = KDPKI_LinearAdd(r, m, f, n);
    if (step == 32) {
      KDPKI_ShiftWordsRightByWords(r, n, 1);
      r[n - 1] = carry;
    } else {
      KDPKI_ShiftWordsRightByBits(r, n, step);
      r[n - 1] |= carry << (32 - step);
    }
    k -= step;
  }
}

namespace {

uint64_t Load2(const uint32_t* a) { return a[0] | (static_cast<uint64_t>(a[1]) << 32); }
void Store2(uint32_t* c, uint64_t v) {
  c[0] = static_cast<uint32_t>(v);
  c[1] = static_cast<uint32_t>(v >> 32);
}

// r = a * b mod 2^(32n); r must not overlap a or b.
void BottomProduct(uint32_t* r, const uint32_t* a, const uint32_t* b, size_t n) {
  KDPKI_SetWords(r, 0, n);
  for (size_t i = 0; i < n; ++i) KDPKI_LinearAdd(r + i, a, b[i], n - i);
}

}  // namespace

void KDPKI_AtomicMultiply(uint32_t* c, const uint32_t* a, const uint32_t* b) {
  uint32_t t[4] = {0, 0, 0, 0};
  t[2] = KDPKI_LinearMultiply(t, a, b[0], 2);
  t[3] = KDPKI_LinearAdd(t + 1, a, b[1], 2);
  KDPKI_Copy(c, t, 4);
}

void KDPKI_AtomicMultiplyAdd(uint32_t* c, const uint32_t* a, const uint32_t* b) {
  uint32_t t[4];
  KDPKI_AtomicMultiply(t, a, b);
  KDPKI_AdditionWithSameLength(c, c, t, 4);
}

void KDPKI_AtomicMultiplyBottom(uint32_t* c, const uint32_t* a, const uint32_t* b) { Store2(c, Load2(a) * Load2(b)); }

void KDPKI_AtomicMultiplyBottomAdd(uint32_t* c, const uint32_t* a, const uint32_t* b) {
  Store2(c, Load2(c) + Load2(a) * Load2(b));
}

void KDPKI_AtomicInverseModPower2(uint32_t* c, const uint32_t* a) { Store2(c, 0 - kdpki::NegInverse64(a)); }

void KDPKI_RecursiveMultiplyBottom(uint32_t* r, uint32_t*, const uint32_t* a, const uint32_t* b, size_t n) {
  BottomProduct(r, a, b, n);
}

void KDPKI_RecursiveMultiplyTop(uint32_t* r, uint32_t* t, const uint32_t* a, const uint32_t* b, size_t n) {
  KDPKI_Multiplication(a, n, b, n, t);
  KDPKI_Copy(r, t + n, n);
}

void KDPKI_RecursiveInverseModPower2(uint32_t* r, uint32_t* t, const uint32_t* a, size_t n) {
  // Newton's step x' = x (2 - a x) doubles the number of correct words: with a x = 1 + 2^(32h) e
  // over the first 2h words, x' keeps x's low h words and its next words are -(x e).
  KDPKI_SetWords(r, 0, n);
  KDPKI_AtomicInverseModPower2(r, a);
  for (size_t h = 2; h < n; h *= 2) {
    const size_t h2 = 2 * h < n ? 2 * h : n;
    uint32_t* e = t;       // h2 words
    uint32_t* f = t + h2;  // h2 - h words
    BottomProduct(e, a, r, h2);
    BottomProduct(f, r, e + h, h2 - h);
    KDPKI_TwosComplement(f, h2 - h);
    KDPKI_Copy(r + h, f, h2 - h);
  }
}

uint32_t KDPKI_Swap32(uint32_t w) { return __builtin_bswap32(w); }

void KDPKI_LongToBytes(uint32_t w, uint8_t* bytes) {
  bytes[0] = static_cast<uint8_t>(w >> 24);
  bytes[1] = static_cast<uint8_t>(w >> 16);
  bytes[2] = static_cast<uint8_t>(w >> 8);
  bytes[3] = static_cast<uint8_t>(w);
}

uint32_t KDPKI_BytesToLong(const uint8_t* bytes) {
  return (static_cast<uint32_t>(bytes[0]) << 24) | (static_cast<uint32_t>(bytes[1]) << 16) |
         (static_cast<uint32_t>(bytes[2]) << 8) | bytes[3];
}

void KDPKI_ExecutedOrBytes(uint8_t* out, const uint8_t* a, const uint8_t* b, size_t n) {
  for (size_t i = 0; i < n; ++i) out[i] = a[i] ^ b[i];
}

uint8_t KDPKI_Crop(uint8_t b, unsigned k) { return k >= 8 ? b : static_cast<uint8_t>(b & ((1u << k) - 1)); }
