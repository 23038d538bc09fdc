#include "norvane/memory/memory_mgr.h"

#include <cstdlib>

#include "norvane/memory/memory_internal.h"
#include "norvane/memory/py_mgr_internal.h"
#include "norvane/runtime/kdcrt_system_internal.h"

namespace kdmem {

void ReportFailure(CKD_MemoryMgr* mgr, int flags) {
  if (!(flags & KDMEM_NONLEAVE) && mgr->m_pOOMHandler) mgr->m_pOOMHandler(mgr, mgr->m_pOOMParam);
}

void* AllocFull(CKD_MemoryMgr* mgr, size_t size, int flags) {
  _KDMEM_SystemMgr* sys = mgr->m_pSystemMgr;
  void* p = sys->Alloc(sys, size, flags);
  if (KDMEM_Debugger* dbg = mgr->m_pDebugger; dbg && dbg->OnAlloc) dbg->OnAlloc(mgr, p, size, flags);
  if (!p) ReportFailure(mgr, flags);
  return p;
}

void* AllocDebugFull(CKD_MemoryMgr* mgr, size_t size, int flags, const char* file, int line) {
  _KDMEM_SystemMgr* sys = mgr->m_pSystemMgr;
  void* p = sys->AllocDebug(sys, size, flags, file, line);
  if (KDMEM_Debugger* dbg = mgr->m_pDebugger; dbg && dbg->OnAllocDebug) {
    dbg->OnAllocDebug(mgr, p, size, flags, file, line);
  }
  if (!p) ReportFailure(mgr, flags);
  return p;
}

void* ReallocFull(CKD_MemoryMgr* mgr, void* block, size_t size, int flags) {
  _KDMEM_SystemMgr* sys = mgr->m_pSystemMgr;
  void* p = sys->Realloc(sys, block, size, flags);
  if (KDMEM_Debugger* dbg = mgr->m_pDebugger; dbg && dbg->OnRealloc) dbg->OnRealloc(mgr, block, p, size, flags);
  if (!p) ReportFailure(mgr, flags);
  return p;
}

void* ReallocDebugFull(CKD_MemoryMgr* mgr, void* block, size_t size, int flags, const char* file, int line) {
  _KDMEM_SystemMgr* sys = mgr->m_pSystemMgr;
  void* p = sys->ReallocDebug(sys, block, size, flags, file, line);
  if (KDMEM_Debugger* dbg = mgr->m_pDebugger; dbg && dbg->OnReallocDebug) {
    dbg->OnReallocDebug(mgr, block, p, size, flags, file, line);
  }
  if (!p) ReportFailure(mgr, flags);
  return p;
}

void FreeFull(CKD_MemoryMgr* mgr, void* block, int flags) {
  if (KDMEM_Debugger* dbg = mgr->m_pDebugger; dbg && dbg->OnFree) dbg->OnFree(mgr, block, flags);
  mgr->m_pSystemMgr->Free(mgr->m_pSystemMgr, block, flags);
}

}  // namespace kdmem

namespace {

// The system-heap manager's slots.
void* CRT_Alloc(_KDMEM_SystemMgr*, size_t size, int) { return malloc(size); }
void* CRT_AllocDebug(_KDMEM_SystemMgr*, size_t size, int, const char*, int) { return malloc(size); }
void* CRT_Realloc(_KDMEM_SystemMgr*, void* block, size_t size, int) { return realloc(block, size); }
void* CRT_ReallocDebug(_KDMEM_SystemMgr*, void* block, size_t size, int, const char*, int) {
  return realloc(block, size);
}
void CRT_Free(_KDMEM_SystemMgr*, void* block, int) { free(block); }

// Largest byte count the "2" forms accept.
constexpr size_t kMaxAlloc2 = 0x7FFFFFFF;

// Applies the "2" forms' checks. Returns false when the request must end with a null result;
// an over-limit request is then also reported as out of memory.
inline bool CheckCount(CKD_MemoryMgr* mgr, size_t count, size_t unit, int flags) {
  if (count == 0 || unit == 0 || !mgr) return false;
  if (kMaxAlloc2 / unit < count) {
    kdmem::ReportFailure(mgr, flags);
    return false;
  }
  return true;
}

// The slots of every manager's embedded allocator: the manager's own steps with flags 0.
void* _DefAllocDebug(IKD_Allocator* a, size_t size, const char* file, int line) {
  return kdmem::AllocDebug(a->m_pMgr, size, 0, file, line);
}
void* _DefAlloc(IKD_Allocator* a, size_t size) { return kdmem::Alloc(a->m_pMgr, size, 0); }
void* _DefReallocDebug(IKD_Allocator* a, void* block, size_t size, const char* file, int line) {
  return kdmem::ReallocDebug(a->m_pMgr, block, size, 0, file, line);
}
void* _DefRealloc(IKD_Allocator* a, void* block, size_t size) { return kdmem::Realloc(a->m_pMgr, block, size, 0); }
void _DefFree(IKD_Allocator* a, void* block) { kdmem::Free(a->m_pMgr, block, 0); }

__attribute__((constructor)) void InitDefaultMmapSize() { KD_DEFAULT_MMAP_SIZE = KDCRT_GetPageSize(); }

}  // namespace

_KDMEM_SystemMgr g_CRTSystemMgr = {CRT_Alloc, CRT_AllocDebug, CRT_Realloc, CRT_ReallocDebug, nullptr, nullptr,
                                   CRT_Free,  nullptr,        nullptr,     nullptr};

// Constant-initialised, so it is in place before any code of the process runs.
CKD_MemoryMgr g_DefNorvaneMgr = {CKD_MemoryMgr::TypeDefault,
                                 &g_CRTSystemMgr,
                                 nullptr,
                                 nullptr,
                                 nullptr,
                                 {_DefAllocDebug, _DefAlloc, _DefReallocDebug, _DefRealloc, _DefFree, {&g_DefNorvaneMgr}},
                                 nullptr,
                                 nullptr,
                                 false};

CKD_MemoryMgr* g_pDefNorvaneMgr = &g_DefNorvaneMgr;
extern const size_t KD_ALLOC_GRANULARITY = 0x10000;
size_t KD_DEFAULT_MMAP_SIZE = 4096;

// CKD_MemoryMgr members.

void CKD_MemoryMgr::Init(_KDMEM_SystemMgr* sys, Type type) {
  m_Type = type;
  m_pSystemMgr = sys;
  m_pDebugger = nullptr;
  m_pOOMHandler = nullptr;
  m_pOOMParam = nullptr;
  m_Allocator.m_AllocDebug = _DefAllocDebug;
  m_Allocator.m_Alloc = _DefAlloc;
  m_Allocator.m_ReallocDebug = _DefReallocDebug;
  m_Allocator.m_Realloc = _DefRealloc;
  m_Allocator.m_Free = _DefFree;
  m_Allocator.m_pMgr = this;
  m_pProcessContext = nullptr;
  m_pExtraBuffer = nullptr;
  m_bOwned = true;
}

void* CKD_MemoryMgr::Alloc(size_t size, int flags) { return kdmem::Alloc(this, size, flags); }
void* CKD_MemoryMgr::AllocDebug(size_t size, int flags, const char* file, int line) {
  return kdmem::AllocDebug(this, size, flags, file, line);
}
void* CKD_MemoryMgr::Realloc(void* block, size_t size, int flags) { return kdmem::Realloc(this, block, size, flags); }
void* CKD_MemoryMgr::ReallocDebug(void* block, size_t size, int flags, const char* file, int line) {
  return kdmem::ReallocDebug(this, block, size, flags, file, line);
}
void CKD_MemoryMgr::Free(void* block, int flags) { kdmem::Free(this, block, flags); }

void CKD_MemoryMgr::ReportOOM() {
  if (m_pOOMHandler) m_pOOMHandler(this, m_pOOMParam);
}

void CKD_MemoryMgr::CollectAll() {
  if (m_pSystemMgr->CollectAll) m_pSystemMgr->CollectAll(m_pSystemMgr);
}

void CKD_MemoryMgr::PurgeMgr() {
  if (m_pSystemMgr->Purge) m_pSystemMgr->Purge(m_pSystemMgr);
}

// Manager life.

CKD_MemoryMgr* KDMEM_CreateNorvaneMgr(_KDMEM_SystemMgr* sys) {
  if (!sys) return nullptr;
  auto* mgr = static_cast<CKD_MemoryMgr*>(sys->Alloc(sys, sizeof(CKD_MemoryMgr), 0));
  if (!mgr) return nullptr;
  mgr->Init(sys, CKD_MemoryMgr::TypeCustom);
  return mgr;
}

void KDMEM_DestroyNorvaneMgr(CKD_MemoryMgr* mgr) {
  if (!mgr) return;
  void* extra = mgr->m_pExtraBuffer;
  _KDMEM_SystemMgr* sys = mgr->m_pSystemMgr;
  if (sys->CollectAll) sys->CollectAll(sys);
  if (mgr->m_Type == CKD_MemoryMgr::TypePool) {
    // The pool manager's record lives inside the pool manager: discard the pools (under their
    // mutex) and keep the record.
    if (CKDMEM_PyMgr* pools = CKDMEM_PyMgr::FromSystemMgr(sys)) pools->Discard();
  } else if (mgr->m_bOwned) {
    sys->Free(sys, mgr, 0);
  }
  if (extra) free(extra);
}

CKD_MemoryMgr* KDMEM_GetDefaultMgr() { return g_pDefNorvaneMgr; }
void KDMEM_SetDefaultMgr(CKD_MemoryMgr* mgr) { g_pDefNorvaneMgr = mgr; }

CKD_MemoryMgr* KDMEM_ResetSystemMgr() {
  g_pDefNorvaneMgr = &g_DefNorvaneMgr;
  return g_pDefNorvaneMgr;
}

IKD_Allocator* KDMEM_GetDefAllocator() { return g_pDefNorvaneMgr ? &g_pDefNorvaneMgr->m_Allocator : nullptr; }

// Per-manager calls.

void* KDMEM_Alloc(CKD_MemoryMgr* mgr, size_t size, int flags) { return mgr ? kdmem::Alloc(mgr, size, flags) : nullptr; }

void* KDMEM_AllocDebug(CKD_MemoryMgr* mgr, size_t size, int flags, const char* file, int line) {
  return mgr ? kdmem::AllocDebug(mgr, size, flags, file, line) : nullptr;
}

void* KDMEM_Realloc(CKD_MemoryMgr* mgr, void* block, size_t size, int flags) {
  return mgr ? kdmem::Realloc(mgr, block, size, flags) : nullptr;
}

void* KDMEM_ReallocDebug(CKD_MemoryMgr* mgr, void* block, size_t size, int flags, const char* file, int line) {
  return mgr ? kdmem::ReallocDebug(mgr, block, size, flags, file, line) : nullptr;
}

void KDMEM_Free(CKD_MemoryMgr* mgr, void* block, int flags) {
  if (mgr) kdmem::Free(mgr, block, flags);
}

void KDMEM_ReportOOM(CKD_MemoryMgr* mgr) {
  if (mgr) mgr->ReportOOM();
}

void KDMEM_SetOOMHandler(CKD_MemoryMgr* mgr, KDMEM_OOMHandler handler, void* param) {
  if (!mgr) return;
  mgr->m_pOOMHandler = handler;
  mgr->m_pOOMParam = param;
}

void KDMEM_UseDebugger(CKD_MemoryMgr* mgr, KDMEM_Debugger* debugger) {
  if (mgr) mgr->m_pDebugger = debugger;
}

void KDMEM_OutputDebugTag(CKD_MemoryMgr* mgr, const char* tag) {
  if (mgr && mgr->m_pDebugger && mgr->m_pDebugger->OnTag) mgr->m_pDebugger->OnTag(mgr, tag);
}

void KDMEM_CollectAll(CKD_MemoryMgr* mgr) {
  if (mgr) mgr->CollectAll();
}

void KDMEM_PurgeMgr(CKD_MemoryMgr* mgr) {
  if (mgr) mgr->PurgeMgr();
}

// Default-manager calls.

void* KDMEM_DefaultAlloc(size_t size, int flags) { return KDMEM_Alloc(g_pDefNorvaneMgr, size, flags); }

void* KDMEM_DefaultAllocDebug(size_t size, int flags, const char* file, int line) {
  return KDMEM_AllocDebug(g_pDefNorvaneMgr, size, flags, file, line);
}

void* KDMEM_DefaultAlloc2(size_t count, size_t unit, int flags) {
  CKD_MemoryMgr* mgr = g_pDefNorvaneMgr;
  return CheckCount(mgr, count, unit, flags) ? kdmem::Alloc(mgr, count * unit, flags) : nullptr;
}

void* KDMEM_DefaultAllocDebug2(size_t count, size_t unit, int flags, const char* file, int line) {
  CKD_MemoryMgr* mgr = g_pDefNorvaneMgr;
  return CheckCount(mgr, count, unit, flags) ? kdmem::AllocDebug(mgr, count * unit, flags, file, line) : nullptr;
}

void* KDMEM_DefaultRealloc(void* block, size_t size, int flags) {
  return KDMEM_Realloc(g_pDefNorvaneMgr, block, size, flags);
}

void* KDMEM_DefaultReallocDebug(void* block, size_t size, int flags, const char* file, int line) {
  return KDMEM_ReallocDebug(g_pDefNorvaneMgr, block, size, flags, file, line);
}

void* KDMEM_DefaultRealloc2(void* block, size_t count, size_t unit, int flags) {
  CKD_MemoryMgr* mgr = g_pDefNorvaneMgr;
  return CheckCount(mgr, count, unit, flags) ? kdmem::Realloc(mgr, block, count * unit, flags) : nullptr;
}

void* KDMEM_DefaultReallocDebug2(void* block, size_t count, size_t unit, int flags, const char* file, int line) {
  CKD_MemoryMgr* mgr = g_pDefNorvaneMgr;
  return CheckCount(mgr, count, unit, flags) ? kdmem::ReallocDebug(mgr, block, count * unit, flags, file, line)
                                             : nullptr;
}

void KDMEM_DefaultFree(void* block, int flags) { KDMEM_Free(g_pDefNorvaneMgr, block, flags); }
