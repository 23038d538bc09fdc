// CKD_MapPtrToPtr: a chained hash map from pointer-sized keys to pointer-sized values.
//
// Entries are carved from blocks of block_size entries (CKD_Plex), recycled through a free list
// in address order, and given back only when the map becomes empty or is cleared. The bucket
// table (16 buckets after construction) is allocated on the first insertion and doubles when the
// count reaches the number of buckets, until it has more than 10000 buckets (16384 from the
// default start). All memory comes from the allocator given at construction, or the default
// manager when it is null.
//
// Iteration positions are opaque: null is the end, (void*)-1 is before the first entry. Order is
// by bucket, newest first within a bucket, and changes when the table doubles.
//
// Memory for the table or an entry block on insertion is required: if it cannot be had,
// operator[] stops the process (after the manager's out-of-memory handler has run). A table doubling that
// cannot get memory is skipped and the map keeps working at its current size.
#ifndef NORVANE_CONTAINERS_MAP_PTR_TO_PTR_H_
#define NORVANE_CONTAINERS_MAP_PTR_TO_PTR_H_

#include "norvane/config.h"
#include "norvane/containers/plex.h"
#include "norvane/memory/memory_mgr.h"
#include "norvane/memory/object.h"

namespace kdmap {
template <class Traits>
struct Impl;
}

// CKD_MapPtrToPtr is the pointer-keyed hash map described above; it owns its entries and table,
// not the keys or values.
class NORVANE_API CKD_MapPtrToPtr : public CKD_Object {
 public:
  // One entry: the next in its bucket, the key and the value.
  struct CAssoc {
    CAssoc* pNext;
    void* key;
    void* value;
  };

  // block_size entries are allocated at a time; a value below 1 is taken as 1.
  explicit CKD_MapPtrToPtr(int block_size, IKD_Allocator* allocator = nullptr);
  ~CKD_MapPtrToPtr();
  CKD_MapPtrToPtr(const CKD_MapPtrToPtr&) = delete;
  CKD_MapPtrToPtr& operator=(const CKD_MapPtrToPtr&) = delete;

  int GetCount() const { return m_nCount; }
  bool IsEmpty() const { return m_nCount == 0; }
  unsigned int GetHashTableSize() const { return m_nHashTableSize; }

  // InitHashTable frees the current table (and then sets the count to 0; entries are not
  // touched) and sets the table size, allocating the table now when alloc_now. Meant for an
  // empty map. A size of 0 is taken as 1.
  void InitHashTable(unsigned int size, bool alloc_now = true);
  // HashKey mixes the key's four 16-bit parts, lowest first, by multiplying with 1313.
  unsigned int HashKey(void* key) const {
    unsigned long long k = reinterpret_cast<unsigned long long>(key);
    unsigned int h = static_cast<unsigned int>(k & 0xFFFF);
    h = h * 1313 + static_cast<unsigned int>((k >> 16) & 0xFFFF);
    h = h * 1313 + static_cast<unsigned int>((k >> 32) & 0xFFFF);
    return h * 1313 + static_cast<unsigned int>(k >> 48);
  }

  // The lookups are inline: they sit on hot paths of callers.
  bool Lookup(void* key, void*& value) const {
    unsigned int bucket;
    CAssoc* a = GetAssocAt(key, bucket);
    if (!a) return false;
    value = a->value;
    return true;
  }
  // GetValueAt returns key's value, or null when absent.
  void* GetValueAt(void* key) const {
    unsigned int bucket;
    CAssoc* a = GetAssocAt(key, bucket);
    return a ? a->value : nullptr;
  }
  // operator[] returns key's value slot, inserting key with a null value when absent.
  void*& operator[](void* key);
  void SetAt(void* key, void* value) { (*this)[key] = value; }
  // GetAssocAt stores key's bucket (hash modulo table size) in bucket, table or not, and returns
  // key's entry or null.
  CAssoc* GetAssocAt(void* key, unsigned int& bucket) const {
    const unsigned int size = m_nHashTableSize;
    const unsigned int hash = HashKey(key);
    bucket = (size & (size - 1)) == 0 ? hash & (size - 1) : hash % size;  // a mask for powers of two
    if (!m_pHashTable) return nullptr;
    for (CAssoc* a = m_pHashTable[bucket]; a; a = a->pNext) {
      if (a->key == key) return a;
    }
    return nullptr;
  }
  // RemoveKey removes key; false when absent. Removing the last entry releases all memory.
  bool RemoveKey(void* key);
  // RemoveAll releases the table and every entry block; the table size is kept.
  void RemoveAll();

  // GetStartPosition is null for an empty map, else (void*)-1.
  void* GetStartPosition() const { return m_nCount == 0 ? nullptr : reinterpret_cast<void*>(-1); }
  // GetNextAssoc returns the entry at position through key and value and advances position.
  void GetNextAssoc(void*& position, void*& key, void*& value) const;
  // GetCurrentAssoc returns the entry at position itself and advances position.
  CAssoc* GetCurrentAssoc(void*& position) const;

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
  bool ExpandHashTable();
  template <class Traits>
  friend struct kdmap::Impl;
  friend struct KDMapPtrToPtrLayout;
};

static_assert(sizeof(CKD_MapPtrToPtr::CAssoc) == 24, "pointer map entries are three words");

#endif  // NORVANE_CONTAINERS_MAP_PTR_TO_PTR_H_
