// UTF-8 buffer conversions with explicit in/out lengths, and a validity test.
//
// The UTF-8 read and written here is the early six-byte form: lead bytes C0-FD announce one to
// five continuation bytes. Neither overlong forms, surrogate code points nor values above
// 0x10FFFF are rejected. The incremental coder objects and the string conversions built on the
// same rules are in utf8_coder.h.
#ifndef NORVANE_TEXT_UTF8_H_
#define NORVANE_TEXT_UTF8_H_

#include <cstdint>

#include "norvane/config.h"

// KD_UTF8Decode decodes *srcLen bytes at src into characters at dst.
//
// Lead bytes start a sequence (replacing an unfinished one), a byte below 0x80 drops an
// unfinished sequence and stands for itself, and each continuation byte adds its six bits; a
// completed sequence whose value is 0 gives U+FFFD. A continuation byte where no sequence is
// pending, and a byte FE or FF, end the conversion there. Characters are written only when dst is
// not null and *dstLen is above 0, and the conversion stops once *dstLen characters are written;
// otherwise it only counts. On return *srcLen is the number of bytes up to the end of the last
// complete character (a truncated sequence at the end is not counted) and *dstLen the number of
// characters produced or needed. *srcLen below 1 (or a null src) sets both to 0. Returns -1 when
// srcLen or dstLen is null, else 1.
NORVANE_API int KD_UTF8Decode(const char* src, int* srcLen, wchar_t* dst, int* dstLen);

// KD_UTF8Encode encodes *srcLen characters at src as UTF-8 at dst. Only the low 16 bits of each
// character are encoded, in 1, 2 or 3 bytes: a code point above 0xFFFF is truncated first. With
// no destination (dst null or *dstLen below 1) every character is counted. With one, each
// character's bytes are counted before the room is tested; the first that does not fit ends the
// conversion and is included in the counts returned (*srcLen characters, *dstLen bytes), so a
// returned *dstLen larger than the destination means the text did not fit. *srcLen below 1 (or a
// null src) sets both to 0. Returns -1 when srcLen or dstLen is null, else 1.
NORVANE_API int KD_UTF8Encode(const wchar_t* src, int* srcLen, char* dst, int* dstLen);

// KD_IsUTF8Data tells whether *len bytes at data are well-formed (six-byte) UTF-8. When *len is
// below 1 it answers true and leaves *len alone. Otherwise *len becomes the end of the last
// complete multi-byte sequence (0 for pure ASCII; ASCII after the last sequence does not count).
// A continuation byte where a lead is expected, FE, FF, or a byte other than a continuation inside
// a sequence answers false at once; a sequence cut off by the end of the data is not an error.
// A null len or data answers false.
NORVANE_API bool KD_IsUTF8Data(const uint8_t* data, int* len);

#endif  // NORVANE_TEXT_UTF8_H_
