#include "norvane/containers/segmented_array.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "tests/support/test_mgr.h"

namespace {

using kdtest::TestMgr;

// Reads the tree from the root on its own, to count what the array holds.
struct Probe : CKD_BaseSegmentedArray {
  using CKD_BaseSegmentedArray::CKD_BaseSegmentedArray;
  void** Root() const { return static_cast<void**>(m_pIndex); }

  size_t tables = 0, segments = 0;
  void CountBlocks() {
    tables = segments = 0;
    if (!m_pIndex) return;
    if (m_IndexLevels == 0) {
      segments = 1;
    } else {
      CountIndex(m_IndexLevels, Root());
    }
  }
  void CountIndex(int level, void** table) {
    ++tables;
    for (int i = 0; i < m_IndexSize; ++i) {
      if (!table[i]) continue;
      if (level > 1) {
        CountIndex(level - 1, static_cast<void**>(table[i]));
      } else {
        ++segments;
      }
    }
  }
};

// Element contents are derived from a stamp, byte by byte, so that any unit size can be checked.
void Fill(void* element, int unit, uint32_t stamp) {
  auto* p = static_cast<uint8_t*>(element);
  for (int j = 0; j < unit; ++j) p[j] = static_cast<uint8_t>((stamp >> (8 * (j % 4))) ^ (j * 17));
}

bool Holds(const void* element, int unit, uint32_t stamp) {
  std::vector<uint8_t> want(static_cast<size_t>(unit));
  Fill(want.data(), unit, stamp);
  return memcmp(element, want.data(), want.size()) == 0;
}

bool AlwaysTrue(void*, void*) { return true; }

// Collects element addresses; stops at the element whose address is in param's stop field.
struct Visits {
  std::vector<void*> seen;
  void* stop = nullptr;
  static bool Record(void* param, void* element) {
    auto* v = static_cast<Visits*>(param);
    v->seen.push_back(element);
    return element != v->stop;
  }
};

TEST(SegmentedArray, TreeGrowsALevelWhenFull) {
  Probe a(4, 4, 2);
  std::vector<void*> addresses;
  // Capacity with L levels is 4 * 2^L: each count past one adds a level.
  const struct {
    int count, levels;
  } steps[] = {{1, 0}, {4, 0}, {5, 1}, {8, 1}, {9, 2}, {16, 2}, {17, 3}, {32, 3}, {33, 4}, {64, 4}, {65, 5}};
  for (const auto& step : steps) {
    while (a.GetSize() < step.count) {
      void* p = a.Add();
      ASSERT_NE(p, nullptr);
      addresses.push_back(p);
      if (a.GetSize() == 4) {
        EXPECT_EQ(a.GetIndexLevels(), 0);
        EXPECT_EQ(a.GetAt(3), reinterpret_cast<uint8_t*>(a.Root()) + 12);
      }
      if (a.GetSize() == 10) {
        // Element 9 is one unit into segment 2, which the second table of the root holds.
        EXPECT_EQ(a.GetAt(9), static_cast<uint8_t*>(static_cast<void**>(a.Root()[1])[0]) + 4);
        EXPECT_EQ(a.GetIndex(2), static_cast<void**>(a.Root()[1]));
      }
    }
    EXPECT_EQ(a.GetIndexLevels(), step.levels) << step.count;
  }
  // No element moved on the way.
  for (int i = 0; i < a.GetSize(); ++i) ASSERT_EQ(a.GetAt(i), addresses[i]) << i;
  EXPECT_EQ(a.GetAt(-1), nullptr);
  EXPECT_EQ(a.GetAt(a.GetSize()), nullptr);
  // 5 levels of 2 hold 32 segments; numbers outside them have no table.
  EXPECT_EQ(a.GetIndex(32), nullptr);
  EXPECT_EQ(a.GetIndex(-1), nullptr);
  EXPECT_NE(a.GetIndex(16), nullptr);

  Visits v;
  EXPECT_EQ(a.Iterate(Visits::Record, &v), nullptr);
  EXPECT_EQ(v.seen, addresses);
  v.seen.clear();
  v.stop = addresses[37];
  EXPECT_EQ(a.Iterate(Visits::Record, &v), addresses[37]);
  EXPECT_EQ(v.seen.size(), 38u);
  EXPECT_EQ(a.Iterate(nullptr, nullptr), nullptr);
  Probe empty(4, 4, 2);
  EXPECT_EQ(empty.Iterate(AlwaysTrue, nullptr), nullptr);
}

// Deleting moves the elements behind the run down, frees the segments past the new end and keeps
// the tables; runs that reach past the end do nothing.
TEST(SegmentedArray, DeleteFreesSegmentsAndKeepsTables) {
  TestMgr t;
  Probe a(4, 4, 2, t.allocator());
  for (uint32_t i = 0; i < 20; ++i) *static_cast<uint32_t*>(a.Add()) = i;
  a.CountBlocks();
  const size_t tables = a.tables;
  EXPECT_EQ(a.GetIndexLevels(), 3);
  EXPECT_EQ(t.live_blocks(), tables + 5);

  a.Delete(0, 0);
  a.Delete(19, 2);
  a.Delete(-1, 1);
  a.Delete(5, 0x7FFFFFFF);
  EXPECT_EQ(a.GetSize(), 20);
  a.Delete(2, 15);
  std::vector<uint32_t> left;
  for (int i = 0; i < a.GetSize(); ++i) left.push_back(*static_cast<uint32_t*>(a.GetAt(i)));
  EXPECT_EQ(left, (std::vector<uint32_t>{0, 1, 17, 18, 19}));
  a.CountBlocks();
  EXPECT_TRUE(a.tables == tables && a.segments == 2);
  EXPECT_EQ(t.live_blocks(), tables + 2);

  // Emptied, the array keeps its levels and tables and fills again through them.
  a.Delete(0, 5);
  a.CountBlocks();
  EXPECT_TRUE(a.GetIndexLevels() == 3 && a.segments == 0 && a.tables == tables);
  for (uint32_t i = 0; i < 9; ++i) *static_cast<uint32_t*>(a.Add()) = 100 + i;
  EXPECT_EQ(*static_cast<uint32_t*>(a.GetAt(8)), 108u);
  a.CountBlocks();
  EXPECT_EQ(t.live_blocks(), a.tables + a.segments);

  // With no levels the root segment goes once nothing is left in it.
  Probe b(4, 8, 2, t.allocator());
  b.Add();
  b.Add();
  b.Delete(1, 1);
  EXPECT_NE(b.Root(), nullptr);
  b.Delete(0, 1);
  EXPECT_EQ(b.Root(), nullptr);
  a.RemoveAll();
  EXPECT_TRUE(a.GetIndexLevels() == 0 && a.GetSize() == 0 && t.live_blocks() == 0);
}

// Random adds and deletes against std::vector, over several shapes, with every block counted.
TEST(SegmentedArray, MatchesVectorUnderRandomEdits) {
  const struct {
    int unit, segment_units, index_size;
  } shapes[] = {{4, 1, 2}, {4, 4, 2}, {4, 16, 4}, {12, 4, 4}, {1, 16, 2}, {8, 1, 4}, {8, 3, 3}, {24, 16, 4}};
  for (const auto& shape : shapes) {
    SCOPED_TRACE(testing::Message() << shape.unit << "/" << shape.segment_units << "/" << shape.index_size);
    TestMgr t;
    std::mt19937 rng(2024);
    std::vector<uint32_t> model;
    std::vector<void*> addresses;
    {
      Probe a(shape.unit, shape.segment_units, shape.index_size, t.allocator());
      for (int step = 0; step < 3000; ++step) {
        unsigned op = rng() % 100;
        if (op < 60) {
          uint32_t stamp = rng();
          void* p = a.Add();
          ASSERT_NE(p, nullptr);
          Fill(p, shape.unit, stamp);
          model.push_back(stamp);
          addresses.push_back(p);
        } else if (op < 75 && !model.empty()) {
          int index = static_cast<int>(rng() % model.size());
          int count = 1 + static_cast<int>(rng() % (op < 72 ? 4 : model.size() - index));
          a.Delete(index, count);  // a run past the end does nothing
          if (index + count <= static_cast<int>(model.size())) {
            model.erase(model.begin() + index, model.begin() + index + count);
            addresses.resize(model.size());
          }
        } else if (!model.empty()) {
          int index = static_cast<int>(rng() % model.size());
          ASSERT_TRUE(Holds(a.GetAt(index), shape.unit, model[index])) << index;
        }
        ASSERT_EQ(a.GetSize(), static_cast<int>(model.size()));
        if (step % 50 == 0 || step == 2999) {
          Visits v;
          ASSERT_EQ(a.Iterate(Visits::Record, &v), nullptr);
          ASSERT_EQ(v.seen, addresses);  // in order, and nothing moved since it was added
          for (size_t i = 0; i < model.size(); ++i) ASSERT_TRUE(Holds(v.seen[i], shape.unit, model[i])) << i;
          a.CountBlocks();
          const size_t units = static_cast<size_t>(shape.segment_units);
          ASSERT_EQ(a.segments, (model.size() + units - 1) / units);
          ASSERT_EQ(t.live_blocks(), a.tables + a.segments);
        }
      }
      a.RemoveAll();
      EXPECT_EQ(t.live_blocks(), 0u);
      for (int i = 0; i < 100; ++i) a.Add();
    }
    EXPECT_EQ(t.live_blocks(), 0u);
    EXPECT_EQ(t.sys().bad_frees(), 0);
  }
}

// Each allocation along a run of adds fails in turn: the failing Add returns null and leaves the
// array as it was, later adds go on, and nothing leaks.
TEST(SegmentedArray, FailedAllocationsLeaveTheArrayUsable) {
  for (long n = 1;; ++n) {
    TestMgr t;
    t.sys().FailNth(n);
    std::vector<uint32_t> model;
    {
      Probe a(4, 2, 2, t.allocator());
      for (uint32_t i = 0; i < 40; ++i) {
        auto* p = static_cast<uint32_t*>(a.Add());
        if (p) {
          *p = i;
          model.push_back(i);
        }
        ASSERT_EQ(a.GetSize(), static_cast<int>(model.size()));
      }
      for (size_t i = 0; i < model.size(); ++i) ASSERT_EQ(*static_cast<uint32_t*>(a.GetAt(static_cast<int>(i))), model[i]);
      a.CountBlocks();
      EXPECT_EQ(t.live_blocks(), a.tables + a.segments);
    }
    EXPECT_EQ(t.live_blocks(), 0u);
    if (t.sys().failures() == 0) {
      EXPECT_GT(n, 20);  // every allocation of the run has failed once
      break;
    }
    EXPECT_EQ(model.size(), 39u) << n;
  }
}

// The typed layer reaches the same elements as the base walk, at every depth and for shapes that
// are not powers of two.
TEST(SegmentedArray, TypedLayerAgreesWithTheBase) {
  TestMgr t;
  {
    CKD_SegmentedArray<uint64_t, 3, 3> a(t.allocator());
    CKD_SegmentedArray<uint16_t, 4, 2> b(t.allocator());
    const CKD_BaseSegmentedArray& base_a = a;
    const CKD_BaseSegmentedArray& base_b = b;
    for (uint32_t i = 0; i < 500; ++i) {
      ASSERT_TRUE(a.Add(i * 0x100000001ull));
      ASSERT_TRUE(b.Add(static_cast<uint16_t>(i)));
    }
    EXPECT_EQ(a.GetIndexLevels(), 5);  // 3 * 3^5 = 729 >= 500 > 243
    EXPECT_EQ(b.GetIndexLevels(), 7);  // 4 * 2^7 = 512
    for (int i = 0; i < 500; ++i) {
      ASSERT_TRUE(a.GetAt(i) == base_a.GetAt(i) && &a[i] == a.GetAt(i) && a[i] == i * 0x100000001ull) << i;
      ASSERT_TRUE(b.GetAt(i) == base_b.GetAt(i) && b[i] == i) << i;
    }
    EXPECT_TRUE(!a.GetAt(-1) && !a.GetAt(500));
    t.sys().FailAll(true);
    EXPECT_TRUE(a.Add(1));          // element 500 lies in the last segment of 3
    EXPECT_EQ(b.Add(), nullptr);    // but starts a segment of 4
    t.sys().FailAll(false);
    EXPECT_TRUE(a.GetSize() == 501 && b.GetSize() == 500);
    // By default a segment holds 4 KiB of elements, and tables 64 entries.
    CKD_SegmentedArray<uint64_t> c(t.allocator());
    EXPECT_TRUE(c.GetSegmentUnits() == 512 && c.GetIndexSize() == 64);
  }
  EXPECT_EQ(t.live_blocks(), 0u);
}

// Shapes that cannot hold elements fail instead of dividing by zero or writing past a table; the
// sizes are kept as 16 and 8 bits.
TEST(SegmentedArray, HostileShapesFailQuietly) {
  const struct {
    int unit, segment_units, index_size;
    int holds;  // elements an Add loop of 20 gets in
  } shapes[] = {
      {4, 0, 4, 0},       {4, -3, 4, 0},     {0, 4, 4, 0}, {-4, 4, 4, 0},
      {4, 40000, 4, 0},   // negative as 16 bits
      {4, 4, 1, 4},       // a table of one entry cannot take a second segment
      {4, 4, 256, 4},     // 0 as 8 bits
      {4, 0x10002, 2, 20},  // 2 as 16 bits
  };
  TestMgr t;
  for (const auto& shape : shapes) {
    Probe a(shape.unit, shape.segment_units, shape.index_size, t.allocator());
    int added = 0;
    for (int i = 0; i < 20; ++i) added += a.Add() != nullptr;
    EXPECT_EQ(added, shape.holds) << shape.unit << " " << shape.segment_units << " " << shape.index_size;
  }
  EXPECT_EQ(t.live_blocks(), 0u);

  // SetUnitSize reshapes an empty array (dropping tables kept from before) and leaves one that
  // holds elements alone.
  Probe a(4, 2, 2, t.allocator());
  for (int i = 0; i < 5; ++i) a.Add();
  a.SetUnitSize(8, 16, 4);
  EXPECT_TRUE(a.GetUnitSize() == 4 && a.GetSegmentUnits() == 2 && a.GetIndexSize() == 2);
  a.Delete(0, 5);
  a.SetUnitSize(8, 16, 4);
  EXPECT_TRUE(a.GetUnitSize() == 8 && a.GetSegmentUnits() == 16 && a.GetIndexSize() == 4);
  EXPECT_TRUE(a.GetIndexLevels() == 0 && t.live_blocks() == 0);
  for (int i = 0; i < 17; ++i) a.Add();
  EXPECT_EQ(a.GetIndexLevels(), 1);
}

}  // namespace
