// AES-CBC kernels for x86-64 processors with AES-NI. Only these functions are compiled for the
// extension; they run only where aes_hw_capable() says the processor has it.
//
// The context holds each schedule word big-endian-formed in host order; the instructions want the
// round keys as the bytes of the schedule, so each word is byte-swapped on loading. The decryption
// schedule is already the equivalent inverse cipher's, which is what AESDEC expects.
#include "norvane/crypto/aes_internal.h"

#if defined(__x86_64__)

#include <immintrin.h>

#include "norvane/runtime/cpu_features_internal.h"

#define NV_TARGET_AES __attribute__((target("aes,ssse3")))

namespace {

constexpr uint32_t kAesNiNeeds = KDCRT_CPU_AESNI | KDCRT_CPU_SSSE3;
constexpr int kMaxRounds = 29;  // 120 schedule words of 4-word blocks

NV_TARGET_AES inline __m128i SwapWords(__m128i v) {
  return _mm_shuffle_epi8(v, _mm_set_epi8(12, 13, 14, 15, 8, 9, 10, 11, 4, 5, 6, 7, 0, 1, 2, 3));
}

NV_TARGET_AES inline __m128i LoadWords(const uint32_t* w) {
  return SwapWords(_mm_loadu_si128(reinterpret_cast<const __m128i*>(w)));
}

NV_TARGET_AES inline __m128i Load(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
NV_TARGET_AES inline void Store(uint8_t* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }

// NR is the number of rounds, or 0 for a count known only at run time (keys of unusual lengths).
// Encryption is a chain: each block waits for the one before, so one block at a time.
template <int NR>
NV_TARGET_AES void CbcEncrypt(const AESContext* ctx, uint8_t* dest, const uint8_t* src, size_t blocks,
                              uint32_t chain[4]) {
  const int nr = NR ? NR : (ctx->Nr < kMaxRounds ? ctx->Nr : kMaxRounds);
  __m128i rk[NR ? NR + 1 : kMaxRounds + 1];
  for (int r = 0; r <= nr; ++r) rk[r] = LoadWords(ctx->keysched + 4 * r);
  __m128i c = LoadWords(chain);
  for (; blocks; --blocks, src += 16, dest += 16) {
    // The plaintext's own key addition is off the chain.
    __m128i x = _mm_xor_si128(c, _mm_xor_si128(Load(src), rk[0]));
#pragma GCC unroll 16
    for (int r = 1; r < nr; ++r) x = _mm_aesenc_si128(x, rk[r]);
    c = _mm_aesenclast_si128(x, rk[nr]);
    Store(dest, c);
  }
  _mm_storeu_si128(reinterpret_cast<__m128i*>(chain), SwapWords(c));
}

// Decryption of each block is independent of the others, so eight run side by side; every output
// is computed before any is stored, so dest may be src.
template <int NR>
NV_TARGET_AES void CbcDecrypt(const AESContext* ctx, uint8_t* dest, const uint8_t* src, size_t blocks,
                              uint32_t chain[4]) {
  const int nr = NR ? NR : (ctx->Nr < kMaxRounds ? ctx->Nr : kMaxRounds);
  __m128i rk[NR ? NR + 1 : kMaxRounds + 1];
  for (int r = 0; r <= nr; ++r) rk[r] = LoadWords(ctx->invkeysched + 4 * r);
  __m128i prev = LoadWords(chain);
  for (; blocks >= 8; blocks -= 8, src += 128, dest += 128) {
    __m128i b[8];
#pragma GCC unroll 8
    for (int i = 0; i < 8; ++i) b[i] = _mm_xor_si128(Load(src + 16 * i), rk[0]);
#pragma GCC unroll 16
    for (int r = 1; r < nr; ++r) {
      const __m128i k = rk[r];
#pragma GCC unroll 8
      for (int i = 0; i < 8; ++i) b[i] = _mm_aesdec_si128(b[i], k);
    }
#pragma GCC unroll 8
    for (int i = 0; i < 8; ++i) b[i] = _mm_aesdeclast_si128(b[i], rk[nr]);
    b[0] = _mm_xor_si128(b[0], prev);
#pragma GCC unroll 8
    for (int i = 1; i < 8; ++i) b[i] = _mm_xor_si128(b[i], Load(src + 16 * (i - 1)));
    prev = Load(src + 112);
#pragma GCC unroll 8
    for (int i = 0; i < 8; ++i) Store(dest + 16 * i, b[i]);
  }
  for (; blocks; --blocks, src += 16, dest += 16) {
    const __m128i cipher = Load(src);
    __m128i x = _mm_xor_si128(cipher, rk[0]);
#pragma GCC unroll 16
    for (int r = 1; r < nr; ++r) x = _mm_aesdec_si128(x, rk[r]);
    Store(dest, _mm_xor_si128(_mm_aesdeclast_si128(x, rk[nr]), prev));
    prev = cipher;
  }
  _mm_storeu_si128(reinterpret_cast<__m128i*>(chain), SwapWords(prev));
}

}  // namespace

bool aes_hw_capable() { return (KDCRT_GetCpuFeatures() & kAesNiNeeds) == kAesNiNeeds; }

void aes_hw_cbc_encrypt(const AESContext* ctx, uint8_t* dest, const uint8_t* src, size_t blocks, uint32_t chain[4]) {
  switch (ctx->Nr) {
    case 10: return CbcEncrypt<10>(ctx, dest, src, blocks, chain);
    case 12: return CbcEncrypt<12>(ctx, dest, src, blocks, chain);
    case 14: return CbcEncrypt<14>(ctx, dest, src, blocks, chain);
    default: return CbcEncrypt<0>(ctx, dest, src, blocks, chain);
  }
}

void aes_hw_cbc_decrypt(const AESContext* ctx, uint8_t* dest, const uint8_t* src, size_t blocks, uint32_t chain[4]) {
  switch (ctx->Nr) {
    case 10: return CbcDecrypt<10>(ctx, dest, src, blocks, chain);
    case 12: return CbcDecrypt<12>(ctx, dest, src, blocks, chain);
    case 14: return CbcDecrypt<14>(ctx, dest, src, blocks, chain);
    default: return CbcDecrypt<0>(ctx, dest, src, blocks, chain);
  }
}

#endif  // defined(__x86_64__)
