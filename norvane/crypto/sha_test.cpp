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

// One algorithm driven through one kernel, with the same Update and Finish the public functions use.
struct Variant {
  std::string name;
  std::string file;  // vector file prefix
  size_t digest;
  std::function<void(std::vector<uint8_t>*)> start;  // the context is a byte vector of the right size
  std::function<void(std::vector<uint8_t>*, const uint8_t*, uint32_t)> update;
  std::function<void(std::vector<uint8_t>*, uint8_t*)> finish;

  std::vector<uint8_t> Hash(const uint8_t* data, size_t size) const {
    std::vector<uint8_t> ctx, out(digest);
    start(&ctx);
    update(&ctx, data, static_cast<uint32_t>(size));
    finish(&ctx, out.data());
    return out;
  }
};

// One Variant per kernel in the list, over the context type Ctx.
template <class Ctx, class Fn, class Update, class Finish>
void AddVariants(std::vector<Variant>* v, const char* algo, const char* file, size_t digest, void (*start)(void*),
                 const kdcrypt::ShaKernelEntry<Fn>* kernels, Update update, Finish finish) {
  for (auto* k = kernels; k->name; ++k) {
    const Fn fn = k->fn;
    auto ctx = [](std::vector<uint8_t>* c) { return reinterpret_cast<Ctx*>(c->data()); };
    v->push_back({std::string(algo) + " " + k->name, file, digest,
                  [start](std::vector<uint8_t>* c) {
                    c->resize(sizeof(Ctx));
                    start(c->data());
                  },
                  [=](std::vector<uint8_t>* c, const uint8_t* d, uint32_t n) { update(ctx(c), d, n, fn); },
                  [=](std::vector<uint8_t>* c, uint8_t* out) { finish(ctx(c), out, fn); }});
  }
}

// SHA-384 and SHA-512 share one Finish, told how many state words to write.
template <int kWords>
void Sha512FinishWords(CRYPT_SHA512Context* ctx, uint8_t* out, kd_sha512_block_fn fn) {
  kdcrypt::Sha512Finish(ctx, out, kWords, fn);
}

std::vector<Variant> AllVariants() {
  using namespace kdcrypt;
  std::vector<Variant> v;
  AddVariants<CRYPT_SHA1Context>(&v, "SHA-1", "SHA1", 20, CRYPT_SHA1Start, Sha1Kernels(), Sha1Update, Sha1Finish);
  AddVariants<CRYPT_SHA256Context>(&v, "SHA-256", "SHA256", 32, CRYPT_SHA256Start, Sha256Kernels(), Sha256Update,
                                   Sha256Finish);
  AddVariants<CRYPT_SHA512Context>(&v, "SHA-384", "SHA384", 48, CRYPT_SHA384Start, Sha512Kernels(), Sha512Update,
                                   Sha512FinishWords<6>);
  AddVariants<CRYPT_SHA512Context>(&v, "SHA-512", "SHA512", 64, CRYPT_SHA512Start, Sha512Kernels(), Sha512Update,
                                   Sha512FinishWords<8>);
  return v;
}

std::vector<uint8_t> RandomBytes(size_t n, unsigned seed) {
  std::mt19937 rng(seed);
  std::vector<uint8_t> v(n);
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
        std::vector<uint8_t> msg = FromHex(r["Msg"]);
        msg.resize(std::stoul(r["Len"]) / 8);  // a zero-length message is written "00"
        ASSERT_EQ(ToHex(v.Hash(msg.data(), msg.size())), r["MD"]) << "Len = " << r["Len"];
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
    std::vector<uint8_t> seed;
    int checked = 0;
    for (const auto& r : ReadRecords(v.file + "Monte.rsp")) {
      if (r.Has("Seed")) {
        seed = FromHex(r["Seed"]);
        continue;
      }
      if (!r.Has("MD")) continue;
      ASSERT_EQ(seed.size(), v.digest);
      std::vector<uint8_t> md[3] = {seed, seed, seed}, m;
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

// Feeding the message in pieces of any size gives the digest of one Update, through the public
// functions too.
TEST(Sha, PiecesMatchOneUpdate) {
  const std::vector<uint8_t> msg = RandomBytes(1500, 7);
  const uint32_t pieces[] = {1, 63, 64, 65, 111, 112, 127, 128, 129};
  for (const Variant& v : AllVariants()) {
    SCOPED_TRACE(v.name);
    const std::vector<uint8_t> whole = v.Hash(msg.data(), msg.size());
    for (uint32_t piece : pieces) {
      SCOPED_TRACE(piece);
      std::vector<uint8_t> ctx, out(v.digest);
      v.start(&ctx);
      v.update(&ctx, msg.data(), 0);
      for (size_t at = 0; at < msg.size(); at += piece) {
        v.update(&ctx, msg.data() + at, static_cast<uint32_t>(std::min<size_t>(piece, msg.size() - at)));
      }
      v.finish(&ctx, out.data());
      EXPECT_EQ(out, whole);
    }
    // A piece that ends a block exactly, then a second message on the same context after Start.
    std::vector<uint8_t> ctx, out(v.digest);
    v.start(&ctx);
    v.update(&ctx, msg.data(), 5);
    v.start(&ctx);
    v.update(&ctx, msg.data(), 100);
    v.update(&ctx, msg.data() + 100, 1400);
    v.finish(&ctx, out.data());
    EXPECT_EQ(out, whole);
  }

  // The public functions give what every kernel gives: Generate, and Update in pieces.
  uint8_t d20[20], d32[32], d48[48], d64[64], p20[20], p32[32];
  CRYPT_SHA1Generate(msg.data(), 1500, d20);
  CRYPT_SHA256Generate(msg.data(), 1500, d32);
  CRYPT_SHA384Generate(msg.data(), 1500, d48);
  CRYPT_SHA512Generate(msg.data(), 1500, d64);
  for (const Variant& v : AllVariants()) {
    const uint8_t* expect = v.digest == 20 ? d20 : v.digest == 32 ? d32 : v.digest == 48 ? d48 : d64;
    EXPECT_EQ(std::vector<uint8_t>(expect, expect + v.digest), v.Hash(msg.data(), 1500)) << v.name;
  }
  CRYPT_SHA1Context c1;
  CRYPT_SHA1Start(&c1);
  for (int i = 0; i < 1500; i += 100) CRYPT_SHA1Update(&c1, msg.data() + i, 100);
  CRYPT_SHA1Finish(&c1, p20);
  EXPECT_EQ(0, std::memcmp(p20, d20, 20));
  CRYPT_SHA256Context c256;
  CRYPT_SHA256Start(&c256);
  for (int i = 0; i < 1500; i += 500) CRYPT_SHA256Update(&c256, msg.data() + i, 500);
  CRYPT_SHA256Finish(&c256, p32);
  EXPECT_EQ(0, std::memcmp(p32, d32, 32));

  // SHA-384 and SHA-512 Update are one function: either may feed either context.
  CRYPT_SHA512Context c384, c512;
  CRYPT_SHA384Start(&c384);
  CRYPT_SHA512Start(&c512);
  CRYPT_SHA512Update(&c384, msg.data(), 700);
  CRYPT_SHA384Update(&c384, msg.data() + 700, 800);
  CRYPT_SHA384Update(&c512, msg.data(), 700);
  CRYPT_SHA512Update(&c512, msg.data() + 700, 800);
  uint8_t e48[48], e64[64];
  CRYPT_SHA384Finish(&c384, e48);
  CRYPT_SHA512Finish(&c512, e64);
  EXPECT_EQ(0, std::memcmp(e48, d48, 48));
  EXPECT_EQ(0, std::memcmp(e64, d64, 64));
}

// The length fields count bytes, carry from the low word into the high one, and become the bit
// length (times 8, across both words) only in Finish.
TEST(Sha, LengthAccounting) {
  const std::vector<uint8_t> msg = RandomBytes(200, 3);

  CRYPT_SHA1Context c1;
  CRYPT_SHA1Start(&c1);
  CRYPT_SHA1Update(&c1, msg.data(), 70);
  EXPECT_EQ(c1.count, 6u);
  EXPECT_EQ(c1.total_lo, 70u);
  EXPECT_EQ(c1.total_hi, 0u);
  c1.total_lo = 0xfffffff0u;
  CRYPT_SHA1Update(&c1, msg.data(), 20);
  EXPECT_EQ(c1.count, 26u);
  EXPECT_EQ(c1.total_lo, 4u);
  EXPECT_EQ(c1.total_hi, 1u);

  CRYPT_SHA256Context c256;
  CRYPT_SHA256Start(&c256);
  c256.total_lo = 0xffffffc0u;  // a multiple of 64: nothing buffered
  CRYPT_SHA256Update(&c256, msg.data(), 65);
  EXPECT_EQ(c256.total_lo, 1u);
  EXPECT_EQ(c256.total_hi, 1u);

  CRYPT_SHA512Context c512;
  CRYPT_SHA512Start(&c512);
  c512.total_lo = ~0ull - 127;
  CRYPT_SHA512Update(&c512, msg.data(), 130);
  EXPECT_EQ(c512.total_lo, 2u);
  EXPECT_EQ(c512.total_hi, 1u);

  // A message of 2^32 bytes (SHA-1, SHA-256) and of 2^61 and 2^64 bytes (SHA-512) with nothing
  // buffered: Finish compresses one block of padding ending in the bit length.
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
    if (hi) {
      c512.total_hi = 1;  // 2^64 bytes = 2^67 bits
      block512[119] = 8;
    } else {
      c512.total_lo = 1ull << 61;  // 2^64 bits
      block512[119] = 1;
    }
    CRYPT_SHA512Finish(&c512, got512);
    CRYPT_SHA512Start(&c512);
    sha512_block_data_order_nohw(c512.state, block512, 1);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(kdcrypt::LoadBE64(got512 + 8 * i), c512.state[i]);
  }

  // Start clears the SHA-384/512 context whole, and ignores a null one.
  std::memset(&c512, 0xab, sizeof c512);
  CRYPT_SHA384Start(&c512);
  EXPECT_EQ(c512.total_lo, 0u);
  EXPECT_EQ(c512.total_hi, 0u);
  for (uint8_t b : c512.buffer) EXPECT_EQ(b, 0);
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

// An update of 2^32 - 1 bytes while one byte is buffered: the test whether the data still fit
// the block buffer must not wrap around in 32 bits (it once copied 4 GiB into the context). The
// data are 4 GiB of zero pages. Each buffering (SHA-1, SHA-256, SHA-384/512) runs over a counting
// kernel; SHA-1 also hashes the whole message, against OpenSSL.
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
  EXPECT_EQ(c1.count, 0u);
  EXPECT_EQ(c1.total_hi, 1u);

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
