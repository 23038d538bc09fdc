// MPInt reading and writing, and the bounded blob reader and writer of the RSA and DSA code.
#include "norvane/crypto/mpint.h"

#include <climits>
#include <cstring>

#include "norvane/crypto/pki_words.h"
#include "norvane/crypto/pubkey_internal.h"

namespace {

// Loads n big-endian bytes as the non-negative value (zero for none). Lengths that no buffer of
// this library can have (2^31 bytes or more) load nothing and give zero.
void Load(KDPKI_HugeInt& value, const uint8_t* bytes, uint32_t n) {
  value.Decode(bytes, n > INT_MAX ? 0 : static_cast<int>(n));
}

}  // namespace

uint32_t KDPKI_ExportMPInt(const KDPKI_HugeInt& value, uint8_t* bytes) {
  const uint32_t length = value.GetByteCount();
  if (bytes) {
    KDPKI_LongToBytes(length, bytes);
    value.Encode(bytes + 4, static_cast<int>(length));
  }
  return length + 4;
}

uint32_t KDPKI_ImportMPInt(KDPKI_HugeInt& value, const uint8_t* bytes) {
  if (!bytes) return 0;
  const uint32_t length = KDPKI_BytesToLong(bytes);
  Load(value, bytes + 4, length);
  return length + 4;
}

uint32_t KDPKI_ImportMPInt(KDPKI_HugeInt& value, const uint8_t* bytes, uint32_t length) {
  if (!bytes) return 0;
  Load(value, bytes, length);
  return length;
}

namespace kdpki {

bool MPIntReader::Read(KDPKI_HugeInt& value) {
  if (end_ - pos_ < 4) return false;
  const uint32_t length = KDPKI_BytesToLong(pos_);
  if (static_cast<size_t>(end_ - pos_ - 4) < length) return false;
  Load(value, pos_ + 4, length);
  pos_ += 4 + static_cast<size_t>(length);
  return true;
}

bool ReadMPInts(const CKD_ByteStringC& blob, std::initializer_list<KDPKI_HugeInt*> values) {
  MPIntReader reader(blob);
  for (KDPKI_HugeInt* v : values) {
    if (!reader.Read(*v)) return false;
  }
  return true;
}

bool StoreMPInts(CKD_ByteString& out, std::initializer_list<const KDPKI_HugeInt*> values) {
  size_t total = 0;
  for (const KDPKI_HugeInt* v : values) total += KDPKI_ExportMPInt(*v, nullptr);
  if (total > INT_MAX) return false;
  CKD_ByteString t;
  char* buffer = t.GetBuffer(static_cast<int>(total));
  if (!buffer) return false;
  auto* p = reinterpret_cast<uint8_t*>(buffer);
  for (const KDPKI_HugeInt* v : values) p += KDPKI_ExportMPInt(*v, p);
  t.ReleaseBuffer(static_cast<int>(total));
  out.swap(t);
  return true;
}

bool StoreMagnitude(CKD_ByteString& out, const KDPKI_HugeInt& value) {
  return StoreBytes(out, value, static_cast<int>(value.GetByteCount()));
}

bool StoreBytes(CKD_ByteString& out, const KDPKI_HugeInt& value, int count) {
  CKD_ByteString t;
  if (count > 0) {
    char* buffer = t.GetBuffer(count);
    if (!buffer) return false;
    value.Encode(reinterpret_cast<uint8_t*>(buffer), count);
    t.ReleaseBuffer(count);
  }
  out.swap(t);
  return true;
}

}  // namespace kdpki
