// Internal to the library: the static default manager, the system-heap system manager it runs
// on, and the allocation step every allocating call of a manager runs, inline so that the
// library's own callers (object new/delete, the pool manager's raw allocator) pay no extra call;
// and the allocator-or-default-manager helpers the containers, buffers and streams share.
#ifndef NORVANE_MEMORY_MEMORY_INTERNAL_H_
#define NORVANE_MEMORY_MEMORY_INTERNAL_H_

#include <cstdint>
#include <cstdlib>
#include <new>
#include <utility>

#include "norvane/memory/memory_mgr.h"

// The static manager of type TypeDefault over g_CRTSystemMgr: no debugger, no handler, not owned.
extern CKD_MemoryMgr g_DefNorvaneMgr;
// The system manager over malloc/realloc/free; flags, file and line are ignored. Its slots never
// change, which lets the step call the system heap directly.
extern _KDMEM_SystemMgr g_CRTSystemMgr;

namespace kdmem {

// ReportFailure calls the handler unless flags has KDMEM_NONLEAVE or no handler is set.
__attribute__((cold)) void ReportFailure(CKD_MemoryMgr* mgr, int flags);
// The full steps, for managers with a debugger or a handler: system slot, then the debugger
// (told of failures too), then on failure the handler. FreeFull tells the debugger, then frees.
void* AllocFull(CKD_MemoryMgr* mgr, size_t size, int flags);
void* AllocDebugFull(CKD_MemoryMgr* mgr, size_t size, int flags, const char* file, int line);
void* ReallocFull(CKD_MemoryMgr* mgr, void* block, size_t size, int flags);
void* ReallocDebugFull(CKD_MemoryMgr* mgr, void* block, size_t size, int flags, const char* file, int line);
void FreeFull(CKD_MemoryMgr* mgr, void* block, int flags);

// When a manager has neither debugger nor handler nothing follows the system call. (One test of
// both pointers: this sits on every allocation.)
inline bool Observed(const CKD_MemoryMgr* mgr) {
  return (reinterpret_cast<uintptr_t>(mgr->m_pDebugger) | reinterpret_cast<uintptr_t>(mgr->m_pOOMHandler)) != 0;
}

inline void* Alloc(CKD_MemoryMgr* mgr, size_t size, int flags) {
  if (__builtin_expect(Observed(mgr), 0)) return AllocFull(mgr, size, flags);
  _KDMEM_SystemMgr* sys = mgr->m_pSystemMgr;
  if (__builtin_expect(sys == &g_CRTSystemMgr, 1)) return malloc(size);
  return sys->Alloc(sys, size, flags);
}

inline void* AllocDebug(CKD_MemoryMgr* mgr, size_t size, int flags, const char* file, int line) {
  if (__builtin_expect(Observed(mgr), 0)) return AllocDebugFull(mgr, size, flags, file, line);
  _KDMEM_SystemMgr* sys = mgr->m_pSystemMgr;
  return sys->AllocDebug(sys, size, flags, file, line);
}

// A null block makes a reallocation an allocation.
inline void* Realloc(CKD_MemoryMgr* mgr, void* block, size_t size, int flags) {
  if (!block) return Alloc(mgr, size, flags);
  if (__builtin_expect(Observed(mgr), 0)) return ReallocFull(mgr, block, size, flags);
  _KDMEM_SystemMgr* sys = mgr->m_pSystemMgr;
  if (__builtin_expect(sys == &g_CRTSystemMgr, 1)) return realloc(block, size);
  return sys->Realloc(sys, block, size, flags);
}

inline void* ReallocDebug(CKD_MemoryMgr* mgr, void* block, size_t size, int flags, const char* file, int line) {
  if (!block) return AllocDebug(mgr, size, flags, file, line);
  if (__builtin_expect(Observed(mgr), 0)) return ReallocDebugFull(mgr, block, size, flags, file, line);
  _KDMEM_SystemMgr* sys = mgr->m_pSystemMgr;
  return sys->ReallocDebug(sys, block, size, flags, file, line);
}

// A null block is ignored; otherwise the debugger is told before the system manager frees it.
inline void Free(CKD_MemoryMgr* mgr, void* block, int flags) {
  if (!block) return;
  if (__builtin_expect(mgr->m_pDebugger != nullptr, 0)) return FreeFull(mgr, block, flags);
  _KDMEM_SystemMgr* sys = mgr->m_pSystemMgr;
  if (__builtin_expect(sys == &g_CRTSystemMgr, 1)) return free(block);
  sys->Free(sys, block, flags);
}

// The allocator-or-default step of the library's containers, buffers and streams: a given
// allocator's slot, or with none the default manager. The default manager's "2" functions check
// count * unit against their limit, so each caller keeps its own split of the size; an allocator
// is asked for the product. FreeTo passes a null block on as it is (the default manager ignores
// it; an allocator need not), so callers that may hold none test it first. The three are always
// inlined, so that every caller compiles as if it had written the step out itself.
__attribute__((always_inline)) inline void* AllocFrom(IKD_Allocator* allocator, size_t count, size_t unit) {
  return allocator ? allocator->m_Alloc(allocator, count * unit) : KDMEM_DefaultAlloc2(count, unit, 0);
}

__attribute__((always_inline)) inline void* ReallocFrom(IKD_Allocator* allocator, void* block, size_t count, size_t unit) {
  return allocator ? allocator->m_Realloc(allocator, block, count * unit)
                   : KDMEM_DefaultRealloc2(block, count, unit, 0);
}

__attribute__((always_inline)) inline void FreeTo(IKD_Allocator* allocator, void* block) {
  if (allocator)
    allocator->m_Free(allocator, block);
  else
    KDMEM_DefaultFree(block, 0);
}

// NewFrom makes a T (a CKD_Object) in a given allocator's memory, or with none by CKD_Object new;
// null when the memory cannot be had. DeleteTo destroys one with the allocator it came from: the
// destructor, then the allocator's m_Free; with none, delete. Both are always inlined too.
template <class T, class... Args>
__attribute__((always_inline)) inline T* NewFrom(IKD_Allocator* allocator, Args&&... args) {
  if (!allocator) return new T(std::forward<Args>(args)...);
  void* p = allocator->m_Alloc(allocator, sizeof(T));
  return p ? ::new (p) T(std::forward<Args>(args)...) : nullptr;
}

template <class T>
__attribute__((always_inline)) inline void DeleteTo(IKD_Allocator* allocator, T* object) {
  if (allocator) {
    object->~T();
    allocator->m_Free(allocator, object);
  } else {
    delete object;
  }
}

}  // namespace kdmem

#endif  // NORVANE_MEMORY_MEMORY_INTERNAL_H_
