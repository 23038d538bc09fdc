#include "norvane/containers/plex.h"

#include "norvane/memory/memory_internal.h"

CKD_Plex* CKD_Plex::Create(IKD_Allocator* allocator, CKD_Plex*& head, unsigned int count, unsigned int element_size) {
  size_t bytes = sizeof(CKD_Plex) + static_cast<size_t>(count) * element_size;
  void* block = kdmem::AllocFrom(allocator, bytes, 1);
  if (!block) return nullptr;
  CKD_Plex* p = static_cast<CKD_Plex*>(block);
  p->pNext = head;
  head = p;
  return p;
}

void CKD_Plex::FreeDataChain(IKD_Allocator* allocator) {
  CKD_Plex* p = this;
  while (p) {
    CKD_Plex* next = p->pNext;
    kdmem::FreeTo(allocator, p);
    p = next;
  }
}
