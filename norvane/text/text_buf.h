// Text buffers: CKD_ByteTextBuf and CKD_WideTextBuf are CKD_BinaryBuf with stream-style appends
// of text and numbers. They add no fields. A wide text buffer stores 4-byte characters; its data
// size counts bytes, its length characters (data size / 4). Each operator appends and returns the
// buffer; when the buffer cannot grow, nothing is appended. Numbers are written in decimal with
// no terminator.
#ifndef NORVANE_TEXT_TEXT_BUF_H_
#define NORVANE_TEXT_TEXT_BUF_H_

#include <cstring>

#include "norvane/config.h"
#include "norvane/text/binary_buf.h"
#include "norvane/text/byte_string.h"
#include "norvane/text/wide_string.h"

class CKD_WideStringL;

// CKD_ByteTextBuf appends byte text and decimal numbers to a CKD_BinaryBuf; an append that cannot
// grow the buffer adds nothing.
class NORVANE_API CKD_ByteTextBuf : public CKD_BinaryBuf {
 public:
  explicit CKD_ByteTextBuf(IKD_Allocator* allocator = nullptr) : CKD_BinaryBuf(allocator) {}

  CKD_ByteTextBuf& operator<<(const CKD_ByteStringC& str);
  CKD_ByteTextBuf& operator<<(const CKD_ByteTextBuf& buf);
  CKD_ByteTextBuf& operator<<(int value);
  CKD_ByteTextBuf& operator<<(unsigned int value);
  CKD_ByteTextBuf& operator<<(long long value);
  // The value narrowed to float and written by KD_ftoa_s with precision 0 (number_text.h): the
  // shortest text that reads back as that float.
  CKD_ByteTextBuf& operator<<(double value);
  // operator= replaces the contents.
  CKD_ByteTextBuf& operator=(const CKD_ByteStringC& str);

  int GetLength() const { return GetSize(); }
};

// CKD_WideTextBuf appends wide text (4 bytes a character) and decimal numbers to a
// CKD_BinaryBuf; an append that cannot grow the buffer adds nothing.
class NORVANE_API CKD_WideTextBuf : public CKD_BinaryBuf {
 public:
  explicit CKD_WideTextBuf(IKD_Allocator* allocator = nullptr) : CKD_BinaryBuf(allocator) {}

  // AppendChar adds one character; false when the buffer cannot grow.
  bool AppendChar(wchar_t ch) {
    if (m_AllocSize - m_DataSize >= 4 && m_pBuffer) {
      memcpy(m_pBuffer + m_DataSize, &ch, sizeof ch);
      m_DataSize += 4;
      return true;
    }
    return AppendBlock(&ch, 4);
  }
  CKD_WideTextBuf& operator<<(const CKD_WideStringC& str);
  CKD_WideTextBuf& operator<<(const CKD_WideString& str) { return *this << CKD_WideStringC(str); }
  // A null text appends nothing.
  CKD_WideTextBuf& operator<<(const wchar_t* text) { return *this << CKD_WideStringC(text); }
  CKD_WideTextBuf& operator<<(const CKD_WideTextBuf& buf);
  // The decimal digits of value, one character per digit.
  CKD_WideTextBuf& operator<<(int value);
  // The text of the byte buffer's operator<<(double), one character per byte.
  CKD_WideTextBuf& operator<<(double value);
  CKD_WideTextBuf& operator=(const CKD_WideStringC& str);

  int GetLength() const { return GetSize() / 4; }
  wchar_t* GetChars() const { return reinterpret_cast<wchar_t*>(m_pBuffer); }
  // GetWideString views the characters (no copy; valid until the buffer changes).
  CKD_WideStringC GetWideString() const { return CKD_WideStringC(GetChars(), GetLength()); }
  // GetWideStringL copies the characters into out with this buffer's allocator.
  void GetWideStringL(CKD_WideStringL& out) const;
};

static_assert(sizeof(CKD_ByteTextBuf) == sizeof(CKD_BinaryBuf) && sizeof(CKD_WideTextBuf) == sizeof(CKD_BinaryBuf),
              "text buffers add no fields");

#endif  // NORVANE_TEXT_TEXT_BUF_H_
