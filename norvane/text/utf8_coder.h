// The UTF-8 coder objects, which convert one unit at a time into a buffer, and the conversions
// of whole texts built on their rules.
//
// CKD_UTF8Decoder never fails on malformed input: a byte below 0x80 drops an unfinished sequence
// and stands for itself; a lead byte (C0-FD, six-byte UTF-8) starts a sequence and drops an
// unfinished one; a continuation byte adds its six bits, and is ignored when nothing is pending;
// FE and FF are ignored; a sequence that completes with the value 0 (an overlong 0) gives U+FFFD.
// Overlong forms otherwise decode to their value.
//
// CKD_UTF8Encoder writes each character in 1 to 6 bytes (six-byte UTF-8, no surrogate or range
// check); characters with the top bit set (negative) are skipped.
//
// When their buffer cannot grow, the coders drop the unit and carry on.
#ifndef NORVANE_TEXT_UTF8_CODER_H_
#define NORVANE_TEXT_UTF8_CODER_H_

#include <cstdint>

#include "norvane/config.h"
#include "norvane/memory/object.h"
#include "norvane/text/binary_buf.h"
#include "norvane/text/byte_string.h"
#include "norvane/text/string_l.h"
#include "norvane/text/text_buf.h"
#include "norvane/text/wide_string.h"

// CKD_UTF8Decoder turns UTF-8 bytes, given one at a time, into characters appended to its wide
// text buffer, by the rules above; it never fails on malformed input.
class NORVANE_API CKD_UTF8Decoder : public CKD_Object {
 public:
  explicit CKD_UTF8Decoder(IKD_Allocator* allocator = nullptr) : m_PendingCount(0), m_CodePoint(0), m_Buffer(allocator) {}

  void Input(uint8_t byte);
  // AppendChar appends ch to the output as it is.
  void AppendChar(uint32_t ch) { m_Buffer.AppendChar(static_cast<wchar_t>(ch)); }
  // Clear empties the output and forgets a pending sequence.
  void Clear() {
    m_Buffer.Clear();
    m_PendingCount = 0;
  }
  // GetResult views the characters decoded so far.
  CKD_WideStringC GetResult() const { return m_Buffer.GetWideString(); }

 private:
  friend struct KDUTF8CoderLayout;
  uint32_t m_PendingCount;
  uint32_t m_CodePoint;
  CKD_WideTextBuf m_Buffer;
};

// CKD_UTF8Encoder turns characters, given one at a time, into UTF-8 bytes appended to its byte
// buffer, by the rules above.
class NORVANE_API CKD_UTF8Encoder : public CKD_Object {
 public:
  explicit CKD_UTF8Encoder(IKD_Allocator* allocator = nullptr) : m_Buffer(allocator) {}

  void Input(wchar_t ch);
  // GetResult views the bytes encoded so far.
  CKD_ByteStringC GetResult() const { return m_Buffer.GetByteString(); }
  // GetBuffer gives the buffer itself (to take its block over, for instance).
  CKD_BinaryBuf& GetBuffer() { return m_Buffer; }

 private:
  // Before each byte a full buffer grows by ExpandBuf(100).
  void PutByte(uint8_t byte);

  CKD_BinaryBuf m_Buffer;
};

// KD_UTF8Encode returns len characters of text (negative: up to the terminator) encoded as
// CKD_UTF8Encoder encodes them. A null text, or a result that cannot be allocated, gives the empty
// string.
NORVANE_API CKD_ByteString KD_UTF8Encode(const wchar_t* text, int len);
// The same into an allocator-bound string (emptied first with the same allocator).
NORVANE_API void KD_UTF8Encode(const wchar_t* text, int len, CKD_ByteStringL& out, IKD_Allocator* allocator);

#endif  // NORVANE_TEXT_UTF8_CODER_H_
