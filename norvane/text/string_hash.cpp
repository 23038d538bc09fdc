// The string hash codes: h = h * 31 + c over bytes, h = h * 1313 + c over wide characters, both
// in 32-bit unsigned arithmetic from 0.
//
// The loops take eight characters a step, h * m^8 + c0 * m^7 + ... + c7, which is the same value
// modulo 2^32 but leaves only one multiplication in the chain that carries h from step to step.
#include <cstring>
#include <cwchar>

#include "norvane/text/byte_string.h"
#include "norvane/text/wide_string.h"

namespace {

template <uint32_t M>
struct Powers {
  static constexpr uint32_t p1 = M;
  static constexpr uint32_t p2 = p1 * M;
  static constexpr uint32_t p3 = p2 * M;
  static constexpr uint32_t p4 = p3 * M;
  static constexpr uint32_t p5 = p4 * M;
  static constexpr uint32_t p6 = p5 * M;
  static constexpr uint32_t p7 = p6 * M;
  static constexpr uint32_t p8 = p7 * M;
};

// Character values as the hash sees them: bytes as signed char, wide characters as signed 32-bit,
// with 'A'..'Z' raised to 'a'..'z' when folding.
inline uint32_t Value(char c) { return static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(c))); }
inline uint32_t Value(wchar_t c) { return static_cast<uint32_t>(static_cast<int32_t>(c)); }

template <class C>
inline uint32_t Folded(C c) {
  uint32_t v = Value(c);
  return v - 'A' < 26u ? v + 32 : v;
}

template <uint32_t M, bool kFold, class C>
uint32_t Hash(const C* s, size_t n) {
  using P = Powers<M>;
  auto value = [](C c) { return kFold ? Folded(c) : Value(c); };
  uint32_t h = 0;
  size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    uint32_t a = value(s[i]) * P::p7 + value(s[i + 1]) * P::p6 + value(s[i + 2]) * P::p5 + value(s[i + 3]) * P::p4;
    uint32_t b = value(s[i + 4]) * P::p3 + value(s[i + 5]) * P::p2 + value(s[i + 6]) * P::p1 + value(s[i + 7]);
    h = h * P::p8 + a + b;
  }
  for (; i < n; ++i) h = h * M + value(s[i]);
  return h;
}

}  // namespace

uint32_t KD_HashCode_String_GetA(const char* text, int len, bool ignoreCase) {
  if (!text) return 0;
  size_t n = len < 0 ? strlen(text) : static_cast<size_t>(len);
  return ignoreCase ? Hash<31, true>(text, n) : Hash<31, false>(text, n);
}

uint32_t KD_HashCode_String_GetW(const wchar_t* text, int len, bool ignoreCase) {
  if (!text) return 0;
  size_t n = len < 0 ? wcslen(text) : static_cast<size_t>(len);
  return ignoreCase ? Hash<1313, true>(text, n) : Hash<1313, false>(text, n);
}
