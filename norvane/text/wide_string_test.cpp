#include "norvane/text/wide_string.h"

#include <gtest/gtest.h>

#include <climits>
#include <random>
#include <string>
#include <vector>

#include "norvane/text/string_test_support.h"

namespace {

using kdtest::Alloc;
using kdtest::Rec;
using kdtest::Std;

using WS = CKD_WideString;

class WideString : public kdtest::ManagedTest {};

// A record of allocated length 0 (a copy of a kept empty record, unshared by GetBuffer(0)) grows
// from 2: to 2 * 1.5.
TEST_F(WideString, AppendGrowsFromAtLeastTwo) {
  WS kept(L"x");
  kept.Delete(0);
  WS zero(kept);
  zero.GetBuffer(0);
  ASSERT_EQ(Alloc(zero), 0);
  zero += L'y';
  EXPECT_EQ(Alloc(zero), 3);
  EXPECT_EQ(sys.requests().back(), 4u * 3 + 28);
}

TEST_F(WideString, Comparison) {
  WS kept(L"a");
  kept.Delete(0);
  EXPECT_EQ(WS().Compare(WS()), 0);
  EXPECT_EQ(WS().Compare(kept), -1);  // null before any record, even an empty one
  EXPECT_EQ(kept.Compare(WS()), 1);
  EXPECT_EQ(WS(L"ab").Compare(WS(L"abc")), -1);
  EXPECT_EQ(WS(L"abd").Compare(WS(L"abc")), 1);
  EXPECT_EQ(WS(L"abc").Compare(WS(L"abc")), 0);
  const wchar_t negative[] = {static_cast<wchar_t>(-5), 0};
  EXPECT_EQ(WS(negative).Compare(WS(L"a")), -1);  // signed 32-bit characters
  EXPECT_TRUE(WS(negative) < WS(L"a"));
  EXPECT_TRUE(WS() < kept);

  EXPECT_EQ(WS(L"abc").Compare(L"abc"), 0);
  EXPECT_LT(WS(L"abc").Compare(L"abd"), 0);
  EXPECT_GT(WS(L"b").Compare(L""), 0);
  EXPECT_EQ(WS().Compare(L""), 0);
  EXPECT_EQ(WS().Compare(static_cast<const wchar_t*>(nullptr)), 0);
  EXPECT_EQ(WS(L"Hello").CompareNoCase(L"hELLO"), 0);
  EXPECT_LT(WS(L"abc").CompareNoCase(L"ABD"), 0);
  EXPECT_NE(WS(L"\u00C4").CompareNoCase(L"\u00E4"), 0);
  EXPECT_EQ(WS().CompareNoCase(nullptr), 0);
  EXPECT_EQ(WS().CompareNoCase(L""), 0);
  EXPECT_EQ(WS().CompareNoCase(L"a"), -1);
  EXPECT_TRUE(kept == WS());
}

TEST_F(WideString, FindStopsAtAnEmbeddedZero) {
  const wchar_t raw[] = {L'a', L'b', 0, L'c', L'd'};
  WS s(raw, 5);
  EXPECT_EQ(s.Find(L'c'), -1);
  EXPECT_EQ(s.Find(L"cd"), -1);
  EXPECT_EQ(s.Find(L'c', 3), 3);
  EXPECT_EQ(s.Find(L"cd", 3), 3);
  EXPECT_EQ(s.Find(L'\0'), 2);
  EXPECT_EQ(s.Find(L"", 1), 1);  // wcsstr finds an empty text where it starts
  EXPECT_EQ(s.Find(L"", 5), 5);
  EXPECT_EQ(s.Find(L"", 6), -1);
  EXPECT_EQ(s.Find(L'a', -2), 0);
  EXPECT_EQ(s.Find(static_cast<const wchar_t*>(nullptr)), -1);
  // The trims take their set as terminated text, so 0 is never in it.
  WS z(L"\u00E9x\u00E9");
  z.TrimLeft(L"\u00E9");
  z.TrimRight(L'\u00E9');
  EXPECT_EQ(Std(z), L"x");
}

TEST_F(WideString, UTF16) {
  EXPECT_EQ(Std(WS().UTF16LE_Encode(false)), "");
  EXPECT_EQ(Std(WS().UTF16LE_Encode(true)), std::string(2, '\0'));
  EXPECT_EQ(Std(WS(L"A\u00E9").UTF16LE_Encode(false)), std::string("A\0\xE9\0", 4));
  // Beyond the BMP only the low 16 bits are kept: no surrogates.
  EXPECT_EQ(Std(WS(L"\U0001F600").UTF16LE_Encode(true)), std::string("\x00\xF6\0\0", 4));

  const unsigned short pair[] = {0xD83D, 0xDE00, 0};
  WS decoded = WS::FromUTF16LE(pair, -1);
  ASSERT_EQ(decoded.GetLength(), 2);  // surrogates are not combined
  EXPECT_EQ(decoded[0], 0xD83D);
  EXPECT_EQ(decoded[1], 0xDE00);
  const unsigned short be[] = {0x4100, 0xE900};
  EXPECT_EQ(Std(WS::FromUTF16BE(be, 2)), L"A\u00E9");
  EXPECT_EQ(Rec(WS::FromUTF16LE(pair, 0)), nullptr);
  EXPECT_EQ(Rec(WS::FromUTF16LE(nullptr, 3)), nullptr);
  EXPECT_EQ(WS::FromUTF16LE(pair, 1).GetLength(), 1);
  EXPECT_EQ(WS::WStringLength(pair), 2);
  EXPECT_EQ(WS::WStringLength(pair + 2), 0);
  EXPECT_EQ(WS::WStringLength(nullptr), 0);

  // Round trip of random BMP text, from bytes at an odd address.
  std::mt19937 rng(16);
  for (int round = 0; round < 50; ++round) {
    std::wstring text;
    for (int n = 1 + static_cast<int>(rng() % 40); n > 0; --n) text += static_cast<wchar_t>(1 + rng() % 0xFFFF);
    CKD_ByteString bytes = WS(text.c_str()).UTF16LE_Encode(round % 2 == 0);
    std::string shifted = " " + Std(bytes);
    WS back = WS::FromUTF16LE(reinterpret_cast<const unsigned short*>(shifted.data() + 1), bytes.GetLength() / 2);
    if (round % 2 == 0) back.Delete(back.GetLength() - 1);  // the terminator
    ASSERT_EQ(Std(back), text);
  }
}

TEST_F(WideString, CaseAndIntegers) {
  WS s(L"Stra\u00DFe \u00C4b");
  WS shared(s);
  s.MakeUpper();
  EXPECT_EQ(Std(s), L"STRA\u00DFE \u00C4B");  // ASCII letters only
  EXPECT_EQ(Std(shared), L"Stra\u00DFe \u00C4b");
  s.MakeLower();
  EXPECT_EQ(Std(s), L"stra\u00DFe \u00C4b");
  EXPECT_EQ(WS(L"-42abc").GetInteger(), -42);
  EXPECT_EQ(WS(L" 7").GetInteger(), 0);
  EXPECT_EQ(WS().GetInteger(), 0);
  EXPECT_EQ(WS(L"2147483648").GetInteger(), INT_MIN);  // wraps
}

}  // namespace
