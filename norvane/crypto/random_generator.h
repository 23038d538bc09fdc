// KDPKI_RandomGenerator: the byte generator that key generation draws from.
//
// Seeded, it is a deterministic function of the seed bytes, so the same seed yields the same key
// material: the seed's SHA-1 digest both starts an 848-word Mersenne Twister (KD_Random_MT_Start,
// with the sum modulo 2^32 of the digest's five little-endian words) and is mixed into the output,
// byte i being the low byte of the twister's i-th output XOR digest byte i mod 20. Unseeded, the
// twister starts from a seed read from the operating system (see KD_Random_GenerateBase) and its
// low bytes are returned as they are.
//
// The output is only as unpredictable as the seed: seeded generators are for reproducible
// material. A generator belongs to one thread at a time; it is not copyable.
//
// The twister is allocated from the default manager. Should that fail (the manager's
// out-of-memory handler has then been called), the generator has no twister and its bytes are the
// digest bytes alone (0 unseeded).
#ifndef NORVANE_CRYPTO_RANDOM_GENERATOR_H_
#define NORVANE_CRYPTO_RANDOM_GENERATOR_H_

#include <cstddef>
#include <cstdint>

#include "norvane/config.h"
#include "norvane/memory/object.h"

// KDPKI_RandomGenerator is the generator described above, seeded at construction.
class NORVANE_API KDPKI_RandomGenerator : public CKD_Object {
 public:
  // Seeds the generator with length bytes at seed; a null seed counts as empty.
  KDPKI_RandomGenerator(const uint8_t* seed, uint32_t length);
  // An unseeded generator: digest position -1, the digest zero.
  KDPKI_RandomGenerator();
  // Closes the twister.
  ~KDPKI_RandomGenerator();
  KDPKI_RandomGenerator(const KDPKI_RandomGenerator&) = delete;
  KDPKI_RandomGenerator& operator=(const KDPKI_RandomGenerator&) = delete;

  // GetByte returns the next byte.
  uint8_t GetByte();
  // GetBlock writes count bytes, as count calls of GetByte would; a null buffer or a count <= 0
  // writes nothing.
  void GetBlock(uint8_t* buffer, int count);

  // The KD_Random_MT_Start handle (null when its allocation failed).
  void* m_hRandom;
  // SHA-1 of the seed.
  uint8_t m_SeedDigest[20];
  // Index of the next digest byte to mix in (0..20, 20 meaning 0 again), or -1 when unseeded.
  int32_t m_nDigestPos;
};
static_assert(offsetof(KDPKI_RandomGenerator, m_SeedDigest) == 8 &&
                  offsetof(KDPKI_RandomGenerator, m_nDigestPos) == 28 && sizeof(KDPKI_RandomGenerator) == 32,
              "random generator layout");

#endif  // NORVANE_CRYPTO_RANDOM_GENERATOR_H_
