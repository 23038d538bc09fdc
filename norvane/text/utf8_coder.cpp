#include "norvane/text/utf8_coder.h"

#include <cstring>
#include <cwchar>

#include "norvane/memory/memory_mgr.h"
#include "norvane/text/utf8_internal.h"

struct KDUTF8CoderLayout {
  static_assert(offsetof(CKD_UTF8Decoder, m_PendingCount) == 0 && offsetof(CKD_UTF8Decoder, m_CodePoint) == 4 &&
                    offsetof(CKD_UTF8Decoder, m_Buffer) == 8,
                "decoder field order");
};

void CKD_UTF8Decoder::Input(uint8_t byte) {
  if (byte < 0x80) {
    m_PendingCount = 0;
    m_Buffer.AppendChar(byte);
  } else if (byte < 0xC0) {
    if (m_PendingCount == 0) return;
    m_CodePoint |= static_cast<uint32_t>(byte & 0x3F) << (6 * (m_PendingCount - 1));
    if (--m_PendingCount == 0) m_Buffer.AppendChar(static_cast<wchar_t>(m_CodePoint ? m_CodePoint : 0xFFFD));
  } else if (byte < 0xE0) {
    m_PendingCount = 1;
    m_CodePoint = static_cast<uint32_t>(byte & 0x1F) << 6;
  } else if (byte < 0xF0) {
    m_PendingCount = 2;
    m_CodePoint = static_cast<uint32_t>(byte & 0x0F) << 12;
  } else if (byte < 0xF8) {
    m_PendingCount = 3;
    m_CodePoint = static_cast<uint32_t>(byte & 0x07) << 18;
  } else if (byte < 0xFC) {
    m_PendingCount = 4;
    m_CodePoint = static_cast<uint32_t>(byte & 0x03) << 24;
  } else if (byte < 0xFE) {
    m_PendingCount = 5;
    m_CodePoint = static_cast<uint32_t>(byte & 0x01) << 30;
  }
}

void CKD_UTF8Encoder::PutByte(uint8_t byte) {
  if (!m_Buffer.GetBuffer() || m_Buffer.GetSize() >= m_Buffer.GetAllocSize()) {
    if (!m_Buffer.ExpandBuf(100)) return;
  }
  m_Buffer.AppendByte(byte);
}

void CKD_UTF8Encoder::Input(wchar_t ch) {
  static const uint8_t kLead[5] = {0xC0, 0xE0, 0xF0, 0xF8, 0xFC};
  int32_t value = static_cast<int32_t>(ch);
  if (value < 0) return;
  uint32_t c = static_cast<uint32_t>(value);
  if (c < 0x80) {
    PutByte(static_cast<uint8_t>(c));
    return;
  }
  int n = c < 0x800 ? 2 : c < 0x10000 ? 3 : c < 0x200000 ? 4 : c < 0x4000000 ? 5 : 6;
  PutByte(static_cast<uint8_t>(kLead[n - 2] | (c >> (6 * (n - 1)))));
  for (int k = n - 2; k >= 0; --k) PutByte(static_cast<uint8_t>(0x80 | ((c >> (6 * k)) & 0x3F)));
}

CKD_ByteString KD_UTF8Encode(const wchar_t* text, int len) {
  CKD_ByteString result;
  if (!text) return result;
  if (len < 0) len = static_cast<int>(wcslen(text));
  size_t size = kdtext::EncodedLength(text, len);
  if (size == 0 || size > 0x7FFFFFFF - 32) return result;
  if (char* p = result.GetBuffer(static_cast<int>(size))) {
    kdtext::EncodeFull(text, len, reinterpret_cast<uint8_t*>(p));
    result.ReleaseBuffer(static_cast<int>(size));
  }
  return result;
}

void KD_UTF8Encode(const wchar_t* text, int len, CKD_ByteStringL& out, IKD_Allocator* allocator) {
  out.Empty(allocator);
  if (!text) return;
  if (len < 0) len = static_cast<int>(wcslen(text));
  size_t size = kdtext::EncodedLength(text, len);
  if (size == 0 || size > 0x7FFFFFFF - 32) return;
  if (char* p = out.AllocBuffer(static_cast<int>(size), allocator))
    kdtext::EncodeFull(text, len, reinterpret_cast<uint8_t*>(p));
}

// String members decoding or encoding UTF-8.

namespace {

CKD_WideString DecodeToString(const char* text, int len) {
  CKD_WideString result;
  const uint8_t* bytes = reinterpret_cast<const uint8_t*>(text);
  // Sized by a bound that is exact for well-formed text; malformed text that decodes to fewer
  // characters is copied to its exact size.
  int bound = kdtext::DecodedLengthBound(bytes, len);
  wchar_t* p = bound > 0 ? result.GetBuffer(bound) : nullptr;
  if (!p) return result;
  int n = kdtext::DecodeLenient(bytes, len, p, bound);
  if (n == bound || n == 0) {
    result.ReleaseBuffer(n);
    return result;
  }
  return CKD_WideString(p, n);
}

}  // namespace

CKD_WideString CKD_WideString::FromUTF8(const char* text, int len) {
  if (!text || len == 0) return CKD_WideString();
  if (len < 0) len = static_cast<int>(strlen(text));
  if (len == 0) return CKD_WideString();
  return DecodeToString(text, len);
}

CKD_WideString CKD_ByteString::UTF8Decode() const {
  if (IsEmpty()) return CKD_WideString();
  return DecodeToString(c_str(), GetLength());
}

CKD_ByteString CKD_WideString::UTF8Encode() const { return KD_UTF8Encode(c_str(), GetLength()); }
