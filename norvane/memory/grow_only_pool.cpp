#include "norvane/memory/grow_only_pool.h"

#include <cstdint>

#include "norvane/memory/asan_internal.h"
#include "norvane/runtime/kdcrt_thread_internal.h"

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
static_assert(offsetof(CKD_GrowOnlyPool, m_Param) == 40 && offsetof(CKD_GrowOnlyPool, m_pFirstTrunk) == 48 &&
                  offsetof(CKD_GrowOnlyPool, m_pAllocator) == 56 && offsetof(CKD_GrowOnlyPool, m_Mutex) == 64,
              "grow-only pool field order");
#pragma GCC diagnostic pop

namespace {

using Trunk = CKD_GrowOnlyPool::Trunk;

// Largest request that can be rounded and given a trunk header without overflowing.
constexpr size_t kMaxRequest = SIZE_MAX - sizeof(Trunk) - 3;

inline CKD_GrowOnlyPool* PoolOf(IKD_Allocator* allocator) { return static_cast<CKD_GrowOnlyPool*>(allocator); }

void* _GOPAllocDebug(IKD_Allocator* allocator, size_t size, const char*, int) { return PoolOf(allocator)->Alloc(size); }
void* _GOPAlloc(IKD_Allocator* allocator, size_t size) { return PoolOf(allocator)->Alloc(size); }
void* _GOPReallocDebug(IKD_Allocator*, void*, size_t, const char*, int) { return nullptr; }
void* _GOPRealloc(IKD_Allocator*, void*, size_t) { return nullptr; }
void _GOPFree(IKD_Allocator*, void*) {}

class Locked {
 public:
  explicit Locked(KD_MUTEX* mutex) : mutex_(mutex) { KDCRT_Mutex_Lock(mutex_); }
  ~Locked() { KDCRT_Mutex_Unlock(mutex_); }
  Locked(const Locked&) = delete;
  Locked& operator=(const Locked&) = delete;

 private:
  KD_MUTEX* mutex_;
};

}  // namespace

CKD_GrowOnlyPool::CKD_GrowOnlyPool(IKD_Allocator* allocator, size_t trunk_size) {
  m_AllocDebug = _GOPAllocDebug;
  m_Alloc = _GOPAlloc;
  m_ReallocDebug = _GOPReallocDebug;
  m_Realloc = _GOPRealloc;
  m_Free = _GOPFree;
  m_Param = trunk_size;
  m_pFirstTrunk = nullptr;
  m_pAllocator = allocator ? allocator : KDMEM_GetDefAllocator();
  KDCRT_Mutex_Initialize(&m_Mutex);
}

CKD_GrowOnlyPool::~CKD_GrowOnlyPool() {
  FreeAll();
  KDCRT_Mutex_Destroy(&m_Mutex);
}

void* CKD_GrowOnlyPool::Alloc(size_t size) {
  if (size > kMaxRequest) return nullptr;
  const size_t rounded = (size + 3) & ~static_cast<size_t>(3);
  // With a single thread in the process nothing can contend for the mutex while the trunks are
  // searched. The underlying allocator is client code that could start a thread, so a trunk is
  // always made under the mutex.
  if (KDCRT_IsSingleThreaded()) {
    if (void* block = Bump(size, rounded)) return block;
    Locked lock(&m_Mutex);
    return AddTrunk(size, rounded);
  }
  Locked lock(&m_Mutex);
  if (void* block = Bump(size, rounded)) return block;
  return AddTrunk(size, rounded);
}

void* CKD_GrowOnlyPool::Bump(size_t size, size_t rounded) {
  for (Trunk* t = m_pFirstTrunk; t; t = t->m_pNext) {
    if (t->m_nPayloadSize - t->m_nUsed >= rounded) {
      unsigned char* block = t->Payload() + t->m_nUsed;
      t->m_nUsed += rounded;
      kdmem::Unpoison(block, size);
      return block;
    }
  }
  return nullptr;
}

void* CKD_GrowOnlyPool::AddTrunk(size_t size, size_t rounded) {
  const size_t payload = rounded > m_Param ? rounded : m_Param;
  if (payload > SIZE_MAX - sizeof(Trunk)) return nullptr;
  auto* t = static_cast<Trunk*>(m_pAllocator->m_Alloc(m_pAllocator, sizeof(Trunk) + payload));
  if (!t) return nullptr;
  t->m_nPayloadSize = payload;
  t->m_nUsed = rounded;
  t->m_pNext = m_pFirstTrunk;
  m_pFirstTrunk = t;
  // Under the sanitizer only handed-out bytes are addressable.
  kdmem::Poison(t->Payload() + size, payload - size);
  return t->Payload();
}

void CKD_GrowOnlyPool::FreeAll() {
  Locked lock(&m_Mutex);
  Trunk* t = m_pFirstTrunk;
  while (t) {
    Trunk* next = t->m_pNext;
    kdmem::Unpoison(t, sizeof(Trunk) + t->m_nPayloadSize);
    m_pAllocator->m_Free(m_pAllocator, t);
    t = next;
  }
  m_pFirstTrunk = nullptr;
}

void CKD_GrowOnlyPool::SetAllocator(IKD_Allocator* allocator) {
  Locked lock(&m_Mutex);
  m_pAllocator = allocator ? allocator : KDMEM_GetDefAllocator();
}
