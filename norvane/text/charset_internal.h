// Internal to the library: the table of code-page name hashes (code_page_names_generated.cpp).
#ifndef NORVANE_TEXT_CHARSET_INTERNAL_H_
#define NORVANE_TEXT_CHARSET_INTERNAL_H_

#include <cstdint>

struct KD_CodePageNameHash {
  uint32_t m_dwHash;  // KD_HashCode_String_GetA(name, len, true)
  uint16_t m_wCodePage;
};

enum { KD_CODEPAGE_NAME_COUNT = 255 };

// Sorted by hash; no two records share one.
extern const KD_CodePageNameHash g_CodePageNameHashes[KD_CODEPAGE_NAME_COUNT];

#endif  // NORVANE_TEXT_CHARSET_INTERNAL_H_
