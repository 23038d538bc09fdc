// The number parsers of number_text.h, and the string members built on them.
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <type_traits>

#include "norvane/runtime/kdcrt_locale_internal.h"
#include "norvane/runtime/sys_helpers.h"
#include "norvane/text/number_text.h"
#include "norvane/text/string_l.h"
#include "norvane/text/wide_string.h"

namespace {

bool IsDigit(unsigned c) { return c - '0' < 10u; }

// The fraction weights of KD_atof, 10^-1 .. 10^-11 as floats.
constexpr float kAtofScale[11] = {1e-1f, 1e-2f, 1e-3f, 1e-4f, 1e-5f, 1e-6f, 1e-7f, 1e-8f, 1e-9f, 1e-10f, 1e-11f};

// round(2^32 / 10^k) for k = 1..9: the fixed-point weight of the k-th fraction digit.
constexpr uint32_t kFix32Weight[9] = {429496730, 42949673, 4294967, 429497, 42950, 4295, 429, 43, 4};

// StrtofView converts len bytes at text with strtof. strtof reads terminated text, and a view
// need not be terminated, so the bytes are copied and terminated first: the parse never reads
// past the view.
float StrtofView(const unsigned char* text, int len) {
  char local[128];
  if (len < static_cast<int>(sizeof local)) {
    memcpy(local, text, static_cast<size_t>(len));
    local[len] = 0;
    return KDCRT_StrToFloatC(local);
  }
  CKD_ByteString copy(text, len);  // a failed allocation leaves it empty: the result is then 0
  return KDCRT_StrToFloatC(copy.c_str());
}

// ReadInteger reads an optional '+' or '-' and the decimal digits after it, up to the first
// non-digit, as value = value * 10 + digit in T, wrapping. Overflow is noticed only as a step that
// leaves the value negative: ReadInteger then stops and returns false. *end receives the index
// where reading stopped; *value the magnitude read (not negated).
template <class T>
bool ReadInteger(const unsigned char* p, int len, bool* negative, T* value, int* end) {
  using U = typename std::make_unsigned<T>::type;
  int i = 0;
  *negative = len > 0 && p[0] == '-';
  if (len > 0 && (p[0] == '+' || p[0] == '-')) i = 1;
  T v = 0;
  bool ok = true;
  for (; i < len && IsDigit(p[i]); ++i) {
    v = static_cast<T>(static_cast<U>(static_cast<U>(v) * 10u + (p[i] - '0')));
    if (v < 0) {
      ok = false;
      break;
    }
  }
  *value = v;
  *end = i;
  return ok;
}

}  // namespace

float KD_atof(const CKD_ByteStringC& text) {
  const unsigned char* p = text.GetPtr();
  const int len = text.GetLength();
  if (!p || len <= 0) return 0.0f;
  const bool negative = p[0] == '-';
  int i = 0;
  if (p[0] == '-' || p[0] == '+') {
    for (i = 1; i < len && (p[i] == '+' || p[i] == '-');) ++i;
    if (i == len) return 0.0f;
  }
  const int start = i;
  // Deliberately no digit test: every byte counts as its code minus '0'.
  float num = 0.0f;
  for (; i < len && p[i] != '.'; ++i) num = num * 10.0f + static_cast<float>(static_cast<int>(p[i]) - '0');
  if (len - i < 12) {
    for (int k = 1; k <= 11 && i + k < len; ++k)
      num += static_cast<float>(static_cast<int>(p[i + k]) - '0') * kAtofScale[k - 1];
  } else {
    num = StrtofView(p + start, len - start);
  }
  return negative ? -num : num;
}

float KD_wtof(const wchar_t* text, int len) {
  if (!text) return 0.0f;
  if (len < 0) len = static_cast<int>(wcslen(text));
  if (len == 0) return 0.0f;
  int i = 0;
  const bool negative = text[0] == L'-';
  if (text[0] == L'+' || text[0] == L'-') i = 1;
  // The integer part wraps in 32 bits (computed unsigned, where wrapping is defined).
  uint32_t integer = 0;
  for (; i < len && text[i] != L'.'; ++i) integer = integer * 10u + static_cast<uint32_t>(text[i]) - 48u;
  float fraction = 0.0f;
  float scale = 0.1f;
  if (i < len) {
    for (++i; i < len; ++i) {
      fraction += static_cast<float>(static_cast<int32_t>(static_cast<uint32_t>(text[i]) - 48u)) * scale;
      scale *= 0.1f;
    }
  }
  float result = static_cast<float>(static_cast<int32_t>(integer)) + fraction;
  return negative ? -result : result;
}

void KD_atonum(const CKD_ByteStringC& text, bool& isInteger, void* result, int size) {
  const unsigned char* p = text.GetPtr();
  const int len = text.GetLength();
  if (p && len > 0 && memchr(p, '.', static_cast<size_t>(len))) {
    isInteger = false;
    float value = KD_atof(text);
    if (result) memcpy(result, &value, sizeof value);
    return;
  }
  isInteger = true;
  bool negative;
  int64_t value;
  int end;
  if (!ReadInteger(p, len, &negative, &value, &end)) value = 0;
  if (negative) value = -value;
  if (!result) return;
  if (size == 8) {
    memcpy(result, &value, 8);
  } else {
    int32_t low = static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(value)));
    memcpy(result, &low, 4);
  }
}

void KD_atofix32(const CKD_ByteStringC& text, int& integer, unsigned int& fraction) {
  integer = 0;
  fraction = 0;
  const unsigned char* p = text.GetPtr();
  const int len = text.GetLength();
  if (!p || len <= 0) return;
  bool negative;
  int32_t value;
  int i;
  if (!ReadInteger(p, len, &negative, &value, &i)) {
    integer = negative ? -0xFFFFFF : 0xFFFFFF;
    return;
  }
  integer = negative ? -value : value;
  if (i < len && p[i] == '.') {
    uint32_t f = 0;
    for (int k = 0; k < 9 && i + 1 + k < len && IsDigit(p[i + 1 + k]); ++k) f += (p[i + 1 + k] - '0') * kFix32Weight[k];
    fraction = f;
  }
  // Keep integer + fraction / 2^32 equal to the value: -1.25 is -2 + 0.75.
  if (negative && fraction != 0) {
    integer -= 1;
    fraction = 0u - fraction;
  }
}

float KDSYS_strtof(const char* str, int len, int* used) {
  if (!str) return 0.0f;
  CKD_WideString wide = CKD_WideString::FromLocal(str, len < 0 ? -1 : len);
  return KDSYS_wcstof(wide.c_str(), wide.GetLength(), used);
}

float CKD_WideString::GetFloat() const { return KD_wtof(c_str(), GetLength()); }

float CKD_WideStringL::GetFloat() const { return KD_wtof(c_str(), m_Length); }
