// SHA-1: the public functions, the portable kernel and the choice of kernel.
#include "norvane/crypto/sha.h"
#include "norvane/crypto/sha_internal.h"
#include "norvane/runtime/cpu_features_internal.h"

using kdcrypt::LoadBE32;

namespace {

inline uint32_t Rol(uint32_t x, int n) { return (x << n) | (x >> (32 - n)); }

CRYPT_SHA1Context* Ctx(void* context) { return static_cast<CRYPT_SHA1Context*>(context); }

}  // namespace

// The message schedule is expanded into a local array of 80 words first, then the four rounds of
// twenty steps run over it.
void sha1_block_data_order_nohw(uint32_t state[5], const uint8_t* data, size_t n) {
  for (; n; --n, data += 64) {
    uint32_t w[80];
    for (int t = 0; t < 16; ++t) w[t] = LoadBE32(data + 4 * t);
    for (int t = 16; t < 80; ++t) w[t] = Rol(w[t - 3] ^ w[t - 8] ^ w[t - 14] ^ w[t - 16], 1);
    uint32_t a = state[0], b = state[1], c = state[2], d = state[3], e = state[4];
#define NV_SHA1_STEP(f, k, t)                    \
  do {                                           \
    uint32_t tmp = Rol(a, 5) + (f) + e + (k) + w[t]; \
    e = d;                                       \
    d = c;                                       \
    c = Rol(b, 30);                              \
    b = a;                                       \
    a = tmp;                                     \
  } while (0)
    for (int t = 0; t < 20; ++t) NV_SHA1_STEP((b & c) | (~b & d), 0x5a827999u, t);
    for (int t = 20; t < 40; ++t) NV_SHA1_STEP(b ^ c ^ d, 0x6ed9eba1u, t);
    for (int t = 40; t < 60; ++t) NV_SHA1_STEP((b & c) | (b & d) | (c & d), 0x8f1bbcdcu, t);
    for (int t = 60; t < 80; ++t) NV_SHA1_STEP(b ^ c ^ d, 0xca62c1d6u, t);
#undef NV_SHA1_STEP
    state[0] += a;
    state[1] += b;
    state[2] += c;
    state[3] += d;
    state[4] += e;
  }
}

#if !defined(NORVANE_SHA1_HW)
bool sha1_hw_capable() { return false; }
#endif

namespace kdcrypt {

kd_sha1_block_fn Sha1Kernel() {
  static const kd_sha1_block_fn kernel = [] {
#if defined(NORVANE_SHA1_HW)
    if (sha1_hw_capable()) return &sha1_block_data_order_hw;
#endif
    return &sha1_block_data_order_nohw;
  }();
  return kernel;
}

const ShaKernelEntry<kd_sha1_block_fn>* Sha1Kernels() {
  static const ShaKernelEntry<kd_sha1_block_fn>* list = [] {
    static ShaKernelEntry<kd_sha1_block_fn> entries[3] = {{"portable", &sha1_block_data_order_nohw}};
#if defined(NORVANE_SHA1_HW)
    if (sha1_hw_capable()) entries[1] = {"hardware", &sha1_block_data_order_hw};
#endif
    return entries;
  }();
  return list;
}

void Sha1Update(CRYPT_SHA1Context* ctx, const uint8_t* data, uint32_t size, kd_sha1_block_fn blocks) {
  BufferedUpdate(ctx, data, size, blocks);
}

void Sha1Finish(CRYPT_SHA1Context* ctx, uint8_t digest[20], kd_sha1_block_fn blocks) {
  BufferedFinish(ctx, digest, 5, blocks, &Sha1Update);
}

}  // namespace kdcrypt

void CRYPT_SHA1Start(void* context) {
  CRYPT_SHA1Context* ctx = Ctx(context);
  ctx->state[0] = 0x67452301u;
  ctx->state[1] = 0xefcdab89u;
  ctx->state[2] = 0x98badcfeu;
  ctx->state[3] = 0x10325476u;
  ctx->state[4] = 0xc3d2e1f0u;
  ctx->count = 0;
  ctx->total_hi = 0;
  ctx->total_lo = 0;
}

void CRYPT_SHA1Update(void* context, const uint8_t* data, uint32_t size) {
  kdcrypt::Sha1Update(Ctx(context), data, size, kdcrypt::Sha1Kernel());
}

void CRYPT_SHA1Finish(void* context, uint8_t digest[20]) {
  kdcrypt::Sha1Finish(Ctx(context), digest, kdcrypt::Sha1Kernel());
}

void CRYPT_SHA1Generate(const uint8_t* data, uint32_t size, uint8_t digest[20]) {
  CRYPT_SHA1Context ctx;
  CRYPT_SHA1Start(&ctx);
  CRYPT_SHA1Update(&ctx, data, size);
  CRYPT_SHA1Finish(&ctx, digest);
}
