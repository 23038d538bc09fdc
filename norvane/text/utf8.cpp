#include "norvane/text/utf8.h"

#include <climits>
#include <cstring>

#include "norvane/text/utf8_internal.h"

namespace {

constexpr uint64_t kHighBits = 0x8080808080808080ull;

inline uint64_t Load64(const uint8_t* p) {
  uint64_t v;
  memcpy(&v, p, sizeof v);
  return v;
}

inline void Widen8(const uint8_t* s, wchar_t* d) {
  for (int k = 0; k < 8; ++k) d[k] = s[k];
}

// The lead bytes C0..FD: pending continuation count and the bits the lead byte keeps. The value
// is shifted into place as (lead & mask) << (6 * count).
inline bool StartSequence(uint8_t b, uint32_t& pending, uint32_t& cp) {
  if (b < 0xE0) {
    pending = 1;
    cp = static_cast<uint32_t>(b & 0x1F) << 6;
  } else if (b < 0xF0) {
    pending = 2;
    cp = static_cast<uint32_t>(b & 0x0F) << 12;
  } else if (b < 0xF8) {
    pending = 3;
    cp = static_cast<uint32_t>(b & 0x07) << 18;
  } else if (b < 0xFC) {
    pending = 4;
    cp = static_cast<uint32_t>(b & 0x03) << 24;
  } else if (b < 0xFE) {
    pending = 5;
    cp = static_cast<uint32_t>(b & 0x01) << 30;
  } else {
    return false;
  }
  return true;
}

inline int EncodedSize(uint32_t c) {
  return c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : c < 0x200000 ? 4 : c < 0x4000000 ? 5 : 6;
}

}  // namespace

int KD_UTF8Decode(const char* src, int* srcLen, wchar_t* dst, int* dstLen) {
  if (!srcLen || !dstLen) return -1;
  if (*srcLen < 1 || !src) {
    *srcLen = 0;
    *dstLen = 0;
    return 1;
  }
  const uint8_t* s = reinterpret_cast<const uint8_t*>(src);
  const int n = *srcLen;
  const bool write = dst && *dstLen > 0;
  const int cap = write ? *dstLen : INT_MAX;
  int i = 0, out = 0, done = 0;
  uint32_t pending = 0, cp = 0;
  while (i < n) {
    if (pending == 0) {
      // Runs of ASCII, eight bytes at a time.
      while (i + 8 <= n && out <= cap - 8 && (Load64(s + i) & kHighBits) == 0) {
        if (write) Widen8(s + i, dst + out);
        i += 8;
        out += 8;
      }
      done = i;
      if (i >= n || out >= cap) break;
    }
    uint8_t b = s[i];
    uint32_t ch;
    if (b < 0x80) {
      pending = 0;
      ch = b;
    } else if (b < 0xC0) {
      if (pending == 0) break;  // a continuation byte with nothing pending ends the conversion
      cp |= static_cast<uint32_t>(b & 0x3F) << (6 * (pending - 1));
      if (--pending != 0) {
        ++i;
        continue;
      }
      ch = cp ? cp : 0xFFFD;
    } else {
      if (!StartSequence(b, pending, cp)) break;  // FE and FF end it too
      ++i;
      continue;
    }
    ++i;
    if (write) dst[out] = static_cast<wchar_t>(ch);
    ++out;
    done = i;
    if (out >= cap) break;
  }
  *srcLen = done;
  *dstLen = out;
  return 1;
}

int KD_UTF8Encode(const wchar_t* src, int* srcLen, char* dst, int* dstLen) {
  if (!srcLen || !dstLen) return -1;
  if (*srcLen < 1 || !src) {
    *srcLen = 0;
    *dstLen = 0;
    return 1;
  }
  const int n = *srcLen;
  const bool write = dst && *dstLen > 0;
  const long long cap = write ? *dstLen : LLONG_MAX;
  uint8_t* d = reinterpret_cast<uint8_t*>(dst);
  long long bytes = 0;
  int i = 0;
  while (i < n) {
    // Runs of characters whose low 16 bits are ASCII, four at a time.
    while (i + 4 <= n && bytes + 4 <= cap &&
           ((static_cast<uint32_t>(src[i]) | static_cast<uint32_t>(src[i + 1]) | static_cast<uint32_t>(src[i + 2]) |
             static_cast<uint32_t>(src[i + 3])) & 0xFF80) == 0) {
      if (write) {
        d[bytes] = static_cast<uint8_t>(src[i]);
        d[bytes + 1] = static_cast<uint8_t>(src[i + 1]);
        d[bytes + 2] = static_cast<uint8_t>(src[i + 2]);
        d[bytes + 3] = static_cast<uint8_t>(src[i + 3]);
      }
      i += 4;
      bytes += 4;
    }
    if (i >= n) break;
    uint32_t c = static_cast<uint32_t>(src[i]) & 0xFFFF;
    int size = c < 0x80 ? 1 : c < 0x800 ? 2 : 3;
    ++i;
    if (bytes + size > cap) {  // counted, not written: the caller sees the overflow
      bytes += size;
      break;
    }
    if (write) {
      uint8_t* p = d + bytes;
      if (size == 1) {
        p[0] = static_cast<uint8_t>(c);
      } else if (size == 2) {
        p[0] = static_cast<uint8_t>(0xC0 | (c >> 6));
        p[1] = static_cast<uint8_t>(0x80 | (c & 0x3F));
      } else {
        p[0] = static_cast<uint8_t>(0xE0 | (c >> 12));
        p[1] = static_cast<uint8_t>(0x80 | ((c >> 6) & 0x3F));
        p[2] = static_cast<uint8_t>(0x80 | (c & 0x3F));
      }
    }
    bytes += size;
  }
  *srcLen = i;
  *dstLen = bytes > INT_MAX ? INT_MAX : static_cast<int>(bytes);
  return 1;
}

bool KD_IsUTF8Data(const uint8_t* data, int* len) {
  if (!len) return false;
  if (*len < 1) return true;
  if (!data) return false;
  const int n = *len;
  *len = 0;
  int i = 0;
  uint32_t pending = 0;
  while (i < n) {
    if (pending == 0) {
      while (i + 8 <= n && (Load64(data + i) & kHighBits) == 0) i += 8;
      if (i >= n) break;
      uint8_t b = data[i++];
      if (b < 0x80) continue;
      uint32_t cp;
      if (b < 0xC0 || !StartSequence(b, pending, cp)) return false;
    } else {
      if ((data[i++] & 0xC0) != 0x80) return false;
      if (--pending == 0) *len = i;
    }
  }
  return true;
}

namespace kdtext {

int DecodeLenient(const uint8_t* s, int n, wchar_t* dst) {
  int i = 0, out = 0;
  uint32_t pending = 0, cp = 0;
  while (i < n) {
    if (pending == 0) {
      while (i + 8 <= n && (Load64(s + i) & kHighBits) == 0) {
        Widen8(s + i, dst + out);
        i += 8;
        out += 8;
      }
      if (i >= n) break;
    }
    uint8_t b = s[i++];
    if (b < 0x80) {
      pending = 0;
      dst[out++] = b;
    } else if (b < 0xC0) {
      if (pending == 0) continue;  // stray continuation bytes vanish
      cp |= static_cast<uint32_t>(b & 0x3F) << (6 * (pending - 1));
      if (--pending == 0) dst[out++] = static_cast<wchar_t>(cp ? cp : 0xFFFD);
    } else {
      uint32_t p2 = pending, c2 = cp;
      if (!StartSequence(b, p2, c2)) continue;  // FE and FF are ignored, the state kept
      pending = p2;
      cp = c2;
    }
  }
  return out;
}

size_t EncodedLength(const wchar_t* src, int len) {
  size_t total = 0;
  for (int i = 0; i < len; ++i) {
    int32_t c = static_cast<int32_t>(src[i]);
    if (c >= 0) total += static_cast<size_t>(EncodedSize(static_cast<uint32_t>(c)));
  }
  return total;
}

uint8_t* EncodeFull(const wchar_t* src, int len, uint8_t* d) {
  static const uint8_t kLead[7] = {0, 0, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC};
  for (int i = 0; i < len; ++i) {
    int32_t sc = static_cast<int32_t>(src[i]);
    if (sc < 0x80) {
      if (sc >= 0) *d++ = static_cast<uint8_t>(sc);
      continue;  // values with the top bit set are skipped
    }
    uint32_t c = static_cast<uint32_t>(sc);
    int size = EncodedSize(c);
    d[0] = static_cast<uint8_t>(kLead[size] | (c >> (6 * (size - 1))));
    for (int k = 1; k < size; ++k) d[k] = static_cast<uint8_t>(0x80 | ((c >> (6 * (size - 1 - k))) & 0x3F));
    d += size;
  }
  return d;
}

}  // namespace kdtext
