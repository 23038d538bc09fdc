// Percent-encoding of URLs and URIs.
//
// Both encoders escape the same set: the bytes 0x00-0x20 (controls and space), '"', '#', '%',
// '<', '>', '[', '\', ']', '^', '`', '{', '|', '}', '~' and 0x7F, and every byte from 0x80 on.
// An escaped byte is written as '%' and two upper-case hex digits; every other byte is copied.
// They differ in how characters become bytes: the URL forms use the current locale (the default
// character map, char_map.h), the URI forms UTF-8.
//
// The decoders replace each '%' followed by two hex digits (either case) with the byte they
// give; every other byte, a '%' without two hex digits after it included, is kept as it is. The
// bytes are then read back as characters. Decoding never fails; a failed allocation gives the
// null string.
#ifndef NORVANE_TEXT_URL_TEXT_H_
#define NORVANE_TEXT_URL_TEXT_H_

#include "norvane/config.h"
#include "norvane/text/byte_string.h"
#include "norvane/text/wide_string.h"

// KD_UrlEncode converts each character of url on its own with CKD_ByteString::FromUnicode and
// escapes its bytes when the character is above 0x7F or in the set. A character the locale cannot
// represent, and U+0000, give no bytes and so vanish ("C" locale: every non-ASCII character).
NORVANE_API CKD_ByteString KD_UrlEncode(const CKD_WideString& url);
// KD_UrlDecode decodes the escapes and converts the bytes with CKD_WideString::FromLocal (current
// locale), which stops at a 0 byte and gives the null string for bytes the locale cannot read.
NORVANE_API CKD_WideString KD_UrlDecode(const CKD_ByteString& url);

// KD_EncodeURI encodes uri as UTF-8 (CKD_WideString::UTF8Encode) and escapes the bytes in the set
// ("\u00E9" gives "%C3%A9").
NORVANE_API CKD_ByteString KD_EncodeURI(const CKD_WideString& uri);
// KD_DecodeURI decodes the escapes and reads the bytes as UTF-8 (CKD_WideString::FromUTF8), so
// KD_DecodeURI(KD_EncodeURI(s)) is s for every s of code points from 0 to 0x7FFFFFFF.
NORVANE_API CKD_WideString KD_DecodeURI(const CKD_ByteString& uri);

#endif  // NORVANE_TEXT_URL_TEXT_H_
