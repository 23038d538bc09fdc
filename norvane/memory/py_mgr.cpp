#include "norvane/memory/py_mgr_internal.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "norvane/memory/asan_internal.h"
#include "norvane/memory/memory_internal.h"
#include "norvane/runtime/kdcrt_thread_internal.h"

using kdpy::BlockSize;
using kdpy::ClassOf;
using kdpy::kArenaShift;
using kdpy::kArenaSize;
using kdpy::kDiscarding;
using kdpy::kMaxPoolsPerArena;
using kdpy::kMaxSmallRequest;
using kdpy::kNoClass;
using kdpy::kPoolHeaderSize;
using kdpy::kPoolMask;
using kdpy::kPoolSize;
using kdpy::kPooling;
using kdpy::kPurged;

namespace {

// Arena record vectors start at 16 records and double.
constexpr uint32_t kInitialArenas = 16;

inline KDMEM_PyPool* PoolOf(const void* p) {
  return reinterpret_cast<KDMEM_PyPool*>(reinterpret_cast<uintptr_t>(p) & ~kPoolMask);
}

// A free block holds the next free block in its first word. Free blocks are poisoned under the
// sanitizer, so the word is opened just for the access.
inline uint8_t* LoadLink(uint8_t* block) {
  kdmem::Unpoison(block, sizeof(uint8_t*));
  uint8_t* next = *reinterpret_cast<uint8_t**>(block);
  kdmem::Poison(block, sizeof(uint8_t*));
  return next;
}

inline void StoreLink(uint8_t* block, uint8_t* next) {
  kdmem::Unpoison(block, sizeof(uint8_t*));
  *reinterpret_cast<uint8_t**>(block) = next;
  kdmem::Poison(block, sizeof(uint8_t*));
}

// HandOut opens the requested bytes of a block that is wholly poisoned; the rest stays closed.
inline void* HandOut(uint8_t* block, size_t size) {
  kdmem::Unpoison(block, size);
  return block;
}

inline void UnlinkPool(KDMEM_PyPool* pool) {
  KDMEM_PyPool* next = pool->m_pNextPool;
  KDMEM_PyPool* prev = pool->m_pPrevPool;
  next->m_pPrevPool = prev;
  prev->m_pNextPool = next;
}

inline void LinkPoolFirst(KDMEM_PyPool* head, KDMEM_PyPool* pool) {
  KDMEM_PyPool* next = head->m_pNextPool;
  pool->m_pNextPool = next;
  pool->m_pPrevPool = head;
  next->m_pPrevPool = pool;
  head->m_pNextPool = pool;
}

// The pool's free list ran dry: carve its next never-used block, or retire it from its class
// list when there is none.
void RefillOrRetire(KDMEM_PyPool* pool) {
  if (pool->m_nNextOffset <= pool->m_nLastOffset) {
    uint8_t* fresh = reinterpret_cast<uint8_t*>(pool) + pool->m_nNextOffset;
    StoreLink(fresh, nullptr);
    pool->m_pFreeBlock = fresh;
    pool->m_nNextOffset += BlockSize(pool->m_nSizeClass);
  } else {
    UnlinkPool(pool);
  }
}

// The arena address table. Arenas are disjoint and one chunk long, so a chunk meets at most two
// of them (one reaching in from the chunk before, one starting inside it) and an arena meets at
// most two chunks.

uint32_t ChunkHome(uintptr_t key, uint32_t bits) {
  return static_cast<uint32_t>((static_cast<uint64_t>(key) * 0x9E3779B97F4A7C15ull) >> (64 - bits));
}

KDMEM_PyChunk* FindChunk(const KDMEM_PyState* st, uintptr_t key) {
  const uint32_t mask = (1u << st->m_nChunkBits) - 1;
  for (uint32_t i = ChunkHome(key, st->m_nChunkBits);; i = (i + 1) & mask) {
    KDMEM_PyChunk* entry = &st->m_pChunks[i];
    if (entry->m_nKey == key) return entry;
    if (entry->m_nKey == 0) return nullptr;
  }
}

KDMEM_PyChunk* AddChunk(KDMEM_PyState* st, uintptr_t key) {
  const uint32_t mask = (1u << st->m_nChunkBits) - 1;
  uint32_t i = ChunkHome(key, st->m_nChunkBits);
  while (st->m_pChunks[i].m_nKey != 0 && st->m_pChunks[i].m_nKey != key) i = (i + 1) & mask;
  KDMEM_PyChunk* entry = &st->m_pChunks[i];
  if (entry->m_nKey == 0) {
    *entry = {key, {0, 0}};
    ++st->m_nChunks;
  }
  return entry;
}

// RemoveChunk empties an entry and shifts back the entries after it that probed past it.
void RemoveChunk(KDMEM_PyState* st, KDMEM_PyChunk* entry) {
  const uint32_t mask = (1u << st->m_nChunkBits) - 1;
  uint32_t hole = static_cast<uint32_t>(entry - st->m_pChunks);
  for (uint32_t j = (hole + 1) & mask; st->m_pChunks[j].m_nKey != 0; j = (j + 1) & mask) {
    const uint32_t home = ChunkHome(st->m_pChunks[j].m_nKey, st->m_nChunkBits);
    // An entry stays when its home lies cyclically in (hole, j].
    if (((j - home) & mask) < ((j - hole) & mask)) continue;
    st->m_pChunks[hole] = st->m_pChunks[j];
    hole = j;
  }
  st->m_pChunks[hole] = {0, {0, 0}};
  --st->m_nChunks;
}

// ReserveChunks makes room for one more arena (two entries) while keeping the table at most half
// full; false when the larger table cannot be had.
bool ReserveChunks(KDMEM_PyState* st) {
  if (st->m_nChunkBits && (st->m_nChunks + 2) * 2 <= (1u << st->m_nChunkBits)) return true;
  const uint32_t bits = st->m_nChunkBits ? st->m_nChunkBits + 1 : 5;
  if (bits > 31) return false;
  auto* table = static_cast<KDMEM_PyChunk*>(calloc(size_t{1} << bits, sizeof(KDMEM_PyChunk)));
  if (!table) return false;
  KDMEM_PyChunk* old = st->m_pChunks;
  const uint32_t old_capacity = st->m_nChunkBits ? 1u << st->m_nChunkBits : 0;
  st->m_pChunks = table;
  st->m_nChunkBits = bits;
  st->m_nChunks = 0;
  for (uint32_t i = 0; i < old_capacity; ++i) {
    if (old[i].m_nKey) *AddChunk(st, old[i].m_nKey) = old[i];
  }
  free(old);
  return true;
}

void AddArenaChunks(KDMEM_PyState* st, uintptr_t base) {
  for (uintptr_t key = (base >> kArenaShift) + 1; key <= ((base + kArenaSize - 1) >> kArenaShift) + 1; ++key) {
    KDMEM_PyChunk* entry = AddChunk(st, key);
    entry->m_Base[entry->m_Base[0] ? 1 : 0] = base;
  }
}

void RemoveArenaChunks(KDMEM_PyState* st, uintptr_t base) {
  for (uintptr_t key = (base >> kArenaShift) + 1; key <= ((base + kArenaSize - 1) >> kArenaShift) + 1; ++key) {
    KDMEM_PyChunk* entry = FindChunk(st, key);
    if (!entry) continue;
    for (uintptr_t& b : entry->m_Base) {
      if (b == base) b = 0;
    }
    if (!entry->m_Base[0] && !entry->m_Base[1]) RemoveChunk(st, entry);
  }
}

void FreeChunkTable(KDMEM_PyState* st) {
  free(st->m_pChunks);
  st->m_pChunks = nullptr;
  st->m_nChunkBits = 0;
  st->m_nChunks = 0;
}

// FreeArenaMemory returns an arena's memory to the system heap and drops it from the table.
void FreeArenaMemory(KDMEM_PyState* st, uintptr_t base) {
  RemoveArenaChunks(st, base);
  void* memory = reinterpret_cast<void*>(base);
  kdmem::Unpoison(memory, kArenaSize);
  free(memory);
}

// NewArena gives an arena record holding fresh memory, growing the record vector when no unused
// record is left; null when the vector or the arena cannot be had.
KDMEM_PyArena* NewArena(KDMEM_PyState* st) {
  if (!st->m_pUnusedArenas) {
    const uint32_t old_count = st->m_nMaxArenas;
    const uint32_t count = old_count ? old_count * 2 : kInitialArenas;
    if (count <= old_count) return nullptr;
    // The usable list is empty here (a new arena is made only then), so no record pointer is
    // held anywhere while the vector moves; pools refer to their arena by index.
    auto* arenas = static_cast<KDMEM_PyArena*>(realloc(st->m_pArenas, count * sizeof(KDMEM_PyArena)));
    if (!arenas) return nullptr;
    for (uint32_t i = old_count; i < count; ++i) {
      arenas[i].m_Base = 0;
      arenas[i].m_pNextArena = i + 1 < count ? &arenas[i + 1] : nullptr;
    }
    st->m_pArenas = arenas;
    st->m_pUnusedArenas = &arenas[old_count];
    st->m_nMaxArenas = count;
  }
  // Room in the address table is made first, so that nothing can fail once the memory is had.
  if (!ReserveChunks(st)) return nullptr;
  KDMEM_PyArena* arena = st->m_pUnusedArenas;
  void* memory = malloc(kArenaSize);
  if (!memory) return nullptr;  // the record stays on the unused list
  st->m_pUnusedArenas = arena->m_pNextArena;
  kdmem::Poison(memory, kArenaSize);
  arena->m_Base = reinterpret_cast<uintptr_t>(memory);
  AddArenaChunks(st, arena->m_Base);
  arena->m_pNextPool = static_cast<uint8_t*>(memory);
  arena->m_nFreePools = kMaxPoolsPerArena;
  if (const uintptr_t excess = arena->m_Base & kPoolMask) {
    // Pools are aligned to their size: skip to the next boundary and lose the last pool.
    --arena->m_nFreePools;
    arena->m_pNextPool += kPoolSize - excess;
  }
  arena->m_nTotalPools = arena->m_nFreePools;
  arena->m_pFreePools = nullptr;
  return arena;
}

// AllocFromNewPool serves a request of class size_class when the class has no partly used pool:
// it takes a pool from the fullest usable arena (making an arena if there is none) and starts it.
void* AllocFromNewPool(KDMEM_PyState* st, uint32_t size_class, size_t size) {
  KDMEM_PyArena* arena = st->m_pUsableArenas;
  if (!arena) {
    arena = NewArena(st);
    if (!arena) return nullptr;
    arena->m_pNextArena = nullptr;
    arena->m_pPrevArena = nullptr;
    st->m_pUsableArenas = arena;
    st->m_LastArenaByFreeCount[arena->m_nFreePools] = arena;
  }

  // The first usable arena has the fewest free pools, so it stays first with one pool fewer.
  const uint32_t free_pools = arena->m_nFreePools;
  if (st->m_LastArenaByFreeCount[free_pools] == arena) st->m_LastArenaByFreeCount[free_pools] = nullptr;
  if (free_pools > 1) st->m_LastArenaByFreeCount[free_pools - 1] = arena;

  KDMEM_PyPool* pool = arena->m_pFreePools;
  if (pool) {
    arena->m_pFreePools = pool->m_pNextPool;
  } else {
    pool = reinterpret_cast<KDMEM_PyPool*>(arena->m_pNextPool);
    kdmem::Unpoison(pool, kPoolHeaderSize);
    pool->m_nArenaIndex = static_cast<uint32_t>(arena - st->m_pArenas);
    pool->m_nSizeClass = kNoClass;
    arena->m_pNextPool += kPoolSize;
  }
  arena->m_nFreePools = free_pools - 1;
  if (free_pools == 1) {
    // Wholly allocated: the arena leaves the usable list.
    st->m_pUsableArenas = arena->m_pNextArena;
    if (st->m_pUsableArenas) st->m_pUsableArenas->m_pPrevArena = nullptr;
  }

  KDMEM_PyPool* head = &st->m_UsedPools[size_class];
  pool->m_pNextPool = head;
  pool->m_pPrevPool = head;
  head->m_pNextPool = pool;
  head->m_pPrevPool = pool;
  pool->m_nUsed = 1;

  uint8_t* block;
  if (pool->m_nSizeClass == size_class) {
    // The pool last held this class: its free list is ready (and holds at least two blocks).
    block = pool->m_pFreeBlock;
    pool->m_pFreeBlock = LoadLink(block);
  } else {
    const uint32_t block_size = BlockSize(size_class);
    pool->m_nSizeClass = size_class;
    block = reinterpret_cast<uint8_t*>(pool) + kPoolHeaderSize;
    uint8_t* next = block + block_size;
    StoreLink(next, nullptr);
    pool->m_pFreeBlock = next;
    pool->m_nNextOffset = kPoolHeaderSize + 2 * block_size;
    pool->m_nLastOffset = static_cast<uint32_t>(kPoolSize) - block_size;
  }
  return HandOut(block, size);
}

// PoolEmptied moves a pool whose last block was freed from its class list to its arena's free
// pools, and then returns the arena to the system heap when all its pools are free, or keeps the
// usable list sorted by ascending free-pool count.
void PoolEmptied(KDMEM_PyState* st, KDMEM_PyPool* pool) {
  UnlinkPool(pool);
  KDMEM_PyArena* arena = &st->m_pArenas[pool->m_nArenaIndex];
  pool->m_pNextPool = arena->m_pFreePools;
  arena->m_pFreePools = pool;

  uint32_t free_pools = arena->m_nFreePools;
  // The last arena with the old count; with count 0 the arena is on no list and this is null.
  KDMEM_PyArena* last_of_old = st->m_LastArenaByFreeCount[free_pools];
  if (last_of_old == arena) {
    KDMEM_PyArena* prev = arena->m_pPrevArena;
    st->m_LastArenaByFreeCount[free_pools] = (prev && prev->m_nFreePools == free_pools) ? prev : nullptr;
  }
  arena->m_nFreePools = ++free_pools;

  if (free_pools == arena->m_nTotalPools) {
    // Wholly free: unlink it, put the record on the unused list and return the memory.
    if (arena->m_pPrevArena) {
      arena->m_pPrevArena->m_pNextArena = arena->m_pNextArena;
    } else {
      st->m_pUsableArenas = arena->m_pNextArena;
    }
    if (arena->m_pNextArena) arena->m_pNextArena->m_pPrevArena = arena->m_pPrevArena;
    arena->m_pNextArena = st->m_pUnusedArenas;
    st->m_pUnusedArenas = arena;
    FreeArenaMemory(st, arena->m_Base);
    arena->m_Base = 0;
    return;
  }

  if (free_pools == 1) {
    // It was full and on no list; with the fewest free pools it goes first.
    arena->m_pNextArena = st->m_pUsableArenas;
    arena->m_pPrevArena = nullptr;
    if (st->m_pUsableArenas) st->m_pUsableArenas->m_pPrevArena = arena;
    st->m_pUsableArenas = arena;
    if (!st->m_LastArenaByFreeCount[1]) st->m_LastArenaByFreeCount[1] = arena;
    return;
  }

  if (!st->m_LastArenaByFreeCount[free_pools]) st->m_LastArenaByFreeCount[free_pools] = arena;
  // When it was the last arena of its old count it is still in order.
  if (arena == last_of_old) return;

  // Arenas with the old count follow it: move it to just after the last of them, ahead of any
  // arena that already has its new count.
  if (arena->m_pPrevArena) {
    arena->m_pPrevArena->m_pNextArena = arena->m_pNextArena;
  } else {
    st->m_pUsableArenas = arena->m_pNextArena;
  }
  arena->m_pNextArena->m_pPrevArena = arena->m_pPrevArena;
  arena->m_pPrevArena = last_of_old;
  arena->m_pNextArena = last_of_old->m_pNextArena;
  if (arena->m_pNextArena) arena->m_pNextArena->m_pPrevArena = arena;
  last_of_old->m_pNextArena = arena;
}

// TryRelease returns the pools' memory when the allocated-arena count is exactly 1 and the first
// usable arena is wholly free, and then goes to state -1.
void TryRelease(KDMEM_PyState* st) {
  KDMEM_PyArena* arena = st->m_pUsableArenas;
  if (st->m_nAllocatedArenas != 1 || !arena || arena->m_nFreePools != arena->m_nTotalPools) return;
  FreeArenaMemory(st, arena->m_Base);
  arena->m_Base = 0;
  --st->m_nAllocatedArenas;
  free(st->m_pArenas);
  st->m_pArenas = nullptr;
  FreeChunkTable(st);
  st->m_pUnusedArenas = nullptr;
  st->m_pUsableArenas = nullptr;
  st->m_State = kPurged;
}

inline void* RawMalloc(KDMEM_PyState* st, size_t size) {
  void* p = st->m_Raw.Alloc(size);
  if (p) ++st->m_nRawBlocks;
  return p;
}

inline void RawFree(KDMEM_PyState* st, void* block) {
  st->m_Raw.Free(block);
  --st->m_nRawBlocks;
}

inline CKDMEM_PyMgr* Self(_KDMEM_SystemMgr* sys) {
  // The table is the manager's first field.
  return reinterpret_cast<CKDMEM_PyMgr*>(sys);
}

class Locked {
 public:
  explicit Locked(CKDMEM_PyMgr* self) : mutex_(&self->m_Mutex) { KDCRT_Mutex_Lock(mutex_); }
  ~Locked() { KDCRT_Mutex_Unlock(mutex_); }
  Locked(const Locked&) = delete;
  Locked& operator=(const Locked&) = delete;

 private:
  KD_MUTEX* mutex_;
};

// The process's pool manager, built in place by KDMEM_CreatePyMgr and never destroyed: blocks
// may be returned to it until the very end of the process.
alignas(CKDMEM_PyMgr) unsigned char g_PyMgrStorage[sizeof(CKDMEM_PyMgr)];

}  // namespace

// Pool operations.

// A block belongs to the pools when it lies in an arena's memory. Reading the arena index from the
// pool header in front of the block and checking that arena's range gives the same answer for
// every block the manager can be handed, but for a block of the system heap that header is
// memory the manager does not own (another block's, or freed): the arena address table is
// looked up instead.
bool PyAddressInPools(const KDMEM_PyState* st, const void* block) {
  if (!st->m_pChunks) return false;
  const uintptr_t p = reinterpret_cast<uintptr_t>(block);
  const KDMEM_PyChunk* entry = FindChunk(st, (p >> kArenaShift) + 1);
  if (!entry) return false;
  const uintptr_t first = entry->m_Base[0], second = entry->m_Base[1];
  return (first && p - first < kArenaSize) || (second && p - second < kArenaSize);
}

void* pymalloc_alloc(KDMEM_PyState* st, size_t size) {
  if (size - 1 >= kMaxSmallRequest) return nullptr;  // 0 wraps around
  const uint32_t size_class = ClassOf(size);
  KDMEM_PyPool* head = &st->m_UsedPools[size_class];
  KDMEM_PyPool* pool = head->m_pNextPool;
  if (__builtin_expect(pool == head, 0)) return AllocFromNewPool(st, size_class, size);
  ++pool->m_nUsed;
  uint8_t* block = pool->m_pFreeBlock;
  uint8_t* next = LoadLink(block);
  pool->m_pFreeBlock = next;
  if (__builtin_expect(next == nullptr, 0)) RefillOrRetire(pool);
  return HandOut(block, size);
}

bool pymalloc_free(KDMEM_PyState* st, void* p) {
  if (!PyAddressInPools(st, p)) return false;
  KDMEM_PyPool* pool = PoolOf(p);
  auto* block = static_cast<uint8_t*>(p);
  kdmem::Poison(block, BlockSize(pool->m_nSizeClass));
  uint8_t* last_free = pool->m_pFreeBlock;
  StoreLink(block, last_free);
  pool->m_pFreeBlock = block;
  --pool->m_nUsed;
  if (__builtin_expect(last_free == nullptr, 0)) {
    // The pool was full and on no list.
    LinkPoolFirst(&st->m_UsedPools[pool->m_nSizeClass], pool);
    return true;
  }
  if (__builtin_expect(pool->m_nUsed == 0, 0)) PoolEmptied(st, pool);
  return true;
}

void* _PyObject_Malloc(KDMEM_PyState* st, size_t size) {
  if (st->m_State == kPooling) {
    if (void* p = pymalloc_alloc(st, size)) return p;
  }
  return RawMalloc(st, size);
}

void _PyObject_Free(KDMEM_PyState* st, void* block) {
  if (!block) return;
  if (st->m_State != kPurged && pymalloc_free(st, block)) return;
  RawFree(st, block);
}

void* _PyObject_Realloc(KDMEM_PyState* st, void* block, size_t size) {
  if (!block) return _PyObject_Malloc(st, size);
  if (st->m_State == kPurged || !PyAddressInPools(st, block)) return st->m_Raw.Realloc(block, size);

  auto* old = static_cast<uint8_t*>(block);
  const size_t old_size = BlockSize(PoolOf(block)->m_nSizeClass);
  // The whole old block is read below (kept or copied).
  kdmem::Unpoison(old, old_size);
  if (st->m_State == kPooling) {
    if (size <= old_size && 4 * size > 3 * old_size) {
      // A shrink to more than three quarters keeps the block.
      kdmem::Poison(old + size, old_size - size);
      return block;
    }
    if (void* p = pymalloc_alloc(st, size)) {
      memcpy(p, old, size < old_size ? size : old_size);
      pymalloc_free(st, block);
      return p;
    }
  }
  // To the raw allocator, without counting the block. The manager's documented behaviour copies
  // the whole old block here, even into a smaller new one; that write past the new block's end
  // corrupts the heap and gives nothing anyone can rely on, so it is deliberately not kept: only
  // min(old, new) bytes are copied, and the new block's contents come out the same.
  void* p = st->m_Raw.Alloc(size);
  if (!p) return nullptr;
  memcpy(p, old, size < old_size ? size : old_size);
  pymalloc_free(st, block);
  return p;
}

void _PyObject_Discard(KDMEM_PyState* st) {
  if (st->m_State != kPooling) return;
  st->m_State = kDiscarding;
  TryRelease(st);
}

void _PyObject_TryPurge(KDMEM_PyState* st) {
  if (st->m_State == kDiscarding) TryRelease(st);
}

// The raw allocator.

void* PyRawAlloc(size_t size) { return kdmem::Alloc(&g_DefNorvaneMgr, size, 0); }
void PyRawFree(void* block) { kdmem::Free(&g_DefNorvaneMgr, block, 0); }
void* PyRawRealloc(void* block, size_t size) { return kdmem::Realloc(&g_DefNorvaneMgr, block, size, 0); }

// System manager slots. With a single thread in the process, the pure pool paths skip the mutex:
// nothing else can contend for it and they run no outside code that could start a thread. The raw
// allocator runs client code (the default manager's debugger and handler), so it always runs
// under the mutex. The common cases (a block popped from or pushed on a pool that stays partly
// used) are inline; everything else goes through the full operations.

namespace {

// PopBlock is pymalloc_alloc's common case: a block from a partly used pool of the class that
// keeps a free block after it. Null means the full path must run.
inline void* PopBlock(KDMEM_PyState* st, size_t size) {
  if (size - 1 >= kMaxSmallRequest) return nullptr;
  KDMEM_PyPool* head = &st->m_UsedPools[ClassOf(size)];
  KDMEM_PyPool* pool = head->m_pNextPool;
  if (pool == head) return nullptr;
  uint8_t* block = pool->m_pFreeBlock;
  uint8_t* next = LoadLink(block);
  if (!next) return nullptr;
  ++pool->m_nUsed;
  pool->m_pFreeBlock = next;
  return HandOut(block, size);
}

// PushBlock is pymalloc_free's common case: a pooled block going back to a pool that stays partly
// used. False means the full path must run.
inline bool PushBlock(KDMEM_PyState* st, void* p) {
  if (!PyAddressInPools(st, p)) return false;
  KDMEM_PyPool* pool = PoolOf(p);
  uint8_t* last_free = pool->m_pFreeBlock;
  if (!last_free || pool->m_nUsed == 1) return false;
  auto* block = static_cast<uint8_t*>(p);
  kdmem::Poison(block, BlockSize(pool->m_nSizeClass));
  StoreLink(block, last_free);
  pool->m_pFreeBlock = block;
  --pool->m_nUsed;
  return true;
}

__attribute__((noinline)) void* AllocSlow(CKDMEM_PyMgr* self, size_t size) {
  KDMEM_PyState* st = &self->m_State;
  if (KDCRT_IsSingleThreaded()) {
    if (st->m_State == kPooling) {
      if (void* p = pymalloc_alloc(st, size)) return p;
    }
    Locked lock(self);
    return RawMalloc(st, size);
  }
  Locked lock(self);
  return _PyObject_Malloc(st, size);
}

__attribute__((noinline)) void FreeSlow(CKDMEM_PyMgr* self, void* block) {
  KDMEM_PyState* st = &self->m_State;
  if (KDCRT_IsSingleThreaded() && block) {
    if (st->m_State != kPurged && pymalloc_free(st, block)) return;
    Locked lock(self);
    RawFree(st, block);
    return;
  }
  Locked lock(self);
  _PyObject_Free(st, block);
}

}  // namespace

void* PyAlloc(_KDMEM_SystemMgr* sys, size_t size, int) {
  CKDMEM_PyMgr* self = Self(sys);
  KDMEM_PyState* st = &self->m_State;
  if (__builtin_expect(KDCRT_IsSingleThreaded() && st->m_State == kPooling, 1)) {
    if (void* p = PopBlock(st, size)) return p;
  }
  return AllocSlow(self, size);
}

void* PyAllocDebug(_KDMEM_SystemMgr* sys, size_t size, int flags, const char*, int) {
  return PyAlloc(sys, size, flags);
}

void* PyRealloc(_KDMEM_SystemMgr* sys, void* block, size_t size, int) {
  CKDMEM_PyMgr* self = Self(sys);
  Locked lock(self);
  return _PyObject_Realloc(&self->m_State, block, size);
}

void* PyReallocDebug(_KDMEM_SystemMgr* sys, void* block, size_t size, int flags, const char*, int) {
  return PyRealloc(sys, block, size, flags);
}

void PyFree(_KDMEM_SystemMgr* sys, void* block, int) {
  CKDMEM_PyMgr* self = Self(sys);
  KDMEM_PyState* st = &self->m_State;
  if (__builtin_expect(KDCRT_IsSingleThreaded() && block && st->m_State != kPurged, 1)) {
    if (PushBlock(st, block)) return;
  }
  FreeSlow(self, block);
}

// CKDMEM_PyMgr.

CKDMEM_PyMgr::CKDMEM_PyMgr() {
  memset(&m_State, 0, sizeof(m_State));
  for (KDMEM_PyPool& head : m_State.m_UsedPools) {
    head.m_pNextPool = &head;
    head.m_pPrevPool = &head;
  }
  m_State.m_Raw = {PyRawAlloc, PyRawFree, PyRawRealloc};
  KDCRT_Mutex_Initialize(&m_Mutex);
  m_SystemMgr = {PyAlloc, PyAllocDebug, PyRealloc, PyReallocDebug, nullptr, nullptr, PyFree, nullptr, nullptr, this};
  m_Mgr.Init(&m_SystemMgr, CKD_MemoryMgr::TypePool);
}

CKDMEM_PyMgr::~CKDMEM_PyMgr() {
  if (m_State.m_pArenas) {
    for (uint32_t i = 0; i < m_State.m_nMaxArenas; ++i) {
      if (m_State.m_pArenas[i].m_Base) FreeArenaMemory(&m_State, m_State.m_pArenas[i].m_Base);
    }
    free(m_State.m_pArenas);
  }
  FreeChunkTable(&m_State);
  KDCRT_Mutex_Destroy(&m_Mutex);
}

void CKDMEM_PyMgr::Discard() {
  Locked lock(this);
  _PyObject_Discard(&m_State);
}

CKDMEM_PyMgr* CKDMEM_PyMgr::FromSystemMgr(_KDMEM_SystemMgr* sys) {
  return sys && sys->Alloc == PyAlloc ? static_cast<CKDMEM_PyMgr*>(sys->user) : nullptr;
}

// The flat interface.

CKD_MemoryMgr* KDMEM_CreatePyMgr() {
  // Building over a live instance abandons its arenas; it is meant to happen once.
  auto* self = ::new (static_cast<void*>(g_PyMgrStorage)) CKDMEM_PyMgr();
  return self->GetMgr();
}

int KDMEM_SetPyConfig(int, size_t) { return 0; }
