// Base64 (the RFC 4648 alphabet A-Z a-z 0-9 + /, padding '=') between bytes and byte or wide
// text. No line breaks are written and none are expected.
//
// The wide forms map each 6-bit value through an installed function (by default
// KDCRT_DefBase64Encoder / KDCRT_DefBase64Decoder) and pad with the padding character given at
// construction; the forms on byte text (char) always use the standard alphabet and '='.
//
// Decoding does not validate: a character outside the alphabet (or padding or white space inside
// the text) decodes as the value 0xFF would, giving meaningless bytes rather than an error. Check
// untrusted text first if it matters. Lengths are int; results are counts of characters or bytes.
#ifndef NORVANE_STREAMS_BASE64_H_
#define NORVANE_STREAMS_BASE64_H_

#include <cstddef>
#include <cstdint>

#include "norvane/config.h"
#include "norvane/memory/object.h"
#include "norvane/text/byte_string.h"
#include "norvane/text/wide_string.h"

// KDCRT_DefBase64Encoder returns the alphabet character for value & 63.
NORVANE_API wchar_t KDCRT_DefBase64Encoder(unsigned int value);
// KDCRT_DefBase64Decoder returns the 6-bit value of the character ch & 127, or 0xFF when that is
// not an alphabet character. (Characters from 128 up are read by their low 7 bits.)
NORVANE_API uint8_t KDCRT_DefBase64Decoder(wchar_t ch);

// CKD_Base64Encoder writes Base64 text of bytes, with an installable mapping for its wide forms.
class NORVANE_API CKD_Base64Encoder : public CKD_Object {
 public:
  using EncodeFunction = wchar_t (*)(unsigned int);

  // pad is the wide forms' padding character (callers pass '=').
  explicit CKD_Base64Encoder(wchar_t pad = L'=') : m_pEncoder(KDCRT_DefBase64Encoder), m_Padding(pad) {}
  // SetEncoder installs the wide forms' mapping; null restores the default.
  void SetEncoder(EncodeFunction encoder) { m_pEncoder = encoder ? encoder : KDCRT_DefBase64Encoder; }

  // Each Encode writes 4 characters per 3 bytes, the last group padded to 4, and returns the
  // characters written; with a null destination, the number it would write. A length below 1,
  // a null source, or a result longer than INT_MAX gives 0. The destination is not terminated.
  //
  // The byte-text form: the standard alphabet and '=', whatever is installed.
  int Encode(const uint8_t* src, int len, char* dst) const;
  // The wide form: the installed function and padding character.
  int Encode(const uint8_t* src, int len, wchar_t* dst) const;
  // The size needed, when the destination's type does not matter.
  int Encode(const uint8_t* src, int len, std::nullptr_t) const { return Encode(src, len, static_cast<char*>(nullptr)); }
  // Encode into a wide string (the wide form); dst becomes the text.
  int Encode(const CKD_ByteStringC& src, CKD_WideString& dst) const;
  // Encode with the wide form, then store the text as UTF-8 in dst; returns dst's length.
  int Encode(const CKD_ByteStringC& src, CKD_ByteString& dst) const;

 private:
  friend struct KDBase64Layout;

  EncodeFunction m_pEncoder;
  wchar_t m_Padding;
};

// CKD_Base64Decoder reads bytes back from Base64 text, with an installable mapping for its wide
// forms; it does not validate.
class NORVANE_API CKD_Base64Decoder : public CKD_Object {
 public:
  using DecodeFunction = uint8_t (*)(wchar_t);

  // pad is the wide forms' padding character (callers pass '=').
  explicit CKD_Base64Decoder(wchar_t pad = L'=') : m_pDecoder(KDCRT_DefBase64Decoder), m_Padding(pad) {}
  // SetDecoder installs the wide forms' mapping; null restores the default.
  void SetDecoder(DecodeFunction decoder) { m_pDecoder = decoder ? decoder : KDCRT_DefBase64Decoder; }

  // Each Decode first drops trailing padding characters, then turns every 4 characters into 3
  // bytes; a final 3 characters give 2 bytes, 2 give 1, and a single one gives 1 byte (its value
  // shifted left by 2). Returns the bytes written; with a null destination, the number it would
  // write (the destination must hold that many). A length below 1 gives 0.
  //
  // The byte-text form: the standard alphabet and '='; bytes from 0x80 up read as 0xFF.
  int Decode(const char* src, int len, uint8_t* dst) const;
  // The wide form: the installed function and padding character.
  int Decode(const wchar_t* src, int len, uint8_t* dst) const;
  // Decode wide text (the wide form); dst becomes the bytes.
  int Decode(const CKD_WideStringC& src, CKD_ByteString& dst) const;
  // Decode UTF-8 text: converted to wide text (CKD_WideString::FromUTF8), then the wide form.
  int Decode(const CKD_ByteStringC& src, CKD_ByteString& dst) const;

 private:
  friend struct KDBase64Layout;

  DecodeFunction m_pDecoder;
  wchar_t m_Padding;
};

#endif  // NORVANE_STREAMS_BASE64_H_
