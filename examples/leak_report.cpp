// leak_report: a memory manager of one's own, with a debugger that reports at exit the blocks
// that were never freed.
//
// A Norvane memory manager binds a system manager (the functions that really obtain and return
// memory: here malloc, realloc and free) and, optionally, a debugger: hooks that the manager
// calls around every allocation, reallocation and free. Installed as the default manager, it
// serves every allocation the library makes for strings, buffers, containers and streams.
#include <norvane/norvane.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <vector>

namespace {

// The system manager: a table of functions, each given the table itself first. The two reserved
// slots and the optional Purge and CollectAll stay null.
void* SysAlloc(_KDMEM_SystemMgr*, size_t size, int) { return std::malloc(size); }
void* SysAllocDebug(_KDMEM_SystemMgr*, size_t size, int, const char*, int) { return std::malloc(size); }
void* SysRealloc(_KDMEM_SystemMgr*, void* block, size_t size, int) { return std::realloc(block, size); }
void* SysReallocDebug(_KDMEM_SystemMgr*, void* block, size_t size, int, const char*, int) {
  return std::realloc(block, size);
}
void SysFree(_KDMEM_SystemMgr*, void* block, int) { std::free(block); }

_KDMEM_SystemMgr g_system = {SysAlloc, SysAllocDebug, SysRealloc, SysReallocDebug, nullptr, nullptr,
                             SysFree,  nullptr,       nullptr,    nullptr};

// What the debugger knows of each live block. The map allocates with operator new, not through
// Norvane, so the hooks never call themselves.
struct Origin {
  size_t size;
  const char* file;  // null when the block was allocated without a source position
  int line;
};
std::map<void*, Origin> g_live;
CKD_MemoryMgr* g_mgr = nullptr;

// The hooks. A failed request reaches them with a null result; they then record nothing.
void OnAlloc(CKD_MemoryMgr*, void* result, size_t size, int) {
  if (result) g_live[result] = {size, nullptr, 0};
}
void OnAllocDebug(CKD_MemoryMgr*, void* result, size_t size, int, const char* file, int line) {
  if (result) g_live[result] = {size, file, line};
}
void OnRealloc(CKD_MemoryMgr*, void* old_block, void* result, size_t size, int) {
  if (!result) return;  // the old block is still allocated
  Origin origin = g_live[old_block];
  g_live.erase(old_block);
  origin.size = size;
  g_live[result] = origin;
}
void OnReallocDebug(CKD_MemoryMgr* mgr, void* old_block, void* result, size_t size, int flags, const char*, int) {
  OnRealloc(mgr, old_block, result, size, flags);
}
void OnFree(CKD_MemoryMgr*, void* block, int) { g_live.erase(block); }
// Tags let a program mark points in its run (KDMEM_OutputDebugTag).
void OnTag(CKD_MemoryMgr*, const char* tag) { std::printf("%s: %zu blocks live\n", tag, g_live.size()); }

KDMEM_Debugger g_debugger = {OnAlloc, OnAllocDebug, OnRealloc, OnReallocDebug, OnFree, OnTag};

// Runs at exit: reports every block still allocated, then frees them so that the process ends
// clean, and destroys the manager.
void ReportLeaks() {
  size_t bytes = 0;
  std::vector<void*> leaked;
  for (const auto& [block, origin] : g_live) {
    const char* name = origin.file ? std::strrchr(origin.file, '/') : nullptr;
    name = name ? name + 1 : origin.file;
    if (name) {
      std::printf("leaked %zu bytes at %s:%d\n", origin.size, name, origin.line);
    } else {
      std::printf("leaked %zu bytes\n", origin.size);
    }
    bytes += origin.size;
    leaked.push_back(block);
  }
  std::printf("%zu block%s leaked (%zu bytes)\n", leaked.size(), leaked.size() == 1 ? "" : "s", bytes);
  for (void* block : leaked) KDMEM_Free(g_mgr, block, 0);
  KDMEM_DestroyNorvaneMgr(g_mgr);
}

}  // namespace

int main() {
  // A manager over our system manager; its record comes from the system manager too.
  g_mgr = KDMEM_CreateNorvaneMgr(&g_system);
  if (!g_mgr) return 1;
  KDMEM_UseDebugger(g_mgr, &g_debugger);
  // Make it the default: from here on every allocation of the library goes through it.
  CKD_MemoryMgr* previous = KDMEM_GetDefaultMgr();
  KDMEM_SetDefaultMgr(g_mgr);

  {
    CKD_ByteString greeting("hello");
    greeting += ", world";
    CKD_ArrayTemplate<int> numbers;
    for (int i = 0; i < 100; ++i) numbers.Add(i);
    KDMEM_OutputDebugTag(g_mgr, "a string and an array in use");
  }  // their destructors free their blocks
  KDMEM_OutputDebugTag(g_mgr, "after their scope");

  // A block allocated with its source position and never freed: the leak to report.
  void* forgotten = KDMEM_DefaultAllocDebug(48, 0, __FILE__, __LINE__);
  if (!forgotten) return 1;

  // Blocks must go back to the manager that gave them, so the previous default returns only
  // when nothing more is allocated through ours; the report runs when the program exits.
  KDMEM_SetDefaultMgr(previous);
  std::atexit(ReportLeaks);
  return 0;
}
