// DSA: signatures checked both ways against OpenSSL, seeded signatures, hostile blobs and
// signatures (the range checks of r and s: the Wycheproof test).
#include "norvane/crypto/dsa.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "norvane/crypto/pubkey_test_util.h"

namespace {

using pktest::Bytes;
using pktest::View;

EVP_PKEY* OpensslKey() {
  static pktest::Pkey key = pktest::OpensslDsaKey();
  return key.get();
}

// Signatures cross between OpenSSL and the library both ways; changed data does not verify; a
// signature shorter than 40 bytes, or a truncated key, is refused unread.
TEST(Dsa, VerifiesOpensslSignatures) {
  EVP_PKEY* key = OpensslKey();
  ASSERT_NE(key, nullptr);
  const Bytes pub = pktest::DsaBlob(key, false), priv = pktest::DsaBlob(key, true);
  std::mt19937 rng(7);
  for (size_t length : {0u, 1u, 55u, 64u, 1000u}) {
    Bytes data(length);
    for (uint8_t& b : data) b = static_cast<uint8_t>(rng());
    Bytes rs;
    ASSERT_TRUE(pktest::DecodeDsaSig(pktest::OpensslSign(key, "SHA1", data), 20, &rs));
    EXPECT_TRUE(KDPKI_VerifyDsaSign(View(data), View(rs), View(pub))) << length;
    // Ours, re-encoded as DER, pass OpenSSL's verification; two of them differ (k comes from an
    // unseeded generator) and both verify here too.
    CKD_ByteString a, b;
    ASSERT_TRUE(KDPKI_DsaSign(View(data), View(priv), a));
    ASSERT_TRUE(KDPKI_DsaSign(View(data), View(priv), b));
    ASSERT_EQ(a.GetLength(), 40);
    EXPECT_NE(a, b);
    for (const CKD_ByteString* sig : {&a, &b}) {
      EXPECT_TRUE(pktest::OpensslVerify(key, "SHA1", data, pktest::EncodeDsaSig(pktest::ToBytes(*sig)))) << length;
      EXPECT_TRUE(KDPKI_VerifyDsaSign(View(data), *sig, View(pub))) << length;
    }
    Bytes longer = rs;
    longer.push_back(0xee);  // bytes after r || s are not looked at
    EXPECT_TRUE(KDPKI_VerifyDsaSign(View(data), View(longer), View(pub))) << length;
    Bytes other = data;
    other.push_back(1);
    EXPECT_FALSE(KDPKI_VerifyDsaSign(View(other), View(rs), View(pub))) << length;
  }
  const Bytes data = {1, 2, 3};
  Bytes rs;
  ASSERT_TRUE(pktest::DecodeDsaSig(pktest::OpensslSign(key, "SHA1", data), 20, &rs));
  const Bytes cut(rs.begin(), rs.end() - 1);
  EXPECT_FALSE(KDPKI_VerifyDsaSign(View(data), View(cut), View(pub)));
  EXPECT_FALSE(KDPKI_VerifyDsaSign(View(data), CKD_ByteStringC(), View(pub)));
  for (size_t n = 0; n < pub.size(); ++n) {
    const Bytes shorter(pub.begin(), pub.begin() + static_cast<long>(n));
    EXPECT_FALSE(KDPKI_VerifyDsaSign(View(data), View(rs), View(shorter))) << n;
  }
  // A key of zeros has q = 0: nothing is in range.
  EXPECT_FALSE(KDPKI_VerifyDsaSign(View(data), View(rs), View(pktest::Blob({{}, {}, {}, {}}))));
}

// With a seeded generator a signature repeats, and its k (recovered as s^-1 (H + x r) mod q) lies
// in [1, 1 + 2^152): the draw over [1, q - 1] is narrowed because q - 2 has 160 bits.
TEST(Dsa, SeededSignaturesAndTheNarrowedK) {
  EVP_PKEY* key = OpensslKey();
  const std::vector<Bytes> v = pktest::Unblob(pktest::DsaBlob(key, true));
  const KDPKI_HugeInt q = pktest::Huge(v[1]), x = pktest::Huge(v[4]);
  KDPKI_DSA dsa(pktest::Huge(v[0]), q, pktest::Huge(v[2]), pktest::Huge(v[3]), x);
  KDPKI_HugeInt limit;
  limit.Power2(152);
  limit = limit + 1u;
  for (uint8_t seed = 0; seed < 40; ++seed) {
    const uint8_t digest[20] = {seed, 1, 2, 3};
    uint8_t sig[40], again[40];
    KDPKI_RandomGenerator g1(&seed, 1), g2(&seed, 1);
    ASSERT_EQ(dsa.SignatureDigest(g1, digest, 20, sig), 40);
    ASSERT_EQ(dsa.SignatureDigest(g2, digest, 20, again), 40);
    EXPECT_EQ(pktest::ToHex(sig, 40), pktest::ToHex(again, 40));
    EXPECT_TRUE(dsa.VerificationDigest(digest, 20, sig));
    const KDPKI_HugeInt r = pktest::Huge(Bytes(sig, sig + 20)), s = pktest::Huge(Bytes(sig + 20, sig + 40));
    const KDPKI_HugeInt k = (s.InverseMod(q) * (pktest::Huge(Bytes(digest, digest + 20)) + x * r)) % q;
    EXPECT_TRUE(!k.IsZero() && k < limit) << int{seed};
  }
}

// Signing refuses blobs that run past their end and keys under which no signature exists,
// leaving the output as it was.
TEST(Dsa, SigningRefusals) {
  const Bytes priv = pktest::DsaBlob(OpensslKey(), true);
  const Bytes data = {1};
  for (size_t n = 0; n < priv.size(); n += 7) {
    const Bytes shorter(priv.begin(), priv.begin() + static_cast<long>(n));
    CKD_ByteString out("untouched");
    EXPECT_FALSE(KDPKI_DsaSign(View(data), View(shorter), out)) << n;
    EXPECT_EQ(out, "untouched");
  }
  // q of 0 or 1; p = 1, so that r is always 0; all zero.
  for (const Bytes& blob : {pktest::Blob({{23}, {}, {2}, {3}, {1}}), pktest::Blob({{23}, {1}, {2}, {3}, {1}}),
                            pktest::Blob({{1}, {11}, {2}, {3}, {1}}), pktest::Blob({{}, {}, {}, {}, {}})}) {
    CKD_ByteString out("untouched");
    EXPECT_FALSE(KDPKI_DsaSign(View(data), View(blob), out));
    EXPECT_EQ(out, "untouched");
  }
}

}  // namespace
