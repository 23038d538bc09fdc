// DSA signing and verification, and the byte-string entry points over key blobs.
#include "norvane/crypto/dsa.h"

#include <cstring>

#include "norvane/crypto/montgomery.h"
#include "norvane/crypto/montgomery_internal.h"
#include "norvane/crypto/pki_failures_internal.h"
#include "norvane/crypto/pubkey_internal.h"
#include "norvane/crypto/sha.h"

// The field order is part of the binary interface. The CKD_Object base takes the first 8 bytes:
// the first field is itself a CKD_Object and cannot share its address.
struct KDPKIDsaLayout {
  static_assert(offsetof(KDPKI_DSA, m_p) == 8 && offsetof(KDPKI_DSA, m_q) == 32 && offsetof(KDPKI_DSA, m_g) == 56 &&
                    offsetof(KDPKI_DSA, m_x) == 80 && offsetof(KDPKI_DSA, m_y) == 104 &&
                    offsetof(KDPKI_DSA, m_Seed) == 128 && offsetof(KDPKI_DSA, m_nSeedLength) == 148 &&
                    offsetof(KDPKI_DSA, m_nCounter) == 152 && sizeof(KDPKI_DSA) == 160,
                "DSA key layout");
};

KDPKI_DSA::KDPKI_DSA(const KDPKI_HugeInt& p, const KDPKI_HugeInt& q, const KDPKI_HugeInt& g, const KDPKI_HugeInt& y,
                     const KDPKI_HugeInt& x)
    : m_p(p), m_q(q), m_g(g), m_x(x), m_y(y), m_Seed(), m_nSeedLength(0), m_nCounter(0) {}

KDPKI_DSA::KDPKI_DSA(const KDPKI_HugeInt& p, const KDPKI_HugeInt& q, const KDPKI_HugeInt& g, const KDPKI_HugeInt& y)
    : m_p(p), m_q(q), m_g(g), m_y(y), m_Seed(), m_nSeedLength(0), m_nCounter(0) {}

int KDPKI_DSA::SignatureDigest(KDPKI_RandomGenerator& generator, const uint8_t* digest, int digest_length,
                               uint8_t* signature_out) {
  // Below 2 the draw of k has no range, and r would be 0 for ever.
  if (!digest || !signature_out || m_q < KDPKI_HugeInt::Two()) return 0;
  const kdpki::FailureWatch watch;
  const int size = static_cast<int>(m_q.GetByteCount());
  KDPKI_HugeInt h;
  KDPKI_ImportMPInt(h, digest, digest_length < 0 ? 0u : static_cast<uint32_t>(digest_length));
  const KDPKI_HugeInt q1 = m_q - 1u;
  // For a real key r or s is 0 with a chance of about 1 in q; a run of such draws means a key
  // (p, q, g) under which the search would never end.
  for (int attempt = 0; attempt < 256 && !watch.Failed(); ++attempt) {
    KDPKI_HugeInt k;
    if (!k.Random(generator, KDPKI_HugeInt::One(), q1)) return 0;
    const KDPKI_HugeInt r = KDPKI_ModularExponentiation(m_g, k, m_p) % m_q;
    const KDPKI_HugeInt s = (k.InverseMod(m_q) * (h + m_x * r)) % m_q;
    if (r.IsZero() || s.IsZero() || watch.Failed()) continue;
    r.Encode(signature_out, size);
    s.Encode(signature_out + size, size);
    return 2 * size;
  }
  return 0;
}

bool KDPKI_DSA::VerificationDigest(const uint8_t* digest, int digest_length, const uint8_t* signature) {
  if (!digest || !signature) return false;
  const auto size = static_cast<uint32_t>(m_q.GetByteCount());
  KDPKI_HugeInt r, s, h;
  KDPKI_ImportMPInt(r, signature, size);
  KDPKI_ImportMPInt(s, signature + size, size);
  if (r.IsZero() || s.IsZero() || r >= m_q || s >= m_q) return false;
  KDPKI_ImportMPInt(h, digest, digest_length < 0 ? 0u : static_cast<uint32_t>(digest_length));
  const KDPKI_HugeInt w = s.InverseMod(m_q);
  const KDPKI_HugeInt u1 = (h * w) % m_q;
  const KDPKI_HugeInt u2 = (r * w) % m_q;
  // (g^u1 mod p)(y^u2 mod p) mod p in one pass over both exponents.
  const KDPKI_HugeInt v = kdpki::DoubleExponentiation(m_g, u1, m_y, u2, m_p) % m_q;
  return v == r;
}

bool KDPKI_DsaSign(const CKD_ByteStringC& data, const CKD_ByteStringC& private_key, CKD_ByteString& out) {
  const kdpki::FailureWatch watch;
  KDPKI_HugeInt p, q, g, y, x;
  if (!kdpki::ReadMPInts(private_key, {&p, &q, &g, &y, &x})) return false;
  KDPKI_DSA key(p, q, g, y, x);
  uint8_t digest[20];
  CRYPT_SHA1Generate(data.GetPtr(), static_cast<uint32_t>(data.GetLength()), digest);
  KDPKI_RandomGenerator generator;  // unseeded: k differs from call to call
  // A generator whose twister could not be allocated gives the same bytes every time: k would
  // repeat, and two signatures with one k give the private key away.
  if (!generator.m_hRandom || watch.Failed()) return false;
  CKD_ByteString t;
  const int size = 2 * static_cast<int>(q.GetByteCount());
  char* buffer = t.GetBuffer(size);
  if (!buffer) return false;
  if (key.SignatureDigest(generator, digest, sizeof digest, reinterpret_cast<uint8_t*>(buffer)) != size ||
      watch.Failed()) {
    return false;
  }
  t.ReleaseBuffer(size);
  out.swap(t);
  return true;
}

bool KDPKI_VerifyDsaSign(const CKD_ByteStringC& data, const CKD_ByteStringC& signature,
                         const CKD_ByteStringC& public_key) {
  const kdpki::FailureWatch watch;
  KDPKI_HugeInt p, q, g, y;
  if (!kdpki::ReadMPInts(public_key, {&p, &q, &g, &y})) return false;
  // The signature must hold r and s; a shorter one is refused rather than read past.
  if (static_cast<int64_t>(signature.GetLength()) < 2 * static_cast<int64_t>(q.GetByteCount())) return false;
  KDPKI_DSA key(p, q, g, y);
  uint8_t digest[20];
  CRYPT_SHA1Generate(data.GetPtr(), static_cast<uint32_t>(data.GetLength()), digest);
  return key.VerificationDigest(digest, sizeof digest, signature.GetPtr()) && !watch.Failed();
}

bool KDPKI_VerifyDasKey(const CKD_ByteStringC&, int, bool) { return false; }
