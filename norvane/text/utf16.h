// 16-bit unit conversions. Each 16-bit unit is one character and each character one unit: these
// functions neither combine nor produce surrogate pairs. A null buffer or a count below 1 does
// nothing.
#ifndef NORVANE_TEXT_UTF16_H_
#define NORVANE_TEXT_UTF16_H_

#include "norvane/config.h"

// KD_UTF16ToWChar widens count 16-bit units at the start of buffer, in place, into count
// characters; it works from the end backwards, and buffer must hold 4 * count bytes.
NORVANE_API void KD_UTF16ToWChar(void* buffer, int count);
NORVANE_API void KD_UTF16ToWCharCopy(const unsigned short* src, wchar_t* dst, int count);
// KD_WCharToUTF16 narrows count characters in place to their low 16 bits, from the front.
NORVANE_API void KD_WCharToUTF16(void* buffer, int count);
NORVANE_API void KD_WCharToUTF16Copy(const wchar_t* src, unsigned short* dst, int count);
// KD_SwapByteOrder replaces each character by bits 8..15 of its value, zero-extended: the
// second-lowest byte moves down and every other byte is dropped. (It is not a full two-byte swap;
// callers rely on exactly this.)
NORVANE_API void KD_SwapByteOrder(wchar_t* text, int count);
NORVANE_API void KD_SwapByteOrderCopy(const wchar_t* src, wchar_t* dst, int count);

#endif  // NORVANE_TEXT_UTF16_H_
