// The string hash codes: h = h * 31 + c over bytes, h = h * 1313 + c over wide characters, both
// in 32-bit unsigned arithmetic from 0.
//
// Both are polynomials in the multiplier m, so they can be evaluated out of order, which every
// path below does; each gives the same value modulo 2^32 as the plain recurrence:
// - long texts go a block at a time in vector lanes: lanes sum characters weighted by powers of m,
//   and the accumulated lanes are multiplied by m^block once per block;
// - the rest goes eight characters a step, h * m^8 + c0 * m^7 + ... + c7, which leaves one
//   multiplication in the chain that carries h;
// - then one character at a time.
// On x86-64, whose baseline vector unit has no 32-bit lane multiply, bytes use 16-bit
// multiply-adds against each weight split into a low and a high half.
#include <cstring>
#include <cwchar>

#if defined(__SSE2__)
#include <emmintrin.h>
#elif defined(__ARM_NEON)
#include <arm_neon.h>
#endif

#include "norvane/text/byte_string.h"
#include "norvane/text/wide_string.h"

namespace {

constexpr uint32_t Power(uint32_t m, int e) {
  uint32_t r = 1;
  for (int i = 0; i < e; ++i) r *= m;
  return r;
}

// Character values as the hash sees them: bytes as signed char, wide characters as signed 32-bit,
// with 'A'..'Z' raised to 'a'..'z' when folding.
inline uint32_t Value(char c) { return static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(c))); }
inline uint32_t Value(wchar_t c) { return static_cast<uint32_t>(static_cast<int32_t>(c)); }

template <bool kFold, class C>
inline uint32_t CharValue(C c) {
  uint32_t v = Value(c);
  return kFold && v - 'A' < 26u ? v + 32 : v;
}

typedef uint32_t U32x4 __attribute__((vector_size(16)));

// Load16 reads sixteen characters into four vectors of four lanes.
inline void Load16(const char* s, U32x4 v[4]) {
#if defined(__ARM_NEON)
  int8x16_t b = vld1q_s8(reinterpret_cast<const int8_t*>(s));
  int16x8_t lo = vmovl_s8(vget_low_s8(b)), hi = vmovl_s8(vget_high_s8(b));
  v[0] = reinterpret_cast<U32x4>(vmovl_s16(vget_low_s16(lo)));
  v[1] = reinterpret_cast<U32x4>(vmovl_s16(vget_high_s16(lo)));
  v[2] = reinterpret_cast<U32x4>(vmovl_s16(vget_low_s16(hi)));
  v[3] = reinterpret_cast<U32x4>(vmovl_s16(vget_high_s16(hi)));
#else
  for (int lane = 0; lane < 16; ++lane) v[lane / 4][lane % 4] = Value(s[lane]);
#endif
}
inline void Load16(const wchar_t* s, U32x4 v[4]) { memcpy(v, s, 4 * sizeof(U32x4)); }

template <bool kFold>
inline U32x4 Fold(U32x4 v) {
  if (kFold) v += (v - 'A' < 26u) & 32u;  // a true comparison is all ones
  return v;
}

// Blocks16 hashes the first n / 16 blocks of sixteen characters: lane j of the accumulators sums
// the characters at 16k + j, weighted by m^16 once per later block; the lanes are then weighted
// by m^(15 - j) and added. *done receives the count of characters taken.
template <uint32_t M, bool kFold, class C>
uint32_t Blocks16(const C* s, size_t n, size_t* done) {
  constexpr uint32_t m16 = Power(M, 16);
  U32x4 a0 = {}, a1 = {}, a2 = {}, a3 = {};
  size_t i = 0;
  for (; i + 16 <= n; i += 16) {
    U32x4 v[4];
    Load16(s + i, v);
    a0 = a0 * m16 + Fold<kFold>(v[0]);
    a1 = a1 * m16 + Fold<kFold>(v[1]);
    a2 = a2 * m16 + Fold<kFold>(v[2]);
    a3 = a3 * m16 + Fold<kFold>(v[3]);
  }
  *done = i;
  const U32x4 w0 = {Power(M, 15), Power(M, 14), Power(M, 13), Power(M, 12)};
  const U32x4 w1 = {Power(M, 11), Power(M, 10), Power(M, 9), Power(M, 8)};
  const U32x4 w2 = {Power(M, 7), Power(M, 6), Power(M, 5), Power(M, 4)};
  const U32x4 w3 = {Power(M, 3), Power(M, 2), Power(M, 1), 1};
  U32x4 sum = a0 * w0 + a1 * w1 + a2 * w2 + a3 * w3;
  return sum[0] + sum[1] + sum[2] + sum[3];
}

#if defined(__SSE2__)
// The weights m^(63 - p) of the 64 positions of a byte block, each split as w = low + high * 2^16
// with low taken as a signed 16-bit value, so that 16-bit multiply-adds of sign-extended bytes
// give c * w modulo 2^32 as madd(c, low) + (madd(c, high) << 16).
struct ByteWeights {
  alignas(16) int16_t low[64];
  alignas(16) int16_t high[64];
};

constexpr ByteWeights MakeByteWeights(uint32_t m) {
  ByteWeights w = {};
  for (int p = 0; p < 64; ++p) {
    uint32_t v = Power(m, 63 - p);
    auto low = static_cast<int16_t>(static_cast<uint16_t>(v & 0xFFFF));
    w.low[p] = low;
    w.high[p] = static_cast<int16_t>(static_cast<uint16_t>((v - static_cast<uint32_t>(static_cast<int32_t>(low))) >> 16));
  }
  return w;
}

constexpr ByteWeights kWeights31 = MakeByteWeights(31);

template <bool kFold>
inline __m128i FoldBytes(__m128i v) {
  if (!kFold) return v;
  __m128i upper = _mm_and_si128(_mm_cmpgt_epi16(v, _mm_set1_epi16('A' - 1)), _mm_cmplt_epi16(v, _mm_set1_epi16('Z' + 1)));
  return _mm_add_epi16(v, _mm_and_si128(upper, _mm_set1_epi16(32)));
}

// c * w for eight sign-extended bytes against the weights at index, as four lanes of pair sums.
inline __m128i WeighBytes(__m128i c, int index) {
  __m128i low = _mm_load_si128(reinterpret_cast<const __m128i*>(kWeights31.low + index));
  __m128i high = _mm_load_si128(reinterpret_cast<const __m128i*>(kWeights31.high + index));
  return _mm_add_epi32(_mm_madd_epi16(c, low), _mm_slli_epi32(_mm_madd_epi16(c, high), 16));
}

template <bool kFold>
uint32_t ByteBlocks64(const char* s, size_t n, size_t* done) {
  constexpr uint32_t m64 = Power(31, 64);
  U32x4 acc = {};
  size_t i = 0;
  for (; i + 64 <= n; i += 64) {
    __m128i sum = _mm_setzero_si128();
    for (int k = 0; k < 4; ++k) {
      __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i + 16 * k));
      // Each byte doubled into a 16-bit lane and shifted down arithmetically: sign extension.
      __m128i lo = FoldBytes<kFold>(_mm_srai_epi16(_mm_unpacklo_epi8(b, b), 8));
      __m128i hi = FoldBytes<kFold>(_mm_srai_epi16(_mm_unpackhi_epi8(b, b), 8));
      sum = _mm_add_epi32(sum, _mm_add_epi32(WeighBytes(lo, 16 * k), WeighBytes(hi, 16 * k + 8)));
    }
    acc = acc * m64 + reinterpret_cast<U32x4>(sum);
  }
  *done = i;
  return acc[0] + acc[1] + acc[2] + acc[3];
}
#endif

template <uint32_t M, bool kFold, class C>
uint32_t Hash(const C* s, size_t n) {
  uint32_t h = 0;
  size_t i = 0;
#if defined(__SSE2__)
  if (sizeof(C) == 1 && n >= 64) {
    h = ByteBlocks64<kFold>(reinterpret_cast<const char*>(s), n, &i);
  } else if (sizeof(C) != 1 && n >= 32) {
    h = Blocks16<M, kFold>(s, n, &i);
  }
#else
  if (n >= 32) h = Blocks16<M, kFold>(s, n, &i);
#endif
  constexpr uint32_t p1 = M, p2 = Power(M, 2), p3 = Power(M, 3), p4 = Power(M, 4), p5 = Power(M, 5),
                     p6 = Power(M, 6), p7 = Power(M, 7), p8 = Power(M, 8);
  for (; i + 8 <= n; i += 8) {
    uint32_t a = CharValue<kFold>(s[i]) * p7 + CharValue<kFold>(s[i + 1]) * p6 + CharValue<kFold>(s[i + 2]) * p5 +
                 CharValue<kFold>(s[i + 3]) * p4;
    uint32_t b = CharValue<kFold>(s[i + 4]) * p3 + CharValue<kFold>(s[i + 5]) * p2 + CharValue<kFold>(s[i + 6]) * p1 +
                 CharValue<kFold>(s[i + 7]);
    h = h * p8 + a + b;
  }
  for (; i < n; ++i) h = h * M + CharValue<kFold>(s[i]);
  return h;
}

}  // namespace

uint32_t KD_HashCode_String_GetA(const char* text, int len, bool ignoreCase) {
  if (!text) return 0;
  size_t n = len < 0 ? strlen(text) : static_cast<size_t>(len);
  return ignoreCase ? Hash<31, true>(text, n) : Hash<31, false>(text, n);
}

uint32_t KD_HashCode_String_GetW(const wchar_t* text, int len, bool ignoreCase) {
  if (!text) return 0;
  size_t n = len < 0 ? wcslen(text) : static_cast<size_t>(len);
  return ignoreCase ? Hash<1313, true>(text, n) : Hash<1313, false>(text, n);
}
