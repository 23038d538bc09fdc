#include "tools/norvane/pubkey_formats.h"

#include <initializer_list>

#include "norvane/crypto/mpint.h"
#include "norvane/streams/base64.h"

namespace nvtool {

bool ParseBlob(const Bytes& blob, KeyBlob* key) {
  key->values.clear();
  size_t pos = 0;
  while (pos < blob.size()) {
    if (blob.size() - pos < 4) return false;
    const size_t n = size_t{blob[pos]} << 24 | size_t{blob[pos + 1]} << 16 | size_t{blob[pos + 2]} << 8 | blob[pos + 3];
    if (blob.size() - pos - 4 < n) return false;
    key->values.emplace_back();
    KDPKI_ImportMPInt(key->values.back(), blob.data() + pos + 4, static_cast<uint32_t>(n));
    pos += 4 + n;
  }
  return true;
}

const char* Describe(KeyKind kind) {
  switch (kind) {
    case KeyKind::kRsaPublic: return "an RSA public key";
    case KeyKind::kRsaPrivate: return "an RSA private key";
    case KeyKind::kDsaPublic: return "a DSA public key";
    default: return "a DSA private key";
  }
}

bool IsKey(const KeyBlob& key, KeyKind kind) {
  const std::vector<KDPKI_HugeInt>& v = key.values;
  const KDPKI_HugeInt& one = KDPKI_HugeInt::One();
  switch (kind) {
    case KeyKind::kRsaPublic:
      return v.size() == 2 && !v[0].IsZero() && !v[1].IsZero();
    case KeyKind::kRsaPrivate:
      // p, q, then dp < p, dq < q and u < p.
      return v.size() == 5 && v[0] > one && v[1] > one && v[2] < v[0] && v[3] < v[1] && v[4] < v[0];
    default:
      // q divides p - 1, and g, y (and x) lie below p (x below q).
      if (v.size() != (kind == KeyKind::kDsaPublic ? 4u : 5u) || v[1] <= one || v[0] <= v[1] ||
          !((v[0] - 1u) % v[1]).IsZero() || v[2] >= v[0] || v[3] >= v[0]) {
        return false;
      }
      return kind == KeyKind::kDsaPublic || v[4] < v[1];
  }
}

bool CompleteRsaKey(const KeyBlob& key, RsaFull* full) {
  if (!IsKey(key, KeyKind::kRsaPrivate)) return false;
  const std::vector<KDPKI_HugeInt>& v = key.values;
  full->p = v[0];
  full->q = v[1];
  full->dp = v[2];
  full->dq = v[3];
  full->u = v[4];
  full->n = full->p * full->q;
  const KDPKI_HugeInt p1 = full->p - 1u, q1 = full->q - 1u;
  if (p1.IsZero() || q1.IsZero()) return false;
  const KDPKI_HugeInt g = KDPKI_HugeInt::GCD(p1, q1);
  const KDPKI_HugeInt lambda = p1 / g * q1;
  // d = dp + (p - 1) t with (p - 1) t = dq - dp (mod q - 1): t = ((dq - dp) / g) ((p - 1) / g)^-1
  // mod (q - 1) / g; the difference must be a multiple of g.
  const KDPKI_HugeInt diff = full->dq - full->dp;
  const KDPKI_HugeInt m = q1 / g;
  if (!(diff % g).IsZero()) return false;
  KDPKI_HugeInt t = (diff / g) % m;
  if (m != KDPKI_HugeInt::One()) {
    const KDPKI_HugeInt inverse = (p1 / g).InverseMod(m);
    if (inverse.IsZero()) return false;
    t = t * inverse % m;
  } else {
    t = 0u;
  }
  full->d = (full->dp + p1 * t) % lambda;
  full->e = full->d.InverseMod(lambda);
  return !full->e.IsZero();
}

namespace {

void PutLength(Bytes& out, size_t n) {
  if (n < 0x80) {
    out.push_back(static_cast<uint8_t>(n));
    return;
  }
  int bytes = 0;
  for (size_t m = n; m; m >>= 8) ++bytes;
  out.push_back(static_cast<uint8_t>(0x80 | bytes));
  for (int i = bytes - 1; i >= 0; --i) out.push_back(static_cast<uint8_t>(n >> (8 * i)));
}

Bytes Tlv(uint8_t tag, const Bytes& content) {
  Bytes out = {tag};
  PutLength(out, content.size());
  out.insert(out.end(), content.begin(), content.end());
  return out;
}

Bytes Cat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

// A non-negative INTEGER from big-endian bytes: minimal, with a 0x00 when the top bit is set.
Bytes Integer(const uint8_t* v, size_t n) {
  while (n > 0 && *v == 0) {
    ++v;
    --n;
  }
  Bytes content;
  if (n == 0 || (*v & 0x80)) content.push_back(0);
  content.insert(content.end(), v, v + n);
  return Tlv(0x02, content);
}

Bytes Integer(const KDPKI_HugeInt& x) {
  Bytes b(x.GetByteCount());
  x.Encode(b.data(), static_cast<int>(b.size()));
  return Integer(b.data(), b.size());
}

const Bytes kRsaAlgorithm = {0x30, 0x0d, 0x06, 0x09, 0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, 0x01, 0x01, 0x01, 0x05, 0x00};
const Bytes kDsaOid = {0x06, 0x07, 0x2a, 0x86, 0x48, 0xce, 0x38, 0x04, 0x01};
const Bytes kVersion0 = {0x02, 0x01, 0x00};

Bytes BitString(const Bytes& content) { return Tlv(0x03, Cat({{0x00}, content})); }

Bytes DsaAlgorithm(const KDPKI_HugeInt& p, const KDPKI_HugeInt& q, const KDPKI_HugeInt& g) {
  return Tlv(0x30, Cat({kDsaOid, Tlv(0x30, Cat({Integer(p), Integer(q), Integer(g)}))}));
}

}  // namespace

Bytes RsaPublicDer(const KDPKI_HugeInt& n, const KDPKI_HugeInt& e) {
  return Tlv(0x30, Cat({kRsaAlgorithm, BitString(Tlv(0x30, Cat({Integer(n), Integer(e)})))}));
}

Bytes RsaPrivateDer(const RsaFull& k) {
  const Bytes rsa = Tlv(0x30, Cat({kVersion0, Integer(k.n), Integer(k.e), Integer(k.d), Integer(k.p), Integer(k.q),
                                   Integer(k.dp), Integer(k.dq), Integer(k.u)}));
  return Tlv(0x30, Cat({kVersion0, kRsaAlgorithm, Tlv(0x04, rsa)}));
}

Bytes DsaPublicDer(const KDPKI_HugeInt& p, const KDPKI_HugeInt& q, const KDPKI_HugeInt& g, const KDPKI_HugeInt& y) {
  return Tlv(0x30, Cat({DsaAlgorithm(p, q, g), BitString(Integer(y))}));
}

Bytes DsaPrivateDer(const KDPKI_HugeInt& p, const KDPKI_HugeInt& q, const KDPKI_HugeInt& g, const KDPKI_HugeInt& x) {
  return Tlv(0x30, Cat({kVersion0, DsaAlgorithm(p, q, g), Tlv(0x04, Integer(x))}));
}

std::string Pem(const char* label, const Bytes& der) {
  const CKD_Base64Encoder encoder('=');
  std::string text(static_cast<size_t>(encoder.Encode(der.data(), static_cast<int>(der.size()), nullptr)), '\0');
  encoder.Encode(der.data(), static_cast<int>(der.size()), &text[0]);
  std::string out = std::string("-----BEGIN ") + label + "-----\n";
  for (size_t i = 0; i < text.size(); i += 64) out += text.substr(i, 64) + "\n";
  return out + "-----END " + label + "-----\n";
}

Bytes DsaSigToDer(const Bytes& rs) {
  const size_t half = rs.size() / 2;
  return Tlv(0x30, Cat({Integer(rs.data(), half), Integer(rs.data() + half, half)}));
}

bool DsaSigFromDer(const Bytes& der, size_t size, Bytes* rs) {
  // Short lengths suffice for values of up to 64 bytes; anything else is not a signature here.
  if (der.size() < 2 || der[0] != 0x30 || der[1] >= 0x80 || der[1] != der.size() - 2) return false;
  rs->assign(2 * size, 0);
  size_t pos = 2;
  for (size_t i = 0; i < 2; ++i) {
    if (der.size() - pos < 2 || der[pos] != 0x02 || der[pos + 1] >= 0x80) return false;
    size_t n = der[pos + 1];
    pos += 2;
    if (n == 0 || der.size() - pos < n) return false;
    const uint8_t* v = der.data() + pos;
    pos += n;
    if ((v[0] & 0x80) || (n > 1 && v[0] == 0 && !(v[1] & 0x80))) return false;  // negative, or not minimal
    if (v[0] == 0) {
      ++v;
      --n;
    }
    if (n > size) return false;
    std::copy(v, v + n, rs->begin() + static_cast<long>(i * size + size - n));
  }
  return pos == der.size();
}

}  // namespace nvtool
