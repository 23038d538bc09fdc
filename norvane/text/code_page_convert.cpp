#include "norvane/text/code_page_convert.h"

#include <climits>

#include "norvane/text/code_page_internal.h"
#include "norvane/text/utf8.h"
#include "norvane/text/utf8_internal.h"

namespace {

using kdtext::kHighBits;
using kdtext::Load64;

// Every one of the fourteen pages maps 0x00..0x7F to U+0000..U+007F (the generator checks it), so
// ASCII runs skip the tables in both directions.

// kWrite: write to dst or only count; kTable: a double-byte page whose flat table is ready.
template <bool kWrite, bool kTable>
int DecodeTablePage(const KD_CodePage_Entry* entry, const uint16_t* table, const uint8_t* s, int n, wchar_t* dst,
                    int cap, bool strict, int* consumed) {
  const uint32_t* index1 = entry->m_pCUMap->_CUMapIndex1;
  const uint32_t defUnicode = entry->m_pHeader->m_dwDefUnicode;
  int i = 0, out = 0;
  while (i < n && out < cap) {
    uint8_t b = s[i];
    if (b < 0x80) {
      if (i + 8 <= n && out <= cap - 8 && (Load64(s + i) & kHighBits) == 0) {
        if (kWrite)
          for (int k = 0; k < 8; ++k) dst[out + k] = s[i + k];
        i += 8;
        out += 8;
      } else {
        if (kWrite) dst[out] = b;
        ++out;
        ++i;
      }
      continue;
    }
    uint32_t e = index1[b];
    uint32_t u;
    int used = 1;
    if (e & 0xFFFF) {
      if (i + 1 >= n) break;  // a lead byte at the end waits for its trail byte
      uint8_t t = s[i + 1];
      uint32_t code = static_cast<uint32_t>(b) << 8 | t;
      u = kTable ? table[code] : kdtext::CodeToUnicode(entry, code);
      if (__builtin_expect(u != 0xFEFF, 1)) {
        if (kWrite) dst[out] = static_cast<wchar_t>(u);
        ++out;
        i += 2;
        continue;
      }
      // Every trail byte of these pages is 0x40 or above: an unmapped pair is one character.
      // Below that (controls, digits, space) the byte cannot be a trail and is left to stand alone.
      if (t >= 0x40) used = 2;
    } else {
      u = e >> 16;
    }
    if (u == 0xFEFF) {
      if (strict) break;
      u = defUnicode;
    }
    if (kWrite) dst[out] = static_cast<wchar_t>(u);
    ++out;
    i += used;
  }
  *consumed = i;
  return out;
}

// A single-byte page holds every byte's Unicode value, ASCII included, in bits 16..31 of its
// index-1 entry (bits 0..15 are 0: no lead bytes), so the loop has no branch but the rare byte
// without a mapping, which text mixing ASCII and other characters would otherwise mispredict.
template <bool kWrite>
int DecodeSingleBytePage(const KD_CodePage_Entry* entry, const uint8_t* s, int n, wchar_t* dst, int cap, bool strict,
                         int* consumed) {
  const uint32_t* index1 = entry->m_pCUMap->_CUMapIndex1;
  const uint32_t defUnicode = entry->m_pHeader->m_dwDefUnicode;
  const int limit = n < cap ? n : cap;
  int i = 0;
  for (; i < limit; ++i) {
    uint32_t u = index1[s[i]] >> 16;
    if (__builtin_expect(u == 0xFEFF, 0)) {
      if (strict) break;
      u = defUnicode;
    }
    if (kWrite) dst[i] = static_cast<wchar_t>(u);
  }
  *consumed = i;
  return i;
}

int EncodeTablePage(const KD_CodePage_Entry* entry, const wchar_t* src, int n, uint8_t* dst, long long cap,
                    bool write, bool strict, int* consumed) {
  const uint32_t defCode = entry->m_pHeader->m_dwDefCharcode;
  const uint16_t* table = kdtext::EncodeTable(entry);
  int i = 0;
  long long out = 0;
  while (i < n) {
    while (i + 4 <= n && out + 4 <= cap &&
           (static_cast<uint32_t>(src[i]) | static_cast<uint32_t>(src[i + 1]) | static_cast<uint32_t>(src[i + 2]) |
            static_cast<uint32_t>(src[i + 3])) < 0x80) {
      if (write)
        for (int k = 0; k < 4; ++k) dst[out + k] = static_cast<uint8_t>(src[i + k]);
      i += 4;
      out += 4;
    }
    if (i >= n) break;
    uint32_t c = static_cast<uint32_t>(src[i]);
    uint32_t code = c > 0xFFFF ? 0xFFFF : table ? table[c] : kdtext::UnicodeToCode(entry, c);
    if (code == 0xFEFF || code == 0xFFFF) {
      if (strict) break;
      code = defCode;
    }
    int size = code > 0xFF ? 2 : 1;
    if (out + size > cap) break;
    if (write) {
      if (size == 2) {
        dst[out] = static_cast<uint8_t>(code >> 8);
        dst[out + 1] = static_cast<uint8_t>(code);
      } else {
        dst[out] = static_cast<uint8_t>(code);
      }
    }
    out += size;
    ++i;
  }
  *consumed = i;
  return static_cast<int>(out);
}

inline uint32_t Unit(const uint8_t* p, bool big) {
  return big ? (static_cast<uint32_t>(p[0]) << 8 | p[1]) : (static_cast<uint32_t>(p[1]) << 8 | p[0]);
}

int DecodeUTF16(const uint8_t* s, int n, wchar_t* dst, int cap, bool write, bool big, bool strict, int* consumed) {
  int i = 0, out = 0;
  while (i + 2 <= n && out < cap) {
    uint32_t u = Unit(s + i, big);
    int used = 2;
    if (u >= 0xD800 && u < 0xDC00) {
      if (i + 4 > n) break;  // a high surrogate at the end waits for its partner
      uint32_t low = Unit(s + i + 2, big);
      if (low >= 0xDC00 && low < 0xE000) {
        u = 0x10000 + ((u - 0xD800) << 10) + (low - 0xDC00);
        used = 4;
      } else if (strict) {
        break;
      }
    } else if (u >= 0xDC00 && u < 0xE000 && strict) {
      break;
    }
    if (write) dst[out] = static_cast<wchar_t>(u);
    ++out;
    i += used;
  }
  *consumed = i;
  return out;
}

inline void PutUnit(uint8_t* p, uint32_t u, bool big) {
  if (big) {
    p[0] = static_cast<uint8_t>(u >> 8);
    p[1] = static_cast<uint8_t>(u);
  } else {
    p[0] = static_cast<uint8_t>(u);
    p[1] = static_cast<uint8_t>(u >> 8);
  }
}

int EncodeUTF16(const wchar_t* src, int n, uint8_t* dst, long long cap, bool write, bool big, bool strict,
                int* consumed) {
  int i = 0;
  long long out = 0;
  for (; i < n; ++i) {
    // Four characters of the Basic Multilingual Plane at a time.
    while (i + 4 <= n && out + 8 <= cap &&
           (static_cast<uint32_t>(src[i]) | static_cast<uint32_t>(src[i + 1]) | static_cast<uint32_t>(src[i + 2]) |
            static_cast<uint32_t>(src[i + 3])) <= 0xFFFF) {
      if (write)
        for (int k = 0; k < 4; ++k) PutUnit(dst + out + 2 * k, static_cast<uint32_t>(src[i + k]), big);
      i += 4;
      out += 8;
    }
    if (i >= n) break;
    uint32_t c = static_cast<uint32_t>(src[i]);
    if (c > 0x10FFFF) {
      if (strict) break;
      c = 0xFFFD;
    }
    int size = c > 0xFFFF ? 4 : 2;
    if (out + size > cap) break;
    if (write) {
      if (size == 4) {
        PutUnit(dst + out, 0xD800 + ((c - 0x10000) >> 10), big);
        PutUnit(dst + out + 2, 0xDC00 + ((c - 0x10000) & 0x3FF), big);
      } else {
        PutUnit(dst + out, c, big);
      }
    }
    out += size;
  }
  *consumed = i;
  return static_cast<int>(out);
}

// BeginConversion makes the checks both directions make once UTF-8 is handled: it finds the page
// (entry stays null for UTF-16) and returns -1 for an unknown page or 1 for no source, both with
// the lengths set to 0, or 0 to go on.
inline int BeginConversion(uint16_t codePage, bool has_src, int* srcLen, int* dstLen,
                           const KD_CodePage_Entry** entry) {
  *entry = nullptr;
  int result = 0;
  if (codePage != KD_CP_UTF16LE && codePage != KD_CP_UTF16BE) {
    *entry = KD_GetCodePage(codePage);
    if (!*entry) result = -1;
  }
  if (!result && (*srcLen < 1 || !has_src)) result = 1;
  if (result) {
    *srcLen = 0;
    *dstLen = 0;
  }
  return result;
}

}  // namespace

int KD_DecodeString(uint16_t codePage, const char* src, int* srcLen, wchar_t* dst, int* dstLen, bool strict) {
  if (!srcLen || !dstLen) return -1;
  if (codePage == KD_CP_UTF8) return KD_UTF8Decode(src, srcLen, dst, dstLen);
  const KD_CodePage_Entry* entry;
  if (int result = BeginConversion(codePage, src != nullptr, srcLen, dstLen, &entry)) return result;
  const bool write = dst && *dstLen > 0;
  const int cap = write ? *dstLen : INT_MAX;
  const uint8_t* s = reinterpret_cast<const uint8_t*>(src);
  int consumed = 0;
  int out;
  if (entry) {
    const uint16_t* table = entry->m_pHeader->m_bHasLeadByte ? kdtext::DecodeTable(entry) : nullptr;
    if (!entry->m_pHeader->m_bHasLeadByte)
      out = write ? DecodeSingleBytePage<true>(entry, s, *srcLen, dst, cap, strict, &consumed)
                  : DecodeSingleBytePage<false>(entry, s, *srcLen, nullptr, cap, strict, &consumed);
    else if (table)
      out = write ? DecodeTablePage<true, true>(entry, table, s, *srcLen, dst, cap, strict, &consumed)
                  : DecodeTablePage<false, true>(entry, table, s, *srcLen, nullptr, cap, strict, &consumed);
    else
      out = write ? DecodeTablePage<true, false>(entry, nullptr, s, *srcLen, dst, cap, strict, &consumed)
                  : DecodeTablePage<false, false>(entry, nullptr, s, *srcLen, nullptr, cap, strict, &consumed);
  } else
    out = DecodeUTF16(s, *srcLen, dst, cap, write, codePage == KD_CP_UTF16BE, strict, &consumed);
  *srcLen = consumed;
  *dstLen = out;
  return 1;
}

int KD_EncodeString(uint16_t codePage, const wchar_t* src, int* srcLen, char* dst, int* dstLen, bool strict) {
  if (!srcLen || !dstLen) return -1;
  if (codePage == KD_CP_UTF8) return KD_UTF8Encode(src, srcLen, dst, dstLen);
  const KD_CodePage_Entry* entry;
  if (int result = BeginConversion(codePage, src != nullptr, srcLen, dstLen, &entry)) return result;
  const bool write = dst && *dstLen > 0;
  // Counting without a destination may pass INT_MAX bytes; the count then saturates.
  const long long cap = write ? *dstLen : INT_MAX;
  uint8_t* d = reinterpret_cast<uint8_t*>(dst);
  int consumed = 0;
  int out = entry ? EncodeTablePage(entry, src, *srcLen, d, cap, write, strict, &consumed)
                  : EncodeUTF16(src, *srcLen, d, cap, write, codePage == KD_CP_UTF16BE, strict, &consumed);
  *srcLen = consumed;
  *dstLen = out;
  return 1;
}
