// AES-CBC kernels for ARM64 processors with the ARMv8 AES instructions: the loops of
// aes_cbc_hw_internal.h over the instructions described here. Only these functions are compiled for
// the extension; they run only where aes_hw_capable() says the processor has it.
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

// The CBC loops, compiled here for NV_TARGET_AES.
#include "norvane/crypto/aes_cbc_hw_internal.h"

namespace {

// Round r is AESE then AESMC (AESD then AESIMC) with key r - 1, since the instruction adds the key
// first; the last round adds two keys, and nothing comes before round 1.
struct ArmAes {
  using Block = uint8x16_t;
  NV_TARGET_AES static Block Load(const uint8_t* p) { return vld1q_u8(p); }
  NV_TARGET_AES static void Store(uint8_t* p, Block v) { vst1q_u8(p, v); }
  NV_TARGET_AES static Block Xor(Block a, Block b) { return veorq_u8(a, b); }
  NV_TARGET_AES static Block LoadWords(const uint32_t* w) { return vrev32q_u8(vreinterpretq_u8_u32(vld1q_u32(w))); }
  NV_TARGET_AES static void StoreWords(uint32_t* w, Block v) { vst1q_u32(w, vreinterpretq_u32_u8(vrev32q_u8(v))); }
  NV_TARGET_AES static Block First(Block x, const Block*) { return x; }
  NV_TARGET_AES static Block EncryptRound(Block x, const Block* rk, int r) {
    return vaesmcq_u8(vaeseq_u8(x, rk[r - 1]));
  }
  NV_TARGET_AES static Block EncryptLast(Block x, const Block* rk, int nr) {
    return veorq_u8(vaeseq_u8(x, rk[nr - 1]), rk[nr]);
  }
  NV_TARGET_AES static Block DecryptRound(Block x, const Block* rk, int r) {
    return vaesimcq_u8(vaesdq_u8(x, rk[r - 1]));
  }
  NV_TARGET_AES static Block DecryptLast(Block x, const Block* rk, int nr) {
    return veorq_u8(vaesdq_u8(x, rk[nr - 1]), rk[nr]);
  }
};

}  // namespace

bool aes_hw_capable() { return (KDCRT_GetCpuFeatures() & KDCRT_CPU_ARM_AES) != 0; }

void aes_hw_cbc_encrypt(const AESContext* ctx, uint8_t* dest, const uint8_t* src, size_t blocks, uint32_t chain[4]) {
  kdcrypt::AesCbcEncryptHwAny<ArmAes>(ctx, dest, src, blocks, chain);
}

void aes_hw_cbc_decrypt(const AESContext* ctx, uint8_t* dest, const uint8_t* src, size_t blocks, uint32_t chain[4]) {
  kdcrypt::AesCbcDecryptHwAny<ArmAes>(ctx, dest, src, blocks, chain);
}

#endif  // defined(__aarch64__)
