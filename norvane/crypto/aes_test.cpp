#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <utility>
#include <vector>

#include "norvane/crypto/aes.h"
#include "norvane/crypto/aes_internal.h"
#include "norvane/crypto/cavp_test_util.h"
#include "norvane/crypto/sha_internal.h"

namespace {

using cavptest::FromHex;
using cavptest::ReadRecords;
using cavptest::ToHex;
using Bytes = std::vector<uint8_t>;

Bytes RandomBytes(size_t n, std::mt19937* rng) {
  Bytes v(n);
  for (auto& b : v) b = static_cast<uint8_t>((*rng)());
  return v;
}

AESContext Keyed(const Bytes& key, const Bytes& iv) {
  AESContext ctx;
  std::memset(&ctx, 0, sizeof ctx);
  CRYPT_AESSetKey(&ctx, 16, key.data(), static_cast<uint32_t>(key.size()), true);
  CRYPT_AESSetIV(&ctx, iv.data());
  return ctx;
}

// What is tested: each CBC kernel of this processor, and (null) the public functions.
using Kernel = const kdcrypt::AesKernelEntry*;
std::vector<Kernel> Kernels() {
  std::vector<Kernel> v = {nullptr};
  for (auto* k = kdcrypt::AesKernels(); k->name; ++k) v.push_back(k);
  EXPECT_EQ(v.size(), aes_hw_capable() ? 3u : 2u);
  return v;
}
const char* Name(Kernel k) { return k ? k->name : "public"; }

void Chain(AESContext* ctx, uint8_t* out, const uint8_t* in, int size, bool encrypt, Kernel k) {
  if (k) {
    kdcrypt::AesCbc(ctx, out, in, size, encrypt, *k);
  } else {
    (encrypt ? CRYPT_AESEncrypt : CRYPT_AESDecrypt)(ctx, out, in, size);
  }
}

Bytes Cbc(AESContext* ctx, const Bytes& in, bool encrypt, Kernel k) {
  Bytes out(in.size());
  Chain(ctx, out.data(), in.data(), static_cast<int>(in.size()), encrypt, k);
  return out;
}

const char* const kKnownAnswerFiles[] = {"CBCGFSbox", "CBCKeySbox", "CBCVarKey", "CBCVarTxt", "CBCMMT"};

// Known answers and multi-block messages, both directions, each key size, each kernel.
TEST(Aes, PublishedVectors) {
  for (Kernel k : Kernels()) {
    SCOPED_TRACE(Name(k));
    for (const char* base : kKnownAnswerFiles) {
      for (int bits : {128, 192, 256}) {
        const std::string file = base + std::to_string(bits) + ".rsp";
        SCOPED_TRACE(file);
        int checked[2] = {0, 0};
        for (const auto& r : ReadRecords(file)) {
          if (!r.Has("KEY")) continue;
          const bool encrypt = r.section == "ENCRYPT";
          AESContext ctx = Keyed(FromHex(r["KEY"]), FromHex(r["IV"]));
          const Bytes in = FromHex(r[encrypt ? "PLAINTEXT" : "CIPHERTEXT"]);
          ASSERT_EQ(ToHex(Cbc(&ctx, in, encrypt, k)), r[encrypt ? "CIPHERTEXT" : "PLAINTEXT"])
              << r.section << " COUNT = " << r["COUNT"];
          ++checked[encrypt];
        }
        EXPECT_GE(checked[0], 5);
        EXPECT_EQ(checked[0], checked[1]);
      }
    }
  }
}

// Monte Carlo: 100 outer rounds of 1000 chained blocks, the key and IV of each round derived from
// the one before. The chaining value carries over between the 16-byte calls.
TEST(Aes, PublishedMonteCarlo) {
  for (Kernel k : Kernels()) {
    SCOPED_TRACE(Name(k));
    for (int bits : {128, 192, 256}) {
      const std::string file = "CBCMCT" + std::to_string(bits) + ".rsp";
      SCOPED_TRACE(file);
      const auto records = ReadRecords(file);
      for (const bool encrypt : {true, false}) {
        Bytes key, iv, in;
        int round = 0;
        for (const auto& r : records) {
          if (r.section != (encrypt ? "ENCRYPT" : "DECRYPT") || !r.Has("KEY")) continue;
          if (round == 0) {
            key = FromHex(r["KEY"]);
            iv = FromHex(r["IV"]);
            in = FromHex(r[encrypt ? "PLAINTEXT" : "CIPHERTEXT"]);
          }
          AESContext ctx = Keyed(key, iv);
          Bytes out, prev_out, next_in = in;
          for (int j = 0; j < 1000; ++j) {
            prev_out = out;
            out = Cbc(&ctx, next_in, encrypt, k);
            next_in = j == 0 ? iv : prev_out;
          }
          ASSERT_EQ(ToHex(out), r[encrypt ? "CIPHERTEXT" : "PLAINTEXT"]) << "round " << round;
          // The next key takes the last key-size bits of prev_out || out.
          Bytes tail = prev_out;
          tail.insert(tail.end(), out.begin(), out.end());
          for (size_t i = 0; i < key.size(); ++i) key[i] ^= tail[tail.size() - key.size() + i];
          iv = out;
          in = prev_out;
          ++round;
        }
        EXPECT_EQ(round, 100);
      }
    }
  }
}

// Chaining carries over between calls (the hardware decrypts eight blocks at a time), in place
// too; 17 bytes move two whole blocks; 0 and negative sizes touch nothing.
TEST(Aes, ChainingAcrossCalls) {
  std::mt19937 rng(11);
  for (Kernel k : Kernels()) {
    SCOPED_TRACE(Name(k));
    for (size_t key_len : {16, 24, 32}) {
      const Bytes key = RandomBytes(key_len, &rng), iv = RandomBytes(16, &rng);
      const Bytes plain = RandomBytes(16 * 37, &rng);
      AESContext ctx = Keyed(key, iv);
      const Bytes cipher = Cbc(&ctx, plain, true, k);
      const uint32_t chain_after[4] = {ctx.iv[0], ctx.iv[1], ctx.iv[2], ctx.iv[3]};
      for (bool encrypt : {true, false}) {
        ctx = Keyed(key, iv);
        Bytes buf = encrypt ? plain : cipher;
        size_t at = 0;
        for (size_t blocks : {1, 7, 8, 21}) {
          Chain(&ctx, buf.data() + at, buf.data() + at, static_cast<int>(16 * blocks), encrypt, k);
          at += 16 * blocks;
        }
        EXPECT_EQ(buf, encrypt ? cipher : plain);
        EXPECT_EQ(0, std::memcmp(ctx.iv, chain_after, sizeof chain_after));
      }
      ctx = Keyed(key, iv);
      Bytes out(48, 0xee);
      Chain(&ctx, out.data(), plain.data(), 17, true, k);
      EXPECT_EQ(Bytes(out.begin(), out.begin() + 32), Bytes(cipher.begin(), cipher.begin() + 32));
      EXPECT_EQ(out[32], 0xee);
      const AESContext before = ctx;
      Chain(&ctx, out.data(), plain.data(), 0, true, k);
      Chain(&ctx, out.data(), plain.data(), -16, false, k);
      EXPECT_EQ(0, std::memcmp(&before, &ctx, sizeof ctx));
      EXPECT_EQ(out[0], cipher[0]);
    }
  }
}

// A byte-at-a-time Rijndael written from its definition, with its own S-box and field arithmetic:
// the oracle for the 6- and 8-word blocks, which have no published vectors here.
struct ReferenceRijndael {
  uint8_t sbox[256];
  static uint8_t Mul(uint8_t a, uint8_t b) {
    uint8_t r = 0;
    for (; b; b >>= 1, a = static_cast<uint8_t>((a << 1) ^ ((a & 0x80) ? 0x1b : 0))) {
      if (b & 1) r ^= a;
    }
    return r;
  }
  ReferenceRijndael() {
    for (int x = 0; x < 256; ++x) {
      uint8_t inv = 0;
      for (int y = 1; y < 256 && x; ++y) {
        if (Mul(static_cast<uint8_t>(x), static_cast<uint8_t>(y)) == 1) inv = static_cast<uint8_t>(y);
      }
      uint8_t s = inv;
      for (int i = 1; i < 5; ++i) s ^= static_cast<uint8_t>((inv << i) | (inv >> (8 - i)));
      sbox[x] = s ^ 0x63;
    }
  }
  // Encrypts nb columns of bytes in place (byte 4c + r is row r of column c).
  void Encrypt(const Bytes& key, int nb, uint8_t* block) const {
    const int nk = static_cast<int>(key.size() / 4), nr = std::max(nb, nk) + 6;
    std::vector<uint8_t> w(4 * nb * (nr + 1));
    uint8_t rcon = 1;
    for (int i = 0; i < nb * (nr + 1); ++i) {
      uint8_t t[4];
      for (int r = 0; r < 4; ++r) t[r] = i < nk ? key[4 * i + r] : w[4 * (i - 1) + r];
      if (i >= nk) {
        if (i % nk == 0) {
          uint8_t t0 = t[0];
          for (int r = 0; r < 3; ++r) t[r] = sbox[t[r + 1]];
          t[3] = sbox[t0];
          t[0] ^= rcon;
          rcon = Mul(rcon, 2);
        } else if (nk > 6 && i % nk == 4) {
          for (auto& x : t) x = sbox[x];
        }
        for (int r = 0; r < 4; ++r) t[r] ^= w[4 * (i - nk) + r];
      }
      std::memcpy(&w[4 * i], t, 4);
    }
    const int shift[4] = {0, 1, nb == 8 ? 3 : 2, nb == 8 ? 4 : 3};
    auto add_key = [&](int round) {
      for (int i = 0; i < 4 * nb; ++i) block[i] ^= w[4 * nb * round + i];
    };
    add_key(0);
    for (int round = 1; round <= nr; ++round) {
      uint8_t s[32];
      for (int c = 0; c < nb; ++c) {
        for (int r = 0; r < 4; ++r) s[4 * c + r] = sbox[block[4 * ((c + shift[r]) % nb) + r]];
      }
      for (int c = 0; c < nb; ++c) {
        const uint8_t* a = s + 4 * c;
        if (round == nr) {
          std::memcpy(block + 4 * c, a, 4);
          continue;
        }
        for (int r = 0; r < 4; ++r) {
          block[4 * c + r] = Mul(a[r], 2) ^ Mul(a[(r + 1) % 4], 3) ^ a[(r + 2) % 4] ^ a[(r + 3) % 4];
        }
      }
      add_key(round);
    }
  }
};

TEST(Aes, BlockRoutinesForEveryBlockAndKeyLength) {
  const ReferenceRijndael reference;
  std::mt19937 rng(5);
  for (int nb : {4, 6, 8}) {
    for (int key_len : {16, 20, 24, 28, 32}) {
      SCOPED_TRACE(testing::Message() << "block " << 4 * nb << " key " << key_len);
      const Bytes key = RandomBytes(key_len, &rng);
      AESContext ctx;
      std::memset(&ctx, 0, sizeof ctx);
      CRYPT_AESSetKey(&ctx, 4 * nb, key.data(), key_len, false);  // the direction flag is ignored
      EXPECT_EQ(ctx.Nb, nb);
      EXPECT_EQ(ctx.Nr, std::max(nb, key_len / 4) + 6);
      // The block routines stored are the pair for this block length.
      const auto routines = nb == 4   ? std::make_pair(aes_encrypt_nb_4, aes_decrypt_nb_4)
                            : nb == 6 ? std::make_pair(aes_encrypt_nb_6, aes_decrypt_nb_6)
                                      : std::make_pair(aes_encrypt_nb_8, aes_decrypt_nb_8);
      EXPECT_TRUE(ctx.encrypt == routines.first && ctx.decrypt == routines.second);
      for (int trial = 0; trial < 4; ++trial) {
        Bytes plain = RandomBytes(4 * nb, &rng), expect = plain;
        reference.Encrypt(key, nb, expect.data());
        uint32_t words[8];
        for (int j = 0; j < nb; ++j) words[j] = kdcrypt::LoadBE32(&plain[4 * j]);
        ctx.encrypt(&ctx, words);
        Bytes got(4 * nb);
        for (int j = 0; j < nb; ++j) kdcrypt::StoreBE32(&got[4 * j], words[j]);
        ASSERT_EQ(ToHex(got), ToHex(expect));
        ctx.decrypt(&ctx, words);
        for (int j = 0; j < nb; ++j) EXPECT_EQ(words[j], kdcrypt::LoadBE32(&plain[4 * j]));
      }
    }
  }
}

// The FIPS 197 key expansion example; SetKey leaves the chaining value and SetIV the keys.
TEST(Aes, KeySchedules) {
  AESContext ctx;
  const Bytes key = FromHex("2b7e151628aed2a6abf7158809cf4f3c"), iv = FromHex("000102030405060708090a0b0c0d0e0f");
  CRYPT_AESSetKey(&ctx, 16, key.data(), 16, true);
  EXPECT_EQ(ctx.keysched[4], 0xa0fafe17u);
  EXPECT_EQ(ctx.keysched[43], 0xb6630ca6u);
  CRYPT_AESSetIV(&ctx, iv.data());
  CRYPT_AESSetKey(&ctx, 16, iv.data(), 16, true);
  EXPECT_EQ(ctx.iv[1], 0x04050607u);
  const AESContext keyed = ctx;
  CRYPT_AESSetIV(&ctx, key.data());
  EXPECT_EQ(0, std::memcmp(ctx.keysched, keyed.keysched, sizeof ctx.keysched + sizeof ctx.invkeysched));
}

int g_custom_calls = 0;
void CountingEncrypt(const AESContext* ctx, uint32_t* block) {
  ++g_custom_calls;
  aes_encrypt_nb_4(ctx, block);
}

// After an unsupported block length the chaining functions do nothing, even when the routines
// were never set; a context whose routine was replaced keeps it.
TEST(Aes, UnsupportedBlockLengthsAreRejected) {
  const Bytes key(16, 7), iv(32, 9), plain(64, 3);
  Bytes out(64, 0x55);
  AESContext ctx;
  std::memset(&ctx, 0xa5, sizeof ctx);  // routines hold garbage
  CRYPT_AESSetKey(&ctx, 20, key.data(), 16, true);
  CRYPT_AESSetIV(&ctx, iv.data());
  CRYPT_AESEncrypt(&ctx, out.data(), plain.data(), 64);
  CRYPT_AESDecrypt(&ctx, out.data(), plain.data(), 64);
  EXPECT_EQ(out, Bytes(64, 0x55));

  // A 16-byte key on 16-byte blocks, then another block length: routines kept, chaining refused.
  CRYPT_AESSetKey(&ctx, 16, key.data(), 16, true);
  CRYPT_AESSetKey(&ctx, 8, key.data(), 16, true);
  EXPECT_TRUE(ctx.encrypt == aes_encrypt_nb_4 && ctx.decrypt == aes_decrypt_nb_4);
  CRYPT_AESEncrypt(&ctx, out.data(), plain.data(), 64);
  EXPECT_EQ(out, Bytes(64, 0x55));

  // Schedules the context cannot hold: none is written, and no routine is left to read one.
  CRYPT_AESSetKey(&ctx, 64, key.data(), 16, true);
  EXPECT_TRUE(ctx.encrypt == nullptr && ctx.decrypt == nullptr);
  CRYPT_AESSetKey(&ctx, 16, key.data(), 16, true);
  CRYPT_AESSetKey(&ctx, 16, key.data(), 3, true);
  EXPECT_TRUE(ctx.encrypt == nullptr && ctx.decrypt == nullptr);
  const Bytes long_key(40, 1);
  CRYPT_AESSetKey(&ctx, 32, long_key.data(), 40, true);
  EXPECT_TRUE(ctx.encrypt == nullptr);
  CRYPT_AESDecrypt(&ctx, out.data(), plain.data(), 64);
  EXPECT_EQ(out, Bytes(64, 0x55));

  // A routine of the caller's own is used by the public functions.
  CRYPT_AESSetKey(&ctx, 16, key.data(), 16, true);
  CRYPT_AESSetIV(&ctx, iv.data());
  AESContext plain_ctx = ctx;
  ctx.encrypt = CountingEncrypt;
  g_custom_calls = 0;
  CRYPT_AESEncrypt(&ctx, out.data(), plain.data(), 64);
  EXPECT_EQ(g_custom_calls, 4);
  Bytes expect(64);
  CRYPT_AESEncrypt(&plain_ctx, expect.data(), plain.data(), 64);
  EXPECT_EQ(out, expect);
}

}  // namespace
