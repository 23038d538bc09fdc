#include "norvane/text/wide_string.h"

#include <climits>
#include <cstring>
#include <cwchar>

#include "norvane/runtime/sys_helpers.h"
#include "norvane/text/string_core_internal.h"

namespace {

namespace kt = kdtext;

constexpr wchar_t kWhitespace[] = L"\t\n\v\f\r ";

int TextLength(const wchar_t* text) { return text ? static_cast<int>(wcslen(text)) : 0; }

}  // namespace

void CKD_WideString::FreeData(CKD_WideStringData* data) { kt::FreeRecord<wchar_t>(data); }

// Construction and assignment.

void CKD_WideString::InitStr(const wchar_t* text, int len) {
  if (text && len < 0) len = static_cast<int>(wcslen(text));
  m_pData = text ? kt::Copy<wchar_t>(text, len) : nullptr;
}

CKD_WideString::CKD_WideString(wchar_t ch) { InitStr(&ch, 1); }

CKD_WideString::CKD_WideString(const wchar_t* text, int len) { InitStr(text, len); }

CKD_WideString::CKD_WideString(const CKD_WideStringC& view) { InitStr(view.GetPtr(), view.GetLength()); }

CKD_WideString::CKD_WideString(const CKD_WideStringC& a, const CKD_WideStringC& b)
    : m_pData(kt::Concat<wchar_t>(a.GetPtr(), a.GetLength(), b.GetPtr(), b.GetLength())) {}

CKD_WideString& CKD_WideString::operator=(const CKD_WideString& src) {
  kt::Assign<wchar_t>(m_pData, src.m_pData);
  return *this;
}

CKD_WideString& CKD_WideString::operator=(const wchar_t* text) {
  AssignCopy(TextLength(text), text);
  return *this;
}

CKD_WideString& CKD_WideString::operator=(const CKD_WideStringC& view) {
  AssignCopy(view.GetLength(), view.GetPtr());
  return *this;
}

void CKD_WideString::Empty() {
  Release(m_pData);
  m_pData = nullptr;
}

void CKD_WideString::AssignCopy(int len, const wchar_t* src) { kt::AssignCopy<wchar_t>(m_pData, len, src); }

// Concatenation.

void CKD_WideString::ConcatInPlace(int len, const wchar_t* src) {
  if (len <= 0 || !src) return;
  if (!m_pData) {
    m_pData = kt::Copy<wchar_t>(src, len);
    return;
  }
  int cur = m_pData->m_nDataLength;
  if (m_pData->m_nRefs < 2 && static_cast<long long>(cur) + len <= m_pData->m_nAllocLength) {
    kt::CopyChars(m_pData->GetChars() + cur, src, len);
    kt::SetLength<wchar_t>(m_pData, cur + len);
    return;
  }
  ConcatCopy(cur, m_pData->GetChars(), len, src);
}

void CKD_WideString::ConcatCopy(int len1, const wchar_t* s1, int len2, const wchar_t* s2) {
  long long need = static_cast<long long>(len1) + len2;
  long long alloc = m_pData && m_pData->m_nAllocLength >= 2 ? m_pData->m_nAllocLength : 2;
  do {
    alloc += alloc / 2;  // times 1.5, truncated
  } while (alloc < need);
  CKD_WideStringData* r = nullptr;
  if (alloc <= INT_MAX && len1 >= 0 && len2 >= 0) r = kt::NewRecord<wchar_t>(alloc);
  if (r) {
    // The sources may lie in the record being replaced: copy before releasing it.
    kt::CopyChars(r->GetChars(), s1, len1);
    kt::CopyChars(r->GetChars() + len1, s2, len2);
    kt::SetLength<wchar_t>(r, static_cast<int>(need));
  }
  Release(m_pData);
  m_pData = r;
}

CKD_WideString& CKD_WideString::operator+=(const wchar_t* text) {
  ConcatInPlace(TextLength(text), text);
  return *this;
}

CKD_WideString& CKD_WideString::operator+=(const CKD_WideString& str) {
  ConcatInPlace(str.GetLength(), str.c_str());
  return *this;
}

CKD_WideString& CKD_WideString::operator+=(const CKD_WideStringC& view) {
  ConcatInPlace(view.GetLength(), view.GetPtr());
  return *this;
}

// Comparison.

bool CKD_WideString::Equal(const CKD_WideStringC& str) const { return CKD_WideStringC(*this) == str; }

int CKD_WideString::Compare(const CKD_WideString& str) const {
  if (!m_pData) return str.m_pData ? -1 : 0;
  if (!str.m_pData) return 1;
  int len = m_pData->m_nDataLength, other = str.m_pData->m_nDataLength;
  int common = len < other ? len : other;
  const wchar_t* a = m_pData->GetChars();
  const wchar_t* b = str.m_pData->GetChars();
  for (int i = 0; i < common; ++i) {
    // As signed 32-bit values, whatever the signedness of wchar_t on the platform (unsigned on ARM64).
    if (a[i] != b[i]) return static_cast<int32_t>(a[i]) < static_cast<int32_t>(b[i]) ? -1 : 1;
  }
  return len < other ? -1 : len > other ? 1 : 0;
}

int CKD_WideString::Compare(const wchar_t* text) const { return wcscmp(c_str(), text ? text : L""); }

int CKD_WideString::CompareNoCase(const wchar_t* text) const {
  if (!m_pData) return !text || !*text ? 0 : -1;
  return KDSYS_wcsicmp(m_pData->GetChars(), text);
}

// Buffer access.

wchar_t* CKD_WideString::GetBuffer(int minLen) { return kt::GetBuffer<wchar_t>(m_pData, minLen); }

void CKD_WideString::ReleaseBuffer(int len) { kt::ReleaseBuffer<wchar_t>(m_pData, len); }

wchar_t* CKD_WideString::LockBuffer() { return kt::LockBuffer<wchar_t>(m_pData); }

void CKD_WideString::Reserve(int len) {
  if (m_pData && m_pData->m_nRefs < 2 && m_pData->m_nAllocLength >= len) return;
  if (!m_pData && len <= 0) return;
  int cur = GetLength();
  CKD_WideStringData* r = kt::NewRecord<wchar_t>(len > cur ? len : cur);
  if (r) {
    kt::CopyChars(r->GetChars(), c_str(), cur + 1);
    r->m_nDataLength = cur;
  }
  Release(m_pData);
  m_pData = r;
}

void CKD_WideString::CopyBeforeWrite() { kt::CopyBeforeWrite<wchar_t>(m_pData); }

void CKD_WideString::AllocBeforeWrite(int len) { kt::AllocBeforeWrite<wchar_t>(m_pData, len); }

void CKD_WideString::SetAt(int index, wchar_t ch) { kt::SetAt<wchar_t>(m_pData, index, ch); }

void CKD_WideString::AllocCopy(CKD_WideString& dest, int copyLen, int copyIndex, int extraLen) const {
  kt::AllocCopy<wchar_t>(m_pData, dest.m_pData, copyLen, copyIndex, extraLen);
}

// Editing.

int CKD_WideString::Delete(int index, int count) { return kt::Delete<wchar_t>(m_pData, index, count); }

int CKD_WideString::Insert(int index, wchar_t ch) { return kt::Insert<wchar_t>(m_pData, index, ch); }

int CKD_WideString::Remove(wchar_t ch) { return kt::Remove<wchar_t>(m_pData, ch); }

int CKD_WideString::Replace(const wchar_t* oldText, const wchar_t* newText) {
  return kt::Replace<wchar_t>(m_pData, oldText, TextLength(oldText), newText, TextLength(newText));
}

void CKD_WideString::MakeLower() {
  CopyBeforeWrite();
  if (m_pData) KDSYS_wcslwr(m_pData->GetChars());
}

void CKD_WideString::MakeUpper() {
  CopyBeforeWrite();
  if (m_pData) KDSYS_wcsupr(m_pData->GetChars());
}

void CKD_WideString::TrimRight(const wchar_t* targets) {
  kt::TrimRight<wchar_t>(m_pData, targets, TextLength(targets));
}
void CKD_WideString::TrimRight(wchar_t target) { kt::TrimRight<wchar_t>(m_pData, &target, 1); }
void CKD_WideString::TrimRight() { kt::TrimRight<wchar_t>(m_pData, kWhitespace, 6); }
void CKD_WideString::TrimLeft(const wchar_t* targets) { kt::TrimLeft<wchar_t>(m_pData, targets, TextLength(targets)); }
void CKD_WideString::TrimLeft(wchar_t target) { kt::TrimLeft<wchar_t>(m_pData, &target, 1); }
void CKD_WideString::TrimLeft() { kt::TrimLeft<wchar_t>(m_pData, kWhitespace, 6); }

// Extraction.

CKD_WideString CKD_WideString::Mid(int first) const {
  long long count = static_cast<long long>(GetLength()) - first;
  return Mid(first, count > INT_MAX ? INT_MAX : static_cast<int>(count));
}

CKD_WideString CKD_WideString::Mid(int first, int count) const {
  CKD_WideString r;
  r.m_pData = kt::Mid<wchar_t>(m_pData, first, count);
  return r;
}

CKD_WideString CKD_WideString::Left(int count) const { return Mid(0, count); }

CKD_WideString CKD_WideString::Right(int count) const {
  int len = GetLength();
  if (count < 0) count = 0;
  return count >= len ? Mid(0, len) : Mid(len - count, count);
}

// Searching and numbers.

int CKD_WideString::Find(const wchar_t* sub, int start) const {
  if (!m_pData || !sub || start > m_pData->m_nDataLength) return -1;
  if (start < 0) start = 0;
  const wchar_t* chars = m_pData->GetChars();
  const wchar_t* at = wcsstr(chars + start, sub);
  return at ? static_cast<int>(at - chars) : -1;
}

int CKD_WideString::Find(wchar_t ch, int start) const {
  if (!m_pData || start > m_pData->m_nDataLength) return -1;
  if (start < 0) start = 0;
  const wchar_t* chars = m_pData->GetChars();
  const wchar_t* at = wcschr(chars + start, ch);
  return at ? static_cast<int>(at - chars) : -1;
}

int CKD_WideString::GetInteger() const { return m_pData ? KDSYS_wtoi(m_pData->GetChars()) : 0; }

// UTF-16.

CKD_ByteString CKD_WideString::UTF16LE_Encode(bool terminate) const {
  CKD_ByteString out;
  int len = GetLength();
  long long bytes = 2LL * len + (terminate ? 2 : 0);
  if (bytes == 0 || bytes > INT_MAX) return out;
  char* b = out.GetBuffer(static_cast<int>(bytes));
  if (!b) return out;
  const wchar_t* chars = c_str();
  for (int i = 0; i < len; ++i) {
    unsigned int c = static_cast<unsigned int>(chars[i]);
    b[2 * i] = static_cast<char>(c & 0xFF);
    b[2 * i + 1] = static_cast<char>((c >> 8) & 0xFF);
  }
  if (terminate) b[2 * len] = b[2 * len + 1] = 0;
  out.ReleaseBuffer(static_cast<int>(bytes));
  return out;
}

namespace {

// The units may come straight from a byte buffer, so they are read without assuming alignment.
inline unsigned int Unit(const unsigned short* text, int i) {
  unsigned short u;
  memcpy(&u, text + i, sizeof(u));
  return u;
}

CKD_WideString FromUTF16(const unsigned short* text, int len, bool bigEndian) {
  CKD_WideString out;
  if (!text || len == 0) return out;
  if (len < 0) len = CKD_WideString::WStringLength(text);
  if (len == 0) return out;
  CKD_WideStringData* r = kt::NewRecord<wchar_t>(len);
  if (!r) return out;
  wchar_t* chars = r->GetChars();
  for (int i = 0; i < len; ++i) {
    unsigned int u = Unit(text, i);
    if (bigEndian) u = ((u & 0xFF) << 8) | (u >> 8);
    chars[i] = static_cast<wchar_t>(u);
  }
  kt::StringAccess::Data(out) = r;
  return out;
}

}  // namespace

CKD_WideString CKD_WideString::FromUTF16LE(const unsigned short* text, int len) { return FromUTF16(text, len, false); }

CKD_WideString CKD_WideString::FromUTF16BE(const unsigned short* text, int len) { return FromUTF16(text, len, true); }

int CKD_WideString::WStringLength(const unsigned short* text) {
  if (!text) return 0;
  int n = 0;
  while (Unit(text, n) != 0) ++n;
  return n;
}
