// The skeleton shared by the chained hash maps: table and entry management, insertion, removal,
// growth and iteration, over a traits class that knows the key.
//
// Traits provides:
//   Map, Assoc, Key                          the map class, its entry, the key argument type
//   kEntrySize                               bytes per entry
//   Find(const Map&, Key, unsigned& bucket)  the key's entry or null; its bucket in bucket
//   Hash(const Map&, Key)                    the key's hash
//   Rehash(const Map&, const Assoc*)         the stored key's hash
//   Matches(const Assoc*, Key)               key equality
//   InitEntry(Assoc*), DestroyKey(Assoc*)    fresh entry state / release of the stored key
//   SetKey(Assoc*, Key, unsigned bucket)     store key (and bucket, where the entry keeps it); false
//                                            when the key could not be copied
//   SetBucket(Assoc*, unsigned)              refresh the stored bucket after a rehash
//   BucketOf(const Map&, const Assoc*)       the entry's bucket, for iteration
//   kInitClearsCount                         whether InitHashTable zeroes the count
#ifndef NORVANE_CONTAINERS_HASH_MAP_INTERNAL_H_
#define NORVANE_CONTAINERS_HASH_MAP_INTERNAL_H_

#include <cstring>

#include "norvane/containers/plex.h"
#include "norvane/memory/memory_internal.h"

namespace kdmap {

// Buckets of a new map; growth stops once the table is larger than kGrowthLimit buckets.
constexpr unsigned int kInitialBuckets = 16;
constexpr unsigned int kGrowthLimit = 10000;

// Bucket returns hash modulo size. Sizes are powers of two unless a caller chose otherwise, and
// then a mask gives the same result without a division.
inline unsigned int Bucket(unsigned int hash, unsigned int size) {
  return (size & (size - 1)) == 0 ? hash & (size - 1) : hash % size;
}

template <class Traits>
struct Impl {
  using Map = typename Traits::Map;
  using Assoc = typename Traits::Assoc;
  using Key = typename Traits::Key;

  static Assoc** AllocTable(Map& m, size_t buckets) {
    void* p = kdmem::AllocFrom(m.m_pAllocator, buckets, sizeof(Assoc*));
    if (p) memset(p, 0, buckets * sizeof(Assoc*));
    return static_cast<Assoc**>(p);
  }

  static void Free(Map& m, void* p) { kdmem::FreeTo(m.m_pAllocator, p); }

  static void Construct(Map& m, int block_size, IKD_Allocator* allocator) {
    m.m_pAllocator = allocator;
    m.m_pHashTable = nullptr;
    m.m_nHashTableSize = kInitialBuckets;
    m.m_nCount = 0;
    m.m_pFreeList = nullptr;
    m.m_pBlocks = nullptr;
    // A block of no entries would leave the free list empty after growing it.
    m.m_nBlockSize = block_size < 1 ? 1 : block_size;
  }

  static void InitHashTable(Map& m, unsigned int size, bool alloc_now) {
    if (m.m_pHashTable) {
      Free(m, m.m_pHashTable);
      m.m_pHashTable = nullptr;
      if (Traits::kInitClearsCount) m.m_nCount = 0;
    }
    if (size == 0) size = 1;  // a bucket index is taken modulo the size
    if (alloc_now) m.m_pHashTable = AllocTable(m, size);
    m.m_nHashTableSize = size;
  }

  // NewAssoc takes an entry from the free list, growing it by a block when empty; null when the
  // block cannot be had.
  static Assoc* NewAssoc(Map& m) {
    if (!m.m_pFreeList) {
      CKD_Plex* block = CKD_Plex::Create(m.m_pAllocator, m.m_pBlocks, static_cast<unsigned>(m.m_nBlockSize),
                                         Traits::kEntrySize);
      if (!block) return nullptr;
      // Threaded from the top so that the lowest address ends up at the head.
      Assoc* entries = static_cast<Assoc*>(block->data());
      for (int i = m.m_nBlockSize - 1; i >= 0; --i) {
        entries[i].pNext = m.m_pFreeList;
        m.m_pFreeList = &entries[i];
      }
    }
    Assoc* a = m.m_pFreeList;
    m.m_pFreeList = a->pNext;
    ++m.m_nCount;
    Traits::InitEntry(a);
    return a;
  }

  // FreeAssoc takes an entry already unlinked from its bucket.
  static void FreeAssoc(Map& m, Assoc* a) {
    Traits::DestroyKey(a);
    a->pNext = m.m_pFreeList;
    m.m_pFreeList = a;
    if (--m.m_nCount == 0) RemoveAll(m);
  }

  static void RemoveAll(Map& m) {
    if (m.m_pHashTable) {
      for (unsigned int b = 0; b < m.m_nHashTableSize; ++b) {
        for (Assoc* a = m.m_pHashTable[b]; a; a = a->pNext) Traits::DestroyKey(a);
      }
      Free(m, m.m_pHashTable);
      m.m_pHashTable = nullptr;
    }
    m.m_nCount = 0;
    m.m_pFreeList = nullptr;
    if (m.m_pBlocks) m.m_pBlocks->FreeDataChain(m.m_pAllocator);
    m.m_pBlocks = nullptr;
  }

  static bool Expand(Map& m) {
    if (m.m_nHashTableSize > kGrowthLimit || static_cast<unsigned int>(m.m_nCount) < m.m_nHashTableSize) return false;
    const unsigned int size = m.m_nHashTableSize * 2;
    Assoc** table = AllocTable(m, size);
    if (!table) return false;  // keep working at the current size
    for (unsigned int b = 0; b < m.m_nHashTableSize; ++b) {
      Assoc* a = m.m_pHashTable[b];
      while (a) {
        Assoc* next = a->pNext;
        unsigned int nb = Bucket(Traits::Rehash(m, a), size);
        Traits::SetBucket(a, nb);
        a->pNext = table[nb];
        table[nb] = a;
        a = next;
      }
    }
    Free(m, m.m_pHashTable);
    m.m_pHashTable = table;
    m.m_nHashTableSize = size;
    return true;
  }

  // TryInsert returns key's entry, adding it when absent; null, with the map as it was, when
  // memory for the table or the entry cannot be had.
  static Assoc* TryInsert(Map& m, Key key) {
    unsigned int bucket;
    if (Assoc* found = Traits::Find(m, key, bucket)) return found;
    if (!m.m_pHashTable) {
      m.m_pHashTable = AllocTable(m, m.m_nHashTableSize);
      if (!m.m_pHashTable) return nullptr;
    }
    Assoc* a = NewAssoc(m);
    if (!a) {
      if (m.m_nCount == 0) RemoveAll(m);  // an empty map holds no memory
      return nullptr;
    }
    if (!Traits::SetKey(a, key, bucket)) {
      FreeAssoc(m, a);  // releases everything again if the map is now empty
      return nullptr;
    }
    a->pNext = m.m_pHashTable[bucket];
    m.m_pHashTable[bucket] = a;
    Expand(m);
    return a;
  }

  // Insert is TryInsert for callers that cannot handle failure: without memory the process stops.
  static Assoc* Insert(Map& m, Key key) {
    Assoc* a = TryInsert(m, key);
    if (!a) __builtin_trap();
    return a;
  }

  static bool Remove(Map& m, Key key) {
    if (!m.m_pHashTable) return false;
    Assoc** link = &m.m_pHashTable[Bucket(Traits::Hash(m, key), m.m_nHashTableSize)];
    for (Assoc* a = *link; a; link = &a->pNext, a = a->pNext) {
      if (Traits::Matches(a, key)) {
        *link = a->pNext;
        FreeAssoc(m, a);
        return true;
      }
    }
    return false;
  }

  // Next returns the entry at position and moves position to the one after it.
  static Assoc* Next(const Map& m, void*& position) {
    Assoc* a = static_cast<Assoc*>(position);
    if (position == reinterpret_cast<void*>(-1)) {
      a = nullptr;
      for (unsigned int b = 0; m.m_pHashTable && b < m.m_nHashTableSize && !a; ++b) a = m.m_pHashTable[b];
    }
    if (!a) {
      position = nullptr;
      return nullptr;
    }
    Assoc* next = a->pNext;
    for (unsigned int b = Traits::BucketOf(m, a) + 1; !next && b < m.m_nHashTableSize; ++b) {
      next = m.m_pHashTable[b];
    }
    position = next;
    return a;
  }
};

}  // namespace kdmap

#endif  // NORVANE_CONTAINERS_HASH_MAP_INTERNAL_H_
