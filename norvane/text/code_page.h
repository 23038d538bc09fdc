// Code pages: the built-in tables of the Windows code pages 874, 932, 936, 949, 950 and 1250-1258,
// the registry that finds them (KD_GetCodePage), and the code-page objects over them
// (IKD_CodePage / CKD_CodePage, made by IKD_CodePageMgr / CKD_CodePageMgr).
//
// Each page has three exported, read-only tables: its map header (g_CP1252_MapHeader), its
// code-to-Unicode map (g_CP1252_CUMap) and its Unicode-to-code map (g_CP1252_UCMap). A code is a
// single byte, or for the double-byte pages a lead byte and a trail byte as lead << 8 | trail.
// Unicode values in the tables are 16-bit. 0xFEFF marks "no mapping" in both directions.
//
// Code to Unicode: index 1 has one 32-bit entry per first byte. A single-byte code keeps its
// Unicode value in bits 16..31 (bits 0..15 are 0); a lead byte keeps the number of its index-2
// ranges in bits 0..15 and the index of the first one in bits 16..31. An index-2 entry holds the
// range's first trail byte (bits 0..7), its type (bits 8..15) and the byte offset of its data in
// the data area (bits 16..31). A range ends where the next one of the same lead byte begins.
// Unicode to code: records of (first, last, type, offset of the data in 16-bit units) sorted by
// first value, searched from index 0 up to and including the record count (a sentinel record
// follows the real ones). Range types: 1 = one 16-bit value per position; 2 = a 16-bit base plus
// the position; 4 = a 16-bit base followed by one byte per position that is added to it.
// Multi-byte values in the data are little-endian and may be unaligned.
#ifndef NORVANE_TEXT_CODE_PAGE_H_
#define NORVANE_TEXT_CODE_PAGE_H_

#include <cstddef>
#include <cstdint>

#include "norvane/config.h"
#include "norvane/memory/object.h"

// The map header of a code page: 36 bytes, little-endian.
struct KD_CodePage_MapHeader {
  uint16_t m_wCodePage;          // code page number
  uint8_t m_uMinBytesPerChar;    // 1
  uint8_t m_uMaxBytesPerChar;    // 1 for single-byte pages, 2 for double-byte pages
  uint32_t m_dwCodeSystemType;   // KD_CODESYSTEM_SBCS or KD_CODESYSTEM_DBCS
  uint8_t m_bHasLeadByte;        // 0 or 1
  uint8_t m_Padding[3];
  uint32_t m_dwMinCharcode;      // 0
  uint32_t m_dwMaxCharcode;      // the largest defined code
  uint32_t m_dwDefCharcode;      // written for characters the page cannot encode ('?')
  uint32_t m_dwMinUnicode;       // 0
  uint32_t m_dwMaxUnicode;       // the largest Unicode value the page reaches
  uint32_t m_dwDefUnicode;       // produced for codes the page does not define ('?')
};

enum { KD_CODESYSTEM_SBCS = 1, KD_CODESYSTEM_DBCS = 2 };

// The code-to-Unicode map: three pointers (index 2 and data are null for single-byte pages).
struct KD_CodePage_CUMap {
  const uint32_t* _CUMapIndex1;  // 256 entries
  const uint32_t* _CUMapIndex2;  // range entries
  const uint8_t* _CUData;        // range data
};

// One record of the Unicode-to-code index.
struct KD_CodePage_UCRecord {
  uint16_t m_wFirst;   // first Unicode value of the range
  uint16_t m_wLast;    // last Unicode value of the range
  uint16_t m_wType;    // range type
  uint16_t m_wOffset;  // offset of the range's data in 16-bit units
};

// The Unicode-to-code map. m_dwCount is the index of the last record searched (the search is
// inclusive), which is the number of real records: the sentinel after them sorts last.
struct KD_CodePage_UCMap {
  uint32_t m_dwCount;
  const KD_CodePage_UCRecord* _UCMapIndex;
  const uint16_t* _UCData;
};

// A registry entry: the three tables of one page.
struct KD_CodePage_Entry {
  const KD_CodePage_MapHeader* m_pHeader;
  const KD_CodePage_CUMap* m_pCUMap;
  const KD_CodePage_UCMap* m_pUCMap;
};

static_assert(sizeof(KD_CodePage_MapHeader) == 36 && offsetof(KD_CodePage_MapHeader, m_uMinBytesPerChar) == 2 &&
                  offsetof(KD_CodePage_MapHeader, m_uMaxBytesPerChar) == 3 &&
                  offsetof(KD_CodePage_MapHeader, m_dwCodeSystemType) == 4 &&
                  offsetof(KD_CodePage_MapHeader, m_bHasLeadByte) == 8 &&
                  offsetof(KD_CodePage_MapHeader, m_dwMinCharcode) == 12 &&
                  offsetof(KD_CodePage_MapHeader, m_dwMaxCharcode) == 16 &&
                  offsetof(KD_CodePage_MapHeader, m_dwDefCharcode) == 20 &&
                  offsetof(KD_CodePage_MapHeader, m_dwMinUnicode) == 24 &&
                  offsetof(KD_CodePage_MapHeader, m_dwMaxUnicode) == 28 &&
                  offsetof(KD_CodePage_MapHeader, m_dwDefUnicode) == 32,
              "map header layout");
static_assert(sizeof(KD_CodePage_CUMap) == 24 && offsetof(KD_CodePage_CUMap, _CUMapIndex2) == 8 &&
                  offsetof(KD_CodePage_CUMap, _CUData) == 16,
              "code-to-Unicode map layout");
static_assert(sizeof(KD_CodePage_UCRecord) == 8 && offsetof(KD_CodePage_UCRecord, m_wLast) == 2 &&
                  offsetof(KD_CodePage_UCRecord, m_wType) == 4 && offsetof(KD_CodePage_UCRecord, m_wOffset) == 6,
              "Unicode-to-code record layout");
static_assert(sizeof(KD_CodePage_UCMap) == 24 && offsetof(KD_CodePage_UCMap, _UCMapIndex) == 8 &&
                  offsetof(KD_CodePage_UCMap, _UCData) == 16,
              "Unicode-to-code map layout");
static_assert(sizeof(KD_CodePage_Entry) == 24, "registry entry layout");

// KD_DECLARE_CODE_PAGE(n) declares the exported tables of code page n: g_CPn_MapHeader,
// g_CPn_CUMap and g_CPn_UCMap.
#define KD_DECLARE_CODE_PAGE(n)                                 \
  extern NORVANE_API const KD_CodePage_MapHeader g_CP##n##_MapHeader; \
  extern NORVANE_API const KD_CodePage_CUMap g_CP##n##_CUMap;         \
  extern NORVANE_API const KD_CodePage_UCMap g_CP##n##_UCMap;
KD_DECLARE_CODE_PAGE(874)
KD_DECLARE_CODE_PAGE(932)
KD_DECLARE_CODE_PAGE(936)
KD_DECLARE_CODE_PAGE(949)
KD_DECLARE_CODE_PAGE(950)
KD_DECLARE_CODE_PAGE(1250)
KD_DECLARE_CODE_PAGE(1251)
KD_DECLARE_CODE_PAGE(1252)
KD_DECLARE_CODE_PAGE(1253)
KD_DECLARE_CODE_PAGE(1254)
KD_DECLARE_CODE_PAGE(1255)
KD_DECLARE_CODE_PAGE(1256)
KD_DECLARE_CODE_PAGE(1257)
KD_DECLARE_CODE_PAGE(1258)
#undef KD_DECLARE_CODE_PAGE

// KD_GetCodePage returns the registry entry of codePage (the registry holds the fourteen pages
// sorted by number), or null when it has none.
NORVANE_API const KD_CodePage_Entry* KD_GetCodePage(uint16_t codePage);

// IKD_CodePage answers questions about one code page. The virtual slots, in order, are part of
// the binary interface; the destructor comes last.
class NORVANE_API IKD_CodePage {
 public:
  // Create returns a new code-page object for codePage (free it with Release), or null when the
  // page is unknown or the object cannot be allocated.
  static IKD_CodePage* Create(uint16_t codePage);

  virtual void Release() = 0;
  virtual uint16_t GetCodePageNumber() const = 0;
  virtual uint32_t GetCodeSystemType() const = 0;
  virtual bool HasLeadByte() const = 0;
  // IsLeadByte is true when byte announces a trail byte (its index-1 range count is not 0).
  virtual bool IsLeadByte(uint8_t byte) const = 0;
  virtual uint8_t GetMinBytesPerChar() const = 0;
  virtual uint8_t GetMaxBytesPerChar() const = 0;
  virtual uint32_t GetMinCharcode() const = 0;
  virtual uint32_t GetMaxCharcode() const = 0;
  virtual uint32_t GetDefCharcode() const = 0;
  virtual uint32_t GetMinUnicode() const = 0;
  virtual uint32_t GetMaxUnicode() const = 0;
  virtual uint32_t GetDefUnicode() const = 0;
  // IsValidCharcode is true when GetUnicode(code) is not 0xFEFF.
  virtual bool IsValidCharcode(uint16_t code) const = 0;
  // GetUnicode returns the Unicode value of code, or 0xFEFF when there is none: codes outside the
  // header's range, a lead byte alone, a trail byte below the lead byte's first range. A two-byte
  // code whose first byte is not a lead byte answers that byte's own value (index 1 is read
  // without looking at the trail byte).
  virtual wchar_t GetUnicode(uint16_t code) const = 0;
  // IsValidUnicode is true when the low 16 bits of GetCharcode(ch) are not 0xFEFF. A character
  // that no range covers answers 0xFFFF and therefore counts as valid here: callers that encode
  // must test for both values.
  virtual bool IsValidUnicode(wchar_t ch) const = 0;
  // GetCharcode returns the code of ch: 0xFFFF when no range covers it, 0xFEFF for a position
  // without a code inside a table range (and for ranges of type 3).
  virtual uint32_t GetCharcode(wchar_t ch) const = 0;

 protected:
  virtual ~IKD_CodePage() {}
};

// CKD_CodePage is the code-page object over one registry entry.
class NORVANE_API CKD_CodePage : public IKD_CodePage, public CKD_Object {
 public:
  explicit CKD_CodePage(const KD_CodePage_Entry* entry) : m_pEntry(entry) {}

  void Release() override;
  uint16_t GetCodePageNumber() const override;
  uint32_t GetCodeSystemType() const override;
  bool HasLeadByte() const override;
  bool IsLeadByte(uint8_t byte) const override;
  uint8_t GetMinBytesPerChar() const override;
  uint8_t GetMaxBytesPerChar() const override;
  uint32_t GetMinCharcode() const override;
  uint32_t GetMaxCharcode() const override;
  uint32_t GetDefCharcode() const override;
  uint32_t GetMinUnicode() const override;
  uint32_t GetMaxUnicode() const override;
  uint32_t GetDefUnicode() const override;
  bool IsValidCharcode(uint16_t code) const override;
  wchar_t GetUnicode(uint16_t code) const override;
  bool IsValidUnicode(wchar_t ch) const override;
  uint32_t GetCharcode(wchar_t ch) const override;

  const KD_CodePage_Entry* GetEntry() const { return m_pEntry; }

 protected:
  ~CKD_CodePage() override {}

 private:
  const KD_CodePage_Entry* m_pEntry;
};

// IKD_CodePageMgr makes code-page objects. Slots in order: Release, GetDefaultCodePage,
// IsValidCodePage, CreateCodePage, then the destructor.
class NORVANE_API IKD_CodePageMgr {
 public:
  // Create returns a new manager (free it with Release), or null when it cannot be allocated.
  static IKD_CodePageMgr* Create();

  virtual void Release() = 0;
  // GetDefaultCodePage returns 1252.
  virtual uint16_t GetDefaultCodePage() const = 0;
  // IsValidCodePage tells whether the registry holds codePage.
  virtual bool IsValidCodePage(uint16_t codePage) const = 0;
  // CreateCodePage does what IKD_CodePage::Create does.
  virtual IKD_CodePage* CreateCodePage(uint16_t codePage) const = 0;

 protected:
  virtual ~IKD_CodePageMgr() {}
};

// CKD_CodePageMgr is the library's code-page manager over the built-in registry of table pages.
class NORVANE_API CKD_CodePageMgr : public IKD_CodePageMgr, public CKD_Object {
 public:
  void Release() override;
  uint16_t GetDefaultCodePage() const override;
  bool IsValidCodePage(uint16_t codePage) const override;
  IKD_CodePage* CreateCodePage(uint16_t codePage) const override;

 protected:
  ~CKD_CodePageMgr() override {}
};

#endif  // NORVANE_TEXT_CODE_PAGE_H_
