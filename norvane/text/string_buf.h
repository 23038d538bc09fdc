// CKD_StringBufBase: a fixed-capacity byte string that never allocates. Whatever does not fit
// within the limit is dropped silently. The characters are not terminated by these operations.
// CKD_StringBuf<N> supplies the storage: N bytes inline, right after the two counts.
#ifndef NORVANE_TEXT_STRING_BUF_H_
#define NORVANE_TEXT_STRING_BUF_H_

#include "norvane/config.h"
#include "norvane/text/byte_string.h"

// CKD_StringBufBase is the fixed-capacity string described above; its characters follow the two
// counts, in the CKD_StringBuf<N> that supplies them. It cannot be made on its own.
class NORVANE_API CKD_StringBufBase {
 public:
  // Copy replaces the contents with as much of str as fits.
  void Copy(const CKD_ByteStringC& str);
  // Append adds as much of str as fits.
  void Append(const CKD_ByteStringC& str);
  // Append(value, flags) adds the digits CKD_ByteString::FormatInteger(value, flags) would make
  // (FORMAT_SIGNED, FORMAT_HEX, FORMAT_UPPERCASE), cut at the limit.
  void Append(int value, unsigned flags);
  void Clear() { m_Size = 0; }

  char* GetBuffer() { return reinterpret_cast<char*>(this + 1); }
  const char* GetBuffer() const { return reinterpret_cast<const char*>(this + 1); }
  int GetSize() const { return m_Size; }
  int GetLimit() const { return m_Limit; }
  CKD_ByteStringC GetByteString() const { return CKD_ByteStringC(GetBuffer(), m_Size); }

 protected:
  explicit CKD_StringBufBase(int limit) : m_Limit(limit), m_Size(0) {}
  CKD_StringBufBase(const CKD_StringBufBase&) = delete;
  CKD_StringBufBase& operator=(const CKD_StringBufBase&) = delete;

  int m_Limit;
  int m_Size;
};

static_assert(sizeof(CKD_StringBufBase) == 8, "string buffer: limit, size, then the characters");

// CKD_StringBuf<N> is a CKD_StringBufBase with room for N bytes inline.
template <int N>
class CKD_StringBuf : public CKD_StringBufBase {
  static_assert(N > 0, "a string buffer holds at least one byte");

 public:
  CKD_StringBuf() : CKD_StringBufBase(N) {}
  CKD_StringBuf(const CKD_StringBuf& other) : CKD_StringBufBase(N) { Copy(other.GetByteString()); }
  CKD_StringBuf& operator=(const CKD_StringBuf& other) {
    if (this != &other) Copy(other.GetByteString());
    return *this;
  }

 private:
  char m_Chars[N];
};

static_assert(sizeof(CKD_StringBuf<8>) == 16, "the characters follow the counts");

#endif  // NORVANE_TEXT_STRING_BUF_H_
