// Byte strings: CKD_ByteString, the owning 8-bit string, and CKD_ByteStringC, the read-only view
// every function takes for byte text it only reads.
//
// A CKD_ByteString is one pointer to a shared data record (CKD_StringData): a reference count, the
// data length, the allocated length, then the characters, always followed by a 0 byte so that
// c_str() can go to functions that expect terminated text. The bytes are arbitrary: 0 bytes may
// sit inside the counted length. A null pointer is the normal empty string; edits in place that
// remove every byte (Delete, Remove, the trims) keep their record with length 0 instead, and every
// reader treats both forms alike.
//
// Copies and assignments share the record (O(1)); every operation that writes first gives the
// string a private record (copy-on-write). LockBuffer marks a record as never to be shared again
// (count -1): later copies take their own bytes. The count is a plain integer, not an atomic one:
// a string and every string sharing its record must be used by one thread at a time. To hand text
// to another thread, give it a new string made from a CKD_ByteStringC of the bytes.
//
// Memory comes from the default memory manager. A record for n bytes takes n + 25 bytes. Appends
// grow the allocation by half the current length (or by the appended length if that is more);
// every other operation allocates exactly. A failed allocation leaves the string empty (Replace
// leaves it unchanged) and is otherwise reported only through the manager's out-of-memory
// handler. Lengths and indexes are int; a negative length means "measure to the terminator";
// index arguments are clamped into range; searches return -1 when nothing is found.
#ifndef NORVANE_TEXT_BYTE_STRING_H_
#define NORVANE_TEXT_BYTE_STRING_H_

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "norvane/config.h"

class CKD_ByteString;
class CKD_WideString;
class CKD_BinaryBuf;
struct CKD_CharMap;
namespace kdtext {
struct StringAccess;
}

// CKD_StringData is the heap record behind a CKD_ByteString. Its layout is part of the binary
// interface: the characters start right after the 16-byte header.
struct CKD_StringData {
  // Strings sharing the record; 1 after creation; -1 marks a locked record.
  intptr_t m_nRefs;
  // Bytes in use; the byte at this index is always 0.
  int m_nDataLength;
  // Bytes the character area holds, not counting the terminating 0.
  int m_nAllocLength;

  char* GetChars() { return reinterpret_cast<char*>(this + 1); }
  const char* GetChars() const { return reinterpret_cast<const char*>(this + 1); }
};

static_assert(sizeof(CKD_StringData) == 16 && offsetof(CKD_StringData, m_nRefs) == 0 &&
                  offsetof(CKD_StringData, m_nDataLength) == 8 && offsetof(CKD_StringData, m_nAllocLength) == 12,
              "byte string record layout");

// CKD_ByteStringC views length bytes at a pointer it does not own; the bytes need not be
// terminated and must outlive the view. A null pointer is the empty view.
class CKD_ByteStringC {
 public:
  CKD_ByteStringC() : m_Ptr(nullptr), m_Length(0) {}
  CKD_ByteStringC(std::nullptr_t, int = 0) : m_Ptr(nullptr), m_Length(0) {}  // NOLINT(google-explicit-constructor)
  // Views a terminated text (null: the empty view).
  CKD_ByteStringC(const char* text)  // NOLINT(google-explicit-constructor): text converts to a view
      : m_Ptr(reinterpret_cast<const unsigned char*>(text)), m_Length(text ? static_cast<int>(strlen(text)) : 0) {}
  // Views len bytes at data; a negative len measures to the terminator.
  CKD_ByteStringC(const char* data, int len) : CKD_ByteStringC(reinterpret_cast<const unsigned char*>(data), len) {}
  CKD_ByteStringC(const unsigned char* data, int len)
      : m_Ptr(data), m_Length(!data ? 0 : len >= 0 ? len : static_cast<int>(strlen(reinterpret_cast<const char*>(data)))) {}
  // Views the string's bytes; valid until the string changes. A null string gives the empty view.
  CKD_ByteStringC(const CKD_ByteString& str);  // NOLINT(google-explicit-constructor)

  const unsigned char* GetPtr() const { return m_Ptr; }
  const char* GetCStr() const { return reinterpret_cast<const char*>(m_Ptr); }
  int GetLength() const { return m_Length; }
  bool IsEmpty() const { return m_Length == 0; }
  // GetAt and operator[] do not check the index.
  unsigned char GetAt(int index) const { return m_Ptr[index]; }
  unsigned char operator[](int index) const { return m_Ptr[index]; }

  // GetID packs up to four bytes from start, the first in the most significant position; missing
  // bytes at the end count as 0. An empty view, or start outside it, gives 0.
  uint32_t GetID(int start = 0) const {
    if (start < 0 || start >= m_Length) return 0;
    int n = m_Length - start < 4 ? m_Length - start : 4;
    uint32_t id = 0;
    for (int i = 0; i < n; ++i) id = (id << 8) | m_Ptr[start + i];
    return id << (8 * (4 - n));
  }

  bool operator==(const CKD_ByteStringC& other) const {
    return m_Length == other.m_Length && (m_Length == 0 || memcmp(m_Ptr, other.m_Ptr, m_Length) == 0);
  }
  bool operator!=(const CKD_ByteStringC& other) const { return !(*this == other); }

 private:
  const unsigned char* m_Ptr;
  int m_Length;

  static void CheckLayout() {
    static_assert(sizeof(CKD_ByteStringC) == 16 && offsetof(CKD_ByteStringC, m_Ptr) == 0 &&
                      offsetof(CKD_ByteStringC, m_Length) == 8,
                  "byte view layout: pointer, then length");
  }
};

// CKD_ByteString is the owning byte string described at the top of this file.
class NORVANE_API CKD_ByteString {
 public:
  // Flags of FormatInteger.
  enum { FORMAT_SIGNED = 1, FORMAT_HEX = 2, FORMAT_UPPERCASE = 4 };

  // Construction. Every constructor gives the null string when the result has length 0 or when
  // the allocation fails.
  CKD_ByteString() noexcept : m_pData(nullptr) {}
  // Shares src's record; a locked record is copied instead.
  CKD_ByteString(const CKD_ByteString& src) noexcept : m_pData(src.m_pData) {
    if (m_pData) {
      if (m_pData->m_nRefs >= 0) {
        ++m_pData->m_nRefs;
      } else {
        m_pData = nullptr;
        AssignCopy(src.GetLength(), src.c_str());
      }
    }
  }
  CKD_ByteString(CKD_ByteString&& src) noexcept : m_pData(src.m_pData) { src.m_pData = nullptr; }
  CKD_ByteString(std::nullptr_t, int = 0) noexcept : m_pData(nullptr) {}  // NOLINT(google-explicit-constructor)
  explicit CKD_ByteString(char ch);
  // len bytes of text; a negative len takes strlen(text).
  CKD_ByteString(const char* text, int len = -1);  // NOLINT(google-explicit-constructor)
  CKD_ByteString(const unsigned char* data, int len);
  CKD_ByteString(const CKD_ByteStringC& view);  // NOLINT(google-explicit-constructor)
  // The concatenation of a and b, in one record of exactly their total length.
  CKD_ByteString(const CKD_ByteStringC& a, const CKD_ByteStringC& b);
  ~CKD_ByteString() { Release(m_pData); }

  // Assignment. From another string: the same record does nothing, an empty source empties this
  // string, and otherwise the record is shared; when either side is locked the bytes are copied,
  // into this string's own record when it is not shared and large enough.
  CKD_ByteString& operator=(const CKD_ByteString& src);
  CKD_ByteString& operator=(CKD_ByteString&& src) noexcept {
    if (this != &src) {
      Release(m_pData);
      m_pData = src.m_pData;
      src.m_pData = nullptr;
    }
    return *this;
  }
  // Copies the bytes (AssignCopy).
  CKD_ByteString& operator=(const char* text);
  CKD_ByteString& operator=(const CKD_ByteStringC& view);
  void swap(CKD_ByteString& other) noexcept {
    CKD_StringData* d = m_pData;
    m_pData = other.m_pData;
    other.m_pData = d;
  }

  // Load replaces the contents with len bytes of data; len 0 (or less) empties the string.
  void Load(const unsigned char* data, int len);
  // Empty releases the record: the string becomes null.
  void Empty();

  // Reading. A null string reads as length 0; c_str() is then a static empty text.
  int GetLength() const { return m_pData ? m_pData->m_nDataLength : 0; }
  bool IsEmpty() const { return !m_pData || m_pData->m_nDataLength == 0; }
  const char* c_str() const { return m_pData ? m_pData->GetChars() : ""; }
  const unsigned char* GetPtr() const { return reinterpret_cast<const unsigned char*>(c_str()); }
  // GetAt and operator[] do not check the index (the terminator at GetLength() may be read).
  char GetAt(int index) const { return c_str()[index]; }
  char operator[](int index) const { return c_str()[index]; }

  // Concatenation. Appending reuses this string's record when it is not shared and has room;
  // otherwise the record grows to length + max(length / 2, appended length).
  CKD_ByteString& operator+=(const char* text);
  CKD_ByteString& operator+=(char ch) {
    CKD_StringData* d = m_pData;
    if (d && d->m_nRefs < 2 && d->m_nDataLength < d->m_nAllocLength) {
      char* chars = d->GetChars();
      chars[d->m_nDataLength] = ch;
      chars[++d->m_nDataLength] = 0;
    } else {
      ConcatInPlace(1, &ch);
    }
    return *this;
  }
  CKD_ByteString& operator+=(const CKD_ByteString& str);
  CKD_ByteString& operator+=(const CKD_ByteStringC& view);

  // Comparison. Equal: same length and bytes (a null string equals only empty text).
  // EqualNoCase folds 'A'..'Z' only. Compare orders bytes as unsigned, a prefix before the longer
  // text, and returns -1, 0 or 1.
  bool Equal(const CKD_ByteStringC& str) const;
  bool EqualNoCase(const CKD_ByteStringC& str) const;
  int Compare(const CKD_ByteStringC& str) const;
  bool operator==(const CKD_ByteStringC& view) const { return Equal(view); }
  bool operator==(const char* text) const { return Equal(CKD_ByteStringC(text)); }
  bool operator==(const CKD_ByteString& other) const { return m_pData == other.m_pData || Equal(other); }
  bool operator!=(const CKD_ByteStringC& view) const { return !Equal(view); }
  bool operator!=(const char* text) const { return !Equal(CKD_ByteStringC(text)); }
  bool operator!=(const CKD_ByteString& other) const { return !(*this == other); }
  bool operator<(const CKD_ByteString& other) const { return Compare(other) < 0; }

  // Buffer access, the copy-on-write entry points.
  //
  // GetBuffer returns a writable area of at least minLen bytes holding the current bytes, making
  // the record private (and larger) as needed; the caller writes, then calls ReleaseBuffer. A
  // null string asked for 0 bytes returns null; a failed allocation empties the string and
  // returns null.
  char* GetBuffer(int minLen);
  // ReleaseBuffer sets the length to len (negative: up to the first 0 byte of the buffer, at most
  // the allocated length; more than the allocated length: the allocated length) and terminates
  // the bytes. A length of 0 releases the record. The allocation never shrinks.
  void ReleaseBuffer(int len = -1);
  // LockBuffer makes the record private and marks it locked for good: copies of this string then
  // take their own bytes. Returns the characters (null for a null string).
  char* LockBuffer();
  // Reserve is GetBuffer(len) followed by ReleaseBuffer(GetLength()): the length stays the same
  // (and a string of length 0 stays null).
  void Reserve(int len);
  // CopyBeforeWrite gives this string a private record of exactly its length if it is shared.
  void CopyBeforeWrite();
  // AllocBeforeWrite prepares to overwrite the whole contents with len bytes: a shared record is
  // left to its other owners, a private one that is large enough is kept, otherwise a record of
  // exactly len bytes is made (none for len 0). The contents are then undefined.
  void AllocBeforeWrite(int len);
  // SetAt stores ch at index after making the record private; an index outside the string is
  // ignored.
  void SetAt(int index, char ch);
  // AssignCopy replaces the contents with len bytes at src (which may point into this string).
  void AssignCopy(int len, const char* src);
  // ConcatInPlace appends len bytes at src by the growth rule above; len 0 or a null src does
  // nothing. ConcatCopy replaces the record with one of allocated length
  // GetLength() + max(GetLength() / 2, len2) holding s1 then s2 (the null string when that
  // overflows or cannot hold both).
  void ConcatInPlace(int len, const char* src);
  void ConcatCopy(int len1, const char* s1, int len2, const char* s2);
  // AllocCopy sets dest to copyLen bytes from copyIndex followed by extraLen 0 bytes, in a record
  // of exactly that size. The range is clamped into this string.
  void AllocCopy(CKD_ByteString& dest, int copyLen, int copyIndex, int extraLen) const;

  // Editing. Each returns as stated; a failed allocation empties the string.
  //
  // Delete removes count bytes from index (index below 0 counts as 0; count below 1 or index at
  // or past the end changes nothing) and returns the new length.
  int Delete(int index, int count = 1);
  // Insert puts ch before index (clamped to 0..length), in place when the private record has
  // room, else in a new record of exactly one byte more. Returns the new length, 0 on failure.
  int Insert(int index, char ch);
  // Remove deletes every ch and returns how many there were.
  int Remove(char ch);
  // Replace substitutes newText for every occurrence of oldText, found left to right without
  // overlap, in one new record of exactly the result's length. Returns the count. An empty
  // oldText, a null string or no occurrence changes nothing; a failed allocation leaves the
  // string unchanged and returns 0.
  int Replace(const CKD_ByteStringC& oldText, const CKD_ByteStringC& newText);
  // MakeLower and MakeUpper change ASCII letters only, up to the first 0 byte.
  void MakeLower();
  void MakeUpper();
  // The trims remove from one end every byte found in targets; without an argument the set is
  // tab, line feed, vertical tab, form feed, carriage return and space. A null string or an empty
  // set does nothing; otherwise the record is made private even when nothing is trimmed.
  void TrimRight(const CKD_ByteStringC& targets);
  void TrimRight(char target);
  void TrimRight();
  void TrimLeft(const CKD_ByteStringC& targets);
  void TrimLeft(char target);
  void TrimLeft();

  // Extraction. Arguments are clamped into the string; a result covering the whole string shares
  // this string's record (copies it if locked); an empty result is the null string.
  CKD_ByteString Mid(int first) const;
  CKD_ByteString Mid(int first, int count) const;
  CKD_ByteString Left(int count) const;
  CKD_ByteString Right(int count) const;

  // Searching; -1 when nothing is found, when the string is null or start is past the end (a
  // negative start counts as 0).
  //
  // Find(ch) searches terminated text from start, so it stops at the first 0 byte; looking for 0
  // finds that byte (the length when no 0 byte is embedded).
  int Find(char ch, int start = 0) const;
  // ReverseFind scans the whole counted length from the end.
  int ReverseFind(char ch) const;
  // Find(sub) returns the first occurrence of sub at or after start; an empty sub is never found.
  int Find(const CKD_ByteStringC& sub, int start = 0) const;

  // GetID: see CKD_ByteStringC::GetID.
  uint32_t GetID(int start = 0) const { return CKD_ByteStringC(*this).GetID(start); }

  // Format prints like vsnprintf, always with '.' as the decimal separator (the calling thread
  // switches to the "C" locale while printing). The output buffer is sized from the format
  // beforehand; a width or precision above 131072 makes the contents "Bad width" or "Bad
  // precision". The arguments must not point into this string.
  void Format(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
  void FormatV(const char* fmt, va_list args) __attribute__((format(printf, 2, 0)));

  // FormatInteger prints value in decimal as unsigned, or as signed with FORMAT_SIGNED; with
  // FORMAT_HEX in lower-case hexadecimal, upper case with FORMAT_HEX | FORMAT_UPPERCASE.
  static CKD_ByteString FormatInteger(int value, unsigned flags = 0);
  // FormatInteger64 prints value in signed decimal.
  static CKD_ByteString FormatInteger64(long long value);
  // FormatFloat prints value with KD_ftoa_s(value, buffer, precision) (number_text.h): at most
  // precision digits after the '.', the shortest text that reads back when precision is 0.
  static CKD_ByteString FormatFloat(float value, int precision = 0);
  // Conversions (declared here, built with the buffers, UTF-8 and character maps).
  //
  // operator= from a buffer copies its bytes (AssignCopy).
  CKD_ByteString& operator=(const CKD_BinaryBuf& buf);
  // UTF8Decode decodes the bytes as UTF-8 by CKD_UTF8Decoder's rules (utf8_coder.h).
  CKD_WideString UTF8Decode() const;
  // ConvertFrom replaces the contents with str converted by map's wide-to-byte conversion; a
  // null map is the default map (current locale, char_map.h).
  void ConvertFrom(const CKD_WideString& str, CKD_CharMap* map = nullptr);
  // FromUnicode converts len characters of text (negative: to the terminator), or str, with the
  // default map.
  static CKD_ByteString FromUnicode(const wchar_t* text, int len = -1);
  static CKD_ByteString FromUnicode(const CKD_WideString& str);

  // LoadFromFile returns the whole contents of the file at path; the empty string when the file
  // cannot be opened or read, or holds 2 GiB or more.
  static CKD_ByteString LoadFromFile(const CKD_ByteStringC& path);

 private:
  friend struct kdtext::StringAccess;

  // Release drops one reference to data and frees it when none is left (or it was locked).
  static void Release(CKD_StringData* data) {
    if (data && data->m_nRefs-- <= 1) FreeData(data);
  }
  static void FreeData(CKD_StringData* data);

  CKD_StringData* m_pData;
};

static_assert(sizeof(CKD_ByteString) == sizeof(void*), "a byte string is one pointer");

inline CKD_ByteStringC::CKD_ByteStringC(const CKD_ByteString& str)
    : m_Ptr(str.IsEmpty() ? nullptr : str.GetPtr()), m_Length(str.GetLength()) {}

// Comparisons with the string on the right: the same as with it on the left.
inline bool operator==(const char* text, const CKD_ByteString& str) { return str == text; }
inline bool operator!=(const char* text, const CKD_ByteString& str) { return str != text; }
inline bool operator==(const CKD_ByteStringC& view, const CKD_ByteString& str) { return str == view; }
inline bool operator!=(const CKD_ByteStringC& view, const CKD_ByteString& str) { return str != view; }

// Concatenation into a new string of exactly the total length.
inline CKD_ByteString operator+(const CKD_ByteStringC& a, const CKD_ByteStringC& b) { return CKD_ByteString(a, b); }
inline CKD_ByteString operator+(const CKD_ByteStringC& a, char b) { return CKD_ByteString(a, CKD_ByteStringC(&b, 1)); }
inline CKD_ByteString operator+(char a, const CKD_ByteStringC& b) { return CKD_ByteString(CKD_ByteStringC(&a, 1), b); }

// KD_strstr returns the first occurrence of needleLen bytes at needle within haystackLen bytes at
// haystack, or null when there is none, when the needle is empty or longer than the haystack, or
// when a pointer is null.
NORVANE_API const char* KD_strstr(const char* haystack, int haystackLen, const char* needle, int needleLen);

// KD_HashCode_String_GetA hashes len bytes of text (negative: strlen) as h = h * 31 + c from 0 in
// 32-bit unsigned arithmetic, each byte taken as a signed char; with ignoreCase 'A'..'Z' count as
// 'a'..'z'. A null text hashes to 0. The string maps key their buckets on it.
NORVANE_API uint32_t KD_HashCode_String_GetA(const char* text, int len, bool ignoreCase = false);
// KD_HashCode_String_GetA of a view hashes its bytes (an empty view hashes to 0).
inline uint32_t KD_HashCode_String_GetA(const CKD_ByteStringC& str, bool ignoreCase = false) {
  return KD_HashCode_String_GetA(str.GetCStr(), str.GetLength(), ignoreCase);
}

#endif  // NORVANE_TEXT_BYTE_STRING_H_
