// Charsets and code-page names: the Windows character-set numbers (as fonts carry them) to code
// pages and back, and code-page or charset names ("windows-1252", "shift_jis", "utf-8", ...) to
// code-page numbers. Every function answers 0xFFFF for what it does not know.
#ifndef NORVANE_TEXT_CHARSET_H_
#define NORVANE_TEXT_CHARSET_H_

#include <cstdint>

#include "norvane/config.h"

// KD_GetCodePageFromCharset returns the code page of a charset (0 -> 1252, 128 -> 932, ...).
NORVANE_API uint16_t KD_GetCodePageFromCharset(uint8_t charset);
// KD_GetCharsetFromCodePage returns the charset of a code page by a binary search over a table
// whose tail (the Macintosh pages) is kept in its historical, unsorted order: the search does not
// find 10003, 10005, 10007, 10008, 10021 and 10029, which answer 0xFFFF.
NORVANE_API uint16_t KD_GetCharsetFromCodePage(uint16_t codePage);

// KD_GetCodePageFromStringA returns the code page a name stands for, compared without regard to
// ASCII case: len bytes of name (negative: up to the terminator). A null or empty name gives
// 0xFFFF. Names are recognised by their KD_HashCode_String_GetA hash alone, so a name that is not
// in the table but shares a hash with one that is answers that one's page. Besides the fourteen
// table pages, UTF-8 (65001) and UTF-16 (1200 little-endian, 1201 big-endian), the table knows
// other common encodings by their Windows numbers (437, 850, the Macintosh pages, koi8-r, the
// ISO 8859 parts, ...); iso-8859-1, latin1 and us-ascii name 1252, iso-8859-9 names 1254 and
// tis-620 names 874, as on the web.
NORVANE_API uint16_t KD_GetCodePageFromStringA(const char* name, int len = -1);
// KD_GetCodePageFormStringW is the same for a wide name, of which the low byte of each character
// is hashed.
NORVANE_API uint16_t KD_GetCodePageFormStringW(const wchar_t* name, int len = -1);

#endif  // NORVANE_TEXT_CHARSET_H_
