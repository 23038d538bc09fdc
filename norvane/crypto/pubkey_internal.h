// Internal to the library: the bounded reading and the writing of key blobs and results shared by
// the RSA and DSA code.
#ifndef NORVANE_CRYPTO_PUBKEY_INTERNAL_H_
#define NORVANE_CRYPTO_PUBKEY_INTERNAL_H_

#include <cstddef>
#include <cstdint>
#include <initializer_list>

#include "norvane/crypto/huge_int.h"
#include "norvane/text/byte_string.h"

namespace kdpki {

// MPIntReader reads consecutive MPInts from a blob of known length and never past its end.
class MPIntReader {
 public:
  explicit MPIntReader(const CKD_ByteStringC& blob)
      : pos_(blob.GetPtr()), end_(blob.GetPtr() + blob.GetLength()) {}
  // Read loads the next MPInt into value and moves past it; false, with value and the reader
  // unchanged, when its length field or its bytes run past the end.
  bool Read(KDPKI_HugeInt& value);
  size_t Remaining() const { return static_cast<size_t>(end_ - pos_); }

 private:
  const uint8_t* pos_;
  const uint8_t* end_;
};

// ReadMPInts reads the values in order from the start of blob; false as soon as one runs past its
// end. Bytes after the last value are not looked at.
bool ReadMPInts(const CKD_ByteStringC& blob, std::initializer_list<KDPKI_HugeInt*> values);

// The Store functions replace out only when they succeed; on a failed allocation out is left as
// it was and they return false.
// StoreMPInts sets out to the MPInts of the values, one after another.
bool StoreMPInts(CKD_ByteString& out, std::initializer_list<const KDPKI_HugeInt*> values);
// StoreMagnitude sets out to the magnitude of value, big-endian, without leading zero bytes
// (empty for zero).
bool StoreMagnitude(CKD_ByteString& out, const KDPKI_HugeInt& value);
// StoreBytes sets out to exactly count bytes of value, big-endian (see KDPKI_HugeInt::Encode).
bool StoreBytes(CKD_ByteString& out, const KDPKI_HugeInt& value, int count);

}  // namespace kdpki

#endif  // NORVANE_CRYPTO_PUBKEY_INTERNAL_H_
