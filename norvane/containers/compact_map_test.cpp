#include "norvane/containers/compact_map.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/test_mgr.h"

namespace {

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

struct ByteMapProbe : CKD_CMapByteStringToPtr {
  using CKD_CMapByteStringToPtr::CKD_CMapByteStringToPtr;
  const _CompactString& Key(int i) const { return static_cast<const CEntry*>(m_Entries.GetAt(i))->key; }
  int Entries() const { return m_Entries.GetSize(); }
};

using Pairs = std::vector<std::pair<std::string, void*>>;

Pairs Iterated(const CKD_CMapByteStringToPtr& m) {
  Pairs out;
  for (void* pos = m.GetStartPosition(); pos;) {
    CKD_ByteString key;
    void* value;
    m.GetNextAssoc(pos, key, value);
    out.emplace_back(std::string(key.c_str(), key.GetLength()), value);
  }
  return out;
}

TEST(CompactMap, KeyCodesAndStoredForms) {
  // Codes worked out by hand; the last two keys differ but share a code.
  const struct {
    std::string key;
    uint32_t code;
  } vectors[] = {{"", 0},          {"a", 0x61},       {"ab", 0xE70C21},         {"abc", 0x31017862},
                 {"\xE9", 0x7FFFFFE9}, {"hello world!", 0x50AA75DD}, {"znGQHWiu", 0x1D036A99}, {"egfemsrD", 0x1D036A99}};
  for (const auto& v : vectors) EXPECT_EQ(CKD_CMapByteStringToPtr::KeyCode(View(v.key)), v.code) << v.key;

  // 11 bytes stay inline; from 12 bytes a block of their own holds the key, with the length
  // big-endian in the entry: past 65535 only its low 16 bits, and the key reads back that short.
  TestMgr t;
  ByteMapProbe m(t.allocator());
  const struct {
    size_t length;
    uint8_t mark;
    size_t stored;
  } forms[] = {{0, 0, 0}, {11, 11, 11}, {12, 255, 12}, {300, 255, 300}, {70000, 255, 4464}, {65536, 255, 0}};
  Pairs expect;
  for (const auto& form : forms) {
    std::string key(form.length, 'k');
    for (size_t i = 0; i < key.size(); ++i) key[i] = static_cast<char>('a' + i % 23);
    m.AddValue(View(key), Value(form.length));
    const _CompactString& cs = m.Key(m.Entries() - 1);
    EXPECT_TRUE(cs.m_dwCode == ReferenceCode(key) && cs.m_Mark == form.mark) << form.length;
    EXPECT_TRUE(form.mark != 255 || static_cast<size_t>((cs.m_Head[0] << 8) | cs.m_Head[1]) == form.stored);
    expect.emplace_back(key.substr(0, form.stored), Value(form.length));
  }
  EXPECT_EQ(Iterated(m), expect);
  EXPECT_EQ(t.live_blocks(), 5u);  // four long keys and one segment
}

TEST(CompactMap, SetAtAddValueRemoveKeyAndPositions) {
  ByteMapProbe m;
  void* v = nullptr;
  m.SetAt("a", Value(1));
  m.SetAt("a", Value(2));
  m.AddValue("a", Value(3));
  EXPECT_TRUE(m.Entries() == 2 && m.GetCount() == 2 && m.Lookup("a", v) && v == Value(2) && !m.Lookup("b", v));
  // Keys are the same when their codes are, whatever their bytes.
  m.SetAt("znGQHWiu", Value(4));
  m.SetAt("egfemsrD", Value(5));
  EXPECT_TRUE(m.Entries() == 3 && m.Lookup("znGQHWiu", v) && v == Value(5));

  // A removed entry is passed over by count, lookup and iteration, and reused by the next new key.
  m.SetAt("a long key of many bytes", Value(6));
  m.RemoveKey("a");  // the first "a"
  m.RemoveKey("missing");
  EXPECT_TRUE(m.GetCount() == 3 && m.Lookup("a", v) && v == Value(3));
  EXPECT_TRUE(m.Key(0).m_Mark == _CompactString::kDeleted && m.Key(0).m_dwCode == 0xFFFFFFFFu);
  EXPECT_EQ(m.GetStartPosition(), Value(2));
  EXPECT_EQ(Iterated(m), (Pairs{{"a", Value(3)}, {"znGQHWiu", Value(5)}, {"a long key of many bytes", Value(6)}}));
  m.RemoveKey("a long key of many bytes");
  m.SetAt("new", Value(7));  // into the first removed entry
  EXPECT_TRUE(m.Entries() == 4 && std::string(reinterpret_cast<const char*>(m.Key(0).m_Head), 3) == "new");

  // Positions are entry numbers: a removed entry read directly gives an empty key; a position
  // that is no entry ends the walk without reading.
  void* pos = Value(4);
  CKD_ByteString key("x");
  m.GetNextAssoc(pos, key, v);
  EXPECT_TRUE(key.IsEmpty() && pos == nullptr);
  pos = Value(1);
  EXPECT_TRUE(m.GetNextValue(pos) == Value(7) && pos == Value(2));
  for (uintptr_t bad : {uintptr_t(0), uintptr_t(5), ~uintptr_t(0)}) {
    m.GetNextAssoc(pos = Value(bad), key, v);
    EXPECT_TRUE(key.IsEmpty() && v == nullptr && pos == nullptr);
  }
  m.SetAt("", Value(8));  // the empty key is a key like any other
  EXPECT_TRUE(m.Lookup(CKD_ByteStringC(), v) && v == Value(8));
}

// Random SetAt, RemoveKey and Lookup against std::map keyed by the key code, with keys of 0 to
// 70000 bytes; every long key block is freed.
TEST(CompactMap, MatchesMapByCodeUnderRandomEdits) {
  TestMgr t;
  std::mt19937 rng(777);
  std::vector<std::string> keys(120);
  for (std::string& key : keys) {
    unsigned pick = rng() % 10;
    key.resize(pick < 6 ? rng() % 12 : pick < 9 ? 12 + rng() % 300 : rng() % 70001);
    for (char& c : key) c = static_cast<char>(rng());
    ASSERT_EQ(CKD_CMapByteStringToPtr::KeyCode(View(key)), ReferenceCode(key));
  }
  std::map<uint32_t, std::pair<std::string, void*>> model;
  {
    CKD_CMapByteStringToPtr m(t.allocator());
    for (int step = 0; step < 4000; ++step) {
      const std::string& key = keys[rng() % keys.size()];
      const uint32_t code = ReferenceCode(key);
      void* value = Value(rng());
      void* got = nullptr;
      switch (rng() % 4) {
        case 0:
        case 1:
          m.SetAt(View(key), value);
          model.emplace(code, std::make_pair(key, value)).first->second.second = value;  // keeps the first key
          break;
        case 2:
          m.RemoveKey(View(key));
          model.erase(code);
          break;
        default:
          ASSERT_EQ(m.Lookup(View(key), got), model.count(code) == 1);
          ASSERT_TRUE(!model.count(code) || got == model[code].second);
      }
      if (step % 100 == 0) {
        ASSERT_EQ(m.GetCount(), static_cast<int>(model.size()));
        Pairs expect, seen = Iterated(m);
        for (const auto& e : model) expect.emplace_back(e.second.first.substr(0, e.second.first.size() & 0xFFFF), e.second.second);
        std::sort(expect.begin(), expect.end());
        std::sort(seen.begin(), seen.end());
        ASSERT_EQ(seen, expect);
      }
    }
  }
  EXPECT_TRUE(t.live_blocks() == 0 && t.sys().bad_frees() == 0);
}

// Records stay sorted; Lookup agrees with std::lower_bound while keys lie less than 2^31 apart,
// and misses beyond that, where the kept signed-difference comparison looks the wrong way.
TEST(CompactDWordMap, OrderLookupAndKeptComparison) {
  TestMgr t;
  CKD_CMapDWordToDWord m(t.allocator());
  uint32_t k = 0, v = 0;
  EXPECT_TRUE(!m.Lookup(1, v) && m.GetStartPosition() == nullptr);  // empty
  std::vector<std::pair<uint32_t, uint32_t>> model;
  std::mt19937 rng(31337);
  for (int step = 0; step < 20000; ++step) {
    const uint32_t first[] = {5, 1, 3, 3};  // then 3 again: replaced in place
    const uint32_t key = step < 4 ? first[step] : rng() % 3000 * 0x9E37u;
    auto it = std::lower_bound(model.begin(), model.end(), std::make_pair(key, 0u),
                               [](const auto& a, const auto& b) { return a.first < b.first; });
    const bool present = it != model.end() && it->first == key;
    if (step < 4 || rng() % 2) {
      const uint32_t value = rng();
      ASSERT_TRUE(m.SetAt(key, value));
      if (!present) it = model.insert(it, {key, 0});
      it->second = value;
    } else {
      ASSERT_EQ(m.Lookup(key, v), present);
      ASSERT_TRUE(!present || v == it->second);
    }
  }
  ASSERT_EQ(m.GetCount(), static_cast<int>(model.size()));
  size_t i = 0;
  for (void* pos = m.GetStartPosition(); pos; ++i) {
    m.GetNextAssoc(pos, k, v);
    ASSERT_EQ(std::make_pair(k, v), model[i]);
  }
  void* pos = Value(i + 1);
  m.GetNextAssoc(pos, k, v);
  EXPECT_TRUE(i == model.size() && pos == nullptr && k == 0 && v == 0);

  CKD_CMapDWordToDWord far;
  far.SetAt(0x90000000u, 2);
  far.SetAt(1, 1);  // sorts first, but 1 - 0x90000000 is positive as an int
  EXPECT_TRUE(far.Lookup(0x90000000u, v) && v == 2 && !far.Lookup(1, v));

  // Room is estimated in records of 8 bytes.
  m.RemoveAll();
  EXPECT_TRUE(m.EstimateSize(100, 10) && t.sys().requests().back() == 800u);
  for (uint32_t key = 0; key < 101; ++key) m.SetAt(key, key);
  EXPECT_EQ(t.sys().requests().back(), 880u);
}

// Each allocation along a scenario fails in turn: the insertion that needed it changes nothing,
// and the maps stay usable and leak-free.
TEST(CompactMaps, FailedAllocationsChangeNothing) {
  auto key = [](int i) { return std::string(i % 3 ? 4 : 20, static_cast<char>('a' + i % 26)) + std::to_string(i); };
  for (long n = 1;; ++n) {
    TestMgr t;
    t.sys().FailNth(n);
    long missed = 0, missed_records = 0;
    {
      CKD_CMapByteStringToPtr m(t.allocator());
      CKD_CMapDWordToDWord d(t.allocator());
      for (int i = 0; i < 40; ++i) {
        if (i == 30) m.RemoveKey(View(key(3)));  // a slot to reuse, for a long key
        m.SetAt(View(key(i)), Value(i + 1));
        void* v = nullptr;
        missed += !m.Lookup(View(key(i)), v);
        ASSERT_TRUE(!v || v == Value(i + 1));
        for (int j = 0; j < 5; ++j) missed_records += !d.SetAt((i * 5 + j) * 7919 % 200, i);
      }
      int found = 0;
      for (int i = 0; i < 40; ++i) {
        void* v;
        found += m.Lookup(View(key(i)), v);
      }
      EXPECT_EQ(m.GetCount(), found);
      EXPECT_EQ(d.GetCount(), 200 - missed_records);
    }
    EXPECT_TRUE(missed + missed_records == t.sys().failures() && t.live_blocks() == 0) << n;
    if (t.sys().failures() == 0) break;
  }
}

}  // namespace
