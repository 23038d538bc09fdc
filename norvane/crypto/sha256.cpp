// SHA-256: the public functions, the portable kernel and the choice of kernel.
#include "norvane/crypto/sha.h"
#include "norvane/crypto/sha_internal.h"

using kdcrypt::LoadBE32;

namespace {

inline uint32_t Ror(uint32_t x, int n) { return (x >> n) | (x << (32 - n)); }

CRYPT_SHA256Context* Ctx(void* context) { return static_cast<CRYPT_SHA256Context*>(context); }

// sha256_process compresses one 64-byte block into state. The 64 rounds are written out, so the
// working variables never move: each round renames them instead. The schedule is kept as a ring of
// 16 words, extended as the rounds reach it.
void sha256_process(uint32_t state[8], const uint8_t* block) {
  uint32_t w[16];
  for (int t = 0; t < 16; ++t) w[t] = LoadBE32(block + 4 * t);
  uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
  uint32_t e = state[4], f = state[5], g = state[6], h = state[7];
#define NV_W(i)                                                                                  \
  ((i) < 16 ? w[(i) & 15]                                                                        \
            : (w[(i) & 15] += (Ror(w[((i) - 2) & 15], 17) ^ Ror(w[((i) - 2) & 15], 19) ^         \
                               (w[((i) - 2) & 15] >> 10)) +                                      \
                              w[((i) - 7) & 15] +                                                \
                              (Ror(w[((i) - 15) & 15], 7) ^ Ror(w[((i) - 15) & 15], 18) ^        \
                               (w[((i) - 15) & 15] >> 3))))
#define NV_R(a, b, c, d, e, f, g, h, i, k)                                                      \
  do {                                                                                           \
    uint32_t t1 = h + (Ror(e, 6) ^ Ror(e, 11) ^ Ror(e, 25)) + (g ^ (e & (f ^ g))) + (k) + NV_W(i); \
    d += t1;                                                                                     \
    h = t1 + (Ror(a, 2) ^ Ror(a, 13) ^ Ror(a, 22)) + ((a & b) | (c & (a | b)));                  \
  } while (0)
  NV_R(a, b, c, d, e, f, g, h,  0, 0x428a2f98u);
  NV_R(h, a, b, c, d, e, f, g,  1, 0x71374491u);
  NV_R(g, h, a, b, c, d, e, f,  2, 0xb5c0fbcfu);
  NV_R(f, g, h, a, b, c, d, e,  3, 0xe9b5dba5u);
  NV_R(e, f, g, h, a, b, c, d,  4, 0x3956c25bu);
  NV_R(d, e, f, g, h, a, b, c,  5, 0x59f111f1u);
  NV_R(c, d, e, f, g, h, a, b,  6, 0x923f82a4u);
  NV_R(b, c, d, e, f, g, h, a,  7, 0xab1c5ed5u);
  NV_R(a, b, c, d, e, f, g, h,  8, 0xd807aa98u);
  NV_R(h, a, b, c, d, e, f, g,  9, 0x12835b01u);
  NV_R(g, h, a, b, c, d, e, f, 10, 0x243185beu);
  NV_R(f, g, h, a, b, c, d, e, 11, 0x550c7dc3u);
  NV_R(e, f, g, h, a, b, c, d, 12, 0x72be5d74u);
  NV_R(d, e, f, g, h, a, b, c, 13, 0x80deb1feu);
  NV_R(c, d, e, f, g, h, a, b, 14, 0x9bdc06a7u);
  NV_R(b, c, d, e, f, g, h, a, 15, 0xc19bf174u);
  NV_R(a, b, c, d, e, f, g, h, 16, 0xe49b69c1u);
  NV_R(h, a, b, c, d, e, f, g, 17, 0xefbe4786u);
  NV_R(g, h, a, b, c, d, e, f, 18, 0x0fc19dc6u);
  NV_R(f, g, h, a, b, c, d, e, 19, 0x240ca1ccu);
  NV_R(e, f, g, h, a, b, c, d, 20, 0x2de92c6fu);
  NV_R(d, e, f, g, h, a, b, c, 21, 0x4a7484aau);
  NV_R(c, d, e, f, g, h, a, b, 22, 0x5cb0a9dcu);
  NV_R(b, c, d, e, f, g, h, a, 23, 0x76f988dau);
  NV_R(a, b, c, d, e, f, g, h, 24, 0x983e5152u);
  NV_R(h, a, b, c, d, e, f, g, 25, 0xa831c66du);
  NV_R(g, h, a, b, c, d, e, f, 26, 0xb00327c8u);
  NV_R(f, g, h, a, b, c, d, e, 27, 0xbf597fc7u);
  NV_R(e, f, g, h, a, b, c, d, 28, 0xc6e00bf3u);
  NV_R(d, e, f, g, h, a, b, c, 29, 0xd5a79147u);
  NV_R(c, d, e, f, g, h, a, b, 30, 0x06ca6351u);
  NV_R(b, c, d, e, f, g, h, a, 31, 0x14292967u);
  NV_R(a, b, c, d, e, f, g, h, 32, 0x27b70a85u);
  NV_R(h, a, b, c, d, e, f, g, 33, 0x2e1b2138u);
  NV_R(g, h, a, b, c, d, e, f, 34, 0x4d2c6dfcu);
  NV_R(f, g, h, a, b, c, d, e, 35, 0x53380d13u);
  NV_R(e, f, g, h, a, b, c, d, 36, 0x650a7354u);
  NV_R(d, e, f, g, h, a, b, c, 37, 0x766a0abbu);
  NV_R(c, d, e, f, g, h, a, b, 38, 0x81c2c92eu);
  NV_R(b, c, d, e, f, g, h, a, 39, 0x92722c85u);
  NV_R(a, b, c, d, e, f, g, h, 40, 0xa2bfe8a1u);
  NV_R(h, a, b, c, d, e, f, g, 41, 0xa81a664bu);
  NV_R(g, h, a, b, c, d, e, f, 42, 0xc24b8b70u);
  NV_R(f, g, h, a, b, c, d, e, 43, 0xc76c51a3u);
  NV_R(e, f, g, h, a, b, c, d, 44, 0xd192e819u);
  NV_R(d, e, f, g, h, a, b, c, 45, 0xd6990624u);
  NV_R(c, d, e, f, g, h, a, b, 46, 0xf40e3585u);
  NV_R(b, c, d, e, f, g, h, a, 47, 0x106aa070u);
  NV_R(a, b, c, d, e, f, g, h, 48, 0x19a4c116u);
  NV_R(h, a, b, c, d, e, f, g, 49, 0x1e376c08u);
  NV_R(g, h, a, b, c, d, e, f, 50, 0x2748774cu);
  NV_R(f, g, h, a, b, c, d, e, 51, 0x34b0bcb5u);
  NV_R(e, f, g, h, a, b, c, d, 52, 0x391c0cb3u);
  NV_R(d, e, f, g, h, a, b, c, 53, 0x4ed8aa4au);
  NV_R(c, d, e, f, g, h, a, b, 54, 0x5b9cca4fu);
  NV_R(b, c, d, e, f, g, h, a, 55, 0x682e6ff3u);
  NV_R(a, b, c, d, e, f, g, h, 56, 0x748f82eeu);
  NV_R(h, a, b, c, d, e, f, g, 57, 0x78a5636fu);
  NV_R(g, h, a, b, c, d, e, f, 58, 0x84c87814u);
  NV_R(f, g, h, a, b, c, d, e, 59, 0x8cc70208u);
  NV_R(e, f, g, h, a, b, c, d, 60, 0x90befffau);
  NV_R(d, e, f, g, h, a, b, c, 61, 0xa4506cebu);
  NV_R(c, d, e, f, g, h, a, b, 62, 0xbef9a3f7u);
  NV_R(b, c, d, e, f, g, h, a, 63, 0xc67178f2u);
#undef NV_R
#undef NV_W
  kdcrypt::Sha2FeedForward(state, a, b, c, d, e, f, g, h);
}

}  // namespace

void sha256_block_data_order_nohw(uint32_t state[8], const uint8_t* data, size_t n) {
  for (; n; --n, data += 64) sha256_process(state, data);
}

#if !defined(NORVANE_SHA256_HW)
bool sha256_hw_capable() { return false; }
#endif

namespace kdcrypt {

alignas(64) const uint32_t kSha256K[64] = {
    0x428a2f98u, 0x71374491u, 0xb5c0fbcfu, 0xe9b5dba5u, 0x3956c25bu, 0x59f111f1u, 0x923f82a4u, 0xab1c5ed5u,
    0xd807aa98u, 0x12835b01u, 0x243185beu, 0x550c7dc3u, 0x72be5d74u, 0x80deb1feu, 0x9bdc06a7u, 0xc19bf174u,
    0xe49b69c1u, 0xefbe4786u, 0x0fc19dc6u, 0x240ca1ccu, 0x2de92c6fu, 0x4a7484aau, 0x5cb0a9dcu, 0x76f988dau,
    0x983e5152u, 0xa831c66du, 0xb00327c8u, 0xbf597fc7u, 0xc6e00bf3u, 0xd5a79147u, 0x06ca6351u, 0x14292967u,
    0x27b70a85u, 0x2e1b2138u, 0x4d2c6dfcu, 0x53380d13u, 0x650a7354u, 0x766a0abbu, 0x81c2c92eu, 0x92722c85u,
    0xa2bfe8a1u, 0xa81a664bu, 0xc24b8b70u, 0xc76c51a3u, 0xd192e819u, 0xd6990624u, 0xf40e3585u, 0x106aa070u,
    0x19a4c116u, 0x1e376c08u, 0x2748774cu, 0x34b0bcb5u, 0x391c0cb3u, 0x4ed8aa4au, 0x5b9cca4fu, 0x682e6ff3u,
    0x748f82eeu, 0x78a5636fu, 0x84c87814u, 0x8cc70208u, 0x90befffau, 0xa4506cebu, 0xbef9a3f7u, 0xc67178f2u,
};

kd_sha256_block_fn Sha256Kernel() {
  static const kd_sha256_block_fn kernel = [] {
#if defined(NORVANE_SHA256_HW)
    if (sha256_hw_capable()) return &sha256_block_data_order_hw;
#endif
    return &sha256_block_data_order_nohw;
  }();
  return kernel;
}

const ShaKernelEntry<kd_sha256_block_fn>* Sha256Kernels() {
  static const ShaKernelEntry<kd_sha256_block_fn>* list = [] {
    static ShaKernelEntry<kd_sha256_block_fn> entries[3] = {{"portable", &sha256_block_data_order_nohw}};
#if defined(NORVANE_SHA256_HW)
    if (sha256_hw_capable()) entries[1] = {"hardware", &sha256_block_data_order_hw};
#endif
    return entries;
  }();
  return list;
}

void Sha256Update(CRYPT_SHA256Context* ctx, const uint8_t* data, uint32_t size, kd_sha256_block_fn blocks) {
  BufferedUpdate(ctx, data, size, blocks);
}

void Sha256Finish(CRYPT_SHA256Context* ctx, uint8_t digest[32], kd_sha256_block_fn blocks) {
  BufferedFinish(ctx, digest, 8, blocks, &Sha256Update);
}

}  // namespace kdcrypt

void CRYPT_SHA256Start(void* context) {
  CRYPT_SHA256Context* ctx = Ctx(context);
  ctx->total_lo = 0;
  ctx->total_hi = 0;
  ctx->state[0] = 0x6a09e667u;
  ctx->state[1] = 0xbb67ae85u;
  ctx->state[2] = 0x3c6ef372u;
  ctx->state[3] = 0xa54ff53au;
  ctx->state[4] = 0x510e527fu;
  ctx->state[5] = 0x9b05688cu;
  ctx->state[6] = 0x1f83d9abu;
  ctx->state[7] = 0x5be0cd19u;
}

void CRYPT_SHA256Update(void* context, const uint8_t* data, uint32_t size) {
  kdcrypt::Sha256Update(Ctx(context), data, size, kdcrypt::Sha256Kernel());
}

void CRYPT_SHA256Finish(void* context, uint8_t digest[32]) {
  kdcrypt::Sha256Finish(Ctx(context), digest, kdcrypt::Sha256Kernel());
}

void CRYPT_SHA256Generate(const uint8_t* data, uint32_t size, uint8_t digest[32]) {
  CRYPT_SHA256Context ctx;
  CRYPT_SHA256Start(&ctx);
  CRYPT_SHA256Update(&ctx, data, size);
  CRYPT_SHA256Finish(&ctx, digest);
}
