#include "norvane/containers/map_ptr_to_ptr.h"

#include "norvane/containers/hash_map_internal.h"
#include "norvane/containers/map_internal.h"

namespace {

struct PtrTraits {
  using Map = CKD_MapPtrToPtr;
  using Assoc = CKD_MapPtrToPtr::CAssoc;
  using Key = void*;
  static constexpr unsigned int kEntrySize = sizeof(Assoc);
  static constexpr bool kInitClearsCount = true;
  static Assoc* Find(const Map& m, Key key, unsigned int& bucket) { return m.GetAssocAt(key, bucket); }
  static unsigned int Hash(const Map& m, Key key) { return m.HashKey(key); }
  static unsigned int Rehash(const Map& m, const Assoc* a) { return m.HashKey(a->key); }
  static bool Matches(const Assoc* a, Key key) { return a->key == key; }
  static void InitEntry(Assoc* a) { a->value = nullptr; }
  static void DestroyKey(Assoc*) {}
  static bool SetKey(Assoc* a, Key key, unsigned int) {
    a->key = key;
    return true;
  }
  static void SetBucket(Assoc*, unsigned int) {}
  static unsigned int BucketOf(const Map& m, const Assoc* a) {
    return kdmap::Bucket(m.HashKey(a->key), m.GetHashTableSize());
  }
};

using Impl = kdmap::Impl<PtrTraits>;

}  // namespace

struct KDMapPtrToPtrLayout {
  static_assert(offsetof(CKD_MapPtrToPtr, m_pAllocator) == 0 && offsetof(CKD_MapPtrToPtr, m_pHashTable) == 8 &&
                    offsetof(CKD_MapPtrToPtr, m_nHashTableSize) == 16 && offsetof(CKD_MapPtrToPtr, m_nCount) == 20 &&
                    offsetof(CKD_MapPtrToPtr, m_pFreeList) == 24 && offsetof(CKD_MapPtrToPtr, m_pBlocks) == 32 &&
                    offsetof(CKD_MapPtrToPtr, m_nBlockSize) == 40,
                "map field order");
};

CKD_MapPtrToPtr::CKD_MapPtrToPtr(int block_size, IKD_Allocator* allocator) {
  Impl::Construct(*this, block_size, allocator);
}

CKD_MapPtrToPtr::~CKD_MapPtrToPtr() { RemoveAll(); }

void CKD_MapPtrToPtr::InitHashTable(unsigned int size, bool alloc_now) { Impl::InitHashTable(*this, size, alloc_now); }

void*& CKD_MapPtrToPtr::operator[](void* key) { return Impl::Insert(*this, key)->value; }

bool CKD_MapPtrToPtr::RemoveKey(void* key) { return Impl::Remove(*this, key); }

void CKD_MapPtrToPtr::RemoveAll() { Impl::RemoveAll(*this); }

void CKD_MapPtrToPtr::GetNextAssoc(void*& position, void*& key, void*& value) const {
  CAssoc* a = Impl::Next(*this, position);
  key = a ? a->key : nullptr;
  value = a ? a->value : nullptr;
}

CKD_MapPtrToPtr::CAssoc* CKD_MapPtrToPtr::GetCurrentAssoc(void*& position) const { return Impl::Next(*this, position); }

CKD_MapPtrToPtr::CAssoc* CKD_MapPtrToPtr::NewAssoc() { return Impl::NewAssoc(*this); }

void CKD_MapPtrToPtr::FreeAssoc(CAssoc* assoc) { Impl::FreeAssoc(*this, assoc); }

bool CKD_MapPtrToPtr::ExpandHashTable() { return Impl::Expand(*this); }

bool KDMAP_TrySetAt(CKD_MapPtrToPtr& map, void* key, void* value) {
  CKD_MapPtrToPtr::CAssoc* a = Impl::TryInsert(map, key);
  if (a) a->value = value;
  return a != nullptr;
}
