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
  static void Next(const Map& m, void*& position, ModelKey& key, void*& value) {
    void* k;
    m.GetNextAssoc(position, k, value);
    key = Model(k);
  }
};

// String keys are copied into string records of their own.
struct StringMapCase {
  using Map = CKD_MapByteStringToPtr;
  using ModelKey = std::string;
  static constexpr size_t kBlocksPerKey = 1;
  static CKD_ByteString Key(int i) { return CKD_ByteString(("key" + std::to_string(i)).c_str()); }
  static ModelKey Model(const CKD_ByteString& key) { return std::string(key.c_str(), key.GetLength()); }
  static void Next(const Map& m, void*& position, ModelKey& key, void*& value) {
    CKD_ByteString k;
    m.GetNextAssoc(position, k, value);
    key = Model(k);
  }
};

template <class Case>
class HashMapTest : public ::testing::Test {};
using MapCases = ::testing::Types<PtrMapCase, StringMapCase>;
TYPED_TEST_SUITE(HashMapTest, MapCases);

// The entries of m in iteration order.
template <class Case>
std::vector<std::pair<typename Case::ModelKey, void*>> Entries(const typename Case::Map& m) {
  std::vector<std::pair<typename Case::ModelKey, void*>> out;
  for (void* pos = m.GetStartPosition(); pos;) {
    typename Case::ModelKey k;
    void* v;
    Case::Next(m, pos, k, v);
    out.emplace_back(k, v);
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
          ASSERT_TRUE(!model.count(mkey) || got == model[mkey]);
          break;
      }
      ASSERT_EQ(m.GetCount(), static_cast<int>(model.size()));
      if (step % 97 == 0) {
        auto entries = Entries<Case>(m);
        ASSERT_EQ(entries.size(), model.size());  // no key visited twice
        ASSERT_EQ((std::map<typename Case::ModelKey, void*>(entries.begin(), entries.end())),
                  (std::map<typename Case::ModelKey, void*>(model.begin(), model.end())));
      }
      // An emptied map holds no memory at all (the test's own key aside).
      ASSERT_TRUE(!model.empty() || t.live_blocks() == Case::kBlocksPerKey);
    }
  }
  EXPECT_TRUE(t.live_blocks() == 0 && t.sys().bad_frees() == 0);
}

// The table doubles when the count reaches the number of buckets, until it has more than 10000.
TYPED_TEST(HashMapTest, TableGrowsAtCountEqualsBucketsUpTo16384) {
  using Case = TypeParam;
  typename Case::Map m(64);
  EXPECT_EQ(m.GetHashTableSize(), 16u);
  const struct {
    int count;
    unsigned int buckets;
  } checkpoints[] = {{15, 16}, {16, 32}, {31, 32}, {32, 64}, {20000, 16384}};
  int n = 0;
  for (const auto& c : checkpoints) {
    for (; n < c.count; ++n) m[Case::Key(n)] = reinterpret_cast<void*>(static_cast<uintptr_t>(n));
    EXPECT_EQ(m.GetHashTableSize(), c.buckets) << c.count;
  }
  // The size is kept when the map is emptied: the next table has as many buckets.
  m.RemoveAll();
  EXPECT_TRUE(m.GetHashTableSize() == 16384u && m.GetStartPosition() == nullptr);
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
  size_t requests = t.sys().requests().size();
  m[Case::Key(10)] = nullptr;  // the 11th entry needs a second block
  EXPECT_EQ(t.live_blocks(), 3u + 11 * keys);
  const auto& made = t.sys().requests();
  EXPECT_NE(std::find(made.begin() + requests, made.end(), 8 + 10 * sizeof(typename Case::Map::CAssoc)), made.end());

  // A removed entry's storage is the first to be used again.
  EXPECT_TRUE(m.RemoveKey(Case::Key(4)) && !m.RemoveKey(Case::Key(4)));
  m[Case::Key(50)] = nullptr;
  unsigned int bucket;
  EXPECT_EQ(reinterpret_cast<uintptr_t>(m.GetAssocAt(Case::Key(50), bucket)), addresses[4]);

  // Removing every entry gives all memory back; lookups then find nothing.
  for (int i : {0, 1, 2, 3, 5, 6, 7, 8, 9, 10, 50}) m.RemoveKey(Case::Key(i));
  void* v = nullptr;
  EXPECT_TRUE(t.live_blocks() == 0 && !m.Lookup(Case::Key(0), v));
}

TYPED_TEST(HashMapTest, FailedDoublingKeepsTheMapWorking) {
  using Case = TypeParam;
  TestDefaultMgr t;
  typename Case::Map m(100);
  m[Case::Key(0)] = nullptr;
  t.sys().FailAbove(16 * sizeof(void*));  // the 32-bucket table can never be had
  for (int i = 1; i < 60; ++i) m[Case::Key(i)] = reinterpret_cast<void*>(static_cast<uintptr_t>(i));
  EXPECT_TRUE(m.GetHashTableSize() == 16u && m.GetCount() == 60 && Entries<Case>(m).size() == 60u);
  void* v = nullptr;
  EXPECT_TRUE(m.Lookup(Case::Key(59), v) && v == reinterpret_cast<void*>(59));
}

// Iteration runs from -1 (before the first entry) to null, bucket by bucket, newest first within
// a bucket.
TYPED_TEST(HashMapTest, IterationIsByBucketNewestFirst) {
  using Case = TypeParam;
  typename Case::Map m(4);
  EXPECT_EQ(m.GetStartPosition(), nullptr);
  std::vector<int> in3, in1;  // keys falling in buckets 3 and 1 of 16
  for (int i = 0; in3.size() < 3 || in1.empty(); ++i) {
    const unsigned int bucket = m.HashKey(Case::Key(i)) % 16;
    if (bucket == 3 && in3.size() < 3) in3.push_back(i);
    if (bucket == 1 && in1.empty()) in1.push_back(i);
  }
  for (int i : {in3[0], in3[1], in1[0], in3[2]}) m[Case::Key(i)] = nullptr;
  EXPECT_EQ(m.GetStartPosition(), reinterpret_cast<void*>(-1));
  std::vector<typename Case::ModelKey> order, expected;
  for (auto& entry : Entries<Case>(m)) order.push_back(entry.first);
  for (int i : {in1[0], in3[2], in3[1], in3[0]}) expected.push_back(Case::Model(Case::Key(i)));
  EXPECT_EQ(order, expected);
}

TEST(MapByteStringToPtr, HashesBucketsAndKeyCopies) {
  CKD_MapByteStringToPtr m(4);
  EXPECT_TRUE(m.HashKey("abc") == 96354u && m.HashKey("") == 0u && m.HashKey("\xFF") == 255u);  // bytes as unsigned
  unsigned int bucket = 99;
  EXPECT_TRUE(m.GetAssocAt("abc", bucket) == nullptr && bucket == 2u);
  // Keys are copies; each entry keeps its bucket, refreshed when the table doubles.
  std::string scratch = "temporary";
  m[scratch.c_str()] = &bucket;
  scratch[0] = 'T';
  void* v;
  EXPECT_TRUE(m.Lookup("temporary", v));
  for (int i = 0; i < 40; ++i) m[("x" + std::to_string(i)).c_str()] = nullptr;
  EXPECT_EQ(m.GetHashTableSize(), 64u);
  void* pos = m.GetStartPosition();
  while (pos) {
    CKD_MapByteStringToPtr::CAssoc* a = m.GetCurrentAssoc(pos);
    ASSERT_EQ(a->nBucket, m.HashKey(a->key) % 64);
  }
  pos = m.GetStartPosition();
  size_t seen = 0;
  while (pos) seen += m.GetNextValue(pos) == &bucket;
  EXPECT_EQ(seen, 1u);
  // InitHashTable on this map leaves the count as it is.
  m.RemoveAll();
  m["one"] = nullptr;
  CKD_MapByteStringToPtr::CAssoc* orphan = m.GetAssocAt("one", bucket);
  m.InitHashTable(32, true);
  EXPECT_TRUE(m.GetCount() == 1 && m.GetHashTableSize() == 32);
  EXPECT_FALSE(m.Lookup("one", v));  // its entry is no longer in the table
  orphan->key.Empty();  // so nothing can release its key any more; the test does
  m.RemoveAll();
}

TEST(MapPtrToPtr, HashesBucketsAndInitHashTable) {
  CKD_MapPtrToPtr m(10);
  void* key = reinterpret_cast<void*>(0x12345678);
  EXPECT_TRUE(m.HashKey(key) == 769516204u && m.HashKey(reinterpret_cast<void*>(0x100000000)) == 1313u);
  // The bucket is reported even before the table exists.
  unsigned int bucket = 99;
  EXPECT_TRUE(m.GetAssocAt(key, bucket) == nullptr && bucket == 12u && m.GetValueAt(nullptr) == nullptr);

  // InitHashTable on this map also zeroes the count.
  m[key] = nullptr;
  m.InitHashTable(64, false);
  void* v;
  EXPECT_TRUE(m.GetCount() == 0 && m.GetHashTableSize() == 64 && !m.Lookup(key, v));
  m.InitHashTable(0, true);  // no bucket count of zero
  EXPECT_EQ(m.GetHashTableSize(), 1u);
  m[key] = reinterpret_cast<void*>(7);
  EXPECT_EQ(m.GetValueAt(key), reinterpret_cast<void*>(7));

  // A block size below 1 is taken as 1.
  TestDefaultMgr t;
  CKD_MapPtrToPtr one(0);
  one[key] = one[&t] = nullptr;
  EXPECT_TRUE(t.sys().requests().back() == 8 + sizeof(CKD_MapPtrToPtr::CAssoc) && one.GetCount() == 2);
}

TEST(MapPtrToPtr, TrySetAtSurvivesWithoutMemory) {
  TestDefaultMgr t;
  CKD_MapPtrToPtr m(10);
  t.sys().FailNth(2);  // the table is had, the entry block is not
  // The table went back: an empty map holds nothing.
  EXPECT_TRUE(!KDMAP_TrySetAt(m, &t, &m) && m.GetCount() == 0 && t.live_blocks() == 0u);
  EXPECT_TRUE(KDMAP_TrySetAt(m, &t, &m) && m.GetValueAt(&t) == &m);
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
