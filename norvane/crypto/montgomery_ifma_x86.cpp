// Two modular exponentiations at once, for two odd moduli of 993 to 1024 bits (the halves of a
// 2048-bit RSA key), on AVX-512 IFMA: the private-key operation's two CRT powers.
//
// Numbers are held as 20 digits of 52 bits in the 64-bit lanes of three 512-bit registers (24
// lanes, the top four zero). A product is an almost Montgomery multiplication with R = 2^1040:
// for inputs below 2m it returns a value below 2m congruent to a b / R, which is enough for every
// step but the last, where the value is reduced fully. The two exponentiations run interleaved in
// one loop, so that the latency of one's multiply-adds hides behind the other's. The powers are
// the same numbers the word kernels compute; only the way there differs.
#include "norvane/crypto/montgomery_internal.h"

#if defined(__x86_64__)

#include <immintrin.h>

#include <cstring>

#include "norvane/crypto/pki_kernels_internal.h"
#include "norvane/runtime/cpu_features_internal.h"

#define NV_TARGET_IFMA __attribute__((target("avx512f,avx512ifma")))

// g++ 12's AVX-512 intrinsics start some results from a deliberately undefined register and then
// warn about it (-Wuninitialized) once inlined here; the values are never read.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

namespace kdpki {

namespace {

constexpr int kDigits = 20;
constexpr unsigned kRadixBits = 52 * kDigits;  // 1040
constexpr uint64_t kMask = (uint64_t{1} << 52) - 1;
constexpr unsigned kWindow = 5;

// A number of 20 digits, padded to 24 lanes.
struct alignas(64) Digits {
  uint64_t d[24];
};

// x (below 2^1040) as digits.
void ToDigits(const KDPKI_HugeInt& x, Digits& out) {
  std::memset(out.d, 0, sizeof out.d);
  const uint32_t* w = x.Magnitude().GetWords();
  const size_t n = x.GetWordCount();
  for (unsigned bit = 0; bit < kRadixBits; bit += 52) {
    uint64_t v = 0;
    for (unsigned b = bit / 32; b < n && b * 32 < bit + 52; ++b) {
      const uint64_t word = w[b];
      v |= b * 32 >= bit ? word << (b * 32 - bit) : word >> (bit - b * 32);
    }
    out.d[bit / 52] = v & kMask;
  }
}

// The value of normalised digits.
KDPKI_HugeInt FromDigits(const Digits& x) {
  uint32_t w[34] = {};
  for (int i = 0; i < kDigits; ++i) {
    const unsigned bit = 52u * static_cast<unsigned>(i);
    const unsigned word = bit / 32, shift = bit % 32;
    const unsigned __int128 v = static_cast<unsigned __int128>(x.d[i]) << shift;
    w[word] |= static_cast<uint32_t>(v);
    w[word + 1] |= static_cast<uint32_t>(v >> 32);
    w[word + 2] |= static_cast<uint32_t>(v >> 64);
  }
  KDPKI_HugeInt r;
  KDPKI_IntegerBlock& b = r.Magnitude();
  if (!b.ReSize(34)) return r;
  std::memcpy(b.GetWords(), w, sizeof w);
  b.SetUsed(34);
  r.Normalize();
  return r;
}

struct Vec {
  __m512i v[3];
};

NV_TARGET_IFMA inline Vec Load(const Digits& x) {
  return {{_mm512_load_si512(x.d), _mm512_load_si512(x.d + 8), _mm512_load_si512(x.d + 16)}};
}

NV_TARGET_IFMA inline void Store(Digits& x, const Vec& r) {
  _mm512_store_si512(x.d, r.v[0]);
  _mm512_store_si512(x.d + 8, r.v[1]);
  _mm512_store_si512(x.d + 16, r.v[2]);
}

// Brings every lane below 2^52, carrying into the next: one parallel step for the carries out of
// each lane, then the ripple of single carries through lanes that are all ones.
NV_TARGET_IFMA inline void Normalize(Vec& r) {
  const __m512i mask = _mm512_set1_epi64(static_cast<long long>(kMask)), zero = _mm512_setzero_si512();
  const __m512i c0 = _mm512_srli_epi64(r.v[0], 52), c1 = _mm512_srli_epi64(r.v[1], 52),
                c2 = _mm512_srli_epi64(r.v[2], 52);
  r.v[0] = _mm512_add_epi64(_mm512_and_si512(r.v[0], mask), _mm512_alignr_epi64(c0, zero, 7));
  r.v[1] = _mm512_add_epi64(_mm512_and_si512(r.v[1], mask), _mm512_alignr_epi64(c1, c0, 7));
  r.v[2] = _mm512_add_epi64(_mm512_and_si512(r.v[2], mask), _mm512_alignr_epi64(c2, c1, 7));
  // Lanes above the mask now pass exactly one on; lanes equal to it pass on what they receive.
  const uint32_t generate = _mm512_cmpgt_epu64_mask(r.v[0], mask) | _mm512_cmpgt_epu64_mask(r.v[1], mask) << 8 |
                            static_cast<uint32_t>(_mm512_cmpgt_epu64_mask(r.v[2], mask)) << 16;
  const uint32_t propagate = _mm512_cmpeq_epu64_mask(r.v[0], mask) | _mm512_cmpeq_epu64_mask(r.v[1], mask) << 8 |
                             static_cast<uint32_t>(_mm512_cmpeq_epu64_mask(r.v[2], mask)) << 16;
  const uint32_t incoming = ((generate << 1) + propagate) ^ propagate;
  const __m512i one = _mm512_set1_epi64(1);
  for (int k = 0; k < 3; ++k) {
    const __mmask8 lanes = static_cast<__mmask8>(incoming >> (8 * k));
    r.v[k] = _mm512_and_si512(_mm512_mask_add_epi64(r.v[k], lanes, r.v[k], one), mask);
  }
}

// One modulus: its digits, -m^-1 mod 2^52, and its low digit for the scalar carry.
struct Modulus {
  Vec m;
  uint64_t k0;
  uint64_t m0;
};

// One product's running sum: digits in three registers, and the factor it multiplies.
struct Lane {
  __m512i c0, c1, c2;  // the sum
  __m512i a0, a1, a2;  // the first factor
  const uint64_t* b;   // the second factor's digits
  const Modulus* mod;
};

// Step i of a product: add a b_i, then y m with y making digit 0 a multiple of 2^52, and shift
// one digit down. Written out for the compiler to keep everything in registers.
NV_TARGET_IFMA inline void Step(Lane& l, int i, __m512i zero) {
  const __m512i bi = _mm512_set1_epi64(static_cast<long long>(l.b[i]));
  l.c0 = _mm512_madd52lo_epu64(l.c0, l.a0, bi);
  l.c1 = _mm512_madd52lo_epu64(l.c1, l.a1, bi);
  l.c2 = _mm512_madd52lo_epu64(l.c2, l.a2, bi);
  const auto low = static_cast<uint64_t>(_mm_cvtsi128_si64(_mm512_castsi512_si128(l.c0)));
  const uint64_t y = (low * l.mod->k0) & kMask;
  const __m512i yi = _mm512_set1_epi64(static_cast<long long>(y));
  const Vec& m = l.mod->m;
  l.c0 = _mm512_madd52lo_epu64(l.c0, m.v[0], yi);
  l.c1 = _mm512_madd52lo_epu64(l.c1, m.v[1], yi);
  l.c2 = _mm512_madd52lo_epu64(l.c2, m.v[2], yi);
  // Digit 0 is now a multiple of 2^52: shift one digit down, its top going into the new digit 0.
  const uint64_t carry = (low + ((l.mod->m0 * y) & kMask)) >> 52;
  l.c0 = _mm512_alignr_epi64(l.c1, l.c0, 1);
  l.c1 = _mm512_alignr_epi64(l.c2, l.c1, 1);
  l.c2 = _mm512_alignr_epi64(zero, l.c2, 1);
  l.c0 = _mm512_add_epi64(l.c0, _mm512_zextsi128_si512(_mm_cvtsi64_si128(static_cast<long long>(carry))));
  // The high halves of the products belong one digit up, which is where they land now.
  l.c0 = _mm512_madd52hi_epu64(l.c0, l.a0, bi);
  l.c1 = _mm512_madd52hi_epu64(l.c1, l.a1, bi);
  l.c2 = _mm512_madd52hi_epu64(l.c2, l.a2, bi);
  l.c0 = _mm512_madd52hi_epu64(l.c0, m.v[0], yi);
  l.c1 = _mm512_madd52hi_epu64(l.c1, m.v[1], yi);
  l.c2 = _mm512_madd52hi_epu64(l.c2, m.v[2], yi);
}

// r[s] = a[s] b[s] / R (almost reduced) for both sets s at once. r may be a or b.
NV_TARGET_IFMA void Amm2(Digits* r[2], const Digits* a[2], const Digits* b[2], const Modulus* mod[2]) {
  const __m512i zero = _mm512_setzero_si512();
  const Vec a0 = Load(*a[0]), a1 = Load(*a[1]);
  Lane x = {zero, zero, zero, a0.v[0], a0.v[1], a0.v[2], b[0]->d, mod[0]};
  Lane y = {zero, zero, zero, a1.v[0], a1.v[1], a1.v[2], b[1]->d, mod[1]};
  for (int i = 0; i < kDigits; ++i) {
    Step(x, i, zero);
    Step(y, i, zero);
  }
  Vec rx = {{x.c0, x.c1, x.c2}}, ry = {{y.c0, y.c1, y.c2}};
  Normalize(rx);
  Normalize(ry);
  Store(*r[0], rx);
  Store(*r[1], ry);
}

// The exponent's bits [bit, bit + kWindow) as a number.
uint32_t Window(const KDPKI_HugeInt& e, unsigned bit) {
  uint32_t v = 0;
  for (unsigned j = kWindow; j-- > 0;) v = v << 1 | e.GetBit(bit + j);
  return v;
}

NV_TARGET_IFMA bool PairIfma(const KDPKI_HugeInt* base, const KDPKI_HugeInt* exponent, const KDPKI_HugeInt* modulus,
                             KDPKI_HugeInt* result) {
  Modulus mod[2];
  Digits table[2][1 << kWindow];
  Digits acc[2], one[2];
  for (int s = 0; s < 2; ++s) {
    Digits m;
    ToDigits(modulus[s], m);
    mod[s].m = Load(m);
    mod[s].m0 = m.d[0];
    mod[s].k0 = NegInverse64(modulus[s].Magnitude().GetWords()) & kMask;
    KDPKI_HugeInt r;
    r.Power2(kRadixBits);
    ToDigits(r % modulus[s], table[s][0]);
    ToDigits((base[s] << kRadixBits) % modulus[s], table[s][1]);
    std::memset(one[s].d, 0, sizeof one[s].d);
    one[s].d[0] = 1;
  }
  const Modulus* mods[2] = {&mod[0], &mod[1]};
  for (int j = 2; j < (1 << kWindow); ++j) {
    Digits* r[2] = {&table[0][j], &table[1][j]};
    const Digits* a[2] = {&table[0][j - 1], &table[1][j - 1]};
    const Digits* b[2] = {&table[0][1], &table[1][1]};
    Amm2(r, a, b, mods);
  }
  const unsigned bits0 = exponent[0].GetBitCount(), bits1 = exponent[1].GetBitCount();
  const unsigned bits = bits0 > bits1 ? bits0 : bits1;
  const unsigned windows = (bits + kWindow - 1) / kWindow;
  Digits* r[2] = {&acc[0], &acc[1]};
  const Digits* rc[2] = {&acc[0], &acc[1]};
  for (int s = 0; s < 2; ++s) acc[s] = table[s][windows ? Window(exponent[s], (windows - 1) * kWindow) : 0];
  for (unsigned w = windows - (windows ? 1 : 0); w-- > 0;) {
    for (unsigned j = 0; j < kWindow; ++j) Amm2(r, rc, rc, mods);
    const Digits* f[2] = {&table[0][Window(exponent[0], w * kWindow)], &table[1][Window(exponent[1], w * kWindow)]};
    Amm2(r, rc, f, mods);
  }
  // Out of the Montgomery form; the value is then at most m, and m itself stands for 0.
  const Digits* ones[2] = {&one[0], &one[1]};
  Amm2(r, rc, ones, mods);
  for (int s = 0; s < 2; ++s) result[s] = FromDigits(acc[s]) % modulus[s];
  return true;
}

}  // namespace

bool PairExponentiation(const KDPKI_HugeInt base[2], const KDPKI_HugeInt exponent[2], const KDPKI_HugeInt modulus[2],
                        KDPKI_HugeInt result[2]) {
  if (!(KDCRT_GetCpuFeatures() & KDCRT_CPU_AVX512IFMA) || &ActiveKernels() != WideKernels()) return false;
  for (int s = 0; s < 2; ++s) {
    if (modulus[s].GetWordCount() != 32 || modulus[s].IsEven() || base[s].PositiveCompare(modulus[s]) >= 0) {
      return false;
    }
  }
  return PairIfma(base, exponent, modulus, result);
}

}  // namespace kdpki

#else

namespace kdpki {

bool PairExponentiation(const KDPKI_HugeInt*, const KDPKI_HugeInt*, const KDPKI_HugeInt*, KDPKI_HugeInt*) {
  return false;
}

}  // namespace kdpki

#endif
