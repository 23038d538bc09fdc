// CKD_Plex: a chain of raw blocks that a container carves fixed-size entries from. Each block is
// a header holding the next block's address, followed directly by its payload. Blocks are only
// ever freed all together.
#ifndef NORVANE_CONTAINERS_PLEX_H_
#define NORVANE_CONTAINERS_PLEX_H_

#include "norvane/config.h"
#include "norvane/memory/memory_mgr.h"

// CKD_Plex is the header of one block of the chain; the payload follows it directly.
struct NORVANE_API CKD_Plex {
  CKD_Plex* pNext;

  // data returns the payload that follows the header.
  void* data() { return this + 1; }

  // Create allocates a block of count * element_size payload bytes (from allocator, or the
  // default manager when null), links it in front of head and makes it the new head. The payload
  // is not cleared. Returns null, with head unchanged, when the block cannot be had.
  static CKD_Plex* Create(IKD_Allocator* allocator, CKD_Plex*& head, unsigned int count, unsigned int element_size);
  // FreeDataChain frees this block and every block after it.
  void FreeDataChain(IKD_Allocator* allocator);
};

static_assert(sizeof(CKD_Plex) == 8, "the block header is one pointer");

#endif  // NORVANE_CONTAINERS_PLEX_H_
