// pool_default: the small-object pool manager as the default memory manager.
//
// Programs that make many small allocations (short strings, hash-map entries, small objects) can
// install Norvane's pool manager as the default: requests of up to 1024 bytes are then served
// from 4 KiB pools of equal-sized blocks instead of the system heap, and larger ones still go to
// the system heap. Every library allocation follows the default manager, so nothing else in the
// program changes.
#include <norvane/norvane.h>

#include <cstdint>
#include <cstdio>

int main() {
  // The pool manager is a single instance in static storage: create it once per process.
  CKD_MemoryMgr* pool = KDMEM_CreatePyMgr();
  KDMEM_SetDefaultMgr(pool);
  std::printf("default manager: %s\n", KDMEM_GetDefaultMgr()->m_Type == CKD_MemoryMgr::TypePool ? "pool" : "other");

  {
    // A word index: 20000 short strings in an array, each a key of a hash map whose value is the
    // word's place in the array. Every string record and map entry is a small pooled block.
    CKD_ObjectArray<CKD_ByteString> words;
    CKD_MapByteStringToPtr index(64);
    for (int i = 0; i < 20000; ++i) {
      CKD_ByteString word;
      word.Format("word%d", i);
      if (!words.Add(word)) return 1;
      index[word] = reinterpret_cast<void*>(static_cast<intptr_t>(i));
    }
    void* place = nullptr;
    bool found = index.Lookup("word4242", place);
    std::printf("%d words, %d keys; word4242 %s at %d\n", words.GetSize(), index.GetCount(),
                found ? "found" : "missing", static_cast<int>(reinterpret_cast<intptr_t>(place)));

    // Freed blocks go back to their pools; KDMEM_PurgeMgr would also return unused memory.
    index.RemoveAll();
    words.RemoveAll();
    std::printf("after removing: %d words, %d keys\n", words.GetSize(), index.GetCount());
  }

  // Blocks must be freed through the manager that gave them: once every pooled block is free,
  // put the system heap manager back and discard the pools.
  KDMEM_ResetSystemMgr();
  KDMEM_DestroyNorvaneMgr(pool);
  std::printf("default manager: %s\n", KDMEM_GetDefaultMgr()->m_Type == CKD_MemoryMgr::TypeDefault ? "system heap" : "other");
  return 0;
}
