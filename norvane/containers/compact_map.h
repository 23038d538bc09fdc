// Compact maps: small-footprint maps for tables that are mostly read.
//
// CKD_CMapByteStringToPtr keeps string keys (short ones inline) with pointer values in 24-byte
// entries of a segmented array (16 entries a segment, index tables of 4) and searches them in
// order. Keys are compared by a 31-bit key code only, never by their bytes: two different strings
// with the same code are the same key. The code of a key is the string hash
// KD_HashCode_String_GetA's low 16 bits ORed with bits 16..30 of the RS hash over the bytes taken
// as signed; an empty key has code 0. Removed entries stay in place, marked, and are reused by a
// later SetAt. Iteration positions are 1-based entry numbers.
//
// CKD_CMapDWordToDWord keeps 32-bit key/value pairs as 8-byte records sorted by key in one
// CKD_BinaryBuf. Lookup bisects with a comparison that takes the difference of two keys as a
// signed int, so keys more than 2^31 apart compare the wrong way round and such a lookup can miss
// a key that is there. Iteration positions are 1-based record numbers.
//
// Memory comes from the allocator given at construction, or (null) from the default manager. An
// insertion that cannot get memory leaves the map as it was.
#ifndef NORVANE_CONTAINERS_COMPACT_MAP_H_
#define NORVANE_CONTAINERS_COMPACT_MAP_H_

#include <cstddef>
#include <cstdint>

#include "norvane/config.h"
#include "norvane/containers/segmented_array.h"
#include "norvane/memory/memory_mgr.h"
#include "norvane/memory/object.h"
#include "norvane/text/binary_buf.h"
#include "norvane/text/byte_string.h"

// _CompactString is the key part of a compact map entry. A key of up to 11 bytes lies inline
// from byte 5 (m_Head, then on into m_Tail). A longer key has mark 255, its length as a 16-bit
// big-endian number in m_Head[0..1] (only the low 16 bits of a longer length) and its bytes in a
// block of its own at m_pLongKey.
struct _CompactString {
  static constexpr uint8_t kMaxInline = 11;
  static constexpr uint8_t kDeleted = 254;
  static constexpr uint8_t kLongKey = 255;
  static constexpr uint32_t kDeletedCode = 0xFFFFFFFF;

  uint32_t m_dwCode;  // the key code; kDeletedCode in a removed entry
  uint8_t m_Mark;     // 0..11: inline length; kLongKey; kDeleted
  uint8_t m_Head[3];
  union {
    uint8_t m_Tail[8];
    uint8_t* m_pLongKey;
  };
};

static_assert(sizeof(_CompactString) == 16 && offsetof(_CompactString, m_Mark) == 4 &&
                  offsetof(_CompactString, m_Head) == 5 && offsetof(_CompactString, m_pLongKey) == 8,
              "compact key: code, mark, inline bytes or big-endian length and pointer");

// CKD_CMapByteStringToPtr maps string keys, matched by their 31-bit key code, to pointers; it owns
// its entries and long keys, not the values.
class NORVANE_API CKD_CMapByteStringToPtr : public CKD_Object {
 public:
  // One entry: its key and its value.
  struct CEntry {
    _CompactString key;
    void* value;
  };

  explicit CKD_CMapByteStringToPtr(IKD_Allocator* allocator = nullptr);
  ~CKD_CMapByteStringToPtr();
  CKD_CMapByteStringToPtr(const CKD_CMapByteStringToPtr&) = delete;
  CKD_CMapByteStringToPtr& operator=(const CKD_CMapByteStringToPtr&) = delete;

  // SetAt replaces the value of the entry with key's code; without one, key goes into the first
  // removed entry, or into a new entry at the end. Nothing changes when memory runs out.
  void SetAt(const CKD_ByteStringC& key, void* value);
  // AddValue appends a new entry for key even when its code is present already.
  void AddValue(const CKD_ByteStringC& key, void* value);
  // Lookup finds the first live entry with key's code and stores its value; false when none.
  bool Lookup(const CKD_ByteStringC& key, void*& value) const;
  // RemoveKey marks the first entry with key's code removed and frees its long key bytes.
  void RemoveKey(const CKD_ByteStringC& key);
  // RemoveAll frees every long key and every segment: the map is empty.
  void RemoveAll();
  // GetCount counts the entries that are not removed.
  int GetCount() const;

  // GetStartPosition is the number of the first live entry, null when there is none.
  void* GetStartPosition() const;
  // GetNextAssoc gives the key and value of the entry at position (a removed entry gives an
  // empty key) and moves position to the next live entry, or null. A position that is no entry
  // gives an empty key, a null value and a null position.
  void GetNextAssoc(void*& position, CKD_ByteString& key, void*& value) const;
  // GetNextValue gives the value at position and advances it the same way.
  void* GetNextValue(void*& position) const;

  // KeyCode is the code under which key is stored.
  static uint32_t KeyCode(const CKD_ByteStringC& key);

 protected:
  CKD_BaseSegmentedArray m_Entries;

 private:
  const CEntry* EntryAt(void* position) const;
  void* NextLive(int index) const;
  bool Store(CEntry* entry, const CKD_ByteStringC& key, void* value);
  void Append(const CKD_ByteStringC& key, void* value);
};

static_assert(sizeof(CKD_CMapByteStringToPtr::CEntry) == 24 && offsetof(CKD_CMapByteStringToPtr::CEntry, value) == 16,
              "compact map entries: key, then value");

// CKD_CMapDWordToDWord maps 32-bit keys to 32-bit values in records sorted by key.
class NORVANE_API CKD_CMapDWordToDWord : public CKD_Object {
 public:
  // One record: a key and its value.
  struct CRecord {
    uint32_t key;
    uint32_t value;
  };

  explicit CKD_CMapDWordToDWord(IKD_Allocator* allocator = nullptr);
  CKD_CMapDWordToDWord(const CKD_CMapDWordToDWord&) = delete;
  CKD_CMapDWordToDWord& operator=(const CKD_CMapDWordToDWord&) = delete;

  // Lookup bisects the records (see the comparison above); false for an empty map or a miss.
  bool Lookup(uint32_t key, uint32_t& value) const;
  // SetAt appends key when it is above the last key, otherwise bisects to it and replaces its
  // value or inserts it in order. False, with the map unchanged, when the buffer cannot grow.
  bool SetAt(uint32_t key, uint32_t value);
  // EstimateSize makes room for size records, growing grow_by records at a time afterwards.
  bool EstimateSize(uint32_t size, uint32_t grow_by);
  // RemoveAll drops every record and frees the buffer.
  void RemoveAll() { m_Buffer.AttachData(nullptr, 0); }
  int GetCount() const { return m_Buffer.GetSize() / static_cast<int>(sizeof(CRecord)); }

  // GetStartPosition is 1 when there is a record, else null.
  void* GetStartPosition() const { return GetCount() > 0 ? reinterpret_cast<void*>(1) : nullptr; }
  // GetNextAssoc gives record number position and moves to the next one, or to null after the
  // last. A position that is no record gives 0, 0 and a null position.
  void GetNextAssoc(void*& position, uint32_t& key, uint32_t& value) const;

 protected:
  CKD_BinaryBuf m_Buffer;
};

static_assert(sizeof(CKD_CMapDWordToDWord::CRecord) == 8, "dword map records: key, then value");

#endif  // NORVANE_CONTAINERS_COMPACT_MAP_H_
