// Internal to the AES hardware kernels: the CBC loops that AES-NI (aes_x86.cpp) and the ARMv8 AES
// instructions (aes_arm.cpp) share, over a description of the instructions. Each of those files
// defines NV_TARGET_AES, its target attribute, before including this one, so that every loop here
// is compiled for the extension of the file that uses it and nothing else is.
//
// Isa describes the instructions, every function NV_TARGET_AES and inline:
//   Block                            a 16-byte vector
//   Load(p), Store(p, v), Xor(a, b)  unaligned loads and stores of 16 bytes, exclusive or
//   LoadWords(w), StoreWords(w, v)   four schedule or chaining words, byte-swapped as the
//                                    instructions want them
//   First(x, rk)                     what comes before round 1 (a key addition, or nothing)
//   EncryptRound(x, rk, r)           round r of the cipher, r from 1 to nr - 1
//   EncryptLast(x, rk, nr)           the last round, with the last key addition
//   DecryptRound, DecryptLast        the same for the equivalent inverse cipher
// where rk holds the nr + 1 round keys, loaded with LoadWords.
#ifndef NORVANE_CRYPTO_AES_CBC_HW_INTERNAL_H_
#define NORVANE_CRYPTO_AES_CBC_HW_INTERNAL_H_

#include <cstddef>
#include <cstdint>

#include "norvane/crypto/aes_internal.h"

#ifndef NV_TARGET_AES
#error "define NV_TARGET_AES to the kernel file's target attribute before including this header"
#endif

namespace kdcrypt {

constexpr int kAesMaxRounds = 29;  // 120 schedule words of 4-word blocks

// NR is the number of rounds, or 0 for a count known only at run time (keys of unusual lengths).
// LoadRoundKeys loads the nr + 1 round keys of a schedule into rk, which has room for
// AesRoundKeys<NR> of them, and returns nr: NR, or for 0 the context's count (at most
// kAesMaxRounds).
template <int NR>
constexpr int AesRoundKeys = NR ? NR + 1 : kAesMaxRounds + 1;

template <class Isa, int NR>
NV_TARGET_AES inline int LoadRoundKeys(const AESContext* ctx, const uint32_t* schedule, typename Isa::Block* rk) {
  const int nr = NR ? NR : (ctx->Nr < kAesMaxRounds ? ctx->Nr : kAesMaxRounds);
  for (int r = 0; r <= nr; ++r) rk[r] = Isa::LoadWords(schedule + 4 * r);
  return nr;
}

// Encryption is a chain: each block waits for the one before, so one block at a time.
template <class Isa, int NR>
NV_TARGET_AES void AesCbcEncryptHw(const AESContext* ctx, uint8_t* dest, const uint8_t* src, size_t blocks,
                                   uint32_t chain[4]) {
  using Block = typename Isa::Block;
  Block rk[AesRoundKeys<NR>];
  const int nr = LoadRoundKeys<Isa, NR>(ctx, ctx->keysched, rk);
  Block c = Isa::LoadWords(chain);
  for (; blocks; --blocks, src += 16, dest += 16) {
    // What comes before round 1 is done to the plaintext alone, off the chain.
    Block x = Isa::Xor(c, Isa::First(Isa::Load(src), rk));
#pragma GCC unroll 16
    for (int r = 1; r < nr; ++r) x = Isa::EncryptRound(x, rk, r);
    c = Isa::EncryptLast(x, rk, nr);
    Isa::Store(dest, c);
  }
  Isa::StoreWords(chain, c);
}

// Decryption of each block is independent of the others, so eight run side by side; every output
// is computed before any is stored, so dest may be src.
template <class Isa, int NR>
NV_TARGET_AES void AesCbcDecryptHw(const AESContext* ctx, uint8_t* dest, const uint8_t* src, size_t blocks,
                                   uint32_t chain[4]) {
  using Block = typename Isa::Block;
  Block rk[AesRoundKeys<NR>];
  const int nr = LoadRoundKeys<Isa, NR>(ctx, ctx->invkeysched, rk);
  Block prev = Isa::LoadWords(chain);
  for (; blocks >= 8; blocks -= 8, src += 128, dest += 128) {
    Block b[8];
#pragma GCC unroll 8
    for (int i = 0; i < 8; ++i) b[i] = Isa::First(Isa::Load(src + 16 * i), rk);
#pragma GCC unroll 16
    for (int r = 1; r < nr; ++r) {
#pragma GCC unroll 8
      for (int i = 0; i < 8; ++i) b[i] = Isa::DecryptRound(b[i], rk, r);
    }
#pragma GCC unroll 8
    for (int i = 0; i < 8; ++i) b[i] = Isa::DecryptLast(b[i], rk, nr);
    b[0] = Isa::Xor(b[0], prev);
#pragma GCC unroll 8
    for (int i = 1; i < 8; ++i) b[i] = Isa::Xor(b[i], Isa::Load(src + 16 * (i - 1)));
    prev = Isa::Load(src + 112);
#pragma GCC unroll 8
    for (int i = 0; i < 8; ++i) Isa::Store(dest + 16 * i, b[i]);
  }
  for (; blocks; --blocks, src += 16, dest += 16) {
    const Block cipher = Isa::Load(src);
    Block x = Isa::First(cipher, rk);
#pragma GCC unroll 16
    for (int r = 1; r < nr; ++r) x = Isa::DecryptRound(x, rk, r);
    Isa::Store(dest, Isa::Xor(Isa::DecryptLast(x, rk, nr), prev));
    prev = cipher;
  }
  Isa::StoreWords(chain, prev);
}

// The entry points pick the instance for the context's round count: the usual key lengths get
// their rounds unrolled.
template <class Isa>
void AesCbcEncryptHwAny(const AESContext* ctx, uint8_t* dest, const uint8_t* src, size_t blocks, uint32_t chain[4]) {
  switch (ctx->Nr) {
    case 10: return AesCbcEncryptHw<Isa, 10>(ctx, dest, src, blocks, chain);
    case 12: return AesCbcEncryptHw<Isa, 12>(ctx, dest, src, blocks, chain);
    case 14: return AesCbcEncryptHw<Isa, 14>(ctx, dest, src, blocks, chain);
    default: return AesCbcEncryptHw<Isa, 0>(ctx, dest, src, blocks, chain);
  }
}

template <class Isa>
void AesCbcDecryptHwAny(const AESContext* ctx, uint8_t* dest, const uint8_t* src, size_t blocks, uint32_t chain[4]) {
  switch (ctx->Nr) {
    case 10: return AesCbcDecryptHw<Isa, 10>(ctx, dest, src, blocks, chain);
    case 12: return AesCbcDecryptHw<Isa, 12>(ctx, dest, src, blocks, chain);
    case 14: return AesCbcDecryptHw<Isa, 14>(ctx, dest, src, blocks, chain);
    default: return AesCbcDecryptHw<Isa, 0>(ctx, dest, src, blocks, chain);
  }
}

}  // namespace kdcrypt

#endif  // NORVANE_CRYPTO_AES_CBC_HW_INTERNAL_H_
