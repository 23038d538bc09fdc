#include "norvane/text/string_l.h"

#include <cstring>
#include <cwchar>

#include "norvane/memory/memory_internal.h"
#include "norvane/runtime/sys_helpers.h"

struct KDStringLLayout {
  static_assert(offsetof(CKD_ByteStringL, m_Ptr) == 0 && offsetof(CKD_ByteStringL, m_Length) == 8 &&
                    offsetof(CKD_WideStringL, m_Ptr) == 0 && offsetof(CKD_WideStringL, m_Length) == 8,
                "allocator-bound string field order");
};

void CKD_ByteStringL::Empty(IKD_Allocator* allocator) {
  if (m_Ptr) kdmem::FreeTo(allocator, m_Ptr);
  m_Ptr = nullptr;
  m_Length = 0;
}

char* CKD_ByteStringL::AllocBuffer(int len, IKD_Allocator* allocator) {
  Empty(allocator);
  if (len < 0) return nullptr;
  size_t bytes = static_cast<size_t>(len) + 1;
  char* p = static_cast<char*>(kdmem::AllocFrom(allocator, bytes, 1));
  if (!p) return nullptr;
  p[len] = 0;
  m_Ptr = p;
  m_Length = len;
  return p;
}

// Set may be given a view of the string's own characters: they are freed only after the copy.
void CKD_ByteStringL::Set(const CKD_ByteStringC& str, IKD_Allocator* allocator) {
  char* old = m_Ptr;
  m_Ptr = nullptr;
  m_Length = 0;
  if (str.GetPtr() && str.GetLength() > 0) {
    if (char* p = AllocBuffer(str.GetLength(), allocator)) memcpy(p, str.GetPtr(), static_cast<size_t>(m_Length));
  }
  if (old) kdmem::FreeTo(allocator, old);
}

void CKD_WideStringL::Empty(IKD_Allocator* allocator) {
  if (m_Ptr) kdmem::FreeTo(allocator, m_Ptr);
  m_Ptr = nullptr;
  m_Length = 0;
}

void CKD_WideStringL::Set(const CKD_WideStringC& str, IKD_Allocator* allocator) {
  wchar_t* old = m_Ptr;  // freed only after the copy, as for byte strings
  m_Ptr = nullptr;
  m_Length = 0;
  int len = str.GetLength();
  if (str.GetPtr() && len > 0) {
    if (void* block = kdmem::AllocFrom(allocator, static_cast<size_t>(len) + 1, 4)) {
      m_Ptr = static_cast<wchar_t*>(block);
      memcpy(m_Ptr, str.GetPtr(), sizeof(wchar_t) * static_cast<size_t>(len));
      m_Ptr[len] = 0;
      m_Length = len;
    }
  }
  if (old) kdmem::FreeTo(allocator, old);
}

void CKD_WideStringL::TrimRight(const wchar_t* targets) {
  if (!targets || !*targets || !m_Ptr || m_Length == 0) return;
  int n = m_Length;
  while (n > 0 && wcschr(targets, m_Ptr[n - 1])) --n;
  m_Length = n;
  m_Ptr[n] = 0;
}

int CKD_WideStringL::GetInteger() const { return m_Ptr ? KDSYS_wtoi(m_Ptr) : 0; }
