// Internal to the library: the AES tables, the CBC kernels behind CRYPT_AESEncrypt and
// CRYPT_AESDecrypt, and the chaining step over an explicit kernel, so tests and benchmarks can
// drive every kernel this processor can run.
//
// The portable kernels (_nohw) call the block routine stored in the context, block by block, and
// are the reference. The hardware kernels (AES-NI on x86-64, the ARMv8 AES instructions on ARM64)
// run 16-byte blocks straight from the context's schedules and give bit-identical results; they
// may only be used on a context whose routines are the library's own 16-byte ones, and where
// aes_hw_capable() is true.
#ifndef NORVANE_CRYPTO_AES_INTERNAL_H_
#define NORVANE_CRYPTO_AES_INTERNAL_H_

#include <cstddef>
#include <cstdint>

#include "norvane/crypto/aes.h"

extern const uint8_t kd_aes_S[256];
extern const uint8_t kd_aes_Si[256];
extern const uint32_t kd_aes_E0[256];
extern const uint32_t kd_aes_E1[256];
extern const uint32_t kd_aes_E2[256];
extern const uint32_t kd_aes_E3[256];
extern const uint32_t kd_aes_D0[256];
extern const uint32_t kd_aes_D1[256];
extern const uint32_t kd_aes_D2[256];
extern const uint32_t kd_aes_D3[256];

// A CBC kernel runs `blocks` 16-byte blocks from src to dest (which may be equal) with the
// chaining value chain (four words in the context's representation), which it updates.
typedef void (*kd_aes_cbc_fn)(const AESContext* ctx, uint8_t* dest, const uint8_t* src, size_t blocks,
                              uint32_t chain[4]);

void aes_cbc_encrypt_nohw(const AESContext* ctx, uint8_t* dest, const uint8_t* src, size_t blocks,
                          uint32_t chain[4]);
void aes_cbc_decrypt_nohw(const AESContext* ctx, uint8_t* dest, const uint8_t* src, size_t blocks,
                          uint32_t chain[4]);

bool aes_hw_capable();
#if defined(__x86_64__) || defined(__aarch64__)
#define NORVANE_AES_HW 1
void aes_hw_cbc_encrypt(const AESContext* ctx, uint8_t* dest, const uint8_t* src, size_t blocks, uint32_t chain[4]);
void aes_hw_cbc_decrypt(const AESContext* ctx, uint8_t* dest, const uint8_t* src, size_t blocks, uint32_t chain[4]);
#endif

namespace kdcrypt {

struct AesKernelEntry {
  const char* name;
  kd_aes_cbc_fn encrypt;
  kd_aes_cbc_fn decrypt;
};
// Every CBC kernel pair this processor can run, the portable one first, ending with a null name.
const AesKernelEntry* AesKernels();

// AesCbc is CRYPT_AESEncrypt or CRYPT_AESDecrypt (by `encrypt`) over the given kernel: the same
// checks, the same block count, the chaining value loaded from and stored back into the context.
void AesCbc(AESContext* ctx, uint8_t* dest, const uint8_t* src, int size, bool encrypt, const AesKernelEntry& kernel);

}  // namespace kdcrypt

#endif  // NORVANE_CRYPTO_AES_INTERNAL_H_
