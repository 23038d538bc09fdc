#include "norvane/streams/base64.h"

#include <climits>
#include <cstring>

struct KDBase64Layout {
  static_assert(offsetof(CKD_Base64Encoder, m_pEncoder) == 0 && offsetof(CKD_Base64Encoder, m_Padding) == 8 &&
                    sizeof(CKD_Base64Encoder) == 16,
                "Base64 encoder: function, then padding");
  static_assert(offsetof(CKD_Base64Decoder, m_pDecoder) == 0 && offsetof(CKD_Base64Decoder, m_Padding) == 8 &&
                    sizeof(CKD_Base64Decoder) == 16,
                "Base64 decoder: function, then padding");
};

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The byte forms work a group at a time from tables made at compile time: the encoder turns 12
// bits into two characters at once (the first in the low byte, as they lie in memory), the
// decoder looks each character up already shifted into its place in the 24-bit group.
struct Tables {
  uint16_t pairs[4096];
  uint8_t value[256];  // 0xFF for every byte outside the alphabet, 0x80..0xFF included
  uint32_t shifted[4][256];
};

constexpr Tables MakeTables() {
  Tables t{};
  for (int i = 0; i < 4096; ++i) {
    t.pairs[i] = static_cast<uint16_t>(static_cast<uint8_t>(kAlphabet[i >> 6]) |
                                       static_cast<uint8_t>(kAlphabet[i & 63]) << 8);
  }
  for (int i = 0; i < 256; ++i) t.value[i] = 0xFF;
  for (int i = 0; i < 64; ++i) t.value[static_cast<uint8_t>(kAlphabet[i])] = static_cast<uint8_t>(i);
  for (int i = 0; i < 256; ++i) {
    for (int k = 0; k < 4; ++k) t.shifted[k][i] = static_cast<uint32_t>(t.value[i]) << (18 - 6 * k);
  }
  return t;
}

constexpr Tables kTables = MakeTables();

// Every form packs four 6-bit values (0xFF for a character outside the alphabet) the same way.
inline uint32_t Pack(uint32_t a, uint32_t b, uint32_t c, uint32_t d) { return a << 18 | b << 12 | c << 6 | d; }

// EncodedLength: 4 characters per started group of 3 bytes; -1 past the int range.
inline long long EncodedLength(int len) {
  long long n = 4LL * (len / 3) + (len % 3 ? 4 : 0);
  return n > INT_MAX ? -1 : n;
}

inline int DecodedLength(int n) { return 3 * (n / 4) + (n % 4 == 3 ? 2 : n % 4 ? 1 : 0); }

inline uint64_t LoadBigEndian64(const uint8_t* p) {
  uint64_t w;
  memcpy(&w, p, 8);
  return __builtin_bswap64(w);
}

void EncodeBytes(const uint8_t* src, size_t len, char* dst) {
  const uint16_t* pairs = kTables.pairs;
  size_t i = 0;
  // 12 bytes give 16 characters; each 8-byte load uses its first 6 bytes, so 2 bytes past the
  // group must exist.
  for (; len - i >= 14; i += 12, dst += 16) {
    const uint64_t a = LoadBigEndian64(src + i), b = LoadBigEndian64(src + i + 6);
    const uint64_t lo = pairs[a >> 52] | static_cast<uint64_t>(pairs[(a >> 40) & 0xFFF]) << 16 |
                        static_cast<uint64_t>(pairs[(a >> 28) & 0xFFF]) << 32 |
                        static_cast<uint64_t>(pairs[(a >> 16) & 0xFFF]) << 48;
    const uint64_t hi = pairs[b >> 52] | static_cast<uint64_t>(pairs[(b >> 40) & 0xFFF]) << 16 |
                        static_cast<uint64_t>(pairs[(b >> 28) & 0xFFF]) << 32 |
                        static_cast<uint64_t>(pairs[(b >> 16) & 0xFFF]) << 48;
    memcpy(dst, &lo, 8);
    memcpy(dst + 8, &hi, 8);
  }
  for (; len - i >= 3; i += 3, dst += 4) {
    const uint32_t v = static_cast<uint32_t>(src[i]) << 16 | static_cast<uint32_t>(src[i + 1]) << 8 | src[i + 2];
    const uint32_t quad = pairs[v >> 12] | static_cast<uint32_t>(pairs[v & 0xFFF]) << 16;
    memcpy(dst, &quad, 4);
  }
  if (len - i == 2) {
    const uint32_t v = static_cast<uint32_t>(src[i]) << 16 | static_cast<uint32_t>(src[i + 1]) << 8;
    dst[0] = kAlphabet[v >> 18];
    dst[1] = kAlphabet[(v >> 12) & 63];
    dst[2] = kAlphabet[(v >> 6) & 63];
    dst[3] = '=';
  } else if (len - i == 1) {
    dst[0] = kAlphabet[src[i] >> 2];
    dst[1] = kAlphabet[(src[i] & 3) << 4];
    dst[2] = '=';
    dst[3] = '=';
  }
}

// DecodeBytes decodes n characters (padding already gone) into DecodedLength(n) bytes.
void DecodeBytes(const uint8_t* s, int n, uint8_t* dst) {
  const uint32_t(*shifted)[256] = kTables.shifted;
  int groups = n / 4;
  // While another group follows, each group stores 4 bytes at once; the next overwrites the
  // fourth. Two groups a round keep two lookups chains in flight.
  for (; groups >= 3; groups -= 2, s += 8, dst += 6) {
    const uint32_t v = shifted[0][s[0]] | shifted[1][s[1]] | shifted[2][s[2]] | shifted[3][s[3]];
    const uint32_t w = shifted[0][s[4]] | shifted[1][s[5]] | shifted[2][s[6]] | shifted[3][s[7]];
    const uint32_t bv = __builtin_bswap32(v << 8), bw = __builtin_bswap32(w << 8);
    memcpy(dst, &bv, 4);
    memcpy(dst + 3, &bw, 4);
  }
  for (; groups > 0; --groups, s += 4, dst += 3) {
    const uint32_t v = shifted[0][s[0]] | shifted[1][s[1]] | shifted[2][s[2]] | shifted[3][s[3]];
    dst[0] = static_cast<uint8_t>(v >> 16);
    dst[1] = static_cast<uint8_t>(v >> 8);
    dst[2] = static_cast<uint8_t>(v);
  }
  const uint8_t* value = kTables.value;
  switch (n % 4) {
    case 3: {
      const uint32_t v = Pack(value[s[0]], value[s[1]], value[s[2]], 0);
      dst[0] = static_cast<uint8_t>(v >> 16);
      dst[1] = static_cast<uint8_t>(v >> 8);
      break;
    }
    case 2:
      dst[0] = static_cast<uint8_t>(Pack(value[s[0]], value[s[1]], 0, 0) >> 16);
      break;
    case 1:
      dst[0] = static_cast<uint8_t>(value[s[0]] << 2);
      break;
  }
}

}  // namespace

wchar_t KDCRT_DefBase64Encoder(unsigned int value) { return static_cast<wchar_t>(kAlphabet[value & 63]); }

uint8_t KDCRT_DefBase64Decoder(wchar_t ch) { return kTables.value[ch & 127]; }

int CKD_Base64Encoder::Encode(const uint8_t* src, int len, char* dst) const {
  if (len < 1 || !src) return 0;
  const long long n = EncodedLength(len);
  if (n < 0) return 0;
  if (dst) EncodeBytes(src, static_cast<size_t>(len), dst);
  return static_cast<int>(n);
}

int CKD_Base64Encoder::Encode(const uint8_t* src, int len, wchar_t* dst) const {
  if (len < 1 || !src) return 0;
  const long long n = EncodedLength(len);
  if (n < 0) return 0;
  if (!dst) return static_cast<int>(n);
  int i = 0;
  for (; len - i >= 3; i += 3, dst += 4) {
    const uint32_t v = static_cast<uint32_t>(src[i]) << 16 | static_cast<uint32_t>(src[i + 1]) << 8 | src[i + 2];
    dst[0] = m_pEncoder(v >> 18);
    dst[1] = m_pEncoder((v >> 12) & 63);
    dst[2] = m_pEncoder((v >> 6) & 63);
    dst[3] = m_pEncoder(v & 63);
  }
  if (len - i == 2) {
    const uint32_t v = static_cast<uint32_t>(src[i]) << 16 | static_cast<uint32_t>(src[i + 1]) << 8;
    dst[0] = m_pEncoder(v >> 18);
    dst[1] = m_pEncoder((v >> 12) & 63);
    dst[2] = m_pEncoder((v >> 6) & 63);
    dst[3] = m_Padding;
  } else if (len - i == 1) {
    dst[0] = m_pEncoder(src[i] >> 2);
    dst[1] = m_pEncoder((src[i] & 3) << 4);
    dst[2] = m_Padding;
    dst[3] = m_Padding;
  }
  return static_cast<int>(n);
}

int CKD_Base64Encoder::Encode(const CKD_ByteStringC& src, CKD_WideString& dst) const {
  const int n = Encode(src.GetPtr(), src.GetLength(), static_cast<wchar_t*>(nullptr));
  if (n == 0) {
    dst.Empty();
    return 0;
  }
  wchar_t* p = dst.GetBuffer(n);
  if (!p) return 0;
  Encode(src.GetPtr(), src.GetLength(), p);
  dst.ReleaseBuffer(n);
  return n;
}

int CKD_Base64Encoder::Encode(const CKD_ByteStringC& src, CKD_ByteString& dst) const {
  CKD_WideString text;
  Encode(src, text);
  dst = text.UTF8Encode();
  return dst.GetLength();
}

int CKD_Base64Decoder::Decode(const char* src, int len, uint8_t* dst) const {
  if (len < 1 || !src) return 0;
  while (len > 0 && src[len - 1] == '=') --len;
  if (len == 0) return 0;
  if (dst) DecodeBytes(reinterpret_cast<const uint8_t*>(src), len, dst);
  return DecodedLength(len);
}

int CKD_Base64Decoder::Decode(const wchar_t* src, int len, uint8_t* dst) const {
  if (len < 1 || !src) return 0;
  while (len > 0 && src[len - 1] == m_Padding) --len;
  if (len == 0) return 0;
  const int n = DecodedLength(len);
  if (!dst) return n;
  int i = 0;
  for (; len - i >= 4; i += 4, dst += 3) {
    const uint32_t v = Pack(m_pDecoder(src[i]), m_pDecoder(src[i + 1]), m_pDecoder(src[i + 2]), m_pDecoder(src[i + 3]));
    dst[0] = static_cast<uint8_t>(v >> 16);
    dst[1] = static_cast<uint8_t>(v >> 8);
    dst[2] = static_cast<uint8_t>(v);
  }
  switch (len - i) {
    case 3: {
      const uint32_t v = Pack(m_pDecoder(src[i]), m_pDecoder(src[i + 1]), m_pDecoder(src[i + 2]), 0);
      dst[0] = static_cast<uint8_t>(v >> 16);
      dst[1] = static_cast<uint8_t>(v >> 8);
      break;
    }
    case 2:
      dst[0] = static_cast<uint8_t>(Pack(m_pDecoder(src[i]), m_pDecoder(src[i + 1]), 0, 0) >> 16);
      break;
    case 1:
      dst[0] = static_cast<uint8_t>(m_pDecoder(src[i]) << 2);
      break;
  }
  return n;
}

int CKD_Base64Decoder::Decode(const CKD_WideStringC& src, CKD_ByteString& dst) const {
  const int n = Decode(src.GetPtr(), src.GetLength(), nullptr);
  if (n == 0) {
    dst.Empty();
    return 0;
  }
  uint8_t* p = reinterpret_cast<uint8_t*>(dst.GetBuffer(n));
  if (!p) return 0;
  Decode(src.GetPtr(), src.GetLength(), p);
  dst.ReleaseBuffer(n);
  return n;
}

int CKD_Base64Decoder::Decode(const CKD_ByteStringC& src, CKD_ByteString& dst) const {
  CKD_WideString text = CKD_WideString::FromUTF8(src.GetCStr(), src.GetLength());
  int len = text.GetLength();
  while (len > 0 && text[len - 1] == m_Padding) --len;
  return Decode(CKD_WideStringC(text.c_str(), len), dst);
}
