#include "norvane/crypto/random_generator.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "norvane/crypto/sha.h"
#include "norvane/runtime/random.h"
#include "tests/support/test_mgr.h"

namespace {

struct GeneratorVector {
  const char* seed_hex;
  uint32_t twister_seed;
  const char* bytes_hex;  // the first 64 bytes
};
// Computed by tools/gen_random_vectors.py with Python's SHA-1 and its own twister.
const GeneratorVector kVectors[] = {
#include "norvane/crypto/random_generator_vectors.inc"
};

std::vector<uint8_t> FromHex(const char* hex) {
  std::vector<uint8_t> out;
  for (size_t i = 0; hex[i] && hex[i + 1]; i += 2) out.push_back(static_cast<uint8_t>(std::stoi(std::string(hex + i, 2), nullptr, 16)));
  return out;
}

uint32_t TwisterSeedOf(const KDPKI_RandomGenerator& g) {
  return static_cast<const KD_MTRandomRec*>(g.m_hRandom)->state[0];
}

// Seeded streams against the independent computation, byte by byte and by blocks; a second
// generator of the same seed gives the same stream; the 21st byte is mixed with digest byte 0
// again; a null seed is the empty seed.
TEST(RandomGenerator, SeededStreams) {
  for (const GeneratorVector& v : kVectors) {
    const std::vector<uint8_t> seed = FromHex(v.seed_hex), expected = FromHex(v.bytes_hex);
    KDPKI_RandomGenerator a(seed.data(), static_cast<uint32_t>(seed.size()));
    KDPKI_RandomGenerator b(seed.data(), static_cast<uint32_t>(seed.size()));
    EXPECT_EQ(TwisterSeedOf(a), v.twister_seed) << v.seed_hex;
    uint8_t digest[20];
    CRYPT_SHA1Generate(seed.data(), static_cast<uint32_t>(seed.size()), digest);
    EXPECT_EQ(std::memcmp(a.m_SeedDigest, digest, 20), 0);
    EXPECT_EQ(a.m_nDigestPos, 0);

    std::vector<uint8_t> got(64), block(64);
    for (int i = 0; i < 20; ++i) got[i] = a.GetByte();
    EXPECT_EQ(a.m_nDigestPos, 20);
    got[20] = a.GetByte();
    EXPECT_EQ(a.m_nDigestPos, 1);
    a.GetBlock(got.data() + 21, 43);
    EXPECT_EQ(got, expected) << v.seed_hex;
    b.GetBlock(block.data(), 30);
    b.GetBlock(block.data() + 30, 34);
    EXPECT_EQ(block, expected);

    void* twister = KD_Random_MT_Start(v.twister_seed);
    for (int i = 0; i < 20; ++i) KD_Random_MT_Generate(twister);
    EXPECT_EQ(got[20], static_cast<uint8_t>(KD_Random_MT_Generate(twister) ^ digest[0]));
    KD_Random_MT_Close(twister);
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(a.GetByte(), b.GetByte());
  }
  KDPKI_RandomGenerator empty(nullptr, 5);
  std::vector<uint8_t> got(64);
  empty.GetBlock(got.data(), 64);
  EXPECT_EQ(got, FromHex(kVectors[0].bytes_hex));
}

// Unseeded: position -1, a zero digest, the twister's low bytes as they are, and a seed that
// differs between generators.
TEST(RandomGenerator, Unseeded) {
  KDPKI_RandomGenerator a, b;
  EXPECT_EQ(a.m_nDigestPos, -1);
  EXPECT_EQ(std::memcmp(a.m_SeedDigest, std::vector<uint8_t>(20).data(), 20), 0);
  EXPECT_NE(TwisterSeedOf(a), TwisterSeedOf(b));
  void* twister = KD_Random_MT_Start(TwisterSeedOf(a));
  for (int i = 0; i < 100; ++i) ASSERT_EQ(a.GetByte(), static_cast<uint8_t>(KD_Random_MT_Generate(twister)));
  KD_Random_MT_Close(twister);
  EXPECT_EQ(a.m_nDigestPos, -1);
}

// Blocks of no bytes or no buffer write nothing and draw nothing; a position set past the digest
// by a caller wraps instead of reading beyond it.
TEST(RandomGenerator, EdgesOfTheInterface) {
  const std::vector<uint8_t> seed = FromHex(kVectors[1].seed_hex), expected = FromHex(kVectors[1].bytes_hex);
  KDPKI_RandomGenerator g(seed.data(), static_cast<uint32_t>(seed.size()));
  uint8_t byte = 0x77;
  g.GetBlock(&byte, 0);
  g.GetBlock(&byte, -3);
  g.GetBlock(nullptr, 8);
  EXPECT_EQ(byte, 0x77);
  EXPECT_EQ(g.GetByte(), expected[0]);
  g.m_nDigestPos = 1000;
  EXPECT_EQ(g.GetByte() ^ expected[1] ^ g.m_SeedDigest[1], g.m_SeedDigest[0]);
  EXPECT_EQ(g.m_nDigestPos, 1);
}

// With the default manager failing: new yields null, and a generator whose twister cannot be had
// returns the digest bytes alone after one handler call, leaking nothing.
TEST(RandomGenerator, AllocationFailure) {
  kdtest::TestDefaultMgr t;
  t.sys().FailAll(true);
  EXPECT_EQ(new KDPKI_RandomGenerator(), nullptr);
  EXPECT_EQ(t.oom().calls, 1);
  {
    const uint8_t seed[] = {'a', 'b', 'c'};
    KDPKI_RandomGenerator g(seed, 3);
    EXPECT_EQ(g.m_hRandom, nullptr);
    EXPECT_EQ(t.oom().calls, 2);
    for (int i = 0; i < 25; ++i) EXPECT_EQ(g.GetByte(), g.m_SeedDigest[i % 20]);
  }
  t.sys().FailAll(false);
  auto* g = new KDPKI_RandomGenerator();
  ASSERT_NE(g, nullptr);
  delete g;
  EXPECT_EQ(t.live_blocks(), 0u);
}

}  // namespace
