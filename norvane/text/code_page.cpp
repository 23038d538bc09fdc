#include "norvane/text/code_page.h"

#include <atomic>

#include "norvane/text/code_page_internal.h"

namespace kdtext {

#define KD_CODE_PAGE_ENTRY(n) {&g_CP##n##_MapHeader, &g_CP##n##_CUMap, &g_CP##n##_UCMap}
const KD_CodePage_Entry g_CodePageRegistry[kCodePageCount] = {
    KD_CODE_PAGE_ENTRY(874),  KD_CODE_PAGE_ENTRY(932),  KD_CODE_PAGE_ENTRY(936),  KD_CODE_PAGE_ENTRY(949),
    KD_CODE_PAGE_ENTRY(950),  KD_CODE_PAGE_ENTRY(1250), KD_CODE_PAGE_ENTRY(1251), KD_CODE_PAGE_ENTRY(1252),
    KD_CODE_PAGE_ENTRY(1253), KD_CODE_PAGE_ENTRY(1254), KD_CODE_PAGE_ENTRY(1255), KD_CODE_PAGE_ENTRY(1256),
    KD_CODE_PAGE_ENTRY(1257), KD_CODE_PAGE_ENTRY(1258),
};
#undef KD_CODE_PAGE_ENTRY

namespace {

// Flat tables, built once per page on first use. Static storage costs nothing until a page's
// table is written, and never depends on which memory manager is the default at that moment.
// State: 0 not built, 1 being built (other callers use the table lookups meanwhile), 2 ready.
enum { kFirstDoubleByte = 1, kDoubleByteCount = 4 };  // 932, 936, 949, 950 follow 874
uint16_t g_DecodeTables[kDoubleByteCount][65536];
uint16_t g_EncodeTables[kCodePageCount][65536];
std::atomic<int> g_DecodeState[kDoubleByteCount];
std::atomic<int> g_EncodeState[kCodePageCount];

template <typename Fill>
const uint16_t* Ready(std::atomic<int>& state, uint16_t* table, Fill fill) {
  int s = state.load(std::memory_order_acquire);
  if (s == 2) return table;
  if (s == 0 && state.compare_exchange_strong(s, 1, std::memory_order_acquire)) {
    fill(table);
    state.store(2, std::memory_order_release);
    return table;
  }
  return nullptr;
}

}  // namespace

const uint16_t* DecodeTable(const KD_CodePage_Entry* entry) {
  int slot = static_cast<int>(entry - g_CodePageRegistry) - kFirstDoubleByte;
  if (slot < 0 || slot >= kDoubleByteCount) return nullptr;
  return Ready(g_DecodeState[slot], g_DecodeTables[slot], [entry](uint16_t* table) {
    for (uint32_t code = 0; code < 65536; ++code) table[code] = static_cast<uint16_t>(CodeToUnicode(entry, code));
  });
}

const uint16_t* EncodeTable(const KD_CodePage_Entry* entry) {
  int slot = static_cast<int>(entry - g_CodePageRegistry);
  if (slot < 0 || slot >= kCodePageCount) return nullptr;
  return Ready(g_EncodeState[slot], g_EncodeTables[slot], [entry](uint16_t* table) {
    for (uint32_t ch = 0; ch < 65536; ++ch) table[ch] = static_cast<uint16_t>(UnicodeToCode(entry, ch));
  });
}

}  // namespace kdtext

const KD_CodePage_Entry* KD_GetCodePage(uint16_t codePage) {
  int lo = 0, hi = kdtext::kCodePageCount - 1;
  while (lo <= hi) {
    int mid = (lo + hi) >> 1;
    uint16_t number = kdtext::g_CodePageRegistry[mid].m_pHeader->m_wCodePage;
    if (number == codePage) return &kdtext::g_CodePageRegistry[mid];
    if (number < codePage)
      lo = mid + 1;
    else
      hi = mid - 1;
  }
  return nullptr;
}

IKD_CodePage* IKD_CodePage::Create(uint16_t codePage) {
  const KD_CodePage_Entry* entry = KD_GetCodePage(codePage);
  return entry ? new CKD_CodePage(entry) : nullptr;
}

void CKD_CodePage::Release() { delete this; }
uint16_t CKD_CodePage::GetCodePageNumber() const { return m_pEntry->m_pHeader->m_wCodePage; }
uint32_t CKD_CodePage::GetCodeSystemType() const { return m_pEntry->m_pHeader->m_dwCodeSystemType; }
bool CKD_CodePage::HasLeadByte() const { return m_pEntry->m_pHeader->m_bHasLeadByte != 0; }
bool CKD_CodePage::IsLeadByte(uint8_t byte) const { return (m_pEntry->m_pCUMap->_CUMapIndex1[byte] & 0xFFFF) != 0; }
uint8_t CKD_CodePage::GetMinBytesPerChar() const { return m_pEntry->m_pHeader->m_uMinBytesPerChar; }
uint8_t CKD_CodePage::GetMaxBytesPerChar() const { return m_pEntry->m_pHeader->m_uMaxBytesPerChar; }
uint32_t CKD_CodePage::GetMinCharcode() const { return m_pEntry->m_pHeader->m_dwMinCharcode; }
uint32_t CKD_CodePage::GetMaxCharcode() const { return m_pEntry->m_pHeader->m_dwMaxCharcode; }
uint32_t CKD_CodePage::GetDefCharcode() const { return m_pEntry->m_pHeader->m_dwDefCharcode; }
uint32_t CKD_CodePage::GetMinUnicode() const { return m_pEntry->m_pHeader->m_dwMinUnicode; }
uint32_t CKD_CodePage::GetMaxUnicode() const { return m_pEntry->m_pHeader->m_dwMaxUnicode; }
uint32_t CKD_CodePage::GetDefUnicode() const { return m_pEntry->m_pHeader->m_dwDefUnicode; }
bool CKD_CodePage::IsValidCharcode(uint16_t code) const { return GetUnicode(code) != 0xFEFF; }
wchar_t CKD_CodePage::GetUnicode(uint16_t code) const {
  return static_cast<wchar_t>(kdtext::CodeToUnicode(m_pEntry, code));
}
bool CKD_CodePage::IsValidUnicode(wchar_t ch) const { return (GetCharcode(ch) & 0xFFFF) != 0xFEFF; }
uint32_t CKD_CodePage::GetCharcode(wchar_t ch) const {
  return kdtext::UnicodeToCode(m_pEntry, static_cast<uint32_t>(ch));
}

IKD_CodePageMgr* IKD_CodePageMgr::Create() { return new CKD_CodePageMgr(); }

void CKD_CodePageMgr::Release() { delete this; }
uint16_t CKD_CodePageMgr::GetDefaultCodePage() const { return 1252; }
bool CKD_CodePageMgr::IsValidCodePage(uint16_t codePage) const { return KD_GetCodePage(codePage) != nullptr; }
IKD_CodePage* CKD_CodePageMgr::CreateCodePage(uint16_t codePage) const { return IKD_CodePage::Create(codePage); }
