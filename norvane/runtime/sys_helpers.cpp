#include "norvane/runtime/sys_helpers.h"

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <type_traits>

namespace {

template <typename Char>
inline bool IsDigit(Char c) {
  return c >= '0' && c <= '9';
}

// Shared by the four parsers: accumulate in the unsigned type of the result's width so that
// overflow wraps instead of being undefined.
template <typename Result, typename Char>
Result ParseInt(const Char* s) {
  using Unsigned = typename std::make_unsigned<Result>::type;
  if (!s) return 0;
  bool negative = false;
  if (*s == '+' || *s == '-') negative = *s++ == '-';
  Unsigned value = 0;
  while (IsDigit(*s)) value = value * 10 + static_cast<Unsigned>(*s++ - '0');
  return static_cast<Result>(negative ? Unsigned(0) - value : value);
}

// Writes the decimal form of a magnitude with an optional sign, terminated.
template <typename Char>
Char* PrintDecimal(unsigned long long magnitude, bool negative, Char* out) {
  static const char kDigits[] = "0123456789abcdef";
  char reversed[24];
  int n = 0;
  do {
    reversed[n++] = kDigits[magnitude % 10];
    magnitude /= 10;
  } while (magnitude);
  Char* p = out;
  if (negative) *p++ = '-';
  while (n) *p++ = static_cast<Char>(reversed[--n]);
  *p = 0;
  return out;
}

template <typename Char>
inline Char FoldLower(Char c) {
  return (c >= 'A' && c <= 'Z') ? static_cast<Char>(c + 32) : c;
}

template <typename Char>
inline Char FoldUpper(Char c) {
  return (c >= 'a' && c <= 'z') ? static_cast<Char>(c - 32) : c;
}

template <typename Char, Char (*Fold)(Char)>
Char* MapCase(Char* s) {
  if (!s) return nullptr;
  for (Char* p = s; *p; ++p) *p = Fold(*p);
  return s;
}

// Compares under ASCII folding; Unit is the unsigned type the characters are compared as.
template <typename Unit, typename Char>
int CompareNoCase(const Char* a, const Char* b, size_t n) {
  if (!a || !b) return 0;
  for (size_t i = 0; i < n; ++i) {
    Unit ca = static_cast<Unit>(FoldLower(a[i]));
    Unit cb = static_cast<Unit>(FoldLower(b[i]));
    if (ca != cb || ca == 0) return static_cast<int>(ca - cb);
  }
  return 0;
}

}  // namespace

int KDSYS_atoi(const char* str) { return ParseInt<int>(str); }
int KDSYS_wtoi(const wchar_t* str) { return ParseInt<int>(str); }
long long KDSYS_atoi64(const char* str) { return ParseInt<long long>(str); }
long long KDSYS_wtoi64(const wchar_t* str) { return ParseInt<long long>(str); }

char* KDSYS_itoa(int value, char* buffer, int) {
  if (!buffer) return nullptr;
  // The magnitude is taken as unsigned 32-bit, so INT_MIN prints correctly.
  unsigned magnitude = value < 0 ? 0u - static_cast<unsigned>(value) : static_cast<unsigned>(value);
  return PrintDecimal(magnitude, value < 0, buffer);
}

char* KDSYS_i64toa(long long value, char* buffer, int) {
  if (!buffer) return nullptr;
  unsigned long long v = static_cast<unsigned long long>(value);
  return PrintDecimal(value < 0 ? 0ull - v : v, value < 0, buffer);
}

wchar_t* KDSYS_i64tow(long long value, wchar_t* buffer, int) {
  if (!buffer) return nullptr;
  unsigned long long v = static_cast<unsigned long long>(value);
  return PrintDecimal(value < 0 ? 0ull - v : v, value < 0, buffer);
}

char* KDSYS_strlwr(char* str) { return MapCase<char, FoldLower<char>>(str); }
char* KDSYS_strupr(char* str) { return MapCase<char, FoldUpper<char>>(str); }
wchar_t* KDSYS_wcslwr(wchar_t* str) { return MapCase<wchar_t, FoldLower<wchar_t>>(str); }
wchar_t* KDSYS_wcsupr(wchar_t* str) { return MapCase<wchar_t, FoldUpper<wchar_t>>(str); }

int KDSYS_stricmp(const char* a, const char* b) { return CompareNoCase<unsigned char>(a, b, SIZE_MAX); }
int KDSYS_strnicmp(const char* a, const char* b, size_t n) { return CompareNoCase<unsigned char>(a, b, n); }
// Wide characters are subtracted as unsigned 32-bit values so that no input overflows.
int KDSYS_wcsicmp(const wchar_t* a, const wchar_t* b) { return CompareNoCase<unsigned>(a, b, SIZE_MAX); }
int KDSYS_wcsnicmp(const wchar_t* a, const wchar_t* b, size_t n) { return CompareNoCase<unsigned>(a, b, n); }

wchar_t* KDSYS_wcsncpy(wchar_t* dst, const wchar_t* src, size_t n) {
  if (!dst || !src) return dst;
  for (size_t i = 0; i < n; ++i) {
    dst[i] = src[i];
    if (!src[i]) break;
  }
  return dst;
}

float KDSYS_wcstof(const wchar_t* str, int len, int* used) {
  if (!str) return 0.0f;
  if (len < 0) len = static_cast<int>(wcslen(str));
  if (len == 0) return 0.0f;
  int i = 0;
  bool negative = false;
  if (str[0] == L'+' || str[0] == L'-') {
    negative = str[0] == L'-';
    i = 1;
  }
  float value = 0.0f;
  for (; i < len && IsDigit(str[i]); ++i) value = value * 10.0f + static_cast<float>(str[i] - L'0');
  if (i < len && str[i] == L'.') {
    float scale = 0.1f;
    for (++i; i < len && IsDigit(str[i]); ++i) {
      value += static_cast<float>(str[i] - L'0') * scale;
      scale *= 0.1f;
    }
  }
  if (used) *used = i;
  return negative ? -value : value;
}

void* KDSYS_memcpy32(void* dst, const void* src, size_t n) {
  if (dst && src && n) memcpy(dst, src, n);
  return dst;
}

// An empty range is answered without calling the C library, which may assume non-null pointers.
int KDSYS_memcmp32(const void* a, const void* b, size_t n) { return n ? memcmp(a, b, n) : 0; }
void* KDSYS_memset32(void* dst, int value, size_t n) { return n ? memset(dst, value, n) : dst; }
void* KDSYS_memset8(void* dst, int value, size_t n) { return n ? memset(dst, value, n) : dst; }
void* KDSYS_memmove32(void* dst, const void* src, size_t n) { return n ? memmove(dst, src, n) : dst; }

float KDSYS_tan(float x) { return tanf(x); }
float KDSYS_logb(float b, float x) { return logf(x) / logf(b); }

int KDSYS_round(float f) {
  if (std::isnan(f)) return 0;
  if (f <= -2147483648.0f) return INT_MIN;
  if (f >= 2147483648.0f) return INT_MAX;
  float r = f >= 0.0f ? f + 0.5f : f - 0.5f;
  return static_cast<int>(r);
}

int KDSYS_WideCharToMultiByte(unsigned int, unsigned int, const wchar_t* src, int, char* dst, int dstLen) {
  if (!src) return 0;
  size_t n = wcstombs(dst, src, dstLen < 0 ? 0 : static_cast<size_t>(dstLen));
  int result = static_cast<int>(n);
  return result < 0 ? 0 : result;
}

int KDSYS_MultiByteToWideChar(unsigned int, unsigned int, const char* src, int, wchar_t* dst, int dstLen) {
  if (!src) return 0;
  size_t n = mbstowcs(dst, src, dstLen < 0 ? 0 : static_cast<size_t>(dstLen));
  int result = static_cast<int>(n);
  return result < 0 ? 0 : result;
}

unsigned int KDSYS_GetFullPathName(const char* path, unsigned int bufLen, char* dst) {
  if (!path) return 0;
  size_t len = strlen(path);
  if (!dst || len >= bufLen) return static_cast<unsigned int>(len + 1);
  memcpy(dst, path, len + 1);
  return static_cast<unsigned int>(len);
}

unsigned int KDSYS_GetModuleFileName(void*, char*, unsigned int) { return 0xFFFFFFFFu; }

int _vsnprintf(char* buffer, size_t size, const char* format, va_list args) {
  return vsnprintf(buffer, size, format, args);
}
