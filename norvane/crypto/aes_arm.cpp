// AES-CBC kernels for ARM64 processors with the ARMv8 AES instructions. Only these functions are
// compiled for the extension; they run only where aes_hw_capable() says the processor has it.
//
// The context holds each schedule word big-endian-formed in host order; the instructions want the
// round keys as the bytes of the schedule, so each word is byte-swapped on loading. AESE and AESD
// add the round key before substituting, so a round is AESE then AESMC (AESD then AESIMC), and the
// last key is added on its own. The decryption schedule is the equivalent inverse cipher's.
#include "norvane/crypto/aes_internal.h"

#if defined(__aarch64__)

#include <arm_neon.h>

#include "norvane/runtime/cpu_features_internal.h"

#if defined(__clang__)
#define NV_TARGET_AES __attribute__((target("aes")))
#else
#define NV_TARGET_AES __attribute__((target("+crypto")))
#endif

namespace {

constexpr int kMaxRounds = 29;  // 120 schedule words of 4-word blocks

NV_TARGET_AES inline uint8x16_t LoadWords(const uint32_t* w) { return vrev32q_u8(vreinterpretq_u8_u32(vld1q_u32(w))); }

template <int NR>
NV_TARGET_AES void CbcEncrypt(const AESContext* ctx, uint8_t* dest, const uint8_t* src, size_t blocks,
                              uint32_t chain[4]) {
  const int nr = NR ? NR : (ctx->Nr < kMaxRounds ? ctx->Nr : kMaxRounds);
  uint8x16_t rk[NR ? NR + 1 : kMaxRounds + 1];
  for (int r = 0; r <= nr; ++r) rk[r] = LoadWords(ctx->keysched + 4 * r);
  uint8x16_t c = LoadWords(chain);
  for (; blocks; --blocks, src += 16, dest += 16) {
    uint8x16_t x = veorq_u8(c, vld1q_u8(src));
#pragma GCC unroll 16
    for (int r = 0; r < nr - 1; ++r) x = vaesmcq_u8(vaeseq_u8(x, rk[r]));
    c = veorq_u8(vaeseq_u8(x, rk[nr - 1]), rk[nr]);
    vst1q_u8(dest, c);
  }
  vst1q_u32(chain, vreinterpretq_u32_u8(vrev32q_u8(c)));
}

// Eight blocks side by side; every output is computed before any is stored, so dest may be src.
template <int NR>
NV_TARGET_AES void CbcDecrypt(const AESContext* ctx, uint8_t* dest, const uint8_t* src, size_t blocks,
                              uint32_t chain[4]) {
  const int nr = NR ? NR : (ctx->Nr < kMaxRounds ? ctx->Nr : kMaxRounds);
  uint8x16_t rk[NR ? NR + 1 : kMaxRounds + 1];
  for (int r = 0; r <= nr; ++r) rk[r] = LoadWords(ctx->invkeysched + 4 * r);
  uint8x16_t prev = LoadWords(chain);
  for (; blocks >= 8; blocks -= 8, src += 128, dest += 128) {
    uint8x16_t b[8];
#pragma GCC unroll 8
    for (int i = 0; i < 8; ++i) b[i] = vld1q_u8(src + 16 * i);
#pragma GCC unroll 16
    for (int r = 0; r < nr - 1; ++r) {
#pragma GCC unroll 8
      for (int i = 0; i < 8; ++i) b[i] = vaesimcq_u8(vaesdq_u8(b[i], rk[r]));
    }
#pragma GCC unroll 8
    for (int i = 0; i < 8; ++i) b[i] = veorq_u8(vaesdq_u8(b[i], rk[nr - 1]), rk[nr]);
    b[0] = veorq_u8(b[0], prev);
#pragma GCC unroll 8
    for (int i = 1; i < 8; ++i) b[i] = veorq_u8(b[i], vld1q_u8(src + 16 * (i - 1)));
    prev = vld1q_u8(src + 112);
#pragma GCC unroll 8
    for (int i = 0; i < 8; ++i) vst1q_u8(dest + 16 * i, b[i]);
  }
  for (; blocks; --blocks, src += 16, dest += 16) {
    const uint8x16_t cipher = vld1q_u8(src);
    uint8x16_t x = cipher;
#pragma GCC unroll 16
    for (int r = 0; r < nr - 1; ++r) x = vaesimcq_u8(vaesdq_u8(x, rk[r]));
    vst1q_u8(dest, veorq_u8(veorq_u8(vaesdq_u8(x, rk[nr - 1]), rk[nr]), prev));
    prev = cipher;
  }
  vst1q_u32(chain, vreinterpretq_u32_u8(vrev32q_u8(prev)));
}

}  // namespace

bool aes_hw_capable() { return (KDCRT_GetCpuFeatures() & KDCRT_CPU_ARM_AES) != 0; }

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

#endif  // defined(__aarch64__)
