// The encodings of `norvane iconv` and their conversion in pieces: bytes of the source encoding to
// characters, characters to bytes of the target, strictly (what is invalid or cannot be written
// is reported, never replaced), with a character cut off at the end of a piece left for the next.
#ifndef NORVANE_TOOLS_NORVANE_ICONV_CODEC_H_
#define NORVANE_TOOLS_NORVANE_ICONV_CODEC_H_

#include <cstddef>
#include <cstdint>
#include <string>

class IKD_CodePage;

namespace nvtool {

enum class Kind {
  kTable,    // one of the library's code pages
  kUtf8,     // checked strictly here, decoded by the library
  kUtf16LE,  // no byte-order mark read or written
  kUtf16BE,
  kUtf16,    // a byte-order mark read (little-endian without one) and written (little-endian)
  kAscii,    // 0x00-0x7F only
};

class Encoding {
 public:
  Encoding() = default;
  ~Encoding();
  Encoding(const Encoding&) = delete;
  Encoding& operator=(const Encoding&) = delete;

  // Resolve finds the encoding a name (any case) or a code-page number stands for; false for one
  // that is unknown or that the library has no tables for (*known then tells which).
  bool Resolve(const std::string& name, bool* known);
  Kind kind() const { return kind_; }
  uint16_t page() const { return page_; }

  // Result of Decode: consumed bytes and produced characters. It stops early at an invalid unit
  // (invalid set, bad its length in bytes) or at a character cut off by the end (neither set; the
  // rest is to be carried into the next piece).
  struct Decoded {
    size_t consumed = 0, produced = 0;
    bool invalid = false;
    size_t bad = 0;
  };
  // Decode converts up to n bytes; dst has room for n characters. big_endian picks the byte order
  // of kUtf16, which its caller settles from the byte-order mark.
  Decoded Decode(const uint8_t* src, size_t n, wchar_t* dst, bool big_endian) const;
  // SourceBytes returns the number of bytes of src[0..n) that the first count characters Decode
  // produced from it came from.
  size_t SourceBytes(const uint8_t* src, size_t n, size_t count, bool big_endian) const;

  // Encode converts up to n characters into dst (room for 4 per character), stopping before one
  // the target cannot hold; returns the characters consumed and sets *written.
  size_t Encode(const wchar_t* src, size_t n, uint8_t* dst, size_t* written) const;

 private:
  Kind kind_ = Kind::kTable;
  uint16_t page_ = 0;
  IKD_CodePage* code_page_ = nullptr;  // for lead bytes
};

// ValidUtf8Prefix returns the length of the longest prefix of s[0..n) that is well-formed UTF-8 (no
// overlong forms, surrogates, values above U+10FFFF, or bytes C0, C1, F5-FF). When it stops
// before n, *cut tells whether what follows is a sequence cut off by the end, and otherwise *bad
// is the length of the invalid part (its longest prefix that could start a sequence, at least 1).
size_t ValidUtf8Prefix(const uint8_t* s, size_t n, bool* cut, size_t* bad);

// PrintEncodings writes the list that `iconv -l` shows: each encoding and the names it takes.
void PrintEncodings();

}  // namespace nvtool

#endif  // NORVANE_TOOLS_NORVANE_ICONV_CODEC_H_
