#include "norvane/memory/memory_mgr.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

#include "norvane/memory/memory_internal.h"
#include "tests/support/test_mgr.h"

namespace {

using kdtest::EventLog;
using kdtest::Kinds;
using kdtest::OOMCounter;
using kdtest::RecordingDebugger;
using kdtest::TestDefaultMgr;
using kdtest::TestSystemMgr;

// A manager over a TestSystemMgr with a recording debugger and a counting handler, all writing
// to one log so that the order of calls can be checked.
struct Rig {
  EventLog log;
  TestSystemMgr sys{&log};
  RecordingDebugger debugger{&log};
  OOMCounter oom{&log};
  CKD_MemoryMgr* mgr = nullptr;

  Rig() {
    mgr = KDMEM_CreateNorvaneMgr(sys.sys());
    KDMEM_UseDebugger(mgr, debugger.table());
    KDMEM_SetOOMHandler(mgr, OOMCounter::Handler, &oom);
    log.clear();
  }
  ~Rig() { KDMEM_DestroyNorvaneMgr(mgr); }
};

TEST(MemoryMgr, StaticDefaultIsReadyAtLoad) {
  CKD_MemoryMgr* def = KDMEM_GetDefaultMgr();
  ASSERT_EQ(def, &g_DefNorvaneMgr);
  EXPECT_EQ(def->m_Type, CKD_MemoryMgr::TypeDefault);
  EXPECT_EQ(def->m_pSystemMgr, &g_CRTSystemMgr);
  EXPECT_EQ(def->m_pDebugger, nullptr);
  EXPECT_EQ(def->m_pOOMHandler, nullptr);
  EXPECT_FALSE(def->m_bOwned);
  EXPECT_EQ(def->m_Allocator.m_pMgr, def);
  EXPECT_EQ(KDMEM_GetDefAllocator(), &def->m_Allocator);
  // The built-in system manager leaves the reserved slots, Purge, CollectAll and user word null.
  EXPECT_EQ(g_CRTSystemMgr.Reserved4, nullptr);
  EXPECT_EQ(g_CRTSystemMgr.Reserved5, nullptr);
  EXPECT_EQ(g_CRTSystemMgr.Purge, nullptr);
  EXPECT_EQ(g_CRTSystemMgr.CollectAll, nullptr);
  EXPECT_EQ(g_CRTSystemMgr.user, nullptr);
  EXPECT_EQ(KD_ALLOC_GRANULARITY, 65536u);
  EXPECT_EQ(KD_DEFAULT_MMAP_SIZE, static_cast<size_t>(getpagesize()));

  void* p = KDMEM_DefaultRealloc(nullptr, 100, 0);
  ASSERT_NE(p, nullptr);
  p = KDMEM_DefaultRealloc(p, 10000, 0);
  ASSERT_NE(p, nullptr);
  KDMEM_DefaultFree(p, 0);
  KDMEM_DefaultFree(nullptr, 0);
}

TEST(MemoryMgr, AllocationStepTellsDebuggerThenHandler) {
  Rig r;
  void* p = KDMEM_Alloc(r.mgr, 24, 0x40);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(Kinds(r.log), "alloc OnAlloc");
  EXPECT_EQ(r.log[1].result, p);
  EXPECT_EQ(r.log[1].size, 24u);
  // Flags other than bit 0 reach the system manager and the debugger unchanged.
  EXPECT_EQ(r.log[0].flags, 0x40);
  EXPECT_EQ(r.log[1].flags, 0x40);

  r.log.clear();
  r.sys.FailNth(1);
  EXPECT_EQ(KDMEM_Alloc(r.mgr, 32, 0), nullptr);
  EXPECT_EQ(Kinds(r.log), "alloc OnAlloc oom");
  EXPECT_EQ(r.log[1].result, nullptr);
  EXPECT_EQ(r.oom.calls, 1);
  EXPECT_EQ(r.oom.last_mgr, r.mgr);

  // Quiet failure: the debugger still sees it, the handler does not run.
  r.log.clear();
  r.sys.FailNth(1);
  EXPECT_EQ(KDMEM_Alloc(r.mgr, 32, KDMEM_NONLEAVE), nullptr);
  EXPECT_EQ(Kinds(r.log), "alloc OnAlloc");
  EXPECT_EQ(r.oom.calls, 1);

  // Debug forms pass file and line to both the system manager and the debugger.
  r.log.clear();
  r.sys.FailNth(1);
  EXPECT_EQ(KDMEM_AllocDebug(r.mgr, 8, 0, "f.cpp", 7), nullptr);
  EXPECT_EQ(Kinds(r.log), "alloc OnAllocDebug oom");
  EXPECT_STREQ(r.log[0].file, "f.cpp");
  EXPECT_EQ(r.log[1].line, 7);
  EXPECT_EQ(r.oom.calls, 2);

  // Without a debugger or handler, a failure is just null.
  KDMEM_UseDebugger(r.mgr, nullptr);
  KDMEM_SetOOMHandler(r.mgr, nullptr, nullptr);
  r.log.clear();
  r.sys.FailNth(1);
  EXPECT_EQ(KDMEM_Alloc(r.mgr, 8, 0), nullptr);
  EXPECT_EQ(Kinds(r.log), "alloc");
  KDMEM_Free(r.mgr, p, 0);
}

TEST(MemoryMgr, ReallocAndFree) {
  Rig r;
  // A null block is an allocation: the debugger sees OnAlloc, not OnRealloc.
  void* p = KDMEM_Realloc(r.mgr, nullptr, 16, 0);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(Kinds(r.log), "alloc OnAlloc");

  r.log.clear();
  void* q = KDMEM_ReallocDebug(r.mgr, p, 64, 0, "g.cpp", 9);
  ASSERT_NE(q, nullptr);
  EXPECT_EQ(Kinds(r.log), "realloc OnReallocDebug");
  EXPECT_EQ(r.log[1].block, p);
  EXPECT_EQ(r.log[1].result, q);
  EXPECT_EQ(r.sys.SizeOf(q), 64u);

  // A failed reallocation keeps the block and reports once.
  r.log.clear();
  r.sys.FailNth(1);
  EXPECT_EQ(KDMEM_Realloc(r.mgr, q, 128, 0), nullptr);
  EXPECT_EQ(Kinds(r.log), "realloc OnRealloc oom");
  EXPECT_EQ(r.sys.SizeOf(q), 64u);

  // Free tells the debugger first; a null block is not passed on at all.
  r.log.clear();
  KDMEM_Free(r.mgr, nullptr, 0);
  EXPECT_EQ(Kinds(r.log), "");
  KDMEM_Free(r.mgr, q, 0);
  EXPECT_EQ(Kinds(r.log), "OnFree free");
  EXPECT_EQ(r.sys.live_blocks(), 1u);  // the manager's own record
  EXPECT_EQ(r.sys.bad_frees(), 0);
}

TEST(MemoryMgr, CountedVariantsRefuseZeroAndOverflow) {
  EventLog log;
  TestDefaultMgr t(&log);
  RecordingDebugger debugger(&log);
  KDMEM_UseDebugger(t.mgr(), debugger.table());

  // Zero count or unit: null with no call at all, even with bit 0 clear.
  EXPECT_EQ(KDMEM_DefaultAlloc2(0, 8, 0), nullptr);
  EXPECT_EQ(KDMEM_DefaultAlloc2(8, 0, 0), nullptr);
  EXPECT_EQ(KDMEM_DefaultAllocDebug2(0, 8, 0, "x", 1), nullptr);
  EXPECT_EQ(Kinds(log), "");

  // Over 0x7FFFFFFF bytes: refused as out of memory, never reaching system manager or debugger.
  EXPECT_EQ(KDMEM_DefaultAlloc2(0x80000000u, 1, 0), nullptr);
  EXPECT_EQ(Kinds(log), "oom");
  EXPECT_EQ(KDMEM_DefaultAlloc2(0x80000000u, 1, KDMEM_NONLEAVE), nullptr);
  EXPECT_EQ(KDMEM_DefaultAlloc2(0x40000000u, 2, 0), nullptr);
  EXPECT_EQ(KDMEM_DefaultAlloc2(size_t(1) << 33, size_t(1) << 33, 0), nullptr);  // product wraps
  EXPECT_EQ(Kinds(log), "oom oom oom");

  // The limit itself is accepted and goes to the system manager (made to fail here).
  log.clear();
  t.sys().FailAbove(1u << 20);
  EXPECT_EQ(KDMEM_DefaultAlloc2(0x7FFFFFFF, 1, 0), nullptr);
  EXPECT_EQ(Kinds(log), "alloc OnAlloc oom");
  EXPECT_EQ(t.sys().requests().back(), 0x7FFFFFFFu);

  log.clear();
  void* p = KDMEM_DefaultAlloc2(10, 4, 0);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(t.sys().SizeOf(p), 40u);
  static_cast<char*>(p)[39] = 'z';

  // Realloc2: zero keeps the block, overflow reports and keeps it, null block allocates.
  log.clear();
  EXPECT_EQ(KDMEM_DefaultRealloc2(p, 0, 4, 0), nullptr);
  EXPECT_EQ(KDMEM_DefaultReallocDebug2(p, 4, 0, 0, "y", 2), nullptr);
  EXPECT_EQ(Kinds(log), "");
  EXPECT_EQ(KDMEM_DefaultRealloc2(p, 0x80000000u, 1, 0), nullptr);
  EXPECT_EQ(Kinds(log), "oom");
  EXPECT_EQ(t.sys().SizeOf(p), 40u);
  p = KDMEM_DefaultRealloc2(p, 20, 4, 0);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(static_cast<char*>(p)[39], 'z');
  EXPECT_EQ(t.sys().SizeOf(p), 80u);
  KDMEM_DefaultFree(p, 0);

  log.clear();
  p = KDMEM_DefaultRealloc2(nullptr, 3, 3, 0);
  EXPECT_EQ(Kinds(log), "alloc OnAlloc");
  KDMEM_DefaultFree(p, 0);
  KDMEM_UseDebugger(t.mgr(), nullptr);
  EXPECT_EQ(t.live_blocks(), 0u);
}

TEST(MemoryMgr, ManagerAllocatorUsesFlagsZero) {
  Rig r;
  IKD_Allocator* a = &r.mgr->m_Allocator;
  EXPECT_EQ(a->m_pMgr, r.mgr);
  void* p = a->m_AllocDebug(a, 10, "h.cpp", 3);
  EXPECT_EQ(Kinds(r.log), "alloc OnAllocDebug");
  p = a->m_Realloc(a, p, 20);
  EXPECT_EQ(r.log.back().kind, "OnRealloc");
  a->m_Free(a, nullptr);
  a->m_Free(a, p);
  EXPECT_EQ(r.log.back().kind, "free");

  // The allocator always passes flags 0, so a failure always reaches the handler.
  r.log.clear();
  r.sys.FailAll(true);
  EXPECT_EQ(a->m_Alloc(a, 10), nullptr);
  EXPECT_EQ(a->m_ReallocDebug(a, nullptr, 10, "h.cpp", 4), nullptr);
  EXPECT_EQ(Kinds(r.log), "alloc OnAlloc oom alloc OnAllocDebug oom");
  EXPECT_EQ(r.log[0].flags, 0);
}

TEST(MemoryMgr, CreateAndDestroy) {
  EventLog log;
  TestSystemMgr sys(&log);
  EXPECT_EQ(KDMEM_CreateNorvaneMgr(nullptr), nullptr);
  sys.FailNth(1);
  EXPECT_EQ(KDMEM_CreateNorvaneMgr(sys.sys()), nullptr);

  log.clear();
  CKD_MemoryMgr* mgr = KDMEM_CreateNorvaneMgr(sys.sys());
  ASSERT_NE(mgr, nullptr);
  EXPECT_EQ(Kinds(log), "alloc");
  EXPECT_EQ(sys.SizeOf(mgr), sizeof(CKD_MemoryMgr));
  EXPECT_EQ(mgr->m_Type, CKD_MemoryMgr::TypeCustom);
  EXPECT_EQ(mgr->m_pSystemMgr, sys.sys());
  EXPECT_EQ(mgr->m_pDebugger, nullptr);
  EXPECT_EQ(mgr->m_pOOMHandler, nullptr);
  EXPECT_EQ(mgr->m_pProcessContext, nullptr);
  EXPECT_EQ(mgr->m_pExtraBuffer, nullptr);
  EXPECT_TRUE(mgr->m_bOwned);
  EXPECT_EQ(mgr->m_Allocator.m_pMgr, mgr);

  KDMEM_PurgeMgr(mgr);
  KDMEM_CollectAll(mgr);
  mgr->PurgeMgr();
  EXPECT_EQ(sys.purges(), 2);
  EXPECT_EQ(sys.collects(), 1);

  // The extra buffer goes back to the system heap after everything else (a mismatch would be
  // reported by the sanitizers).
  mgr->m_pExtraBuffer = malloc(32);
  log.clear();
  KDMEM_DestroyNorvaneMgr(mgr);
  EXPECT_EQ(Kinds(log), "collect free");
  EXPECT_EQ(log[1].block, mgr);
  EXPECT_EQ(sys.live_blocks(), 0u);
  EXPECT_EQ(sys.bad_frees(), 0);

  KDMEM_DestroyNorvaneMgr(nullptr);
  // Optional slots left null are skipped.
  CKD_MemoryMgr* plain = KDMEM_CreateNorvaneMgr(&g_CRTSystemMgr);
  KDMEM_PurgeMgr(plain);
  KDMEM_OutputDebugTag(plain, "no debugger");
  KDMEM_ReportOOM(plain);
  KDMEM_DestroyNorvaneMgr(plain);
}

TEST(MemoryMgr, InitFillsAnExistingRecord) {
  EventLog log;
  TestSystemMgr sys(&log);
  CKD_MemoryMgr record;
  record.m_pDebugger = reinterpret_cast<KDMEM_Debugger*>(&log);
  record.Init(sys.sys(), CKD_MemoryMgr::TypePool);
  EXPECT_EQ(record.m_Type, CKD_MemoryMgr::TypePool);
  EXPECT_EQ(record.m_pDebugger, nullptr);
  EXPECT_TRUE(record.m_bOwned);
  EXPECT_EQ(record.m_Allocator.m_pMgr, &record);
  void* p = record.Alloc(5, 0);
  EXPECT_EQ(sys.SizeOf(p), 5u);
  record.Free(p, 0);
}

TEST(MemoryMgr, DefaultSwitchingAndTags) {
  EventLog log;
  TestSystemMgr sys(&log);
  RecordingDebugger debugger(&log);
  OOMCounter oom;
  CKD_MemoryMgr* mgr = KDMEM_CreateNorvaneMgr(sys.sys());
  KDMEM_SetOOMHandler(mgr, OOMCounter::Handler, &oom);
  KDMEM_UseDebugger(mgr, debugger.table());
  log.clear();

  KDMEM_SetDefaultMgr(mgr);
  EXPECT_EQ(KDMEM_GetDefaultMgr(), mgr);
  EXPECT_EQ(KDMEM_GetDefAllocator(), &mgr->m_Allocator);
  void* p = KDMEM_DefaultAllocDebug(12, 0, "d.cpp", 1);
  p = KDMEM_DefaultReallocDebug(p, 24, 0, "d.cpp", 2);
  KDMEM_OutputDebugTag(mgr, "phase 2");
  KDMEM_DefaultFree(p, 0);
  EXPECT_EQ(Kinds(log), "alloc OnAllocDebug realloc OnReallocDebug OnTag OnFree free");
  EXPECT_STREQ(log[4].file, "phase 2");
  KDMEM_ReportOOM(mgr);
  EXPECT_EQ(oom.calls, 1);

  // A null default is accepted; default allocations then fail quietly.
  KDMEM_SetDefaultMgr(nullptr);
  EXPECT_EQ(KDMEM_DefaultAlloc(8, 0), nullptr);
  EXPECT_EQ(KDMEM_DefaultAlloc2(8, 8, 0), nullptr);
  EXPECT_EQ(KDMEM_GetDefAllocator(), nullptr);
  KDMEM_DefaultFree(nullptr, 0);

  EXPECT_EQ(KDMEM_ResetSystemMgr(), &g_DefNorvaneMgr);
  EXPECT_EQ(KDMEM_GetDefaultMgr(), &g_DefNorvaneMgr);
  KDMEM_DestroyNorvaneMgr(mgr);
  EXPECT_EQ(sys.live_blocks(), 0u);
}

}  // namespace
