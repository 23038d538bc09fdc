#include "norvane/containers/array.h"

#include <gtest/gtest.h>

#include <random>
#include <utility>
#include <vector>

#include "tests/support/test_mgr.h"

namespace {

using kdtest::TestDefaultMgr;

std::vector<int> Items(const CKD_ArrayTemplate<int>& a) { return {a.GetData(), a.GetData() + a.GetSize()}; }

TEST(BasicArray, GrowthRuleAndGrowBy) {
  CKD_ArrayTemplate<int> a;
  std::vector<int> capacities;
  for (int i = 0; i < 40; ++i) {
    ASSERT_TRUE(a.Add(i));
    if (capacities.empty() || capacities.back() != a.GetMaxSize()) capacities.push_back(a.GetMaxSize());
  }
  EXPECT_EQ(capacities, (std::vector<int>{1, 2, 3, 4, 6, 9, 13, 19, 28, 42}));

  // A stored grow-by replaces the half-size rule; -1 keeps it, 0 switches back. When one step is
  // not enough the capacity is exactly what is asked.
  CKD_ArrayTemplate<int> b;
  const struct {
    int size, grow_by, capacity;
  } steps[] = {{1, 10, 1}, {2, -1, 11}, {12, -1, 21}, {40, -1, 40}, {41, 0, 60}};
  for (const auto& step : steps) {
    b.SetSize(step.size, step.grow_by);
    EXPECT_EQ(b.GetMaxSize(), step.capacity) << step.size;
  }

  // Shrinking keeps the block; 0 frees it.
  EXPECT_TRUE(b.SetSize(3, -1) && b.GetMaxSize() == 60);
  EXPECT_TRUE(b.SetSize(0, -1) && b.GetMaxSize() == 0 && !b.GetData());
}

TEST(BasicArray, UnitSizeAndLimits) {
  const std::pair<int, int> units[] = {{0x10000000, 0x10000000}, {0x10000001, 4}, {-1, 4}, {0, 0}};
  for (auto [unit, kept] : units) EXPECT_EQ(CKD_BasicArray(unit).GetUnitSize(), kept) << unit;

  TestDefaultMgr t;
  CKD_ArrayTemplate<int> a;
  ASSERT_TRUE(a.SetSize(5));
  // Exactly 256 MiB is allowed: the request reaches the manager (made to fail here), and a
  // failed growth keeps the array.
  t.sys().FailAbove(1 << 20);
  EXPECT_FALSE(a.SetSize(0x4000000, -1));
  EXPECT_TRUE(t.sys().requests().back() == 0x10000000u && a.GetSize() == 5 && a.GetData());
  // One more element is over the limit: the array is emptied without asking for memory.
  size_t requests = t.sys().requests().size();
  EXPECT_FALSE(a.SetSize(0x4000001, -1));
  EXPECT_TRUE(t.sys().requests().size() == requests && a.GetSize() == 0 && !a.GetData());
  ASSERT_TRUE(a.SetSize(2));
  EXPECT_TRUE(!a.SetSize(-1, -1) && a.GetMaxSize() == 0);

  // A first allocation that fails leaves the array empty; a growth that fails keeps it.
  t.sys().FailAll(true);
  EXPECT_TRUE(!a.SetSize(3) && a.GetSize() == 0);
  t.sys().FailAll(false);
  ASSERT_TRUE(a.Add(42));
  t.sys().FailAll(true);
  EXPECT_TRUE(!a.Add(43) && Items(a) == std::vector<int>{42});
  EXPECT_EQ(t.oom().calls, 3);  // the 256 MiB request and the two failures above
  t.sys().FailAll(false);
  a.RemoveAll();
  EXPECT_EQ(t.live_blocks(), 0u);

  // An array of unit size 0 can hold nothing.
  CKD_BasicArray zero(0);
  EXPECT_TRUE(!zero.SetSize(10) && zero.GetSize() == 0);
}

// Gaps are zero-filled, also past the end; removal moves the tail down, keeps the block and
// leaves the vacated slots as they were.
TEST(BasicArray, InsertRemoveAndAccess) {
  CKD_ArrayTemplate<int> a;
  for (int v : {10, 11, 12}) a.Add(v);
  int* gap = static_cast<int*>(a.InsertSpaceAt(5, 2));
  EXPECT_EQ(gap, a.GetDataPtr(5));
  EXPECT_TRUE(!a.InsertSpaceAt(-1, 1) && !a.InsertSpaceAt(1, 0));
  ASSERT_NE(a.InsertSpaceAt(1, 2), nullptr);
  EXPECT_EQ(Items(a), (std::vector<int>{10, 0, 0, 11, 12, 0, 0, 0, 0}));

  CKD_ArrayTemplate<int> b;
  for (int v : {1, 2, 3}) b.Add(v);
  EXPECT_FALSE(b.RemoveAt(2, 2) || b.RemoveAt(-1, 1) || b.RemoveAt(0, 0));
  const int capacity = b.GetMaxSize();
  EXPECT_TRUE(b.RemoveAt(1, 2) && b.GetSize() == 1 && b.GetMaxSize() == capacity && b.GetData()[1] == 2);
  EXPECT_TRUE(!b.GetDataPtr(1) && !b.GetDataPtr(-1) && b.GetAt(3) == 0 && !b.SetAt(1, 5));
  b.RemoveAll();
  EXPECT_EQ(b.GetDataPtr(0), nullptr);

  // InsertAt of another array, of an empty one, of null and of itself; Append and Find.
  CKD_ArrayTemplate<int> c, d, empty;
  for (int v : {1, 2}) c.Add(v);
  for (int v : {7, 8, 9}) d.Add(v);
  EXPECT_TRUE(!c.InsertAt(0, nullptr) && c.InsertAt(1, &empty) && c.InsertAt(1, &d) && c.InsertAt(0, &c));
  EXPECT_EQ(Items(c), (std::vector<int>{1, 7, 8, 9, 2, 1, 7, 8, 9, 2}));
  EXPECT_TRUE(d.Append(d) && d.Append(empty));
  EXPECT_EQ(Items(d), (std::vector<int>{7, 8, 9, 7, 8, 9}));
  EXPECT_TRUE(d.Find(9) == 2 && d.Find(9, 3) == 5 && d.Find(4) == -1);
}

// A copy takes the allocator it is given (here the default), not the source's, and grow-by 0.
TEST(BasicArray, CopiesTakeTheirOwnAllocator) {
  TestDefaultMgr t;
  kdtest::TestMgr other;
  {
    CKD_ArrayTemplate<int> a(other.allocator());
    a.SetSize(0, 10);
    for (int i = 0; i < 5; ++i) a.Add(i * i);
    EXPECT_TRUE(other.live_blocks() == 1 && t.live_blocks() == 0);
    CKD_ArrayTemplate<int> copy(a);
    EXPECT_TRUE(copy.GetGrowBy() == 0 && Items(copy) == Items(a) && t.live_blocks() == 1u);
    CKD_ArrayTemplate<int> assigned;
    assigned.Add(99);
    assigned = a;
    EXPECT_EQ(Items(assigned), Items(a));
  }
  EXPECT_TRUE(t.live_blocks() == 0 && other.live_blocks() == 0);
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
    ASSERT_EQ(Items(a), model) << "step " << step;
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
    ASSERT_TRUE(a.InsertAt(0, a[4]) && a[0].id == 4);  // an element of the array itself
    ASSERT_TRUE(a.Add() && a[6].id == -1);
    EXPECT_TRUE(a.RemoveAt(1, 2) && !a.RemoveAt(4, 2));  // ids 0 and 1
    EXPECT_TRUE(a.GetAt(4)->id == -1 && a.GetAt(5) == nullptr);
    ASSERT_TRUE(a.SetSize(6) && Tracked::live == 6);
    ASSERT_TRUE(a.SetSize(4) && Tracked::live == 4);
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
  EXPECT_TRUE(!s.SetSize(0x7FFFFFFF) && s.GetSize() == 0 && Tracked::live == 0);
}

}  // namespace
