// DSA: signatures checked both ways against OpenSSL, the range checks of verification, hostile
// blobs and signatures, and running out of memory.
#include "norvane/crypto/dsa.h"

#include <gtest/gtest.h>
#include <openssl/core_names.h>

#include <random>
#include <string>

#include "norvane/crypto/pubkey_test_util.h"
#include "tests/support/test_mgr.h"

namespace {

using pktest::Bytes;
using pktest::View;

EVP_PKEY* OpensslKey() {
  static pktest::Pkey key = pktest::OpensslDsaKey();
  return key.get();
}

// OpenSSL's signatures of SHA-1 digests verify under the key's blob; changed data, a changed
// signature and r or s out of range do not.
TEST(Dsa, VerifiesOpensslSignatures) {
  EVP_PKEY* key = OpensslKey();
  ASSERT_NE(key, nullptr);
  const Bytes pub = pktest::DsaBlob(key, false);
  const Bytes q = pktest::Param(key, OSSL_PKEY_PARAM_FFC_Q);
  ASSERT_EQ(q.size(), 20u);
  std::mt19937 rng(7);
  for (size_t length : {0u, 1u, 55u, 64u, 1000u}) {
    Bytes data(length);
    for (uint8_t& b : data) b = static_cast<uint8_t>(rng());
    Bytes rs;
    ASSERT_TRUE(pktest::DecodeDsaSig(pktest::OpensslSign(key, "SHA1", data), 20, &rs));
    EXPECT_TRUE(KDPKI_VerifyDsaSign(View(data), View(rs), View(pub))) << length;
    Bytes longer = rs;
    longer.push_back(0xee);  // bytes after r || s are not looked at
    EXPECT_TRUE(KDPKI_VerifyDsaSign(View(data), View(longer), View(pub))) << length;
    Bytes other = data;
    other.push_back(1);
    EXPECT_FALSE(KDPKI_VerifyDsaSign(View(other), View(rs), View(pub))) << length;
    for (size_t i : {size_t{0}, size_t{19}, size_t{20}, size_t{39}}) {
      Bytes bad = rs;
      bad[i] ^= 0x10;
      EXPECT_FALSE(KDPKI_VerifyDsaSign(View(data), View(bad), View(pub))) << length << " byte " << i;
    }
  }
  // r and s must lie in [1, q - 1]; a signature shorter than 40 bytes is refused unread.
  const Bytes data = {1, 2, 3};
  Bytes rs;
  ASSERT_TRUE(pktest::DecodeDsaSig(pktest::OpensslSign(key, "SHA1", data), 20, &rs));
  const Bytes r(rs.begin(), rs.begin() + 20), s(rs.begin() + 20, rs.end());
  const Bytes zero(20, 0);
  for (const Bytes& bad : {zero, q}) {
    Bytes a = bad, b = r;
    a.insert(a.end(), s.begin(), s.end());
    b.insert(b.end(), bad.begin(), bad.end());
    EXPECT_FALSE(KDPKI_VerifyDsaSign(View(data), View(a), View(pub)));
    EXPECT_FALSE(KDPKI_VerifyDsaSign(View(data), View(b), View(pub)));
  }
  const Bytes cut(rs.begin(), rs.end() - 1);
  EXPECT_FALSE(KDPKI_VerifyDsaSign(View(data), View(cut), View(pub)));
  EXPECT_FALSE(KDPKI_VerifyDsaSign(View(data), CKD_ByteStringC(), View(pub)));
  // Each truncation of the blob is refused without being read past.
  for (size_t n = 0; n < pub.size(); ++n) {
    const Bytes shorter(pub.begin(), pub.begin() + static_cast<long>(n));
    EXPECT_FALSE(KDPKI_VerifyDsaSign(View(data), View(rs), View(shorter))) << n;
  }
  // A key of zeros has q = 0: nothing is in range.
  EXPECT_FALSE(KDPKI_VerifyDsaSign(View(data), View(rs), View(pktest::Blob({{}, {}, {}, {}}))));
}

}  // namespace
