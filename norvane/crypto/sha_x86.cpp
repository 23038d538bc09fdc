// SHA-1 and SHA-256 kernels for x86-64 processors with the SHA extensions (SHA-NI). Only these
// functions are compiled for the extensions; the rest of the library stays baseline x86-64, and
// the kernels run only where the predicates say the processor has what they need.
#include "norvane/crypto/sha_internal.h"

#if defined(__x86_64__)

#include <immintrin.h>

#include "norvane/runtime/cpu_features_internal.h"

#define NV_TARGET_SHA __attribute__((target("sha,sse4.1,ssse3")))

namespace {

constexpr uint32_t kShaNiNeeds = KDCRT_CPU_SHANI | KDCRT_CPU_SSE41 | KDCRT_CPU_SSSE3;

}  // namespace

bool sha1_hw_capable() { return (KDCRT_GetCpuFeatures() & kShaNiNeeds) == kShaNiNeeds; }
bool sha256_hw_capable() { return sha1_hw_capable(); }

// The state is held as ABCD in one register (A in the top lane) and E in the top lane of another.
// Each group g of four rounds takes its schedule words from m[g % 4]; the schedule for later groups
// is built from the message in the same registers as the rounds run.
NV_TARGET_SHA void sha1_block_data_order_hw(uint32_t state[5], const uint8_t* data, size_t n) {
  const __m128i kByteSwap = _mm_set_epi64x(0x0001020304050607ll, 0x08090a0b0c0d0e0fll);
  __m128i abcd = _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(state)), 0x1b);
  __m128i e0 = _mm_set_epi32(static_cast<int>(state[4]), 0, 0, 0);
  for (; n; --n, data += 64) {
    const __m128i abcd_save = abcd;
    const __m128i e_save = e0;
    __m128i m[4], e1;
    for (int i = 0; i < 4; ++i) {
      m[i] = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(data + 16 * i)), kByteSwap);
    }
    // Group g of four rounds. ecur receives E for this group, enext keeps ABCD for the next one.
#define NV_SHA1_GROUP(g, ecur, enext)                                                           \
  do {                                                                                          \
    if ((g) == 0) {                                                                             \
      ecur = _mm_add_epi32(ecur, m[0]);                                                         \
    } else {                                                                                    \
      ecur = _mm_sha1nexte_epu32(ecur, m[(g) % 4]);                                             \
    }                                                                                           \
    enext = abcd;                                                                               \
    if ((g) >= 3 && (g) <= 18) m[((g) + 1) % 4] = _mm_sha1msg2_epu32(m[((g) + 1) % 4], m[(g) % 4]); \
    abcd = _mm_sha1rnds4_epu32(abcd, ecur, (g) / 5);                                            \
    if ((g) >= 1 && (g) <= 16) m[((g) + 3) % 4] = _mm_sha1msg1_epu32(m[((g) + 3) % 4], m[(g) % 4]); \
    if ((g) >= 2 && (g) <= 17) m[((g) + 2) % 4] = _mm_xor_si128(m[((g) + 2) % 4], m[(g) % 4]);   \
  } while (0)
    NV_SHA1_GROUP(0, e0, e1);
    NV_SHA1_GROUP(1, e1, e0);
    NV_SHA1_GROUP(2, e0, e1);
    NV_SHA1_GROUP(3, e1, e0);
    NV_SHA1_GROUP(4, e0, e1);
    NV_SHA1_GROUP(5, e1, e0);
    NV_SHA1_GROUP(6, e0, e1);
    NV_SHA1_GROUP(7, e1, e0);
    NV_SHA1_GROUP(8, e0, e1);
    NV_SHA1_GROUP(9, e1, e0);
    NV_SHA1_GROUP(10, e0, e1);
    NV_SHA1_GROUP(11, e1, e0);
    NV_SHA1_GROUP(12, e0, e1);
    NV_SHA1_GROUP(13, e1, e0);
    NV_SHA1_GROUP(14, e0, e1);
    NV_SHA1_GROUP(15, e1, e0);
    NV_SHA1_GROUP(16, e0, e1);
    NV_SHA1_GROUP(17, e1, e0);
    NV_SHA1_GROUP(18, e0, e1);
    NV_SHA1_GROUP(19, e1, e0);
#undef NV_SHA1_GROUP
    e0 = _mm_sha1nexte_epu32(e0, e_save);
    abcd = _mm_add_epi32(abcd, abcd_save);
  }
  _mm_storeu_si128(reinterpret_cast<__m128i*>(state), _mm_shuffle_epi32(abcd, 0x1b));
  state[4] = static_cast<uint32_t>(_mm_extract_epi32(e0, 3));
}

// The state is held as ABEF and CDGH, the order the round instruction wants. Group g of four rounds
// uses m[g % 4]; the message schedule is extended in the same registers (msg1 three groups ahead,
// msg2 one group ahead).
NV_TARGET_SHA void sha256_block_data_order_hw(uint32_t state[8], const uint8_t* data, size_t n) {
  const __m128i kByteSwap = _mm_set_epi64x(0x0c0d0e0f08090a0bll, 0x0405060700010203ll);
  const __m128i* k = reinterpret_cast<const __m128i*>(kdcrypt::kSha256K);
  __m128i dcba = _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(state)), 0xb1);  // CDAB
  __m128i efgh = _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(state + 4)), 0x1b);
  __m128i abef = _mm_alignr_epi8(dcba, efgh, 8);
  __m128i cdgh = _mm_blend_epi16(efgh, dcba, 0xf0);
  for (; n; --n, data += 64) {
    const __m128i abef_save = abef;
    const __m128i cdgh_save = cdgh;
    __m128i m[4];
    for (int i = 0; i < 4; ++i) {
      m[i] = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(data + 16 * i)), kByteSwap);
    }
#define NV_SHA256_GROUP(g)                                                           \
  do {                                                                               \
    __m128i wk = _mm_add_epi32(m[(g) % 4], _mm_load_si128(k + (g)));                 \
    cdgh = _mm_sha256rnds2_epu32(cdgh, abef, wk);                                    \
    if ((g) >= 3 && (g) <= 14) {                                                     \
      __m128i t = _mm_alignr_epi8(m[(g) % 4], m[((g) + 3) % 4], 4);                  \
      m[((g) + 1) % 4] = _mm_sha256msg2_epu32(_mm_add_epi32(m[((g) + 1) % 4], t), m[(g) % 4]); \
    }                                                                                \
    abef = _mm_sha256rnds2_epu32(abef, cdgh, _mm_shuffle_epi32(wk, 0x0e));           \
    if ((g) >= 1 && (g) <= 12) m[((g) + 3) % 4] = _mm_sha256msg1_epu32(m[((g) + 3) % 4], m[(g) % 4]); \
  } while (0)
    NV_SHA256_GROUP(0);
    NV_SHA256_GROUP(1);
    NV_SHA256_GROUP(2);
    NV_SHA256_GROUP(3);
    NV_SHA256_GROUP(4);
    NV_SHA256_GROUP(5);
    NV_SHA256_GROUP(6);
    NV_SHA256_GROUP(7);
    NV_SHA256_GROUP(8);
    NV_SHA256_GROUP(9);
    NV_SHA256_GROUP(10);
    NV_SHA256_GROUP(11);
    NV_SHA256_GROUP(12);
    NV_SHA256_GROUP(13);
    NV_SHA256_GROUP(14);
    NV_SHA256_GROUP(15);
#undef NV_SHA256_GROUP
    abef = _mm_add_epi32(abef, abef_save);
    cdgh = _mm_add_epi32(cdgh, cdgh_save);
  }
  __m128i feba = _mm_shuffle_epi32(abef, 0x1b);
  __m128i dchg = _mm_shuffle_epi32(cdgh, 0xb1);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(state), _mm_blend_epi16(feba, dchg, 0xf0));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(state + 4), _mm_alignr_epi8(dchg, feba, 8));
}

#endif  // defined(__x86_64__)
