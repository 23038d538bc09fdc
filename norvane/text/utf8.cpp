#include "norvane/text/utf8.h"

#include <climits>
#include <cstring>

#include "norvane/text/utf8_internal.h"

namespace {

using kdtext::kHighBits;
using kdtext::Load64;

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

namespace {

// FastRun decodes from s[i] while no sequence is pending and at least eight bytes and room for
// eight characters are left: runs of ASCII, and whole 2-, 3- and 4-byte sequences (a lead byte
// followed by all its continuation bytes, for which the state machine would produce exactly the
// value computed here). It stops at anything else, leaving that to the state machine.
template <bool kWrite>
inline void FastRun(const uint8_t* s, int n, wchar_t* dst, int cap, int& i, int& out) {
  while (i + 8 <= n && out <= cap - 8) {
    uint64_t w8 = Load64(s + i);
    if ((w8 & 0x80) == 0) {
      // The ASCII bytes at the start: all eight are widened, those past the run written again
      // later.
      uint64_t high = w8 & kHighBits;
      int run = high ? __builtin_ctzll(high) >> 3 : 8;
      if (kWrite) Widen8(s + i, dst + out);
      i += run;
      out += run;
      continue;
    }
    uint32_t w = static_cast<uint32_t>(w8);  // lead byte in the low byte
    uint32_t ch;
    int len;
    if ((w & 0xC0C0F0) == 0x8080E0) {
      ch = (w & 0x0F) << 12 | ((w >> 8) & 0x3F) << 6 | ((w >> 16) & 0x3F);
      len = 3;
    } else if ((w & 0xC0E0) == 0x80C0) {
      ch = (w & 0x1F) << 6 | ((w >> 8) & 0x3F);
      len = 2;
    } else if ((w & 0xC0C0C0F8) == 0x808080F0) {
      ch = (w & 0x07) << 18 | ((w >> 8) & 0x3F) << 12 | ((w >> 16) & 0x3F) << 6 | ((w >> 24) & 0x3F);
      len = 4;
    } else {
      return;
    }
    if (kWrite) dst[out] = static_cast<wchar_t>(ch ? ch : 0xFFFD);
    ++out;
    i += len;
  }
}

// The buffer decoder: kWrite selects writing to dst (at most cap characters) or only counting.
template <bool kWrite>
int DecodeBuffer(const uint8_t* s, int n, wchar_t* dst, int cap, int* consumed) {
  int i = 0, out = 0, done = 0;
  uint32_t pending = 0, cp = 0;
  while (i < n && out < cap) {
    if (pending == 0) {
      FastRun<kWrite>(s, n, dst, cap, i, out);
      done = i;
      if (i >= n || out >= cap) break;
    }
    // One byte through the state machine.
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
    if (kWrite) dst[out] = static_cast<wchar_t>(ch);
    ++out;
    done = i;
  }
  *consumed = done;
  return out;
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
  int consumed = 0;
  int out = dst && *dstLen > 0 ? DecodeBuffer<true>(s, *srcLen, dst, *dstLen, &consumed)
                               : DecodeBuffer<false>(s, *srcLen, nullptr, INT_MAX, &consumed);
  *srcLen = consumed;
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

int DecodeLenient(const uint8_t* s, int n, wchar_t* dst, int cap) {
  int i = 0, out = 0;
  uint32_t pending = 0, cp = 0;
  while (i < n) {
    if (pending == 0) {
      FastRun<true>(s, n, dst, cap, i, out);
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
      StartSequence(b, pending, cp);  // FE and FF are ignored, the state kept
    }
  }
  return out;
}

int DecodedLengthBound(const uint8_t* s, int n) {
  // Every character the decoder produces starts at a byte that is not a continuation byte, so
  // their number bounds it (and is exact for well-formed text). Eight bytes at a time: a
  // continuation byte has bit 7 set and bit 6 clear.
  int continuations = 0, i = 0;
  for (; i + 8 <= n; i += 8) {
    uint64_t w = Load64(s + i);
    uint64_t marks = (w & ~(w << 1) & kHighBits) >> 7;
    continuations += static_cast<int>((marks * 0x0101010101010101ull) >> 56);
  }
  for (; i < n; ++i) continuations += (s[i] & 0xC0) == 0x80;
  return n - continuations;
}

size_t EncodedLength(const wchar_t* src, int len) {
  // 1 to 6 bytes by the thresholds, none for values with the top bit set; four characters at a
  // time with the compilers' vector extensions (SSE2 or NEON), where a true comparison is -1.
  typedef uint32_t U4 __attribute__((vector_size(16)));
  typedef int32_t I4 __attribute__((vector_size(16)));
  size_t total = 0;
  int i = 0;
  while (i + 4 <= len) {
    I4 acc = {0, 0, 0, 0};
    int stop = len - 4 - i > (1 << 24) ? i + (1 << 24) : len - 4;  // keeps the lanes from overflowing
    for (; i <= stop; i += 4) {
      U4 c;
      memcpy(&c, src + i, sizeof c);
      I4 more = (c >= 0x80u) + (c >= 0x800u) + (c >= 0x10000u) + (c >= 0x200000u) + (c >= 0x4000000u);
      acc += (1 - more) & ~(c >= 0x80000000u);
    }
    total += static_cast<size_t>(acc[0]) + static_cast<size_t>(acc[1]) + static_cast<size_t>(acc[2]) +
             static_cast<size_t>(acc[3]);
  }
  for (; i < len; ++i) {
    uint32_t c = static_cast<uint32_t>(src[i]);
    if (c < 0x80000000u) total += static_cast<size_t>(EncodedSize(c));
  }
  return total;
}

uint8_t* EncodeFull(const wchar_t* src, int len, uint8_t* d) {
  static const uint8_t kLead[7] = {0, 0, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC};
  int i = 0;
  while (i < len) {
    if (i + 4 <= len && (static_cast<uint32_t>(src[i]) | static_cast<uint32_t>(src[i + 1]) |
                         static_cast<uint32_t>(src[i + 2]) | static_cast<uint32_t>(src[i + 3])) < 0x80) {
      d[0] = static_cast<uint8_t>(src[i]);
      d[1] = static_cast<uint8_t>(src[i + 1]);
      d[2] = static_cast<uint8_t>(src[i + 2]);
      d[3] = static_cast<uint8_t>(src[i + 3]);
      d += 4;
      i += 4;
      continue;
    }
    uint32_t c = static_cast<uint32_t>(src[i++]);
    if (c < 0x80) {
      *d++ = static_cast<uint8_t>(c);
    } else if (c < 0x800) {
      d[0] = static_cast<uint8_t>(0xC0 | (c >> 6));
      d[1] = static_cast<uint8_t>(0x80 | (c & 0x3F));
      d += 2;
    } else if (c < 0x10000) {
      d[0] = static_cast<uint8_t>(0xE0 | (c >> 12));
      d[1] = static_cast<uint8_t>(0x80 | ((c >> 6) & 0x3F));
      d[2] = static_cast<uint8_t>(0x80 | (c & 0x3F));
      d += 3;
    } else if (c < 0x80000000u) {  // values with the top bit set are skipped
      int size = EncodedSize(c);
      d[0] = static_cast<uint8_t>(kLead[size] | (c >> (6 * (size - 1))));
      for (int k = 1; k < size; ++k) d[k] = static_cast<uint8_t>(0x80 | ((c >> (6 * (size - 1 - k))) & 0x3F));
      d += size;
    }
  }
  return d;
}

}  // namespace kdtext
