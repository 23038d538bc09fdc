#include "norvane/containers/map_bytestring_to_ptr.h"

#include <new>

#include "norvane/containers/hash_map_internal.h"

namespace {

inline unsigned int HashBytes(const unsigned char* p, int len) {
  unsigned int h = 0;
  for (int i = 0; i < len; ++i) h = h * 31 + p[i];
  return h;
}

struct StringTraits {
  using Map = CKD_MapByteStringToPtr;
  using Assoc = CKD_MapByteStringToPtr::CAssoc;
  using Key = const CKD_ByteStringC&;
  static constexpr unsigned int kEntrySize = sizeof(Assoc);
  static constexpr bool kInitClearsCount = false;
  static Assoc* Find(const Map& m, Key key, unsigned int& bucket) { return m.GetAssocAt(key, bucket); }
  static unsigned int Hash(const Map&, Key key) { return HashBytes(key.GetPtr(), key.GetLength()); }
  static unsigned int Rehash(const Map&, const Assoc* a) { return HashBytes(a->key.GetPtr(), a->key.GetLength()); }
  static bool Matches(const Assoc* a, Key key) { return a->key == key; }
  static void InitEntry(Assoc* a) {
    ::new (&a->key) CKD_ByteString();
    a->value = nullptr;
  }
  static void DestroyKey(Assoc* a) { a->key.~CKD_ByteString(); }
  static bool SetKey(Assoc* a, Key key, unsigned int bucket) {
    a->key = key;
    a->nBucket = bucket;
    return a->key.GetLength() == key.GetLength();  // false when the copy could not be made
  }
  static void SetBucket(Assoc* a, unsigned int bucket) { a->nBucket = bucket; }
  static unsigned int BucketOf(const Map&, const Assoc* a) { return a->nBucket; }
};

using Impl = kdmap::Impl<StringTraits>;

}  // namespace

struct KDMapByteStringToPtrLayout {
  static_assert(offsetof(CKD_MapByteStringToPtr, m_pAllocator) == 0 && offsetof(CKD_MapByteStringToPtr, m_pHashTable) == 8 &&
                    offsetof(CKD_MapByteStringToPtr, m_nHashTableSize) == 16 &&
                    offsetof(CKD_MapByteStringToPtr, m_nCount) == 20 &&
                    offsetof(CKD_MapByteStringToPtr, m_pFreeList) == 24 &&
                    offsetof(CKD_MapByteStringToPtr, m_pBlocks) == 32 &&
                    offsetof(CKD_MapByteStringToPtr, m_nBlockSize) == 40,
                "map field order");
};

CKD_MapByteStringToPtr::CKD_MapByteStringToPtr(int block_size, IKD_Allocator* allocator) {
  Impl::Construct(*this, block_size, allocator);
}

CKD_MapByteStringToPtr::~CKD_MapByteStringToPtr() { RemoveAll(); }

void CKD_MapByteStringToPtr::InitHashTable(unsigned int size, bool alloc_now) {
  Impl::InitHashTable(*this, size, alloc_now);
}

unsigned int CKD_MapByteStringToPtr::HashKey(const CKD_ByteStringC& key) const {
  return HashBytes(key.GetPtr(), key.GetLength());
}

CKD_MapByteStringToPtr::CAssoc* CKD_MapByteStringToPtr::GetAssocAt(const CKD_ByteStringC& key,
                                                                   unsigned int& bucket) const {
  bucket = kdmap::Bucket(HashKey(key), m_nHashTableSize);
  if (!m_pHashTable) return nullptr;
  for (CAssoc* a = m_pHashTable[bucket]; a; a = a->pNext) {
    if (a->key == key) return a;
  }
  return nullptr;
}

bool CKD_MapByteStringToPtr::Lookup(const CKD_ByteStringC& key, void*& value) const {
  unsigned int bucket;
  CAssoc* a = GetAssocAt(key, bucket);
  if (!a) return false;
  value = a->value;
  return true;
}

void*& CKD_MapByteStringToPtr::operator[](const CKD_ByteStringC& key) { return Impl::Insert(*this, key)->value; }

bool CKD_MapByteStringToPtr::RemoveKey(const CKD_ByteStringC& key) { return Impl::Remove(*this, key); }

void CKD_MapByteStringToPtr::RemoveAll() { Impl::RemoveAll(*this); }

void CKD_MapByteStringToPtr::GetNextAssoc(void*& position, CKD_ByteString& key, void*& value) const {
  CAssoc* a = Impl::Next(*this, position);
  if (a) {
    key = a->key;
    value = a->value;
  } else {
    key.Empty();
    value = nullptr;
  }
}

CKD_MapByteStringToPtr::CAssoc* CKD_MapByteStringToPtr::GetCurrentAssoc(void*& position) const {
  return Impl::Next(*this, position);
}

void* CKD_MapByteStringToPtr::GetNextValue(void*& position) const {
  CAssoc* a = Impl::Next(*this, position);
  return a ? a->value : nullptr;
}

CKD_MapByteStringToPtr::CAssoc* CKD_MapByteStringToPtr::NewAssoc() { return Impl::NewAssoc(*this); }

void CKD_MapByteStringToPtr::FreeAssoc(CAssoc* assoc) { Impl::FreeAssoc(*this, assoc); }

bool CKD_MapByteStringToPtr::ExpendHashTable() { return Impl::Expand(*this); }
