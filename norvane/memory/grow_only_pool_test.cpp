#include "norvane/memory/grow_only_pool.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "norvane/memory/asan_internal.h"
#include "tests/support/test_mgr.h"

namespace {

using kdtest::TestMgr;

constexpr size_t kHeader = sizeof(CKD_GrowOnlyPool::Trunk);

// Trunks come from a TestMgr, so its live blocks are the pool's trunks.
TEST(GrowOnlyPool, BumpsWithinTrunksAndFillsOlderOnes) {
  TestMgr src;
  CKD_GrowOnlyPool pool(src.allocator(), 1024);
  // The trunk size is the allocator's own word.
  EXPECT_TRUE(pool.GetTrunkSize() == 1024 && pool.m_Param == 1024 && !pool.m_pFirstTrunk);

  auto* a = static_cast<unsigned char*>(pool.Alloc(1));
  CKD_GrowOnlyPool::Trunk* first = pool.m_pFirstTrunk;
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(a, reinterpret_cast<unsigned char*>(first) + kHeader);  // the payload follows the header
  EXPECT_EQ(pool.Alloc(1), a + 4);  // sizes round up to a multiple of 4
  EXPECT_EQ(pool.Alloc(6), a + 8);
  EXPECT_TRUE(first->m_nUsed == 16 && first->m_nPayloadSize == 1024);
  EXPECT_EQ(src.sys().requests(), std::vector<size_t>{kHeader + 1024});

  // A request larger than the trunk size gets a trunk of exactly its size, which is then full.
  auto* big = static_cast<unsigned char*>(pool.Alloc(5000));
  CKD_GrowOnlyPool::Trunk* second = pool.m_pFirstTrunk;
  EXPECT_EQ(big, second->Payload());
  EXPECT_TRUE(second->m_pNext == first && second->m_nPayloadSize == 5000 && second->m_nUsed == 5000);
  EXPECT_EQ(src.sys().requests().back(), kHeader + 5000);
  memset(big, 0x5A, 5000);

  // Older trunks keep serving what fits in them, up to the last byte.
  EXPECT_EQ(pool.Alloc(4), a + 16);
  EXPECT_EQ(pool.Alloc(1004), a + 20);
  EXPECT_EQ(src.live_blocks(), 2u);
  void* next = pool.Alloc(1);
  EXPECT_EQ(next, pool.m_pFirstTrunk->Payload());
  EXPECT_EQ(src.live_blocks(), 3u);

  // FreeAll returns every trunk; the next request makes a new one.
  pool.FreeAll();
  EXPECT_TRUE(!pool.m_pFirstTrunk && src.live_blocks() == 0 && src.sys().bad_frees() == 0);
  ASSERT_NE(pool.Alloc(8), nullptr);
  EXPECT_EQ(src.live_blocks(), 1u);
}

// Through its allocator slots the pool allocates; reallocation fails and free does nothing.
TEST(GrowOnlyPool, IsAnAllocatorWhoseReallocAndFreeDoNothing) {
  TestMgr src;
  CKD_GrowOnlyPool pool(src.allocator(), 256);
  IKD_Allocator* allocator = &pool;
  auto* p = static_cast<char*>(allocator->m_Alloc(allocator, 10));
  ASSERT_NE(p, nullptr);
  strcpy(p, "grow-only");
  EXPECT_EQ(allocator->m_AllocDebug(allocator, 3, "f.cpp", 1), p + 12);
  EXPECT_EQ(allocator->m_Realloc(allocator, p, 10), nullptr);
  EXPECT_EQ(allocator->m_ReallocDebug(allocator, p, 100, "f.cpp", 2), nullptr);
  allocator->m_Free(allocator, p);
  EXPECT_STREQ(p, "grow-only");  // still valid, and not handed out again
  EXPECT_EQ(allocator->m_Alloc(allocator, 4), p + 16);
}

TEST(GrowOnlyPool, NullAllocatorIsTheDefaultManagers) {
  kdtest::TestDefaultMgr def;
  auto* pool = new CKD_GrowOnlyPool(nullptr, 64);  // the object itself comes from the default too
  ASSERT_NE(pool, nullptr);
  EXPECT_EQ(pool->m_pAllocator, KDMEM_GetDefAllocator());
  ASSERT_NE(pool->Alloc(100), nullptr);
  EXPECT_EQ(def.live_blocks(), 2u);
  EXPECT_EQ(def.sys().requests().back(), kHeader + 100);

  // SetAllocator swaps the source of later trunks; null means the default again.
  TestMgr other;
  pool->FreeAll();
  pool->SetAllocator(other.allocator());
  ASSERT_NE(pool->Alloc(1), nullptr);
  EXPECT_EQ(other.live_blocks(), 1u);
  pool->FreeAll();
  pool->SetAllocator(nullptr);
  EXPECT_EQ(pool->m_pAllocator, KDMEM_GetDefAllocator());

  // The destructor returns what is left.
  ASSERT_NE(pool->Alloc(1), nullptr);
  delete pool;
  EXPECT_TRUE(def.live_blocks() == 0 && def.sys().bad_frees() == 0);
}

TEST(GrowOnlyPool, MissingTrunkGivesNull) {
  TestMgr src;
  CKD_GrowOnlyPool pool(src.allocator(), 64);
  void* a = pool.Alloc(60);
  src.sys().FailAll(true);
  EXPECT_EQ(pool.Alloc(8), nullptr);  // no room left and no trunk to be had
  EXPECT_EQ(src.oom().calls, 1);
  EXPECT_EQ(pool.Alloc(4), static_cast<char*>(a) + 60);  // what fits is still served
  EXPECT_EQ(pool.Alloc(static_cast<size_t>(-1)), nullptr);
  src.sys().FailAll(false);
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
