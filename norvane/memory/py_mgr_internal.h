// The small-object pool manager: a system manager that serves requests of 1 to 1024 bytes from
// size-segregated pools carved out of large arenas, and hands every other request to a raw
// allocator (the static default manager over the system heap). KDMEM_CreatePyMgr sets up the
// process's instance and returns a manager of type TypePool over it.
//
// Geometry. An arena is 256 KiB taken from the system heap with malloc. It is cut into 4096-byte
// pools aligned to 4096: 64 of them when the arena's address is 4096-aligned, else 63 (the first
// pool starts at the next boundary and the tail is left unused). A pool starts with a 48-byte
// header; its blocks follow, all of one size class. A request of n bytes (1..1024) takes class
// (n - 1) >> 4, whose blocks are ((n - 1) >> 4 + 1) * 16 bytes: 64 classes from 16 to 1024. A
// block carries no header of its own: its pool is found by masking the address.
//
// Lists. Per class, the partly used pools form a circular doubly linked list. Arenas with at least
// one free pool form the usable list, kept sorted by ascending count of free pools so that the
// fullest arenas are used first and the emptiest drain; a table of the last arena having each
// count (0..64) re-sorts it in constant time. An arena whose pools are all free again goes back to
// the system heap at once, in every state.
//
// States. 0 pooling; 1 discarding (after a discard: every new request goes to the raw allocator,
// pooled blocks can still be freed); -1 purged (the pools' memory is gone and every free goes to
// the raw allocator). The allocated-arena count is never raised when an arena is made, so a
// discard of a manager made by KDMEM_CreatePyMgr only switches to state 1; the release it guards
// is reached only when something else sets the count.
//
// Reallocation keeps a block in place when the new size fits it and is more than three quarters
// of it. A pooled block that moves to the raw allocator (a request over 1024 or of 0 bytes, or
// any request after a discard) has its whole old block copied, even into a smaller new block:
// callers must not shrink a pooled block below its block size after a discard, nor reallocate one
// to 0 bytes.
//
// Concurrency. Every system slot holds the instance's recursive mutex for the whole pool
// operation. While the process has a single thread the pure pool paths of PyAlloc and PyFree,
// which run no code from outside, skip the mutex (no other thread exists to exclude); anything
// that reaches the raw allocator, whose debugger and handler are client code, runs under it.
#ifndef NORVANE_MEMORY_PY_MGR_INTERNAL_H_
#define NORVANE_MEMORY_PY_MGR_INTERNAL_H_

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "norvane/memory/memory_mgr.h"
#include "norvane/memory/object.h"
#include "norvane/runtime/sync.h"

namespace kdpy {

constexpr unsigned int kArenaShift = 18;
constexpr size_t kArenaSize = size_t{1} << kArenaShift;
constexpr size_t kPoolSize = 4096;
constexpr uintptr_t kPoolMask = kPoolSize - 1;
constexpr uint32_t kPoolHeaderSize = 48;
constexpr size_t kAlignmentShift = 4;  // blocks are multiples of 16 bytes
constexpr size_t kMaxSmallRequest = 1024;
constexpr unsigned int kClassCount = 64;
constexpr unsigned int kMaxPoolsPerArena = kArenaSize / kPoolSize;
// The size class of a pool that has never held blocks.
constexpr uint32_t kNoClass = 65535;

// Pool states.
constexpr int32_t kPooling = 0;
constexpr int32_t kDiscarding = 1;
constexpr int32_t kPurged = -1;

inline uint32_t ClassOf(size_t n) { return static_cast<uint32_t>((n - 1) >> kAlignmentShift); }
inline uint32_t BlockSize(uint32_t size_class) { return (size_class + 1) << kAlignmentShift; }

}  // namespace kdpy

// KDMEM_PyPool is the header at the start of every pool; blocks start right after it.
struct KDMEM_PyPool {
  uint32_t m_nUsed;           // allocated blocks
  uint8_t* m_pFreeBlock;      // first free block; each free block holds the next (null ends)
  KDMEM_PyPool* m_pNextPool;  // class list while partly used; arena's free-pool list when empty
  KDMEM_PyPool* m_pPrevPool;
  uint32_t m_nArenaIndex;  // index of the owning arena record
  uint32_t m_nSizeClass;   // kdpy::kNoClass until first used
  uint32_t m_nNextOffset;  // offset of the next never-used block
  uint32_t m_nLastOffset;  // 4096 minus the block size: no block starts beyond it
};

// KDMEM_PyArena is an arena record. Records sit in one vector and are addressed by index from
// the pools, so the vector may move when it grows.
struct KDMEM_PyArena {
  uintptr_t m_Base;             // the arena's memory from the system heap; 0 when none
  uint8_t* m_pNextPool;         // start of the next never-used pool
  uint32_t m_nFreePools;
  uint32_t m_nTotalPools;
  KDMEM_PyPool* m_pFreePools;   // emptied pools of this arena, linked through m_pNextPool
  KDMEM_PyArena* m_pNextArena;  // usable list, or the unused-record list
  KDMEM_PyArena* m_pPrevArena;  // usable list only
};

// KDMEM_PyChunk is one entry of the arena address table: the address space is cut into chunks
// of the arena size, and an entry lists the (at most two) arenas whose memory meets its chunk.
struct KDMEM_PyChunk {
  uintptr_t m_nKey;      // chunk number + 1; 0 marks an empty entry
  uintptr_t m_Base[2];   // arena bases, 0 where none
};

// KDMEM_PyRawAllocator serves whatever the pools do not.
struct KDMEM_PyRawAllocator {
  void* (*Alloc)(size_t size);
  void (*Free)(void* block);
  void* (*Realloc)(void* block, size_t size);
};

// KDMEM_PyState is the pool state. The fields up to m_State are in their fixed order; the class
// list heads follow (each instance has its own, so instances do not share lists).
struct KDMEM_PyState {
  KDMEM_PyArena* m_pArenas;  // the arena record vector, grown with the system heap's realloc
  uint32_t m_nMaxArenas;     // its capacity
  KDMEM_PyArena* m_pUnusedArenas;
  KDMEM_PyArena* m_pUsableArenas;
  KDMEM_PyArena* m_LastArenaByFreeCount[kdpy::kMaxPoolsPerArena + 1];
  size_t m_nAllocatedArenas;  // lowered by a release, raised by nothing
  KDMEM_PyRawAllocator m_Raw;
  int32_t m_nRawBlocks;  // raised per raw allocation, lowered per raw free
  int32_t m_State;       // kdpy::kPooling, kDiscarding or kPurged
  // Sentinels heading the circular class lists; only their pool links are used.
  KDMEM_PyPool m_UsedPools[kdpy::kClassCount];
  // The arena address table (open addressing, linear probing, capacity a power of two): the
  // address test looks a block's chunk up here rather than reading the memory in front of the
  // block, which for a block of the system heap is not the manager's to read.
  KDMEM_PyChunk* m_pChunks;
  uint32_t m_nChunkBits;  // log2 of the capacity; 0 while there is no table
  uint32_t m_nChunks;     // entries in use
};

static_assert(sizeof(KDMEM_PyPool) == kdpy::kPoolHeaderSize, "the pool header is 48 bytes");
static_assert(offsetof(KDMEM_PyPool, m_pFreeBlock) == 8 && offsetof(KDMEM_PyPool, m_pNextPool) == 16 &&
                  offsetof(KDMEM_PyPool, m_pPrevPool) == 24 && offsetof(KDMEM_PyPool, m_nArenaIndex) == 32 &&
                  offsetof(KDMEM_PyPool, m_nSizeClass) == 36 && offsetof(KDMEM_PyPool, m_nNextOffset) == 40 &&
                  offsetof(KDMEM_PyPool, m_nLastOffset) == 44,
              "pool header field order");
static_assert(sizeof(KDMEM_PyArena) == 48 && offsetof(KDMEM_PyArena, m_pNextPool) == 8 &&
                  offsetof(KDMEM_PyArena, m_nFreePools) == 16 && offsetof(KDMEM_PyArena, m_nTotalPools) == 20 &&
                  offsetof(KDMEM_PyArena, m_pFreePools) == 24 && offsetof(KDMEM_PyArena, m_pNextArena) == 32 &&
                  offsetof(KDMEM_PyArena, m_pPrevArena) == 40,
              "arena record field order");
static_assert(offsetof(KDMEM_PyState, m_nMaxArenas) == 8 && offsetof(KDMEM_PyState, m_pUnusedArenas) == 16 &&
                  offsetof(KDMEM_PyState, m_pUsableArenas) == 24 &&
                  offsetof(KDMEM_PyState, m_LastArenaByFreeCount) == 32 &&
                  offsetof(KDMEM_PyState, m_nAllocatedArenas) == 32 + 65 * 8 &&
                  offsetof(KDMEM_PyState, m_Raw) == 560 && offsetof(KDMEM_PyState, m_nRawBlocks) == 584 &&
                  offsetof(KDMEM_PyState, m_State) == 588 && offsetof(KDMEM_PyState, m_UsedPools) == 592,
              "pool state field order");

// The pool operations. None locks: the callers hold the mutex.

// _PyObject_Malloc returns a pooled block for 1..1024 bytes in state 0, else a raw block (raising
// the raw block count); null when neither can be had.
void* _PyObject_Malloc(KDMEM_PyState* state, size_t size);
// _PyObject_Free returns a pooled block to its pool, or a raw block to the raw allocator
// (lowering the raw block count). Null is ignored.
void _PyObject_Free(KDMEM_PyState* state, void* block);
// _PyObject_Realloc resizes block (null: as _PyObject_Malloc) under the rules above; on failure
// returns null and block stays valid.
void* _PyObject_Realloc(KDMEM_PyState* state, void* block, size_t size);
// _PyObject_Discard switches state 0 to 1 and then releases the pools' memory if the release test
// passes (allocated-arena count exactly 1 and the first usable arena wholly free), going to -1.
void _PyObject_Discard(KDMEM_PyState* state);
// _PyObject_TryPurge runs the same release test and release in state 1 only.
void _PyObject_TryPurge(KDMEM_PyState* state);
// pymalloc_alloc returns a pooled block, or null when size is outside 1..1024 or no arena can be had.
void* pymalloc_alloc(KDMEM_PyState* state, size_t size);
// pymalloc_free takes block back and returns true when it belongs to the pools; false otherwise.
bool pymalloc_free(KDMEM_PyState* state, void* block);
// PyAddressInPools is the address test of free and realloc: block lies within an arena that holds
// memory. It looks the block's chunk up in the arena address table and reads nothing near the
// block, which may belong to the system heap.
bool PyAddressInPools(const KDMEM_PyState* state, const void* block);

// The raw allocator KDMEM_CreatePyMgr installs: the static default manager with flags 0, its
// debugger told and its handler called on failure like any allocation.
void* PyRawAlloc(size_t size);
void PyRawFree(void* block);
void* PyRawRealloc(void* block, size_t size);

// The system manager slots. Flags, file and line are ignored.
void* PyAlloc(_KDMEM_SystemMgr* sys, size_t size, int flags);
void* PyAllocDebug(_KDMEM_SystemMgr* sys, size_t size, int flags, const char* file, int line);
void* PyRealloc(_KDMEM_SystemMgr* sys, void* block, size_t size, int flags);
void* PyReallocDebug(_KDMEM_SystemMgr* sys, void* block, size_t size, int flags, const char* file, int line);
void PyFree(_KDMEM_SystemMgr* sys, void* block, int flags);

// CKDMEM_PyMgr is a pool manager: its system manager table, its pool state, the mutex that
// serialises the pool operations and the TypePool manager record over it, in that order. The
// process's instance lives in static storage and is (re)built by KDMEM_CreatePyMgr; an instance
// of one's own works the same way and returns its memory to the system heap when destroyed
// (blocks still allocated from it become invalid).
class CKDMEM_PyMgr : public CKD_Object {
 public:
  // Zeroes the state, initialises the mutex, fills the slots and raw allocator and builds the
  // manager record (no debugger, no handler, allocator bound to it, owned flag set).
  CKDMEM_PyMgr();
  ~CKDMEM_PyMgr();
  CKDMEM_PyMgr(const CKDMEM_PyMgr&) = delete;
  CKDMEM_PyMgr& operator=(const CKDMEM_PyMgr&) = delete;

  CKD_MemoryMgr* GetMgr() { return &m_Mgr; }
  // Discard runs _PyObject_Discard under the mutex.
  void Discard();
  // FromSystemMgr returns the pool manager whose table sys is, or null when sys is not one.
  static CKDMEM_PyMgr* FromSystemMgr(_KDMEM_SystemMgr* sys);

  _KDMEM_SystemMgr m_SystemMgr;
  KDMEM_PyState m_State;
  KD_MUTEX m_Mutex;
  CKD_MemoryMgr m_Mgr;
};

static_assert(std::is_standard_layout<CKDMEM_PyMgr>::value && offsetof(CKDMEM_PyMgr, m_SystemMgr) == 0 && offsetof(CKDMEM_PyMgr, m_State) == sizeof(_KDMEM_SystemMgr) &&
                  offsetof(CKDMEM_PyMgr, m_Mutex) == offsetof(CKDMEM_PyMgr, m_State) + sizeof(KDMEM_PyState),
              "pool manager field order");

#endif  // NORVANE_MEMORY_PY_MGR_INTERNAL_H_
