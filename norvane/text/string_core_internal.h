// The record handling and editing steps that byte and wide strings share, written once over the
// character type. Each step works on a string's record pointer, which it may replace; the public
// classes are thin wrappers over these. A step that fails to allocate leaves the pointer null.
//
// Only the string sources include this header (and the tests, through StringAccess).
#ifndef NORVANE_TEXT_STRING_CORE_INTERNAL_H_
#define NORVANE_TEXT_STRING_CORE_INTERNAL_H_

#include <climits>
#include <cstring>
#include <cwchar>

#include "norvane/memory/memory_mgr.h"
#include "norvane/text/byte_string.h"
#include "norvane/text/wide_string.h"

namespace kdtext {

template <class C>
struct CharTraits;

template <>
struct CharTraits<char> {
  using Record = CKD_StringData;
  using String = CKD_ByteString;
  static size_t Length(const char* s) { return strlen(s); }
  // Length up to the first 0, at most max characters.
  static size_t BoundedLength(const char* s, size_t max) { return strnlen(s, max); }
};

template <>
struct CharTraits<wchar_t> {
  using Record = CKD_WideStringData;
  using String = CKD_WideString;
  static size_t Length(const wchar_t* s) { return wcslen(s); }
  static size_t BoundedLength(const wchar_t* s, size_t max) { return wcsnlen(s, max); }
};

template <class C>
using Rec = typename CharTraits<C>::Record;

// StringAccess reaches a string's record pointer; the string sources and the tests use it.
struct StringAccess {
  static CKD_StringData*& Data(CKD_ByteString& s) { return s.m_pData; }
  static CKD_StringData* Data(const CKD_ByteString& s) { return s.m_pData; }
  static CKD_WideStringData*& Data(CKD_WideString& s) { return s.m_pData; }
  static CKD_WideStringData* Data(const CKD_WideString& s) { return s.m_pData; }
};

// RecordBytes is the size of the block for a record of n characters: the 16-byte header, n + 1
// characters and 8 bytes of slack (n + 25 bytes for bytes, 4n + 28 for wide characters).
template <class C>
constexpr size_t RecordBytes(size_t n) {
  return sizeof(Rec<C>) + (n + 1) * sizeof(C) + 8;
}
static_assert(RecordBytes<char>(100) == 125 && RecordBytes<wchar_t>(10) == 68, "record sizes");

template <class C>
inline void CopyChars(C* dst, const C* src, int n) {
  if (n > 0) memcpy(dst, src, sizeof(C) * static_cast<size_t>(n));
}

template <class C>
inline void MoveChars(C* dst, const C* src, int n) {
  if (n > 0) memmove(dst, src, sizeof(C) * static_cast<size_t>(n));
}

// NewRecord returns a record of n characters (both lengths n, count 1, character n set to 0), or
// null when n is negative or the allocation fails.
template <class C>
Rec<C>* NewRecord(long long n) {
  if (n < 0 || n > INT_MAX) return nullptr;
  auto* r = static_cast<Rec<C>*>(KDMEM_DefaultAlloc2(RecordBytes<C>(static_cast<size_t>(n)), 1, 0));
  if (!r) return nullptr;
  r->m_nRefs = 1;
  r->m_nDataLength = static_cast<int>(n);
  r->m_nAllocLength = static_cast<int>(n);
  r->GetChars()[n] = 0;
  return r;
}

template <class C>
inline void FreeRecord(Rec<C>* r) {
  KDMEM_DefaultFree(r, 0);
}

// Release drops one reference; a record that was sole-owned or locked is freed.
template <class C>
inline void Release(Rec<C>* r) {
  if (r && r->m_nRefs-- <= 1) FreeRecord<C>(r);
}

template <class C>
inline void SetLength(Rec<C>* r, int len) {
  r->m_nDataLength = len;
  r->GetChars()[len] = 0;
}

// Copy makes a new record of exactly len characters from src (null for len 0 or on failure).
template <class C>
Rec<C>* Copy(const C* src, int len) {
  if (len <= 0) return nullptr;
  Rec<C>* r = NewRecord<C>(len);
  if (r) CopyChars(r->GetChars(), src, len);
  return r;
}

// Concat makes a new record of exactly a then b.
template <class C>
Rec<C>* Concat(const C* a, int lenA, const C* b, int lenB) {
  long long n = static_cast<long long>(lenA) + lenB;
  if (n <= 0) return nullptr;
  Rec<C>* r = NewRecord<C>(n);
  if (r) {
    CopyChars(r->GetChars(), a, lenA);
    CopyChars(r->GetChars() + lenA, b, lenB);
  }
  return r;
}

// Share is the copy constructor's step: share src unless it is locked, then copy.
template <class C>
Rec<C>* Share(Rec<C>* src) {
  if (!src) return nullptr;
  if (src->m_nRefs >= 0) {
    ++src->m_nRefs;
    return src;
  }
  return Copy<C>(src->GetChars(), src->m_nDataLength);
}

// Assign is assignment from another string.
template <class C>
void Assign(Rec<C>*& p, Rec<C>* src) {
  if (p == src) return;
  if (!src || src->m_nDataLength == 0) {
    Release<C>(p);
    p = nullptr;
    return;
  }
  if ((!p || p->m_nRefs >= 0) && src->m_nRefs >= 0) {
    Release<C>(p);
    ++src->m_nRefs;
    p = src;
    return;
  }
  // One side is locked: copy the characters, into this record when it is ours and large enough.
  int n = src->m_nDataLength;
  if (p && p->m_nRefs < 2 && p->m_nAllocLength >= n) {
    CopyChars(p->GetChars(), src->GetChars(), n);
    SetLength<C>(p, n);
    return;
  }
  Release<C>(p);
  p = Copy<C>(src->GetChars(), n);
}

// CopyBeforeWrite gives a shared record's holder a private exact copy.
template <class C>
void CopyBeforeWrite(Rec<C>*& p) {
  if (!p || p->m_nRefs < 2) return;
  Rec<C>* old = p;
  --old->m_nRefs;
  p = Copy<C>(old->GetChars(), old->m_nDataLength);
}

template <class C>
void AllocBeforeWrite(Rec<C>*& p, int len) {
  if (p) {
    if (p->m_nRefs < 2 && p->m_nAllocLength >= len) return;
    Release<C>(p);
    p = nullptr;
  }
  if (len >= 1) p = NewRecord<C>(len);
}

template <class C>
void AssignCopy(Rec<C>*& p, int len, const C* src) {
  if (len <= 0 || !src) {
    Release<C>(p);
    p = nullptr;
    return;
  }
  AllocBeforeWrite<C>(p, len);
  if (!p) return;
  MoveChars(p->GetChars(), src, len);  // src may lie in this very record
  SetLength<C>(p, len);
}

template <class C>
C* GetBuffer(Rec<C>*& p, int minLen) {
  if (minLen < 0) minLen = 0;
  if (!p) {
    if (minLen == 0) return nullptr;
    p = NewRecord<C>(minLen);
    if (!p) return nullptr;
    SetLength<C>(p, 0);
    return p->GetChars();
  }
  if (p->m_nRefs < 2 && p->m_nAllocLength >= minLen) return p->GetChars();
  Rec<C>* old = p;
  int len = old->m_nDataLength;
  p = NewRecord<C>(minLen > len ? minLen : len);
  if (p) {
    CopyChars(p->GetChars(), old->GetChars(), len + 1);
    p->m_nDataLength = len;
  }
  Release<C>(old);
  return p ? p->GetChars() : nullptr;
}

template <class C>
void ReleaseBuffer(Rec<C>*& p, int len) {
  CopyBeforeWrite<C>(p);
  if (!p) return;
  int alloc = p->m_nAllocLength;
  // Measuring stops at the allocated length: a caller that filled the whole area without a 0
  // must not make us read past it.
  if (len < 0) len = static_cast<int>(CharTraits<C>::BoundedLength(p->GetChars(), static_cast<size_t>(alloc)));
  if (len > alloc) len = alloc;
  if (len == 0) {
    Release<C>(p);
    p = nullptr;
    return;
  }
  SetLength<C>(p, len);
}

template <class C>
C* LockBuffer(Rec<C>*& p) {
  if (!p) return nullptr;
  C* chars = GetBuffer<C>(p, 0);
  if (p) p->m_nRefs = -1;
  return chars;
}

template <class C>
void SetAt(Rec<C>*& p, int index, C ch) {
  if (!p || index < 0 || index >= p->m_nDataLength) return;
  CopyBeforeWrite<C>(p);
  if (p) p->GetChars()[index] = ch;
}

// AllocCopy: dest becomes copyLen characters from copyIndex, then extraLen zeros.
template <class C>
void AllocCopy(Rec<C>* p, Rec<C>*& dest, int copyLen, int copyIndex, int extraLen) {
  int len = p ? p->m_nDataLength : 0;
  if (copyIndex < 0) copyIndex = 0;
  if (copyIndex > len) copyIndex = len;
  if (copyLen < 0) copyLen = 0;
  if (copyLen > len - copyIndex) copyLen = len - copyIndex;
  if (extraLen < 0) extraLen = 0;
  Rec<C>* r = NewRecord<C>(copyLen == 0 && extraLen == 0 ? -1 : static_cast<long long>(copyLen) + extraLen);
  if (r) {
    CopyChars(r->GetChars(), p ? p->GetChars() + copyIndex : nullptr, copyLen);
    if (extraLen > 0) memset(r->GetChars() + copyLen, 0, sizeof(C) * static_cast<size_t>(extraLen));
  }
  Release<C>(dest);
  dest = r;
}

// Mid returns the record of the extraction: p itself (shared) for the whole string, or a copy.
template <class C>
Rec<C>* Mid(Rec<C>* p, int first, int count) {
  int len = p ? p->m_nDataLength : 0;
  if (first < 0) first = 0;
  if (count < 0) count = 0;
  if (first > len) return nullptr;
  if (count > len - first) count = len - first;
  if (count == 0) return nullptr;
  if (first == 0 && count == len) return Share<C>(p);
  return Copy<C>(p->GetChars() + first, count);
}

template <class C>
int Delete(Rec<C>*& p, int index, int count) {
  if (!p) return 0;
  int len = p->m_nDataLength;
  if (index < 0) index = 0;
  if (count < 1 || index >= len) return len;
  CopyBeforeWrite<C>(p);
  if (!p) return 0;
  C* chars = p->GetChars();
  if (count >= len - index) {
    SetLength<C>(p, index);
  } else {
    MoveChars(chars + index, chars + index + count, len - index - count + 1);
    p->m_nDataLength = len - count;
  }
  return p->m_nDataLength;
}

template <class C>
int Insert(Rec<C>*& p, int index, C ch) {
  int len = p ? p->m_nDataLength : 0;
  if (index < 0) index = 0;
  if (index > len) index = len;
  if (p && p->m_nRefs < 2 && p->m_nAllocLength > len) {
    C* chars = p->GetChars();
    MoveChars(chars + index + 1, chars + index, len - index + 1);
    chars[index] = ch;
    return ++p->m_nDataLength;
  }
  Rec<C>* r = NewRecord<C>(static_cast<long long>(len) + 1);
  if (r) {
    C* chars = r->GetChars();
    CopyChars(chars, p ? p->GetChars() : nullptr, index);
    chars[index] = ch;
    CopyChars(chars + index + 1, p ? p->GetChars() + index : nullptr, len - index);
  }
  Release<C>(p);
  p = r;
  return r ? len + 1 : 0;
}

template <class C>
int Remove(Rec<C>*& p, C ch) {
  CopyBeforeWrite<C>(p);
  if (!p) return 0;
  C* chars = p->GetChars();
  int len = p->m_nDataLength;
  int out = 0;
  for (int in = 0; in < len; ++in) {
    if (chars[in] != ch) chars[out++] = chars[in];
  }
  SetLength<C>(p, out);
  return len - out;
}

// Search returns the first occurrence of needle in haystack, or null (also for an empty needle).
template <class C>
const C* Search(const C* hay, int hayLen, const C* needle, int needleLen);

// Bytes: candidates are found by their first byte with memchr and checked with memcmp, which is
// cheapest when a match is near (as in Replace). When the first byte keeps turning up without a
// match, the rest goes to memmem, whose setup costs more but which skips ahead by pairs of bytes.
template <>
inline const char* Search<char>(const char* hay, int hayLen, const char* needle, int needleLen) {
  if (needleLen <= 0 || needleLen > hayLen) return nullptr;
  const char* p = hay;
  const char* last = hay + (hayLen - needleLen);
  const char first = needle[0];
  for (int misses = 0; misses < 16; ++misses) {
    p = static_cast<const char*>(memchr(p, first, static_cast<size_t>(last - p) + 1));
    if (!p) return nullptr;
    if (memcmp(p + 1, needle + 1, static_cast<size_t>(needleLen - 1)) == 0) return p;
    if (p == last) return nullptr;
    ++p;
  }
  return static_cast<const char*>(
      memmem(p, static_cast<size_t>(last - p) + static_cast<size_t>(needleLen), needle, static_cast<size_t>(needleLen)));
}

template <>
inline const wchar_t* Search<wchar_t>(const wchar_t* hay, int hayLen, const wchar_t* needle, int needleLen) {
  if (needleLen <= 0 || needleLen > hayLen) return nullptr;
  const wchar_t* last = hay + (hayLen - needleLen);
  const wchar_t first = needle[0];
  for (const wchar_t* p = hay; p <= last; ++p) {
    p = wmemchr(p, first, static_cast<size_t>(last - p) + 1);
    if (!p) return nullptr;
    if (wmemcmp(p + 1, needle + 1, static_cast<size_t>(needleLen - 1)) == 0) return p;
  }
  return nullptr;
}

template <class C>
int Replace(Rec<C>*& p, const C* oldText, int oldLen, const C* newText, int newLen) {
  if (!p || oldLen <= 0) return 0;
  const C* chars = p->GetChars();
  const int len = p->m_nDataLength;
  const C* end = chars + len;
  // The first matches are remembered for the building pass; later ones are searched again.
  constexpr int kRemembered = 256;
  int at[kRemembered];
  int count = 0;
  for (const C* m = chars; (m = Search<C>(m, static_cast<int>(end - m), oldText, oldLen)); m += oldLen) {
    if (count < kRemembered) at[count] = static_cast<int>(m - chars);
    ++count;
  }
  if (count == 0) return 0;
  long long newLength = len + static_cast<long long>(count) * (newLen - oldLen);
  if (newLength == 0) {
    Release<C>(p);
    p = nullptr;
    return count;
  }
  Rec<C>* r = NewRecord<C>(newLength);
  if (!r) return 0;
  C* out = r->GetChars();
  const C* from = chars;
  for (int i = 0; i < count; ++i) {
    const C* m = i < kRemembered ? chars + at[i] : Search<C>(from, static_cast<int>(end - from), oldText, oldLen);
    CopyChars(out, from, static_cast<int>(m - from));
    out += m - from;
    CopyChars(out, newText, newLen);
    out += newLen;
    from = m + oldLen;
  }
  CopyChars(out, from, static_cast<int>(end - from));
  Release<C>(p);
  p = r;
  return count;
}

// The set of characters a trim removes. Bytes use a table; wide sets are short and scanned.
template <class C>
class TrimSet;

template <>
class TrimSet<char> {
 public:
  TrimSet(const char* set, int len) {
    memset(in_, 0, sizeof(in_));
    for (int i = 0; i < len; ++i) in_[static_cast<unsigned char>(set[i])] = true;
  }
  bool Has(char c) const { return in_[static_cast<unsigned char>(c)]; }

 private:
  bool in_[256];
};

template <>
class TrimSet<wchar_t> {
 public:
  TrimSet(const wchar_t* set, int len) : set_(set), len_(len) {}
  bool Has(wchar_t c) const { return len_ > 0 && wmemchr(set_, c, static_cast<size_t>(len_)) != nullptr; }

 private:
  const wchar_t* set_;
  int len_;
};

template <class C>
void TrimRight(Rec<C>*& p, const C* set, int setLen) {
  if (!p || setLen <= 0) return;
  TrimSet<C> targets(set, setLen);
  CopyBeforeWrite<C>(p);
  if (!p) return;
  const C* chars = p->GetChars();
  int n = p->m_nDataLength;
  while (n > 0 && targets.Has(chars[n - 1])) --n;
  if (n != p->m_nDataLength) SetLength<C>(p, n);
}

template <class C>
void TrimLeft(Rec<C>*& p, const C* set, int setLen) {
  if (!p || setLen <= 0) return;
  TrimSet<C> targets(set, setLen);
  CopyBeforeWrite<C>(p);
  if (!p) return;
  C* chars = p->GetChars();
  int len = p->m_nDataLength;
  int n = 0;
  while (n < len && targets.Has(chars[n])) ++n;
  if (n == 0) return;
  MoveChars(chars, chars + n, len - n + 1);
  p->m_nDataLength = len - n;
}

}  // namespace kdtext

#endif  // NORVANE_TEXT_STRING_CORE_INTERNAL_H_
