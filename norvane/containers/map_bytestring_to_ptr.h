// CKD_MapByteStringToPtr: a chained hash map from byte-string keys (kept as CKD_ByteString
// copies) to pointer-sized values. It works like CKD_MapPtrToPtr (entry blocks, free list in
// address order, lazy table of 16 buckets doubling up to 16384, positions null/(void*)-1/entry),
// with these differences: the hash is h * 31 + byte over the key's bytes; each entry remembers
// its bucket; InitHashTable leaves the count as it is.
//
// Memory for an insertion (table, entry block or key copy) is required: if it cannot be had,
// operator[] stops the process after the manager's out-of-memory handler has run. A table
// doubling that cannot get memory is skipped.
#ifndef NORVANE_CONTAINERS_MAP_BYTESTRING_TO_PTR_H_
#define NORVANE_CONTAINERS_MAP_BYTESTRING_TO_PTR_H_

#include "norvane/config.h"
#include "norvane/containers/plex.h"
#include "norvane/memory/memory_mgr.h"
#include "norvane/memory/object.h"
#include "norvane/text/byte_string.h"

namespace kdmap {
template <class Traits>
struct Impl;
}

// CKD_MapByteStringToPtr is the string-keyed hash map described above; it owns its entries, table
// and key copies, not the values.
class NORVANE_API CKD_MapByteStringToPtr : public CKD_Object {
 public:
  // One entry: the next in its bucket, its bucket, a copy of the key and the value.
  struct CAssoc {
    CAssoc* pNext;
    unsigned int nBucket;  // the bucket the entry is in, refreshed when the table doubles
    CKD_ByteString key;
    void* value;
  };

  // block_size entries are allocated at a time; a value below 1 is taken as 1.
  explicit CKD_MapByteStringToPtr(int block_size, IKD_Allocator* allocator = nullptr);
  ~CKD_MapByteStringToPtr();
  CKD_MapByteStringToPtr(const CKD_MapByteStringToPtr&) = delete;
  CKD_MapByteStringToPtr& operator=(const CKD_MapByteStringToPtr&) = delete;

  int GetCount() const { return m_nCount; }
  bool IsEmpty() const { return m_nCount == 0; }
  unsigned int GetHashTableSize() const { return m_nHashTableSize; }

  // InitHashTable frees the current table (entries and count are not touched) and sets the
  // table size, allocating the table now when alloc_now. Meant for an empty map. A size of 0 is
  // taken as 1.
  void InitHashTable(unsigned int size, bool alloc_now = true);
  // HashKey is h = h * 31 + byte over the key (bytes unsigned); an empty key hashes to 0.
  unsigned int HashKey(const CKD_ByteStringC& key) const;

  bool Lookup(const CKD_ByteStringC& key, void*& value) const;
  // operator[] returns key's value slot, inserting a copy of key with a null value when absent.
  void*& operator[](const CKD_ByteStringC& key);
  void SetAt(const CKD_ByteStringC& key, void* value) { (*this)[key] = value; }
  // GetAssocAt stores key's bucket (hash modulo table size) in bucket, table or not, and returns
  // key's entry or null.
  CAssoc* GetAssocAt(const CKD_ByteStringC& key, unsigned int& bucket) const;
  // RemoveKey removes key; false when absent. Removing the last entry releases all memory.
  bool RemoveKey(const CKD_ByteStringC& key);
  // RemoveAll destroys every key and releases the table and every entry block; the table size
  // is kept.
  void RemoveAll();

  // GetStartPosition is null for an empty map, else (void*)-1.
  void* GetStartPosition() const { return m_nCount == 0 ? nullptr : reinterpret_cast<void*>(-1); }
  // GetNextAssoc copies the entry at position into key and value and advances position.
  void GetNextAssoc(void*& position, CKD_ByteString& key, void*& value) const;
  // GetCurrentAssoc returns the entry at position itself and advances position.
  CAssoc* GetCurrentAssoc(void*& position) const;
  // GetNextValue returns the value of the entry at position and advances position.
  void* GetNextValue(void*& position) const;

 protected:
  IKD_Allocator* m_pAllocator;
  CAssoc** m_pHashTable;
  unsigned int m_nHashTableSize;
  int m_nCount;
  CAssoc* m_pFreeList;
  CKD_Plex* m_pBlocks;
  int m_nBlockSize;

 private:
  CAssoc* NewAssoc();
  void FreeAssoc(CAssoc* assoc);
  bool ExpendHashTable();
  template <class Traits>
  friend struct kdmap::Impl;
  friend struct KDMapByteStringToPtrLayout;
};

static_assert(sizeof(CKD_MapByteStringToPtr::CAssoc) == 32 && offsetof(CKD_MapByteStringToPtr::CAssoc, key) == 16,
              "string map entries: next, bucket, key, value");

#endif  // NORVANE_CONTAINERS_MAP_BYTESTRING_TO_PTR_H_
