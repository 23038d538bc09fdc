#include "norvane/text/url_text.h"

#include <climits>
#include <cstdint>
#include <cstring>

#include "norvane/text/binary_buf.h"

namespace {

// 1 for the bytes the encoders escape: 0x00-0x20, '"', '#', '%', '<', '>', '[', '\', ']', '^',
// '`', '{', '|', '}', '~', and 0x7F and above.
struct EscapeTable {
  uint8_t escape[256];
  constexpr EscapeTable() : escape() {
    for (int c = 0; c < 256; ++c) escape[c] = c <= 0x20 || c >= 0x7F;
    const char* marks = "\"#%<>[\\]^`{|}~";
    for (int i = 0; marks[i]; ++i) escape[static_cast<unsigned char>(marks[i])] = 1;
  }
};
constexpr EscapeTable kEscape;

// "%XX" for each byte, in the first three bytes of a word stored whole.
struct EscapeCodes {
  uint32_t code[256];
  constexpr EscapeCodes() : code() {
    const char* hex = "0123456789ABCDEF";
    for (int b = 0; b < 256; ++b)
      code[b] = '%' | static_cast<uint32_t>(hex[b >> 4]) << 8 | static_cast<uint32_t>(hex[b & 15]) << 16;
  }
};
constexpr EscapeCodes kCodes;

// PutEscape writes "%XX" for byte, and one byte more that the next write covers: out must have
// room for four bytes.
char* PutEscape(char* out, uint8_t byte) {
  memcpy(out, &kCodes.code[byte], 4);
  return out + 3;
}

// Utf8Length returns the UTF-8 bytes of c, 0x80 <= c < 0x80000000: 2 to 6.
int Utf8Length(uint32_t c) { return c < 0x800 ? 2 : c < 0x10000 ? 3 : c < 0x200000 ? 4 : c < 0x4000000 ? 5 : 6; }

// The value of each hex digit (either case), -1 for the other bytes.
struct HexTable {
  int8_t value[256];
  constexpr HexTable() : value() {
    for (int c = 0; c < 256; ++c) value[c] = -1;
    for (int d = 0; d < 10; ++d) value['0' + d] = static_cast<int8_t>(d);
    for (int d = 0; d < 6; ++d) value['a' + d] = value['A' + d] = static_cast<int8_t>(10 + d);
  }
};
constexpr HexTable kHex;

// Unescape decodes the escapes of len bytes at in into out (room for len bytes) and returns the
// count written. An escape needs its two digits inside the text, so a '%' among the last two
// bytes is copied.
int Unescape(const uint8_t* in, int len, char* out) {
  char* p = out;
  for (int i = 0; i < len; ++i) {
    if (in[i] == '%' && i + 2 < len) {
      const int hi = kHex.value[in[i + 1]], lo = kHex.value[in[i + 2]];
      if (hi >= 0 && lo >= 0) {
        *p++ = static_cast<char>(hi << 4 | lo);
        i += 2;
        continue;
      }
    }
    *p++ = static_cast<char>(in[i]);
  }
  return static_cast<int>(p - out);
}

// UnescapeToBytes returns str with its escapes decoded (the null string when str is empty or
// the memory cannot be had).
CKD_ByteString UnescapeToBytes(const CKD_ByteString& str) {
  CKD_ByteString bytes;
  const int len = str.GetLength();
  if (len == 0) return bytes;
  if (char* p = bytes.GetBuffer(len)) bytes.ReleaseBuffer(Unescape(str.GetPtr(), len, p));
  return bytes;
}

}  // namespace

CKD_ByteString KD_UrlEncode(const CKD_WideString& url) {
  CKD_BinaryBuf out;
  const wchar_t* text = url.c_str();
  const int len = url.GetLength();
  if (!out.EstimateSize(len < INT_MAX / 3 ? len + len / 2 : len)) return CKD_ByteString();
  bool ok = true;
  for (int i = 0; i < len && ok; ++i) {
    const uint32_t c = static_cast<uint32_t>(text[i]);
    if (c != 0 && c < 0x80) {
      // ASCII is itself in every locale the C library offers, so it skips the conversion.
      if (kEscape.escape[c]) {
        char escaped[4];
        PutEscape(escaped, static_cast<uint8_t>(c));
        ok = out.AppendBlock(escaped, 3);
      } else {
        ok = out.AppendByte(static_cast<uint8_t>(c));
      }
      continue;
    }
    // Everything else (U+0000 included) takes the locale's bytes, all escaped.
    CKD_ByteString bytes = CKD_ByteString::FromUnicode(text + i, 1);
    for (int k = 0; k < bytes.GetLength() && ok; ++k) {
      char escaped[4];
      PutEscape(escaped, bytes.GetPtr()[k]);
      ok = out.AppendBlock(escaped, 3);
    }
  }
  if (!ok) return CKD_ByteString();
  return CKD_ByteString(out.GetBuffer(), out.GetSize());
}

CKD_WideString KD_UrlDecode(const CKD_ByteString& url) {
  CKD_WideString result;
  result.ConvertFrom(UnescapeToBytes(url));  // the default map: current locale
  return result;
}

CKD_ByteString KD_EncodeURI(const CKD_WideString& uri) {
  // Straight from the characters to the escaped text, with the UTF-8 of CKD_UTF8Encoder: 1 to 6
  // bytes a character, none for one with the top bit set.
  const wchar_t* text = uri.c_str();
  const int len = uri.GetLength();
  long long size = 0;
  for (int i = 0; i < len; ++i) {
    const uint32_t c = static_cast<uint32_t>(text[i]);
    size += c < 0x80 ? 1 + 2 * kEscape.escape[c] : c < 0x80000000u ? 3 * Utf8Length(c) : 0;
  }
  CKD_ByteString result;
  if (size == 0 || size > INT_MAX - 32) return result;
  char* p = result.GetBuffer(static_cast<int>(size) + 1);  // a spare byte for PutEscape's store
  if (!p) return result;
  for (int i = 0; i < len; ++i) {
    const uint32_t c = static_cast<uint32_t>(text[i]);
    if (c < 0x80) {
      if (kEscape.escape[c]) {
        p = PutEscape(p, static_cast<uint8_t>(c));
      } else {
        *p++ = static_cast<char>(c);
      }
    } else if (c < 0x80000000u) {
      static const uint8_t kLead[7] = {0, 0, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC};
      const int n = Utf8Length(c);
      p = PutEscape(p, static_cast<uint8_t>(kLead[n] | (c >> (6 * (n - 1)))));
      for (int k = n - 2; k >= 0; --k) p = PutEscape(p, static_cast<uint8_t>(0x80 | ((c >> (6 * k)) & 0x3F)));
    }
  }
  result.ReleaseBuffer(static_cast<int>(size));
  return result;
}

CKD_WideString KD_DecodeURI(const CKD_ByteString& uri) {
  const CKD_ByteString bytes = UnescapeToBytes(uri);
  return CKD_WideString::FromUTF8(bytes.c_str(), bytes.GetLength());
}
