// KD_DecodeString and KD_EncodeString: conversion between byte text in a code page and wide text,
// with the in/out length convention of KD_UTF8Decode (utf8.h): *srcLen and *dstLen give the
// lengths of the source and of the destination, and on return hold the units consumed and
// produced. Units are bytes on the byte side and characters on the wide side. With dst null or
// *dstLen below 1 nothing is written and everything is counted; otherwise the conversion stops
// when the next character does not fit. Both return -1 when srcLen or dstLen is null, and for a
// code page they do not know (both lengths then become 0); otherwise 1. A conversion that stops
// early still returns 1: compare *srcLen with the source length.
//
// The code pages:
// - 65001, UTF-8: handed to KD_UTF8Decode / KD_UTF8Encode as they are, with their rules (the
//   encoder keeps 16 bits of each character and counts the character that did not fit); strict
//   has no effect.
// - 1200 and 1201, UTF-16 little- and big-endian: two bytes per unit; a surrogate pair becomes one
//   character and characters above 0xFFFF become pairs. A lone surrogate is kept as it is; a
//   character above 0x10FFFF (or negative) becomes U+FFFD.
// - The fourteen table pages (code_page.h): a lead byte and the byte after it form one code. A
//   code without a mapping becomes the page's default Unicode value ('?') and counts as one
//   character of two bytes, unless its second byte is below 0x40 (no page has such trail bytes:
//   controls, digits, space, punctuation): then only the lead byte is consumed and that byte is
//   read again on its own, so a stray lead byte cannot swallow the text after it. A character
//   without a code becomes the page's default character code ('?').
// - In every direction, a character cut off by the end of the source (a lead byte, an odd byte of
//   UTF-16, a high surrogate, the start of a UTF-8 sequence) is left unconsumed, so that a caller
//   converting a stream can carry it into the next call.
//
// strict: when true, the conversion instead stops before the first unit it would have replaced
// (a code without a mapping, a character without a code, a lone surrogate, a character above
// 0x10FFFF); when false such units are replaced as described.
#ifndef NORVANE_TEXT_CODE_PAGE_CONVERT_H_
#define NORVANE_TEXT_CODE_PAGE_CONVERT_H_

#include <cstdint>

#include "norvane/config.h"

// The numbers of the code pages that are not tables.
enum { KD_CP_UTF16LE = 1200, KD_CP_UTF16BE = 1201, KD_CP_UTF8 = 65001 };

// KD_DecodeString converts byte text in codePage to wide text, KD_EncodeString wide text to
// codePage, as described at the top of this header: 1 when the code page is known (even when
// the conversion stopped early), -1 otherwise.
NORVANE_API int KD_DecodeString(uint16_t codePage, const char* src, int* srcLen, wchar_t* dst, int* dstLen,
                                bool strict);
NORVANE_API int KD_EncodeString(uint16_t codePage, const wchar_t* src, int* srcLen, char* dst, int* dstLen,
                                bool strict);

#endif  // NORVANE_TEXT_CODE_PAGE_CONVERT_H_
