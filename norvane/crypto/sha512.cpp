// SHA-384 and SHA-512: the public functions, the portable kernel and the choice of kernel. Both
// digests share the context, the compression and Update; they differ in initial values and in how
// much of the state Finish writes.
#include <cstring>

#include "norvane/crypto/sha.h"
#include "norvane/crypto/sha_internal.h"

using kdcrypt::LoadBE64;

namespace kdcrypt {
alignas(64) const uint64_t kSha512K[80] = {
    0x428a2f98d728ae22ull, 0x7137449123ef65cdull, 0xb5c0fbcfec4d3b2full, 0xe9b5dba58189dbbcull,
    0x3956c25bf348b538ull, 0x59f111f1b605d019ull, 0x923f82a4af194f9bull, 0xab1c5ed5da6d8118ull,
    0xd807aa98a3030242ull, 0x12835b0145706fbeull, 0x243185be4ee4b28cull, 0x550c7dc3d5ffb4e2ull,
    0x72be5d74f27b896full, 0x80deb1fe3b1696b1ull, 0x9bdc06a725c71235ull, 0xc19bf174cf692694ull,
    0xe49b69c19ef14ad2ull, 0xefbe4786384f25e3ull, 0x0fc19dc68b8cd5b5ull, 0x240ca1cc77ac9c65ull,
    0x2de92c6f592b0275ull, 0x4a7484aa6ea6e483ull, 0x5cb0a9dcbd41fbd4ull, 0x76f988da831153b5ull,
    0x983e5152ee66dfabull, 0xa831c66d2db43210ull, 0xb00327c898fb213full, 0xbf597fc7beef0ee4ull,
    0xc6e00bf33da88fc2ull, 0xd5a79147930aa725ull, 0x06ca6351e003826full, 0x142929670a0e6e70ull,
    0x27b70a8546d22ffcull, 0x2e1b21385c26c926ull, 0x4d2c6dfc5ac42aedull, 0x53380d139d95b3dfull,
    0x650a73548baf63deull, 0x766a0abb3c77b2a8ull, 0x81c2c92e47edaee6ull, 0x92722c851482353bull,
    0xa2bfe8a14cf10364ull, 0xa81a664bbc423001ull, 0xc24b8b70d0f89791ull, 0xc76c51a30654be30ull,
    0xd192e819d6ef5218ull, 0xd69906245565a910ull, 0xf40e35855771202aull, 0x106aa07032bbd1b8ull,
    0x19a4c116b8d2d0c8ull, 0x1e376c085141ab53ull, 0x2748774cdf8eeb99ull, 0x34b0bcb5e19b48a8ull,
    0x391c0cb3c5c95a63ull, 0x4ed8aa4ae3418acbull, 0x5b9cca4f7763e373ull, 0x682e6ff3d6b2b8a3ull,
    0x748f82ee5defb2fcull, 0x78a5636f43172f60ull, 0x84c87814a1f0ab72ull, 0x8cc702081a6439ecull,
    0x90befffa23631e28ull, 0xa4506cebde82bde9ull, 0xbef9a3f7b2c67915ull, 0xc67178f2e372532bull,
    0xca273eceea26619cull, 0xd186b8c721c0c207ull, 0xeada7dd6cde0eb1eull, 0xf57d4f7fee6ed178ull,
    0x06f067aa72176fbaull, 0x0a637dc5a2c898a6ull, 0x113f9804bef90daeull, 0x1b710b35131c471bull,
    0x28db77f523047d84ull, 0x32caab7b40c72493ull, 0x3c9ebe0a15c9bebcull, 0x431d67c49c100d4cull,
    0x4cc5d4becb3e42b6ull, 0x597f299cfc657e2aull, 0x5fcb6fab3ad6faecull, 0x6c44198c4a475817ull,
};
}  // namespace kdcrypt

namespace {

using kdcrypt::kSha512K;

inline uint64_t Ror(uint64_t x, int n) { return (x >> n) | (x << (64 - n)); }

CRYPT_SHA512Context* Ctx(void* context) { return static_cast<CRYPT_SHA512Context*>(context); }

// The initial hash values (FIPS 180-4, 5.3.4 and 5.3.5).
const uint64_t kSha384Initial[8] = {
    0xcbbb9d5dc1059ed8ull, 0x629a292a367cd507ull, 0x9159015a3070dd17ull, 0x152fecd8f70e5939ull,
    0x67332667ffc00b31ull, 0x8eb44a8768581511ull, 0xdb0c2e0d64f98fa7ull, 0x47b5481dbefa4fa4ull,
};
const uint64_t kSha512Initial[8] = {
    0x6a09e667f3bcc908ull, 0xbb67ae8584caa73bull, 0x3c6ef372fe94f82bull, 0xa54ff53a5f1d36f1ull,
    0x510e527fade682d1ull, 0x9b05688c2b3e6c1full, 0x1f83d9abfb41bd6bull, 0x5be0cd19137e2179ull,
};

// Start clears the whole context and loads the initial values; a null context is ignored.
void Start(void* context, const uint64_t (&initial)[8]) {
  if (!context) return;
  CRYPT_SHA512Context* ctx = Ctx(context);
  std::memset(ctx, 0, sizeof *ctx);
  std::memcpy(ctx->state, initial, sizeof ctx->state);
}

// sha384_process compresses one 128-byte block into state. Sixteen rounds are written out per
// pass, so the schedule ring is indexed by constants and the working variables are renamed rather
// than moved.
inline void sha384_process(uint64_t state[8], const uint8_t* block) {
  uint64_t w[16];
  for (int t = 0; t < 16; ++t) w[t] = LoadBE64(block + 8 * t);
  uint64_t a = state[0], b = state[1], c = state[2], d = state[3];
  uint64_t e = state[4], f = state[5], g = state[6], h = state[7];
  for (int j = 0; j < 80; j += 16) {
#define NV_W(i)                                                                                        \
  (j == 0 ? w[i]                                                                                       \
          : (w[i] += (Ror(w[((i) + 14) & 15], 19) ^ Ror(w[((i) + 14) & 15], 61) ^ (w[((i) + 14) & 15] >> 6)) + \
                     w[((i) + 9) & 15] +                                                               \
                     (Ror(w[((i) + 1) & 15], 1) ^ Ror(w[((i) + 1) & 15], 8) ^ (w[((i) + 1) & 15] >> 7))))
#define NV_R(a, b, c, d, e, f, g, h, i)                                                                    \
  do {                                                                                                     \
    uint64_t t1 = h + (Ror(e, 14) ^ Ror(e, 18) ^ Ror(e, 41)) + (g ^ (e & (f ^ g))) + kSha512K[j + (i)] + NV_W(i); \
    d += t1;                                                                                               \
    h = t1 + (Ror(a, 28) ^ Ror(a, 34) ^ Ror(a, 39)) + ((a & b) | (c & (a | b)));                            \
  } while (0)
      NV_SHA2_16_ROUNDS(NV_R);
#undef NV_R
#undef NV_W
  }
  kdcrypt::Sha2FeedForward(state, a, b, c, d, e, f, g, h);
}

}  // namespace

void sha512_block_data_order_nohw(uint64_t state[8], const uint8_t* data, size_t n) {
  for (; n; --n, data += 128) sha384_process(state, data);
}

#if !defined(NORVANE_SHA512_HW)
bool sha512_hw_capable() { return false; }
#endif

namespace kdcrypt {

kd_sha512_block_fn Sha512Kernel() {
  static const kd_sha512_block_fn kernel = [] {
#if defined(NORVANE_SHA512_HW)
    if (sha512_hw_capable()) return &sha512_block_data_order_hw;
#endif
#if defined(NORVANE_SHA512_AVX2)
    if (sha512_avx2_capable()) return &sha512_block_data_order_avx2;
#endif
    return &sha512_block_data_order_nohw;
  }();
  return kernel;
}

const ShaKernelEntry<kd_sha512_block_fn>* Sha512Kernels() {
  static const ShaKernelEntry<kd_sha512_block_fn>* list = [] {
    static ShaKernelEntry<kd_sha512_block_fn> entries[3] = {{"portable", &sha512_block_data_order_nohw}};
#if defined(NORVANE_SHA512_HW)
    if (sha512_hw_capable()) entries[1] = {"hardware", &sha512_block_data_order_hw};
#endif
#if defined(NORVANE_SHA512_AVX2)
    if (sha512_avx2_capable()) entries[1] = {"avx2", &sha512_block_data_order_avx2};
#endif
    return entries;
  }();
  return list;
}

void Sha512Update(CRYPT_SHA512Context* ctx, const uint8_t* data, uint32_t size, kd_sha512_block_fn blocks) {
  BufferedUpdate(ctx, data, size, blocks);
}

void Sha512Finish(CRYPT_SHA512Context* ctx, uint8_t* digest, int words, kd_sha512_block_fn blocks) {
  BufferedFinish(ctx, digest, words, blocks, &Sha512Update);
}

}  // namespace kdcrypt

void CRYPT_SHA384Start(void* context) { Start(context, kSha384Initial); }

void CRYPT_SHA384Update(void* context, const uint8_t* data, uint32_t size) {
  kdcrypt::Sha512Update(Ctx(context), data, size, kdcrypt::Sha512Kernel());
}

void CRYPT_SHA384Finish(void* context, uint8_t digest[48]) {
  kdcrypt::Sha512Finish(Ctx(context), digest, 6, kdcrypt::Sha512Kernel());
}

void CRYPT_SHA384Generate(const uint8_t* data, uint32_t size, uint8_t digest[48]) {
  CRYPT_SHA512Context ctx;
  CRYPT_SHA384Start(&ctx);
  CRYPT_SHA384Update(&ctx, data, size);
  CRYPT_SHA384Finish(&ctx, digest);
}

void CRYPT_SHA512Start(void* context) { Start(context, kSha512Initial); }

void CRYPT_SHA512Update(void* context, const uint8_t* data, uint32_t size) { CRYPT_SHA384Update(context, data, size); }

void CRYPT_SHA512Finish(void* context, uint8_t digest[64]) {
  kdcrypt::Sha512Finish(Ctx(context), digest, 8, kdcrypt::Sha512Kernel());
}

void CRYPT_SHA512Generate(const uint8_t* data, uint32_t size, uint8_t digest[64]) {
  CRYPT_SHA512Context ctx;
  CRYPT_SHA512Start(&ctx);
  CRYPT_SHA512Update(&ctx, data, size);
  CRYPT_SHA512Finish(&ctx, digest);
}
