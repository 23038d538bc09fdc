// AES-CBC kernels for x86-64 processors with AES-NI: the loops of aes_cbc_hw_internal.h over the
// instructions described here. Only these functions are compiled for the extension; they run only
// where aes_hw_capable() says the processor has it.
//
// The context holds each schedule word big-endian-formed in host order; the instructions want the
// round keys as the bytes of the schedule, so each word is byte-swapped on loading. The decryption
// schedule is already the equivalent inverse cipher's, which is what AESDEC expects.
#include "norvane/crypto/aes_internal.h"

#if defined(__x86_64__)

#include <immintrin.h>

#include "norvane/runtime/cpu_features_internal.h"

#define NV_TARGET_AES __attribute__((target("aes,ssse3")))

// The CBC loops, compiled here for NV_TARGET_AES.
#include "norvane/crypto/aes_cbc_hw_internal.h"

namespace {

constexpr uint32_t kAesNiNeeds = KDCRT_CPU_AESNI | KDCRT_CPU_SSSE3;

NV_TARGET_AES inline __m128i SwapWords(__m128i v) {
  return _mm_shuffle_epi8(v, _mm_set_epi8(12, 13, 14, 15, 8, 9, 10, 11, 4, 5, 6, 7, 0, 1, 2, 3));
}

// AESENC and AESDEC do a whole round, the key addition last, so the first key is added on its own.
struct AesNi {
  using Block = __m128i;
  NV_TARGET_AES static Block Load(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
  NV_TARGET_AES static void Store(uint8_t* p, Block v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }
  NV_TARGET_AES static Block Xor(Block a, Block b) { return _mm_xor_si128(a, b); }
  NV_TARGET_AES static Block LoadWords(const uint32_t* w) {
    return SwapWords(_mm_loadu_si128(reinterpret_cast<const __m128i*>(w)));
  }
  NV_TARGET_AES static void StoreWords(uint32_t* w, Block v) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(w), SwapWords(v));
  }
  NV_TARGET_AES static Block First(Block x, const Block* rk) { return _mm_xor_si128(x, rk[0]); }
  NV_TARGET_AES static Block EncryptRound(Block x, const Block* rk, int r) { return _mm_aesenc_si128(x, rk[r]); }
  NV_TARGET_AES static Block EncryptLast(Block x, const Block* rk, int nr) { return _mm_aesenclast_si128(x, rk[nr]); }
  NV_TARGET_AES static Block DecryptRound(Block x, const Block* rk, int r) { return _mm_aesdec_si128(x, rk[r]); }
  NV_TARGET_AES static Block DecryptLast(Block x, const Block* rk, int nr) { return _mm_aesdeclast_si128(x, rk[nr]); }
};

}  // namespace

bool aes_hw_capable() { return (KDCRT_GetCpuFeatures() & kAesNiNeeds) == kAesNiNeeds; }

void aes_hw_cbc_encrypt(const AESContext* ctx, uint8_t* dest, const uint8_t* src, size_t blocks, uint32_t chain[4]) {
  kdcrypt::AesCbcEncryptHwAny<AesNi>(ctx, dest, src, blocks, chain);
}

void aes_hw_cbc_decrypt(const AESContext* ctx, uint8_t* dest, const uint8_t* src, size_t blocks, uint32_t chain[4]) {
  kdcrypt::AesCbcDecryptHwAny<AesNi>(ctx, dest, src, blocks, chain);
}

#endif  // defined(__x86_64__)
