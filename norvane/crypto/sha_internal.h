// Internal to the library: the block kernels behind the SHA functions and the Update/Finish
// steps over an explicit kernel, so tests and benchmarks can drive every kernel this processor
// can run, not only the one the public functions pick.
//
// Each algorithm has a portable kernel (_nohw), always present and the reference, and where the
// processor has instructions for it a hardware kernel (_hw) with a predicate (_hw_capable) that
// says whether it may run here. A kernel compresses n whole blocks read from data (no alignment
// needed) into state and gives bit-identical results to the portable one.
#ifndef NORVANE_CRYPTO_SHA_INTERNAL_H_
#define NORVANE_CRYPTO_SHA_INTERNAL_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "norvane/crypto/sha.h"

typedef void (*kd_sha1_block_fn)(uint32_t state[5], const uint8_t* data, size_t n);
typedef void (*kd_sha256_block_fn)(uint32_t state[8], const uint8_t* data, size_t n);
typedef void (*kd_sha512_block_fn)(uint64_t state[8], const uint8_t* data, size_t n);

void sha1_block_data_order_nohw(uint32_t state[5], const uint8_t* data, size_t n);
void sha256_block_data_order_nohw(uint32_t state[8], const uint8_t* data, size_t n);
void sha512_block_data_order_nohw(uint64_t state[8], const uint8_t* data, size_t n);

// The hardware kernels: SHA-NI on x86-64 (SHA-1, SHA-256), the ARMv8 SHA-1, SHA-256 and SHA-512
// instructions on ARM64. A predicate is false where its kernel is not built.
bool sha1_hw_capable();
bool sha256_hw_capable();
bool sha512_hw_capable();
#if defined(__x86_64__) || defined(__aarch64__)
#define NORVANE_SHA1_HW 1
#define NORVANE_SHA256_HW 1
void sha1_block_data_order_hw(uint32_t state[5], const uint8_t* data, size_t n);
void sha256_block_data_order_hw(uint32_t state[8], const uint8_t* data, size_t n);
#endif
#if defined(__aarch64__)
#define NORVANE_SHA512_HW 1
void sha512_block_data_order_hw(uint64_t state[8], const uint8_t* data, size_t n);
#endif
// x86-64 has no SHA-512 instructions; AVX2 computes the message schedule of two blocks at once.
#if defined(__x86_64__)
#define NORVANE_SHA512_AVX2 1
bool sha512_avx2_capable();
void sha512_block_data_order_avx2(uint64_t state[8], const uint8_t* data, size_t n);
#endif

namespace kdcrypt {

// The kernels the public functions use: chosen once, on first use, from the predicates above.
kd_sha1_block_fn Sha1Kernel();
kd_sha256_block_fn Sha256Kernel();
kd_sha512_block_fn Sha512Kernel();

// Update and Finish of the public functions, over the given kernel.
void Sha1Update(CRYPT_SHA1Context* ctx, const uint8_t* data, uint32_t size, kd_sha1_block_fn blocks);
void Sha1Finish(CRYPT_SHA1Context* ctx, uint8_t digest[20], kd_sha1_block_fn blocks);
void Sha256Update(CRYPT_SHA256Context* ctx, const uint8_t* data, uint32_t size, kd_sha256_block_fn blocks);
void Sha256Finish(CRYPT_SHA256Context* ctx, uint8_t digest[32], kd_sha256_block_fn blocks);
void Sha512Update(CRYPT_SHA512Context* ctx, const uint8_t* data, uint32_t size, kd_sha512_block_fn blocks);
// Sha512Finish writes the first words state words (6 for SHA-384, 8 for SHA-512).
void Sha512Finish(CRYPT_SHA512Context* ctx, uint8_t* digest, int words, kd_sha512_block_fn blocks);

// Every kernel this processor can run, the portable one first. Each list ends with a null name.
template <class Fn>
struct ShaKernelEntry {
  const char* name;
  Fn fn;
};
const ShaKernelEntry<kd_sha1_block_fn>* Sha1Kernels();
const ShaKernelEntry<kd_sha256_block_fn>* Sha256Kernels();
const ShaKernelEntry<kd_sha512_block_fn>* Sha512Kernels();

// NV_SHA2_16_ROUNDS(R) writes out sixteen SHA-2 rounds R(a, b, c, d, e, f, g, h, i), i = 0 to 15,
// for a kernel's round macro R. The working variables are renamed rather than moved: each round's
// a..h are the previous round's h, a..g, and after eight rounds the names are back in place.
#define NV_SHA2_16_ROUNDS(R) \
  R(a, b, c, d, e, f, g, h, 0);  \
  R(h, a, b, c, d, e, f, g, 1);  \
  R(g, h, a, b, c, d, e, f, 2);  \
  R(f, g, h, a, b, c, d, e, 3);  \
  R(e, f, g, h, a, b, c, d, 4);  \
  R(d, e, f, g, h, a, b, c, 5);  \
  R(c, d, e, f, g, h, a, b, 6);  \
  R(b, c, d, e, f, g, h, a, 7);  \
  R(a, b, c, d, e, f, g, h, 8);  \
  R(h, a, b, c, d, e, f, g, 9);  \
  R(g, h, a, b, c, d, e, f, 10); \
  R(f, g, h, a, b, c, d, e, 11); \
  R(e, f, g, h, a, b, c, d, 12); \
  R(d, e, f, g, h, a, b, c, 13); \
  R(c, d, e, f, g, h, a, b, 14); \
  R(b, c, d, e, f, g, h, a, 15)

// Sha2FeedForward ends a SHA-2 block: it adds the working variables a..h into the state.
template <class Word>
inline void Sha2FeedForward(Word state[8], Word a, Word b, Word c, Word d, Word e, Word f, Word g, Word h) {
  state[0] += a;
  state[1] += b;
  state[2] += c;
  state[3] += d;
  state[4] += e;
  state[5] += f;
  state[6] += g;
  state[7] += h;
}

// The round constants, for the kernels that load them as vectors.
extern const uint32_t kSha256K[64];
extern const uint64_t kSha512K[80];

// Big-endian loads and stores shared by the digest and cipher code.
inline uint32_t LoadBE32(const uint8_t* p) {
  uint32_t v;
  __builtin_memcpy(&v, p, 4);
  return __builtin_bswap32(v);
}
inline uint64_t LoadBE64(const uint8_t* p) {
  uint64_t v;
  __builtin_memcpy(&v, p, 8);
  return __builtin_bswap64(v);
}
inline void StoreBE32(uint8_t* p, uint32_t v) {
  v = __builtin_bswap32(v);
  __builtin_memcpy(p, &v, 4);
}
inline void StoreBE64(uint8_t* p, uint64_t v) {
  v = __builtin_bswap64(v);
  __builtin_memcpy(p, &v, 8);
}
inline void StoreBE(uint8_t* p, uint32_t v) { StoreBE32(p, v); }
inline void StoreBE(uint8_t* p, uint64_t v) { StoreBE64(p, v); }

// The block buffering behind Sha1Update/Finish, Sha256Update/Finish and Sha512Update/Finish, over
// a context with state, a one-block buffer and total_hi:total_lo (bytes absorbed) in words of the
// state's width. Buffered and SetBuffered give the bytes waiting in the buffer: SHA-1 keeps a
// count of them, the SHA-2 contexts derive it from total_lo.
inline uint32_t Buffered(const CRYPT_SHA1Context* ctx) { return ctx->count; }
inline void SetBuffered(CRYPT_SHA1Context* ctx, uint32_t n) { ctx->count = n; }
inline uint32_t Buffered(const CRYPT_SHA256Context* ctx) { return ctx->total_lo & 63; }
inline void SetBuffered(CRYPT_SHA256Context*, uint32_t) {}
inline uint32_t Buffered(const CRYPT_SHA512Context* ctx) { return static_cast<uint32_t>(ctx->total_lo & 127); }
inline void SetBuffered(CRYPT_SHA512Context*, uint32_t) {}

// One 0x80 and then zeros: enough for the padding of a 128-byte block.
inline constexpr uint8_t kShaPadding[128] = {0x80};

// The two steps are static: each file that uses them gets its own copy, which the compiler treats
// as a function of that file alone when it decides what to inline.
//
// BufferedUpdate absorbs size bytes: it fills a partly filled buffer first, then runs whole blocks
// straight from data, and keeps the rest in the buffer.
template <class Ctx, class Fn>
static void BufferedUpdate(Ctx* ctx, const uint8_t* data, uint32_t size, Fn blocks) {
  constexpr uint32_t kBlock = sizeof ctx->buffer;
  if (!size) return;
  uint32_t used = Buffered(ctx);
  ctx->total_lo += size;
  if (ctx->total_lo < size) ++ctx->total_hi;
  // Compared without adding: used + size could wrap for a count near 2^32.
  if (used && size < kBlock - used) {
    std::memcpy(ctx->buffer + used, data, size);
    SetBuffered(ctx, used + size);
    return;
  }
  if (used) {
    uint32_t fill = kBlock - used;
    std::memcpy(ctx->buffer + used, data, fill);
    blocks(ctx->state, ctx->buffer, 1);
    data += fill;
    size -= fill;
  }
  if (size >= kBlock) {
    blocks(ctx->state, data, size / kBlock);
    data += size & ~(kBlock - 1);
    size &= kBlock - 1;
  }
  if (size) std::memcpy(ctx->buffer, data, size);
  SetBuffered(ctx, size);
}

// BufferedFinish pads the message with 0x80 and zeros up to its length in bits (the byte count
// shifted left by three), big-endian in the last two words of a block, absorbing both through
// update (the algorithm's Update function), and writes the first `words` state words big-endian
// to digest.
template <class Ctx, class Fn>
static void BufferedFinish(Ctx* ctx, uint8_t* digest, int words, Fn blocks,
                           void (*update)(Ctx*, const uint8_t*, uint32_t, Fn)) {
  using Word = std::remove_reference_t<decltype(ctx->state[0])>;
  constexpr uint32_t kWordBits = 8 * sizeof(Word);
  constexpr uint32_t kBlock = sizeof ctx->buffer;
  constexpr uint32_t kLengthAt = kBlock - 2 * sizeof(Word);
  uint8_t trailer[2 * sizeof(Word)];
  StoreBE(trailer, static_cast<Word>((ctx->total_hi << 3) | (ctx->total_lo >> (kWordBits - 3))));
  StoreBE(trailer + sizeof(Word), static_cast<Word>(ctx->total_lo << 3));
  uint32_t n = Buffered(ctx);
  update(ctx, kShaPadding, n < kLengthAt ? kLengthAt - n : kBlock + kLengthAt - n, blocks);
  update(ctx, trailer, sizeof trailer, blocks);
  for (int i = 0; i < words; ++i) StoreBE(digest + sizeof(Word) * i, ctx->state[i]);
}

}  // namespace kdcrypt

#endif  // NORVANE_CRYPTO_SHA_INTERNAL_H_
