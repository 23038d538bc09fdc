// KDSYS_ helpers: small functions named after the classic C library calls they stand for, with
// Norvane's own fixed behaviour. Several deliberately differ from their namesakes; each
// difference is stated beside the function and is relied upon by callers.
//
// Pointer arguments are checked: a null string or buffer makes a function return 0 or null and
// write nothing, unless stated otherwise.
#ifndef NORVANE_RUNTIME_SYS_HELPERS_H_
#define NORVANE_RUNTIME_SYS_HELPERS_H_

#include <cstdarg>
#include <cstddef>

#include "norvane/config.h"

// Integer parsing. An optional leading '+' or '-' is taken, but no white space is skipped; the
// result is 0 unless a decimal digit follows. Digits accumulate until the first non-digit,
// wrapping silently in the result's width; '-' negates the result.
NORVANE_API int KDSYS_atoi(const char* str);
NORVANE_API int KDSYS_wtoi(const wchar_t* str);
NORVANE_API long long KDSYS_atoi64(const char* str);
NORVANE_API long long KDSYS_wtoi64(const wchar_t* str);

// Integer printing. The radix is ignored: the text is always decimal, with a leading '-' for
// negative values, terminated with 0. The buffer (room for 12, 21 characters) is returned.
NORVANE_API char* KDSYS_itoa(int value, char* buffer, int radix);
NORVANE_API char* KDSYS_i64toa(long long value, char* buffer, int radix);
NORVANE_API wchar_t* KDSYS_i64tow(long long value, wchar_t* buffer, int radix);

// Case mapping in place, up to the terminator. Only ASCII letters change; bytes from 0x80 and
// non-ASCII wide characters stay as they are. The string is returned.
NORVANE_API char* KDSYS_strlwr(char* str);
NORVANE_API char* KDSYS_strupr(char* str);
NORVANE_API wchar_t* KDSYS_wcslwr(wchar_t* str);
NORVANE_API wchar_t* KDSYS_wcsupr(wchar_t* str);

// Case-insensitive comparison under the ASCII folding above. The scan stops where the folded
// characters differ or the first string ends; the result is folded a minus folded b (bytes taken
// unsigned). The counted forms return 0 after n equal characters. A null string gives 0.
NORVANE_API int KDSYS_stricmp(const char* a, const char* b);
NORVANE_API int KDSYS_strnicmp(const char* a, const char* b, size_t n);
NORVANE_API int KDSYS_wcsicmp(const wchar_t* a, const wchar_t* b);
NORVANE_API int KDSYS_wcsnicmp(const wchar_t* a, const wchar_t* b, size_t n);

// KDSYS_wcsncpy copies up to and including the terminator, or n characters, whichever comes
// first. Unlike wcsncpy it never pads dst with zeros, and when n is reached first no terminator
// is written. dst is returned.
NORVANE_API wchar_t* KDSYS_wcsncpy(wchar_t* dst, const wchar_t* src, size_t n);

// KDSYS_wcstof parses [+|-]digits[.digits] from at most len characters (negative len: to the
// terminator), accumulating in single precision. There is no exponent, no white-space skipping
// and no spelling of infinity or NaN: parsing stops at the first other character. used, when not
// null, receives the count of characters consumed (sign included). A leading '-' flips the sign
// bit, so "-0" gives negative zero. A len of 0 returns 0 and leaves used unwritten.
NORVANE_API float KDSYS_wcstof(const wchar_t* str, int len, int* used);

// Memory blocks. KDSYS_memcpy32 copies only when both pointers are non-null and n is non-zero,
// and returns dst in every case. The others are memcmp, memset, memset and memmove (the 32 and 8
// of the names are historical: sizes are pointer-wide and the fill value is a byte).
NORVANE_API void* KDSYS_memcpy32(void* dst, const void* src, size_t n);
NORVANE_API int KDSYS_memcmp32(const void* a, const void* b, size_t n);
NORVANE_API void* KDSYS_memset32(void* dst, int value, size_t n);
NORVANE_API void* KDSYS_memset8(void* dst, int value, size_t n);
NORVANE_API void* KDSYS_memmove32(void* dst, const void* src, size_t n);

// Single-precision mathematics. KDSYS_logb is the logarithm of x to base b, ln x / ln b.
NORVANE_API float KDSYS_tan(float x);
NORVANE_API float KDSYS_logb(float b, float x);

// KDSYS_round rounds to the nearest int, halves away from zero: f + 0.5 (or f - 0.5 below zero)
// computed in single precision, then truncated. NaN gives 0; values beyond the int range give
// INT_MIN or INT_MAX.
NORVANE_API int KDSYS_round(float f);

// Platform forwards. The two conversions use the C library's current-locale conversion
// (wcstombs, mbstowcs into at most dstLen units; with a null dst they return the length
// needed); the code page, the flags and the source length are ignored, and a failed conversion
// gives 0.
NORVANE_API int KDSYS_WideCharToMultiByte(unsigned int codePage, unsigned int flags, const wchar_t* src,
                                          int srcLen, char* dst, int dstLen);
NORVANE_API int KDSYS_MultiByteToWideChar(unsigned int codePage, unsigned int flags, const char* src,
                                          int srcLen, wchar_t* dst, int dstLen);
// KDSYS_GetFullPathName resolves nothing: if dst is null or the path's length is not below bufLen
// it returns length + 1 (the size needed); otherwise it copies the path unchanged, terminator
// included, and returns its length.
NORVANE_API unsigned int KDSYS_GetFullPathName(const char* path, unsigned int bufLen, char* dst);
// KDSYS_GetModuleFileName is not supported: it writes nothing and returns 0xFFFFFFFF.
NORVANE_API unsigned int KDSYS_GetModuleFileName(void* module, char* buffer, unsigned int size);
// _vsnprintf is vsnprintf.
NORVANE_API int _vsnprintf(char* buffer, size_t size, const char* format, va_list args);

#endif  // NORVANE_RUNTIME_SYS_HELPERS_H_
