// Wide strings: CKD_WideString, the owning Unicode string, and CKD_WideStringC, its read-only view.
//
// A character is one wchar_t holding one code point (UTF-32); surrogate pairs appear only when put
// there. CKD_WideString works like CKD_ByteString (byte_string.h): one pointer to a shared,
// reference-counted, copy-on-write record (CKD_WideStringData), null as the normal empty string,
// a 0 character after the last one, -1 as the count of a locked record, a plain (non-atomic) count
// that ties a shared record to one thread at a time, memory from the default memory manager, and
// a failed allocation leaving the string empty (Replace: unchanged). The differences:
//
// - A record for n characters takes 4n + 28 bytes.
// - Appends that do not fit grow the allocated length by half, from at least 2, as often as
//   needed: 3, 4, 6, 9, 13, ...; appending to an empty string allocates exactly.
// - Reserve keeps a private record that is large enough and otherwise makes one of exactly the
//   size asked (also for an empty string).
// - Find uses the C library's wcsstr and wcschr, so it stops at an embedded 0 character, and an
//   empty text is found at start.
// - Compare against another string puts the null string before every other one, even one whose
//   record has length 0.
// - Format prints with vswprintf under the calling thread's current locale.
#ifndef NORVANE_TEXT_WIDE_STRING_H_
#define NORVANE_TEXT_WIDE_STRING_H_

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cwchar>

#include "norvane/config.h"
#include "norvane/text/byte_string.h"

class CKD_WideString;

// CKD_WideStringData is the heap record behind a CKD_WideString: the same header as a byte
// string's record, with lengths counted in characters, then the characters.
struct CKD_WideStringData {
  // Strings sharing the record; 1 after creation; -1 marks a locked record.
  intptr_t m_nRefs;
  // Characters in use; the character at this index is always 0.
  int m_nDataLength;
  // Characters the area holds, not counting the terminating 0.
  int m_nAllocLength;

  wchar_t* GetChars() { return reinterpret_cast<wchar_t*>(this + 1); }
  const wchar_t* GetChars() const { return reinterpret_cast<const wchar_t*>(this + 1); }
};

static_assert(sizeof(CKD_WideStringData) == 16 && offsetof(CKD_WideStringData, m_nRefs) == 0 &&
                  offsetof(CKD_WideStringData, m_nDataLength) == 8 &&
                  offsetof(CKD_WideStringData, m_nAllocLength) == 12,
              "wide string record layout");

// CKD_WideStringC views length characters at a pointer it does not own; they need not be
// terminated and must outlive the view. A null pointer is the empty view.
class CKD_WideStringC {
 public:
  CKD_WideStringC() : m_Ptr(nullptr), m_Length(0) {}
  CKD_WideStringC(std::nullptr_t, int = 0) : m_Ptr(nullptr), m_Length(0) {}  // NOLINT(google-explicit-constructor)
  // Views a terminated text (null: the empty view).
  CKD_WideStringC(const wchar_t* text)  // NOLINT(google-explicit-constructor): text converts to a view
      : m_Ptr(text), m_Length(text ? static_cast<int>(wcslen(text)) : 0) {}
  // Views len characters at data; a negative len measures to the terminator.
  CKD_WideStringC(const wchar_t* data, int len)
      : m_Ptr(data), m_Length(!data ? 0 : len >= 0 ? len : static_cast<int>(wcslen(data))) {}
  // Views the string's characters; valid until the string changes. A null string gives the empty
  // view.
  CKD_WideStringC(const CKD_WideString& str);  // NOLINT(google-explicit-constructor)

  const wchar_t* GetPtr() const { return m_Ptr; }
  int GetLength() const { return m_Length; }
  bool IsEmpty() const { return m_Length == 0; }
  // GetAt and operator[] do not check the index.
  wchar_t GetAt(int index) const { return m_Ptr[index]; }
  wchar_t operator[](int index) const { return m_Ptr[index]; }

  bool operator==(const CKD_WideStringC& other) const {
    return m_Length == other.m_Length &&
           (m_Length == 0 || memcmp(m_Ptr, other.m_Ptr, sizeof(wchar_t) * static_cast<size_t>(m_Length)) == 0);
  }
  bool operator!=(const CKD_WideStringC& other) const { return !(*this == other); }

 private:
  const wchar_t* m_Ptr;
  int m_Length;

  static void CheckLayout() {
    static_assert(sizeof(CKD_WideStringC) == 16 && offsetof(CKD_WideStringC, m_Ptr) == 0 &&
                      offsetof(CKD_WideStringC, m_Length) == 8,
                  "wide view layout: pointer, then length");
  }
};

// CKD_WideString is the owning wide string described at the top of this file. Members without a
// comment here behave as their CKD_ByteString namesakes, with character read for byte.
class NORVANE_API CKD_WideString {
 public:
  CKD_WideString() noexcept : m_pData(nullptr) {}
  CKD_WideString(const CKD_WideString& src) noexcept : m_pData(src.m_pData) {
    if (m_pData) {
      if (m_pData->m_nRefs >= 0) {
        ++m_pData->m_nRefs;
      } else {
        m_pData = nullptr;
        AssignCopy(src.GetLength(), src.c_str());
      }
    }
  }
  CKD_WideString(CKD_WideString&& src) noexcept : m_pData(src.m_pData) { src.m_pData = nullptr; }
  CKD_WideString(std::nullptr_t, int = 0) noexcept : m_pData(nullptr) {}  // NOLINT(google-explicit-constructor)
  explicit CKD_WideString(wchar_t ch);
  CKD_WideString(const wchar_t* text, int len = -1);  // NOLINT(google-explicit-constructor)
  CKD_WideString(const CKD_WideStringC& view);        // NOLINT(google-explicit-constructor)
  CKD_WideString(const CKD_WideStringC& a, const CKD_WideStringC& b);
  ~CKD_WideString() { Release(m_pData); }

  CKD_WideString& operator=(const CKD_WideString& src);
  CKD_WideString& operator=(CKD_WideString&& src) noexcept {
    if (this != &src) {
      Release(m_pData);
      m_pData = src.m_pData;
      src.m_pData = nullptr;
    }
    return *this;
  }
  CKD_WideString& operator=(const wchar_t* text);
  CKD_WideString& operator=(const CKD_WideStringC& view);
  void swap(CKD_WideString& other) noexcept {
    CKD_WideStringData* d = m_pData;
    m_pData = other.m_pData;
    other.m_pData = d;
  }
  void Empty();

  int GetLength() const { return m_pData ? m_pData->m_nDataLength : 0; }
  bool IsEmpty() const { return !m_pData || m_pData->m_nDataLength == 0; }
  const wchar_t* c_str() const { return m_pData ? m_pData->GetChars() : L""; }
  wchar_t GetAt(int index) const { return c_str()[index]; }
  wchar_t operator[](int index) const { return c_str()[index]; }

  CKD_WideString& operator+=(const wchar_t* text);
  CKD_WideString& operator+=(wchar_t ch) {
    CKD_WideStringData* d = m_pData;
    if (d && d->m_nRefs < 2 && d->m_nDataLength < d->m_nAllocLength) {
      wchar_t* chars = d->GetChars();
      chars[d->m_nDataLength] = ch;
      chars[++d->m_nDataLength] = 0;
    } else {
      ConcatInPlace(1, &ch);
    }
    return *this;
  }
  CKD_WideString& operator+=(const CKD_WideString& str);
  CKD_WideString& operator+=(const CKD_WideStringC& view);

  // Equal: same length and characters.
  bool Equal(const CKD_WideStringC& str) const;
  // Compare orders characters as signed 32-bit values, a prefix before the longer string; the
  // null string comes before every non-null one (even one of length 0) and equals another null
  // string. Returns -1, 0 or 1.
  int Compare(const CKD_WideString& str) const;
  // Compare(text) is wcscmp against this string's text (a null text counts as empty).
  int Compare(const wchar_t* text) const;
  // CompareNoCase is KDSYS_wcsicmp against this string's text; for a null string it is 0 when
  // text is null or empty and -1 otherwise.
  int CompareNoCase(const wchar_t* text) const;

  wchar_t* GetBuffer(int minLen);
  void ReleaseBuffer(int len = -1);
  wchar_t* LockBuffer();
  // Reserve keeps a private record of at least len characters; otherwise it makes one of exactly
  // len (or the current length, if more) holding the current characters.
  void Reserve(int len);
  void CopyBeforeWrite();
  void AllocBeforeWrite(int len);
  void SetAt(int index, wchar_t ch);
  void AssignCopy(int len, const wchar_t* src);
  // ConcatInPlace appends in place when the private record has room. Otherwise ConcatCopy makes
  // a record whose allocated length is the current one (at least 2) times 1.5, repeated until
  // len1 + len2 fits, and copies s1 then s2 into it.
  void ConcatInPlace(int len, const wchar_t* src);
  void ConcatCopy(int len1, const wchar_t* s1, int len2, const wchar_t* s2);
  void AllocCopy(CKD_WideString& dest, int copyLen, int copyIndex, int extraLen) const;

  int Delete(int index, int count = 1);
  int Insert(int index, wchar_t ch);
  int Remove(wchar_t ch);
  // Replace: as the byte form; null texts count as empty.
  int Replace(const wchar_t* oldText, const wchar_t* newText);
  void MakeLower();
  void MakeUpper();
  // The trims with a set remove characters found among the set's (terminated) characters.
  void TrimRight(const wchar_t* targets);
  void TrimRight(wchar_t target);
  void TrimRight();
  void TrimLeft(const wchar_t* targets);
  void TrimLeft(wchar_t target);
  void TrimLeft();

  CKD_WideString Mid(int first) const;
  CKD_WideString Mid(int first, int count) const;
  CKD_WideString Left(int count) const;
  CKD_WideString Right(int count) const;

  // Find(sub) is wcsstr from start and Find(ch) is wcschr from start: both stop at the first 0
  // character. They return -1 when nothing is found, for a null string and for start past the
  // end (a negative start counts as 0); an empty sub is found at start.
  int Find(const wchar_t* sub, int start = 0) const;
  int Find(wchar_t ch, int start = 0) const;

  // GetInteger is KDSYS_wtoi of the text (0 for a null string).
  int GetInteger() const;
  // GetFloat is KD_wtof of the characters (number_text.h; 0 for a null string).
  float GetFloat() const;

  // Format prints like vswprintf under the calling thread's current locale, into a buffer sized
  // from the format beforehand ("Bad width" / "Bad precision" for a width or precision above
  // 131072). String conversions follow the wide printing functions: %s takes byte text, %ls and
  // %S wide text. The arguments must not point into this string.
  void Format(const wchar_t* fmt, ...);
  void FormatV(const wchar_t* fmt, va_list args);

  // UTF16LE_Encode returns the characters as 16-bit little-endian units, 2 bytes each; characters
  // above 0xFFFF keep their low 16 bits only. With terminate two 0 bytes follow, counted in the
  // length (so the null string gives two 0 bytes).
  CKD_ByteString UTF16LE_Encode(bool terminate) const;
  // FromUTF16LE and FromUTF16BE make one character of each 16-bit unit (surrogates are not
  // combined); a negative len reads to the first 0 unit; a null text or len 0 gives the null
  // string.
  static CKD_WideString FromUTF16LE(const unsigned short* text, int len);
  static CKD_WideString FromUTF16BE(const unsigned short* text, int len);
  // WStringLength counts the 16-bit units before the first 0 (0 for null).
  static int WStringLength(const unsigned short* text);

  // UTF8Encode returns the characters as UTF-8 (KD_UTF8Encode, utf8_coder.h).
  CKD_ByteString UTF8Encode() const;
  // FromUTF8 decodes len bytes of text (negative: to the first 0 byte) by CKD_UTF8Decoder's
  // rules; a null text or len 0 gives the null string.
  static CKD_WideString FromUTF8(const char* text, int len = -1);
  // ConvertFrom replaces the contents with str converted by map's byte-to-wide conversion; a null
  // map is the default map (current locale, char_map.h).
  void ConvertFrom(const CKD_ByteString& str, CKD_CharMap* map = nullptr);
  // FromLocal converts len bytes of text (negative: to the terminator) with the default map.
  static CKD_WideString FromLocal(const char* text, int len = -1);

 private:
  friend struct kdtext::StringAccess;

  // InitStr is the constructors' worker: len characters of text (negative: wcslen); length 0 or a
  // failed allocation gives the null string.
  void InitStr(const wchar_t* text, int len);
  static void Release(CKD_WideStringData* data) {
    if (data && data->m_nRefs-- <= 1) FreeData(data);
  }
  static void FreeData(CKD_WideStringData* data);

  CKD_WideStringData* m_pData;
};

static_assert(sizeof(CKD_WideString) == sizeof(void*), "a wide string is one pointer");

inline CKD_WideStringC::CKD_WideStringC(const CKD_WideString& str)
    : m_Ptr(str.IsEmpty() ? nullptr : str.c_str()), m_Length(str.GetLength()) {}

// Equality of every pairing of a string with a text, a view or another string; a null text is
// the empty text. operator< orders as Compare.
inline bool operator==(const CKD_WideString& a, const CKD_WideString& b) {
  return a.c_str() == b.c_str() || a.Equal(b);
}
inline bool operator==(const CKD_WideString& a, const CKD_WideStringC& b) { return a.Equal(b); }
inline bool operator==(const CKD_WideStringC& a, const CKD_WideString& b) { return b.Equal(a); }
inline bool operator==(const CKD_WideString& a, const wchar_t* b) { return a.Equal(CKD_WideStringC(b)); }
inline bool operator==(const wchar_t* a, const CKD_WideString& b) { return b.Equal(CKD_WideStringC(a)); }
inline bool operator!=(const CKD_WideString& a, const CKD_WideString& b) { return !(a == b); }
inline bool operator!=(const CKD_WideString& a, const CKD_WideStringC& b) { return !a.Equal(b); }
inline bool operator!=(const CKD_WideStringC& a, const CKD_WideString& b) { return !b.Equal(a); }
inline bool operator!=(const CKD_WideString& a, const wchar_t* b) { return !a.Equal(CKD_WideStringC(b)); }
inline bool operator!=(const wchar_t* a, const CKD_WideString& b) { return !b.Equal(CKD_WideStringC(a)); }
inline bool operator<(const CKD_WideString& a, const CKD_WideString& b) { return a.Compare(b) < 0; }

// Concatenation into a new string of exactly the total length.
inline CKD_WideString operator+(const CKD_WideStringC& a, const CKD_WideStringC& b) { return CKD_WideString(a, b); }
inline CKD_WideString operator+(const CKD_WideStringC& a, wchar_t b) {
  return CKD_WideString(a, CKD_WideStringC(&b, 1));
}
inline CKD_WideString operator+(wchar_t a, const CKD_WideStringC& b) {
  return CKD_WideString(CKD_WideStringC(&a, 1), b);
}

// KD_HashCode_String_GetW hashes len characters of text (negative: wcslen) as h = h * 1313 + c
// from 0 in 32-bit unsigned arithmetic; with ignoreCase 'A'..'Z' count as 'a'..'z'. A null text
// hashes to 0.
NORVANE_API uint32_t KD_HashCode_String_GetW(const wchar_t* text, int len, bool ignoreCase = false);
inline uint32_t KD_HashCode_String_GetW(const CKD_WideStringC& str, bool ignoreCase = false) {
  return KD_HashCode_String_GetW(str.GetPtr(), str.GetLength(), ignoreCase);
}

#endif  // NORVANE_TEXT_WIDE_STRING_H_
