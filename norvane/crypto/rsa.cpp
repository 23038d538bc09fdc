// The RSA primitives and the byte-string entry points over key blobs.
#include "norvane/crypto/rsa.h"

#include <cstdint>

#include "norvane/crypto/montgomery.h"
#include "norvane/crypto/pki_failures_internal.h"
#include "norvane/crypto/pki_words.h"
#include "norvane/crypto/pubkey_internal.h"
#include "norvane/crypto/sha.h"

// The field order is part of the binary interface. The CKD_Object base takes the first 8 bytes:
// the first field is itself a CKD_Object and cannot share its address.
struct KDPKIRsaLayout {
  static_assert(offsetof(KDPKI_RSA, m_n) == 8 && offsetof(KDPKI_RSA, m_e) == 32 && offsetof(KDPKI_RSA, m_d) == 56 &&
                    offsetof(KDPKI_RSA, m_p) == 80 && offsetof(KDPKI_RSA, m_q) == 104 &&
                    offsetof(KDPKI_RSA, m_dp) == 128 && offsetof(KDPKI_RSA, m_dq) == 152 &&
                    offsetof(KDPKI_RSA, m_u) == 176 && sizeof(KDPKI_RSA) == 200,
                "RSA key layout");
};

KDPKI_HugeInt KDPKI_RSAScheme::RSASP1(const KDPKI_HugeInt& x, const KDPKI_HugeInt& dp, const KDPKI_HugeInt& dq,
                                      const KDPKI_HugeInt& p, const KDPKI_HugeInt& q, const KDPKI_HugeInt& u) {
  return KDPKI_ModularExponentiation_Fast(x, dp, dq, p, q, u);
}

KDPKI_HugeInt KDPKI_RSAScheme::RSAVP1(const KDPKI_HugeInt& x, const KDPKI_HugeInt& n, const KDPKI_HugeInt& e) {
  return KDPKI_ModularExponentiation(x, e, n);
}

namespace {

// A private key read from its blob.
struct PrivateKey {
  KDPKI_HugeInt p, q, dp, dq, u;
  bool Read(const CKD_ByteStringC& blob) { return kdpki::ReadMPInts(blob, {&p, &q, &dp, &dq, &u}); }
  // m^d mod n: mq + q (((mp - mq) u) mod p), which is the CRT of the primitive with the roles of
  // the primes exchanged (the blob's u is q^-1 mod p).
  KDPKI_HugeInt Apply(const KDPKI_HugeInt& m) const { return KDPKI_RSAScheme::RSASP1(m, dq, dp, q, p, u); }
};

// The data as a big-endian integer.
KDPKI_HugeInt Message(const CKD_ByteStringC& data) {
  KDPKI_HugeInt m;
  KDPKI_ImportMPInt(m, data.GetPtr(), static_cast<uint32_t>(data.GetLength()));
  return m;
}

KDPKI_HugeInt Sha1Of(const CKD_ByteStringC& data) {
  uint8_t digest[20];
  CRYPT_SHA1Generate(data.GetPtr(), static_cast<uint32_t>(data.GetLength()), digest);
  KDPKI_HugeInt h;
  KDPKI_ImportMPInt(h, digest, sizeof digest);
  return h;
}

// The private-key operation on the data, or on their SHA-1 digest, stored in out without leading
// zeros.
bool PrivateOperation(const CKD_ByteStringC& data, bool digest, const CKD_ByteStringC& private_key,
                      CKD_ByteString& out) {
  const kdpki::FailureWatch watch;
  PrivateKey key;
  if (!key.Read(private_key)) return false;
  const KDPKI_HugeInt r = key.Apply(digest ? Sha1Of(data) : Message(data));
  return !watch.Failed() && kdpki::StoreMagnitude(out, r);
}

}  // namespace

bool KDPKI_RsaEncrypt(const CKD_ByteStringC& data, const CKD_ByteStringC& public_key, CKD_ByteString& out) {
  const kdpki::FailureWatch watch;
  KDPKI_HugeInt n, e;
  if (!kdpki::ReadMPInts(public_key, {&n, &e})) return false;
  // The limit counts n's recorded length in whole words, leading zero bytes included.
  const int64_t recorded = KDPKI_BytesToLong(public_key.GetPtr());
  if (data.GetLength() > 4 * ((recorded + 3) / 4) - 11) return false;
  const KDPKI_HugeInt c = KDPKI_RSAScheme::RSAVP1(Message(data), n, e);
  return !watch.Failed() && kdpki::StoreMagnitude(out, c);
}

bool KDPKI_RsaDecrypt(const CKD_ByteStringC& data, const CKD_ByteStringC& private_key, CKD_ByteString& out) {
  return PrivateOperation(data, false, private_key, out);
}

bool KDPKI_RsaSign(const CKD_ByteStringC& data, const CKD_ByteStringC& private_key, CKD_ByteString& out) {
  return PrivateOperation(data, true, private_key, out);
}

bool KDPKI_VerifyRsaSign(const CKD_ByteStringC& data, const CKD_ByteStringC& signature,
                         const CKD_ByteStringC& public_key) {
  const kdpki::FailureWatch watch;
  KDPKI_HugeInt n, e;
  if (!kdpki::ReadMPInts(public_key, {&n, &e})) return false;
  const KDPKI_HugeInt v = KDPKI_RSAScheme::RSAVP1(Message(signature), n, e);
  return v == Sha1Of(data) && !watch.Failed();
}

bool KDPKI_SHA256RsaSign(const CKD_ByteStringC&, const CKD_ByteStringC&, CKD_ByteString&) { return false; }
