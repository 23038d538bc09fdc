#include "norvane/text/charset.h"

#include <cstring>
#include <cwchar>

#include "norvane/memory/memory_mgr.h"
#include "norvane/text/byte_string.h"
#include "norvane/text/charset_internal.h"

namespace {

struct CharsetPair {
  uint16_t key;
  uint16_t value;
};

// Sorted by charset.
const CharsetPair kCharsetToCodePage[31] = {
    {0, 1252},    {1, 0},       {2, 42},      {77, 10000},  {78, 10001},  {79, 10003},  {80, 10008},  {81, 10002},
    {83, 10005},  {84, 10004},  {85, 10006},  {86, 10081},  {87, 10021},  {88, 10029},  {89, 10007},  {128, 932},
    {129, 949},   {130, 1361},  {134, 936},   {136, 950},   {161, 1253},  {162, 1254},  {163, 1258},  {177, 1255},
    {178, 1256},  {186, 1257},  {204, 1251},  {222, 874},   {238, 1250},  {254, 437},   {255, 850},
};

// By code page, in its historical order: the Macintosh tail is not sorted, and the binary search
// below must keep missing the pages that order hides.
const CharsetPair kCodePageToCharset[31] = {
    {0, 1},       {42, 2},      {437, 254},   {850, 255},   {874, 222},   {932, 128},   {936, 134},   {949, 129},
    {950, 136},   {1250, 238},  {1251, 204},  {1252, 0},    {1253, 161},  {1254, 162},  {1255, 177},  {1256, 178},
    {1257, 186},  {1258, 163},  {1361, 130},  {10000, 77},  {10001, 78},  {10003, 79},  {10008, 80},  {10002, 81},
    {10005, 83},  {10004, 84},  {10006, 85},  {10081, 86},  {10021, 87},  {10029, 88},  {10007, 89},
};

uint16_t Search(const CharsetPair* table, int last, uint16_t key) {
  int lo = 0, hi = last;
  while (lo <= hi) {
    int mid = (lo + hi) >> 1;
    if (table[mid].key == key) return table[mid].value;
    if (table[mid].key < key)
      lo = mid + 1;
    else
      hi = mid - 1;
  }
  return 0xFFFF;
}

uint16_t FindNameHash(uint32_t hash) {
  int lo = 0, hi = KD_CODEPAGE_NAME_COUNT - 1;
  while (lo <= hi) {
    int mid = (lo + hi) >> 1;
    uint32_t h = g_CodePageNameHashes[mid].m_dwHash;
    if (h == hash) return g_CodePageNameHashes[mid].m_wCodePage;
    if (h < hash)
      lo = mid + 1;
    else
      hi = mid - 1;
  }
  return 0xFFFF;
}

}  // namespace

uint16_t KD_GetCodePageFromCharset(uint8_t charset) { return Search(kCharsetToCodePage, 30, charset); }

uint16_t KD_GetCharsetFromCodePage(uint16_t codePage) { return Search(kCodePageToCharset, 30, codePage); }

uint16_t KD_GetCodePageFromStringA(const char* name, int len) {
  if (!name) return 0xFFFF;
  if (len < 0) len = static_cast<int>(strlen(name));
  if (len == 0) return 0xFFFF;
  return FindNameHash(KD_HashCode_String_GetA(name, len, true));
}

uint16_t KD_GetCodePageFormStringW(const wchar_t* name, int len) {
  if (!name) return 0xFFFF;
  if (len < 0) len = static_cast<int>(wcslen(name));
  if (len == 0) return 0xFFFF;
  char local[128];
  char* bytes = local;
  if (len > static_cast<int>(sizeof local)) {
    bytes = static_cast<char*>(KDMEM_DefaultAlloc2(static_cast<size_t>(len), 1, 0));
    if (!bytes) return 0xFFFF;
  }
  for (int i = 0; i < len; ++i) bytes[i] = static_cast<char>(name[i] & 0xFF);
  uint16_t result = FindNameHash(KD_HashCode_String_GetA(bytes, len, true));
  if (bytes != local) KDMEM_DefaultFree(bytes, 0);
  return result;
}
