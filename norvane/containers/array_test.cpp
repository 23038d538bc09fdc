#include "norvane/containers/array.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "tests/support/test_mgr.h"

namespace {

using kdtest::TestDefaultMgr;

TEST(BasicArray, GrowthRuleAndGrowBy) {
  CKD_ArrayTemplate<int> a;
  std::vector<int> capacities;
  for (int i = 0; i < 40; ++i) {
    ASSERT_TRUE(a.Add(i));
    if (capacities.empty() || capacities.back() != a.GetMaxSize()) capacities.push_back(a.GetMaxSize());
  }
  EXPECT_EQ(capacities, (std::vector<int>{1, 2, 3, 4, 6, 9, 13, 19, 28, 42}));
  for (int i = 0; i < 40; ++i) ASSERT_EQ(a[i], i);

  // A stored grow-by replaces the half-size rule; -1 keeps it, 0 switches back.
  CKD_ArrayTemplate<int> b;
  b.SetSize(1, 10);
  EXPECT_EQ(b.GetMaxSize(), 1);
  b.SetSize(2, -1);
  EXPECT_EQ(b.GetMaxSize(), 11);
  b.SetSize(12, -1);
  EXPECT_EQ(b.GetMaxSize(), 21);
  b.SetSize(40, -1);  // more than one step needed: exactly what is asked
  EXPECT_EQ(b.GetMaxSize(), 40);
  b.SetSize(41, 0);
  EXPECT_EQ(b.GetMaxSize(), 60);
  EXPECT_EQ(b.GetGrowBy(), 0);

  // Shrinking keeps the block; growing back inside it zero-fills; 0 frees it.
  b[5] = 7;
  b.SetSize(3, -1);
  EXPECT_EQ(b.GetMaxSize(), 60);
  b.SetSize(10, -1);
  EXPECT_EQ(b[5], 0);
  b.SetSize(0, -1);
  EXPECT_EQ(b.GetMaxSize(), 0);
  EXPECT_EQ(b.GetData(), nullptr);
}

TEST(BasicArray, UnitSizeAndLimits) {
  EXPECT_EQ(CKD_BasicArray(0x10000000).GetUnitSize(), 0x10000000);
  EXPECT_EQ(CKD_BasicArray(0x10000001).GetUnitSize(), 4);
  EXPECT_EQ(CKD_BasicArray(-1).GetUnitSize(), 4);
  EXPECT_EQ(CKD_BasicArray(0).GetUnitSize(), 0);

  TestDefaultMgr t;
  CKD_ArrayTemplate<int> a;
  ASSERT_TRUE(a.SetSize(5));
  // Exactly 256 MiB is allowed: the request reaches the manager (made to fail here), and a
  // failed growth keeps the array.
  t.sys().FailAbove(1 << 20);
  EXPECT_FALSE(a.SetSize(0x4000000, -1));
  EXPECT_EQ(t.sys().requests().back(), 0x10000000u);
  EXPECT_EQ(a.GetSize(), 5);
  EXPECT_NE(a.GetData(), nullptr);
  // One more element is over the limit: the array is emptied without asking for memory.
  size_t requests = t.sys().requests().size();
  EXPECT_FALSE(a.SetSize(0x4000001, -1));
  EXPECT_EQ(t.sys().requests().size(), requests);
  EXPECT_EQ(a.GetSize(), 0);
  EXPECT_EQ(a.GetData(), nullptr);
  ASSERT_TRUE(a.SetSize(2));
  EXPECT_FALSE(a.SetSize(-1, -1));
  EXPECT_EQ(a.GetMaxSize(), 0);

  // A first allocation that fails leaves the array empty; a growth that fails keeps it.
  t.sys().FailAll(true);
  EXPECT_FALSE(a.SetSize(3));
  EXPECT_EQ(a.GetSize(), 0);
  t.sys().FailAll(false);
  ASSERT_TRUE(a.Add(42));
  t.sys().FailAll(true);
  EXPECT_FALSE(a.Add(43));
  EXPECT_EQ(a.GetSize(), 1);
  EXPECT_EQ(a[0], 42);
  EXPECT_EQ(t.oom().calls, 3);  // the 256 MiB request and the two failures above
  t.sys().FailAll(false);
  a.RemoveAll();
  EXPECT_EQ(t.live_blocks(), 0u);

  // An array of unit size 0 can hold nothing.
  CKD_BasicArray zero(0);
  EXPECT_FALSE(zero.SetSize(10));
  EXPECT_EQ(zero.GetSize(), 0);
}

TEST(BasicArray, InsertRemoveAndAccess) {
  CKD_ArrayTemplate<int> a;
  for (int v : {10, 11, 12}) a.Add(v);
  int* gap = static_cast<int*>(a.InsertSpaceAt(5, 2));
  ASSERT_EQ(gap, a.GetDataPtr(5));
  EXPECT_EQ(a.GetSize(), 7);
  for (int i = 3; i < 7; ++i) EXPECT_EQ(a[i], 0);
  EXPECT_EQ(a.InsertSpaceAt(-1, 1), nullptr);
  EXPECT_EQ(a.InsertSpaceAt(1, 0), nullptr);
  ASSERT_NE(a.InsertSpaceAt(1, 2), nullptr);
  EXPECT_EQ(a.GetSize(), 9);
  EXPECT_EQ(a[0], 10);
  EXPECT_EQ(a[1], 0);
  EXPECT_EQ(a[3], 11);

  CKD_ArrayTemplate<int> b;
  for (int v : {1, 2, 3}) b.Add(v);
  EXPECT_FALSE(b.RemoveAt(2, 2));
  EXPECT_FALSE(b.RemoveAt(-1, 1));
  EXPECT_FALSE(b.RemoveAt(0, 0));
  int capacity = b.GetMaxSize();
  EXPECT_TRUE(b.RemoveAt(1, 2));
  EXPECT_EQ(b.GetSize(), 1);
  EXPECT_EQ(b.GetMaxSize(), capacity);
  EXPECT_EQ(b.GetData()[1], 2);  // vacated slots are not cleared
  EXPECT_EQ(b.GetDataPtr(1), nullptr);
  EXPECT_EQ(b.GetDataPtr(-1), nullptr);
  EXPECT_EQ(b.GetAt(3), 0);
  EXPECT_FALSE(b.SetAt(1, 5));
  b.RemoveAll();
  EXPECT_EQ(b.GetDataPtr(0), nullptr);

  // InsertAt of another array, of an empty one, of null and of itself.
  CKD_ArrayTemplate<int> c, d, empty;
  for (int v : {1, 2}) c.Add(v);
  for (int v : {7, 8, 9}) d.Add(v);
  EXPECT_FALSE(c.InsertAt(0, nullptr));
  EXPECT_TRUE(c.InsertAt(1, &empty));
  EXPECT_TRUE(c.InsertAt(1, &d));
  EXPECT_TRUE(c.InsertAt(0, &c));
  std::vector<int> got(c.GetData(), c.GetData() + c.GetSize());
  EXPECT_EQ(got, (std::vector<int>{1, 7, 8, 9, 2, 1, 7, 8, 9, 2}));
  EXPECT_TRUE(d.Append(d));
  EXPECT_TRUE(d.Append(empty));
  got.assign(d.GetData(), d.GetData() + d.GetSize());
  EXPECT_EQ(got, (std::vector<int>{7, 8, 9, 7, 8, 9}));
  EXPECT_EQ(d.Find(9), 2);
  EXPECT_EQ(d.Find(9, 3), 5);
  EXPECT_EQ(d.Find(4), -1);
}

TEST(BasicArray, CopiesTakeTheirOwnAllocator) {
  TestDefaultMgr t;
  kdtest::TestSystemMgr other_sys;
  CKD_MemoryMgr* other = KDMEM_CreateNorvaneMgr(other_sys.sys());
  {
    CKD_ArrayTemplate<int> a(&other->m_Allocator);
    a.SetSize(0, 10);
    for (int i = 0; i < 5; ++i) a.Add(i * i);
    EXPECT_EQ(other_sys.live_blocks(), 2u);  // the manager's record and the block
    EXPECT_EQ(t.live_blocks(), 0u);

    CKD_ArrayTemplate<int> copy(a);  // default allocator, grow-by 0
    EXPECT_EQ(copy.GetGrowBy(), 0);
    EXPECT_EQ(copy.GetSize(), 5);
    EXPECT_EQ(copy[4], 16);
    EXPECT_EQ(t.live_blocks(), 1u);

    CKD_ArrayTemplate<int> assigned;
    assigned.Add(99);
    assigned = a;
    EXPECT_EQ(assigned.GetSize(), 5);
    EXPECT_EQ(assigned[2], 4);
  }
  EXPECT_EQ(t.live_blocks(), 0u);
  EXPECT_EQ(other_sys.live_blocks(), 1u);
  KDMEM_DestroyNorvaneMgr(other);
}

TEST(BasicArray, MatchesVectorUnderRandomEdits) {
  std::mt19937 rng(4411);
  CKD_ArrayTemplate<int> a;
  std::vector<int> model;
  for (int step = 0; step < 4000; ++step) {
    int op = static_cast<int>(rng() % 6);
    int n = static_cast<int>(model.size());
    int v = static_cast<int>(rng());
    if (op <= 1) {
      ASSERT_TRUE(a.Add(v));
      model.push_back(v);
    } else if (op == 2) {
      int index = static_cast<int>(rng() % (n + 3));
      int count = 1 + static_cast<int>(rng() % 3);
      ASSERT_TRUE(a.InsertAt(index, v, count));
      if (index > n) model.resize(index, 0);
      model.insert(model.begin() + index, count, v);
    } else if (op == 3 && n > 0) {
      int index = static_cast<int>(rng() % n);
      int count = 1 + static_cast<int>(rng() % 3);
      bool ok = index + count <= n;
      ASSERT_EQ(a.RemoveAt(index, count), ok);
      if (ok) model.erase(model.begin() + index, model.begin() + index + count);
    } else if (op == 4) {
      int size = static_cast<int>(rng() % (n + 8));
      ASSERT_TRUE(a.SetSize(size, -1));
      model.resize(size, 0);
    } else if (op == 5 && rng() % 50 == 0) {
      a.RemoveAll();
      model.clear();
    }
    // Growth must zero-fill: slots left behind by RemoveAt are reused by later growth.
    ASSERT_EQ(a.GetSize(), static_cast<int>(model.size()));
    ASSERT_TRUE(model.empty() || std::equal(model.begin(), model.end(), a.GetData())) << "step " << step;
  }
}

// Records the order in which elements are destroyed.
struct Tracked {
  static std::vector<int>* log;
  static int live;
  int id;
  Tracked() : id(-1) { ++live; }
  Tracked(const Tracked& o) : id(o.id) { ++live; }
  explicit Tracked(int i) : id(i) { ++live; }
  ~Tracked() {
    --live;
    if (log) log->push_back(id);
  }
};
std::vector<int>* Tracked::log = nullptr;
int Tracked::live = 0;

TEST(ObjectArray, ConstructsInPlaceAndDestroysInOrder) {
  std::vector<int> destroyed;
  Tracked::log = &destroyed;
  {
    CKD_ObjectArray<Tracked> a;
    for (int i = 0; i < 5; ++i) ASSERT_TRUE(a.Add(Tracked(i)));
    destroyed.clear();
    EXPECT_EQ(Tracked::live, 5);
    ASSERT_TRUE(a.InsertAt(0, a[4]));  // an element of the array itself
    EXPECT_EQ(a[0].id, 4);
    ASSERT_NE(a.Add(), nullptr);
    EXPECT_EQ(a[6].id, -1);
    EXPECT_TRUE(a.RemoveAt(1, 2));  // ids 0 and 1
    EXPECT_FALSE(a.RemoveAt(4, 2));
    EXPECT_EQ(a.GetAt(4)->id, -1);
    EXPECT_EQ(a.GetAt(5), nullptr);
    ASSERT_TRUE(a.SetSize(6));
    EXPECT_EQ(Tracked::live, 6);
    ASSERT_TRUE(a.SetSize(4));
    EXPECT_EQ(Tracked::live, 4);
    destroyed.clear();
  }
  // Destruction runs over elements 0..size-1 in ascending order: ids 4, 2, 3, 4.
  EXPECT_EQ(destroyed, (std::vector<int>{4, 2, 3, 4}));
  EXPECT_EQ(Tracked::live, 0);
  Tracked::log = nullptr;

  // An impossible size empties the array and destroys its elements.
  CKD_ObjectArray<Tracked> s;
  s.Add(Tracked(1));
  s.Add(Tracked(2));
  EXPECT_FALSE(s.SetSize(0x7FFFFFFF));
  EXPECT_EQ(s.GetSize(), 0);
  EXPECT_EQ(Tracked::live, 0);
}

}  // namespace
