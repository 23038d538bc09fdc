// Helpers of the RSA and DSA tests (not installed): hex, views of byte vectors, a reader of the
// Wycheproof files, and conversions between the library's key blobs and OpenSSL's keys (the oracle).
#ifndef NORVANE_CRYPTO_PUBKEY_TEST_UTIL_H_
#define NORVANE_CRYPTO_PUBKEY_TEST_UTIL_H_

#include <openssl/bn.h>
#include <openssl/evp.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "norvane/crypto/cavp_test_util.h"
#include "norvane/crypto/huge_int.h"
#include "norvane/text/byte_string.h"

namespace pktest {

using Bytes = std::vector<uint8_t>;

using cavptest::FromHex;
using cavptest::ToHex;
inline std::string ToHex(const CKD_ByteString& s) { return ToHex(s.GetPtr(), static_cast<size_t>(s.GetLength())); }
inline CKD_ByteStringC View(const Bytes& b) { return CKD_ByteStringC(b.data(), static_cast<int>(b.size())); }
inline Bytes ToBytes(const CKD_ByteString& s) { return Bytes(s.GetPtr(), s.GetPtr() + s.GetLength()); }
// The magnitude of x, big-endian, without leading zeros.
Bytes Magnitude(const KDPKI_HugeInt& x);
KDPKI_HugeInt Huge(const Bytes& big_endian);

// An MPInt blob of the values (big-endian magnitudes, leading zeros dropped).
Bytes Blob(const std::vector<Bytes>& values);
// The values of a blob of MPInts; empty when it does not parse to its end.
std::vector<Bytes> Unblob(const Bytes& blob);

// One case of a Wycheproof file: its own fields (tcId, comment, msg, sig, result) and those its
// group gave before it (the key's, sha, ...), as text; numbers keep their digits.
struct Vector {
  std::map<std::string, std::string> group, test;
};
std::vector<Vector> ReadVectors(const std::string& path);

// OpenSSL values, freed by their holders.
struct BnFree {
  void operator()(BIGNUM* b) const { BN_free(b); }
};
struct PkeyFree {
  void operator()(EVP_PKEY* k) const { EVP_PKEY_free(k); }
};
using Bn = std::unique_ptr<BIGNUM, BnFree>;
using Pkey = std::unique_ptr<EVP_PKEY, PkeyFree>;

Bn ToBn(const Bytes& big_endian);
// The named big-number parameter of a key (OSSL_PKEY_PARAM_*), big-endian.
Bytes Param(EVP_PKEY* key, const char* name);

// An RSA key made by OpenSSL with the public exponent given.
Pkey OpensslRsaKey(int bits, unsigned e);
// An OpenSSL RSA key from its parts (dp = d mod (p - 1), dq = d mod (q - 1), qinv = q^-1 mod p).
Pkey RsaFromParts(const Bytes& n, const Bytes& e, const Bytes& d, const Bytes& p, const Bytes& q, const Bytes& dp,
                  const Bytes& dq, const Bytes& qinv);
// The library's blobs of an OpenSSL RSA key: MPInt(n) MPInt(e), and MPInt(p) MPInt(q) MPInt(dp)
// MPInt(dq) MPInt(u) with u = q^-1 mod p.
Bytes RsaPublicBlob(EVP_PKEY* key);
Bytes RsaPrivateBlob(EVP_PKEY* key);
// The PKCS#1 RSAPublicKey DER (SEQUENCE of n and e) of a key, as OpenSSL writes it.
Bytes RsaPublicDer(EVP_PKEY* key);
// OpenSSL's raw (unpadded) RSA on input, which is left-padded with zeros to the modulus size; the
// result has the modulus size. private_op selects the private-key operation.
Bytes RawRsa(EVP_PKEY* key, const Bytes& input, bool private_op);

// A DSA key made by OpenSSL: 1024-bit p, 160-bit q.
Pkey OpensslDsaKey();
// An OpenSSL DSA key from its parts; x may be empty for a public key.
Pkey DsaFromParts(const Bytes& p, const Bytes& q, const Bytes& g, const Bytes& y, const Bytes& x);
// The library's blobs of an OpenSSL DSA key: MPInt(p) MPInt(q) MPInt(g) MPInt(y) [MPInt(x)].
Bytes DsaBlob(EVP_PKEY* key, bool with_private);
// DER SEQUENCE { INTEGER r, INTEGER s } from and to r || s of size bytes each, through OpenSSL.
// DecodeDsaSig returns false when the bytes are not strictly that DER (as OpenSSL would write it
// again) or a value does not fit size bytes.
Bytes EncodeDsaSig(const Bytes& rs);
bool DecodeDsaSig(const Bytes& der, size_t size, Bytes* rs);

// SHA-1 or SHA-256 signature of data by OpenSSL (DSA: DER; RSA: PKCS#1 v1.5).
Bytes OpensslSign(EVP_PKEY* key, const char* digest, const Bytes& data);
bool OpensslVerify(EVP_PKEY* key, const char* digest, const Bytes& data, const Bytes& signature);

}  // namespace pktest

#endif  // NORVANE_CRYPTO_PUBKEY_TEST_UTIL_H_
