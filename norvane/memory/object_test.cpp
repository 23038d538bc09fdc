#include "norvane/memory/object.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include "tests/support/test_mgr.h"

namespace {

using kdtest::EventLog;
using kdtest::Kinds;
using kdtest::TestDefaultMgr;

struct Widget : CKD_Object {
  explicit Widget(int v = 0) : value(v) { ++constructed; }
  int value;
  char pad[20] = {};
  static int constructed;
};
int Widget::constructed = 0;

struct Gadget : CKD_AllocObject {
  Gadget() : value(7) {}
  int value;
};

TEST(Object, NewAndDeleteGoThroughTheDefaultManager) {
  EventLog log;
  TestDefaultMgr t(&log);
  kdtest::RecordingDebugger debugger(&log);
  KDMEM_UseDebugger(t.mgr(), debugger.table());

  Widget* w = new Widget(3);
  ASSERT_NE(w, nullptr);
  EXPECT_EQ(log[0].size, sizeof(Widget));
  EXPECT_EQ(w->value, 3);
  delete w;
  // The forms with file and line use AllocDebug and pass the position on.
  Widget* d = new (__FILE__, 1234) Widget(4);
  EXPECT_EQ(log[5].line, 1234);
  delete d;
  EXPECT_EQ(Kinds(log), "alloc OnAlloc OnFree free alloc OnAllocDebug OnFree free");

  Widget* arr = new Widget[3]{Widget(1), Widget(2), Widget(3)};
  EXPECT_EQ(arr[2].value, 3);
  delete[] arr;

  // A failed new calls the handler once and yields null without constructing.
  int before = Widget::constructed;
  log.clear();
  t.sys().FailAll(true);
  EXPECT_EQ(new Widget(9), nullptr);
  EXPECT_EQ(new (__FILE__, __LINE__) Widget[4], nullptr);
  EXPECT_EQ(Widget::constructed, before);
  EXPECT_EQ(Kinds(log), "alloc OnAlloc oom alloc OnAllocDebug oom");
  KDMEM_UseDebugger(t.mgr(), nullptr);
  EXPECT_TRUE(t.live_blocks() == 0 && t.sys().bad_frees() == 0);
}

TEST(Object, AllocObjectRemembersItsAllocator) {
  TestDefaultMgr def;
  EventLog log;
  kdtest::TestMgr other(&log);
  IKD_Allocator* a = other.allocator();

  Gadget* g = new (a) Gadget;
  ASSERT_NE(g, nullptr);
  EXPECT_TRUE(g->m_pAllocator == a && g->value == 7 && other.live_blocks() == 1);
  delete g;
  EXPECT_EQ(other.live_blocks(), 0u);
  Gadget* gd = new (a, "file.cpp", 5) Gadget;
  EXPECT_STREQ(log.back().file, "file.cpp");
  delete gd;

  // A null allocator means the default manager, and the object records null.
  Gadget* n = new (static_cast<IKD_Allocator*>(nullptr)) Gadget;
  EXPECT_EQ(n->m_pAllocator, nullptr);
  EXPECT_EQ(def.live_blocks(), 1u);
  delete n;

  // The forms of delete given an allocator free through it; null means the default manager.
  void* raw = CKD_AllocObject::operator new(16, a);
  CKD_AllocObject::operator delete(raw, a);
  raw = CKD_AllocObject::operator new(16, nullptr, "f", 1);
  CKD_AllocObject::operator delete(raw, nullptr, "f", 1);
  CKD_AllocObject::operator delete(nullptr, static_cast<IKD_Allocator*>(nullptr));

  // A failing caller's allocator yields null without constructing.
  other.sys().FailAll(true);
  EXPECT_EQ(new (a) Gadget, nullptr);
  EXPECT_TRUE(def.live_blocks() == 0 && other.live_blocks() == 0);
  EXPECT_EQ(other.sys().bad_frees() + def.sys().bad_frees(), 0);
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
