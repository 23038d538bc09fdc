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

size_t OffsetInPool(const void* p) { return reinterpret_cast<uintptr_t>(p) & kdpy::kPoolMask; }

// Records what the static default manager, which serves the pool manager's raw requests, is
// asked while the object lives.
struct RawWatch {
  RawWatch() { KDMEM_UseDebugger(&g_DefNorvaneMgr, debugger.table()); }
  ~RawWatch() { KDMEM_UseDebugger(&g_DefNorvaneMgr, nullptr); }
  EventLog log;
  RecordingDebugger debugger{&log};
};

// Puts another system manager under the static default manager while the object lives.
struct StaticSystemSwap {
  explicit StaticSystemSwap(_KDMEM_SystemMgr* sys) { g_DefNorvaneMgr.m_pSystemMgr = sys; }
  ~StaticSystemSwap() { g_DefNorvaneMgr.m_pSystemMgr = saved; }
  _KDMEM_SystemMgr* saved = g_DefNorvaneMgr.m_pSystemMgr;
};

// Checks the pool state's lists and counts against each other, and with drained set that no
// arena is held any more; returns the first fault, or "".
constexpr bool kDrained = true;
std::string CheckState(const KDMEM_PyState& st, bool drained = false) {
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
  size_t chunk_refs = 0;
  std::set<uintptr_t> bases;
  for (uint32_t i = 0; i < st.m_nMaxArenas; ++i) {
    const KDMEM_PyArena& a = st.m_pArenas[i];
    if (!a.m_Base) {
      if (!unused.count(&a)) return "record lost";
      continue;
    }
    if (drained) return "an arena is still held";
    // The address table finds the arena's whole range and nothing just outside it but another
    // arena; it lists each held arena in the one or two chunks it meets.
    if (!PyAddressInPools(&st, reinterpret_cast<void*>(a.m_Base)) ||
        !PyAddressInPools(&st, reinterpret_cast<void*>(a.m_Base + kdpy::kArenaSize - 1))) {
      return "arena missing from the address table";
    }
    chunk_refs += 1 + ((a.m_Base & (kdpy::kArenaSize - 1)) != 0);
    bases.insert(a.m_Base);
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
  size_t table_refs = 0;
  for (uint32_t i = 0; st.m_pChunks && i < (1u << st.m_nChunkBits); ++i) {
    if (st.m_pChunks[i].m_nKey == 0) continue;
    for (uintptr_t base : st.m_pChunks[i].m_Base) {
      if (base && !bases.count(base)) return "address table lists freed memory";
      table_refs += base != 0;
    }
  }
  if (table_refs != chunk_refs) return "address table entry count";
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

// Each test runs on a pool manager of its own, and leaves it consistent and holding no arena.
class PyMgrTest : public ::testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(CheckState(st, kDrained), ""); }
  void* Alloc(size_t n) { return KDMEM_Alloc(mgr, n, 0); }
  void* Realloc(void* p, size_t n) { return KDMEM_Realloc(mgr, p, n, 0); }
  void Free(void* p) { KDMEM_Free(mgr, p, 0); }
  bool Pooled(const void* p) const { return PyAddressInPools(&st, p); }

  CKDMEM_PyMgr pools;
  CKD_MemoryMgr* mgr = pools.GetMgr();
  KDMEM_PyState& st = pools.m_State;
};

TEST(PyMgr, CreateBuildsTheStaticInstance) {
  CKD_MemoryMgr* mgr = KDMEM_CreatePyMgr();
  ASSERT_NE(mgr, nullptr);
  _KDMEM_SystemMgr* sys = mgr->m_pSystemMgr;
  EXPECT_EQ(kdtest::MgrRecordFault(mgr, CKD_MemoryMgr::TypePool, sys, true), "");
  CKDMEM_PyMgr* self = CKDMEM_PyMgr::FromSystemMgr(sys);
  ASSERT_NE(self, nullptr);
  EXPECT_TRUE(!sys->Reserved4 && !sys->Reserved5 && !sys->Purge && !sys->CollectAll);
  const KDMEM_PyState& st = self->m_State;
  EXPECT_TRUE(st.m_State == kdpy::kPooling && !st.m_pArenas && st.m_nMaxArenas == 0 && st.m_nRawBlocks == 0);

  // Installed as the default, it serves the default calls.
  KDMEM_SetDefaultMgr(mgr);
  void* p = KDMEM_DefaultAllocDebug(40, 0, "f.cpp", 3);
  EXPECT_TRUE(PyAddressInPools(&st, p));
  p = KDMEM_DefaultReallocDebug(p, 44, 0, "f.cpp", 4);  // 48-byte block kept
  EXPECT_TRUE(PyAddressInPools(&st, p));
  KDMEM_DefaultFree(p, 0);
  KDMEM_ResetSystemMgr();
  EXPECT_EQ(CheckState(st, kDrained), "");

  // Calling it again rebuilds the same record, abandoning the old state (here only the arena
  // record vector and address table, returned first so the leak checker stays quiet).
  free(self->m_State.m_pArenas);
  free(self->m_State.m_pChunks);
  EXPECT_EQ(KDMEM_CreatePyMgr(), mgr);
  EXPECT_EQ(st.m_pArenas, nullptr);
}

// Requests of 1..1024 bytes take class (n - 1) >> 4, blocks after a 48-byte pool header; 0 and
// 1025 bytes go to the raw allocator (the static default manager) and are counted.
TEST_F(PyMgrTest, SizeClassesAndRawRequests) {
  RawWatch raw;
  auto* a = static_cast<unsigned char*>(Alloc(1));
  EXPECT_EQ(OffsetInPool(a), 48u);
  EXPECT_EQ(Alloc(16), a + 16);  // the same 16-byte class
  std::vector<void*> blocks{a, a + 16};
  for (size_t n = 1; n <= 1024; ++n) {
    void* p = Alloc(n);
    ASSERT_TRUE(Pooled(p)) << n;
    const auto size_class = static_cast<uint32_t>((n - 1) >> 4);
    ASSERT_EQ(PoolOf(p)->m_nSizeClass, size_class) << n;
    ASSERT_EQ((OffsetInPool(p) - 48) % ((size_class + 1) * 16), 0u) << n;
    memset(p, 0xA5, n);
    blocks.push_back(p);
  }
  EXPECT_EQ(CheckState(st), "");
  EXPECT_EQ(Kinds(raw.log), "");  // pooled requests never reach the static manager

  void* zero = Alloc(0);
  void* big = Alloc(1025);
  EXPECT_TRUE(zero && big && !Pooled(zero) && !Pooled(big));
  EXPECT_EQ(st.m_nRawBlocks, 2);
  ASSERT_EQ(Kinds(raw.log), "OnAlloc OnAlloc");
  EXPECT_TRUE(raw.log[0].size == 0 && raw.log[1].size == 1025);
  Free(zero);
  Free(big);
  EXPECT_EQ(st.m_nRawBlocks, 0);
  EXPECT_EQ(Kinds(raw.log), "OnAlloc OnAlloc OnFree OnFree");
  for (void* p : blocks) Free(p);
}

// 1024-byte blocks sit three to a pool, at 48, 1072 and 2096. A full pool leaves its class list;
// a free into it links it back in front, so it serves the next request.
TEST_F(PyMgrTest, FullPoolLeavesItsClassListAndComesBackFirst) {
  const KDMEM_PyPool* head = &st.m_UsedPools[63];
  void* a = Alloc(1024);
  void* b = Alloc(1010);
  void* c = Alloc(1020);
  KDMEM_PyPool* first = PoolOf(a);
  EXPECT_TRUE(PoolOf(b) == first && PoolOf(c) == first);
  EXPECT_TRUE(OffsetInPool(a) == 48 && OffsetInPool(b) == 1072 && OffsetInPool(c) == 2096);
  EXPECT_EQ(head->m_pNextPool, head);
  void* d = Alloc(1024);
  EXPECT_NE(PoolOf(d), first);
  EXPECT_EQ(head->m_pNextPool, PoolOf(d));

  Free(b);
  EXPECT_EQ(head->m_pNextPool, first);
  EXPECT_EQ(Alloc(1024), b);
  EXPECT_EQ(CheckState(st), "");
  for (void* p : {a, b, c, d}) Free(p);
}

// A block stays put when the new size fits it and is more than three quarters of it; otherwise it
// moves, within the pools or beyond 1024 bytes to the raw allocator, keeping its contents.
TEST_F(PyMgrTest, ReallocKeepsShrinksInPlaceAndMoves) {
  void* keep = Alloc(8);  // keeps the arena alive throughout
  Block b{static_cast<unsigned char*>(Alloc(100)), 100, 1};  // a 112-byte block
  Fill(b);
  for (size_t n : {90u, 112u, 100u}) EXPECT_EQ(Realloc(b.p, n), b.p) << n;  // 90 * 4 = 360 > 336

  // 80 * 4 = 320 <= 336: moves to the 80-byte class. The old block went back to its pool and is
  // the next one of its class.
  unsigned char* old = b.p;
  b.p = static_cast<unsigned char*>(Realloc(b.p, 80));
  EXPECT_EQ(PoolOf(b.p)->m_nSizeClass, 4u);
  EXPECT_TRUE(Intact(b, 80));
  void* again = Alloc(97);
  EXPECT_EQ(again, old);
  Free(again);
  b.size = 80;
  b.p = static_cast<unsigned char*>(Realloc(b.p, 300));
  EXPECT_EQ(PoolOf(b.p)->m_nSizeClass, 18u);
  EXPECT_TRUE(Intact(b, 80));

  // To the raw allocator: a plain allocation there, without raising the raw block count.
  RawWatch raw;
  b.p = static_cast<unsigned char*>(Realloc(b.p, 2000));
  ASSERT_NE(b.p, nullptr);
  EXPECT_FALSE(Pooled(b.p));
  EXPECT_TRUE(Intact(b, 80));
  ASSERT_EQ(Kinds(raw.log), "OnAlloc");
  EXPECT_EQ(raw.log[0].size, 2000u);
  EXPECT_EQ(st.m_nRawBlocks, 0);
  // A raw block stays raw whatever its new size; its free lowers the count its move did not raise.
  b.p = static_cast<unsigned char*>(Realloc(b.p, 50));
  EXPECT_FALSE(Pooled(b.p));
  EXPECT_TRUE(Intact(b, 50));
  EXPECT_EQ(Kinds(raw.log), "OnAlloc OnRealloc");
  Free(b.p);
  EXPECT_EQ(st.m_nRawBlocks, -1);

  // A null block is an allocation.
  void* p = _PyObject_Realloc(&st, nullptr, 24);
  EXPECT_TRUE(Pooled(p));
  Free(p);
  Free(keep);
}

// Arenas come from the system heap, not the raw allocator, and go back once all their pools are
// free; the usable list stays sorted by ascending count of free pools, fullest used first.
TEST_F(PyMgrTest, ArenasDrainInOrderAndGoBackToTheSystemHeap) {
  RawWatch raw;
  void* p = Alloc(8);
  ASSERT_EQ(st.m_nMaxArenas, 16u);  // the first vector of arena records
  KDMEM_PyArena* arena = &st.m_pArenas[0];
  EXPECT_EQ(st.m_pUsableArenas, arena);
  EXPECT_EQ(CheckState(st), "");
  Free(p);
  EXPECT_TRUE(arena->m_Base == 0 && st.m_pUnusedArenas == arena);
  EXPECT_EQ(st.m_nAllocatedArenas, 0u);  // nothing raises it
  EXPECT_EQ(CheckState(st), "");

  // Fill three arenas A, B, C with 1024-byte blocks (three to a pool); the first block of a
  // fourth arena is freed at once, returning it.
  std::map<KDMEM_PyPool*, std::vector<void*>> by_pool;
  for (;;) {
    void* b = Alloc(1024);
    if (PoolOf(b)->m_nArenaIndex == 3) {
      Free(b);
      break;
    }
    by_pool[PoolOf(b)].push_back(b);
  }
  EXPECT_EQ(st.m_pUsableArenas, nullptr);
  auto empty_a_pool_of = [&](uint32_t arena_index) {
    for (auto& [pool, blocks] : by_pool) {
      if (pool->m_nArenaIndex == arena_index && !blocks.empty()) {
        for (void* b : blocks) Free(b);
        blocks.clear();
        return;
      }
    }
  };
  auto order = [&] {
    std::string s;
    for (KDMEM_PyArena* a = st.m_pUsableArenas; a; a = a->m_pNextArena) {
      s += static_cast<char>('A' + (a - st.m_pArenas)) + std::to_string(a->m_nFreePools) + " ";
    }
    return s;
  };

  // An arena that was full goes first; one whose count rises past its neighbours moves back to
  // just after the last arena of its old count, ahead of those that already have its new count.
  const struct {
    uint32_t arena;
    const char* order;
  } steps[] = {{0, "A1 "}, {2, "C1 A1 "}, {2, "A1 C2 "}, {1, "B1 A1 C2 "}, {1, "A1 B2 C2 "}};
  for (const auto& step : steps) {
    empty_a_pool_of(step.arena);
    EXPECT_EQ(order(), step.order);
    EXPECT_EQ(CheckState(st), "") << step.order;
  }

  // New pools come from the fullest arena, reusing an emptied pool of the same class as it is.
  void* b = Alloc(1024);
  EXPECT_EQ(PoolOf(b)->m_nArenaIndex, 0u);
  EXPECT_EQ(order(), "B2 C2 ");
  EXPECT_EQ(CheckState(st), "");
  Free(b);
  for (auto& entry : by_pool) {
    for (void* q : entry.second) Free(q);
  }
  EXPECT_EQ(Kinds(raw.log), "");
}

TEST_F(PyMgrTest, RandomChurnKeepsListsConsistentAndBlocksIntact) {
  KDMEM_SetDefaultMgr(mgr);
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
  EXPECT_EQ(st.m_nRawBlocks, churn.raw);
}

// Blocks of at least 1024 bytes, filled with 0xEE: a copy that runs past a small block's end shows
// in the slack instead of corrupting the heap.
void* RoomyAlloc(_KDMEM_SystemMgr*, size_t size, int) {
  void* p = malloc(std::max<size_t>(size, 1024));
  if (p) memset(p, 0xEE, std::max<size_t>(size, 1024));
  return p;
}
void* RoomyRealloc(_KDMEM_SystemMgr*, void* p, size_t size, int) { return realloc(p, std::max<size_t>(size, 1024)); }
void RoomyFree(_KDMEM_SystemMgr*, void* block, int) { free(block); }
_KDMEM_SystemMgr g_RoomySystemMgr = {RoomyAlloc, nullptr, RoomyRealloc, nullptr, nullptr,
                                     nullptr,    RoomyFree, nullptr, nullptr, nullptr};

// Reallocating a pooled block to 0 bytes, while pooling, moves it to a raw block into which
// nothing is copied (the old block's bytes would land past the new block's end).
TEST_F(PyMgrTest, ReallocToZeroCopiesNothing) {
  StaticSystemSwap swap(&g_RoomySystemMgr);
  Block zero{static_cast<unsigned char*>(Alloc(64)), 64, 4};
  Fill(zero);
  ASSERT_TRUE(Pooled(zero.p));
  auto* empty = static_cast<unsigned char*>(Realloc(zero.p, 0));
  ASSERT_TRUE(empty && !Pooled(empty));
  for (size_t i = 0; i < 64; ++i) ASSERT_EQ(empty[i], 0xEE) << i;
  Free(empty);
}

// A discard (here by destroying the manager) switches to state 1 only, since nothing raises the
// allocated-arena count: new requests go to the raw allocator, pooled blocks can still be freed.
TEST_F(PyMgrTest, DiscardSendsNewRequestsToTheRawAllocator) {
  StaticSystemSwap swap(&g_RoomySystemMgr);
  RawWatch raw;
  void* old = Alloc(32);
  Block shrink{static_cast<unsigned char*>(Alloc(112)), 112, 9};
  Fill(shrink);
  ASSERT_TRUE(Pooled(old));

  KDMEM_DestroyNorvaneMgr(mgr);  // the record, part of the pool manager, is not freed
  EXPECT_TRUE(st.m_State == kdpy::kDiscarding && st.m_nAllocatedArenas == 0 && st.m_pArenas);
  void* fresh = Alloc(32);
  EXPECT_FALSE(Pooled(fresh));
  EXPECT_EQ(st.m_nRawBlocks, 1);
  EXPECT_EQ(Kinds(raw.log), "OnAlloc");
  EXPECT_EQ(raw.log[0].size, 32u);
  Free(old);
  EXPECT_EQ(st.m_nRawBlocks, 1);

  // A pooled block reallocated after a discard moves to an n-byte raw block and gets the first n
  // bytes of its old block (112 bytes); nothing is written past the new block's end.
  auto* moved = static_cast<unsigned char*>(Realloc(shrink.p, 40));
  ASSERT_FALSE(Pooled(moved));
  EXPECT_EQ(raw.log.back().size, 40u);
  shrink.p = moved;
  EXPECT_TRUE(Intact(shrink, 40));
  for (size_t i = 40; i < 112; ++i) ASSERT_EQ(moved[i], 0xEE) << i;  // the roomy block's slack

  // A second discard, and a purge attempt with the count at 0, change nothing.
  pools.Discard();
  _PyObject_TryPurge(&st);
  EXPECT_EQ(st.m_State, kdpy::kDiscarding);
  Free(fresh);
  Free(moved);
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

// A failure of the raw allocator is reported by the static default manager and then by the pool
// manager, whose system slot returned null.
TEST_F(PyMgrTest, RawFailureIsReportedByBothManagers) {
  EventLog log;
  TestSystemMgr failing(&log);
  OOMCounter static_oom(&log);
  OOMCounter pool_oom(&log);
  StaticSystemSwap swap(failing.sys());
  KDMEM_SetOOMHandler(&g_DefNorvaneMgr, OOMCounter::Handler, &static_oom);
  KDMEM_SetOOMHandler(mgr, OOMCounter::Handler, &pool_oom);
  RecordingDebugger debugger(&log);
  KDMEM_UseDebugger(&g_DefNorvaneMgr, debugger.table());

  void* small = Alloc(64);
  ASSERT_NE(small, nullptr);
  failing.FailAll(true);
  EXPECT_EQ(Alloc(5000), nullptr);
  EXPECT_EQ(Kinds(log), "alloc OnAlloc oom oom");
  EXPECT_TRUE(static_oom.last_mgr == &g_DefNorvaneMgr && pool_oom.last_mgr == mgr);

  // A pooled block that cannot move to the raw allocator stays where it is.
  memset(small, 0x3C, 64);
  EXPECT_EQ(Realloc(small, 4000), nullptr);
  EXPECT_TRUE(Pooled(small));
  EXPECT_EQ(static_cast<unsigned char*>(small)[63], 0x3C);
  EXPECT_EQ(st.m_nRawBlocks, 0);
  EXPECT_TRUE(static_oom.calls == 2 && pool_oom.calls == 2);

  KDMEM_UseDebugger(&g_DefNorvaneMgr, nullptr);
  KDMEM_SetOOMHandler(&g_DefNorvaneMgr, nullptr, nullptr);
  Free(small);
}

TEST_F(PyMgrTest, CallsWaitForTheMutex) {
  std::atomic<bool> done{false};
  void* block = nullptr;
  KD_Mutex_Lock(&pools.m_Mutex);
  std::thread t([&] {
    block = Alloc(48);
    done = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(done);
  KD_Mutex_Unlock(&pools.m_Mutex);
  t.join();
  EXPECT_TRUE(done);
  EXPECT_TRUE(Pooled(block));
  Free(block);
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

// Threads churn through the pool manager installed as the default and share a grow-only pool fed
// by it; every block keeps its contents. Bounded by a count of operations and by time.
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
  EXPECT_EQ(CheckState(pools.m_State, kDrained), "");
}

}  // namespace
