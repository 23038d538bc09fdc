#include "norvane/memory/object.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include "tests/support/test_mgr.h"

namespace {

using kdtest::EventLog;
using kdtest::Kinds;
using kdtest::RecordingDebugger;
using kdtest::TestDefaultMgr;
using kdtest::TestSystemMgr;

struct Widget : CKD_Object {
  explicit Widget(int v = 0) : value(v) { ++constructed; }
  ~Widget() { ++destroyed; }
  int value;
  char pad[20] = {};
  static int constructed, destroyed;
};
int Widget::constructed = 0;
int Widget::destroyed = 0;

struct Gadget : CKD_AllocObject {
  Gadget() : value(7) {}
  int value;
};

TEST(Object, NewAndDeleteGoThroughTheDefaultManager) {
  EventLog log;
  TestDefaultMgr t(&log);
  RecordingDebugger debugger(&log);
  KDMEM_UseDebugger(t.mgr(), debugger.table());

  Widget* w = new Widget(3);
  ASSERT_NE(w, nullptr);
  EXPECT_EQ(Kinds(log), "alloc OnAlloc");
  EXPECT_EQ(log[0].size, sizeof(Widget));
  EXPECT_EQ(w->value, 3);
  log.clear();
  delete w;
  EXPECT_EQ(Kinds(log), "OnFree free");
  EXPECT_EQ(Widget::destroyed, 1);

  // The forms with file and line use AllocDebug and pass the position on.
  log.clear();
  Widget* d = new (__FILE__, 1234) Widget(4);
  EXPECT_EQ(Kinds(log), "alloc OnAllocDebug");
  EXPECT_EQ(log[1].line, 1234);
  delete d;

  Widget* arr = new Widget[3]{Widget(1), Widget(2), Widget(3)};
  EXPECT_EQ(arr[2].value, 3);
  delete[] arr;
  Widget* darr = new (__FILE__, __LINE__) Widget[2]{Widget(5), Widget(6)};
  delete[] darr;

  // A failed new calls the handler once and yields null without constructing.
  int before = Widget::constructed;
  log.clear();
  t.sys().FailAll(true);
  EXPECT_EQ(new Widget(9), nullptr);
  EXPECT_EQ(new (__FILE__, __LINE__) Widget[4], nullptr);
  EXPECT_EQ(Widget::constructed, before);
  EXPECT_EQ(t.oom().calls, 2);
  EXPECT_EQ(Kinds(log), "alloc OnAlloc oom alloc OnAllocDebug oom");
  t.sys().FailAll(false);

  KDMEM_UseDebugger(t.mgr(), nullptr);
  EXPECT_EQ(t.live_blocks(), 0u);
  EXPECT_EQ(t.sys().bad_frees(), 0);
}

TEST(Object, AllocObjectRemembersItsAllocator) {
  TestDefaultMgr def;
  EventLog log;
  TestSystemMgr other_sys(&log);
  CKD_MemoryMgr* other = KDMEM_CreateNorvaneMgr(other_sys.sys());
  IKD_Allocator* a = &other->m_Allocator;

  Gadget* g = new (a) Gadget;
  ASSERT_NE(g, nullptr);
  EXPECT_EQ(g->m_pAllocator, a);
  EXPECT_EQ(g->value, 7);
  EXPECT_EQ(other_sys.live_blocks(), 2u);  // the record and the object
  delete g;
  EXPECT_EQ(other_sys.live_blocks(), 1u);

  Gadget* gd = new (a, "file.cpp", 5) Gadget;
  EXPECT_STREQ(log.back().file, "file.cpp");
  delete gd;

  // A null allocator means the default manager, and the object records null.
  Gadget* n = new (static_cast<IKD_Allocator*>(nullptr)) Gadget;
  EXPECT_EQ(n->m_pAllocator, nullptr);
  EXPECT_EQ(def.live_blocks(), 1u);
  delete n;
  EXPECT_EQ(def.live_blocks(), 0u);

  // The forms of delete given an allocator free through it; null means the default manager.
  void* raw = CKD_AllocObject::operator new(16, a);
  CKD_AllocObject::operator delete(raw, a);
  raw = CKD_AllocObject::operator new(16, nullptr, "f", 1);
  CKD_AllocObject::operator delete(raw, nullptr, "f", 1);
  CKD_AllocObject::operator delete(nullptr, static_cast<IKD_Allocator*>(nullptr));

  // A failing caller's allocator yields null without constructing.
  other_sys.FailAll(true);
  EXPECT_EQ(new (a) Gadget, nullptr);
  other_sys.FailAll(false);

  EXPECT_EQ(def.live_blocks(), 0u);
  KDMEM_DestroyNorvaneMgr(other);
  EXPECT_EQ(other_sys.live_blocks(), 0u);
  EXPECT_EQ(other_sys.bad_frees() + def.sys().bad_frees(), 0);
}

TEST(ObjectDeathTest, AllocObjectStopsWhenTheDefaultManagerFails) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        TestDefaultMgr t;
        t.sys().FailAll(true);
        KDMEM_SetOOMHandler(
            t.mgr(), [](CKD_MemoryMgr*, void*) { return std::fprintf(stderr, "handler ran\n"); }, nullptr);
        Gadget* g = new (static_cast<IKD_Allocator*>(nullptr)) Gadget;
        // Only reached if new returned: make that visible as a normal exit.
        std::exit(g ? 3 : 4);
      },
      "handler ran");
}

}  // namespace
