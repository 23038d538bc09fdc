#include "norvane/crypto/random_generator.h"

#include <cstring>

#include "norvane/crypto/sha.h"
#include "norvane/runtime/random.h"

KDPKI_RandomGenerator::KDPKI_RandomGenerator(const uint8_t* seed, uint32_t length) : m_nDigestPos(0) {
  static const uint8_t kNoSeed = 0;
  CRYPT_SHA1Generate(seed ? seed : &kNoSeed, seed ? length : 0, m_SeedDigest);
  uint32_t sum = 0;
  for (int i = 0; i < 20; i += 4) {
    uint32_t word;
    std::memcpy(&word, m_SeedDigest + i, 4);  // little-endian on every supported machine
    sum += word;
  }
  m_hRandom = KD_Random_MT_Start(sum);
}

KDPKI_RandomGenerator::KDPKI_RandomGenerator() : m_SeedDigest(), m_nDigestPos(-1) {
  uint32_t seed;
  KD_Random_GenerateBase(&seed, 1);
  m_hRandom = KD_Random_MT_Start(seed);
}

KDPKI_RandomGenerator::~KDPKI_RandomGenerator() { KD_Random_MT_Close(m_hRandom); }

uint8_t KDPKI_RandomGenerator::GetByte() {
  const uint8_t b = static_cast<uint8_t>(KD_Random_MT_Generate(m_hRandom));
  if (m_nDigestPos < 0) return b;
  // The position is public: one set past 20 from outside would index beyond the digest, so it
  // wraps as 20 does.
  if (m_nDigestPos >= 20) m_nDigestPos = 0;
  return static_cast<uint8_t>(b ^ m_SeedDigest[m_nDigestPos++]);
}

void KDPKI_RandomGenerator::GetBlock(uint8_t* buffer, int count) {
  if (!buffer) return;
  for (int i = 0; i < count; ++i) buffer[i] = GetByte();
}
