// The SHA-256 verifier with its DER readers, the structural key check, and the PKCS#1 v1.5
// block-type parsers.
#include <cstring>

#include "norvane/crypto/pki_failures_internal.h"
#include "norvane/crypto/pki_words.h"
#include "norvane/crypto/rsa.h"
#include "norvane/crypto/sha.h"
#include "norvane/memory/memory_mgr.h"

namespace {

constexpr uint32_t kDerMismatch = 0xFFFFFFFF;

// Reads a DER length at der[*pos]: one byte below 0x80, or 0x82 and two big-endian bytes.
bool DerLength(const uint8_t* der, uint32_t length, uint32_t* pos, uint32_t* value) {
  if (*pos >= length) return false;
  const uint8_t first = der[(*pos)++];
  if (first < 0x80) {
    *value = first;
    return true;
  }
  if (first != 0x82 || length - *pos < 2) return false;
  *value = static_cast<uint32_t>(der[*pos]) << 8 | der[*pos + 1];
  *pos += 2;
  return true;
}

}  // namespace

uint32_t KDPKI_ImportNInt(KDPKI_HugeInt& n, const uint8_t* der, uint32_t length) {
  if (!der || length < 1 || der[0] != 0x30) return kDerMismatch;
  uint32_t pos = 1, sequence = 0, content = 0;
  if (!DerLength(der, length, &pos, &sequence)) return kDerMismatch;
  const uint32_t element = pos;
  if (pos >= length || der[pos++] != 0x02 || !DerLength(der, length, &pos, &content)) return kDerMismatch;
  if (sequence != pos - element + content + 5 || length - pos < content) return kDerMismatch;
  KDPKI_ImportMPInt(n, der + pos, content);
  return pos + content;
}

uint32_t KDPKI_ImportEInt(KDPKI_HugeInt& e, const uint8_t* der, uint32_t length) {
  static const uint8_t kElement[5] = {0x02, 0x03, 0x01, 0x00, 0x01};
  if (!der || length < 5 || std::memcmp(der, kElement, 5) != 0) return kDerMismatch;
  e = 65537u;
  return 5;
}

bool KDPKI_VerifySHA256RsaSign(const CKD_ByteStringC& data, const CKD_ByteStringC& signature,
                               const CKD_ByteStringC& der_public_key) {
  const kdpki::FailureWatch watch;
  const uint8_t* der = der_public_key.GetPtr();
  const auto length = static_cast<uint32_t>(der_public_key.GetLength());
  KDPKI_HugeInt n, e;
  const uint32_t offset = KDPKI_ImportNInt(n, der, length);
  if (offset == kDerMismatch || KDPKI_ImportEInt(e, der + offset, length - offset) == kDerMismatch) return false;
  uint8_t digest[32];
  CRYPT_SHA256Generate(data.GetPtr(), static_cast<uint32_t>(data.GetLength()), digest);
  KDPKI_HugeInt h, s;
  KDPKI_ImportMPInt(h, digest, sizeof digest);
  KDPKI_ImportMPInt(s, signature.GetPtr(), static_cast<uint32_t>(signature.GetLength()));
  KDPKI_HugeInt r = KDPKI_RSAScheme::RSAVP1(s, n, e);
  // Only the low 8 words (256 bits) take part: the digest of a PKCS#1 v1.5 block.
  if (r.Magnitude().GetSize() > 8) r.Magnitude().SetUsed(8);
  r.Normalize();
  return r == h && !watch.Failed();
}

namespace {

// The structural checks of KDPKI_VerifyRsaKey; returns the error code.
int CheckPublicKey(const uint8_t* key, int64_t size, int64_t bits) {
  const int64_t n_length = bits / 8;
  if (size < n_length + 9) return 1;
  if (KDPKI_BytesToLong(key) != n_length) return 2;
  if (n_length == 0 || !(key[4 + n_length - 1] & 1)) return 3;
  const int64_t e_length = KDPKI_BytesToLong(key + 4 + n_length);
  // Where the exponent's length field runs past the blob, it is refused rather than read.
  if (e_length > size - n_length - 8) return 1;
  if (e_length == 0 || !(key[n_length + 8 + e_length - 1] & 1)) return 3;
  return 0;
}

int CheckPrivateKey(const uint8_t* key, int64_t size, int64_t bits) {
  const int64_t h = bits / 16;
  if (size != 5 * h + 20) return 1;
  for (int i = 0; i < 5; ++i) {
    if (KDPKI_BytesToLong(key + i * (h + 4)) != h) return 2;
  }
  if (h == 0 || !(key[h + 3] & 1) || !(key[2 * h + 7] & 1)) return 3;
  KDPKI_HugeInt p, q, u;
  KDPKI_ImportMPInt(p, key + 4, static_cast<uint32_t>(h));
  KDPKI_ImportMPInt(q, key + h + 8, static_cast<uint32_t>(h));
  KDPKI_ImportMPInt(u, key + 4 * h + 20, static_cast<uint32_t>(h));
  return (u * q) % p == KDPKI_HugeInt::One() ? 0 : 4;
}

}  // namespace

bool KDPKI_VerifyRsaKey(const CKD_ByteStringC& key, int bits, bool is_public, int& error) {
  if (bits < 0) {
    error = 1;
  } else if (is_public) {
    error = CheckPublicKey(key.GetPtr(), key.GetLength(), bits);
  } else {
    error = CheckPrivateKey(key.GetPtr(), key.GetLength(), bits);
  }
  return error == 0;
}

// ---- Block parsers ----

namespace {

// Applies the rule of block type `type` to the padding run that starts at run and goes on for
// length bytes to the end of the block; k is counted from run.
bool ParseRun(int type, const uint8_t* run, int length, uint8_t** out, int* out_length) {
  int k = 0, start = 0, count = 0;
  switch (type) {
    case 0:
      while (k < length && run[k] == 0) ++k;
      if (k < 8) return false;
      start = k + 1;
      count = length - k;
      break;
    case 1:
      while (k < length && run[k] == 0xFF) ++k;
      if (k < 8 || k == length || run[k] != 0) return false;
      start = k + 1;
      count = length - k - 1;
      break;
    case 2:
      while (k < length && run[k] != 0) ++k;
      if (k < 8 || k + 1 >= length || run[k + 1] != 0) return false;
      start = k + 2;
      count = length - k - 1;
      break;
    default:
      return false;
  }
  uint8_t* data = nullptr;
  if (count > 0) {
    data = static_cast<uint8_t*>(KDMEM_DefaultAlloc2(static_cast<size_t>(count), 1, 0));
    if (!data) return false;
    // For types 0 and 2 the count reaches one byte past the block: that byte is written as 0
    // instead of being read from beyond the caller's buffer.
    const int inside = length - start < count ? length - start : count;
    if (inside > 0) std::memcpy(data, run + start, static_cast<size_t>(inside));
    if (inside < count) std::memset(data + inside, 0, static_cast<size_t>(count - inside));
  }
  *out = data;
  *out_length = count;
  return true;
}

// The checks every parser starts with: a null or empty block is done (true, nothing written);
// otherwise the output pointers must be there and the length not negative.
enum Start { kDone, kRefused, kParse };
Start Arguments(const uint8_t* block, int length, uint8_t** out, int* out_length) {
  if (!block || length == 0) return kDone;
  return out && out_length && length > 0 ? kParse : kRefused;
}

}  // namespace

bool KDPKI_RSAScheme::Parse(const uint8_t* block, int length, uint8_t** out, int* out_length) {
  const Start start = Arguments(block, length, out, out_length);
  return start == kDone || (start == kParse && ParseRun(block[0], block + 1, length - 1, out, out_length));
}

bool KDPKI_RSAScheme::ParseBlockTypeIsZero(const uint8_t* block, int length, uint8_t** out, int* out_length) {
  const Start start = Arguments(block, length, out, out_length);
  return start == kDone || (start == kParse && ParseRun(0, block, length, out, out_length));
}

bool KDPKI_RSAScheme::ParseBlockTypeIsOne(const uint8_t* block, int length, uint8_t** out, int* out_length) {
  const Start start = Arguments(block, length, out, out_length);
  return start == kDone || (start == kParse && ParseRun(1, block, length, out, out_length));
}

bool KDPKI_RSAScheme::ParseBlockTypeIsTwo(const uint8_t* block, int length, uint8_t** out, int* out_length) {
  const Start start = Arguments(block, length, out, out_length);
  return start == kDone || (start == kParse && ParseRun(2, block, length, out, out_length));
}
