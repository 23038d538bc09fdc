#include "norvane/text/string_buf.h"

#include <cstring>

void CKD_StringBufBase::Copy(const CKD_ByteStringC& str) {
  int n = str.GetLength() < m_Limit ? str.GetLength() : m_Limit;
  if (n > 0) memmove(GetBuffer(), str.GetPtr(), static_cast<size_t>(n));
  m_Size = n > 0 ? n : 0;
}

void CKD_StringBufBase::Append(const CKD_ByteStringC& str) {
  int room = m_Limit - m_Size;
  int n = str.GetLength() < room ? str.GetLength() : room;
  if (n <= 0) return;
  memmove(GetBuffer() + m_Size, str.GetPtr(), static_cast<size_t>(n));
  m_Size += n;
}

void CKD_StringBufBase::Append(int value, unsigned flags) {
  static const char kLower[] = "0123456789abcdef";
  static const char kUpper[] = "0123456789ABCDEF";
  char scratch[32];
  int pos = sizeof(scratch);
  bool negative = (flags & CKD_ByteString::FORMAT_SIGNED) && value < 0;
  unsigned int u = negative ? 0u - static_cast<unsigned int>(value) : static_cast<unsigned int>(value);
  unsigned int base = (flags & CKD_ByteString::FORMAT_HEX) ? 16 : 10;
  const unsigned kHexUpper = CKD_ByteString::FORMAT_HEX | CKD_ByteString::FORMAT_UPPERCASE;
  const char* digits = (flags & kHexUpper) == kHexUpper ? kUpper : kLower;
  do {
    scratch[--pos] = digits[u % base];
    u /= base;
  } while (u != 0);
  if (negative) scratch[--pos] = '-';
  Append(CKD_ByteStringC(scratch + pos, static_cast<int>(sizeof(scratch)) - pos));
}
