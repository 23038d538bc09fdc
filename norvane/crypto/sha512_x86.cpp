// A SHA-384/512 kernel for x86-64 processors with AVX2 and BMI2, which have no SHA-512
// instructions. The message schedules of two blocks are computed side by side in the two halves of
// 256-bit registers, with the round constants already added; the rounds then run in scalar
// registers, with BMI2's rotations that leave their source intact. Only these functions are
// compiled for the extensions; they run only where sha512_avx2_capable() says so.
#include "norvane/crypto/sha_internal.h"

#if defined(__x86_64__)

#include <immintrin.h>

#include "norvane/runtime/cpu_features_internal.h"

#define NV_TARGET_AVX2 __attribute__((target("avx2,bmi2")))

namespace {

constexpr uint32_t kNeeds = KDCRT_CPU_AVX2 | KDCRT_CPU_BMI2;

NV_TARGET_AVX2 inline uint64_t Ror(uint64_t x, int n) { return (x >> n) | (x << (64 - n)); }

NV_TARGET_AVX2 inline __m256i Ror(__m256i x, int n) {
  return _mm256_xor_si256(_mm256_srli_epi64(x, n), _mm256_slli_epi64(x, 64 - n));
}

// Word pair k of the message (words 2k and 2k + 1) of block 0 in the low half, block 1 in the
// high half. W[t] = s1(W[t-2]) + W[t-7] + s0(W[t-15]) + W[t-16], two words per step.
NV_TARGET_AVX2 void Schedule(const uint8_t* block0, const uint8_t* block1, uint64_t wk0[80], uint64_t wk1[80]) {
  const __m256i swap = _mm256_set_epi64x(0x08090a0b0c0d0e0fll, 0x0001020304050607ll, 0x08090a0b0c0d0e0fll,
                                         0x0001020304050607ll);
  const __m128i* k = reinterpret_cast<const __m128i*>(kdcrypt::kSha512K);
  __m256i x[8];
  auto store = [&](int pair, __m256i v) NV_TARGET_AVX2 {
    v = _mm256_add_epi64(v, _mm256_broadcastsi128_si256(_mm_load_si128(k + pair)));
    _mm_store_si128(reinterpret_cast<__m128i*>(wk0 + 2 * pair), _mm256_castsi256_si128(v));
    _mm_store_si128(reinterpret_cast<__m128i*>(wk1 + 2 * pair), _mm256_extracti128_si256(v, 1));
  };
#pragma GCC unroll 8
  for (int p = 0; p < 8; ++p) {
    const __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block0 + 16 * p));
    const __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block1 + 16 * p));
    x[p] = _mm256_shuffle_epi8(_mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1), swap);
    store(p, x[p]);
  }
  for (int p = 8; p < 40; p += 8) {
#pragma GCC unroll 8
    for (int i = 0; i < 8; ++i) {
      const __m256i w15 = _mm256_alignr_epi8(x[(i + 1) % 8], x[i], 8);
      const __m256i w7 = _mm256_alignr_epi8(x[(i + 5) % 8], x[(i + 4) % 8], 8);
      const __m256i w2 = x[(i + 7) % 8];
      const __m256i s0 = _mm256_xor_si256(_mm256_xor_si256(Ror(w15, 1), Ror(w15, 8)), _mm256_srli_epi64(w15, 7));
      const __m256i s1 = _mm256_xor_si256(_mm256_xor_si256(Ror(w2, 19), Ror(w2, 61)), _mm256_srli_epi64(w2, 6));
      x[i] = _mm256_add_epi64(_mm256_add_epi64(x[i], s0), _mm256_add_epi64(w7, s1));
      store(p + i, x[i]);
    }
  }
}

// The 80 rounds over a schedule with the constants added. Maj(a, b, c) = ((a ^ b) & (b ^ c)) ^ b,
// and this round's b ^ c is the last round's a ^ b.
NV_TARGET_AVX2 void Rounds(uint64_t state[8], const uint64_t wk[80]) {
  uint64_t a = state[0], b = state[1], c = state[2], d = state[3];
  uint64_t e = state[4], f = state[5], g = state[6], h = state[7];
  uint64_t bc = b ^ c;
  for (int j = 0; j < 80; j += 16) {
#define NV_R(a, b, c, d, e, f, g, h, i)                                           \
  do {                                                                            \
    h += wk[j + (i)] + (g ^ (e & (f ^ g))) + (Ror(e, 14) ^ Ror(e, 18) ^ Ror(e, 41)); \
    d += h;                                                                       \
    const uint64_t ab = a ^ b;                                                    \
    h += (Ror(a, 28) ^ Ror(a, 34) ^ Ror(a, 39)) + ((ab & bc) ^ b);                \
    bc = ab;                                                                      \
  } while (0)
    NV_SHA2_16_ROUNDS(NV_R);
#undef NV_R
  }
  kdcrypt::Sha2FeedForward(state, a, b, c, d, e, f, g, h);
}

}  // namespace

bool sha512_avx2_capable() { return (KDCRT_GetCpuFeatures() & kNeeds) == kNeeds; }

NV_TARGET_AVX2 void sha512_block_data_order_avx2(uint64_t state[8], const uint8_t* data, size_t n) {
  alignas(32) uint64_t wk[2][80];
  for (; n >= 2; n -= 2, data += 256) {
    Schedule(data, data + 128, wk[0], wk[1]);
    Rounds(state, wk[0]);
    Rounds(state, wk[1]);
  }
  if (n) {
    Schedule(data, data, wk[0], wk[1]);  // a lone block fills both halves
    Rounds(state, wk[0]);
  }
}

#endif  // defined(__x86_64__)
