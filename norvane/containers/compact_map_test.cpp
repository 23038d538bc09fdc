#include "norvane/containers/compact_map.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "norvane/containers/compact_map_internal.h"
#include "tests/support/test_mgr.h"

namespace {

using kdtest::TestDefaultMgr;
using kdtest::TestMgr;

// The key code written out plainly: h * 31 + c for the low half, the RS hash for the high one,
// both over bytes taken as signed.
uint32_t ReferenceCode(const std::string& s) {
  if (s.empty()) return 0;
  uint32_t h = 0, rs = 0, a = 63689;
  for (char c : s) {
    const auto v = static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(c)));
    h = h * 31 + v;
    rs = rs * a + v;
    a *= 378551;
  }
  return (h & 0xFFFF) | (rs & 0x7FFF0000);
}

CKD_ByteStringC View(const std::string& s) { return CKD_ByteStringC(s.data(), static_cast<int>(s.size())); }
void* Value(uintptr_t v) { return reinterpret_cast<void*>(v); }

// Exposes the entries of a map.
struct ByteMapProbe : CKD_CMapByteStringToPtr {
  using CKD_CMapByteStringToPtr::CKD_CMapByteStringToPtr;
  const CEntry& Entry(int i) const { return *static_cast<const CEntry*>(m_Entries.GetAt(i)); }
  int Entries() const { return m_Entries.GetSize(); }
};

// The (key, value) pairs in iteration order.
std::vector<std::pair<std::string, void*>> Pairs(const CKD_CMapByteStringToPtr& m) {
  std::vector<std::pair<std::string, void*>> out;
  for (void* pos = m.GetStartPosition(); pos;) {
    CKD_ByteString key;
    void* value;
    m.GetNextAssoc(pos, key, value);
    out.emplace_back(std::string(key.c_str(), key.GetLength()), value);
  }
  return out;
}

TEST(CompactMapKeys, CodesAndStoredForms) {
  // Values worked out by hand from the two hashes.
  const struct {
    std::string key;
    uint32_t code;
  } vectors[] = {{"", 0}, {"a", 0x61}, {"ab", 0xE70C21}, {"abc", 0x31017862}, {"\xE9", 0x7FFFFFE9},
                 {"hello world", 0x418EE2C4}, {"hello world!", 0x50AA75DD}};
  for (const auto& v : vectors) EXPECT_EQ(CKD_CMapByteStringToPtr::KeyCode(View(v.key)), v.code) << v.key;
  EXPECT_EQ(CKD_CMapByteStringToPtr::KeyCode(CKD_ByteStringC()), 0u);
  std::mt19937 rng(5);
  for (int i = 0; i < 300; ++i) {
    std::string s(rng() % 200, '\0');
    for (char& c : s) c = static_cast<char>(rng());
    ASSERT_EQ(CKD_CMapByteStringToPtr::KeyCode(View(s)), ReferenceCode(s)) << i;
  }

  // 11 bytes stay inline; 12 go to a block of their own with a big-endian length; past 65535
  // only the low 16 bits of the length are kept, and the key reads back that short.
  TestMgr t;
  const struct {
    size_t length;
    uint8_t mark;
    int stored_length;
    size_t blocks;
  } forms[] = {{0, 0, 0, 0}, {11, 11, 11, 0}, {12, 255, 12, 1}, {300, 255, 300, 1}, {70000, 255, 4464, 1}, {65536, 255, 0, 1}};
  for (const auto& form : forms) {
    std::string key(form.length, 'k');
    for (size_t i = 0; i < key.size(); ++i) key[i] = static_cast<char>('a' + i % 23);
    _CompactString cs;
    ASSERT_TRUE(_CompactStringStore(t.allocator(), &cs, reinterpret_cast<const uint8_t*>(key.data()),
                                    static_cast<int>(key.size())));
    EXPECT_EQ(cs.m_dwCode, ReferenceCode(key));
    EXPECT_EQ(cs.m_Mark, form.mark) << form.length;
    EXPECT_EQ(t.live_blocks(), form.blocks);
    if (form.mark == 255) {
      EXPECT_EQ((cs.m_Head[0] << 8) | cs.m_Head[1], form.stored_length);
    }
    CKD_ByteStringC back = _CompactStringView(cs);
    EXPECT_EQ(std::string(back.GetCStr(), back.GetLength()), key.substr(0, form.stored_length));
    if (form.mark == 255) t.allocator()->m_Free(t.allocator(), cs.m_pLongKey);
  }
  _CompactString removed = {};
  removed.m_Mark = _CompactString::kDeleted;
  EXPECT_EQ(_CompactStringView(removed).GetLength(), 0);

  // The lookup step and the dword comparison.
  ByteMapProbe m;
  m.SetAt("x", Value(3));
  KDCMapLookup lookup = {ReferenceCode("x"), nullptr};
  CKD_CMapByteStringToPtr::CEntry entry = m.Entry(0);
  EXPECT_FALSE(_CMapLookupCallback(&lookup, &entry));
  EXPECT_EQ(lookup.value, Value(3));
  lookup.code = 7;
  EXPECT_TRUE(_CMapLookupCallback(&lookup, &entry));
  const uint32_t keys[] = {5, 3, 0x90000000u};
  EXPECT_GT(_CompareDWord(&keys[0], &keys[1]), 0);
  EXPECT_LT(_CompareDWord(&keys[1], &keys[0]), 0);
  EXPECT_GT(_CompareDWord(&keys[1], &keys[2]), 0);  // 3 - 0x90000000 is positive as an int
}

TEST(CompactMap, SetAtAddValueRemoveKeyAndPositions) {
  ByteMapProbe m;
  m.SetAt("a", Value(1));
  m.SetAt("a", Value(2));
  EXPECT_EQ(m.Entries(), 1);
  m.AddValue("a", Value(3));
  EXPECT_EQ(m.GetCount(), 2);
  void* v = nullptr;
  EXPECT_TRUE(m.Lookup("a", v));
  EXPECT_EQ(v, Value(2));  // the first entry
  EXPECT_FALSE(m.Lookup("b", v));

  // Keys are the same when their codes are, whatever their bytes.
  ASSERT_EQ(ReferenceCode("znGQHWiu"), ReferenceCode("egfemsrD"));
  m.SetAt("znGQHWiu", Value(4));
  m.SetAt("egfemsrD", Value(5));
  EXPECT_TRUE(m.Lookup("znGQHWiu", v));
  EXPECT_EQ(v, Value(5));
  EXPECT_EQ(m.Entries(), 3);

  // A removed entry is skipped by count, lookup and iteration, and reused by the next new key.
  m.SetAt("a long key of many bytes", Value(6));
  m.RemoveKey("a");  // the first "a"; the AddValue one stays
  m.RemoveKey("missing");
  EXPECT_EQ(m.GetCount(), 3);
  EXPECT_TRUE(m.Lookup("a", v));
  EXPECT_EQ(v, Value(3));
  EXPECT_EQ(m.Entry(0).key.m_Mark, _CompactString::kDeleted);
  EXPECT_EQ(m.Entry(0).key.m_dwCode, _CompactString::kDeletedCode);
  EXPECT_EQ(m.GetStartPosition(), Value(2));
  EXPECT_EQ(Pairs(m), (std::vector<std::pair<std::string, void*>>{
                          {"a", Value(3)}, {"znGQHWiu", Value(5)}, {"a long key of many bytes", Value(6)}}));
  m.RemoveKey("a long key of many bytes");
  m.SetAt("new", Value(7));
  EXPECT_EQ(m.Entries(), 4);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(m.Entry(0).key.m_Head), 3), "new");

  // Positions are entry numbers: a removed entry read directly gives an empty key; a position
  // past the entries ends the walk without reading.
  void* pos = Value(4);
  CKD_ByteString key("x");
  m.GetNextAssoc(pos, key, v);
  EXPECT_TRUE(key.IsEmpty() && pos == nullptr);
  pos = Value(1);
  EXPECT_EQ(m.GetNextValue(pos), Value(7));
  EXPECT_EQ(pos, Value(2));
  for (uintptr_t bad : {uintptr_t(0), uintptr_t(5), ~uintptr_t(0)}) {
    pos = Value(bad);
    m.GetNextAssoc(pos, key, v);
    EXPECT_TRUE(key.IsEmpty() && v == nullptr && pos == nullptr);
    pos = Value(bad);
    EXPECT_EQ(m.GetNextValue(pos), nullptr);
  }

  // The empty key is a key like any other.
  m.SetAt("", Value(8));
  EXPECT_TRUE(m.Lookup(CKD_ByteStringC(), v));
  EXPECT_EQ(v, Value(8));
  m.RemoveAll();
  EXPECT_TRUE(m.GetCount() == 0 && m.GetStartPosition() == nullptr && m.Entries() == 0);
}

// Random SetAt, RemoveKey and Lookup against std::map keyed by the key code, with keys of 0 to
// 70000 bytes; every long key block is freed.
TEST(CompactMap, MatchesMapByCodeUnderRandomEdits) {
  TestDefaultMgr t;
  std::mt19937 rng(777);
  std::vector<std::string> keys;
  for (int i = 0; i < 120; ++i) {
    unsigned pick = rng() % 10;
    size_t length = pick < 6 ? rng() % 12 : pick < 9 ? 12 + rng() % 300 : rng() % 70001;
    std::string key(length, '\0');
    for (char& c : key) c = static_cast<char>(rng());
    keys.push_back(key);
  }
  std::map<uint32_t, std::pair<std::string, void*>> model;
  {
    CKD_CMapByteStringToPtr m;
    for (int step = 0; step < 4000; ++step) {
      const std::string& key = keys[rng() % keys.size()];
      const uint32_t code = ReferenceCode(key);
      void* value = Value(rng());
      void* got = nullptr;
      switch (rng() % 4) {
        case 0:
        case 1:
          m.SetAt(View(key), value);
          model.emplace(code, std::make_pair(key, value)).first->second.second = value;
          break;
        case 2:
          m.RemoveKey(View(key));
          model.erase(code);
          break;
        default:
          ASSERT_EQ(m.Lookup(View(key), got), model.count(code) == 1);
          if (model.count(code)) {
            ASSERT_EQ(got, model[code].second);
          }
      }
      if (step % 100 == 0) {
        ASSERT_EQ(m.GetCount(), static_cast<int>(model.size()));
        // Iteration gives each key as stored: only the low 16 bits of a longer length.
        std::vector<std::pair<std::string, void*>> expect;
        for (const auto& entry : model) {
          const std::string& stored = entry.second.first;
          expect.emplace_back(stored.substr(0, stored.size() & 0xFFFF), entry.second.second);
        }
        auto seen = Pairs(m);
        std::sort(expect.begin(), expect.end());
        std::sort(seen.begin(), seen.end());
        ASSERT_EQ(seen, expect);
      }
    }
  }
  EXPECT_EQ(t.live_blocks(), 0u);
  EXPECT_EQ(t.sys().bad_frees(), 0);
}

TEST(CompactDWordMap, OrderReplaceAndKeptComparison) {
  CKD_CMapDWordToDWord m;
  uint32_t v = 0;
  EXPECT_FALSE(m.Lookup(1, v));
  EXPECT_EQ(m.GetStartPosition(), nullptr);
  for (uint32_t k : {5u, 1u, 3u}) ASSERT_TRUE(m.SetAt(k, k * 10));
  ASSERT_TRUE(m.SetAt(3, 9));
  std::vector<std::pair<uint32_t, uint32_t>> records;
  for (void* pos = m.GetStartPosition(); pos;) {
    uint32_t k, value;
    m.GetNextAssoc(pos, k, value);
    records.emplace_back(k, value);
  }
  EXPECT_EQ(records, (std::vector<std::pair<uint32_t, uint32_t>>{{1, 10}, {3, 9}, {5, 50}}));
  void* pos = Value(4);
  uint32_t k = 1;
  m.GetNextAssoc(pos, k, v);
  EXPECT_TRUE(pos == nullptr && k == 0 && v == 0);

  // Keys more than 2^31 apart compare the wrong way: 1 sorts below 0x90000000, but the lookup's
  // first probe finds 1 - 0x90000000 positive and looks above it.
  CKD_CMapDWordToDWord far;
  far.SetAt(0x90000000u, 2);
  far.SetAt(1, 1);
  EXPECT_TRUE(far.Lookup(0x90000000u, v) && v == 2);
  EXPECT_FALSE(far.Lookup(1, v));

  // Records are counted in 8 bytes: room for 100 records is 800 bytes.
  TestMgr t;
  CKD_CMapDWordToDWord sized(t.allocator());
  ASSERT_TRUE(sized.EstimateSize(100, 10));
  EXPECT_EQ(t.sys().requests().back(), 800u);
  for (uint32_t i = 0; i < 101; ++i) sized.SetAt(i, i);
  EXPECT_EQ(t.sys().requests().back(), 880u);
  sized.RemoveAll();
  EXPECT_TRUE(sized.GetCount() == 0 && t.live_blocks() == 0);
}

// Random SetAt and Lookup against a sorted vector searched with std::lower_bound; keys stay below
// 2^31 apart so the kept comparison orders them rightly.
TEST(CompactDWordMap, MatchesSortedVector) {
  std::mt19937 rng(31337);
  std::vector<std::pair<uint32_t, uint32_t>> model;
  CKD_CMapDWordToDWord m;
  for (int step = 0; step < 20000; ++step) {
    uint32_t key = rng() % 3000 * 0x9E37u;
    auto it = std::lower_bound(model.begin(), model.end(), std::make_pair(key, 0u),
                               [](const auto& a, const auto& b) { return a.first < b.first; });
    bool present = it != model.end() && it->first == key;
    uint32_t v = 0;
    if (rng() % 2) {
      uint32_t value = rng();
      ASSERT_TRUE(m.SetAt(key, value));
      if (present) {
        it->second = value;
      } else {
        model.insert(it, {key, value});
      }
    } else {
      ASSERT_EQ(m.Lookup(key, v), present);
      if (present) {
        ASSERT_EQ(v, it->second);
      }
    }
  }
  ASSERT_EQ(m.GetCount(), static_cast<int>(model.size()));
  size_t i = 0;
  for (void* pos = m.GetStartPosition(); pos; ++i) {
    uint32_t k, v;
    m.GetNextAssoc(pos, k, v);
    ASSERT_EQ(std::make_pair(k, v), model[i]);
  }
  EXPECT_EQ(i, model.size());
}

// Each allocation along a scenario fails in turn: the insertion that needed it changes nothing,
// and the maps stay usable and leak-free.
TEST(CompactMaps, FailedAllocationsChangeNothing) {
  std::vector<std::string> keys;
  for (int i = 0; i < 40; ++i) keys.push_back(std::string(i % 3 ? 4 : 20, static_cast<char>('a' + i % 26)) + std::to_string(i));
  for (long n = 1;; ++n) {
    TestMgr t;
    t.sys().FailNth(n);
    std::map<uint32_t, void*> model;
    long missed = 0;
    {
      CKD_CMapByteStringToPtr m(t.allocator());
      for (size_t i = 0; i < keys.size(); ++i) {
        if (i == 30) {  // a slot to reuse, with a long key to store in it
          m.RemoveKey(View(keys[3]));
          model.erase(ReferenceCode(keys[3]));
        }
        m.SetAt(View(keys[i]), Value(i + 1));
        void* v = nullptr;
        if (m.Lookup(View(keys[i]), v)) {
          ASSERT_EQ(v, Value(i + 1));
          model[ReferenceCode(keys[i])] = v;
        } else {
          ++missed;
        }
        ASSERT_EQ(m.GetCount(), static_cast<int>(model.size()));
      }
    }
    EXPECT_EQ(missed, t.sys().failures()) << n;
    EXPECT_EQ(t.live_blocks(), 0u);
    if (missed == 0) break;
  }
  for (long n = 1;; ++n) {
    TestMgr t;
    t.sys().FailNth(n);
    CKD_CMapDWordToDWord m(t.allocator());
    int stored = 0;
    for (uint32_t i = 0; i < 200; ++i) stored += m.SetAt(i * 7919 % 200, i);
    EXPECT_EQ(m.GetCount(), stored);
    m.RemoveAll();
    EXPECT_EQ(t.live_blocks(), 0u);
    if (t.sys().failures() == 0) break;
    EXPECT_EQ(stored, 199) << n;
  }
}

}  // namespace
