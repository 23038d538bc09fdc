#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>
#include <random>
#include <unordered_map>
#include <vector>

#include "norvane/containers/map_bytestring_to_ptr.h"
#include "norvane/containers/map_internal.h"
#include "norvane/containers/map_ptr_to_ptr.h"
#include "tests/support/test_mgr.h"

namespace {

using kdtest::TestDefaultMgr;

// What the typed suite needs to know of each map: how to make its i-th key and read keys back.
struct PtrMapCase {
  using Map = CKD_MapPtrToPtr;
  using ModelKey = uintptr_t;
  static constexpr size_t kBlocksPerKey = 0;
  static void* Key(int i) { return reinterpret_cast<void*>(static_cast<uintptr_t>(i) * 24 + 0x7f0000001000); }
  static ModelKey Model(void* key) { return reinterpret_cast<uintptr_t>(key); }
  static bool Next(const Map& m, void*& position, ModelKey& key, void*& value) {
    void* k;
    m.GetNextAssoc(position, k, value);
    key = Model(k);
    return true;
  }
};

// String keys are copied into string records of their own.
struct StringMapCase {
  using Map = CKD_MapByteStringToPtr;
  using ModelKey = std::string;
  static constexpr size_t kBlocksPerKey = 1;
  static CKD_ByteString Key(int i) { return CKD_ByteString(("key" + std::to_string(i)).c_str()); }
  static ModelKey Model(const CKD_ByteString& key) { return std::string(key.c_str(), key.GetLength()); }
  static bool Next(const Map& m, void*& position, ModelKey& key, void*& value) {
    CKD_ByteString k;
    m.GetNextAssoc(position, k, value);
    key = Model(k);
    return true;
  }
};

template <class Case>
class HashMapTest : public ::testing::Test {};
using MapCases = ::testing::Types<PtrMapCase, StringMapCase>;
TYPED_TEST_SUITE(HashMapTest, MapCases);

template <class Case>
std::map<typename Case::ModelKey, void*> Contents(const typename Case::Map& m) {
  std::map<typename Case::ModelKey, void*> out;
  void* pos = m.GetStartPosition();
  while (pos) {
    typename Case::ModelKey k;
    void* v;
    Case::Next(m, pos, k, v);
    EXPECT_TRUE(out.emplace(k, v).second) << "a key was visited twice";
  }
  return out;
}

TYPED_TEST(HashMapTest, MatchesUnorderedMapUnderRandomEdits) {
  using Case = TypeParam;
  TestDefaultMgr t;
  std::mt19937 rng(90210);
  std::unordered_map<typename Case::ModelKey, void*> model;
  {
    typename Case::Map m(7);
    for (int step = 0; step < 6000; ++step) {
      int i = static_cast<int>(rng() % 300);
      auto key = Case::Key(i);
      auto mkey = Case::Model(key);
      void* value = reinterpret_cast<void*>(static_cast<uintptr_t>(rng()));
      void* got = nullptr;
      switch (rng() % 4) {
        case 0:
        case 1:
          m[key] = value;
          model[mkey] = value;
          break;
        case 2:
          ASSERT_EQ(m.RemoveKey(key), model.erase(mkey) == 1);
          break;
        case 3:
          ASSERT_EQ(m.Lookup(key, got), model.count(mkey) == 1);
          if (model.count(mkey)) {
            ASSERT_EQ(got, model[mkey]);
          }
          break;
      }
      ASSERT_EQ(m.GetCount(), static_cast<int>(model.size()));
      if (step % 97 == 0) {
        auto contents = Contents<Case>(m);
        ASSERT_EQ(contents.size(), model.size());
        for (auto& [k, v] : model) ASSERT_EQ(contents[k], v);
      }
      // An emptied map holds no memory at all (the test's own key aside).
      if (model.empty()) {
        ASSERT_EQ(t.live_blocks(), Case::kBlocksPerKey);
      }
    }
  }
  EXPECT_EQ(t.live_blocks(), 0u);
  EXPECT_EQ(t.sys().bad_frees(), 0);
}

TYPED_TEST(HashMapTest, TableGrowsAtCountEqualsBucketsUpTo16384) {
  using Case = TypeParam;
  typename Case::Map m(64);
  EXPECT_EQ(m.GetHashTableSize(), 16u);
  for (int i = 0; i < 15; ++i) m[Case::Key(i)] = nullptr;
  EXPECT_EQ(m.GetHashTableSize(), 16u);
  m[Case::Key(15)] = nullptr;  // the 16th entry doubles the table
  EXPECT_EQ(m.GetHashTableSize(), 32u);
  for (int i = 16; i < 31; ++i) m[Case::Key(i)] = nullptr;
  EXPECT_EQ(m.GetHashTableSize(), 32u);
  m[Case::Key(31)] = nullptr;
  EXPECT_EQ(m.GetHashTableSize(), 64u);
  for (int i = 32; i < 20000; ++i) m[Case::Key(i)] = reinterpret_cast<void*>(static_cast<uintptr_t>(i));
  EXPECT_EQ(m.GetHashTableSize(), 16384u);
  EXPECT_EQ(m.GetCount(), 20000);
  void* v = nullptr;
  EXPECT_TRUE(m.Lookup(Case::Key(19999), v));
  EXPECT_EQ(v, reinterpret_cast<void*>(19999));

  // The size is kept when the map is emptied: the next table has as many buckets.
  m.RemoveAll();
  EXPECT_EQ(m.GetHashTableSize(), 16384u);
  EXPECT_EQ(m.GetStartPosition(), nullptr);
}

TYPED_TEST(HashMapTest, EntriesComeFromBlocksAndAreReused) {
  using Case = TypeParam;
  TestDefaultMgr t;
  typename Case::Map m(10);
  m[Case::Key(0)] = nullptr;
  const size_t keys = Case::kBlocksPerKey;
  EXPECT_EQ(t.live_blocks(), 2u + keys);  // the table and one block of 10 entries
  std::vector<uintptr_t> addresses;
  for (int i = 1; i < 10; ++i) m[Case::Key(i)] = nullptr;
  for (int i = 0; i < 10; ++i) {
    unsigned int bucket;
    addresses.push_back(reinterpret_cast<uintptr_t>(m.GetAssocAt(Case::Key(i), bucket)));
  }
  // Entries are handed out in address order, one block after the other.
  for (int i = 1; i < 10; ++i) EXPECT_EQ(addresses[i] - addresses[i - 1], sizeof(typename Case::Map::CAssoc));
  EXPECT_EQ(t.live_blocks(), 2u + 10 * keys);
  size_t requests = t.sys().requests().size();
  m[Case::Key(10)] = nullptr;  // the 11th entry needs a second block
  EXPECT_EQ(t.live_blocks(), 3u + 11 * keys);
  const auto& made = t.sys().requests();
  EXPECT_NE(std::find(made.begin() + requests, made.end(), 8 + 10 * sizeof(typename Case::Map::CAssoc)), made.end());

  // A removed entry's storage is the first to be used again.
  EXPECT_TRUE(m.RemoveKey(Case::Key(4)));
  EXPECT_FALSE(m.RemoveKey(Case::Key(4)));
  m[Case::Key(50)] = nullptr;
  unsigned int bucket;
  EXPECT_EQ(reinterpret_cast<uintptr_t>(m.GetAssocAt(Case::Key(50), bucket)), addresses[4]);

  // Removing every entry gives all memory back; lookups then find nothing.
  for (int i = 0; i <= 10; ++i) m.RemoveKey(Case::Key(i));
  EXPECT_TRUE(m.RemoveKey(Case::Key(50)));
  EXPECT_EQ(m.GetCount(), 0);
  EXPECT_EQ(t.live_blocks(), 0u);
  void* v = nullptr;
  EXPECT_FALSE(m.Lookup(Case::Key(0), v));
  EXPECT_FALSE(m.RemoveKey(Case::Key(0)));
}

TYPED_TEST(HashMapTest, FailedDoublingKeepsTheMapWorking) {
  using Case = TypeParam;
  TestDefaultMgr t;
  typename Case::Map m(100);
  m[Case::Key(0)] = nullptr;
  t.sys().FailAbove(16 * sizeof(void*));  // the 32-bucket table can never be had
  for (int i = 1; i < 60; ++i) m[Case::Key(i)] = reinterpret_cast<void*>(static_cast<uintptr_t>(i));
  EXPECT_EQ(m.GetHashTableSize(), 16u);
  EXPECT_EQ(m.GetCount(), 60);
  EXPECT_EQ(Contents<Case>(m).size(), 60u);
  void* v = nullptr;
  EXPECT_TRUE(m.Lookup(Case::Key(59), v));
  EXPECT_EQ(v, reinterpret_cast<void*>(59));
}

TEST(MapByteStringToPtr, HashesBucketsAndIteration) {
  CKD_MapByteStringToPtr m(4);
  EXPECT_EQ(m.HashKey("abc"), 96354u);
  EXPECT_EQ(m.HashKey(""), 0u);
  EXPECT_EQ(m.HashKey("\xFF"), 255u);  // bytes count as unsigned
  unsigned int bucket = 99;
  EXPECT_EQ(m.GetAssocAt("abc", bucket), nullptr);
  EXPECT_EQ(bucket, 2u);
  // Keys sharing bucket 2 of 16: the newest is found first when iterating.
  std::vector<std::string> same;
  for (int i = 0; same.size() < 2; ++i) {
    std::string k = "k" + std::to_string(i);
    if (m.HashKey(k.c_str()) % 16 == 2) same.push_back(k);
  }
  m[same[0].c_str()] = &bucket;
  m[same[1].c_str()] = &m;
  void* pos = m.GetStartPosition();
  EXPECT_EQ(m.GetNextValue(pos), &m);
  EXPECT_EQ(m.GetNextValue(pos), &bucket);
  EXPECT_EQ(pos, nullptr);
  // Keys are copies; each entry keeps its bucket, refreshed when the table doubles.
  std::string scratch = "temporary";
  m[scratch.c_str()] = nullptr;
  scratch[0] = 'T';
  void* v;
  EXPECT_TRUE(m.Lookup("temporary", v));
  for (int i = 0; i < 40; ++i) m[("x" + std::to_string(i)).c_str()] = nullptr;
  EXPECT_EQ(m.GetHashTableSize(), 64u);
  pos = m.GetStartPosition();
  while (pos) {
    CKD_MapByteStringToPtr::CAssoc* a = m.GetCurrentAssoc(pos);
    ASSERT_EQ(a->nBucket, m.HashKey(a->key) % 64);
  }
  // InitHashTable on this map leaves the count as it is.
  m.RemoveAll();
  m["one"] = nullptr;
  CKD_MapByteStringToPtr::CAssoc* orphan = m.GetAssocAt("one", bucket);
  m.InitHashTable(32, true);
  EXPECT_EQ(m.GetCount(), 1);
  EXPECT_EQ(m.GetHashTableSize(), 32u);
  EXPECT_FALSE(m.Lookup("one", v));  // its entry is no longer in the table
  orphan->key.Empty();  // so nothing can release its key any more; the test does
  m.RemoveAll();
}

TEST(MapPtrToPtr, HashesAndBuckets) {
  CKD_MapPtrToPtr m(10);
  EXPECT_EQ(m.HashKey(reinterpret_cast<void*>(0x12345678)), 769516204u);
  EXPECT_EQ(m.HashKey(reinterpret_cast<void*>(0x100000000)), 1313u);
  EXPECT_EQ(m.HashKey(nullptr), 0u);
  // The bucket is reported even before the table exists.
  unsigned int bucket = 99;
  EXPECT_EQ(m.GetAssocAt(reinterpret_cast<void*>(0x12345678), bucket), nullptr);
  EXPECT_EQ(bucket, 12u);
  m.GetAssocAt(reinterpret_cast<void*>(0x100000000), bucket);
  EXPECT_EQ(bucket, 1u);
  EXPECT_EQ(m.GetValueAt(nullptr), nullptr);
  EXPECT_EQ(m.GetStartPosition(), nullptr);
}

TEST(MapPtrToPtr, IterationIsByBucketNewestFirst) {
  CKD_MapPtrToPtr m(4);
  // Find three keys that share bucket 3 and one in bucket 1.
  std::vector<void*> same;
  void* other = nullptr;
  for (uintptr_t k = 1; same.size() < 3 || !other; ++k) {
    void* key = reinterpret_cast<void*>(k);
    unsigned int b = m.HashKey(key) % 16;
    if (b == 3 && same.size() < 3) same.push_back(key);
    if (b == 1 && !other) other = key;
  }
  m[same[0]] = reinterpret_cast<void*>(1);
  m[same[1]] = reinterpret_cast<void*>(2);
  m[other] = reinterpret_cast<void*>(3);
  m[same[2]] = reinterpret_cast<void*>(4);
  std::vector<void*> order;
  void* pos = m.GetStartPosition();
  EXPECT_EQ(pos, reinterpret_cast<void*>(-1));
  while (pos) order.push_back(m.GetCurrentAssoc(pos)->key);
  EXPECT_EQ(order, (std::vector<void*>{other, same[2], same[1], same[0]}));

  // InitHashTable on this map also zeroes the count.
  m.RemoveAll();
  m[other] = nullptr;
  m.InitHashTable(64, false);
  EXPECT_EQ(m.GetCount(), 0);
  EXPECT_EQ(m.GetHashTableSize(), 64u);
  void* v;
  EXPECT_FALSE(m.Lookup(other, v));
  m.InitHashTable(0, true);  // no bucket count of zero
  EXPECT_EQ(m.GetHashTableSize(), 1u);
  m[other] = reinterpret_cast<void*>(7);
  EXPECT_EQ(m.GetValueAt(other), reinterpret_cast<void*>(7));
}

TEST(MapPtrToPtr, BlockSizeBelowOneIsOne) {
  TestDefaultMgr t;
  CKD_MapPtrToPtr m(0);
  m[reinterpret_cast<void*>(1)] = nullptr;
  m[reinterpret_cast<void*>(2)] = nullptr;
  EXPECT_EQ(t.sys().requests().back(), 8 + sizeof(CKD_MapPtrToPtr::CAssoc));
  EXPECT_EQ(m.GetCount(), 2);
}

TEST(MapPtrToPtr, TrySetAtSurvivesWithoutMemory) {
  TestDefaultMgr t;
  CKD_MapPtrToPtr m(10);
  t.sys().FailNth(2);  // the table is had, the entry block is not
  EXPECT_FALSE(KDMAP_TrySetAt(m, &t, &m));
  EXPECT_EQ(m.GetCount(), 0);
  EXPECT_EQ(t.live_blocks(), 0u);  // the table went back: an empty map holds nothing
  EXPECT_TRUE(KDMAP_TrySetAt(m, &t, &m));
  EXPECT_EQ(m.GetValueAt(&t), &m);
}

TEST(MapPtrToPtrDeathTest, InsertionWithoutMemoryStops) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        TestDefaultMgr t;
        t.sys().FailAll(true);
        CKD_MapPtrToPtr m(10);
        m[nullptr] = nullptr;
        std::exit(3);
      },
      "");
}

}  // namespace
