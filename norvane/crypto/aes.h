// AES (Rijndael) with 16-, 24- and 32-byte keys, and cipher-block chaining over 16-byte blocks.
//
// The caller owns the AESContext and passes its address; nothing is allocated and nothing fails.
// Order of calls: CRYPT_AESSetKey, CRYPT_AESSetIV, then any number of CRYPT_AESEncrypt or
// CRYPT_AESDecrypt calls. The chaining value carries over from one call to the next, so a long
// message may be processed in several calls of whole blocks. SetKey leaves the chaining value as it
// was; SetIV leaves the keys. Pointers and lengths are trusted. One context must not be used by two
// threads at once.
//
// Rijndael's 24- and 32-byte blocks are reachable through the block routines; the chaining
// functions work on 16-byte blocks only.
#ifndef NORVANE_CRYPTO_AES_H_
#define NORVANE_CRYPTO_AES_H_

#include <cstddef>
#include <cstdint>

#include "norvane/config.h"

struct AESContext;

// A block routine transforms the Nb words of block in place with the context's key schedule.
typedef void (*AESBlockFn)(const AESContext* context, uint32_t* block);

// The context, a fixed layout. Every word is in host order, formed from four bytes read
// big-endian (first byte most significant).
struct AESContext {
  uint32_t keysched[120];     // encryption key schedule, (Nr + 1) * Nb words
  uint32_t invkeysched[120];  // schedule of the equivalent inverse cipher
  AESBlockFn encrypt;         // block routines for the block length, set by CRYPT_AESSetKey
  AESBlockFn decrypt;
  uint32_t iv[8];  // chaining value; the chaining functions use the first four words
  int Nb;          // block length in 32-bit words
  int Nr;          // number of rounds
};
static_assert(sizeof(AESContext) == 1016, "AES context layout");
static_assert(offsetof(AESContext, invkeysched) == 480 && offsetof(AESContext, encrypt) == 960 &&
                  offsetof(AESContext, decrypt) == 968 && offsetof(AESContext, iv) == 976 &&
                  offsetof(AESContext, Nb) == 1008 && offsetof(AESContext, Nr) == 1012,
              "AES context layout");

// CRYPT_AESSetKey builds both key schedules from key_len bytes of key for blocks of block_len
// bytes: Nb = block_len / 4, Nk = key_len / 4, Nr = max(Nb, Nk) + 6. The direction flag is
// ignored, since both schedules are always built. For a block length of 16, 24 or 32 bytes the
// matching pair of block routines is stored; for any other block length they are left as they
// were. Key lengths are not checked otherwise; only where the schedule cannot be built within the
// context (a key of fewer than 4 bytes, or block and key lengths needing more than 120 words) is no
// schedule written and both routines are set to null.
NORVANE_API void CRYPT_AESSetKey(void* context, uint32_t block_len, const uint8_t* key, uint32_t key_len,
                                 bool encrypt);

// CRYPT_AESSetIV copies Nb words of iv, each read as 4 big-endian bytes, into the chaining value.
// It must follow CRYPT_AESSetKey, which sets Nb.
NORVANE_API void CRYPT_AESSetIV(void* context, const uint8_t* iv);

// CRYPT_AESEncrypt and CRYPT_AESDecrypt run CBC over ceil(size / 16) blocks from src to dest (which
// may be the same buffer): a size that is not a multiple of 16 still reads and writes a whole
// final block of 16 bytes. No padding is added or removed. A size of 0 or less does nothing. They
// also do nothing unless the context was last keyed for 16-byte blocks with a usable key (Nb is 4
// and the routine is set): after an unsupported block length nothing is read or written.
NORVANE_API void CRYPT_AESEncrypt(void* context, uint8_t* dest, const uint8_t* src, int size);
NORVANE_API void CRYPT_AESDecrypt(void* context, uint8_t* dest, const uint8_t* src, int size);

// The block routines for blocks of 4, 6 and 8 words; CRYPT_AESSetKey stores the pair for its block
// length in the context.
NORVANE_API void aes_encrypt_nb_4(const AESContext* context, uint32_t* block);
NORVANE_API void aes_encrypt_nb_6(const AESContext* context, uint32_t* block);
NORVANE_API void aes_encrypt_nb_8(const AESContext* context, uint32_t* block);
NORVANE_API void aes_decrypt_nb_4(const AESContext* context, uint32_t* block);
NORVANE_API void aes_decrypt_nb_6(const AESContext* context, uint32_t* block);
NORVANE_API void aes_decrypt_nb_8(const AESContext* context, uint32_t* block);

#endif  // NORVANE_CRYPTO_AES_H_
