#include "norvane/text/byte_string.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "norvane/text/string_test_support.h"

namespace {

using kdtest::Alloc;
using kdtest::Rec;
using kdtest::Refs;
using kdtest::Std;

using BS = CKD_ByteString;

class ByteString : public kdtest::ManagedTest {};

TEST_F(ByteString, EmbeddedZeroBytes) {
  const char raw[] = "ab\0cd\0";
  BS s(raw, 6);
  EXPECT_NE(s, "ab");  // the text is measured, not the string
  // Find(ch) searches terminated text: it stops at the first 0, and finds that 0.
  EXPECT_EQ(s.Find('c'), -1);
  EXPECT_EQ(s.Find('c', 3), 3);
  EXPECT_EQ(s.Find('\0'), 2);
  EXPECT_EQ(BS("abc").Find('\0'), 3);
  EXPECT_EQ(s.Find('a', 6), -1);
  EXPECT_EQ(s.Find('a', -4), 0);
  // ReverseFind sees the whole counted length (Find(sub) too: see SubstringSearch).
  EXPECT_EQ(s.ReverseFind('\0'), 5);
  EXPECT_EQ(s.ReverseFind('a'), 0);
  EXPECT_EQ(s.ReverseFind('z'), -1);
  // Case mapping stops at the first 0 byte.
  BS m("ab\0cd", 5);
  m.MakeUpper();
  EXPECT_EQ(m, CKD_ByteStringC("AB\0cd", 5));
  BS hi("Hi \xC4\xE4!");
  hi.MakeLower();
  EXPECT_EQ(hi, "hi \xC4\xE4!");
  // The trims compare bytes of the set by count, so 0 can be trimmed.
  BS z("\0\0x\0", 4);
  z.TrimRight(CKD_ByteStringC("\0", 1));
  z.TrimLeft('\0');
  EXPECT_EQ(z, "x");
}

TEST_F(ByteString, SubstringSearch) {
  BS s("abcabcab");
  EXPECT_EQ(s.Find(""), -1);  // an empty needle is never found
  EXPECT_EQ(s.Find("b", 9), -1);
  EXPECT_EQ(KD_strstr("abc", 3, "", 0), nullptr);
  EXPECT_EQ(KD_strstr("abc", 3, "abcd", 4), nullptr);
  EXPECT_EQ(KD_strstr(nullptr, 3, "a", 1), nullptr);
  const char* hay = "xxabxab";
  EXPECT_EQ(KD_strstr(hay, 4, "ab", 2), hay + 2);  // the last candidate is haystackLen - needleLen
  EXPECT_EQ(KD_strstr(hay, 3, "ab", 2), nullptr);

  // Against std::string::find over random text from a small alphabet.
  std::mt19937 rng(7);
  for (int round = 0; round < 300; ++round) {
    std::string text, needle;
    // Some long texts, so that candidates keep failing long enough for the search to change pace.
    for (int n = static_cast<int>(rng() % (round % 10 == 0 ? 5000 : 200)); n > 0; --n) {
      text += static_cast<char>("ab\0c"[rng() % 4]);
    }
    for (int n = 1 + static_cast<int>(rng() % 5); n > 0; --n) needle += static_cast<char>("ab\0c"[rng() % 4]);
    int start = static_cast<int>(rng() % (text.size() + 1));
    BS s(text.data(), static_cast<int>(text.size()));
    size_t expect = text.find(needle, static_cast<size_t>(start));
    ASSERT_EQ(s.Find(CKD_ByteStringC(needle.data(), static_cast<int>(needle.size())), start),
              expect == std::string::npos ? -1 : static_cast<int>(expect));
  }
}

TEST_F(ByteString, ComparisonIsUnsignedAndAsciiFolded) {
  EXPECT_TRUE(BS("Hello").EqualNoCase("hELLO"));
  EXPECT_FALSE(BS("Hello").EqualNoCase("hELL"));
  EXPECT_FALSE(BS("\xC4").EqualNoCase("\xE4"));  // ASCII letters only
  EXPECT_FALSE(BS("[").EqualNoCase("{"));
  EXPECT_TRUE(BS().EqualNoCase(""));

  // Compare and operator< order as std::string does (unsigned bytes, prefix first, null as empty).
  std::mt19937 rng(11);
  std::vector<std::string> ref;
  std::vector<BS> ours;
  for (int i = 0; i < 200; ++i) {
    std::string s;
    for (int n = static_cast<int>(rng() % 4); n > 0; --n) s += static_cast<char>("a\x80\0z"[rng() % 4]);
    ref.push_back(s);
    ours.emplace_back(s.data(), static_cast<int>(s.size()));
    if (i > 0) {
      int expect = ref[i - 1].compare(s);
      ASSERT_EQ(ours[i - 1].Compare(ours[i]), expect < 0 ? -1 : expect > 0 ? 1 : 0);
    }
  }
  std::sort(ref.begin(), ref.end());
  std::sort(ours.begin(), ours.end());
  for (size_t i = 0; i < ref.size(); ++i) ASSERT_EQ(Std(ours[i]), ref[i]);
}

TEST_F(ByteString, GetIDPacksBigEndian) {
  EXPECT_EQ(BS("ab").GetID(), 0x61620000u);
  EXPECT_EQ(BS("abcde").GetID(), 0x61626364u);
  EXPECT_EQ(BS("abcde").GetID(1), 0x62636465u);
  EXPECT_EQ(BS("abcde").GetID(4), 0x65000000u);
  EXPECT_EQ(BS("abcde").GetID(5), 0u);
  EXPECT_EQ(BS("abcde").GetID(-1), 0u);
  EXPECT_EQ(BS().GetID(), 0u);
  EXPECT_EQ(CKD_ByteStringC("\xFF\x01").GetID(), 0xFF010000u);
}

TEST_F(ByteString, FormatInteger) {
  EXPECT_EQ(BS::FormatInteger(0, 0), "0");
  EXPECT_EQ(BS::FormatInteger(1234, 0), "1234");
  EXPECT_EQ(BS::FormatInteger(-1, 0), "4294967295");  // unsigned without flag 1
  EXPECT_EQ(BS::FormatInteger(-1, BS::FORMAT_SIGNED), "-1");
  EXPECT_EQ(BS::FormatInteger(INT_MIN, BS::FORMAT_SIGNED), "-2147483648");
  EXPECT_EQ(BS::FormatInteger(-1, BS::FORMAT_HEX), "ffffffff");
  EXPECT_EQ(BS::FormatInteger(0xBEEF, BS::FORMAT_HEX | BS::FORMAT_UPPERCASE), "BEEF");
  EXPECT_EQ(BS::FormatInteger(0xBEEF, BS::FORMAT_UPPERCASE), "48879");  // upper case needs hex
  EXPECT_EQ(BS::FormatInteger(-255, BS::FORMAT_SIGNED | BS::FORMAT_HEX), "-ff");
  EXPECT_EQ(BS::FormatInteger64(LLONG_MIN), "-9223372036854775808");
  EXPECT_EQ(BS::FormatInteger64(0), "0");
}

// The record steps behind writes and appends, and the remaining constructors.
TEST_F(ByteString, WriteSteps) {
  BS s("abc");
  s.Reserve(40);
  // AllocBeforeWrite keeps a private record that is large enough, leaves a shared one.
  auto* before = Rec(s);
  s.AllocBeforeWrite(10);
  EXPECT_EQ(Rec(s), before);
  BS shared(s);
  shared.AllocBeforeWrite(2);
  EXPECT_NE(Rec(shared), before);
  EXPECT_EQ(Alloc(shared), 2);
  EXPECT_EQ(Refs(s), 1);
  s.AllocBeforeWrite(0);
  EXPECT_EQ(Rec(s), before);
  s.AllocBeforeWrite(41);
  EXPECT_EQ(Alloc(s), 41);
  // ConcatCopy sizes the new record from the current length: 3 + max(3 / 2, 2).
  BS e("abc");
  e.ConcatCopy(1, "x", 2, "yz");
  EXPECT_EQ(Std(e), "xyz");
  EXPECT_EQ(Alloc(e), 5);

  BS l;
  const unsigned char data[] = {1, 0, 2};
  l.Load(data, 3);
  EXPECT_EQ(l, CKD_ByteStringC(data, 3));
  l.Load(data, 0);
  EXPECT_EQ(Rec(l), nullptr);
  EXPECT_EQ(BS('x'), "x");
  EXPECT_EQ(BS(reinterpret_cast<const unsigned char*>("xyz"), 2), "xy");
  EXPECT_EQ(BS("xyz", 2), "xy");
}

TEST_F(ByteString, LoadFromFile) {
  char path[] = "/tmp/norvane_string_test_XXXXXX";
  int fd = mkstemp(path);
  ASSERT_GE(fd, 0);
  std::string content;
  std::mt19937 rng(3);
  for (int i = 0; i < 3000; ++i) content += static_cast<char>(rng() % 4 == 0 ? 0 : rng());
  ASSERT_EQ(write(fd, content.data(), content.size()), static_cast<ssize_t>(content.size()));
  close(fd);
  std::string padded = std::string(path) + "trailing";
  BS s = BS::LoadFromFile(CKD_ByteStringC(padded.data(), static_cast<int>(strlen(path))));
  EXPECT_EQ(Std(s), content);
  EXPECT_EQ(sys.requests().back(), content.size() + 25);
  // The path view is copied once to terminate it; the file takes exactly one record.
  EXPECT_EQ(sys.requests().size(), 2u);
  sys.FailNth(2);
  EXPECT_TRUE(BS::LoadFromFile(path).IsEmpty());
  sys.FailNth(0);
  ASSERT_EQ(truncate(path, 0), 0);
  EXPECT_TRUE(BS::LoadFromFile(path).IsEmpty());
  unlink(path);
  EXPECT_TRUE(BS::LoadFromFile(path).IsEmpty());
  EXPECT_TRUE(BS::LoadFromFile("/tmp").IsEmpty());
  EXPECT_TRUE(BS::LoadFromFile("").IsEmpty());
}

}  // namespace
