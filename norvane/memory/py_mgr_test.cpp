#include "norvane/memory/py_mgr_internal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "norvane/memory/asan_internal.h"
#include "norvane/memory/grow_only_pool.h"
#include "norvane/memory/memory_internal.h"
#include "tests/support/test_mgr.h"

namespace {

using kdtest::EventLog;
using kdtest::Kinds;
using kdtest::OOMCounter;
using kdtest::RecordingDebugger;
using kdtest::TestSystemMgr;

KDMEM_PyPool* PoolOf(const void* p) {
  return reinterpret_cast<KDMEM_PyPool*>(reinterpret_cast<uintptr_t>(p) & ~kdpy::kPoolMask);
}

uint32_t ArenaIndexOf(const void* p) { return PoolOf(p)->m_nArenaIndex; }

size_t OffsetInPool(const void* p) { return reinterpret_cast<uintptr_t>(p) & kdpy::kPoolMask; }

// Records what the static default manager, which serves the pool manager's raw requests, is
// asked while the object lives.
class RawWatch {
 public:
  RawWatch() : debugger_(&log) { KDMEM_UseDebugger(&g_DefNorvaneMgr, debugger_.table()); }
  ~RawWatch() { KDMEM_UseDebugger(&g_DefNorvaneMgr, nullptr); }
  EventLog log;

 private:
  RecordingDebugger debugger_;
};

// Puts another system manager under the static default manager while the object lives.
class StaticSystemSwap {
 public:
  explicit StaticSystemSwap(_KDMEM_SystemMgr* sys) : saved_(g_DefNorvaneMgr.m_pSystemMgr) {
    g_DefNorvaneMgr.m_pSystemMgr = sys;
  }
  ~StaticSystemSwap() { g_DefNorvaneMgr.m_pSystemMgr = saved_; }

 private:
  _KDMEM_SystemMgr* saved_;
};

// Checks the pool state's lists and counts against each other; returns the first fault, or "".
std::string CheckState(const KDMEM_PyState& st) {
  std::map<uint32_t, const KDMEM_PyArena*> last_by_count;
  std::set<const KDMEM_PyArena*> usable;
  const KDMEM_PyArena* prev = nullptr;
  for (const KDMEM_PyArena* a = st.m_pUsableArenas; a; prev = a, a = a->m_pNextArena) {
    if (a->m_pPrevArena != prev) return "usable list back link";
    if (!a->m_Base) return "usable arena without memory";
    if (a->m_nFreePools == 0 || a->m_nFreePools >= a->m_nTotalPools) return "usable arena's free count";
    if (prev && prev->m_nFreePools > a->m_nFreePools) return "usable list order";
    last_by_count[a->m_nFreePools] = a;
    usable.insert(a);
  }
  for (uint32_t n = 0; n <= kdpy::kMaxPoolsPerArena; ++n) {
    auto it = last_by_count.find(n);
    if (st.m_LastArenaByFreeCount[n] != (it == last_by_count.end() ? nullptr : it->second)) {
      return "last-arena table at " + std::to_string(n);
    }
  }
  std::set<const KDMEM_PyArena*> unused;
  for (const KDMEM_PyArena* a = st.m_pUnusedArenas; a; a = a->m_pNextArena) {
    if (a->m_Base) return "unused record holds memory";
    unused.insert(a);
  }
  for (uint32_t i = 0; i < st.m_nMaxArenas; ++i) {
    const KDMEM_PyArena& a = st.m_pArenas[i];
    if (!a.m_Base) {
      if (!unused.count(&a)) return "record lost";
      continue;
    }
    if (a.m_nTotalPools != ((a.m_Base & kdpy::kPoolMask) ? 63u : 64u)) return "total pools";
    if (!usable.count(&a) && a.m_nFreePools != 0) return "arena with free pools off the usable list";
    uint32_t listed = 0;
    for (const KDMEM_PyPool* p = a.m_pFreePools; p; p = p->m_pNextPool, ++listed) {
      if (p->m_nUsed) return "used pool on a free-pool list";
    }
    const uintptr_t first = (a.m_Base + kdpy::kPoolMask) & ~kdpy::kPoolMask;
    const auto carved = static_cast<uint32_t>((reinterpret_cast<uintptr_t>(a.m_pNextPool) - first) / kdpy::kPoolSize);
    if (listed + a.m_nTotalPools - carved != a.m_nFreePools) return "free pool count";
  }
  for (uint32_t c = 0; c < kdpy::kClassCount; ++c) {
    const KDMEM_PyPool* head = &st.m_UsedPools[c];
    const KDMEM_PyPool* before = head;
    for (const KDMEM_PyPool* p = head->m_pNextPool; p != head; before = p, p = p->m_pNextPool) {
      if (p->m_pPrevPool != before) return "class list back link";
      if (p->m_nSizeClass != c) return "pool in another class's list";
      if (p->m_nUsed == 0 || !p->m_pFreeBlock) return "class list pool not partly used";
    }
    if (head->m_pPrevPool != before) return "class list ring";
  }
  return "";
}

bool HoldsNoArena(const KDMEM_PyState& st) {
  for (uint32_t i = 0; i < st.m_nMaxArenas; ++i) {
    if (st.m_pArenas[i].m_Base) return false;
  }
  return st.m_pUsableArenas == nullptr;
}

// A block whose bytes follow a pattern derived from its tag, so corruption is seen.
struct Block {
  unsigned char* p;
  size_t size;
  uint32_t tag;
};

unsigned char PatternByte(uint32_t tag, size_t i) { return static_cast<unsigned char>(tag * 31 + i * 7 + (i >> 8)); }

void Fill(const Block& b) {
  for (size_t i = 0; i < b.size; ++i) b.p[i] = PatternByte(b.tag, i);
}

bool Intact(const Block& b, size_t length) {
  for (size_t i = 0; i < length; ++i) {
    if (b.p[i] != PatternByte(b.tag, i)) return false;
  }
  return true;
}

// Random work on a set of live blocks through the default manager. With a pool state given, the
// raw blocks it should count are tracked too (single-threaded use only).
struct Churn {
  explicit Churn(uint32_t first_tag, const KDMEM_PyState* state = nullptr) : tag(first_tag), st(state) {}

  int RawDelta(void* p) const { return st && !PyAddressInPools(st, p) ? 1 : 0; }

  // Step allocates (more often while growing), frees or reallocates, checking a block's contents
  // before it is freed or moved. Sizes are mostly 1..1024, a few larger. False when a request
  // failed or a block lost its contents.
  bool Step(std::mt19937& rng, bool growing) {
    const uint32_t r = rng() % 100;
    const size_t n = rng() % 25 == 0 ? 1025 + rng() % 3000 : 1 + rng() % 1024;
    if (live.empty() || r < (growing ? 55u : 35u)) {
      Block b{static_cast<unsigned char*>(KDMEM_DefaultAlloc(n, 0)), n, ++tag};
      if (!b.p) return false;
      raw += RawDelta(b.p);
      Fill(b);
      live.push_back(b);
      return true;
    }
    Block& b = live[rng() % live.size()];
    if (!Intact(b, b.size)) return false;
    if (r < 90) {
      raw -= RawDelta(b.p);
      KDMEM_DefaultFree(b.p, 0);
      b = live.back();
      live.pop_back();
      return true;
    }
    auto* p = static_cast<unsigned char*>(KDMEM_DefaultRealloc(b.p, n, 0));
    if (!p) return false;
    b.p = p;
    const bool kept = Intact(b, std::min(b.size, n));
    b.size = n;
    b.tag = ++tag;
    Fill(b);
    return kept;
  }

  // FreeAll checks and frees every live block.
  bool FreeAll() {
    bool ok = true;
    for (const Block& b : live) {
      ok = ok && Intact(b, b.size);
      raw -= RawDelta(b.p);
      KDMEM_DefaultFree(b.p, 0);
    }
    live.clear();
    return ok;
  }

  std::vector<Block> live;
  uint32_t tag;
  int raw = 0;
  const KDMEM_PyState* st;
};

TEST(PyMgr, CreateBuildsTheStaticInstance) {
  CKD_MemoryMgr* mgr = KDMEM_CreatePyMgr();
  ASSERT_NE(mgr, nullptr);
  EXPECT_EQ(mgr->m_Type, CKD_MemoryMgr::TypePool);
  EXPECT_EQ(mgr->m_pDebugger, nullptr);
  EXPECT_EQ(mgr->m_pOOMHandler, nullptr);
  EXPECT_TRUE(mgr->m_bOwned);
  EXPECT_EQ(mgr->m_Allocator.m_pMgr, mgr);

  _KDMEM_SystemMgr* sys = mgr->m_pSystemMgr;
  CKDMEM_PyMgr* self = CKDMEM_PyMgr::FromSystemMgr(sys);
  ASSERT_NE(self, nullptr);
  EXPECT_EQ(sys->user, self);
  EXPECT_TRUE(sys->Reserved4 == nullptr && sys->Reserved5 == nullptr && sys->Purge == nullptr &&
              sys->CollectAll == nullptr);
  const KDMEM_PyState& st = self->m_State;
  EXPECT_EQ(st.m_State, kdpy::kPooling);
  EXPECT_TRUE(st.m_pArenas == nullptr && st.m_nMaxArenas == 0 && st.m_nRawBlocks == 0);
  EXPECT_EQ(st.m_Raw.Alloc, PyRawAlloc);
  EXPECT_EQ(CKDMEM_PyMgr::FromSystemMgr(&g_CRTSystemMgr), nullptr);
  EXPECT_EQ(KDMEM_SetPyConfig(1, 4096), 0);

  // Installed as the default, it serves objects and the default calls.
  KDMEM_SetDefaultMgr(mgr);
  void* p = KDMEM_DefaultAllocDebug(40, 0, "f.cpp", 3);
  EXPECT_TRUE(PyAddressInPools(&st, p));
  p = KDMEM_DefaultReallocDebug(p, 44, 0, "f.cpp", 4);  // 48-byte block kept
  EXPECT_TRUE(PyAddressInPools(&st, p));
  KDMEM_DefaultFree(p, 0);
  KDMEM_ResetSystemMgr();
  EXPECT_TRUE(HoldsNoArena(st));

  // Calling it again rebuilds the same record, abandoning the old state (here only the arena
  // record vector, returned first so the leak checker stays quiet).
  free(self->m_State.m_pArenas);
  EXPECT_EQ(KDMEM_CreatePyMgr(), mgr);
  EXPECT_EQ(st.m_pArenas, nullptr);
}

TEST(PyMgr, SizeClassesAndRawRequests) {
  CKDMEM_PyMgr pools;
  CKD_MemoryMgr* mgr = pools.GetMgr();
  const KDMEM_PyState& st = pools.m_State;
  RawWatch raw;

  // 1 and 16 bytes share the 16-byte class; 17 takes 32-byte blocks. A fresh pool's first block
  // follows the header.
  auto* a = static_cast<unsigned char*>(KDMEM_Alloc(mgr, 1, 0));
  auto* b = static_cast<unsigned char*>(KDMEM_Alloc(mgr, 16, 0));
  auto* c = static_cast<unsigned char*>(KDMEM_Alloc(mgr, 17, 0));
  EXPECT_EQ(OffsetInPool(a), 48u);
  EXPECT_EQ(b, a + 16);
  EXPECT_EQ(PoolOf(a)->m_nSizeClass, 0u);
  EXPECT_EQ(PoolOf(c)->m_nSizeClass, 1u);
  EXPECT_NE(PoolOf(c), PoolOf(a));
  EXPECT_EQ(PoolOf(c)->m_nLastOffset, 4096u - 32u);

  std::vector<void*> blocks;
  for (size_t n = 1; n <= 1024; ++n) {
    void* p = KDMEM_Alloc(mgr, n, 0);
    ASSERT_TRUE(PyAddressInPools(&st, p)) << n;
    const uint32_t size_class = static_cast<uint32_t>((n - 1) >> 4);
    ASSERT_EQ(PoolOf(p)->m_nSizeClass, size_class) << n;
    ASSERT_EQ((OffsetInPool(p) - 48) % ((size_class + 1) * 16), 0u) << n;
    memset(p, 0xA5, n);
    blocks.push_back(p);
  }
  EXPECT_EQ(CheckState(st), "");
  EXPECT_EQ(st.m_nRawBlocks, 0);
  EXPECT_EQ(Kinds(raw.log), "");  // pooled requests never reach the static manager

  // 0 and 1025 bytes go to the raw allocator, which is the static default manager.
  void* zero = KDMEM_Alloc(mgr, 0, 0);
  void* big = KDMEM_Alloc(mgr, 1025, 0);
  EXPECT_TRUE(zero && big && !PyAddressInPools(&st, zero) && !PyAddressInPools(&st, big));
  EXPECT_EQ(st.m_nRawBlocks, 2);
  ASSERT_EQ(Kinds(raw.log), "OnAlloc OnAlloc");
  EXPECT_TRUE(raw.log[0].size == 0 && raw.log[1].size == 1025);
  KDMEM_Free(mgr, zero, 0);
  KDMEM_Free(mgr, big, 0);
  EXPECT_EQ(st.m_nRawBlocks, 0);
  EXPECT_EQ(Kinds(raw.log), "OnAlloc OnAlloc OnFree OnFree");

  for (void* p : blocks) KDMEM_Free(mgr, p, 0);
  for (void* p : {a, b, c}) KDMEM_Free(mgr, p, 0);
  EXPECT_TRUE(HoldsNoArena(st));
  EXPECT_EQ(CheckState(st), "");
}

TEST(PyMgr, FullPoolLeavesItsClassListAndComesBackFirst) {
  CKDMEM_PyMgr pools;
  CKD_MemoryMgr* mgr = pools.GetMgr();
  const KDMEM_PyPool* head = &pools.m_State.m_UsedPools[63];

  // 1024-byte blocks: three to a pool, at 48, 1072 and 2096; the third is carved when the free
  // list runs dry.
  void* a = KDMEM_Alloc(mgr, 1024, 0);
  EXPECT_EQ(PoolOf(a)->m_nNextOffset, 48u + 2 * 1024u);
  void* b = KDMEM_Alloc(mgr, 1010, 0);
  EXPECT_EQ(PoolOf(a)->m_nNextOffset, 48u + 3 * 1024u);
  void* c = KDMEM_Alloc(mgr, 1020, 0);
  EXPECT_EQ(OffsetInPool(b), 1072u);
  EXPECT_EQ(OffsetInPool(c), 2096u);
  KDMEM_PyPool* first = PoolOf(a);
  EXPECT_TRUE(first->m_nUsed == 3 && first->m_pFreeBlock == nullptr);
  EXPECT_EQ(head->m_pNextPool, head);  // full: on no list

  void* d = KDMEM_Alloc(mgr, 1024, 0);
  EXPECT_NE(PoolOf(d), first);
  EXPECT_EQ(head->m_pNextPool, PoolOf(d));

  // Freeing into the full pool links it back in front, so it serves the next request.
  KDMEM_Free(mgr, b, 0);
  EXPECT_EQ(head->m_pNextPool, first);
  EXPECT_EQ(KDMEM_Alloc(mgr, 1024, 0), b);
  EXPECT_EQ(CheckState(pools.m_State), "");

  for (void* p : {a, b, c, d}) KDMEM_Free(mgr, p, 0);
  EXPECT_TRUE(HoldsNoArena(pools.m_State));
}

TEST(PyMgr, ReallocKeepsShrinksInPlaceAndMoves) {
  CKDMEM_PyMgr pools;
  CKD_MemoryMgr* mgr = pools.GetMgr();
  const KDMEM_PyState& st = pools.m_State;
  void* keep = KDMEM_Alloc(mgr, 8, 0);  // keeps the arena alive throughout

  Block b{static_cast<unsigned char*>(KDMEM_Alloc(mgr, 100, 0)), 100, 1};  // 112-byte block
  Fill(b);
  EXPECT_EQ(KDMEM_Realloc(mgr, b.p, 90, 0), b.p);   // 360 > 336: kept
  EXPECT_EQ(KDMEM_Realloc(mgr, b.p, 112, 0), b.p);  // the whole block
  EXPECT_EQ(KDMEM_Realloc(mgr, b.p, 100, 0), b.p);

  // 80 * 4 = 320 <= 336: moves to the 80-byte class, keeping the first 80 bytes.
  unsigned char* old = b.p;
  b.p = static_cast<unsigned char*>(KDMEM_Realloc(mgr, b.p, 80, 0));
  EXPECT_NE(b.p, old);
  EXPECT_EQ(PoolOf(b.p)->m_nSizeClass, 4u);
  EXPECT_TRUE(Intact(b, 80));
  // The old block went back to its pool and is the next one of its class.
  void* again = KDMEM_Alloc(mgr, 97, 0);
  EXPECT_EQ(again, old);
  KDMEM_Free(mgr, again, 0);

  // Growing within the pools copies the old block.
  b.size = 80;
  b.p = static_cast<unsigned char*>(KDMEM_Realloc(mgr, b.p, 300, 0));
  EXPECT_EQ(PoolOf(b.p)->m_nSizeClass, 18u);
  EXPECT_TRUE(Intact(b, 80));

  // Beyond 1024 bytes the block moves to the raw allocator: a plain allocation there, without
  // raising the raw block count.
  RawWatch raw;
  b.p = static_cast<unsigned char*>(KDMEM_Realloc(mgr, b.p, 2000, 0));
  ASSERT_NE(b.p, nullptr);
  EXPECT_FALSE(PyAddressInPools(&st, b.p));
  EXPECT_TRUE(Intact(b, 80));
  ASSERT_EQ(Kinds(raw.log), "OnAlloc");
  EXPECT_EQ(raw.log[0].size, 2000u);
  EXPECT_EQ(st.m_nRawBlocks, 0);

  // A raw block stays raw whatever its new size.
  b.p = static_cast<unsigned char*>(KDMEM_Realloc(mgr, b.p, 50, 0));
  EXPECT_FALSE(PyAddressInPools(&st, b.p));
  EXPECT_TRUE(Intact(b, 50));
  EXPECT_EQ(Kinds(raw.log), "OnAlloc OnRealloc");
  // Its free lowers the count that its move did not raise.
  KDMEM_Free(mgr, b.p, 0);
  EXPECT_EQ(st.m_nRawBlocks, -1);

  // A null block is an allocation.
  void* p = _PyObject_Realloc(&pools.m_State, nullptr, 24);
  EXPECT_TRUE(PyAddressInPools(&st, p));
  KDMEM_Free(mgr, p, 0);
  KDMEM_Free(mgr, keep, 0);
  EXPECT_TRUE(HoldsNoArena(st));
  EXPECT_EQ(CheckState(st), "");
}

TEST(PyMgr, ArenasDrainInOrderAndGoBackToTheSystemHeap) {
  CKDMEM_PyMgr pools;
  CKD_MemoryMgr* mgr = pools.GetMgr();
  KDMEM_PyState& st = pools.m_State;
  RawWatch raw;

  // One block makes an arena from the system heap directly; freeing it returns the arena.
  void* p = KDMEM_Alloc(mgr, 8, 0);
  ASSERT_EQ(st.m_nMaxArenas, 16u);
  KDMEM_PyArena* arena = &st.m_pArenas[0];
  ASSERT_EQ(ArenaIndexOf(p), 0u);
  EXPECT_EQ(arena->m_nTotalPools, (arena->m_Base & kdpy::kPoolMask) ? 63u : 64u);
  EXPECT_EQ(st.m_pUsableArenas, arena);
  EXPECT_EQ(CheckState(st), "");
  KDMEM_Free(mgr, p, 0);
  EXPECT_EQ(arena->m_Base, 0u);
  EXPECT_EQ(st.m_pUnusedArenas, arena);
  EXPECT_EQ(st.m_nAllocatedArenas, 0u);  // nothing raises it
  EXPECT_EQ(CheckState(st), "");

  // Fill three arenas A, B, C with 1024-byte blocks (three to a pool); the first block of a
  // fourth arena is freed at once, returning it.
  std::map<KDMEM_PyPool*, std::vector<void*>> by_pool;
  for (;;) {
    void* b = KDMEM_Alloc(mgr, 1024, 0);
    if (ArenaIndexOf(b) == 3) {
      KDMEM_Free(mgr, b, 0);
      break;
    }
    by_pool[PoolOf(b)].push_back(b);
  }
  EXPECT_EQ(st.m_pUsableArenas, nullptr);
  KDMEM_PyArena* A = &st.m_pArenas[0];
  KDMEM_PyArena* C = &st.m_pArenas[2];
  auto empty_a_pool = [&](uint32_t index) {
    for (auto& [pool, blocks] : by_pool) {
      if (pool->m_nArenaIndex == index && !blocks.empty()) {
        for (void* b : blocks) KDMEM_Free(mgr, b, 0);
        blocks.clear();
        return;
      }
    }
  };
  auto order = [&] {
    std::string s;
    for (KDMEM_PyArena* a = st.m_pUsableArenas; a; a = a->m_pNextArena) {
      s += static_cast<char>('A' + (a - st.m_pArenas));
      s += std::to_string(a->m_nFreePools) + " ";
    }
    return s;
  };

  // An arena that was full goes first; one whose count rises past its neighbours moves back to
  // just after the last arena of its old count, ahead of those that already have its new count.
  empty_a_pool(0);
  EXPECT_EQ(order(), "A1 ");
  empty_a_pool(2);
  EXPECT_EQ(order(), "C1 A1 ");
  empty_a_pool(2);
  EXPECT_EQ(order(), "A1 C2 ");
  empty_a_pool(1);
  EXPECT_EQ(order(), "B1 A1 C2 ");
  empty_a_pool(1);
  EXPECT_EQ(order(), "A1 B2 C2 ");
  EXPECT_EQ(st.m_LastArenaByFreeCount[1], A);
  EXPECT_EQ(st.m_LastArenaByFreeCount[2], C);
  EXPECT_EQ(CheckState(st), "");

  // New pools come from the fullest arena, reusing an emptied pool of the same class as it is.
  void* b = KDMEM_Alloc(mgr, 1024, 0);
  EXPECT_EQ(ArenaIndexOf(b), 0u);
  EXPECT_EQ(order(), "B2 C2 ");
  EXPECT_EQ(st.m_LastArenaByFreeCount[1], nullptr);
  EXPECT_EQ(st.m_LastArenaByFreeCount[2], C);
  EXPECT_EQ(CheckState(st), "");
  KDMEM_Free(mgr, b, 0);

  for (auto& entry : by_pool) {
    for (void* q : entry.second) KDMEM_Free(mgr, q, 0);
  }
  EXPECT_TRUE(HoldsNoArena(st));
  EXPECT_EQ(CheckState(st), "");
  EXPECT_EQ(Kinds(raw.log), "");
}

TEST(PyMgr, RandomChurnKeepsListsConsistentAndBlocksIntact) {
  CKDMEM_PyMgr pools;
  KDMEM_SetDefaultMgr(pools.GetMgr());
  const KDMEM_PyState& st = pools.m_State;
  std::mt19937 rng(5150);
  Churn churn(0, &st);
  for (int op = 0; op < 60000; ++op) {
    // The live count swings between 0 and about 3000, so arenas are made and returned.
    ASSERT_TRUE(churn.Step(rng, (op / 15000) % 2 == 0)) << op;
    if (op % 500 == 0) {
      ASSERT_EQ(CheckState(st), "") << op;
    }
  }
  EXPECT_TRUE(churn.FreeAll());
  KDMEM_ResetSystemMgr();
  EXPECT_EQ(CheckState(st), "");
  EXPECT_TRUE(HoldsNoArena(st));
  EXPECT_EQ(st.m_nRawBlocks, churn.raw);
}

// A system manager that gives at least 1024 bytes whatever it is asked, so that an over-long copy
// into a small block can be observed safely.
_KDMEM_SystemMgr g_RoomySystemMgr = {
    [](_KDMEM_SystemMgr*, size_t size, int) { return malloc(std::max<size_t>(size, 1024)); },
    nullptr,
    [](_KDMEM_SystemMgr*, void* block, size_t size, int) { return realloc(block, std::max<size_t>(size, 1024)); },
    nullptr,
    nullptr,
    nullptr,
    [](_KDMEM_SystemMgr*, void* block, int) { free(block); },
    nullptr,
    nullptr,
    nullptr};

TEST(PyMgr, DiscardSendsNewRequestsToTheRawAllocator) {
  CKDMEM_PyMgr pools;
  CKD_MemoryMgr* mgr = pools.GetMgr();
  KDMEM_PyState& st = pools.m_State;
  StaticSystemSwap swap(&g_RoomySystemMgr);
  RawWatch raw;

  void* old = KDMEM_Alloc(mgr, 32, 0);
  Block shrink{static_cast<unsigned char*>(KDMEM_Alloc(mgr, 112, 0)), 112, 9};
  Fill(shrink);
  ASSERT_TRUE(PyAddressInPools(&st, old));

  // Destroying the manager discards the pools: state 1, the record stays (it is not freed).
  KDMEM_DestroyNorvaneMgr(mgr);
  EXPECT_EQ(st.m_State, kdpy::kDiscarding);
  EXPECT_EQ(mgr->m_Type, CKD_MemoryMgr::TypePool);
  EXPECT_EQ(st.m_nAllocatedArenas, 0u);
  EXPECT_NE(st.m_pArenas, nullptr);

  void* fresh = KDMEM_Alloc(mgr, 32, 0);
  EXPECT_FALSE(PyAddressInPools(&st, fresh));
  EXPECT_EQ(st.m_nRawBlocks, 1);
  EXPECT_EQ(Kinds(raw.log), "OnAlloc");
  EXPECT_EQ(raw.log[0].size, 32u);

  // Pooled blocks still go back to their pools.
  KDMEM_Free(mgr, old, 0);
  EXPECT_EQ(st.m_nRawBlocks, 1);

  // A pooled block reallocated after a discard moves to an n-byte raw block and gets all of its
  // old block (112 bytes) copied into it, even when n is smaller.
  auto* moved = static_cast<unsigned char*>(KDMEM_Realloc(mgr, shrink.p, 40, 0));
  ASSERT_FALSE(PyAddressInPools(&st, moved));
  EXPECT_EQ(raw.log.back().size, 40u);
  shrink.p = moved;
  EXPECT_TRUE(Intact(shrink, 112));
  EXPECT_TRUE(HoldsNoArena(st));  // the last pooled block has gone

  // A second discard, and a purge attempt with the count at 0, change nothing.
  pools.Discard();
  _PyObject_TryPurge(&st);
  EXPECT_EQ(st.m_State, kdpy::kDiscarding);
  EXPECT_EQ(CheckState(st), "");
  KDMEM_Free(mgr, fresh, 0);
  KDMEM_Free(mgr, moved, 0);
  EXPECT_EQ(st.m_nRawBlocks, -1);
}

TEST(PyMgr, ReleaseRunsOnlyWhenTheCountSaysOneArena) {
  // Nothing in the library raises the allocated-arena count, so the release is reached only by
  // setting it. The first usable arena must also be wholly free, which freeing never leaves it:
  // that is set by hand too, on an arena whose one block is then abandoned.
  for (bool by_purge : {false, true}) {
    SCOPED_TRACE(by_purge ? "purge" : "discard");
    CKDMEM_PyMgr pools;
    CKD_MemoryMgr* mgr = pools.GetMgr();
    KDMEM_PyState& st = pools.m_State;
    ASSERT_TRUE(PyAddressInPools(&st, KDMEM_Alloc(mgr, 16, 0)));
    if (by_purge) {
      pools.Discard();
      _PyObject_TryPurge(&st);
      EXPECT_EQ(st.m_State, kdpy::kDiscarding);  // count still 0
    }
    st.m_nAllocatedArenas = 1;
    st.m_pUsableArenas->m_nFreePools = st.m_pUsableArenas->m_nTotalPools;
    if (by_purge) {
      _PyObject_TryPurge(&st);
    } else {
      pools.Discard();
    }
    EXPECT_EQ(st.m_State, kdpy::kPurged);
    EXPECT_TRUE(st.m_nAllocatedArenas == 0 && !st.m_pArenas && !st.m_pUsableArenas && !st.m_pUnusedArenas);

    // Purged: everything is raw, and a realloc does not look at the pools.
    RawWatch raw;
    void* p = KDMEM_Alloc(mgr, 16, 0);
    p = KDMEM_Realloc(mgr, p, 20, 0);
    KDMEM_Free(mgr, p, 0);
    EXPECT_EQ(Kinds(raw.log), "OnAlloc OnRealloc OnFree");
    EXPECT_EQ(st.m_nRawBlocks, 0);
  }
}

TEST(PyMgr, RawFailureIsReportedByBothManagers) {
  CKDMEM_PyMgr pools;
  CKD_MemoryMgr* mgr = pools.GetMgr();
  EventLog log;
  TestSystemMgr failing(&log);
  OOMCounter static_oom(&log);
  OOMCounter pool_oom(&log);
  StaticSystemSwap swap(failing.sys());
  KDMEM_SetOOMHandler(&g_DefNorvaneMgr, OOMCounter::Handler, &static_oom);
  KDMEM_SetOOMHandler(mgr, OOMCounter::Handler, &pool_oom);
  RecordingDebugger debugger(&log);
  KDMEM_UseDebugger(&g_DefNorvaneMgr, debugger.table());

  void* small = KDMEM_Alloc(mgr, 64, 0);
  ASSERT_NE(small, nullptr);
  failing.FailAll(true);
  EXPECT_EQ(KDMEM_Alloc(mgr, 5000, 0), nullptr);
  EXPECT_EQ(Kinds(log), "alloc OnAlloc oom oom");
  EXPECT_EQ(static_oom.calls, 1);
  EXPECT_EQ(static_oom.last_mgr, &g_DefNorvaneMgr);
  EXPECT_EQ(pool_oom.calls, 1);
  EXPECT_EQ(pool_oom.last_mgr, mgr);

  // A pooled block that cannot move to the raw allocator stays where it is.
  memset(small, 0x3C, 64);
  EXPECT_EQ(KDMEM_Realloc(mgr, small, 4000, 0), nullptr);
  EXPECT_TRUE(PyAddressInPools(&pools.m_State, small));
  EXPECT_EQ(static_cast<unsigned char*>(small)[63], 0x3C);
  EXPECT_EQ(pools.m_State.m_nRawBlocks, 0);
  EXPECT_EQ(pool_oom.calls, 2);

  KDMEM_UseDebugger(&g_DefNorvaneMgr, nullptr);
  KDMEM_SetOOMHandler(&g_DefNorvaneMgr, nullptr, nullptr);
  KDMEM_Free(mgr, small, 0);
}

TEST(PyMgr, CallsWaitForTheMutex) {
  CKDMEM_PyMgr pools;
  CKD_MemoryMgr* mgr = pools.GetMgr();
  std::atomic<bool> done{false};
  void* block = nullptr;
  KD_Mutex_Lock(&pools.m_Mutex);
  std::thread t([&] {
    block = KDMEM_Alloc(mgr, 48, 0);
    done = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(done);
  KD_Mutex_Unlock(&pools.m_Mutex);
  t.join();
  EXPECT_TRUE(done);
  EXPECT_TRUE(PyAddressInPools(&pools.m_State, block));
  KDMEM_Free(mgr, block, 0);
}

#ifdef NORVANE_ASAN
TEST(PyMgrDeathTest, FreeAndUnrequestedBytesArePoisoned) {
  CKDMEM_PyMgr pools;
  CKD_MemoryMgr* mgr = pools.GetMgr();
  auto* keep = static_cast<volatile char*>(KDMEM_Alloc(mgr, 20, 0));  // a 32-byte block
  auto* p = static_cast<volatile char*>(KDMEM_Alloc(mgr, 20, 0));
  p[19] = 1;
  EXPECT_DEATH(p[20] = 1, "use-after-poison");
  KDMEM_Free(mgr, const_cast<char*>(p), 0);
  EXPECT_DEATH(p[0] = 1, "use-after-poison");
  KDMEM_Free(mgr, const_cast<char*>(keep), 0);
}
#endif

// Several threads allocate, reallocate and free through the pool manager installed as the default
// manager, and allocate from one shared grow-only pool, each checking that its blocks keep their
// contents. Bounded by a count of operations and by time.
TEST(PoolStress, ThreadsKeepEveryBlockIntact) {
  CKDMEM_PyMgr pools;
  KDMEM_SetDefaultMgr(pools.GetMgr());
  // Its trunks come from the pool manager too (through its raw allocator).
  CKD_GrowOnlyPool shared(nullptr, 4000);
  constexpr int kThreads = 4;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(1500);
  std::vector<std::vector<Block>> grown(kThreads);
  std::atomic<int> failures{0};
  std::atomic<long> ops_done{0};

  auto worker = [&](int id) {
    std::mt19937 rng(1000 + id);
    Churn churn(static_cast<uint32_t>(id) << 24);
    int op = 0;
    for (; op < 200000 && (op % 256 != 0 || std::chrono::steady_clock::now() < deadline); ++op) {
      if (rng() % 100 < 8 && grown[id].size() < 20000) {
        Block b{nullptr, 1 + rng() % 200, ++churn.tag};
        b.p = static_cast<unsigned char*>(shared.Alloc(b.size));
        Fill(b);
        grown[id].push_back(b);
      } else if (!churn.Step(rng, churn.live.size() < 200)) {
        ++failures;
        break;
      }
    }
    if (!churn.FreeAll()) ++failures;
    ops_done += op;
  };
  std::vector<std::thread> threads;
  for (int id = 0; id < kThreads; ++id) threads.emplace_back(worker, id);
  for (std::thread& t : threads) t.join();

  EXPECT_EQ(failures, 0);
  EXPECT_GT(ops_done, 1000);
  for (const auto& blocks : grown) {
    for (const Block& b : blocks) ASSERT_TRUE(Intact(b, b.size));
  }
  shared.FreeAll();
  KDMEM_ResetSystemMgr();
  EXPECT_EQ(CheckState(pools.m_State), "");
  EXPECT_TRUE(HoldsNoArena(pools.m_State));
}

}  // namespace
