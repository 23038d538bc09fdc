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

KDPKI_RSA::KDPKI_RSA(KDPKI_RandomGenerator& generator, int bits) { CreateKey(generator, bits, KDPKI_HugeInt(17u)); }

bool KDPKI_RSA::CreateKey(KDPKI_RandomGenerator& generator, int bits, const KDPKI_HugeInt& e) {
  if (bits < 15 || !e.IsPositive() || e.IsEven()) return false;
  const kdpki::FailureWatch watch;
  // 182/256 and 181/256 bracket 1/sqrt(2): two primes from the range make exactly bits bits.
  KDPKI_HugeInt low, high;
  if (bits % 2 == 0) {
    low.Power2(static_cast<unsigned>(bits / 2 - 8));
    low = low * 182u;
    high.Power2(static_cast<unsigned>(bits / 2));
    high = high - 1u;
  } else {
    low.Power2(static_cast<unsigned>((bits - 1) / 2));
    high.Power2(static_cast<unsigned>((bits + 1) / 2 - 8));
    high = high * 181u;
  }
  KDPKI_HugeInt p, q;
  if (!p.Random(generator, low, high, KDPKI_RANDOM_PRIME) || !q.Random(generator, low, high, KDPKI_RANDOM_PRIME)) {
    return false;
  }
  const KDPKI_HugeInt p1 = p - 1u, q1 = q - 1u;
  KDPKI_HugeInt u = q.InverseMod(p);
  const KDPKI_HugeInt lambda = KDPKI_HugeInt::LCM(p1, q1);
  KDPKI_HugeInt exponent = e;
  while (KDPKI_HugeInt::GCD(exponent, lambda) != KDPKI_HugeInt::One() && !watch.Failed()) exponent += 2u;
  KDPKI_HugeInt d = exponent.InverseMod(lambda);
  KDPKI_HugeInt dq = d % q1, dp = d % p1, n = p * q;
  if (watch.Failed()) return false;
  m_n.Swap(n);
  m_e.Swap(exponent);
  m_d.Swap(d);
  m_p.Swap(p);
  m_q.Swap(q);
  m_dp.Swap(dp);
  m_dq.Swap(dq);
  m_u.Swap(u);
  return true;
}

bool KDPKI_CreateRsaKey(int bits, const CKD_ByteStringC& seed, const CKD_ByteStringC&, CKD_ByteString& public_out,
                        CKD_ByteString& private_out) {
  KDPKI_RandomGenerator generator(seed.GetPtr(), static_cast<uint32_t>(seed.GetLength()));
  KDPKI_RSA key;
  // The blobs are built at their exact sizes. A scratch buffer of bits bytes, in which they were
  // once assembled, is too small for the smallest keys (a 16-bit key's private blob takes 25
  // bytes); the bytes written are the same.
  CKD_ByteString pub, priv;
  // Without its twister (memory ran out) the generator's bytes would not be the seed's.
  if (!generator.m_hRandom || !key.CreateKey(generator, bits, KDPKI_HugeInt(17u)) || !kdpki::StoreMPInts(pub, {&key.m_n, &key.m_e}) ||
      !kdpki::StoreMPInts(priv, {&key.m_p, &key.m_q, &key.m_dp, &key.m_dq, &key.m_u})) {
    return false;
  }
  public_out.swap(pub);
  private_out.swap(priv);
  return true;
}

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
