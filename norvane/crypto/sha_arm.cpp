// SHA-1, SHA-256 and SHA-512 kernels for ARM64 processors with the ARMv8 SHA instructions. Only
// these functions are compiled for the extensions; they run only where the predicates say the
// processor has them (as reported by the kernel's hardware capabilities).
#include "norvane/crypto/sha_internal.h"

#if defined(__aarch64__)

#include <arm_neon.h>

#include "norvane/runtime/cpu_features_internal.h"

#if defined(__clang__)
#define NV_TARGET_SHA2 __attribute__((target("sha2")))
#define NV_TARGET_SHA512 __attribute__((target("sha2,sha3")))
#else
#define NV_TARGET_SHA2 __attribute__((target("+crypto")))
#define NV_TARGET_SHA512 __attribute__((target("arch=armv8.2-a+sha3")))
#endif

bool sha1_hw_capable() { return (KDCRT_GetCpuFeatures() & KDCRT_CPU_ARM_SHA1) != 0; }
bool sha256_hw_capable() { return (KDCRT_GetCpuFeatures() & KDCRT_CPU_ARM_SHA256) != 0; }
bool sha512_hw_capable() { return (KDCRT_GetCpuFeatures() & KDCRT_CPU_ARM_SHA512) != 0; }

namespace {

NV_TARGET_SHA2 inline uint32x4_t LoadMessage32(const uint8_t* p) { return vreinterpretq_u32_u8(vrev32q_u8(vld1q_u8(p))); }

}  // namespace

// Group g of four rounds takes its words from m[g % 4], which then becomes the schedule for group
// g + 4.
NV_TARGET_SHA2 void sha1_block_data_order_hw(uint32_t state[5], const uint8_t* data, size_t n) {
  static const uint32_t kK[4] = {0x5a827999u, 0x6ed9eba1u, 0x8f1bbcdcu, 0xca62c1d6u};
  uint32x4_t abcd = vld1q_u32(state);
  uint32_t e = state[4];
  for (; n; --n, data += 64) {
    const uint32x4_t abcd_save = abcd;
    const uint32_t e_save = e;
    uint32x4_t m[4];
    for (int i = 0; i < 4; ++i) m[i] = LoadMessage32(data + 16 * i);
#pragma GCC unroll 20
    for (int g = 0; g < 20; ++g) {
      const uint32x4_t wk = vaddq_u32(m[g % 4], vdupq_n_u32(kK[g / 5]));
      const uint32_t e_next = vsha1h_u32(vgetq_lane_u32(abcd, 0));
      if (g < 5) {
        abcd = vsha1cq_u32(abcd, e, wk);
      } else if (g >= 10 && g < 15) {
        abcd = vsha1mq_u32(abcd, e, wk);
      } else {
        abcd = vsha1pq_u32(abcd, e, wk);
      }
      e = e_next;
      if (g < 16) m[g % 4] = vsha1su1q_u32(vsha1su0q_u32(m[g % 4], m[(g + 1) % 4], m[(g + 2) % 4]), m[(g + 3) % 4]);
    }
    abcd = vaddq_u32(abcd, abcd_save);
    e += e_save;
  }
  vst1q_u32(state, abcd);
  state[4] = e;
}

NV_TARGET_SHA2 void sha256_block_data_order_hw(uint32_t state[8], const uint8_t* data, size_t n) {
  uint32x4_t abcd = vld1q_u32(state);
  uint32x4_t efgh = vld1q_u32(state + 4);
  for (; n; --n, data += 64) {
    const uint32x4_t abcd_save = abcd;
    const uint32x4_t efgh_save = efgh;
    uint32x4_t m[4];
    for (int i = 0; i < 4; ++i) m[i] = LoadMessage32(data + 16 * i);
#pragma GCC unroll 16
    for (int g = 0; g < 16; ++g) {
      const uint32x4_t wk = vaddq_u32(m[g % 4], vld1q_u32(kdcrypt::kSha256K + 4 * g));
      if (g < 12) m[g % 4] = vsha256su1q_u32(vsha256su0q_u32(m[g % 4], m[(g + 1) % 4]), m[(g + 2) % 4], m[(g + 3) % 4]);
      const uint32x4_t abcd_in = abcd;
      abcd = vsha256hq_u32(abcd, efgh, wk);
      efgh = vsha256h2q_u32(efgh, abcd_in, wk);
    }
    abcd = vaddq_u32(abcd, abcd_save);
    efgh = vaddq_u32(efgh, efgh_save);
  }
  vst1q_u32(state, abcd);
  vst1q_u32(state + 4, efgh);
}

// Two rounds per step. The state lives in four registers of two words (ab, cd, ef, gh); each step
// leaves the new a, b and e, f in fresh registers, so the names rotate rather than the values.
NV_TARGET_SHA512 void sha512_block_data_order_hw(uint64_t state[8], const uint8_t* data, size_t n) {
  uint64x2_t ab = vld1q_u64(state), cd = vld1q_u64(state + 2), ef = vld1q_u64(state + 4), gh = vld1q_u64(state + 6);
  for (; n; --n, data += 128) {
    const uint64x2_t ab_save = ab, cd_save = cd, ef_save = ef, gh_save = gh;
    uint64x2_t s[8];
    for (int i = 0; i < 8; ++i) s[i] = vreinterpretq_u64_u8(vrev64q_u8(vld1q_u8(data + 16 * i)));
#pragma GCC unroll 40
    for (int k = 0; k < 40; ++k) {
      if (k >= 8) {
        s[k % 8] = vsha512su1q_u64(vsha512su0q_u64(s[k % 8], s[(k + 1) % 8]), s[(k + 7) % 8],
                                   vextq_u64(s[(k + 4) % 8], s[(k + 5) % 8], 1));
      }
      const uint64x2_t wk = vaddq_u64(s[k % 8], vld1q_u64(kdcrypt::kSha512K + 2 * k));
      const uint64x2_t sum = vaddq_u64(vextq_u64(wk, wk, 1), gh);
      const uint64x2_t t = vsha512hq_u64(sum, vextq_u64(ef, gh, 1), vextq_u64(cd, ef, 1));
      const uint64x2_t new_ab = vsha512h2q_u64(t, cd, ab);
      const uint64x2_t new_ef = vaddq_u64(cd, t);
      gh = ef;
      ef = new_ef;
      cd = ab;
      ab = new_ab;
    }
    ab = vaddq_u64(ab, ab_save);
    cd = vaddq_u64(cd, cd_save);
    ef = vaddq_u64(ef, ef_save);
    gh = vaddq_u64(gh, gh_save);
  }
  vst1q_u64(state, ab);
  vst1q_u64(state + 2, cd);
  vst1q_u64(state + 4, ef);
  vst1q_u64(state + 6, gh);
}

#endif  // defined(__aarch64__)
