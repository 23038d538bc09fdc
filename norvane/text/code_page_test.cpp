#include "norvane/text/code_page.h"

#include <gtest/gtest.h>

#include <vector>

#include "norvane/text/byte_string.h"
#include "norvane/text/charset.h"
#include "norvane/text/charset_internal.h"
#include "norvane/text/code_page_internal.h"
#include "tests/support/vtable.h"

namespace {

const uint16_t kPages[] = {874, 932, 936, 949, 950, 1250, 1251, 1252, 1253, 1254, 1255, 1256, 1257, 1258};

struct PageRef {
  IKD_CodePage* page;
  explicit PageRef(uint16_t number) : page(IKD_CodePage::Create(number)) {}
  ~PageRef() {
    if (page) page->Release();
  }
  IKD_CodePage* operator->() const { return page; }
};

struct CodePageProbe : IKD_CodePage {
  virtual void After() {}
};
struct CodePageMgrProbe : IKD_CodePageMgr {
  virtual void After() {}
};

TEST(CodePage, VirtualSlotOrder) {
  using kdtest::VirtualSlot;
  using P = IKD_CodePage;
  // The functions in slot order, from slot 0.
  const long page[] = {VirtualSlot(&P::Release),         VirtualSlot(&P::GetCodePageNumber),
                       VirtualSlot(&P::GetCodeSystemType), VirtualSlot(&P::HasLeadByte),
                       VirtualSlot(&P::IsLeadByte),        VirtualSlot(&P::GetMinBytesPerChar),
                       VirtualSlot(&P::GetMaxBytesPerChar), VirtualSlot(&P::GetMinCharcode),
                       VirtualSlot(&P::GetMaxCharcode),    VirtualSlot(&P::GetDefCharcode),
                       VirtualSlot(&P::GetMinUnicode),     VirtualSlot(&P::GetMaxUnicode),
                       VirtualSlot(&P::GetDefUnicode),     VirtualSlot(&P::IsValidCharcode),
                       VirtualSlot(&P::GetUnicode),        VirtualSlot(&P::IsValidUnicode),
                       VirtualSlot(&P::GetCharcode)};
  for (long i = 0; i < 17; ++i) EXPECT_EQ(page[i], i);
  // The destructor's two entries come last: a function a derived class adds lands after them.
  EXPECT_EQ(VirtualSlot(&CodePageProbe::After), 19);

  const long mgr[] = {VirtualSlot(&IKD_CodePageMgr::Release), VirtualSlot(&IKD_CodePageMgr::GetDefaultCodePage),
                      VirtualSlot(&IKD_CodePageMgr::IsValidCodePage), VirtualSlot(&IKD_CodePageMgr::CreateCodePage)};
  for (long i = 0; i < 4; ++i) EXPECT_EQ(mgr[i], i);
  EXPECT_EQ(VirtualSlot(&CodePageMgrProbe::After), 6);
}

TEST(CodePage, RegistryAndManager) {
  for (uint16_t number : kPages) {
    const KD_CodePage_Entry* e = KD_GetCodePage(number);
    ASSERT_NE(e, nullptr) << number;
    EXPECT_EQ(e->m_pHeader->m_wCodePage, number);
    // The Unicode-to-code index is sorted and ends with the sentinel the inclusive search reads.
    const KD_CodePage_UCMap* uc = e->m_pUCMap;
    EXPECT_EQ(uc->_UCMapIndex[uc->m_dwCount].m_wFirst, 0xFFFF) << number;
    for (uint32_t i = 1; i < uc->m_dwCount; ++i)
      ASSERT_GT(uc->_UCMapIndex[i].m_wFirst, uc->_UCMapIndex[i - 1].m_wLast) << number;
  }
  for (int i = 1; i < kdtext::kCodePageCount; ++i)
    EXPECT_LT(kdtext::g_CodePageRegistry[i - 1].m_pHeader->m_wCodePage,
              kdtext::g_CodePageRegistry[i].m_pHeader->m_wCodePage);
  for (uint16_t number : {0, 437, 873, 875, 1200, 1201, 1249, 1259, 65001, 65535})
    EXPECT_EQ(KD_GetCodePage(static_cast<uint16_t>(number)), nullptr) << number;
  EXPECT_EQ(KD_GetCodePage(1252)->m_pCUMap, &g_CP1252_CUMap);
  EXPECT_EQ(IKD_CodePage::Create(437), nullptr);

  IKD_CodePageMgr* mgr = IKD_CodePageMgr::Create();
  ASSERT_NE(mgr, nullptr);
  EXPECT_EQ(mgr->GetDefaultCodePage(), 1252);
  EXPECT_TRUE(mgr->IsValidCodePage(950));
  EXPECT_FALSE(mgr->IsValidCodePage(65001));
  IKD_CodePage* page = mgr->CreateCodePage(1251);
  ASSERT_NE(page, nullptr);
  EXPECT_EQ(page->GetCodePageNumber(), 1251);
  page->Release();
  EXPECT_EQ(mgr->CreateCodePage(1), nullptr);
  mgr->Release();
}

TEST(CodePage, HeaderFields) {
  PageRef p1252(1252), p936(936);
  EXPECT_EQ(p1252->GetCodeSystemType(), static_cast<uint32_t>(KD_CODESYSTEM_SBCS));
  EXPECT_FALSE(p1252->HasLeadByte());
  EXPECT_EQ(p1252->GetMinBytesPerChar(), 1);
  EXPECT_EQ(p1252->GetMaxBytesPerChar(), 1);
  EXPECT_EQ(p1252->GetMinCharcode(), 0u);
  EXPECT_EQ(p1252->GetMaxCharcode(), 255u);
  EXPECT_EQ(p1252->GetDefCharcode(), 0x3Fu);
  EXPECT_EQ(p1252->GetMinUnicode(), 0u);
  EXPECT_EQ(p1252->GetMaxUnicode(), 0x2122u);
  EXPECT_EQ(p1252->GetDefUnicode(), 0x3Fu);
  EXPECT_EQ(p936->GetCodeSystemType(), static_cast<uint32_t>(KD_CODESYSTEM_DBCS));
  EXPECT_TRUE(p936->HasLeadByte());
  EXPECT_EQ(p936->GetMaxBytesPerChar(), 2);
  EXPECT_EQ(p936->GetMaxCharcode(), 0xFE4Fu);
  EXPECT_EQ(p936->GetMaxUnicode(), 0xFFE5u);
  const uint8_t* raw = reinterpret_cast<const uint8_t*>(&g_CP936_MapHeader);
  EXPECT_EQ(raw[0] | raw[1] << 8, 936);  // little-endian, at offset 0
  EXPECT_EQ(raw[8], 1);                  // has lead bytes
}

// Every code the tables map goes to Unicode and back, and every Unicode value with a code comes
// back to itself; duplicates (one character, several codes) come back to the canonical code.
TEST(CodePage, EveryMappingRoundTrips) {
  const int kExpectedCodes[] = {225, 9800, 21920, 17176, 14039, 251, 255, 251, 239, 249, 233, 256, 244, 247};
  // 932 repeats characters in its NEC and IBM rows; 950 repeats ten.
  const int kDuplicates[] = {0, 398, 0, 0, 10, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  for (size_t k = 0; k < sizeof(kPages) / sizeof(kPages[0]); ++k) {
    PageRef page(kPages[k]);
    int mapped = 0, duplicates = 0;
    for (uint32_t code = 0; code < 0x10000; ++code) {
      if (code >= 256 && !page->IsLeadByte(static_cast<uint8_t>(code >> 8))) continue;
      wchar_t u = page->GetUnicode(static_cast<uint16_t>(code));
      ASSERT_EQ(page->IsValidCharcode(static_cast<uint16_t>(code)), u != 0xFEFF);
      if (u == 0xFEFF) continue;
      ++mapped;
      uint32_t back = page->GetCharcode(u);
      ASSERT_NE(back & 0xFFFF, 0xFEFFu) << kPages[k] << " " << code;
      ASSERT_NE(back, 0xFFFFu) << kPages[k] << " " << code;
      ASSERT_EQ(page->GetUnicode(static_cast<uint16_t>(back)), u) << kPages[k] << " " << code;
      if (back != code) ++duplicates;
    }
    EXPECT_EQ(mapped, kExpectedCodes[k]) << kPages[k];
    EXPECT_EQ(duplicates, kDuplicates[k]) << kPages[k];
    int reached = 0;
    for (uint32_t u = 0; u < 0x10000; ++u) {
      uint32_t code = page->GetCharcode(static_cast<wchar_t>(u));
      if (code == 0xFEFF || code == 0xFFFF) {
        EXPECT_TRUE(code == 0xFFFF || !page->IsValidUnicode(static_cast<wchar_t>(u)));
        continue;
      }
      ++reached;
      ASSERT_EQ(page->GetUnicode(static_cast<uint16_t>(code)), static_cast<wchar_t>(u)) << kPages[k] << " " << u;
    }
    EXPECT_EQ(reached, mapped - duplicates) << kPages[k];
    // Beyond 16 bits nothing is covered.
    EXPECT_EQ(page->GetCharcode(0x10041), 0xFFFFu);
    EXPECT_EQ(page->GetCharcode(static_cast<wchar_t>(-1)), 0xFFFFu);
  }
}

TEST(CodePage, PublishedCharacters) {
  struct Known {
    uint16_t page, code;
    wchar_t unicode;
  };
  const Known kKnown[] = {
      {874, 0x80, 0x20AC},    {874, 0xA1, 0x0E01},    {874, 0xDF, 0x0E3F},    {932, 0x82A0, 0x3042},
      {932, 0x88EA, 0x4E00},  {932, 0x8140, 0x3000},  {932, 0xA1, 0xFF61},    {932, 0x5C, 0x5C},
      {936, 0x80, 0x20AC},    {936, 0xB0A1, 0x554A},  {936, 0xD2BB, 0x4E00},  {936, 0x8140, 0x4E02},
      {949, 0xB0A1, 0xAC00},  {949, 0x8141, 0xAC02},  {949, 0xA1A1, 0x3000},  {949, 0xECE9, 0x4E00},
      {950, 0xA440, 0x4E00},  {950, 0xA3E1, 0x20AC},  {950, 0xA140, 0x3000},  {950, 0xF9FE, 0x2593},
      {1250, 0x8A, 0x0160},   {1250, 0xB9, 0x0105},   {1251, 0xC0, 0x0410},   {1251, 0x88, 0x20AC},
      {1251, 0xB9, 0x2116},   {1252, 0x80, 0x20AC},   {1252, 0x99, 0x2122},   {1252, 0xE9, 0x00E9},
      {1253, 0xC1, 0x0391},   {1253, 0xA2, 0x0386},   {1254, 0xD0, 0x011E},   {1254, 0xFD, 0x0131},
      {1255, 0xE0, 0x05D0},   {1255, 0xA4, 0x20AA},   {1256, 0xC7, 0x0627},   {1256, 0x81, 0x067E},
      {1257, 0xC0, 0x0104},   {1257, 0xE6, 0x0119},   {1258, 0xC3, 0x0102},   {1258, 0xFE, 0x20AB},
      {932, 0x8790, 0x2252},  // a duplicate of 0x81E0
      // The user-defined rows of 932 (F040-F9FC) and 950 (C6A1-C8FE) in code order, and 932's
      // single-byte extras, in the private-use area as Windows maps them.
      {932, 0xF040, 0xE000},  {932, 0xF07E, 0xE03E},  {932, 0xF080, 0xE03F},  {932, 0xF140, 0xE0BC},
      {932, 0xF9FC, 0xE757},  {932, 0x80, 0x0080},    {932, 0xA0, 0xF8F0},    {932, 0xFF, 0xF8F3},
      {950, 0xC6A1, 0xF6B1},  {950, 0xC6FE, 0xF70E},  {950, 0xC740, 0xF70F},  {950, 0xC8FE, 0xF848},
      // No mapping (0xFEFF): an undefined code, codes beyond the maximum, user-defined codes the
      // tables leave out, a lead byte alone, trail bytes outside the lead byte's ranges.
      {1252, 0x81, 0xFEFF},   {1252, 0x100, 0xFEFF},  {936, 0xFE50, 0xFEFF},  {932, 0xF0FD, 0xFEFF},
      {950, 0x8140, 0xFEFF},  {936, 0x81, 0xFEFF},    {936, 0x8120, 0xFEFF},  {936, 0x81FF, 0xFEFF},
      {936, 0x4142, 0x41},  // a first byte that is no lead byte gives its own value
  };
  for (const Known& k : kKnown) {
    PageRef page(k.page);
    EXPECT_EQ(page->GetUnicode(k.code), k.unicode) << k.page << " " << k.code;
  }
  PageRef p1252(1252), p932(932), p936(936);
  EXPECT_EQ(p932->GetCharcode(0x2252), 0x81E0u);  // the codec's choice among duplicates
  // The lead bytes are those Windows declares, whether or not their codes are mapped.
  for (uint16_t number : {932, 936, 949, 950}) {
    PageRef page(number);
    for (int b = 0; b < 256; ++b) {
      bool lead = number == 932 ? (b >= 0x81 && b <= 0x9F) || (b >= 0xE0 && b <= 0xFC) : b >= 0x81 && b <= 0xFE;
      EXPECT_EQ(page->IsLeadByte(static_cast<uint8_t>(b)), lead) << number << " " << b;
    }
  }
  EXPECT_EQ(p936->GetCharcode(0x20AC), 0x80u);
  EXPECT_EQ(p1252->GetCharcode(0x0100), 0xFFFFu);  // no range: counts as valid by the rule
  EXPECT_TRUE(p1252->IsValidUnicode(0x0100));
}

TEST(Charset, Tables) {
  const uint16_t kCharsetToPage[][2] = {
      {0, 1252},   {1, 0},      {2, 42},     {77, 10000}, {78, 10001}, {79, 10003}, {80, 10008}, {81, 10002},
      {83, 10005}, {84, 10004}, {85, 10006}, {86, 10081}, {87, 10021}, {88, 10029}, {89, 10007}, {128, 932},
      {129, 949},  {130, 1361}, {134, 936},  {136, 950},  {161, 1253}, {162, 1254}, {163, 1258}, {177, 1255},
      {178, 1256}, {186, 1257}, {204, 1251}, {222, 874},  {238, 1250}, {254, 437},  {255, 850},
  };
  for (const auto& pair : kCharsetToPage) {
    EXPECT_EQ(KD_GetCodePageFromCharset(static_cast<uint8_t>(pair[0])), pair[1]) << pair[0];
    // The reverse table's unsorted tail hides six of the Macintosh pages from its search.
    uint16_t page = pair[1];
    bool hidden = page == 10003 || page == 10005 || page == 10007 || page == 10008 || page == 10021 || page == 10029;
    EXPECT_EQ(KD_GetCharsetFromCodePage(page), hidden ? 0xFFFF : pair[0]) << page;
  }
  EXPECT_EQ(KD_GetCodePageFromCharset(3), 0xFFFF);
  EXPECT_EQ(KD_GetCodePageFromCharset(200), 0xFFFF);
  EXPECT_EQ(KD_GetCharsetFromCodePage(65001), 0xFFFF);
  EXPECT_EQ(KD_GetCharsetFromCodePage(10000), 77);
}

TEST(Charset, Names) {
  struct Name {
    const char* name;
    uint16_t page;
  };
  const Name kNames[] = {
      {"windows-1252", 1252}, {"WINDOWS-1252", 1252}, {"cp1252", 1252},     {"latin1", 1252},   {"Shift_JIS", 932},
      {"sjis", 932},          {"windows-31j", 932},   {"gbk", 936},         {"GB2312", 936},    {"cp936", 936},
      {"euc-kr", 949},        {"ks_c_5601-1987", 949}, {"big5", 950},       {"cp950", 950},     {"utf-8", 65001},
      {"UTF8", 65001},        {"utf-16le", 1200},     {"utf-16", 1200},     {"UTF-16BE", 1201}, {"windows-874", 874},
      {"tis-620", 874},       {"windows-1250", 1250}, {"cp1251", 1251},     {"windows-1253", 1253},
      {"iso-8859-9", 1254},   {"windows-1255", 1255}, {"cp1256", 1256},     {"windows-1257", 1257},
      {"cp1258", 1258},       {"ibm437", 437},        {"cp850", 850},       {"macintosh", 10000},
      {"koi8-r", 20866},      {"936", 936},
  };
  for (const Name& n : kNames) EXPECT_EQ(KD_GetCodePageFromStringA(n.name), n.page) << n.name;
  EXPECT_EQ(KD_GetCodePageFromStringA("cp1252 and more", 6), 1252);
  EXPECT_EQ(KD_GetCodePageFromStringA("no-such-charset"), 0xFFFF);
  EXPECT_EQ(KD_GetCodePageFromStringA(""), 0xFFFF);
  EXPECT_EQ(KD_GetCodePageFromStringA("gbk", 0), 0xFFFF);
  EXPECT_EQ(KD_GetCodePageFromStringA(nullptr), 0xFFFF);
  EXPECT_EQ(KD_GetCodePageFormStringW(L"Shift_JIS"), 932);
  EXPECT_EQ(KD_GetCodePageFormStringW(L"\u0163p1252x", 6), 1252);  // only the low byte counts
  EXPECT_EQ(KD_GetCodePageFormStringW(L""), 0xFFFF);
  EXPECT_EQ(KD_GetCodePageFormStringW(nullptr), 0xFFFF);
  std::wstring longName(300, L'x');
  EXPECT_EQ(KD_GetCodePageFormStringW(longName.c_str()), 0xFFFF);
  // The binary search needs the 255 records sorted by hash.
  for (int i = 1; i < KD_CODEPAGE_NAME_COUNT; ++i)
    EXPECT_LT(g_CodePageNameHashes[i - 1].m_dwHash, g_CodePageNameHashes[i].m_dwHash);
}

}  // namespace
