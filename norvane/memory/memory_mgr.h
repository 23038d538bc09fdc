// Memory managers: the allocation interface beneath every other part of Norvane.
//
// A manager (CKD_MemoryMgr) binds three pluggable pieces: a system manager (_KDMEM_SystemMgr, the
// table of functions that really obtains and returns memory), an optional debugger
// (KDMEM_Debugger, hooks told of every allocation, reallocation, free and tag) and an optional
// out-of-memory handler. One manager is the process-wide default (g_pDefNorvaneMgr); it is the
// static manager over the system heap from load time on, so no start-up call is needed.
//
// Every allocating call runs the same step: call the system slot; on success tell the debugger
// and return the block; on failure tell the debugger (with a null result), then, unless the
// KDMEM_NONLEAVE flag is set, call the out-of-memory handler once, and return null. Nothing is
// retried, no header is added to blocks and no bookkeeping is kept by the manager itself.
//
// Managers and the default pointer are not synchronised: installing a manager, a handler or a
// debugger while other threads allocate is a caller error. Blocks must be freed through the
// manager that gave them.
#ifndef NORVANE_MEMORY_MEMORY_MGR_H_
#define NORVANE_MEMORY_MEMORY_MGR_H_

#include <cstddef>

#include "norvane/config.h"

class CKD_MemoryMgr;
class CKD_ProcessContext;

// Allocation flags. Bit 0: on failure return null quietly, without calling the out-of-memory
// handler. Every other bit is passed on unchanged to the system manager and the debugger.
enum { KDMEM_NONLEAVE = 1 };

// _KDMEM_SystemMgr is the table of functions a manager obtains memory from. Each slot takes the
// table itself first. The slot order is part of the binary interface.
struct _KDMEM_SystemMgr {
  // Alloc returns a block of at least size bytes, or null.
  void* (*Alloc)(_KDMEM_SystemMgr* sys, size_t size, int flags);
  // AllocDebug is Alloc with the caller's source position.
  void* (*AllocDebug)(_KDMEM_SystemMgr* sys, size_t size, int flags, const char* file, int line);
  // Realloc resizes block (which may move) and returns the new block, or null leaving block valid.
  void* (*Realloc)(_KDMEM_SystemMgr* sys, void* block, size_t size, int flags);
  // ReallocDebug is Realloc with the caller's source position.
  void* (*ReallocDebug)(_KDMEM_SystemMgr* sys, void* block, size_t size, int flags, const char* file,
                        int line);
  // Two reserved slots: never called by the library, null in the built-in system managers.
  void (*Reserved4)();
  void (*Reserved5)();
  // Free returns a non-null block.
  void (*Free)(_KDMEM_SystemMgr* sys, void* block, int flags);
  // Purge releases cached memory; may be null (then skipped).
  void (*Purge)(_KDMEM_SystemMgr* sys);
  // CollectAll releases everything; called before a manager is destroyed. May be null.
  void (*CollectAll)(_KDMEM_SystemMgr* sys);
  // A word for the system manager's own use.
  void* user;
};

// KDMEM_Debugger is a table of hooks a manager calls around its system manager; each takes the
// manager first. A hook left null is skipped. Hooks run on the allocating thread.
struct KDMEM_Debugger {
  // OnAlloc is told of every Alloc; result is null when the allocation failed.
  void (*OnAlloc)(CKD_MemoryMgr* mgr, void* result, size_t size, int flags);
  void (*OnAllocDebug)(CKD_MemoryMgr* mgr, void* result, size_t size, int flags, const char* file,
                       int line);
  // OnRealloc is told of every Realloc of a non-null block; result is null when it failed.
  void (*OnRealloc)(CKD_MemoryMgr* mgr, void* old_block, void* result, size_t size, int flags);
  void (*OnReallocDebug)(CKD_MemoryMgr* mgr, void* old_block, void* result, size_t size, int flags,
                         const char* file, int line);
  // OnFree is told before a non-null block is returned to the system manager.
  void (*OnFree)(CKD_MemoryMgr* mgr, void* block, int flags);
  // OnTag receives the text given to KDMEM_OutputDebugTag.
  void (*OnTag)(CKD_MemoryMgr* mgr, const char* tag);
};

// IKD_Allocator is the allocator handed to containers, buffers, streams, pools and
// CKD_AllocObject: five function slots and one word of the implementation's own. Wherever an
// IKD_Allocator* is taken, null means the default manager.
struct IKD_Allocator {
  void* (*m_AllocDebug)(IKD_Allocator* allocator, size_t size, const char* file, int line);
  void* (*m_Alloc)(IKD_Allocator* allocator, size_t size);
  void* (*m_ReallocDebug)(IKD_Allocator* allocator, void* block, size_t size, const char* file,
                          int line);
  void* (*m_Realloc)(IKD_Allocator* allocator, void* block, size_t size);
  void (*m_Free)(IKD_Allocator* allocator, void* block);
  // A manager's allocator points back at its manager; other allocators keep a word of their own
  // (the grow-only pool keeps its trunk size).
  union {
    CKD_MemoryMgr* m_pMgr;
    size_t m_Param;
  };
};

// KDMEM_OOMHandler is called once per failed request, after the debugger, with the manager and
// the parameter given to KDMEM_SetOOMHandler. Its return value is ignored; nothing is retried.
typedef int (*KDMEM_OOMHandler)(CKD_MemoryMgr* mgr, void* param);

// CKD_MemoryMgr is the manager record; the flat KDMEM_ functions take a pointer to it. The field
// order is part of the binary interface.
class NORVANE_API CKD_MemoryMgr {
 public:
  enum Type {
    TypeDefault = 0,  // the static default manager over the system heap
    TypePool = 1,     // the small-object pool manager
    TypeCustom = 2,   // made by KDMEM_CreateNorvaneMgr
  };

  // Init fills this record as a manager of the given type over sys: no debugger, no handler,
  // the embedded allocator bound to this record, no process context, the owned flag set.
  void Init(_KDMEM_SystemMgr* sys, Type type);

  void* Alloc(size_t size, int flags);
  void* AllocDebug(size_t size, int flags, const char* file, int line);
  // Realloc of a null block is an Alloc (the debugger sees OnAlloc).
  void* Realloc(void* block, size_t size, int flags);
  void* ReallocDebug(void* block, size_t size, int flags, const char* file, int line);
  // Free ignores a null block; otherwise tells the debugger, then the system manager.
  void Free(void* block, int flags);
  // ReportOOM calls the out-of-memory handler if one is set.
  void ReportOOM();
  void CollectAll();
  void PurgeMgr();

  Type m_Type;
  _KDMEM_SystemMgr* m_pSystemMgr;
  KDMEM_Debugger* m_pDebugger;
  KDMEM_OOMHandler m_pOOMHandler;
  void* m_pOOMParam;
  IKD_Allocator m_Allocator;
  CKD_ProcessContext* m_pProcessContext;
  // Released with the system heap's free when the manager is destroyed; nothing in the library
  // sets it.
  void* m_pExtraBuffer;
  // True when the record came from its own system manager and goes back to it on destruction.
  bool m_bOwned;
};

static_assert(sizeof(CKD_MemoryMgr::Type) == 4, "manager type is a 32-bit enumeration");
static_assert(sizeof(IKD_Allocator) == 48, "IKD_Allocator is five slots and one word");
static_assert(sizeof(_KDMEM_SystemMgr) == 80, "_KDMEM_SystemMgr is nine slots and one word");
static_assert(sizeof(KDMEM_Debugger) == 48, "KDMEM_Debugger is six hooks");
static_assert(offsetof(_KDMEM_SystemMgr, Free) == 48 && offsetof(_KDMEM_SystemMgr, user) == 72,
              "system manager slot order");
static_assert(offsetof(IKD_Allocator, m_Free) == 32 && offsetof(IKD_Allocator, m_pMgr) == 40,
              "allocator slot order");
static_assert(offsetof(KDMEM_Debugger, OnFree) == 32 && offsetof(KDMEM_Debugger, OnTag) == 40,
              "debugger hook order");
static_assert(offsetof(CKD_MemoryMgr, m_pSystemMgr) == 8 && offsetof(CKD_MemoryMgr, m_pDebugger) == 16 &&
                  offsetof(CKD_MemoryMgr, m_pOOMHandler) == 24 && offsetof(CKD_MemoryMgr, m_pOOMParam) == 32 &&
                  offsetof(CKD_MemoryMgr, m_Allocator) == 40 &&
                  offsetof(CKD_MemoryMgr, m_pProcessContext) == 88 &&
                  offsetof(CKD_MemoryMgr, m_pExtraBuffer) == 96 && offsetof(CKD_MemoryMgr, m_bOwned) == 104,
              "manager record field order");
static_assert(sizeof(CKD_MemoryMgr) == 112, "manager record size");

// The default manager. It points at the static manager over the system heap from load time on.
extern NORVANE_API CKD_MemoryMgr* g_pDefNorvaneMgr;
// The granularity (64 KiB) to which mapped views are aligned.
extern NORVANE_API const size_t KD_ALLOC_GRANULARITY;
// The system page size, read when the library is loaded; writable. Mapped files grow by it.
extern NORVANE_API size_t KD_DEFAULT_MMAP_SIZE;

// Manager life.

// KDMEM_CreateNorvaneMgr returns a new manager of type TypeCustom over sys, its record allocated
// from sys itself; null when sys is null or the record cannot be had.
NORVANE_API CKD_MemoryMgr* KDMEM_CreateNorvaneMgr(_KDMEM_SystemMgr* sys);
// KDMEM_DestroyNorvaneMgr runs the system manager's CollectAll, returns an owned record through
// the system manager's Free and finally frees the extra buffer with the system heap. The pool
// manager's record (TypePool) is not freed: its pools are discarded instead (see
// KDMEM_CreatePyMgr). Null is ignored. Destroying the current default leaves a dangling default:
// reset it first.
NORVANE_API void KDMEM_DestroyNorvaneMgr(CKD_MemoryMgr* mgr);
// KDMEM_CreatePyMgr sets up the process's small-object pool manager and returns its manager
// (TypePool, no debugger, no handler), which lives in static storage; install it with
// KDMEM_SetDefaultMgr. Requests of 1 to 1024 bytes come from 16-byte-granular pools in 256 KiB
// arenas taken from the system heap; all others go to the static default manager over the system
// heap (whose debugger and handler are told of them, then this manager's own). Every call is
// serialised by one recursive mutex. A reallocation that fits the block and keeps more than three
// quarters of it returns the same block.
//
// Destroying the manager discards the pools: later requests all go to the system heap, while
// blocks already pooled can still be freed. After that, shrinking a pooled block (or, at any
// time, reallocating one to 0 bytes) copies the whole old block into the new one: don't.
//
// Calling it again starts the single instance afresh and abandons every block and arena it held:
// call it once.
NORVANE_API CKD_MemoryMgr* KDMEM_CreatePyMgr();
// KDMEM_SetPyConfig is where pool settings would go; the pools' geometry is fixed, so it accepts
// any option and value, changes nothing and returns 0.
NORVANE_API int KDMEM_SetPyConfig(int option, size_t value);
// KDMEM_GetDefaultMgr returns the default manager.
NORVANE_API CKD_MemoryMgr* KDMEM_GetDefaultMgr();
// KDMEM_SetDefaultMgr installs mgr as the default without checks (null is accepted; default
// allocations then fail quietly until a manager is installed again).
NORVANE_API void KDMEM_SetDefaultMgr(CKD_MemoryMgr* mgr);
// KDMEM_ResetSystemMgr installs the static manager over the system heap again and returns it.
NORVANE_API CKD_MemoryMgr* KDMEM_ResetSystemMgr();
// KDMEM_GetDefAllocator returns the default manager's embedded allocator (null without a default).
NORVANE_API IKD_Allocator* KDMEM_GetDefAllocator();

// Per-manager calls. A null manager makes them return null or do nothing.

// KDMEM_Alloc, KDMEM_AllocDebug, KDMEM_Realloc and KDMEM_ReallocDebug are mgr's CKD_MemoryMgr
// members of those names: null on failure, after the debugger and (unless KDMEM_NONLEAVE is in
// flags) the out-of-memory handler were told. A failed Realloc leaves block allocated. The debug
// forms pass the caller's file and line on to the system manager and the debugger.
NORVANE_API void* KDMEM_Alloc(CKD_MemoryMgr* mgr, size_t size, int flags);
NORVANE_API void* KDMEM_AllocDebug(CKD_MemoryMgr* mgr, size_t size, int flags, const char* file, int line);
NORVANE_API void* KDMEM_Realloc(CKD_MemoryMgr* mgr, void* block, size_t size, int flags);
NORVANE_API void* KDMEM_ReallocDebug(CKD_MemoryMgr* mgr, void* block, size_t size, int flags,
                                     const char* file, int line);
// KDMEM_Free returns block to mgr; a null block is ignored (neither debugger nor system is told).
NORVANE_API void KDMEM_Free(CKD_MemoryMgr* mgr, void* block, int flags);
// KDMEM_ReportOOM calls mgr's out-of-memory handler if one is set.
NORVANE_API void KDMEM_ReportOOM(CKD_MemoryMgr* mgr);
// KDMEM_SetOOMHandler sets (or, with null, removes) the out-of-memory handler and its parameter.
NORVANE_API void KDMEM_SetOOMHandler(CKD_MemoryMgr* mgr, KDMEM_OOMHandler handler, void* param);
// KDMEM_UseDebugger sets the debugger; null removes it. The table must outlive its use.
NORVANE_API void KDMEM_UseDebugger(CKD_MemoryMgr* mgr, KDMEM_Debugger* debugger);
// KDMEM_OutputDebugTag passes tag to the debugger's OnTag, if a debugger is set.
NORVANE_API void KDMEM_OutputDebugTag(CKD_MemoryMgr* mgr, const char* tag);
// KDMEM_CollectAll and KDMEM_PurgeMgr call the system manager's CollectAll or Purge if set.
NORVANE_API void KDMEM_CollectAll(CKD_MemoryMgr* mgr);
NORVANE_API void KDMEM_PurgeMgr(CKD_MemoryMgr* mgr);

// Default-manager calls.

// KDMEM_DefaultAlloc and KDMEM_DefaultAllocDebug are KDMEM_Alloc and KDMEM_AllocDebug on the
// default manager; null when there is none.
NORVANE_API void* KDMEM_DefaultAlloc(size_t size, int flags);
NORVANE_API void* KDMEM_DefaultAllocDebug(size_t size, int flags, const char* file, int line);
// The "2" forms, KDMEM_DefaultAlloc2 and KDMEM_DefaultAllocDebug2, allocate count * unit bytes.
// A zero count or unit returns null at once, with no handler and no debugger call. A product over 0x7FFFFFFF bytes is refused as out of memory
// (the handler is called unless KDMEM_NONLEAVE is set; neither system manager nor debugger is).
NORVANE_API void* KDMEM_DefaultAlloc2(size_t count, size_t unit, int flags);
NORVANE_API void* KDMEM_DefaultAllocDebug2(size_t count, size_t unit, int flags, const char* file, int line);
// KDMEM_DefaultRealloc of a null block is a KDMEM_DefaultAlloc; a size of 0 goes to the system
// manager as it is.
NORVANE_API void* KDMEM_DefaultRealloc(void* block, size_t size, int flags);
NORVANE_API void* KDMEM_DefaultReallocDebug(void* block, size_t size, int flags, const char* file, int line);
// KDMEM_DefaultRealloc2 (and KDMEM_DefaultReallocDebug2) of a null block is KDMEM_DefaultAlloc2. With a block and a zero count or
// unit it returns null and leaves the block allocated and unchanged; the size limit is as above.
NORVANE_API void* KDMEM_DefaultRealloc2(void* block, size_t count, size_t unit, int flags);
NORVANE_API void* KDMEM_DefaultReallocDebug2(void* block, size_t count, size_t unit, int flags,
                                             const char* file, int line);
// KDMEM_DefaultFree returns block to the default manager; null is ignored.
NORVANE_API void KDMEM_DefaultFree(void* block, int flags);

#endif  // NORVANE_MEMORY_MEMORY_MGR_H_
