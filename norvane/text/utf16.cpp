#include "norvane/text/utf16.h"

#include <cstdint>
#include <cstring>

void KD_UTF16ToWChar(void* buffer, int count) {
  if (!buffer || count < 1) return;
  // Backwards: character i lands at bytes 4i..4i+3, never below the unit at 2i it comes from.
  // Byte copies keep the compiler from assuming the two views do not overlap.
  uint8_t* bytes = static_cast<uint8_t*>(buffer);
  for (int i = count - 1; i >= 0; --i) {
    uint16_t unit;
    memcpy(&unit, bytes + 2 * static_cast<size_t>(i), sizeof unit);
    uint32_t c = unit;
    memcpy(bytes + 4 * static_cast<size_t>(i), &c, sizeof c);
  }
}

void KD_UTF16ToWCharCopy(const unsigned short* src, wchar_t* dst, int count) {
  if (!src || !dst || count < 1) return;
  for (int i = 0; i < count; ++i) dst[i] = static_cast<wchar_t>(src[i]);
}

void KD_WCharToUTF16(void* buffer, int count) {
  if (!buffer || count < 1) return;
  uint8_t* bytes = static_cast<uint8_t*>(buffer);
  for (int i = 0; i < count; ++i) {
    uint32_t c;
    memcpy(&c, bytes + 4 * static_cast<size_t>(i), sizeof c);
    uint16_t unit = static_cast<uint16_t>(c);
    memcpy(bytes + 2 * static_cast<size_t>(i), &unit, sizeof unit);
  }
}

void KD_WCharToUTF16Copy(const wchar_t* src, unsigned short* dst, int count) {
  if (!src || !dst || count < 1) return;
  for (int i = 0; i < count; ++i) dst[i] = static_cast<unsigned short>(src[i]);
}

void KD_SwapByteOrder(wchar_t* text, int count) {
  if (!text || count < 1) return;
  for (int i = 0; i < count; ++i) text[i] = static_cast<wchar_t>((static_cast<uint32_t>(text[i]) >> 8) & 0xFF);
}

void KD_SwapByteOrderCopy(const wchar_t* src, wchar_t* dst, int count) {
  if (!src || !dst || count < 1) return;
  for (int i = 0; i < count; ++i) dst[i] = static_cast<wchar_t>((static_cast<uint32_t>(src[i]) >> 8) & 0xFF);
}
