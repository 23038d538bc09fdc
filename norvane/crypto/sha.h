// SHA-1, SHA-256, SHA-384 and SHA-512 message digests (FIPS 180).
//
// The caller owns the context: it declares one of the records below (on the stack or in its own
// memory) and passes its address. Nothing is allocated and nothing fails. A message is hashed by
// Start, then Update any number of times, then Finish exactly once; after Finish the context
// holds nothing useful until the next Start. Generate does all three on a context of its own.
//
// Pointers are trusted: only CRYPT_SHA384Start and CRYPT_SHA512Start accept a null context (and
// do nothing). A count of 0 leaves the context as it was. Different contexts may be used on
// different threads at the same time.
//
// The records are fixed layouts that callers may rely on; lengths are byte counts, turned into
// the bit length only when the message is finished.
#ifndef NORVANE_CRYPTO_SHA_H_
#define NORVANE_CRYPTO_SHA_H_

#include <cstddef>
#include <cstdint>

#include "norvane/config.h"

// SHA-1 context. count is the number of bytes waiting in buffer (0..63); total_hi:total_lo is the
// number of bytes absorbed so far, buffered ones included.
struct CRYPT_SHA1Context {
  uint32_t state[5];
  uint8_t buffer[64];
  uint32_t count;
  uint32_t total_hi;
  uint32_t total_lo;
};
static_assert(sizeof(CRYPT_SHA1Context) == 96, "SHA-1 context layout");
static_assert(offsetof(CRYPT_SHA1Context, buffer) == 20 && offsetof(CRYPT_SHA1Context, count) == 84 &&
                  offsetof(CRYPT_SHA1Context, total_hi) == 88 && offsetof(CRYPT_SHA1Context, total_lo) == 92,
              "SHA-1 context layout");

// SHA-256 context. total_hi:total_lo counts the bytes absorbed; the bytes waiting in buffer are
// total_lo % 64.
struct CRYPT_SHA256Context {
  uint32_t total_lo;
  uint32_t total_hi;
  uint32_t state[8];
  uint8_t buffer[64];
};
static_assert(sizeof(CRYPT_SHA256Context) == 104, "SHA-256 context layout");
static_assert(offsetof(CRYPT_SHA256Context, total_hi) == 4 && offsetof(CRYPT_SHA256Context, state) == 8 &&
                  offsetof(CRYPT_SHA256Context, buffer) == 40,
              "SHA-256 context layout");

// SHA-384 and SHA-512 context (one layout for both). total_hi:total_lo counts the bytes absorbed;
// the bytes waiting in buffer are total_lo % 128.
struct CRYPT_SHA512Context {
  uint64_t total_lo;
  uint64_t total_hi;
  uint64_t state[8];
  uint8_t buffer[128];
};
// CRYPT_SHA384Context is the SHA-512 context: SHA-384 differs only in its initial values and length.
typedef CRYPT_SHA512Context CRYPT_SHA384Context;
static_assert(sizeof(CRYPT_SHA512Context) == 208, "SHA-512 context layout");
static_assert(offsetof(CRYPT_SHA512Context, total_hi) == 8 && offsetof(CRYPT_SHA512Context, state) == 16 &&
                  offsetof(CRYPT_SHA512Context, buffer) == 80,
              "SHA-512 context layout");

// CRYPT_SHA1Start loads the SHA-1 initial values and zeroes the buffered count and total length.
NORVANE_API void CRYPT_SHA1Start(void* context);
// CRYPT_SHA1Update absorbs size bytes of data.
NORVANE_API void CRYPT_SHA1Update(void* context, const uint8_t* data, uint32_t size);
// CRYPT_SHA1Finish pads the message and writes its 20-byte digest.
NORVANE_API void CRYPT_SHA1Finish(void* context, uint8_t digest[20]);
// CRYPT_SHA1Generate writes the 20-byte digest of size bytes of data.
NORVANE_API void CRYPT_SHA1Generate(const uint8_t* data, uint32_t size, uint8_t digest[20]);

// CRYPT_SHA256Start zeroes the total length and loads the SHA-256 initial values.
NORVANE_API void CRYPT_SHA256Start(void* context);
// CRYPT_SHA256Update absorbs size bytes of data.
NORVANE_API void CRYPT_SHA256Update(void* context, const uint8_t* data, uint32_t size);
// CRYPT_SHA256Finish writes the 32-byte digest.
NORVANE_API void CRYPT_SHA256Finish(void* context, uint8_t digest[32]);
// CRYPT_SHA256Generate writes the 32-byte digest of size bytes of data.
NORVANE_API void CRYPT_SHA256Generate(const uint8_t* data, uint32_t size, uint8_t digest[32]);

// CRYPT_SHA384Start clears the whole context and loads the SHA-384 initial values; a null
// context is ignored.
NORVANE_API void CRYPT_SHA384Start(void* context);
// CRYPT_SHA384Update absorbs data in 128-byte blocks; CRYPT_SHA512Update is the same function, so
// either may be used on a SHA-384 or a SHA-512 context.
NORVANE_API void CRYPT_SHA384Update(void* context, const uint8_t* data, uint32_t size);
// CRYPT_SHA384Finish writes the 48-byte digest (the first six state words).
NORVANE_API void CRYPT_SHA384Finish(void* context, uint8_t digest[48]);
// CRYPT_SHA384Generate writes the 48-byte digest of size bytes of data.
NORVANE_API void CRYPT_SHA384Generate(const uint8_t* data, uint32_t size, uint8_t digest[48]);

// CRYPT_SHA512Start clears the whole context and loads the SHA-512 initial values; a null
// context is ignored.
NORVANE_API void CRYPT_SHA512Start(void* context);
// CRYPT_SHA512Update absorbs data in 128-byte blocks (it is CRYPT_SHA384Update).
NORVANE_API void CRYPT_SHA512Update(void* context, const uint8_t* data, uint32_t size);
// CRYPT_SHA512Finish writes the 64-byte digest.
NORVANE_API void CRYPT_SHA512Finish(void* context, uint8_t digest[64]);
// CRYPT_SHA512Generate writes the 64-byte digest of size bytes of data.
NORVANE_API void CRYPT_SHA512Generate(const uint8_t* data, uint32_t size, uint8_t digest[64]);

#endif  // NORVANE_CRYPTO_SHA_H_
