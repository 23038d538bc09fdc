// Helpers shared by the text tests: a fixture over a counting manager, one description per
// string class, so that a test can be written once for byte and wide strings, a look at a
// string's record, and a scoped LC_CTYPE.
#ifndef NORVANE_TEXT_STRING_TEST_SUPPORT_H_
#define NORVANE_TEXT_STRING_TEST_SUPPORT_H_

#include <gtest/gtest.h>

#include <clocale>
#include <cstdint>
#include <string>

#include "norvane/text/byte_string.h"
#include "norvane/text/string_core_internal.h"
#include "norvane/text/wide_string.h"
#include "tests/support/test_mgr.h"

namespace kdtest {

// A test run over a counting default manager that must leave no block behind.
class ManagedTest : public ::testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(mgr.live_blocks(), 0u); }

  TestDefaultMgr mgr;
  TestSystemMgr& sys = mgr.sys();
};

template <class S>
struct StringKit;

template <>
struct StringKit<CKD_ByteString> {
  using C = char;
  using View = CKD_ByteStringC;
  using Std = std::string;
  // Block size requested for a record of n characters.
  static size_t Bytes(size_t n) { return n + 25; }
  // The string hash, h = h * kHashFactor + c.
  static constexpr uint32_t kHashFactor = 31;
  static uint32_t Hash(const char* text, int len, bool fold) { return KD_HashCode_String_GetA(text, len, fold); }
  static uint32_t Hash(const View& text, bool fold) { return KD_HashCode_String_GetA(text, fold); }
};

template <>
struct StringKit<CKD_WideString> {
  using C = wchar_t;
  using View = CKD_WideStringC;
  using Std = std::wstring;
  static size_t Bytes(size_t n) { return 4 * n + 28; }
  static constexpr uint32_t kHashFactor = 1313;
  static uint32_t Hash(const wchar_t* text, int len, bool fold) { return KD_HashCode_String_GetW(text, len, fold); }
  static uint32_t Hash(const View& text, bool fold) { return KD_HashCode_String_GetW(text, fold); }
};

// T widens an ASCII text to the string's character type.
template <class S>
typename StringKit<S>::Std T(const char* ascii) {
  const std::string s(ascii);
  return typename StringKit<S>::Std(s.begin(), s.end());
}

template <class S>
S Make(const typename StringKit<S>::Std& text) {
  return S(text.data(), static_cast<int>(text.size()));
}

template <class S>
S Make(const char* ascii) {
  return Make<S>(T<S>(ascii));
}

template <class S>
typename StringKit<S>::Std Std(const S& s) {
  return typename StringKit<S>::Std(s.c_str(), static_cast<size_t>(s.GetLength()));
}

// The record behind s (null for the null string) and its fields.
template <class S>
auto Rec(const S& s) {
  return kdtext::StringAccess::Data(s);
}
template <class S>
long Refs(const S& s) {
  return Rec(s) ? static_cast<long>(Rec(s)->m_nRefs) : 0;
}
template <class S>
int Alloc(const S& s) {
  return Rec(s) ? Rec(s)->m_nAllocLength : 0;
}

// CtypeLocale switches LC_CTYPE for one scope; ok() is false when the locale is missing.
class CtypeLocale {
 public:
  explicit CtypeLocale(const char* name) : previous_(setlocale(LC_CTYPE, nullptr)) { ok_ = setlocale(LC_CTYPE, name); }
  ~CtypeLocale() { setlocale(LC_CTYPE, previous_.c_str()); }
  bool ok() const { return ok_; }

 private:
  std::string previous_;
  bool ok_;
};

// WellFormed checks what every string must keep: a terminator after the counted characters and
// an allocation that holds them.
template <class S>
bool WellFormed(const S& s) {
  auto* r = Rec(s);
  if (!r) return true;
  return r->m_nDataLength >= 0 && r->m_nDataLength <= r->m_nAllocLength && r->GetChars()[r->m_nDataLength] == 0 &&
         (r->m_nRefs >= 1 || r->m_nRefs == -1);
}

}  // namespace kdtest

#endif  // NORVANE_TEXT_STRING_TEST_SUPPORT_H_
