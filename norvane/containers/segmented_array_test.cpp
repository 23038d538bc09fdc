#include "norvane/containers/segmented_array.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "tests/support/test_mgr.h"

namespace {

using kdtest::TestMgr;

// Walks the tree from the root on its own, counting tables and segments.
struct Probe : CKD_BaseSegmentedArray {
  using CKD_BaseSegmentedArray::CKD_BaseSegmentedArray;
  void** Root() const { return static_cast<void**>(m_pIndex); }
  size_t tables = 0, segments = 0;
  void Count() {
    tables = segments = 0;
    if (m_pIndex && m_IndexLevels == 0) segments = 1;
    if (m_pIndex && m_IndexLevels > 0) Count(m_IndexLevels, Root());
  }
  void Count(int level, void** table) {
    ++tables;
    for (int i = 0; i < m_IndexSize; ++i) {
      if (table[i] && level > 1) Count(level - 1, static_cast<void**>(table[i]));
      if (table[i] && level == 1) ++segments;
    }
  }
};

// Element bytes derived from a stamp, for any unit size.
std::vector<uint8_t> Bytes(int unit, uint32_t stamp) {
  std::vector<uint8_t> b(static_cast<size_t>(unit));
  for (int j = 0; j < unit; ++j) b[j] = static_cast<uint8_t>((stamp >> (8 * (j % 4))) ^ (j * 17));
  return b;
}

// Records the elements visited; stops at stop.
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
  TestMgr t;
  Probe a(4, 4, 2, t.allocator());
  std::vector<void*> addresses;
  // 4 * 2^L elements fit in L levels.
  const struct {
    int count, levels;
  } steps[] = {{4, 0}, {5, 1}, {8, 1}, {9, 2}, {16, 2}, {17, 3}, {33, 4}, {65, 5}};
  for (const auto& step : steps) {
    while (a.GetSize() < step.count) addresses.push_back(a.Add());
    EXPECT_EQ(a.GetIndexLevels(), step.levels) << step.count;
    if (step.count == 9) {
      a.Add();  // element 9: one unit into segment 2, held by the root's second table
      addresses.push_back(static_cast<uint8_t*>(static_cast<void**>(a.Root()[1])[0]) + 4);
      EXPECT_EQ(a.GetIndex(2), static_cast<void**>(a.Root()[1]));
    }
  }
  for (int i = 0; i < a.GetSize(); ++i) ASSERT_EQ(a.GetAt(i), addresses[i]) << i;  // nothing moved
  EXPECT_TRUE(!a.GetAt(-1) && !a.GetAt(a.GetSize()) && !a.GetIndex(32) && !a.GetIndex(-1) && a.GetIndex(16));

  Visits v;
  v.stop = addresses[37];
  EXPECT_TRUE(a.Iterate(Visits::Record, &v) == addresses[37] && v.seen.size() == 38u);
  EXPECT_EQ(a.Iterate(nullptr, nullptr), nullptr);

  // Runs that do not fit do nothing; with no levels the root goes once nothing is left in it.
  for (int run : {0, 2, 0x7FFFFFFF}) a.Delete(a.GetSize() - 1, run);
  a.Delete(-1, 1);
  EXPECT_EQ(a.GetSize(), 65);
  Probe b(4, 8, 2, t.allocator());
  for (int i = 0; i < 2; ++i) b.Add();
  b.Delete(1, 1);
  EXPECT_NE(b.Root(), nullptr);
  b.Delete(0, 1);
  EXPECT_TRUE(b.Root() == nullptr && b.Iterate(Visits::Record, &v) == nullptr);
}

// Random adds and deletes against std::vector over several shapes: contents, order, addresses that
// never move, segments freed past the end, tables kept, and every block accounted for.
TEST(SegmentedArray, MatchesVectorUnderRandomEdits) {
  const struct {
    int unit, segment_units, index_size;
  } shapes[] = {{4, 1, 2}, {4, 4, 2}, {4, 16, 4}, {12, 4, 4}, {1, 16, 2}, {8, 1, 4}, {8, 3, 3}};
  for (const auto& shape : shapes) {
    SCOPED_TRACE(testing::Message() << shape.unit << "/" << shape.segment_units << "/" << shape.index_size);
    TestMgr t;
    std::mt19937 rng(2024);
    std::vector<uint32_t> model;
    std::vector<void*> addresses;
    {
      Probe a(shape.unit, shape.segment_units, shape.index_size, t.allocator());
      size_t tables = 0;
      for (int step = 0; step < 3000; ++step) {
        if (rng() % 100 < 65) {
          model.push_back(rng());
          addresses.push_back(a.Add());
          ASSERT_NE(addresses.back(), nullptr);
          memcpy(addresses.back(), Bytes(shape.unit, model.back()).data(), static_cast<size_t>(shape.unit));
        } else if (!model.empty()) {
          int index = static_cast<int>(rng() % model.size());
          int count = 1 + static_cast<int>(rng() % (rng() % 8 ? 4 : model.size() - index));
          a.Delete(index, count);  // a run past the end does nothing
          if (index + count <= static_cast<int>(model.size())) {
            model.erase(model.begin() + index, model.begin() + index + count);
            addresses.resize(model.size());
          }
        }
        ASSERT_EQ(a.GetSize(), static_cast<int>(model.size()));
        if (step % 50 == 0) {
          Visits v;
          ASSERT_EQ(a.Iterate(Visits::Record, &v), nullptr);
          ASSERT_EQ(v.seen, addresses);
          for (size_t i = 0; i < model.size(); ++i) {
            ASSERT_EQ(memcmp(a.GetAt(static_cast<int>(i)), Bytes(shape.unit, model[i]).data(), shape.unit), 0) << i;
          }
          a.Count();
          ASSERT_EQ(a.segments, (model.size() + shape.segment_units - 1) / shape.segment_units);
          ASSERT_GE(a.tables, tables);
          tables = a.tables;
          ASSERT_EQ(t.live_blocks(), a.tables + a.segments);
        }
      }
      a.RemoveAll();
      EXPECT_TRUE(t.live_blocks() == 0 && a.GetIndexLevels() == 0);
      for (int i = 0; i < 100; ++i) a.Add();
    }
    EXPECT_TRUE(t.live_blocks() == 0 && t.sys().bad_frees() == 0);
  }
}

// Each allocation along a run of adds fails in turn: that Add alone fails and nothing leaks. Shapes
// that cannot hold elements fail the same way, without dividing by zero or writing past a table.
TEST(SegmentedArray, FailuresAndHostileShapesLeaveItUsable) {
  for (long n = 1;; ++n) {
    TestMgr t;
    t.sys().FailNth(n);
    std::vector<uint32_t> model;
    {
      Probe a(4, 2, 2, t.allocator());
      for (uint32_t i = 0; i < 40; ++i) {
        if (auto* p = static_cast<uint32_t*>(a.Add())) {
          *p = i;
          model.push_back(i);
        }
      }
      ASSERT_EQ(a.GetSize(), static_cast<int>(model.size()));
      for (size_t i = 0; i < model.size(); ++i) ASSERT_EQ(*static_cast<uint32_t*>(a.GetAt(static_cast<int>(i))), model[i]);
      a.Count();
      EXPECT_EQ(t.live_blocks(), a.tables + a.segments);
    }
    EXPECT_EQ(t.live_blocks(), 0u);
    if (t.sys().failures() == 0) break;
    EXPECT_EQ(model.size(), 39u) << n;
  }

  const struct {
    int unit, segment_units, index_size, holds;
  } shapes[] = {{4, 0, 4, 0},     {4, -3, 4, 0},   {0, 4, 4, 0},     {-4, 4, 4, 0},
                {4, 40000, 4, 0},  // negative as 16 bits
                {4, 4, 1, 4},      // a one-entry table cannot take a second segment
                {4, 4, 256, 4},    // 0 as 8 bits
                {4, 0x10002, 2, 20}};
  TestMgr t;
  for (const auto& shape : shapes) {
    Probe a(shape.unit, shape.segment_units, shape.index_size, t.allocator());
    int added = 0;
    for (int i = 0; i < 20; ++i) added += a.Add() != nullptr;
    EXPECT_EQ(added, shape.holds) << shape.unit << " " << shape.segment_units << " " << shape.index_size;
  }
  // SetUnitSize reshapes an empty array, dropping tables kept from before, and leaves one that
  // holds elements alone.
  Probe a(4, 2, 2, t.allocator());
  for (int i = 0; i < 5; ++i) a.Add();
  a.SetUnitSize(8, 16, 4);
  EXPECT_EQ(a.GetSegmentUnits(), 2);
  a.Delete(0, 5);
  a.SetUnitSize(8, 16, 4);
  EXPECT_TRUE(a.GetUnitSize() == 8 && a.GetSegmentUnits() == 16 && a.GetIndexSize() == 4 && a.GetIndexLevels() == 0);
  EXPECT_EQ(t.live_blocks(), 0u);
}

// The typed layer reaches the same elements as the base walk, at every depth and for shapes that
// are not powers of two.
TEST(SegmentedArray, TypedLayerAgreesWithTheBase) {
  TestMgr t;
  {
    CKD_SegmentedArray<uint64_t, 3, 3> a(t.allocator());
    CKD_SegmentedArray<uint16_t, 4, 2> b(t.allocator());
    for (uint32_t i = 0; i < 500; ++i) ASSERT_TRUE(a.Add(i * 0x100000001ull) && b.Add(static_cast<uint16_t>(i)));
    EXPECT_TRUE(a.GetIndexLevels() == 5 && b.GetIndexLevels() == 7);  // 3 * 3^5 and 4 * 2^7
    const CKD_BaseSegmentedArray &base_a = a, &base_b = b;
    for (int i = 0; i < 500; ++i) {
      ASSERT_TRUE(a.GetAt(i) == base_a.GetAt(i) && &a[i] == a.GetAt(i) && a[i] == i * 0x100000001ull) << i;
      ASSERT_TRUE(b.GetAt(i) == base_b.GetAt(i) && b[i] == i) << i;
    }
    EXPECT_TRUE(!a.GetAt(-1) && !a.GetAt(500));
    t.sys().FailAll(true);
    EXPECT_TRUE(a.Add(1));        // element 500 lies in the last segment of 3
    EXPECT_EQ(b.Add(), nullptr);  // but starts a segment of 4
    t.sys().FailAll(false);
    CKD_SegmentedArray<uint64_t> c;  // by default 4 KiB segments and tables of 64
    EXPECT_TRUE(c.GetSegmentUnits() == 512 && c.GetIndexSize() == 64);
  }
  EXPECT_EQ(t.live_blocks(), 0u);
}

}  // namespace
