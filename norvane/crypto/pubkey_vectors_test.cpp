// The Wycheproof RSA PKCS#1 v1.5 SHA-256 and DSA verification vectors.
#include <gtest/gtest.h>
#include <openssl/bn.h>

#include <string>

#include "norvane/crypto/dsa.h"
#include "norvane/crypto/pubkey_test_util.h"
#include "norvane/crypto/rsa.h"
#include "norvane/crypto/sha.h"

namespace {

using pktest::Bytes;
using pktest::FromHex;
using pktest::View;

const std::string kData = NORVANE_CRYPTO_TESTDATA;

// Whether the last 32 bytes of the opened block sig^e mod n equal SHA-256(msg), computed with
// OpenSSL's big numbers: the case the 256-bit cut of KDPKI_VerifySHA256RsaSign accepts.
bool EndsInDigest(const Bytes& n, const Bytes& e, const Bytes& sig, const Bytes& msg) {
  BN_CTX* ctx = BN_CTX_new();
  pktest::Bn bn_n = pktest::ToBn(n), bn_e = pktest::ToBn(e), s = pktest::ToBn(sig), r(BN_new());
  BN_mod_exp(r.get(), s.get(), bn_e.get(), bn_n.get(), ctx);
  BN_mask_bits(r.get(), 256);
  Bytes digest(32);
  CRYPT_SHA256Generate(msg.data(), static_cast<uint32_t>(msg.size()), digest.data());
  const bool same = BN_cmp(r.get(), pktest::ToBn(digest).get()) == 0;
  BN_CTX_free(ctx);
  return same;
}

// Every valid case is accepted; an invalid one is accepted exactly when its opened block ends in
// the digest (what the deliberate cut lets through), so a regression either way fails. Keys whose
// exponent is not 65537 are refused by the DER reader, valid signatures included.
TEST(Wycheproof, RsaPkcs1Sha256) {
  int valid = 0, cut_accepts = 0, other_exponent = 0;
  const std::vector<pktest::Vector> cases = pktest::ReadVectors(kData + "/rsa_signature_2048_sha256_test.json");
  for (const pktest::Vector& v : cases) {
    const Bytes msg = FromHex(v.test.at("msg")), sig = FromHex(v.test.at("sig"));
    const std::string& e = v.group.at("publicExponent");
    const bool ends_in_digest = EndsInDigest(FromHex(v.group.at("modulus")), FromHex(e), sig, msg);
    const bool expected = e == "010001" && ends_in_digest;
    if (v.test.at("result") == "valid") {
      ++valid;
      EXPECT_TRUE(ends_in_digest) << v.test.at("tcId");
    } else {
      cut_accepts += expected;
    }
    other_exponent += e != "010001";
    EXPECT_EQ(KDPKI_VerifySHA256RsaSign(View(msg), View(sig), View(FromHex(v.group.at("publicKeyAsn")))), expected)
        << "tcId " << v.test.at("tcId") << " (" << v.test.at("result") << "): " << v.test.at("comment");
  }
  EXPECT_EQ(cases.size(), 259u);
  EXPECT_EQ(valid, 9);
  EXPECT_EQ(other_exponent, 2);
  EXPECT_GT(cut_accepts, 0);  // forged paddings and prefixes that end in the digest
}

// Every 1024-bit SHA-1 case, the DER signature decoded strictly to r || s first (one that does
// not decode to two 20-byte values counts as rejected). "acceptable" cases may go either way.
TEST(Wycheproof, Dsa1024Sha1) {
  int cases = 0, accepted = 0;
  for (const pktest::Vector& v : pktest::ReadVectors(kData + "/dsa_test.json")) {
    if (v.group.at("sha") != "SHA-1" || v.group.at("keySize") != "1024") continue;
    ++cases;
    const Bytes blob = pktest::Blob({FromHex(v.group.at("p")), FromHex(v.group.at("q")), FromHex(v.group.at("g")),
                                     FromHex(v.group.at("y"))});
    Bytes rs;
    const bool ok = pktest::DecodeDsaSig(FromHex(v.test.at("sig")), 20, &rs) &&
                    KDPKI_VerifyDsaSign(View(FromHex(v.test.at("msg"))), View(rs), View(blob));
    accepted += ok;
    if (v.test.at("result") != "acceptable") {
      EXPECT_EQ(ok, v.test.at("result") == "valid") << "tcId " << v.test.at("tcId") << ": " << v.test.at("comment");
    }
  }
  EXPECT_EQ(cases, 302);
  EXPECT_EQ(accepted, 11);
}

}  // namespace
