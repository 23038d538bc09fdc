// Internal to the library: the code-page registry, the two table lookups every code-page
// function is built on, and flat lookup tables made from them on first use for the conversion
// loops.
#ifndef NORVANE_TEXT_CODE_PAGE_INTERNAL_H_
#define NORVANE_TEXT_CODE_PAGE_INTERNAL_H_

#include <cstdint>
#include <cstring>

#include "norvane/text/code_page.h"

namespace kdtext {

enum { kCodePageCount = 14 };

// The fourteen pages sorted by number.
extern const KD_CodePage_Entry g_CodePageRegistry[kCodePageCount];

inline uint16_t Read16(const void* p) {
  uint16_t v;
  memcpy(&v, p, sizeof v);
  return v;
}

// CodeToUnicode is GetUnicode: 0xFEFF when code has no mapping.
inline uint32_t CodeToUnicode(const KD_CodePage_Entry* entry, uint32_t code) {
  const KD_CodePage_MapHeader* header = entry->m_pHeader;
  if (code < header->m_dwMinCharcode || code > header->m_dwMaxCharcode) return 0xFEFF;
  const KD_CodePage_CUMap* map = entry->m_pCUMap;
  if (code < 256) {
    uint32_t e = map->_CUMapIndex1[code];
    return (e & 0xFFFF) ? 0xFEFF : e >> 16;
  }
  uint32_t e = map->_CUMapIndex1[(code >> 8) & 0xFF];
  int count = static_cast<int>(e & 0xFFFF);
  if (count == 0) return e >> 16;
  const uint32_t* ranges = map->_CUMapIndex2 + (e >> 16);
  uint32_t trail = code & 0xFF;
  // The last range whose first trail byte is at most trail.
  int lo = 0, hi = count - 1, found = -1;
  while (lo <= hi) {
    int mid = (lo + hi) >> 1;
    if ((ranges[mid] & 0xFF) <= trail) {
      found = mid;
      lo = mid + 1;
    } else {
      hi = mid - 1;
    }
  }
  if (found < 0) return 0xFEFF;
  uint32_t range = ranges[found];
  uint32_t d = trail - (range & 0xFF);
  const uint8_t* data = map->_CUData + (range >> 16);
  switch ((range >> 8) & 0xFF) {
    case 1:
      return Read16(data + 2 * d);
    case 2:
      return static_cast<uint16_t>(Read16(data) + d);
    case 4:
      return static_cast<uint16_t>(static_cast<int16_t>(Read16(data)) + data[2 + d]);
    default:
      return 0xFEFF;
  }
}

// UnicodeToCode is GetCharcode: 0xFFFF when no range covers ch, 0xFEFF for a hole in a table.
inline uint32_t UnicodeToCode(const KD_CodePage_Entry* entry, uint32_t ch) {
  const KD_CodePage_UCMap* map = entry->m_pUCMap;
  const KD_CodePage_UCRecord* index = map->_UCMapIndex;
  int lo = 0, hi = static_cast<int>(map->m_dwCount);  // inclusive: the sentinel is searched too
  while (lo <= hi) {
    int mid = (lo + hi) >> 1;
    const KD_CodePage_UCRecord& r = index[mid];
    if (ch < r.m_wFirst) {
      hi = mid - 1;
    } else if (ch > r.m_wLast) {
      lo = mid + 1;
    } else {
      uint32_t d = ch - r.m_wFirst;
      const uint16_t* data = map->_UCData + r.m_wOffset;
      switch (r.m_wType) {
        case 1:
          return data[d];
        case 2:
          return static_cast<uint16_t>(data[0] + d);
        case 3:
          return 0xFEFF;
        case 4:
          return static_cast<uint16_t>(data[0] + reinterpret_cast<const uint8_t*>(data)[2 + d]);
        default:
          return 0xFFFF;
      }
    }
  }
  return 0xFFFF;
}

// DecodeTable returns 65536 entries, entry[code] == CodeToUnicode(code), for a double-byte page
// once it has been built; null while it is not (the caller then uses CodeToUnicode). The first
// caller builds it; the tables live in static storage for the life of the process.
const uint16_t* DecodeTable(const KD_CodePage_Entry* entry);
// EncodeTable returns 65536 entries, entry[ch] == UnicodeToCode(ch) & 0xFFFF, or null while it is
// not built; as DecodeTable, for every page.
const uint16_t* EncodeTable(const KD_CodePage_Entry* entry);

}  // namespace kdtext

#endif  // NORVANE_TEXT_CODE_PAGE_INTERNAL_H_
