// The key and signature formats of the rsa and dsa commands: the library's key blobs read whole
// and checked, and the standard forms other tools read (DER and PEM: SubjectPublicKeyInfo for
// public keys, PKCS#8 PrivateKeyInfo for private ones; DER DSA signatures).
#ifndef NORVANE_TOOLS_NORVANE_PUBKEY_FORMATS_H_
#define NORVANE_TOOLS_NORVANE_PUBKEY_FORMATS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "norvane/crypto/huge_int.h"

namespace nvtool {

using Bytes = std::vector<uint8_t>;

// A key blob split into its MPInt values, all of it.
struct KeyBlob {
  std::vector<KDPKI_HugeInt> values;
};
// ParseBlob reads blob as MPInts to its very end; false when a length runs past the end.
bool ParseBlob(const Bytes& blob, KeyBlob* key);

// The kinds of key file and what each holds:
//   RSA public n e, RSA private p q dp dq u, DSA public p q g y, DSA private p q g y x.
enum class KeyKind { kRsaPublic, kRsaPrivate, kDsaPublic, kDsaPrivate };
// Describe names a kind for messages ("an RSA public key").
const char* Describe(KeyKind kind);
// IsKey answers whether a parsed blob has the shape of the kind: the count of values, and what
// every key of the kind satisfies (non-zero n and e; dp < p, dq < q, u < p; q dividing p - 1 and
// g, y below p, x below q), which also tells an RSA private key from a DSA one.
bool IsKey(const KeyBlob& key, KeyKind kind);

// The full RSA private key behind a private blob: n = p q, lambda = lcm(p - 1, q - 1), d the value
// below lambda that is dp mod (p - 1) and dq mod (q - 1), e = d^-1 mod lambda. False when the blob
// is not consistent (no such d, or no inverse).
struct RsaFull {
  KDPKI_HugeInt n, e, d, p, q, dp, dq, u;
};
bool CompleteRsaKey(const KeyBlob& key, RsaFull* full);

// DER forms of keys: SubjectPublicKeyInfo and PKCS#8 PrivateKeyInfo (version 0, no attributes).
Bytes RsaPublicDer(const KDPKI_HugeInt& n, const KDPKI_HugeInt& e);
Bytes RsaPrivateDer(const RsaFull& key);
Bytes DsaPublicDer(const KDPKI_HugeInt& p, const KDPKI_HugeInt& q, const KDPKI_HugeInt& g, const KDPKI_HugeInt& y);
Bytes DsaPrivateDer(const KDPKI_HugeInt& p, const KDPKI_HugeInt& q, const KDPKI_HugeInt& g, const KDPKI_HugeInt& x);
// Pem wraps DER in "-----BEGIN <label>-----" lines with Base64 lines of 64 characters.
std::string Pem(const char* label, const Bytes& der);

// DSA signatures: r || s (size bytes each) to DER SEQUENCE { INTEGER r, INTEGER s } and back.
// DsaSigFromDer accepts only strict DER whose values fit size bytes.
Bytes DsaSigToDer(const Bytes& rs);
bool DsaSigFromDer(const Bytes& der, size_t size, Bytes* rs);

}  // namespace nvtool

#endif  // NORVANE_TOOLS_NORVANE_PUBKEY_FORMATS_H_
