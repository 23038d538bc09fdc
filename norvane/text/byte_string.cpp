#include "norvane/text/byte_string.h"

#include <climits>
#include <cstring>

#include "norvane/runtime/kdcrt_stdio_internal.h"
#include "norvane/runtime/sys_helpers.h"
#include "norvane/text/string_core_internal.h"

namespace {

using Core = CKD_StringData;
namespace kt = kdtext;

constexpr char kWhitespace[] = "\t\n\v\f\r ";

}  // namespace

void CKD_ByteString::FreeData(CKD_StringData* data) { kt::FreeRecord<char>(data); }

// Construction and assignment.

CKD_ByteString::CKD_ByteString(char ch) : m_pData(kt::Copy<char>(&ch, 1)) {}

CKD_ByteString::CKD_ByteString(const char* text, int len) : m_pData(nullptr) {
  if (text && len < 0) len = static_cast<int>(strlen(text));
  if (text) m_pData = kt::Copy<char>(text, len);
}

CKD_ByteString::CKD_ByteString(const unsigned char* data, int len)
    : CKD_ByteString(reinterpret_cast<const char*>(data), len) {}

CKD_ByteString::CKD_ByteString(const CKD_ByteStringC& view) : m_pData(kt::Copy<char>(view.GetCStr(), view.GetLength())) {}

CKD_ByteString::CKD_ByteString(const CKD_ByteStringC& a, const CKD_ByteStringC& b)
    : m_pData(kt::Concat<char>(a.GetCStr(), a.GetLength(), b.GetCStr(), b.GetLength())) {}

CKD_ByteString& CKD_ByteString::operator=(const CKD_ByteString& src) {
  kt::Assign<char>(m_pData, src.m_pData);
  return *this;
}

CKD_ByteString& CKD_ByteString::operator=(const char* text) {
  AssignCopy(text ? static_cast<int>(strlen(text)) : 0, text);
  return *this;
}

CKD_ByteString& CKD_ByteString::operator=(const CKD_ByteStringC& view) {
  AssignCopy(view.GetLength(), view.GetCStr());
  return *this;
}

void CKD_ByteString::Load(const unsigned char* data, int len) { AssignCopy(len, reinterpret_cast<const char*>(data)); }

void CKD_ByteString::Empty() {
  Release(m_pData);
  m_pData = nullptr;
}

void CKD_ByteString::AssignCopy(int len, const char* src) { kt::AssignCopy<char>(m_pData, len, src); }

// Concatenation.

void CKD_ByteString::ConcatInPlace(int len, const char* src) {
  if (len <= 0 || !src) return;
  if (!m_pData) {
    m_pData = kt::Copy<char>(src, len);
    return;
  }
  int cur = m_pData->m_nDataLength;
  if (m_pData->m_nRefs < 2 && static_cast<long long>(cur) + len <= m_pData->m_nAllocLength) {
    kt::CopyChars(m_pData->GetChars() + cur, src, len);
    kt::SetLength<char>(m_pData, cur + len);
    return;
  }
  ConcatCopy(cur, m_pData->GetChars(), len, src);
}

void CKD_ByteString::ConcatCopy(int len1, const char* s1, int len2, const char* s2) {
  long long cur = GetLength();
  long long grow = cur / 2 > len2 ? cur / 2 : len2;
  long long alloc = cur + grow;
  long long need = static_cast<long long>(len1) + len2;
  CKD_StringData* r = nullptr;
  if (alloc > 0 && alloc <= INT_MAX && need <= alloc && len1 >= 0 && len2 >= 0) r = kt::NewRecord<char>(alloc);
  if (r) {
    // The sources may lie in the record being replaced: copy before releasing it.
    kt::CopyChars(r->GetChars(), s1, len1);
    kt::CopyChars(r->GetChars() + len1, s2, len2);
    kt::SetLength<char>(r, static_cast<int>(need));
  }
  Release(m_pData);
  m_pData = r;
}

CKD_ByteString& CKD_ByteString::operator+=(const char* text) {
  if (text) ConcatInPlace(static_cast<int>(strlen(text)), text);
  return *this;
}

CKD_ByteString& CKD_ByteString::operator+=(const CKD_ByteString& str) {
  ConcatInPlace(str.GetLength(), str.c_str());
  return *this;
}

CKD_ByteString& CKD_ByteString::operator+=(const CKD_ByteStringC& view) {
  ConcatInPlace(view.GetLength(), view.GetCStr());
  return *this;
}

// Comparison.

bool CKD_ByteString::Equal(const CKD_ByteStringC& str) const { return CKD_ByteStringC(*this) == str; }

bool CKD_ByteString::EqualNoCase(const CKD_ByteStringC& str) const {
  int len = GetLength();
  if (len != str.GetLength()) return false;
  const unsigned char* a = GetPtr();
  const unsigned char* b = str.GetPtr();
  for (int i = 0; i < len; ++i) {
    unsigned char x = a[i], y = b[i];
    if (x == y) continue;
    if (x >= 'A' && x <= 'Z') x += 32;
    if (y >= 'A' && y <= 'Z') y += 32;
    if (x != y) return false;
  }
  return true;
}

int CKD_ByteString::Compare(const CKD_ByteStringC& str) const {
  int len = GetLength(), other = str.GetLength();
  int common = len < other ? len : other;
  int c = common > 0 ? memcmp(GetPtr(), str.GetPtr(), static_cast<size_t>(common)) : 0;
  if (c != 0) return c < 0 ? -1 : 1;
  return len < other ? -1 : len > other ? 1 : 0;
}

// Buffer access.

char* CKD_ByteString::GetBuffer(int minLen) { return kt::GetBuffer<char>(m_pData, minLen); }

void CKD_ByteString::ReleaseBuffer(int len) { kt::ReleaseBuffer<char>(m_pData, len); }

char* CKD_ByteString::LockBuffer() { return kt::LockBuffer<char>(m_pData); }

void CKD_ByteString::Reserve(int len) {
  GetBuffer(len);
  ReleaseBuffer(GetLength());
}

void CKD_ByteString::CopyBeforeWrite() { kt::CopyBeforeWrite<char>(m_pData); }

void CKD_ByteString::AllocBeforeWrite(int len) { kt::AllocBeforeWrite<char>(m_pData, len); }

void CKD_ByteString::SetAt(int index, char ch) { kt::SetAt<char>(m_pData, index, ch); }

void CKD_ByteString::AllocCopy(CKD_ByteString& dest, int copyLen, int copyIndex, int extraLen) const {
  kt::AllocCopy<char>(m_pData, dest.m_pData, copyLen, copyIndex, extraLen);
}

// Editing.

int CKD_ByteString::Delete(int index, int count) { return kt::Delete<char>(m_pData, index, count); }

int CKD_ByteString::Insert(int index, char ch) { return kt::Insert<char>(m_pData, index, ch); }

int CKD_ByteString::Remove(char ch) { return kt::Remove<char>(m_pData, ch); }

int CKD_ByteString::Replace(const CKD_ByteStringC& oldText, const CKD_ByteStringC& newText) {
  return kt::Replace<char>(m_pData, oldText.GetCStr(), oldText.GetLength(), newText.GetCStr(), newText.GetLength());
}

void CKD_ByteString::MakeLower() {
  CopyBeforeWrite();
  if (m_pData) KDSYS_strlwr(m_pData->GetChars());
}

void CKD_ByteString::MakeUpper() {
  CopyBeforeWrite();
  if (m_pData) KDSYS_strupr(m_pData->GetChars());
}

void CKD_ByteString::TrimRight(const CKD_ByteStringC& targets) {
  kt::TrimRight<char>(m_pData, targets.GetCStr(), targets.GetLength());
}
void CKD_ByteString::TrimRight(char target) { kt::TrimRight<char>(m_pData, &target, 1); }
void CKD_ByteString::TrimRight() { kt::TrimRight<char>(m_pData, kWhitespace, 6); }
void CKD_ByteString::TrimLeft(const CKD_ByteStringC& targets) {
  kt::TrimLeft<char>(m_pData, targets.GetCStr(), targets.GetLength());
}
void CKD_ByteString::TrimLeft(char target) { kt::TrimLeft<char>(m_pData, &target, 1); }
void CKD_ByteString::TrimLeft() { kt::TrimLeft<char>(m_pData, kWhitespace, 6); }

// Extraction.

CKD_ByteString CKD_ByteString::Mid(int first) const {
  long long count = static_cast<long long>(GetLength()) - first;
  return Mid(first, count > INT_MAX ? INT_MAX : static_cast<int>(count));
}

CKD_ByteString CKD_ByteString::Mid(int first, int count) const {
  CKD_ByteString r;
  r.m_pData = kt::Mid<char>(m_pData, first, count);
  return r;
}

CKD_ByteString CKD_ByteString::Left(int count) const { return Mid(0, count); }

CKD_ByteString CKD_ByteString::Right(int count) const {
  int len = GetLength();
  if (count < 0) count = 0;
  return count >= len ? Mid(0, len) : Mid(len - count, count);
}

// Searching.

int CKD_ByteString::Find(char ch, int start) const {
  if (!m_pData || start >= m_pData->m_nDataLength) return -1;
  if (start < 0) start = 0;
  const char* chars = m_pData->GetChars();
  const char* at = strchr(chars + start, ch);
  return at ? static_cast<int>(at - chars) : -1;
}

int CKD_ByteString::ReverseFind(char ch) const {
  if (!m_pData) return -1;
  const char* chars = m_pData->GetChars();
  const void* at = memrchr(chars, static_cast<unsigned char>(ch), static_cast<size_t>(m_pData->m_nDataLength));
  return at ? static_cast<int>(static_cast<const char*>(at) - chars) : -1;
}

int CKD_ByteString::Find(const CKD_ByteStringC& sub, int start) const {
  if (!m_pData || start > m_pData->m_nDataLength) return -1;
  if (start < 0) start = 0;
  const char* chars = m_pData->GetChars();
  const char* at = KD_strstr(chars + start, m_pData->m_nDataLength - start, sub.GetCStr(), sub.GetLength());
  return at ? static_cast<int>(at - chars) : -1;
}

const char* KD_strstr(const char* haystack, int haystackLen, const char* needle, int needleLen) {
  if (!haystack || !needle) return nullptr;
  return kt::Search<char>(haystack, haystackLen, needle, needleLen);
}

// Numbers and files.

CKD_ByteString CKD_ByteString::FormatInteger(int value, unsigned flags) {
  static const char kLower[] = "0123456789abcdef";
  static const char kUpper[] = "0123456789ABCDEF";
  char scratch[32];
  int pos = sizeof(scratch);
  bool negative = (flags & FORMAT_SIGNED) && value < 0;
  unsigned int u = negative ? 0u - static_cast<unsigned int>(value) : static_cast<unsigned int>(value);
  unsigned int base = (flags & FORMAT_HEX) ? 16 : 10;
  const char* digits = (flags & (FORMAT_HEX | FORMAT_UPPERCASE)) == (FORMAT_HEX | FORMAT_UPPERCASE) ? kUpper : kLower;
  do {
    scratch[--pos] = digits[u % base];
    u /= base;
  } while (u != 0);
  if (negative) scratch[--pos] = '-';
  return CKD_ByteString(scratch + pos, static_cast<int>(sizeof(scratch)) - pos);
}

CKD_ByteString CKD_ByteString::FormatInteger64(long long value) {
  char scratch[32];
  return CKD_ByteString(KDSYS_i64toa(value, scratch, 10));
}

CKD_ByteString CKD_ByteString::LoadFromFile(const CKD_ByteStringC& path) {
  CKD_ByteString result;
  CKD_ByteString name(path);  // the view need not be terminated
  if (name.IsEmpty()) return result;
  KDCRT_StdFile* file = KDCRT_StdFile_Open(name.c_str(), "rb");
  if (!file) return result;
  long long size = KDCRT_StdFile_Size(file);
  if (size > 0 && size <= INT_MAX) {
    int n = static_cast<int>(size);
    if (char* buffer = result.GetBuffer(n)) {
      size_t got = KDCRT_StdFile_Read(file, buffer, static_cast<size_t>(n));
      // A file that shrank since it was measured gives what was read, never unread bytes.
      result.ReleaseBuffer(static_cast<int>(got));
    }
  }
  KDCRT_StdFile_Close(file);
  return result;
}
