#include "tools/norvane/iconv_codec.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "norvane/text/charset.h"
#include "norvane/text/code_page.h"
#include "norvane/text/code_page_convert.h"
#include "norvane/text/utf8.h"
#include "norvane/text/utf8_internal.h"

namespace nvtool {

namespace {

// The names each encoding answers to, as `iconv -l` lists them. Apart from the ASCII and
// byte-order-mark UTF-16 names, which this command handles itself, every name here is one the
// library's KD_GetCodePageFromStringA knows; the numbers of the pages are accepted as well.
struct EncodingNames {
  const char* title;
  const char* names;
};

const EncodingNames kEncodingNames[] = {
    {"UTF-8 (65001)", "utf-8 utf8 unicode-1-1-utf-8 unicode11utf8 unicode20utf8 x-unicode20utf8 cp65001 windows-65001"},
    {"UTF-16 (byte-order mark)", "utf-16 utf16"},
    {"UTF-16LE (1200)", "utf-16le utf16le ucs-2 ucs-2le ucs2 csunicode iso-10646-ucs-2 unicode unicodefeff cp1200"},
    {"UTF-16BE (1201)", "utf-16be utf16be unicodefffe ucs-2be cp1201"},
    {"ASCII", "ascii us-ascii ansi_x3.4-1968"},
    {"874", "windows-874 cp874 ms874 x-cp874 dos-874 iso-8859-11 iso8859-11 iso885911 tis-620 tis620"},
    {"932", "shift_jis shift-jis sjis x-sjis csshiftjis ms_kanji ms932 windows-31j cswindows31j cp932 windows-932 "
            "x-ms-cp932"},
    {"936", "gbk x-gbk cp936 ms936 windows-936 gb2312 gb_2312 gb_2312-80 csgb2312 csiso58gb231280 iso-ir-58 chinese "
            "euc-cn x-euc-cn"},
    {"949", "euc-kr euckr cseuckr ks_c_5601-1987 ks_c_5601-1989 ks_c_5601 ksc5601 ksc_5601 csksc56011987 iso-ir-149 "
            "korean cp949 ms949 windows-949 uhc"},
    {"950", "big5 big-5 big-five bigfive cn-big5 csbig5 x-x-big5 cp950 ms950 windows-950 x-cp950"},
    {"1250", "windows-1250 cp1250 x-cp1250 ms-ee"},
    {"1251", "windows-1251 cp1251 x-cp1251 ms-cyrl"},
    {"1252", "windows-1252 cp1252 x-cp1252 ms-ansi iso-8859-1 iso8859-1 iso88591 iso_8859-1 iso_8859-1:1987 "
             "iso-ir-100 csisolatin1 latin1 l1 ibm819 cp819"},
    {"1253", "windows-1253 cp1253 x-cp1253 ms-greek"},
    {"1254", "windows-1254 cp1254 x-cp1254 ms-turk iso-8859-9 iso8859-9 iso88599 iso_8859-9 iso_8859-9:1989 "
             "iso-ir-148 csisolatin5 latin5 l5"},
    {"1255", "windows-1255 cp1255 x-cp1255 ms-hebr"},
    {"1256", "windows-1256 cp1256 x-cp1256 ms-arab"},
    {"1257", "windows-1257 cp1257 x-cp1257 winbaltrim"},
    {"1258", "windows-1258 cp1258 x-cp1258"},
};

bool IsNumber(const std::string& s) {
  if (s.empty()) return false;
  for (char c : s) {
    if (c < '0' || c > '9') return false;
  }
  return true;
}

bool IsHighSurrogate(uint32_t u) { return u >= 0xD800 && u < 0xDC00; }

uint32_t Unit16(const uint8_t* p, bool big_endian) {
  return big_endian ? (static_cast<uint32_t>(p[0]) << 8 | p[1]) : (static_cast<uint32_t>(p[1]) << 8 | p[0]);
}

// The length of the UTF-8 sequence a (valid) lead byte starts.
size_t Utf8Length(uint8_t b) { return b < 0x80 ? 1 : b < 0xE0 ? 2 : b < 0xF0 ? 3 : 4; }

// WellFormedDecoding tells whether count characters that the lenient decoder made of bytes bytes
// can only have come from well-formed UTF-8: each is a Unicode scalar value (no surrogate,
// nothing above U+10FFFF) and their shortest forms take exactly that many bytes, where an
// overlong form or a dropped byte would have taken more. U+FFFD answers false, as the decoder
// also makes it of an overlong zero of its length. Four characters at a time with the compilers'
// vector extensions (SSE2 or NEON), where a true comparison is -1; count stays far below the
// range of a lane.
bool WellFormedDecoding(const wchar_t* chars, size_t count, size_t bytes) {
  typedef uint32_t U4 __attribute__((vector_size(16)));
  typedef int32_t I4 __attribute__((vector_size(16)));
  I4 length = {0, 0, 0, 0}, bad = {0, 0, 0, 0};
  size_t i = 0;
  for (; i + 4 <= count; i += 4) {
    U4 c;
    std::memcpy(&c, chars + i, sizeof c);
    length += 1 - ((c >= 0x80u) + (c >= 0x800u) + (c >= 0x10000u));
    bad |= ((c - 0xD800u) < 0x800u) | (c > 0x10FFFFu) | (c == 0xFFFDu);
  }
  size_t total = static_cast<size_t>(length[0] + length[1] + length[2] + length[3]);
  if (bad[0] | bad[1] | bad[2] | bad[3]) return false;
  for (; i < count; ++i) {
    const uint32_t c = static_cast<uint32_t>(chars[i]);
    if ((c >= 0xD800 && c < 0xE000) || c > 0x10FFFF || c == 0xFFFD) return false;
    total += c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
  }
  return total == bytes;
}

}  // namespace

Encoding::~Encoding() {
  if (code_page_) code_page_->Release();
}

bool Encoding::Resolve(const std::string& name, bool* known) {
  std::string lower = name;
  for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  *known = true;
  if (lower == "ascii" || lower == "us-ascii" || lower == "ansi_x3.4-1968") {
    kind_ = Kind::kAscii;
    return true;
  }
  if (lower == "utf-16" || lower == "utf16") {
    kind_ = Kind::kUtf16;
    return true;
  }
  long number = -1;
  if (IsNumber(lower)) {
    if (lower.size() <= 5) number = std::strtol(lower.c_str(), nullptr, 10);
  } else {
    uint16_t found = KD_GetCodePageFromStringA(lower.c_str(), static_cast<int>(lower.size()));
    if (found != 0xFFFF) number = found;
  }
  if (number < 0 || number > 0xFFFF) {
    *known = false;
    return false;
  }
  page_ = static_cast<uint16_t>(number);
  if (page_ == KD_CP_UTF8) {
    kind_ = Kind::kUtf8;
  } else if (page_ == KD_CP_UTF16LE) {
    kind_ = Kind::kUtf16LE;
  } else if (page_ == KD_CP_UTF16BE) {
    kind_ = Kind::kUtf16BE;
  } else {
    kind_ = Kind::kTable;
    code_page_ = IKD_CodePage::Create(page_);
    if (!code_page_) return false;
  }
  return true;
}

size_t ValidUtf8Prefix(const uint8_t* s, size_t n, bool* cut, size_t* bad) {
  *cut = false;
  *bad = 0;
  size_t i = 0;
  while (i < n) {
    while (i + 16 <= n && ((kdtext::Load64(s + i) | kdtext::Load64(s + i + 8)) & kdtext::kHighBits) == 0) i += 16;
    while (i + 8 <= n && (kdtext::Load64(s + i) & kdtext::kHighBits) == 0) i += 8;
    if (i >= n) break;
    const uint8_t b = s[i];
    if (b < 0x80) {
      ++i;
      continue;
    }
    if (i + 4 <= n) {
      // Whole 2-, 3- and 4-byte sequences, decided on one word: the lead byte in the low byte.
      uint32_t w;
      std::memcpy(&w, s + i, sizeof w);
      if ((w & 0xC0E0) == 0x80C0 && b >= 0xC2) {
        i += 2;
        continue;
      }
      if ((w & 0xC0C0F0) == 0x8080E0) {
        const uint32_t t = w & 0x200F;  // E0 with a second byte below A0 is overlong, ED above 9F a surrogate
        if (t != 0 && t != 0x200D) {
          i += 3;
          continue;
        }
      } else if ((w & 0xC0C0C0F8) == 0x808080F0) {
        const uint32_t c = (w & 0x07) << 18 | ((w >> 8) & 0x3F) << 12;
        if (c >= 0x10000 && c <= 0x10FFFF) {
          i += 4;
          continue;
        }
      }
    }
    // The second byte's range narrows after E0, ED, F0 and F4 (no overlong forms, surrogates or
    // values above U+10FFFF); C0, C1 and F5-FF start nothing.
    size_t len;
    uint8_t lo = 0x80, hi = 0xBF;
    if (b >= 0xC2 && b <= 0xDF) {
      len = 2;
    } else if (b >= 0xE0 && b <= 0xEF) {
      len = 3;
      if (b == 0xE0) lo = 0xA0;
      if (b == 0xED) hi = 0x9F;
    } else if (b >= 0xF0 && b <= 0xF4) {
      len = 4;
      if (b == 0xF0) lo = 0x90;
      if (b == 0xF4) hi = 0x8F;
    } else {
      *bad = 1;
      return i;
    }
    for (size_t k = 1; k < len; ++k) {
      if (i + k >= n) {
        *cut = true;
        return i;
      }
      const uint8_t c = s[i + k];
      if (k == 1 ? (c < lo || c > hi) : (c & 0xC0) != 0x80) {
        *bad = k;
        return i;
      }
    }
    i += len;
  }
  return n;
}

Encoding::Decoded Encoding::Decode(const uint8_t* src, size_t n, wchar_t* dst, bool big_endian) const {
  Decoded r;
  if (n == 0) return r;
  const char* s = reinterpret_cast<const char*>(src);
  int src_len = static_cast<int>(n), dst_len = static_cast<int>(n);
  switch (kind_) {
    case Kind::kAscii:
      while (r.consumed < n && src[r.consumed] < 0x80) {
        dst[r.consumed] = src[r.consumed];
        ++r.consumed;
      }
      r.produced = r.consumed;
      r.invalid = r.consumed < n;
      r.bad = 1;
      return r;
    case Kind::kUtf8: {
      // The library reads UTF-8 leniently by design. What it made of well-formed input is taken
      // as it is; anything else is decoded again, only as far as the strict check allows.
      bool cut = false;
      KD_UTF8Decode(s, &src_len, dst, &dst_len);
      size_t valid = static_cast<size_t>(src_len);
      if (WellFormedDecoding(dst, static_cast<size_t>(dst_len), valid)) {
        if (valid < n && ValidUtf8Prefix(src + valid, n - valid, &cut, &r.bad) != 0) valid = 0;
      } else {
        valid = 0;
      }
      if (valid == 0) {  // the slow way: check first, then decode what passed
        src_len = dst_len = static_cast<int>(ValidUtf8Prefix(src, n, &cut, &r.bad));
        if (src_len > 0) KD_UTF8Decode(s, &src_len, dst, &dst_len);
      }
      r.consumed = static_cast<size_t>(src_len);
      r.produced = static_cast<size_t>(dst_len);
      r.invalid = r.consumed < n && !cut;
      return r;
    }
    case Kind::kTable: {
      KD_DecodeString(page_, s, &src_len, dst, &dst_len, true);
      r.consumed = static_cast<size_t>(src_len);
      r.produced = static_cast<size_t>(dst_len);
      if (r.consumed < n) {
        const size_t rest = n - r.consumed;
        const bool lead = code_page_->IsLeadByte(src[r.consumed]);
        r.invalid = !(lead && rest == 1);
        // As the library reads them: a lead byte and a trail byte (0x40 or above) that map to
        // nothing are one invalid code; a lead byte before anything lower is invalid alone.
        r.bad = lead && rest > 1 && src[r.consumed + 1] >= 0x40 ? 2 : 1;
      }
      return r;
    }
    case Kind::kUtf16LE:
    case Kind::kUtf16BE:
    case Kind::kUtf16: {
      const bool big = kind_ == Kind::kUtf16BE || (kind_ == Kind::kUtf16 && big_endian);
      KD_DecodeString(big ? KD_CP_UTF16BE : KD_CP_UTF16LE, s, &src_len, dst, &dst_len, true);
      r.consumed = static_cast<size_t>(src_len);
      r.produced = static_cast<size_t>(dst_len);
      if (r.consumed < n) {
        const size_t rest = n - r.consumed;
        const bool cut = rest == 1 || (rest < 4 && IsHighSurrogate(Unit16(src + r.consumed, big)));
        r.invalid = !cut;
        r.bad = 2;
      }
      return r;
    }
  }
  return r;
}

size_t Encoding::SourceBytes(const uint8_t* src, size_t n, size_t count, bool big_endian) const {
  size_t bytes = 0;
  switch (kind_) {
    case Kind::kAscii:
      return count;
    case Kind::kUtf8:
      for (size_t i = 0; i < count; ++i) bytes += Utf8Length(src[bytes]);
      return bytes;
    case Kind::kTable: {
      if (count == 0) return 0;
      std::vector<wchar_t> scratch(count);
      int src_len = static_cast<int>(n), dst_len = static_cast<int>(count);
      KD_DecodeString(page_, reinterpret_cast<const char*>(src), &src_len, scratch.data(), &dst_len, true);
      return static_cast<size_t>(src_len);
    }
    default: {
      const bool big = kind_ == Kind::kUtf16BE || (kind_ == Kind::kUtf16 && big_endian);
      for (size_t i = 0; i < count; ++i) bytes += IsHighSurrogate(Unit16(src + bytes, big)) ? 4 : 2;
      return bytes;
    }
  }
}

size_t Encoding::Encode(const wchar_t* src, size_t n, uint8_t* dst, size_t* written) const {
  *written = 0;
  if (n == 0) return 0;
  switch (kind_) {
    case Kind::kAscii: {
      size_t i = 0;
      while (i < n && static_cast<uint32_t>(src[i]) < 0x80) {
        dst[i] = static_cast<uint8_t>(src[i]);
        ++i;
      }
      *written = i;
      return i;
    }
    case Kind::kUtf8:
      // Every code point in full (the buffer form KD_UTF8Encode keeps 16 bits).
      *written = static_cast<size_t>(kdtext::EncodeFull(src, static_cast<int>(n), dst) - dst);
      return n;
    default: {
      uint16_t page = kind_ == Kind::kTable     ? page_
                      : kind_ == Kind::kUtf16BE ? static_cast<uint16_t>(KD_CP_UTF16BE)
                                                : static_cast<uint16_t>(KD_CP_UTF16LE);
      int src_len = static_cast<int>(n), dst_len = static_cast<int>(4 * n);
      KD_EncodeString(page, src, &src_len, reinterpret_cast<char*>(dst), &dst_len, true);
      *written = static_cast<size_t>(dst_len);
      return static_cast<size_t>(src_len);
    }
  }
}

void PrintEncodings() {
  std::printf("Encodings and the names they take (any case); code pages are also named by number.\n");
  for (const EncodingNames& e : kEncodingNames) {
    std::printf("%s: ", e.title);
    for (const char* p = e.names; *p; ++p) {
      if (*p == ' ') {
        std::fputs(", ", stdout);
      } else {
        std::putchar(*p);
      }
    }
    std::putchar('\n');
  }
}

}  // namespace nvtool
