// RSA: the blob formats, the raw operations against OpenSSL's unpadded RSA on the same keys, the
// SHA-256 verifier and its DER limits, the key check's codes, the block parsers, hostile blobs.
#include "norvane/crypto/rsa.h"

#include <gtest/gtest.h>
#include <openssl/core_names.h>
#include <openssl/rsa.h>

#include <map>
#include <random>
#include <string>
#include <tuple>

#include "norvane/crypto/dsa.h"
#include "norvane/crypto/pubkey_test_util.h"
#include "norvane/crypto/sha.h"
#include "norvane/memory/memory_mgr.h"

namespace {

using pktest::Bytes;
using pktest::FromHex;
using pktest::ToHex;
using pktest::View;

// OpenSSL keys, made once per size and exponent.
EVP_PKEY* Key(int bits, unsigned e) {
  static std::map<std::pair<int, unsigned>, pktest::Pkey> keys;
  pktest::Pkey& k = keys[{bits, e}];
  if (!k) k = pktest::OpensslRsaKey(bits, e);
  return k.get();
}

Bytes RandomBytes(std::mt19937& rng, size_t n) {
  Bytes b(n);
  for (uint8_t& x : b) x = static_cast<uint8_t>(rng());
  return b;
}

Bytes StripZeros(Bytes b) {
  size_t i = 0;
  while (i < b.size() && b[i] == 0) ++i;
  return Bytes(b.begin() + static_cast<long>(i), b.end());
}

Bytes Cat(const std::vector<Bytes>& parts) {
  Bytes out;
  for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

Bytes Sha1(const Bytes& data) {
  Bytes d(20);
  CRYPT_SHA1Generate(data.data(), static_cast<uint32_t>(data.size()), d.data());
  return d;
}

TEST(MPInt, FormatAndRoundTrips) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", "00000000"},          {"00", "00000000"},       {"01", "0000000101"},
      {"0080", "0000000180"},    {"ff00", "00000002ff00"}, {"000000010203", "00000003010203"},
      {"0100000000", "000000050100000000"},
  };
  for (const auto& [value, mpint] : cases) {
    const KDPKI_HugeInt x = pktest::Huge(FromHex(value));
    uint8_t buffer[16] = {};
    const uint32_t written = KDPKI_ExportMPInt(x, buffer);
    EXPECT_EQ(written, KDPKI_ExportMPInt(x, nullptr)) << value;
    EXPECT_EQ(ToHex(buffer, written), mpint) << value;
    KDPKI_HugeInt back = KDPKI_HugeInt(7u) - KDPKI_HugeInt(9u);  // negative before: the import sets the sign
    EXPECT_EQ(KDPKI_ImportMPInt(back, buffer), written);
    EXPECT_EQ(back, x) << value;
    EXPECT_FALSE(back.IsNegative());
  }
  // The bare form keeps leading zeros out of the value; null reads nothing.
  const Bytes bare = FromHex("0000fe01");
  KDPKI_HugeInt v(5u);
  EXPECT_EQ(KDPKI_ImportMPInt(v, bare.data(), 4), 4u);
  EXPECT_EQ(v.ConvertToLong(), 0xfe01);
  EXPECT_EQ(KDPKI_ImportMPInt(v, nullptr), 0u);
  EXPECT_EQ(KDPKI_ImportMPInt(v, nullptr, 3), 0u);
  EXPECT_EQ(v.ConvertToLong(), 0xfe01);
}

// Our raw operations against OpenSSL's unpadded RSA on the same keys, for small and large exponents.
TEST(Rsa, RawOperationsMatchOpenssl) {
  std::mt19937 rng(1);
  for (const auto& [bits, e] : {std::pair{512, 17u}, {1024, 17u}, {1024, 65537u}, {2048, 17u}, {2048, 65537u}}) {
    EVP_PKEY* key = Key(bits, e);
    ASSERT_NE(key, nullptr);
    const Bytes pub = pktest::RsaPublicBlob(key), priv = pktest::RsaPrivateBlob(key);
    const size_t k = static_cast<size_t>(bits / 8);
    for (size_t length : {size_t{0}, size_t{1}, size_t{20}, k - 12, k - 11}) {
      SCOPED_TRACE(std::to_string(bits) + "-bit key, e = " + std::to_string(e) + ", " + std::to_string(length) +
                   " bytes");
      Bytes m = RandomBytes(rng, length);
      if (length > 2) m[0] = m[1] = 0;  // leading zeros are not part of the value
      CKD_ByteString c, back, sig;
      ASSERT_TRUE(KDPKI_RsaEncrypt(View(m), View(pub), c));
      EXPECT_EQ(ToHex(c), ToHex(StripZeros(pktest::RawRsa(key, m, false))));
      ASSERT_TRUE(KDPKI_RsaDecrypt(c, View(priv), back));
      EXPECT_EQ(ToHex(back), ToHex(StripZeros(m)));
      // Decryption of any value below n, and signing, are OpenSSL's private operation.
      Bytes x = RandomBytes(rng, k);
      x[0] &= 0x7f;
      ASSERT_TRUE(KDPKI_RsaDecrypt(View(x), View(priv), back));
      EXPECT_EQ(ToHex(back), ToHex(StripZeros(pktest::RawRsa(key, x, true))));
      ASSERT_TRUE(KDPKI_RsaSign(View(m), View(priv), sig));
      EXPECT_EQ(ToHex(sig), ToHex(StripZeros(pktest::RawRsa(key, Sha1(m), true))));
      EXPECT_TRUE(KDPKI_VerifyRsaSign(View(m), sig, View(pub)));
      Bytes other = m;
      other.push_back(0);
      EXPECT_FALSE(KDPKI_VerifyRsaSign(View(other), sig, View(pub)));
      Bytes bad = pktest::ToBytes(sig);
      bad.back() ^= 1;
      EXPECT_FALSE(KDPKI_VerifyRsaSign(View(m), View(bad), View(pub)));
    }
  }
}

TEST(Rsa, EncryptionLengthLimit) {
  EVP_PKEY* key = Key(1024, 17);
  const Bytes n = pktest::Param(key, OSSL_PKEY_PARAM_RSA_N), e = pktest::Param(key, OSSL_PKEY_PARAM_RSA_E);
  const Bytes pub = pktest::Blob({n, e});
  // The limit counts the recorded length of n in whole words, so a leading zero byte in n's MPInt
  // (129 bytes recorded) raises it from 117 to 4 * 33 - 11 = 121 bytes.
  Bytes padded = {0, 0, 0, 129, 0};
  padded.insert(padded.end(), n.begin(), n.end());
  const Bytes e_mpint = pktest::Blob({e});
  padded.insert(padded.end(), e_mpint.begin(), e_mpint.end());
  for (const auto& [blob, limit] : {std::pair{pub, 117}, {padded, 121}}) {
    const Bytes data(static_cast<size_t>(limit) + 1, 0x42);
    CKD_ByteString out("untouched");
    EXPECT_TRUE(KDPKI_RsaEncrypt(CKD_ByteStringC(data.data(), limit), View(blob), out));
    EXPECT_EQ(ToHex(out), ToHex(StripZeros(pktest::RawRsa(key, Bytes(data.begin(), data.end() - 1), false))));
    out = "untouched";
    EXPECT_FALSE(KDPKI_RsaEncrypt(View(data), View(blob), out));
    EXPECT_EQ(out, "untouched");
  }
  // Nothing to encrypt gives nothing: 0^e is 0, whose bytes are none.
  CKD_ByteString out("x");
  EXPECT_TRUE(KDPKI_RsaEncrypt(CKD_ByteStringC(), View(pub), out));
  EXPECT_TRUE(out.IsEmpty());
}

// Blobs cut short, or with length fields running past their end, are refused without being read
// past; bytes after the last component are ignored; nonsense values compute without harm.
TEST(Rsa, HostileBlobs) {
  EVP_PKEY* key = Key(512, 17);
  const Bytes pub = pktest::RsaPublicBlob(key), priv = pktest::RsaPrivateBlob(key);
  const Bytes data = {1, 2, 3};
  CKD_ByteString sig;
  ASSERT_TRUE(KDPKI_RsaSign(View(data), View(priv), sig));
  const CKD_ByteString good_sig = sig;
  for (const Bytes* blob : {&pub, &priv}) {
    for (size_t cut = 0; cut < blob->size(); ++cut) {
      // A copy of exactly the cut length, so that a read past it is a read past the allocation.
      const Bytes shorter(blob->begin(), blob->begin() + static_cast<long>(cut));
      CKD_ByteString out("untouched");
      if (blob == &pub) {
        EXPECT_FALSE(KDPKI_RsaEncrypt(View(data), View(shorter), out)) << cut;
        EXPECT_FALSE(KDPKI_VerifyRsaSign(View(data), good_sig, View(shorter))) << cut;
      } else {
        EXPECT_FALSE(KDPKI_RsaDecrypt(View(data), View(shorter), out)) << cut;
        EXPECT_FALSE(KDPKI_RsaSign(View(data), View(shorter), out)) << cut;
      }
      EXPECT_EQ(out, "untouched");
    }
    Bytes longer = *blob;
    longer.insert(longer.end(), {0xff, 0xff, 0xff, 0xff, 1});
    CKD_ByteString out;
    EXPECT_TRUE(blob == &pub ? KDPKI_VerifyRsaSign(View(data), good_sig, View(longer))
                             : KDPKI_RsaSign(View(data), View(longer), out) && out == good_sig);
  }
  // A length field of 2^32 - 1.
  const Bytes huge = FromHex("ffffffff0102030405");
  CKD_ByteString out("untouched");
  EXPECT_FALSE(KDPKI_RsaEncrypt(View(data), View(huge), out));
  EXPECT_FALSE(KDPKI_RsaDecrypt(View(data), View(huge), out));
  EXPECT_EQ(out, "untouched");
  // Zero and even moduli recorded as 16 bytes, and zero or even primes: they compute without harm.
  for (const Bytes& blob : {Cat({FromHex("00000010"), Bytes(16, 0), FromHex("0000000103")}),
                            Cat({FromHex("00000010"), Bytes(16, 0x10), FromHex("00000000")})}) {
    EXPECT_TRUE(KDPKI_RsaEncrypt(View(data), View(blob), out));
    EXPECT_FALSE(KDPKI_VerifyRsaSign(View(data), good_sig, View(blob)));
  }
  for (const Bytes& blob : {pktest::Blob({{}, {}, {}, {}, {}}), pktest::Blob({{4}, {6}, {3}, {3}, {1}})}) {
    EXPECT_TRUE(KDPKI_RsaDecrypt(View(data), View(blob), out));
  }
}

// KDPKI_VerifySHA256RsaSign accepts OpenSSL's PKCS#1 v1.5 SHA-256 signatures under the key's DER
// form, within the DER reader's limits (what else it accepts: the Wycheproof test).
TEST(Rsa, Sha256Verifier) {
  const Bytes data = {'a', 'b', 'c'};
  for (const auto& [bits, accepted] : {std::pair{512, true}, {1024, false}, {2048, true}}) {
    SCOPED_TRACE(bits);
    EVP_PKEY* key = Key(bits, 65537);
    const Bytes der = pktest::RsaPublicDer(key);
    const Bytes sig = pktest::OpensslSign(key, "SHA256", data);
    // 1024-bit keys have a 129-byte n, whose length takes the 0x81 form: not read.
    EXPECT_EQ(KDPKI_VerifySHA256RsaSign(View(data), View(sig), View(der)), accepted);
    EXPECT_FALSE(KDPKI_VerifySHA256RsaSign(View(Bytes{'a', 'b'}), View(sig), View(der)));
    if (!accepted) continue;
    // Every truncation of the DER key is refused without reading past it.
    for (size_t cut = 0; cut < der.size(); ++cut) {
      const Bytes shorter(der.begin(), der.begin() + static_cast<long>(cut));
      EXPECT_FALSE(KDPKI_VerifySHA256RsaSign(View(data), View(sig), View(shorter))) << cut;
    }
  }
  // The DER readers on their own: what they accept and refuse.
  const uint32_t kBad = 0xFFFFFFFF;
  const std::vector<std::tuple<std::string, uint32_t, std::string>> n_cases = {
      {"300a0203010001" "0203010001", 7, "010001"},            // short forms
      {"3082000a0203010001" "0203010001", 9, "010001"},        // 0x82 sequence length
      {"300c02820003010001" "0203010001", 9, "010001"},        // 0x82 integer length
      {"300b020400010001" "0203010001", 8, "010001"},          // a leading zero is part of n
      {"300b0203010001" "020301000100", kBad, ""},             // sequence one longer than n and e
      {"30810a0203010001" "0203010001", kBad, ""},             // 0x81 form
      {"310a0203010001" "0203010001", kBad, ""},               // not a sequence
      {"300a0303010001" "0203010001", kBad, ""},               // not an integer
      {"300b0204010001", kBad, ""},                            // n runs past the key
      {"300a028200", kBad, ""},                                // length cut short
      {"3080", kBad, ""},
      {"30", kBad, ""},
      {"", kBad, ""},
  };
  for (const auto& [hex, offset, n] : n_cases) {
    const Bytes der = FromHex(hex);
    KDPKI_HugeInt value(9u);
    EXPECT_EQ(KDPKI_ImportNInt(value, der.data(), static_cast<uint32_t>(der.size())), offset) << hex;
    EXPECT_EQ(ToHex(pktest::Magnitude(value)), offset == kBad ? "09" : n) << hex;
  }
  for (const auto& [hex, offset] : std::vector<std::pair<std::string, uint32_t>>{{"0203010001", 5},
                                                                                 {"020301000100", 5},
                                                                                 {"0203000011", kBad},
                                                                                 {"020103", kBad},
                                                                                 {"0204010001", kBad},
                                                                                 {"02030100", kBad}}) {
    const Bytes der = FromHex(hex);
    KDPKI_HugeInt e;
    EXPECT_EQ(KDPKI_ImportEInt(e, der.data(), static_cast<uint32_t>(der.size())), offset) << hex;
    EXPECT_EQ(e.ConvertToLong(), offset == kBad ? 0 : 65537) << hex;
  }
  KDPKI_HugeInt unused;
  EXPECT_EQ(KDPKI_ImportNInt(unused, nullptr, 10), kBad);
  EXPECT_EQ(KDPKI_ImportEInt(unused, nullptr, 10), kBad);
}

// The key check's error codes on crafted blobs.
TEST(Rsa, VerifyRsaKeyCodes) {
  // A 64-bit modulus of two 32-bit primes: p = 0xfffffffb, q = 0xffffffbf, u = q^-1 mod p.
  const Bytes p = FromHex("fffffffb"), q = FromHex("ffffffbf");
  const KDPKI_HugeInt u = pktest::Huge(q).InverseMod(pktest::Huge(p));
  const Bytes ub = pktest::Magnitude(u);
  ASSERT_EQ(ub.size(), 4u);
  const Bytes n = pktest::Magnitude(pktest::Huge(p) * pktest::Huge(q));
  const Bytes four = {1, 2, 3, 5};
  struct Case {
    Bytes key;
    int bits;
    bool is_public;
    int error;
  };
  const std::vector<Case> cases = {
      {pktest::Blob({n, {0x11}}), 64, true, 0},
      {pktest::Blob({n, {0x01, 0x00, 0x01}}), 64, true, 0},
      {pktest::Blob({n, {0x11}}), 72, true, 1},                      // shorter than L + 9
      {pktest::Blob({n, {0x11}}), 56, true, 2},                      // n's length is not L
      {pktest::Blob({FromHex("fffffffbffffffbe"), {0x11}}), 64, true, 3},  // even n
      {pktest::Blob({n, {0x10}}), 64, true, 3},                      // even e
      {pktest::Blob({n, {}}), 64, true, 1},                          // no byte of e: too short
      {Cat({FromHex("00000008"), n, FromHex("0000000911")}), 64, true, 1},  // e runs past the key
      {pktest::Blob({p, q, four, four, ub}), 64, false, 0},
      {pktest::Blob({p, q, four, four, {0x01}}), 64, false, 1},      // u shorter: length
      {pktest::Blob({FromHex("fffffffa"), q, four, four, ub}), 64, false, 3},
      {pktest::Blob({p, FromHex("ffffffbe"), four, four, ub}), 64, false, 3},
      {pktest::Blob({p, q, four, four, FromHex("01020304")}), 64, false, 4},
      {pktest::Blob({p, q, four, four, ub}), -16, false, 1},
      {{}, 0, true, 1},
      {{}, 0, false, 1},
  };
  for (size_t i = 0; i < cases.size(); ++i) {
    int error = -1;
    EXPECT_EQ(KDPKI_VerifyRsaKey(View(cases[i].key), cases[i].bits, cases[i].is_public, error), cases[i].error == 0)
        << "case " << i;
    EXPECT_EQ(error, cases[i].error) << "case " << i;
  }
  // A private blob whose fields say H but whose total is right for another size.
  Bytes odd = pktest::Blob({p, q, four, four, ub});
  odd[3] = 5;
  int error = 0;
  EXPECT_FALSE(KDPKI_VerifyRsaKey(View(odd), 64, false, error));
  EXPECT_EQ(error, 2);
  EXPECT_FALSE(KDPKI_VerifyDasKey(View(odd), 64, false));
  EXPECT_FALSE(KDPKI_VerifyDasKey(CKD_ByteStringC(), 1024, true));
  CKD_ByteString out("untouched");
  EXPECT_FALSE(KDPKI_SHA256RsaSign(View(four), View(odd), out));
  EXPECT_EQ(out, "untouched");
}

TEST(Rsa, BlockParsers) {
  enum Which { kParse, kZero, kOne, kTwo };
  struct Case {
    Which which;
    std::string block;
    bool ok;
    std::string data;  // hex; "-" for no output written
  };
  const std::vector<Case> cases = {
      // Type 2: non-zero run of 8 or more, then two zeros; one byte more than remains (written 0).
      {kParse, "02" "0102030405060708" "0000" "aabb", true, "aabb00"},
      {kParse, "02" "0102030405060708" "0000", true, "00"},
      {kParse, "02" "01020304050607" "0000" "aabb", false, "-"},   // run of 7
      {kParse, "02" "0102030405060708" "00" "aabb", false, "-"},    // one zero only
      {kParse, "02" "0102030405060708" "00", false, "-"},           // second zero past the block
      {kParse, "02" "0102030405060708", false, "-"},                // no separator
      // Type 1: 0xFF run, one zero, the rest is the data.
      {kParse, "01" "ffffffffffffffff" "00" "aabb", true, "aabb"},
      {kParse, "01" "ffffffffffffffffff" "00", true, ""},
      {kParse, "01" "ffffffffffffff" "00" "aabb", false, "-"},
      {kParse, "01" "ffffffffffffffff" "01" "aabb", false, "-"},    // run ended by another byte
      {kParse, "01" "ffffffffffffffffff", false, "-"},
      // Type 0: zero run, the first non-zero byte skipped, one byte more than remains.
      {kParse, "00" "0000000000000000" "07" "aabb", true, "aabb00"},
      {kParse, "00" "0000000000000000" "07", true, "00"},
      {kParse, "00" "0000000000000000", true, ""},
      {kParse, "00" "00000000000000" "07aa", false, "-"},
      {kParse, "03" "0000000000000000" "07aa", false, "-"},
      {kParse, "02", false, "-"},
      {kParse, "", true, "-"},
      // Without the type byte.
      {kTwo, "0102030405060708" "0000" "cc", true, "cc00"},
      {kOne, "ffffffffffffffff" "00" "cc", true, "cc"},
      {kZero, "0000000000000000" "09" "cc", true, "cc00"},
      {kZero, "0000000000000000", true, ""},
      {kZero, "00000000000000", false, "-"},
      {kTwo, "01020304050607080000", true, "00"},
  };
  for (const Case& c : cases) {
    // The block in a buffer of exactly its size: the parsers may not read beyond it.
    const Bytes b = FromHex(c.block);
    std::unique_ptr<uint8_t[]> exact(new uint8_t[b.size() ? b.size() : 1]);
    std::copy(b.begin(), b.end(), exact.get());
    uint8_t* out = nullptr;
    int length = -1;
    bool (*parse)(const uint8_t*, int, uint8_t**, int*) =
        c.which == kParse  ? KDPKI_RSAScheme::Parse
        : c.which == kZero ? KDPKI_RSAScheme::ParseBlockTypeIsZero
        : c.which == kOne  ? KDPKI_RSAScheme::ParseBlockTypeIsOne
                           : KDPKI_RSAScheme::ParseBlockTypeIsTwo;
    EXPECT_EQ(parse(b.empty() ? nullptr : exact.get(), static_cast<int>(b.size()), &out, &length), c.ok) << c.block;
    if (c.data == "-") {
      EXPECT_EQ(length, -1) << c.block;
    } else {
      ASSERT_EQ(length, static_cast<int>(c.data.size() / 2)) << c.block;
      EXPECT_EQ(ToHex(out, static_cast<size_t>(length)), c.data) << c.block;
    }
    KDMEM_DefaultFree(out, 0);
  }
  uint8_t* out = nullptr;
  const uint8_t block[] = {2, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 5};
  EXPECT_FALSE(KDPKI_RSAScheme::Parse(block, sizeof block, nullptr, nullptr));
  EXPECT_FALSE(KDPKI_RSAScheme::Parse(block, -1, &out, nullptr));
}

}  // namespace
