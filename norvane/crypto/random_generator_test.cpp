#include "norvane/crypto/random_generator.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "norvane/crypto/cavp_test_util.h"
#include "norvane/runtime/random.h"
#include "tests/support/test_mgr.h"

namespace {

using cavptest::FromHex;

struct GeneratorVector {
  const char* seed_hex;
  uint32_t twister_seed;
  const char* bytes_hex;  // the first 64 bytes
};
// Computed by tools/gen_random_vectors.py with Python's SHA-1 and its own twister.
const GeneratorVector kVectors[] = {
#include "norvane/crypto/random_generator_vectors.inc"
};

uint32_t TwisterSeedOf(const KDPKI_RandomGenerator& g) {
  return static_cast<const KD_MTRandomRec*>(g.m_hRandom)->state[0];
}

// Seeded streams against the independent computation, by bytes and by blocks; the 21st byte is
// mixed with digest byte 0 again; a position set past the digest wraps instead of reading beyond.
TEST(RandomGenerator, SeededStreams) {
  for (const GeneratorVector& v : kVectors) {
    const std::vector<uint8_t> seed = FromHex(v.seed_hex), expected = FromHex(v.bytes_hex);
    KDPKI_RandomGenerator a(seed.data(), static_cast<uint32_t>(seed.size()));
    KDPKI_RandomGenerator b(seed.empty() ? nullptr : seed.data(), static_cast<uint32_t>(seed.size()));
    EXPECT_EQ(TwisterSeedOf(a), v.twister_seed) << v.seed_hex;
    std::vector<uint8_t> got(64), block(64);
    for (int i = 0; i < 20; ++i) got[i] = a.GetByte();
    EXPECT_EQ(a.m_nDigestPos, 20);
    got[20] = a.GetByte();
    EXPECT_EQ(a.m_nDigestPos, 1);
    a.GetBlock(got.data() + 21, 43);
    EXPECT_EQ(got, expected) << v.seed_hex;
    b.GetBlock(block.data(), 30);
    b.GetBlock(nullptr, 8);
    b.GetBlock(block.data(), -1);
    b.GetBlock(block.data() + 30, 34);
    EXPECT_EQ(block, expected);
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(a.GetByte(), b.GetByte());

    void* twister = KD_Random_MT_Start(v.twister_seed);
    for (int i = 0; i < 20; ++i) KD_Random_MT_Generate(twister);
    EXPECT_EQ(got[20], static_cast<uint8_t>(KD_Random_MT_Generate(twister) ^ a.m_SeedDigest[0]));
    KD_Random_MT_Close(twister);
    a.m_nDigestPos = 1000;
    const uint8_t low = static_cast<uint8_t>(a.GetByte() ^ a.m_SeedDigest[0]);
    const uint8_t next = b.GetByte();
    EXPECT_EQ(static_cast<uint8_t>(next ^ b.m_SeedDigest[b.m_nDigestPos - 1]), low);
  }
  KDPKI_RandomGenerator empty(nullptr, 5);
  EXPECT_EQ(empty.GetByte(), FromHex(kVectors[0].bytes_hex)[0]);
}

// Unseeded: position -1, a zero digest, the twister's low bytes as they are, a seed that differs
// between generators.
TEST(RandomGenerator, Unseeded) {
  KDPKI_RandomGenerator a, b;
  EXPECT_EQ(a.m_nDigestPos, -1);
  EXPECT_EQ(std::memcmp(a.m_SeedDigest, std::vector<uint8_t>(20).data(), 20), 0);
  EXPECT_NE(TwisterSeedOf(a), TwisterSeedOf(b));
  void* twister = KD_Random_MT_Start(TwisterSeedOf(a));
  for (int i = 0; i < 100; ++i) ASSERT_EQ(a.GetByte(), static_cast<uint8_t>(KD_Random_MT_Generate(twister)));
  KD_Random_MT_Close(twister);
}

// With the default manager failing, new yields null, and a generator without its twister returns
// the digest bytes alone after one handler call; nothing leaks.
TEST(RandomGenerator, AllocationFailure) {
  kdtest::TestDefaultMgr t;
  t.sys().FailAll(true);
  EXPECT_EQ(new KDPKI_RandomGenerator(), nullptr);
  {
    KDPKI_RandomGenerator g(reinterpret_cast<const uint8_t*>("abc"), 3);
    EXPECT_EQ(t.oom().calls, 2);
    for (int i = 0; i < 25; ++i) EXPECT_EQ(g.GetByte(), g.m_SeedDigest[i % 20]);
  }
  t.sys().FailAll(false);
  delete new KDPKI_RandomGenerator();
  EXPECT_EQ(t.live_blocks(), 0u);
}

}  // namespace
