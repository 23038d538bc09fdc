#include "norvane/text/text_buf.h"

#include "norvane/runtime/sys_helpers.h"
#include "norvane/text/string_l.h"

CKD_ByteTextBuf& CKD_ByteTextBuf::operator<<(const CKD_ByteStringC& str) {
  AppendBlock(str.GetPtr(), str.GetLength());
  return *this;
}

CKD_ByteTextBuf& CKD_ByteTextBuf::operator<<(const CKD_ByteTextBuf& buf) {
  AppendBlock(buf.GetBuffer(), buf.GetSize());  // also when buf is this buffer
  return *this;
}

CKD_ByteTextBuf& CKD_ByteTextBuf::operator<<(int value) {
  char digits[16];
  KDSYS_itoa(value, digits, 10);
  return *this << CKD_ByteStringC(digits);
}

CKD_ByteTextBuf& CKD_ByteTextBuf::operator<<(unsigned int value) {
  char digits[24];
  KDSYS_i64toa(static_cast<long long>(value), digits, 10);
  return *this << CKD_ByteStringC(digits);
}

CKD_ByteTextBuf& CKD_ByteTextBuf::operator<<(long long value) {
  char digits[24];
  KDSYS_i64toa(value, digits, 10);
  return *this << CKD_ByteStringC(digits);
}

CKD_ByteTextBuf& CKD_ByteTextBuf::operator=(const CKD_ByteStringC& str) {
  CopyData(str.GetPtr(), str.GetLength());
  return *this;
}

CKD_WideTextBuf& CKD_WideTextBuf::operator<<(const CKD_WideStringC& str) {
  AppendBlock(str.GetPtr(), 4 * str.GetLength());
  return *this;
}

CKD_WideTextBuf& CKD_WideTextBuf::operator<<(const CKD_WideTextBuf& buf) {
  AppendBlock(buf.GetBuffer(), buf.GetSize());  // also when buf is this buffer
  return *this;
}

CKD_WideTextBuf& CKD_WideTextBuf::operator<<(int value) {
  char digits[16];
  KDSYS_itoa(value, digits, 10);
  wchar_t wide[16];
  int n = 0;
  for (; digits[n]; ++n) wide[n] = static_cast<wchar_t>(static_cast<signed char>(digits[n]));
  AppendBlock(wide, 4 * n);
  return *this;
}

CKD_WideTextBuf& CKD_WideTextBuf::operator=(const CKD_WideStringC& str) {
  CopyData(str.GetPtr(), 4 * str.GetLength());
  return *this;
}

void CKD_WideTextBuf::GetWideStringL(CKD_WideStringL& out) const { out.Set(GetWideString(), m_pAllocator); }
