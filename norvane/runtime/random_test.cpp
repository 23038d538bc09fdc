#include "norvane/runtime/random.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "norvane/crypto/sha.h"
#include "norvane/runtime/kdcrt_system_internal.h"
#include "norvane/runtime/random_internal.h"
#include "tests/support/test_mgr.h"

namespace {

struct TwisterVector {
  uint32_t seed;
  struct {
    int index;
    uint32_t value;
  } samples[19];
  const char* sha1;  // of the first 3000 outputs, little-endian
};
// Computed by tools/gen_random_vectors.py from the twister's definition.
const TwisterVector kTwister[] = {
#include "norvane/runtime/mt848_vectors.inc"
};

// The 848-word twister against the independent computation over three regenerations, two handles
// of one seed interleaved. An index beyond 848 yields 0 while the record is marked unseeded.
TEST(Twister, MatchesIndependentComputation) {
  for (const TwisterVector& v : kTwister) {
    void* a = KD_Random_MT_Start(v.seed);
    void* b = KD_Random_MT_Start(v.seed);
    auto* rec = static_cast<KD_MTRandomRec*>(a);
    ASSERT_TRUE(rec && b && rec->index == 848 && rec->seeded && rec->state[0] == v.seed);
    std::vector<uint32_t> out(3000);
    for (uint32_t& w : out) {
      w = KD_Random_MT_Generate(a);
      ASSERT_EQ(KD_Random_MT_Generate(b), w);
    }
    for (const auto& s : v.samples) EXPECT_EQ(out[s.index], s.value) << v.seed << " output " << s.index;
    uint8_t digest[20];
    CRYPT_SHA1Generate(reinterpret_cast<const uint8_t*>(out.data()), 12000, digest);
    char hex[41];
    for (int i = 0; i < 20; ++i) std::snprintf(hex + 2 * i, 3, "%02x", digest[i]);
    EXPECT_STREQ(hex, v.sha1);

    KD_Random_MT_Close(b);
    b = KD_Random_MT_Start(v.seed);
    rec->index = 900;
    rec->seeded = false;
    EXPECT_EQ(KD_Random_MT_Generate(rec), 0u);
    EXPECT_EQ(rec->index, 900u);
    static_cast<KD_MTRandomRec*>(b)->index = 1000;  // seeded: regenerates
    EXPECT_EQ(KD_Random_MT_Generate(b), v.samples[0].value);
    KD_Random_MT_Close(b);
    KD_Random_MT_Close(a);
  }
  EXPECT_EQ(KD_Random_MT_Generate(nullptr), 0u);
  KD_Random_MT_Close(nullptr);
}

// The handle is one block of the default manager. With allocation failing, Start returns null and
// KD_Random_GenerateMT and KD_GUID_CreateV4 still give their full output (one handler call each).
TEST(Twister, DefaultManagerAndItsFailure) {
  kdtest::TestDefaultMgr t;
  KD_Random_MT_Close(KD_Random_MT_Start(1));
  EXPECT_EQ(t.sys().requests(), std::vector<size_t>{sizeof(KD_MTRandomRec)});
  EXPECT_EQ(t.sys().frees(), 1);
  t.sys().FailAll(true);
  EXPECT_EQ(KD_Random_MT_Start(1), nullptr);
  std::vector<uint32_t> words(1000);
  kdrand::MTWords(kTwister[1].seed, words.data(), 1000);
  EXPECT_EQ(words[847], kTwister[1].samples[11].value);
  EXPECT_EQ(words[849], kTwister[1].samples[13].value);
  uint8_t guid[16] = {};
  KD_GUID_CreateV4(guid);
  EXPECT_EQ(guid[6] >> 4, 4);
  EXPECT_EQ(t.oom().calls, 3);
  EXPECT_EQ(t.live_blocks(), 0u);
}

// The device seed's generator is MT19937 (std::mt19937 as oracle), counts on both sides of the
// short path (113 words) and past the first regeneration (312). The public calls vary every bit,
// differ from call to call and write nothing for null buffers or counts <= 0.
TEST(RandomWords, StandardTwisterAndDeviceSeed) {
  for (uint32_t seed : {0u, 0xDEADBEEFu}) {
    for (int count : {1, 113, 114, 313}) {
      std::mt19937 oracle(seed);
      std::vector<uint32_t> got(count + 1, 7);
      kdrand::BaseWords(seed, got.data(), count);
      for (int i = 0; i < count; ++i) {
        const uint32_t first = static_cast<uint32_t>(oracle()) >> 1;
        ASSERT_EQ(got[i], (first << 16) | ((static_cast<uint32_t>(oracle()) >> 1) & 0xFFFF)) << count << " " << i;
      }
      EXPECT_EQ(got[count], 7u);
    }
  }
  for (auto call : {KD_Random_GenerateBase, KD_Random_GenerateCrypto, KD_Random_GenerateMT}) {
    std::vector<uint32_t> a(2000), b(2000);
    call(a.data(), 2000);
    call(b.data(), 2000);
    uint32_t any = 0, all = ~0u;
    for (uint32_t w : a) any |= w, all &= w;
    EXPECT_TRUE(any == ~0u && all == 0 && a != b);
    uint32_t untouched = 7;
    call(&untouched, 0);
    call(&untouched, -1);
    call(nullptr, 4);
    EXPECT_EQ(untouched, 7u);
  }
}

// A GUID is four twister outputs stored little-endian with only the version nibble set: over many
// draws the version is always 4, the variant bits of byte 8 take every value, none repeats.
TEST(Guid, VersionNibbleOnly) {
  const TwisterVector& v = kTwister[2];
  uint8_t expected[16], guid[16];
  for (int i = 0; i < 16; ++i) expected[i] = static_cast<uint8_t>(v.samples[i / 4].value >> (8 * (i % 4)));
  expected[6] = static_cast<uint8_t>((expected[6] & 0x0F) | 0x40);
  kdrand::GuidFromSeed(v.seed, guid);
  EXPECT_EQ(std::memcmp(guid, expected, 16), 0);

  std::set<std::string> seen;
  int variants[4] = {};
  for (int i = 0; i < 4096; ++i) {
    KD_GUID_CreateV4(guid);
    ASSERT_EQ(guid[6] >> 4, 4);
    ++variants[guid[8] >> 6];
    seen.insert(std::string(reinterpret_cast<char*>(guid), 16));
  }
  EXPECT_EQ(seen.size(), 4096u);
  for (int n : variants) EXPECT_GT(n, 800);
  KD_GUID_CreateV4(nullptr);
}

// The device, a missing or empty one, and getrandom(2) for more than it promises in one call.
TEST(RandomDevice, DeviceAndFallback) {
  uint8_t buf[1000] = {};
  EXPECT_TRUE(KDCRT_ReadRandomDevice("/dev/urandom", buf, 4));
  EXPECT_FALSE(KDCRT_ReadRandomDevice("/nonexistent/urandom", buf, 4));
  EXPECT_FALSE(KDCRT_ReadRandomDevice("/dev/null", buf, 4));
  EXPECT_TRUE(KDCRT_GetRandom(buf, sizeof buf));
  int zeros = 0;
  for (uint8_t b : buf) zeros += b == 0;
  EXPECT_LT(zeros, 20);  // about 4 expected
}

}  // namespace
