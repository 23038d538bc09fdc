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
using pktest::Json;
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
  const Json file = pktest::ReadJson(kData + "/rsa_signature_2048_sha256_test.json");
  ASSERT_EQ(file.kind, Json::kObject);
  int cases = 0, valid = 0, cut_accepts = 0, other_exponent = 0;
  for (const Json& group : file["testGroups"].items) {
    const Bytes der = FromHex(group["publicKeyAsn"].text);
    const Bytes n = FromHex(group["publicKey"]["modulus"].text), e = FromHex(group["publicKey"]["publicExponent"].text);
    const bool f4 = group["publicKey"]["publicExponent"].text == "010001";
    for (const Json& test : group["tests"].items) {
      ++cases;
      const Bytes msg = FromHex(test["msg"].text), sig = FromHex(test["sig"].text);
      const std::string& result = test["result"].text;
      const bool ends_in_digest = EndsInDigest(n, e, sig, msg);
      if (result == "valid") {
        ++valid;
        ASSERT_TRUE(ends_in_digest) << "tcId " << test["tcId"].text;
      }
      const bool expected = f4 && ends_in_digest;
      other_exponent += !f4;
      cut_accepts += expected && result != "valid";
      EXPECT_EQ(KDPKI_VerifySHA256RsaSign(View(msg), View(sig), View(der)), expected)
          << "tcId " << test["tcId"].text << " (" << result << "): " << test["comment"].text;
    }
  }
  EXPECT_EQ(cases, 259);
  EXPECT_EQ(valid, 9);
  EXPECT_EQ(other_exponent, 2);
  // Invalid or acceptable cases whose block ends in the digest: forged paddings and prefixes.
  EXPECT_GT(cut_accepts, 0);
}

// Every 1024-bit SHA-1 case, the DER signature decoded strictly to r || s first (one that does
// not decode to two 20-byte values counts as rejected). "acceptable" cases may go either way.
TEST(Wycheproof, Dsa1024Sha1) {
  const Json file = pktest::ReadJson(kData + "/dsa_test.json");
  ASSERT_EQ(file.kind, Json::kObject);
  int cases = 0, accepted = 0;
  for (const Json& group : file["testGroups"].items) {
    const Json& key = group["key"];
    if (group["sha"].text != "SHA-1" || key["keySize"].text != "1024") continue;
    const Bytes blob = pktest::Blob(
        {FromHex(key["p"].text), FromHex(key["q"].text), FromHex(key["g"].text), FromHex(key["y"].text)});
    for (const Json& test : group["tests"].items) {
      ++cases;
      const Bytes msg = FromHex(test["msg"].text);
      Bytes rs;
      const bool ok = pktest::DecodeDsaSig(FromHex(test["sig"].text), 20, &rs) &&
                      KDPKI_VerifyDsaSign(View(msg), View(rs), View(blob));
      accepted += ok;
      const std::string& result = test["result"].text;
      if (result != "acceptable") {
        EXPECT_EQ(ok, result == "valid") << "tcId " << test["tcId"].text << ": " << test["comment"].text;
      }
    }
  }
  EXPECT_EQ(cases, 302);
  EXPECT_EQ(accepted, 11);
}

}  // namespace
