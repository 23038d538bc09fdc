#include "norvane/memory/grow_only_pool.h"

#include <gtest/gtest.h>

#include <cstring>

#include "norvane/containers/map_ptr_to_ptr.h"
#include "norvane/memory/asan_internal.h"
#include "tests/support/test_mgr.h"

namespace {

using kdtest::TestDefaultMgr;
using kdtest::TestSystemMgr;

// A manager over a TestSystemMgr, not installed as the default: trunks are counted there.
struct Source {
  TestSystemMgr sys;
  CKD_MemoryMgr* mgr = KDMEM_CreateNorvaneMgr(sys.sys());
  Source() { sys.Reset(); }
  ~Source() { KDMEM_DestroyNorvaneMgr(mgr); }
  IKD_Allocator* allocator() { return &mgr->m_Allocator; }
  size_t trunks() const { return sys.live_blocks() - 1; }  // less the manager's own record
};

constexpr size_t kHeader = sizeof(CKD_GrowOnlyPool::Trunk);

TEST(GrowOnlyPool, BumpsWithinTrunksAndFillsOlderOnes) {
  Source src;
  CKD_GrowOnlyPool pool(src.allocator(), 1024);
  EXPECT_EQ(pool.GetTrunkSize(), 1024u);
  EXPECT_EQ(pool.m_Param, 1024u);
  EXPECT_EQ(pool.m_pFirstTrunk, nullptr);

  auto* a = static_cast<unsigned char*>(pool.Alloc(1));
  ASSERT_NE(a, nullptr);
  CKD_GrowOnlyPool::Trunk* first = pool.m_pFirstTrunk;
  EXPECT_EQ(a, first->Payload());
  EXPECT_EQ(a, reinterpret_cast<unsigned char*>(first) + kHeader);
  EXPECT_EQ(pool.Alloc(1), a + 4);  // sizes round up to a multiple of 4
  EXPECT_EQ(pool.Alloc(6), a + 8);
  EXPECT_EQ(first->m_nUsed, 16u);
  EXPECT_EQ(first->m_nPayloadSize, 1024u);
  ASSERT_EQ(src.sys.requests().size(), 1u);
  EXPECT_EQ(src.sys.requests()[0], kHeader + 1024);

  // A request larger than the trunk size gets a trunk of exactly its size, which is then full.
  auto* big = static_cast<unsigned char*>(pool.Alloc(5000));
  CKD_GrowOnlyPool::Trunk* second = pool.m_pFirstTrunk;
  EXPECT_EQ(big, second->Payload());
  EXPECT_EQ(second->m_pNext, first);
  EXPECT_EQ(second->m_nPayloadSize, 5000u);
  EXPECT_EQ(second->m_nUsed, 5000u);
  EXPECT_EQ(src.sys.requests().back(), kHeader + 5000);

  // Older trunks keep serving what fits in them, up to the last byte.
  EXPECT_EQ(pool.Alloc(4), a + 16);
  EXPECT_EQ(pool.Alloc(1004), a + 20);
  EXPECT_EQ(first->m_nUsed, 1024u);
  EXPECT_EQ(src.trunks(), 2u);
  auto* next = static_cast<unsigned char*>(pool.Alloc(1));
  EXPECT_EQ(src.trunks(), 3u);
  EXPECT_EQ(next, pool.m_pFirstTrunk->Payload());
  memset(big, 0x5A, 5000);

  // FreeAll returns every trunk; the next request makes a new one.
  pool.FreeAll();
  EXPECT_EQ(pool.m_pFirstTrunk, nullptr);
  EXPECT_EQ(src.trunks(), 0u);
  EXPECT_EQ(src.sys.bad_frees(), 0);
  ASSERT_NE(pool.Alloc(8), nullptr);
  EXPECT_EQ(src.trunks(), 1u);
}

TEST(GrowOnlyPool, IsAnAllocatorWhoseReallocAndFreeDoNothing) {
  Source src;
  CKD_GrowOnlyPool pool(src.allocator(), 256);
  IKD_Allocator* allocator = &pool;
  EXPECT_EQ(static_cast<void*>(allocator), static_cast<void*>(&pool));

  auto* p = static_cast<char*>(allocator->m_Alloc(allocator, 10));
  ASSERT_NE(p, nullptr);
  strcpy(p, "grow-only");
  EXPECT_EQ(allocator->m_AllocDebug(allocator, 3, "f.cpp", 1), p + 12);
  EXPECT_EQ(allocator->m_Realloc(allocator, p, 10), nullptr);
  EXPECT_EQ(allocator->m_ReallocDebug(allocator, p, 100, "f.cpp", 2), nullptr);
  allocator->m_Free(allocator, p);
  EXPECT_STREQ(p, "grow-only");  // still valid, and not handed out again
  EXPECT_EQ(allocator->m_Alloc(allocator, 4), p + 16);

  pool.FreeAll();
  EXPECT_EQ(src.trunks(), 0u);

  // Containers take it like any allocator; their frees are ignored and FreeAll reclaims all. (A
  // map asks for multiples of 8 bytes, so on a pool of its own its blocks stay 8-aligned.)
  CKD_GrowOnlyPool map_pool(src.allocator(), 256);
  {
    CKD_MapPtrToPtr map(10, &map_pool);
    for (uintptr_t k = 1; k <= 100; ++k) map.SetAt(reinterpret_cast<void*>(k), reinterpret_cast<void*>(k * 3));
    void* value = nullptr;
    EXPECT_TRUE(map.Lookup(reinterpret_cast<void*>(77), value));
    EXPECT_EQ(value, reinterpret_cast<void*>(231));
  }
  EXPECT_GT(src.trunks(), 1u);
  map_pool.FreeAll();
  EXPECT_EQ(src.trunks(), 0u);
}

TEST(GrowOnlyPool, NullAllocatorIsTheDefaultManagers) {
  TestDefaultMgr def;
  auto* pool = new CKD_GrowOnlyPool(nullptr, 64);  // the object itself comes from the default too
  ASSERT_NE(pool, nullptr);
  EXPECT_EQ(pool->m_pAllocator, KDMEM_GetDefAllocator());
  EXPECT_EQ(def.live_blocks(), 1u);
  ASSERT_NE(pool->Alloc(100), nullptr);
  EXPECT_EQ(def.live_blocks(), 2u);
  EXPECT_EQ(def.sys().requests().back(), kHeader + 100);

  Source other;
  pool->FreeAll();
  pool->SetAllocator(other.allocator());
  EXPECT_EQ(pool->m_pAllocator, other.allocator());
  ASSERT_NE(pool->Alloc(1), nullptr);
  EXPECT_EQ(other.trunks(), 1u);
  pool->FreeAll();
  pool->SetAllocator(nullptr);
  EXPECT_EQ(pool->m_pAllocator, KDMEM_GetDefAllocator());

  // The destructor returns what is left.
  ASSERT_NE(pool->Alloc(1), nullptr);
  delete pool;
  EXPECT_EQ(def.live_blocks(), 0u);
  EXPECT_EQ(def.sys().bad_frees(), 0);
}

TEST(GrowOnlyPool, MissingTrunkGivesNull) {
  Source src;
  kdtest::OOMCounter oom;
  KDMEM_SetOOMHandler(src.mgr, kdtest::OOMCounter::Handler, &oom);
  CKD_GrowOnlyPool pool(src.allocator(), 64);
  void* a = pool.Alloc(60);
  src.sys.FailAll(true);
  EXPECT_EQ(pool.Alloc(8), nullptr);  // no room left and no trunk to be had
  EXPECT_EQ(oom.calls, 1);
  EXPECT_EQ(pool.Alloc(4), static_cast<char*>(a) + 60);  // what fits is still served
  EXPECT_EQ(pool.Alloc(static_cast<size_t>(-1)), nullptr);
  src.sys.FailAll(false);
  EXPECT_NE(pool.Alloc(8), nullptr);
}

#ifdef NORVANE_ASAN
TEST(GrowOnlyPoolDeathTest, BytesNotHandedOutArePoisoned) {
  CKD_GrowOnlyPool pool(nullptr, 256);
  auto* p = static_cast<volatile char*>(pool.Alloc(5));
  p[4] = 1;
  EXPECT_DEATH(p[5] = 1, "use-after-poison");
  EXPECT_DEATH(p[100] = 1, "use-after-poison");
}
#endif

}  // namespace
