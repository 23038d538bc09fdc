// Internal to the library: whole-buffer kernels with the coder objects' rules, for the string
// conversions that would otherwise feed the coders one unit at a time.
#ifndef NORVANE_TEXT_UTF8_INTERNAL_H_
#define NORVANE_TEXT_UTF8_INTERNAL_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kdtext {

// Eight bytes at a time for the ASCII runs of the conversion loops: Load64 reads them from any
// alignment, and they are all ASCII when no bit of kHighBits is set in them.
constexpr uint64_t kHighBits = 0x8080808080808080ull;

inline uint64_t Load64(const uint8_t* p) {
  uint64_t v;
  memcpy(&v, p, sizeof v);
  return v;
}

// DecodeLenient decodes len bytes by CKD_UTF8Decoder's rules, starting and ending with no
// sequence pending (one left unfinished at the end is dropped), into dst, which has room for cap
// characters, at least DecodedLengthBound(src, len). Returns the number of characters written.
int DecodeLenient(const uint8_t* src, int len, wchar_t* dst, int cap);
// DecodedLengthBound returns the number of bytes that are not continuation bytes: at least the
// number of characters DecodeLenient produces, and exactly that for well-formed UTF-8.
int DecodedLengthBound(const uint8_t* src, int len);

// EncodedLength returns the number of bytes CKD_UTF8Encoder produces for len characters (1 to 6
// each; characters with the top bit set produce none). EncodeFull writes them to dst, which must
// have room for that many, and returns the end.
size_t EncodedLength(const wchar_t* src, int len);
uint8_t* EncodeFull(const wchar_t* src, int len, uint8_t* dst);

}  // namespace kdtext

#endif  // NORVANE_TEXT_UTF8_INTERNAL_H_
