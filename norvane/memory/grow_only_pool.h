// CKD_GrowOnlyPool: an allocator that only grows. It hands out blocks by bumping an offset inside
// large trunks taken from an underlying allocator, never frees a single block, and returns all
// trunks at once with FreeAll (or on destruction).
//
// The pool is itself an IKD_Allocator, so anything that takes an allocator can be pointed at it:
// its Alloc slots allocate from the pool, its Realloc slots always fail with null (the block stays
// valid) and its Free slot does nothing.
//
// Blocks are rounded up to a multiple of 4 bytes and are aligned only to 4 bytes. A request is
// served by the newest trunk with room for it, older trunks included, so small requests fill the
// gaps that larger ones left. A trunk holds at least the trunk size given at construction.
//
// Every operation takes the pool's recursive mutex, so one pool may be shared by threads.
#ifndef NORVANE_MEMORY_GROW_ONLY_POOL_H_
#define NORVANE_MEMORY_GROW_ONLY_POOL_H_

#include <cstddef>

#include "norvane/config.h"
#include "norvane/memory/memory_mgr.h"
#include "norvane/memory/object.h"
#include "norvane/runtime/sync.h"

// The allocator slots come first, with the trunk size in the allocator's own word (m_Param).
class NORVANE_API CKD_GrowOnlyPool : public IKD_Allocator, public CKD_Object {
 public:
  // A trunk: its header, then payload_size bytes of which used are handed out.
  struct Trunk {
    size_t m_nPayloadSize;
    size_t m_nUsed;
    Trunk* m_pNext;
    unsigned char* Payload() { return reinterpret_cast<unsigned char*>(this + 1); }
  };

  // Trunks come from allocator (null: the default manager's allocator as it is now) and hold at
  // least trunk_size bytes each.
  CKD_GrowOnlyPool(IKD_Allocator* allocator, size_t trunk_size);
  // Returns every trunk, as FreeAll.
  ~CKD_GrowOnlyPool();
  CKD_GrowOnlyPool(const CKD_GrowOnlyPool&) = delete;
  CKD_GrowOnlyPool& operator=(const CKD_GrowOnlyPool&) = delete;

  // Alloc returns a block of size bytes (rounded up to a multiple of 4), making a trunk when no
  // trunk has room. Returns null only when a needed trunk cannot be had or size is absurdly large.
  void* Alloc(size_t size);
  // FreeAll returns every trunk to the underlying allocator; every block becomes invalid.
  void FreeAll();
  // SetAllocator changes the underlying allocator (null: the default manager's allocator). Trunks
  // held are later returned to the new one, so change it only while the pool is empty.
  void SetAllocator(IKD_Allocator* allocator);

  size_t GetTrunkSize() const { return m_Param; }

  Trunk* m_pFirstTrunk;  // newest first; null when empty
  IKD_Allocator* m_pAllocator;
  KD_MUTEX m_Mutex;

 private:
  // Bump serves a request from the newest trunk with room, or returns null.
  void* Bump(size_t size, size_t rounded);
  // AddTrunk makes a trunk holding the request and returns its block; null when none can be had.
  void* AddTrunk(size_t size, size_t rounded);
};

static_assert(sizeof(CKD_GrowOnlyPool::Trunk) == 3 * sizeof(size_t), "a trunk header is three words");
static_assert(sizeof(CKD_GrowOnlyPool) == sizeof(IKD_Allocator) + 2 * sizeof(void*) + sizeof(KD_MUTEX),
              "grow-only pool layout: allocator slots, trunk size, first trunk, allocator, mutex");

#endif  // NORVANE_MEMORY_GROW_ONLY_POOL_H_
