// Fuzzes KD_DecodeString and KD_EncodeString for every code page they know (the fourteen table
// pages, UTF-16 in both byte orders, UTF-8) and one they do not, strict and not. The table pages
// are checked against a reference built on the code-page objects' own lookups (IsLeadByte,
// GetUnicode, GetCharcode), UTF-16 against its rules; for every page, counting agrees with
// writing, a short destination gets a prefix, and a text converted in two pieces (carrying what
// the first call left unconsumed) gives what one call gives. The character maps of the table
// pages must agree with the non-strict conversions.
#include <climits>
#include <cstdint>
#include <cstring>
#include <vector>

#include "fuzz/fuzz_input.h"
#include "norvane/text/byte_string.h"
#include "norvane/text/char_map.h"
#include "norvane/text/code_page.h"
#include "norvane/text/code_page_convert.h"
#include "norvane/text/utf8.h"
#include "norvane/text/wide_string.h"

namespace {

using kdfuzz::FuzzInput;
using Bytes = std::vector<uint8_t>;
using Chars = std::vector<wchar_t>;

const uint16_t kPages[] = {874,  932,  936,  949,  950,  1250, 1251, 1252, 1253, 1254,
                           1255, 1256, 1257, 1258, 1200, 1201, 65001, 1234};

struct Result {
  int consumed = 0;
  Chars chars;
  Bytes bytes;
};

// The table pages by their documented rules, through the code-page object's lookups.
Result ReferenceDecodeTable(IKD_CodePage* page, const Bytes& s, bool strict, size_t limit) {
  Result r;
  size_t i = 0;
  while (i < s.size() && r.chars.size() < limit) {
    uint8_t b = s[i];
    uint32_t u;
    size_t used = 1;
    if (page->IsLeadByte(b)) {
      if (i + 1 >= s.size()) break;  // waits for its trail byte
      uint8_t t = s[i + 1];
      u = static_cast<uint32_t>(page->GetUnicode(static_cast<uint16_t>(b << 8 | t)));
      if (u != 0xFEFF) {
        used = 2;
      } else if (t >= 0x40) {
        used = 2;  // an unmapped pair is one character; a byte below 0x40 is read again alone
      }
    } else {
      u = static_cast<uint32_t>(page->GetUnicode(b));
    }
    if (u == 0xFEFF) {
      if (strict) break;
      u = page->GetDefUnicode();
    }
    r.chars.push_back(static_cast<wchar_t>(u));
    i += used;
  }
  r.consumed = static_cast<int>(i);
  return r;
}

Result ReferenceEncodeTable(IKD_CodePage* page, const Chars& s, bool strict, size_t room) {
  Result r;
  size_t i = 0;
  for (; i < s.size(); ++i) {
    uint32_t c = static_cast<uint32_t>(s[i]);
    uint32_t code = c > 0xFFFF ? 0xFFFF : page->GetCharcode(static_cast<wchar_t>(c));
    if (code == 0xFEFF || code == 0xFFFF) {
      if (strict) break;
      code = page->GetDefCharcode();
    }
    size_t size = code > 0xFF ? 2 : 1;
    if (r.bytes.size() + size > room) break;
    if (size == 2) r.bytes.push_back(static_cast<uint8_t>(code >> 8));
    r.bytes.push_back(static_cast<uint8_t>(code));
  }
  r.consumed = static_cast<int>(i);
  return r;
}

uint32_t Unit(const Bytes& s, size_t i, bool big) {
  return big ? static_cast<uint32_t>(s[i] << 8 | s[i + 1]) : static_cast<uint32_t>(s[i + 1] << 8 | s[i]);
}

Result ReferenceDecodeUTF16(const Bytes& s, bool big, bool strict, size_t limit) {
  Result r;
  size_t i = 0;
  while (i + 2 <= s.size() && r.chars.size() < limit) {
    uint32_t u = Unit(s, i, big);
    size_t used = 2;
    bool high = u >= 0xD800 && u < 0xDC00, low = u >= 0xDC00 && u < 0xE000;
    if (high) {
      if (i + 4 > s.size()) break;  // waits for its partner
      uint32_t next = Unit(s, i + 2, big);
      if (next >= 0xDC00 && next < 0xE000) {
        u = 0x10000 + ((u - 0xD800) << 10) + (next - 0xDC00);
        used = 4;
      } else if (strict) {
        break;  // a lone high surrogate
      }
    } else if (low && strict) {
      break;
    }
    r.chars.push_back(static_cast<wchar_t>(u));
    i += used;
  }
  r.consumed = static_cast<int>(i);
  return r;
}

void PutUnit(Bytes& out, uint32_t u, bool big) {
  uint8_t hi = static_cast<uint8_t>(u >> 8), lo = static_cast<uint8_t>(u);
  out.push_back(big ? hi : lo);
  out.push_back(big ? lo : hi);
}

Result ReferenceEncodeUTF16(const Chars& s, bool big, bool strict, size_t room) {
  Result r;
  size_t i = 0;
  for (; i < s.size(); ++i) {
    uint32_t c = static_cast<uint32_t>(s[i]);
    if (c > 0x10FFFF) {
      if (strict) break;
      c = 0xFFFD;
    }
    size_t size = c > 0xFFFF ? 4 : 2;
    if (r.bytes.size() + size > room) break;
    if (size == 4) {
      PutUnit(r.bytes, 0xD800 + ((c - 0x10000) >> 10), big);
      PutUnit(r.bytes, 0xDC00 + ((c - 0x10000) & 0x3FF), big);
    } else {
      PutUnit(r.bytes, c, big);
    }
  }
  r.consumed = static_cast<int>(i);
  return r;
}

// One call of each direction, counting (room < 1) or writing into room units.
Result Decode(uint16_t cp, const Bytes& s, int room, bool strict, int* rc) {
  Result r;
  std::vector<wchar_t> dst(static_cast<size_t>(room > 0 ? room : 0) + 1, L'\x7777');
  int srcLen = static_cast<int>(s.size()), dstLen = room;
  *rc = KD_DecodeString(cp, reinterpret_cast<const char*>(s.data()), &srcLen, room > 0 ? dst.data() : nullptr,
                        &dstLen, strict);
  r.consumed = srcLen;
  KDFUZZ_CHECK(dst[static_cast<size_t>(room > 0 ? room : 0)] == L'\x7777');  // nothing past the room
  if (room > 0) {
    KDFUZZ_CHECK(dstLen >= 0 && dstLen <= room);
    r.chars.assign(dst.begin(), dst.begin() + dstLen);
  } else {
    r.chars.resize(static_cast<size_t>(dstLen));  // only the count is known
  }
  return r;
}

Result Encode(uint16_t cp, const Chars& s, int room, bool strict, int* rc, int* count) {
  Result r;
  std::vector<uint8_t> dst(static_cast<size_t>(room > 0 ? room : 0) + 1, 0xEE);
  int srcLen = static_cast<int>(s.size()), dstLen = room;
  *rc = KD_EncodeString(cp, s.data(), &srcLen, room > 0 ? reinterpret_cast<char*>(dst.data()) : nullptr, &dstLen,
                        strict);
  KDFUZZ_CHECK(dst[static_cast<size_t>(room > 0 ? room : 0)] == 0xEE);
  r.consumed = srcLen;
  *count = dstLen;
  if (room > 0) r.bytes.assign(dst.begin(), dst.begin() + (dstLen < room ? dstLen : room));
  return r;
}

void CheckDecode(uint16_t cp, IKD_CodePage* page, const Bytes& s, int room, bool strict) {
  int rc;
  Result counted = Decode(cp, s, 0, strict, &rc);
  if (cp == 1234) {
    KDFUZZ_CHECK(rc == -1 && counted.consumed == 0 && counted.chars.empty());
    return;
  }
  KDFUZZ_CHECK(rc == 1);
  Result whole = Decode(cp, s, static_cast<int>(s.size()) + 1, strict, &rc);
  KDFUZZ_CHECK(whole.consumed == counted.consumed && whole.chars.size() == counted.chars.size());
  if (page || cp == 1200 || cp == 1201) {
    Result ref = page ? ReferenceDecodeTable(page, s, strict, SIZE_MAX)
                      : ReferenceDecodeUTF16(s, cp == 1201, strict, SIZE_MAX);
    KDFUZZ_CHECK(whole.consumed == ref.consumed && whole.chars == ref.chars);
  }
  if (room > 0) {
    // A short destination gets the first room characters and the bytes that made them.
    Result part = Decode(cp, s, room, strict, &rc);
    size_t n = whole.chars.size() < static_cast<size_t>(room) ? whole.chars.size() : static_cast<size_t>(room);
    KDFUZZ_CHECK(part.chars.size() == n && std::equal(part.chars.begin(), part.chars.end(), whole.chars.begin()));
    KDFUZZ_CHECK(part.consumed <= whole.consumed && (n < whole.chars.size() || part.consumed == whole.consumed));
  }
  // In two pieces: the first call's leftover bytes start the second call.
  size_t split = s.empty() ? 0 : static_cast<size_t>(room < 0 ? -room : room) % (s.size() + 1);
  Bytes first(s.begin(), s.begin() + split);
  Result a = Decode(cp, first, static_cast<int>(first.size()) + 1, strict, &rc);
  Bytes second(s.begin() + a.consumed, s.end());
  Result b = Decode(cp, second, static_cast<int>(second.size()) + 1, strict, &rc);
  a.chars.insert(a.chars.end(), b.chars.begin(), b.chars.end());
  KDFUZZ_CHECK(a.consumed + b.consumed == whole.consumed);
  KDFUZZ_CHECK(a.chars == whole.chars);
}

void CheckEncode(uint16_t cp, IKD_CodePage* page, const Chars& s, int room, bool strict) {
  int rc, count;
  Result counted = Encode(cp, s, 0, strict, &rc, &count);
  if (cp == 1234) {
    KDFUZZ_CHECK(rc == -1 && counted.consumed == 0 && count == 0);
    return;
  }
  KDFUZZ_CHECK(rc == 1);
  if (cp == 65001) return;  // its buffer encoder has rules of its own, fuzzed with UTF-8
  int whole_count;
  Result whole = Encode(cp, s, 4 * static_cast<int>(s.size()) + 1, strict, &rc, &whole_count);
  KDFUZZ_CHECK(whole.consumed == counted.consumed && whole_count == count);
  KDFUZZ_CHECK(whole.bytes.size() == static_cast<size_t>(count));
  Result ref = page ? ReferenceEncodeTable(page, s, strict, SIZE_MAX)
                    : ReferenceEncodeUTF16(s, cp == 1201, strict, SIZE_MAX);
  KDFUZZ_CHECK(whole.consumed == ref.consumed && whole.bytes == ref.bytes);
  if (room > 0) {
    int part_count;
    Result part = Encode(cp, s, room, strict, &rc, &part_count);
    Result ref_part = page ? ReferenceEncodeTable(page, s, strict, static_cast<size_t>(room))
                           : ReferenceEncodeUTF16(s, cp == 1201, strict, static_cast<size_t>(room));
    KDFUZZ_CHECK(part.consumed == ref_part.consumed && part.bytes == ref_part.bytes);
  }
}

Chars ToChars(const CKD_WideString& w) { return Chars(w.c_str(), w.c_str() + w.GetLength()); }
Bytes ToBytes(const CKD_ByteString& b) { return Bytes(b.GetPtr(), b.GetPtr() + b.GetLength()); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput input(data, size);
  const uint8_t pick = input.Byte();
  const uint16_t cp = kPages[pick % (sizeof kPages / sizeof kPages[0])];
  const bool strict = pick & 0x80;
  const int room = static_cast<int>(input.Byte()) - 4;
  const Bytes bytes = input.Rest();

  IKD_CodePage* page = IKD_CodePage::Create(cp);
  KDFUZZ_CHECK((page != nullptr) == (cp < 1200 || (cp >= 1250 && cp <= 1258)));

  CheckDecode(cp, page, bytes, room, strict);

  // Wide text to encode: what the bytes decode to, then the bytes read as raw 32-bit values.
  int srcLen = static_cast<int>(bytes.size()), n = 0;
  KD_DecodeString(cp, reinterpret_cast<const char*>(bytes.data()), &srcLen, nullptr, &n, false);
  Chars text(static_cast<size_t>(n) + 1);
  srcLen = static_cast<int>(bytes.size());
  KD_DecodeString(cp, reinterpret_cast<const char*>(bytes.data()), &srcLen, text.data(), &n, false);
  text.resize(static_cast<size_t>(n));
  CheckEncode(cp, page, text, room, strict);
  Chars raw(bytes.size() / 4);
  if (!raw.empty()) std::memcpy(raw.data(), bytes.data(), raw.size() * 4);
  CheckEncode(cp, page, raw, room, strict);

  if (page) {
    // The page's character map converts as the non-strict conversions do.
    CKD_CharMap* map = CKD_CharMap::GetDefaultMapper(cp);
    KDFUZZ_CHECK(map != nullptr);
    CKD_ByteString in(bytes.data(), static_cast<int>(bytes.size()));
    CKD_WideString wide;
    wide.ConvertFrom(in, map);
    KDFUZZ_CHECK(ToChars(wide) == ReferenceDecodeTable(page, bytes, false, SIZE_MAX).chars);
    CKD_ByteString narrow;
    narrow.ConvertFrom(CKD_WideString(raw.data(), static_cast<int>(raw.size())), map);
    KDFUZZ_CHECK(ToBytes(narrow) == ReferenceEncodeTable(page, raw, false, SIZE_MAX).bytes);
    page->Release();
  }
  return 0;
}
