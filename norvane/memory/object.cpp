#include "norvane/memory/object.h"

#include "norvane/memory/memory_internal.h"

namespace {

// With no default manager installed, new yields null and delete does nothing.
inline void* DefaultNew(size_t size) {
  CKD_MemoryMgr* mgr = g_pDefNorvaneMgr;
  return mgr ? kdmem::Alloc(mgr, size, 0) : nullptr;
}

inline void* DefaultNewDebug(size_t size, const char* file, int line) {
  CKD_MemoryMgr* mgr = g_pDefNorvaneMgr;
  return mgr ? kdmem::AllocDebug(mgr, size, 0, file, line) : nullptr;
}

inline void DefaultDelete(void* block) {
  if (CKD_MemoryMgr* mgr = g_pDefNorvaneMgr) kdmem::Free(mgr, block, 0);
}

inline void AllocatorDelete(void* block, IKD_Allocator* allocator) {
  if (allocator)
    allocator->m_Free(allocator, block);
  else
    DefaultDelete(block);
}

// Default allocation of a CKD_AllocObject. The step tells the debugger and, the flags being 0,
// calls the handler; then the process stops, so this never returns null.
void* AllocObjectNew(size_t size, const char* file, int line, bool debug) {
  CKD_MemoryMgr* mgr = g_pDefNorvaneMgr;
  void* p = nullptr;
  if (mgr) p = debug ? kdmem::AllocDebug(mgr, size, 0, file, line) : kdmem::Alloc(mgr, size, 0);
  if (__builtin_expect(p == nullptr, 0)) __builtin_trap();
  return p;
}

// new records the allocator at offset 0 of the raw block, where the first field will live.
inline void* Record(void* block, IKD_Allocator* allocator) {
  if (block) *static_cast<IKD_Allocator**>(block) = allocator;
  return block;
}

}  // namespace

void* CKD_Object::operator new(size_t size) noexcept { return DefaultNew(size); }
void* CKD_Object::operator new[](size_t size) noexcept { return DefaultNew(size); }
void* CKD_Object::operator new(size_t size, const char* file, int line) noexcept {
  return DefaultNewDebug(size, file, line);
}
void* CKD_Object::operator new[](size_t size, const char* file, int line) noexcept {
  return DefaultNewDebug(size, file, line);
}
void CKD_Object::operator delete(void* block) noexcept { DefaultDelete(block); }
void CKD_Object::operator delete[](void* block) noexcept { DefaultDelete(block); }
void CKD_Object::operator delete(void* block, const char*, int) noexcept { DefaultDelete(block); }
void CKD_Object::operator delete[](void* block, const char*, int) noexcept { DefaultDelete(block); }

void* CKD_AllocObject::operator new(size_t size, IKD_Allocator* allocator) noexcept {
  return Record(allocator ? allocator->m_Alloc(allocator, size) : AllocObjectNew(size, nullptr, 0, false),
                allocator);
}

void* CKD_AllocObject::operator new(size_t size, IKD_Allocator* allocator, const char* file, int line) noexcept {
  return Record(allocator ? allocator->m_AllocDebug(allocator, size, file, line)
                          : AllocObjectNew(size, file, line, true),
                allocator);
}

void CKD_AllocObject::operator delete(void* block) noexcept {
  if (block) AllocatorDelete(block, *static_cast<IKD_Allocator**>(block));
}

void CKD_AllocObject::operator delete(void* block, IKD_Allocator* allocator) noexcept {
  AllocatorDelete(block, allocator);
}

void CKD_AllocObject::operator delete(void* block, IKD_Allocator* allocator, const char*, int) noexcept {
  AllocatorDelete(block, allocator);
}
