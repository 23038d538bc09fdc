#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <sys/mman.h>

#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include "norvane/crypto/cavp_test_util.h"
#include "norvane/crypto/sha.h"
#include "norvane/crypto/sha_internal.h"

namespace {

using cavptest::FromHex;
using cavptest::ReadRecords;
using cavptest::ToHex;
using Bytes = std::vector<uint8_t>;

// Room for any of the three context layouts.
union AnyContext {
  CRYPT_SHA1Context sha1;
  CRYPT_SHA256Context sha256;
  CRYPT_SHA512Context sha512;
};

// One algorithm through one kernel, or through the public functions (which also have Generate).
struct Variant {
  std::string name, file;  // file: the vector file prefix
  size_t digest;
  std::function<void(void*)> start;
  std::function<void(void*, const uint8_t*, uint32_t)> update;
  std::function<void(void*, uint8_t*)> finish;
  void (*generate)(const uint8_t*, uint32_t, uint8_t*);

  Bytes Hash(const uint8_t* data, size_t size) const {
    AnyContext ctx;
    Bytes out(digest);
    start(&ctx);
    update(&ctx, data, static_cast<uint32_t>(size));
    finish(&ctx, out.data());
    return out;
  }
};

template <class Ctx, class Fn, class Update, class Finish>
void AddKernels(std::vector<Variant>* v, const char* algo, const char* file, size_t digest, void (*start)(void*),
                const kdcrypt::ShaKernelEntry<Fn>* k, Update update, Finish finish) {
  for (; k->name; ++k) {
    const Fn fn = k->fn;
    v->push_back({std::string(algo) + " " + k->name, file, digest, start,
                  [=](void* c, const uint8_t* d, uint32_t n) { update(static_cast<Ctx*>(c), d, n, fn); },
                  [=](void* c, uint8_t* out) { finish(static_cast<Ctx*>(c), out, fn); }, nullptr});
  }
}

// SHA-384 and SHA-512 share one Finish, told how many state words to write.
template <int kWords>
void Sha512FinishWords(CRYPT_SHA512Context* ctx, uint8_t* out, kd_sha512_block_fn fn) {
  kdcrypt::Sha512Finish(ctx, out, kWords, fn);
}

// Every kernel, and the public functions; the public SHA-384 and SHA-512 each use the other's
// Update, which is the same function.
std::vector<Variant> AllVariants() {
  using namespace kdcrypt;
  std::vector<Variant> v = {
      {"SHA-1 public", "SHA1", 20, CRYPT_SHA1Start, CRYPT_SHA1Update, CRYPT_SHA1Finish, CRYPT_SHA1Generate},
      {"SHA-256 public", "SHA256", 32, CRYPT_SHA256Start, CRYPT_SHA256Update, CRYPT_SHA256Finish, CRYPT_SHA256Generate},
      {"SHA-384 public", "SHA384", 48, CRYPT_SHA384Start, CRYPT_SHA512Update, CRYPT_SHA384Finish, CRYPT_SHA384Generate},
      {"SHA-512 public", "SHA512", 64, CRYPT_SHA512Start, CRYPT_SHA384Update, CRYPT_SHA512Finish, CRYPT_SHA512Generate}};
  AddKernels<CRYPT_SHA1Context>(&v, "SHA-1", "SHA1", 20, CRYPT_SHA1Start, Sha1Kernels(), Sha1Update, Sha1Finish);
  AddKernels<CRYPT_SHA256Context>(&v, "SHA-256", "SHA256", 32, CRYPT_SHA256Start, Sha256Kernels(), Sha256Update,
                                  Sha256Finish);
  AddKernels<CRYPT_SHA512Context>(&v, "SHA-384", "SHA384", 48, CRYPT_SHA384Start, Sha512Kernels(), Sha512Update,
                                  Sha512FinishWords<6>);
  AddKernels<CRYPT_SHA512Context>(&v, "SHA-512", "SHA512", 64, CRYPT_SHA512Start, Sha512Kernels(), Sha512Update,
                                  Sha512FinishWords<8>);
  return v;
}

Bytes RandomBytes(size_t n, unsigned seed) {
  std::mt19937 rng(seed);
  Bytes v(n);
  for (auto& b : v) b = static_cast<uint8_t>(rng());
  return v;
}

template <class Fn>
size_t Count(const kdcrypt::ShaKernelEntry<Fn>* k) {
  size_t n = 0;
  for (; k->name; ++k) ++n;
  return n;
}

TEST(Sha, EveryKernelTheProcessorHasIsTested) {
  bool sha512_fast = sha512_hw_capable();
#if defined(NORVANE_SHA512_AVX2)
  sha512_fast = sha512_fast || sha512_avx2_capable();
#endif
  EXPECT_EQ(Count(kdcrypt::Sha1Kernels()), sha1_hw_capable() ? 2u : 1u);
  EXPECT_EQ(Count(kdcrypt::Sha256Kernels()), sha256_hw_capable() ? 2u : 1u);
  EXPECT_EQ(Count(kdcrypt::Sha512Kernels()), sha512_fast ? 2u : 1u);
}

// The short (every length up to two blocks, so both padding cases) and long messages.
TEST(Sha, PublishedMessages) {
  for (const Variant& v : AllVariants()) {
    SCOPED_TRACE(v.name);
    std::vector<std::string> files = {v.file + "ShortMsg.rsp"};
    if (v.file == "SHA1" || v.file == "SHA256") files.push_back(v.file + "LongMsg.rsp");
    for (const std::string& file : files) {
      SCOPED_TRACE(file);
      int checked = 0;
      for (const auto& r : ReadRecords(file)) {
        if (!r.Has("Len")) continue;
        Bytes msg = FromHex(r["Msg"]);
        msg.resize(std::stoul(r["Len"]) / 8);  // a zero-length message is written "00"
        ASSERT_EQ(ToHex(v.Hash(msg.data(), msg.size())), r["MD"]) << "Len = " << r["Len"];
        if (v.generate) {
          Bytes one(v.digest);
          v.generate(msg.data(), static_cast<uint32_t>(msg.size()), one.data());
          ASSERT_EQ(ToHex(one), r["MD"]) << "Generate, Len = " << r["Len"];
        }
        ++checked;
      }
      EXPECT_GE(checked, 64);
    }
  }
}

// Monte Carlo: each checkpoint is 1000 chained hashes of the three digests before.
TEST(Sha, PublishedMonteCarlo) {
  for (const Variant& v : AllVariants()) {
    SCOPED_TRACE(v.name);
    Bytes seed;
    int checked = 0;
    for (const auto& r : ReadRecords(v.file + "Monte.rsp")) {
      if (r.Has("Seed")) {
        seed = FromHex(r["Seed"]);
        continue;
      }
      if (!r.Has("MD")) continue;
      ASSERT_EQ(seed.size(), v.digest);
      Bytes md[3] = {seed, seed, seed}, m;
      for (int i = 0; i < 1000; ++i) {
        m = md[0];
        m.insert(m.end(), md[1].begin(), md[1].end());
        m.insert(m.end(), md[2].begin(), md[2].end());
        md[0] = md[1];
        md[1] = md[2];
        md[2] = v.Hash(m.data(), m.size());
      }
      seed = md[2];
      ASSERT_EQ(ToHex(seed), r["MD"]) << "COUNT = " << r["COUNT"];
      ++checked;
    }
    EXPECT_EQ(checked, 100);
  }
}

// Feeding the message in pieces of any size gives the digest of one Update; Start begins afresh.
TEST(Sha, PiecesMatchOneUpdate) {
  const Bytes msg = RandomBytes(1500, 7);
  for (const Variant& v : AllVariants()) {
    SCOPED_TRACE(v.name);
    const Bytes whole = v.Hash(msg.data(), msg.size());
    for (uint32_t piece : {1, 63, 64, 65, 111, 112, 127, 128, 129}) {
      AnyContext ctx;
      Bytes out(v.digest);
      v.start(&ctx);
      v.update(&ctx, msg.data(), 5);
      v.start(&ctx);
      v.update(&ctx, msg.data(), 0);
      for (size_t at = 0; at < msg.size(); at += piece) {
        v.update(&ctx, msg.data() + at, static_cast<uint32_t>(std::min<size_t>(piece, msg.size() - at)));
      }
      v.finish(&ctx, out.data());
      EXPECT_EQ(out, whole) << piece;
    }
  }
}

// The length fields count bytes and carry from the low word into the high one; Finish turns them
// into the bit length across both words (checked on lengths of 2^32, 2^61 and 2^64 bytes with
// nothing buffered: one block of padding ending in the length).
TEST(Sha, LengthAccounting) {
  const Bytes msg = RandomBytes(200, 3);
  CRYPT_SHA1Context c1;
  CRYPT_SHA1Start(&c1);
  CRYPT_SHA1Update(&c1, msg.data(), 70);
  EXPECT_TRUE(c1.count == 6 && c1.total_lo == 70 && c1.total_hi == 0);
  c1.total_lo = 0xfffffff0u;
  CRYPT_SHA1Update(&c1, msg.data(), 20);
  EXPECT_TRUE(c1.count == 26 && c1.total_lo == 4 && c1.total_hi == 1);
  CRYPT_SHA256Context c256;
  CRYPT_SHA256Start(&c256);
  c256.total_lo = 0xffffffc0u;  // a multiple of 64: nothing buffered
  CRYPT_SHA256Update(&c256, msg.data(), 65);
  EXPECT_TRUE(c256.total_lo == 1 && c256.total_hi == 1);
  CRYPT_SHA512Context c512;
  CRYPT_SHA512Start(&c512);
  c512.total_lo = ~0ull - 127;
  CRYPT_SHA512Update(&c512, msg.data(), 130);
  EXPECT_TRUE(c512.total_lo == 2 && c512.total_hi == 1);

  uint8_t block[64] = {0x80}, got[32];
  block[59] = 8;  // 2^32 bytes = 2^35 bits
  CRYPT_SHA1Start(&c1);
  c1.total_hi = 1;
  CRYPT_SHA1Finish(&c1, got);
  CRYPT_SHA1Start(&c1);
  sha1_block_data_order_nohw(c1.state, block, 1);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(kdcrypt::LoadBE32(got + 4 * i), c1.state[i]);
  CRYPT_SHA256Start(&c256);
  c256.total_hi = 1;
  CRYPT_SHA256Finish(&c256, got);
  CRYPT_SHA256Start(&c256);
  sha256_block_data_order_nohw(c256.state, block, 1);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(kdcrypt::LoadBE32(got + 4 * i), c256.state[i]);
  for (int hi = 0; hi < 2; ++hi) {
    uint8_t block512[128] = {0x80}, got512[64];
    CRYPT_SHA512Start(&c512);
    (hi ? c512.total_hi : c512.total_lo) = hi ? 1 : 1ull << 61;
    block512[119] = hi ? 8 : 1;  // 2^67 or 2^64 bits
    CRYPT_SHA512Finish(&c512, got512);
    CRYPT_SHA512Start(&c512);
    sha512_block_data_order_nohw(c512.state, block512, 1);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(kdcrypt::LoadBE64(got512 + 8 * i), c512.state[i]);
  }

  // Start clears the SHA-384/512 context whole, and ignores a null one.
  CRYPT_SHA512Context clean = {};
  std::memset(&c512, 0xab, sizeof c512);
  CRYPT_SHA384Start(&c512);
  CRYPT_SHA384Start(&clean);
  EXPECT_EQ(0, std::memcmp(&c512, &clean, sizeof clean));
  CRYPT_SHA384Start(nullptr);
  CRYPT_SHA512Start(nullptr);
}

// A kernel that only counts the blocks it is given: the buffering can be checked on messages of
// gigabytes without hashing them.
uint64_t g_counted_blocks;
template <class Word>
void CountBlocks(Word*, const uint8_t*, size_t n) {
  g_counted_blocks += n;
}

// An update of 2^32 - 1 bytes while bytes are buffered: the test whether the data still fit the
// block buffer must not wrap around in 32 bits (it once copied 4 GiB into the context). The data
// are 4 GiB of zero pages, over a counting kernel for each buffering; SHA-1 also hashes them all,
// against OpenSSL.
TEST(Sha, CountNearTwoToThe32) {
  const uint32_t kSize = 0xFFFFFFFFu;
  void* map = mmap(nullptr, kSize, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(map, MAP_FAILED);
  const auto* zeros = static_cast<const uint8_t*>(map);
  const uint8_t first = 'a';

  g_counted_blocks = 0;
  CRYPT_SHA1Context c1;
  CRYPT_SHA1Start(&c1);
  kdcrypt::Sha1Update(&c1, &first, 1, CountBlocks<uint32_t>);
  kdcrypt::Sha1Update(&c1, zeros, kSize, CountBlocks<uint32_t>);
  EXPECT_EQ(g_counted_blocks, (1ull << 32) / 64);
  EXPECT_TRUE(c1.count == 0 && c1.total_hi == 1);

  g_counted_blocks = 0;
  CRYPT_SHA256Context c256;
  CRYPT_SHA256Start(&c256);
  kdcrypt::Sha256Update(&c256, &first, 1, CountBlocks<uint32_t>);
  kdcrypt::Sha256Update(&c256, zeros, kSize, CountBlocks<uint32_t>);
  EXPECT_EQ(g_counted_blocks, (1ull << 32) / 64);
  EXPECT_EQ(c256.total_hi, 1u);

  g_counted_blocks = 0;
  CRYPT_SHA512Context c512;
  CRYPT_SHA512Start(&c512);
  kdcrypt::Sha512Update(&c512, zeros, 3, CountBlocks<uint64_t>);
  kdcrypt::Sha512Update(&c512, zeros, kSize, CountBlocks<uint64_t>);
  EXPECT_EQ(g_counted_blocks, ((1ull << 32) + 2) / 128);
  EXPECT_EQ(c512.total_lo, (1ull << 32) + 2);

  uint8_t ours[20], theirs[20];
  CRYPT_SHA1Start(&c1);
  CRYPT_SHA1Update(&c1, &first, 1);
  CRYPT_SHA1Update(&c1, zeros, kSize);
  CRYPT_SHA1Finish(&c1, ours);
  EVP_MD_CTX* ctx = EVP_MD_CTX_new();
  EVP_DigestInit_ex(ctx, EVP_sha1(), nullptr);
  EVP_DigestUpdate(ctx, &first, 1);
  EVP_DigestUpdate(ctx, zeros, kSize);
  EVP_DigestFinal_ex(ctx, theirs, nullptr);
  EVP_MD_CTX_free(ctx);
  EXPECT_EQ(ToHex(ours, 20), ToHex(theirs, 20));
  munmap(map, kSize);
}

}  // namespace
