#include "norvane/memory/memory_mgr.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "norvane/memory/memory_internal.h"
#include "tests/support/test_mgr.h"

namespace {

using kdtest::EventLog;
using kdtest::Kinds;
using kdtest::MgrRecordFault;
using kdtest::TestSystemMgr;

// A manager over a TestSystemMgr, installed as the default, whose system manager, debugger and
// handler all write to one log, so that the order of calls can be checked.
struct Rig {
  EventLog log;
  kdtest::RecordingDebugger debugger{&log};
  kdtest::TestDefaultMgr t{&log};
  CKD_MemoryMgr* mgr = t.mgr();
  TestSystemMgr& sys = t.sys();
  Rig() { KDMEM_UseDebugger(mgr, debugger.table()); }
  // The kinds logged since the last call, e.g. "alloc OnAlloc oom".
  std::string Take() {
    std::string kinds = Kinds(log);
    log.clear();
    return kinds;
  }
};

TEST(MemoryMgr, StaticDefaultIsReadyAtLoad) {
  CKD_MemoryMgr* def = KDMEM_GetDefaultMgr();
  ASSERT_EQ(def, &g_DefNorvaneMgr);
  EXPECT_EQ(MgrRecordFault(def, CKD_MemoryMgr::TypeDefault, &g_CRTSystemMgr, false), "");
  EXPECT_EQ(KDMEM_GetDefAllocator(), &def->m_Allocator);
  // The system-heap manager leaves the reserved slots, Purge, CollectAll and the user word null.
  const _KDMEM_SystemMgr& crt = g_CRTSystemMgr;
  EXPECT_TRUE(!crt.Reserved4 && !crt.Reserved5 && !crt.Purge && !crt.CollectAll && !crt.user);
  EXPECT_EQ(KD_DEFAULT_MMAP_SIZE, static_cast<size_t>(getpagesize()));

  void* p = KDMEM_DefaultRealloc(nullptr, 100, 0);
  ASSERT_NE(p, nullptr);
  p = KDMEM_DefaultRealloc(p, 10000, 0);
  ASSERT_NE(p, nullptr);
  KDMEM_DefaultFree(p, 0);
  KDMEM_DefaultFree(nullptr, 0);
}

// Every allocating call runs the system slot, then the debugger (told of failures too), then on
// failure the handler unless flag bit 0 is set. Free tells the debugger before the system frees.
TEST(MemoryMgr, AllocationStepTellsDebuggerThenHandler) {
  Rig r;
  void* p = KDMEM_Alloc(r.mgr, 24, 0x40);
  ASSERT_NE(p, nullptr);
  // Flags other than bit 0 reach the system manager and the debugger unchanged.
  EXPECT_TRUE(r.log[1].result == p && r.log[1].size == 24 && r.log[0].flags == 0x40 && r.log[1].flags == 0x40);
  EXPECT_EQ(r.Take(), "alloc OnAlloc");

  r.sys.FailNth(1);
  EXPECT_EQ(KDMEM_Alloc(r.mgr, 32, 0), nullptr);
  EXPECT_EQ(r.log[1].result, nullptr);
  EXPECT_EQ(r.Take(), "alloc OnAlloc oom");
  EXPECT_EQ(r.t.oom().last_mgr, r.mgr);
  r.sys.FailNth(1);
  EXPECT_EQ(KDMEM_Alloc(r.mgr, 32, KDMEM_NONLEAVE), nullptr);
  EXPECT_EQ(r.Take(), "alloc OnAlloc");
  // Debug forms pass file and line to both the system manager and the debugger.
  r.sys.FailNth(1);
  EXPECT_EQ(KDMEM_AllocDebug(r.mgr, 8, 0, "f.cpp", 7), nullptr);
  EXPECT_STREQ(r.log[0].file, "f.cpp");
  EXPECT_EQ(r.log[1].line, 7);
  EXPECT_EQ(r.Take(), "alloc OnAllocDebug oom");
  EXPECT_EQ(r.t.oom().calls, 2);

  void* q = KDMEM_ReallocDebug(r.mgr, p, 64, 0, "g.cpp", 9);
  EXPECT_TRUE(r.log[1].block == p && r.log[1].result == q && r.sys.SizeOf(q) == 64);
  EXPECT_EQ(r.Take(), "realloc OnReallocDebug");
  // A failed reallocation keeps the block and reports once.
  r.sys.FailNth(1);
  EXPECT_EQ(KDMEM_Realloc(r.mgr, q, 128, 0), nullptr);
  EXPECT_EQ(r.sys.SizeOf(q), 64u);
  EXPECT_EQ(r.Take(), "realloc OnRealloc oom");
  // A null block is an allocation: the debugger sees OnAlloc, not OnRealloc.
  void* n = KDMEM_Realloc(r.mgr, nullptr, 16, 0);
  EXPECT_EQ(r.Take(), "alloc OnAlloc");

  KDMEM_Free(r.mgr, nullptr, 0);  // passed on to neither
  KDMEM_Free(r.mgr, q, 0);
  KDMEM_Free(r.mgr, n, 0);
  EXPECT_EQ(r.Take(), "OnFree free OnFree free");
  EXPECT_EQ(r.t.live_blocks(), 0u);
  EXPECT_EQ(r.sys.bad_frees(), 0);

  // Without a debugger or handler, a failure is just null.
  KDMEM_UseDebugger(r.mgr, nullptr);
  KDMEM_SetOOMHandler(r.mgr, nullptr, nullptr);
  r.sys.FailNth(1);
  EXPECT_EQ(KDMEM_Alloc(r.mgr, 8, 0), nullptr);
  EXPECT_EQ(r.Take(), "alloc");
}

// The "2" calls: a zero count or unit gives null with no call at all; a product over 0x7FFFFFFF is
// refused as out of memory without asking the system manager or telling the debugger.
TEST(MemoryMgr, CountedVariantsRefuseZeroAndOverflow) {
  Rig r;
  EXPECT_EQ(KDMEM_DefaultAlloc2(0, 8, 0), nullptr);
  EXPECT_EQ(KDMEM_DefaultAlloc2(8, 0, 0), nullptr);
  EXPECT_EQ(KDMEM_DefaultAllocDebug2(0, 8, 0, "x", 1), nullptr);
  EXPECT_EQ(r.Take(), "");
  EXPECT_EQ(KDMEM_DefaultAlloc2(0x80000000u, 1, 0), nullptr);
  EXPECT_EQ(KDMEM_DefaultAlloc2(0x80000000u, 1, KDMEM_NONLEAVE), nullptr);
  EXPECT_EQ(KDMEM_DefaultAlloc2(0x40000000u, 2, 0), nullptr);
  EXPECT_EQ(KDMEM_DefaultAlloc2(size_t(1) << 33, size_t(1) << 33, 0), nullptr);  // product wraps
  EXPECT_EQ(r.Take(), "oom oom oom");
  // The limit itself is accepted and goes to the system manager (made to fail here).
  r.sys.FailAbove(1u << 20);
  EXPECT_EQ(KDMEM_DefaultAlloc2(0x7FFFFFFF, 1, 0), nullptr);
  EXPECT_EQ(r.sys.requests().back(), 0x7FFFFFFFu);
  EXPECT_EQ(r.Take(), "alloc OnAlloc oom");

  void* p = KDMEM_DefaultAlloc2(10, 4, 0);
  ASSERT_EQ(r.sys.SizeOf(p), 40u);
  static_cast<char*>(p)[39] = 'z';
  r.log.clear();
  // Realloc2: a zero keeps the block quietly, an overflow reports and keeps it.
  EXPECT_EQ(KDMEM_DefaultRealloc2(p, 0, 4, 0), nullptr);
  EXPECT_EQ(KDMEM_DefaultReallocDebug2(p, 4, 0, 0, "y", 2), nullptr);
  EXPECT_EQ(KDMEM_DefaultRealloc2(p, 0x80000000u, 1, 0), nullptr);
  EXPECT_EQ(r.Take(), "oom");
  EXPECT_EQ(r.sys.SizeOf(p), 40u);
  p = KDMEM_DefaultRealloc2(p, 20, 4, 0);
  ASSERT_EQ(r.sys.SizeOf(p), 80u);
  EXPECT_EQ(static_cast<char*>(p)[39], 'z');
  KDMEM_DefaultFree(p, 0);
  // A null block allocates.
  r.log.clear();
  p = KDMEM_DefaultRealloc2(nullptr, 3, 3, 0);
  EXPECT_EQ(r.Take(), "alloc OnAlloc");
  KDMEM_DefaultFree(p, 0);
  EXPECT_EQ(r.t.live_blocks(), 0u);
}

// A manager's own IKD_Allocator runs the same steps with flags 0, so a failure always reaches
// the handler.
TEST(MemoryMgr, ManagerAllocatorUsesFlagsZero) {
  Rig r;
  IKD_Allocator* a = &r.mgr->m_Allocator;
  void* p = a->m_AllocDebug(a, 10, "h.cpp", 3);
  p = a->m_Realloc(a, p, 20);
  a->m_Free(a, nullptr);
  a->m_Free(a, p);
  EXPECT_EQ(r.Take(), "alloc OnAllocDebug realloc OnRealloc OnFree free");
  r.sys.FailAll(true);
  EXPECT_EQ(a->m_Alloc(a, 10), nullptr);
  EXPECT_EQ(a->m_ReallocDebug(a, nullptr, 10, "h.cpp", 4), nullptr);
  EXPECT_EQ(r.log[0].flags, 0);
  EXPECT_EQ(r.Take(), "alloc OnAlloc oom alloc OnAllocDebug oom");
}

TEST(MemoryMgr, CreateInitAndDestroy) {
  EventLog log;
  TestSystemMgr sys(&log);
  EXPECT_EQ(KDMEM_CreateNorvaneMgr(nullptr), nullptr);
  sys.FailNth(1);
  EXPECT_EQ(KDMEM_CreateNorvaneMgr(sys.sys()), nullptr);
  log.clear();
  // The record comes from its own system manager.
  CKD_MemoryMgr* mgr = KDMEM_CreateNorvaneMgr(sys.sys());
  ASSERT_NE(mgr, nullptr);
  EXPECT_EQ(Kinds(log), "alloc");
  EXPECT_EQ(sys.SizeOf(mgr), sizeof(CKD_MemoryMgr));
  EXPECT_EQ(MgrRecordFault(mgr, CKD_MemoryMgr::TypeCustom, sys.sys(), true), "");

  KDMEM_PurgeMgr(mgr);
  KDMEM_CollectAll(mgr);
  mgr->PurgeMgr();
  EXPECT_TRUE(sys.purges() == 2 && sys.collects() == 1);

  // Destruction runs CollectAll, returns the record to its system manager, and last gives the
  // extra buffer back to the system heap (a mismatch would be reported by the sanitizers).
  mgr->m_pExtraBuffer = malloc(32);
  log.clear();
  KDMEM_DestroyNorvaneMgr(mgr);
  EXPECT_EQ(Kinds(log), "collect free");
  EXPECT_EQ(log[1].block, mgr);
  EXPECT_TRUE(sys.live_blocks() == 0 && sys.bad_frees() == 0);
  KDMEM_DestroyNorvaneMgr(nullptr);

  // Init fills an existing record the same way, with the type given.
  CKD_MemoryMgr record;
  record.m_pDebugger = reinterpret_cast<KDMEM_Debugger*>(&log);
  record.Init(sys.sys(), CKD_MemoryMgr::TypePool);
  EXPECT_EQ(MgrRecordFault(&record, CKD_MemoryMgr::TypePool, sys.sys(), true), "");
  void* p = record.Alloc(5, 0);
  EXPECT_EQ(sys.SizeOf(p), 5u);
  record.Free(p, 0);

  // Optional slots left null are skipped, as are a missing debugger and handler.
  CKD_MemoryMgr* plain = KDMEM_CreateNorvaneMgr(&g_CRTSystemMgr);
  KDMEM_PurgeMgr(plain);
  KDMEM_OutputDebugTag(plain, "no debugger");
  KDMEM_ReportOOM(plain);
  KDMEM_DestroyNorvaneMgr(plain);
}

TEST(MemoryMgr, DefaultSwitchingTagsAndReports) {
  Rig r;  // installs its manager with KDMEM_SetDefaultMgr
  void* p = KDMEM_DefaultAllocDebug(12, 0, "d.cpp", 1);
  p = KDMEM_DefaultReallocDebug(p, 24, 0, "d.cpp", 2);
  KDMEM_OutputDebugTag(r.mgr, "phase 2");
  KDMEM_DefaultFree(p, 0);
  KDMEM_ReportOOM(r.mgr);
  EXPECT_STREQ(r.log[4].file, "phase 2");
  EXPECT_EQ(r.Take(), "alloc OnAllocDebug realloc OnReallocDebug OnTag OnFree free oom");

  // A null default is accepted; default allocations then fail quietly.
  KDMEM_SetDefaultMgr(nullptr);
  EXPECT_EQ(KDMEM_DefaultAlloc(8, 0), nullptr);
  EXPECT_EQ(KDMEM_DefaultAlloc2(8, 8, 0), nullptr);
  EXPECT_EQ(KDMEM_GetDefAllocator(), nullptr);
  KDMEM_DefaultFree(nullptr, 0);
  EXPECT_EQ(KDMEM_ResetSystemMgr(), &g_DefNorvaneMgr);
  EXPECT_EQ(KDMEM_GetDefaultMgr(), &g_DefNorvaneMgr);
}

}  // namespace
