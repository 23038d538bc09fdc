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

struct Sample {
  int index;
  uint32_t value;
};
struct TwisterVector {
  uint32_t seed;
  Sample samples[19];
  const char* sha1;  // of the first 3000 outputs, little-endian
};
// Computed by tools/gen_random_vectors.py from the twister's definition.
const TwisterVector kTwister[] = {
#include "norvane/runtime/mt848_vectors.inc"
};

std::string Sha1Hex(const std::vector<uint32_t>& words) {
  uint8_t digest[20];
  CRYPT_SHA1Generate(reinterpret_cast<const uint8_t*>(words.data()), static_cast<uint32_t>(words.size() * 4), digest);
  std::string hex;
  for (uint8_t b : digest) hex += "0123456789abcdef"[b >> 4], hex += "0123456789abcdef"[b & 15];
  return hex;
}

// The 848-word twister against the independent computation, over three regenerations; two
// handles of one seed interleaved give the same stream; the first output for the classic seed 5489
// is not the classic MT19937 one (3499211612).
TEST(Twister, MatchesIndependentComputation) {
  for (const TwisterVector& v : kTwister) {
    void* a = KD_Random_MT_Start(v.seed);
    void* b = KD_Random_MT_Start(v.seed);
    ASSERT_TRUE(a && b);
    const auto* rec = static_cast<const KD_MTRandomRec*>(a);
    EXPECT_TRUE(rec->index == 848 && rec->seeded && rec->state[0] == v.seed);
    std::vector<uint32_t> out(3000);
    for (uint32_t& w : out) {
      w = KD_Random_MT_Generate(a);
      ASSERT_EQ(KD_Random_MT_Generate(b), w);
    }
    for (const Sample& s : v.samples) EXPECT_EQ(out[s.index], s.value) << v.seed << " output " << s.index;
    EXPECT_EQ(Sha1Hex(out), v.sha1) << v.seed;
    EXPECT_EQ(rec->index, 3000u - 3 * 848);
    KD_Random_MT_Close(a);
    KD_Random_MT_Close(b);
    if (v.seed == 5489) {
      EXPECT_NE(v.samples[0].value, 3499211612u);
    }
  }
}

// The record's index and seeded flag: a used-up state regenerates; an index beyond 848 yields 0
// while the record is marked unseeded, and regenerates once it is marked seeded. Null handles.
TEST(Twister, IndexAndSeededFlag) {
  const TwisterVector& v = kTwister[2];
  auto* rec = static_cast<KD_MTRandomRec*>(KD_Random_MT_Start(v.seed));
  ASSERT_NE(rec, nullptr);
  rec->index = 900;
  rec->seeded = false;
  EXPECT_EQ(KD_Random_MT_Generate(rec), 0u);
  EXPECT_EQ(rec->index, 900u);
  rec->index = 848;
  EXPECT_EQ(KD_Random_MT_Generate(rec), v.samples[0].value);  // 848 regenerates, seeded or not
  EXPECT_EQ(rec->index, 1u);
  KD_Random_MT_Close(rec);

  rec = static_cast<KD_MTRandomRec*>(KD_Random_MT_Start(v.seed));
  rec->index = 1000;
  EXPECT_EQ(KD_Random_MT_Generate(rec), v.samples[0].value);
  KD_Random_MT_Close(rec);
  EXPECT_EQ(KD_Random_MT_Generate(nullptr), 0u);
  KD_Random_MT_Close(nullptr);
}

// The handle comes from the default manager in one block; with allocation failing, Start returns
// null after one handler call, while KD_Random_GenerateMT and KD_GUID_CreateV4 still produce their
// full output.
TEST(Twister, AllocationThroughTheDefaultManager) {
  kdtest::TestDefaultMgr t;
  void* h = KD_Random_MT_Start(1);
  ASSERT_EQ(t.sys().requests(), std::vector<size_t>{sizeof(KD_MTRandomRec)});
  KD_Random_MT_Close(h);
  EXPECT_EQ(t.sys().frees(), 1);

  t.sys().FailAll(true);
  EXPECT_EQ(KD_Random_MT_Start(1), nullptr);
  EXPECT_EQ(t.oom().calls, 1);
  std::vector<uint32_t> words(1000);
  kdrand::MTWords(kTwister[1].seed, words.data(), 1000);
  for (const Sample& s : kTwister[1].samples) {
    if (s.index < 1000) {
      EXPECT_EQ(words[s.index], s.value);
    }
  }
  uint32_t sentinel[3] = {7, 7, 7};
  KD_Random_GenerateMT(sentinel, 2);
  uint8_t guid[16] = {};
  KD_GUID_CreateV4(guid);
  EXPECT_EQ(guid[6] >> 4, 4);
  EXPECT_FALSE(sentinel[0] == 7 && sentinel[1] == 7);
  EXPECT_EQ(sentinel[2], 7u);
  EXPECT_EQ(t.oom().calls, 4);
  EXPECT_EQ(t.live_blocks(), 0u);
}

// The device seed's generator is the standard MT19937 (the C++ library's std::mt19937 as oracle),
// each word made of the low 16 bits of two draws over 0..0x7FFFFFFF; counts on both sides of the
// short path (113 words) and past the first regeneration (312 words).
TEST(RandomBase, WordsFromTheStandardTwister) {
  for (uint32_t seed : {0u, 5489u, 0xDEADBEEFu}) {
    for (int count : {1, 2, 112, 113, 114, 312, 313, 1000}) {
      std::mt19937 oracle(seed);
      std::vector<uint32_t> got(count + 1, 0x5A5A5A5Au);
      kdrand::BaseWords(seed, got.data(), count);
      for (int i = 0; i < count; ++i) {
        const uint32_t first = static_cast<uint32_t>(oracle()) >> 1;
        const uint32_t second = static_cast<uint32_t>(oracle()) >> 1;
        ASSERT_EQ(got[i], (first << 16) | (second & 0xFFFF)) << seed << " " << count << " word " << i;
      }
      EXPECT_EQ(got[count], 0x5A5A5A5Au);
    }
  }
}

// The public calls: every bit of the words varies, two calls differ, and null buffers or counts
// <= 0 write nothing.
TEST(RandomBase, DeviceSeededCalls) {
  void (*const calls[])(uint32_t*, int) = {KD_Random_GenerateBase, KD_Random_GenerateCrypto, KD_Random_GenerateMT};
  for (auto call : calls) {
    std::vector<uint32_t> a(2000), b(2000);
    call(a.data(), 2000);
    call(b.data(), 2000);
    uint32_t any = 0, all = ~0u;
    for (uint32_t w : a) any |= w, all &= w;
    EXPECT_EQ(any, ~0u);
    EXPECT_EQ(all, 0u);
    EXPECT_NE(a, b);
    uint32_t untouched = 0x12345678u;
    call(&untouched, 0);
    call(&untouched, -1);
    call(nullptr, 4);
    EXPECT_EQ(untouched, 0x12345678u);
  }
}

// GUIDs: the seeded core stores four twister outputs little-endian and sets only the version
// nibble; over many draws the version is always 4, the variant bits of byte 8 take every value and
// no GUID repeats.
TEST(Guid, VersionNibbleOnly) {
  const TwisterVector& v = kTwister[2];
  uint8_t expected[16];
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) expected[4 * i + j] = static_cast<uint8_t>(v.samples[i].value >> (8 * j));
  }
  expected[6] = static_cast<uint8_t>((expected[6] & 0x0F) | 0x40);
  uint8_t guid[16];
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

// The platform's random bytes: the device, a missing or empty one, and getrandom(2).
TEST(RandomDevice, DeviceAndFallback) {
  uint8_t buf[1000];
  const struct {
    const char* path;
    bool ok;
  } devices[] = {{"/dev/urandom", true}, {"/nonexistent/urandom", false}, {"/dev/null", false}};
  for (const auto& d : devices) EXPECT_EQ(KDCRT_ReadRandomDevice(d.path, buf, sizeof buf), d.ok) << d.path;
  for (bool (*read)(void*, size_t) : {+[](void* p, size_t n) { return KDCRT_GetRandom(p, n); },
                                       +[](void* p, size_t n) { return KDCRT_ReadRandom(p, n), true; }}) {
    std::memset(buf, 0, sizeof buf);
    EXPECT_TRUE(read(buf, sizeof buf));  // more than getrandom(2) promises in one call
    int zeros = 0;
    for (uint8_t b : buf) zeros += b == 0;
    EXPECT_LT(zeros, 20);  // about 4 expected
    EXPECT_NE(buf[sizeof buf - 1] | buf[sizeof buf - 2] | buf[sizeof buf - 3], 0);
  }
}

}  // namespace
