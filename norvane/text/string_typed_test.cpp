// Behaviour that byte and wide strings share, tested once over both.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "norvane/text/string_test_support.h"

namespace {

using kdtest::Alloc;
using kdtest::Make;
using kdtest::Rec;
using kdtest::Refs;
using kdtest::Std;
using kdtest::WellFormed;

template <class S>
class StringTest : public kdtest::ManagedTest {
 protected:
  using Kit = kdtest::StringKit<S>;
  using C = typename Kit::C;
  using View = typename Kit::View;
  using StdS = typename Kit::Std;
  static StdS T(const char* ascii) { return kdtest::T<S>(ascii); }
  static S M(const char* ascii) { return Make<S>(ascii); }
  static size_t Bytes(size_t n) { return Kit::Bytes(n); }
};

using StringTypes = ::testing::Types<CKD_ByteString, CKD_WideString>;
template <class S>
constexpr bool kByte = std::is_same_v<S, CKD_ByteString>;
TYPED_TEST_SUITE(StringTest, StringTypes);

// The model of Replace: occurrences left to right, without overlap. Returns how many.
template <class StdS>
int ReplaceAll(StdS* text, const StdS& from, const StdS& to) {
  int count = 0;
  for (size_t at = text->find(from); at != StdS::npos; at = text->find(from, at + to.size()), ++count)
    text->replace(at, from.size(), to);
  return count;
}

TYPED_TEST(StringTest, NullAndKeptEmptyRecordsReadAlike) {
  using S = TypeParam;
  using C = typename TestFixture::C;
  using View = typename TestFixture::View;
  const C empty[1] = {0};
  S a, b(empty, 0), c(static_cast<const C*>(nullptr), 0), d(View{});
  EXPECT_EQ(this->sys.allocs(), 0);
  for (S* s : {&a, &b, &c, &d}) {
    EXPECT_EQ(Rec(*s), nullptr);
    EXPECT_EQ(s->GetBuffer(0), nullptr);
    EXPECT_EQ(s->c_str()[0], 0);
  }
  // Deleting every character keeps the record, with length 0.
  S e = this->M("abc");
  EXPECT_EQ(e.Delete(0, 3), 0);
  EXPECT_EQ(Alloc(e), 3);
  for (S* s : {&a, &e}) {
    EXPECT_TRUE(s->IsEmpty());
    EXPECT_TRUE(*s == View{});
    EXPECT_EQ(s->Find(this->T("a").c_str()), -1);
    EXPECT_EQ(s->Find(C('a')), -1);
    EXPECT_TRUE(s->Mid(0).IsEmpty());
  }
  // Results of length 0 are null, even when taken from a kept empty record.
  EXPECT_EQ(Rec(e.Left(5)), nullptr);
  // Copying shares even a kept empty record; assigning from an empty string releases instead.
  S f(e), g = this->M("x");
  EXPECT_EQ(Rec(f), Rec(e));
  g = e;
  f = a;
  EXPECT_TRUE(Rec(g) == nullptr && Rec(f) == nullptr);
}

TYPED_TEST(StringTest, CopiesShareUntilOneWrites) {
  using S = TypeParam;
  auto& sys = this->sys;
  S a = this->M("hello");
  EXPECT_EQ(sys.requests(), std::vector<size_t>{this->Bytes(5)});
  S b(a), c;
  c = b;
  EXPECT_EQ(Refs(a), 3);  // one record for the three

  b.SetAt(0, 'j');  // unshares with an exact copy
  EXPECT_EQ(Std(b), this->T("jello"));
  EXPECT_EQ(Std(a), this->T("hello"));
  EXPECT_EQ(Refs(a), 2);
  EXPECT_EQ(Refs(b), 1);
  EXPECT_EQ(sys.requests().back(), this->Bytes(5));
  b.SetAt(5, 'x');  // outside the string: ignored
  b.SetAt(-1, 'x');
  EXPECT_EQ(Std(b), this->T("jello"));

  // Assigning an empty string releases; assigning the same record does nothing.
  c = S();
  EXPECT_EQ(Rec(c), nullptr);
  EXPECT_EQ(Refs(a), 1);
  c = a;
  S& alias = c;
  c = alias;
  EXPECT_EQ(Refs(a), 2);
  S moved(std::move(c));
  EXPECT_EQ(Rec(c), nullptr);
  EXPECT_EQ(Refs(a), 2);
  moved = std::move(b);
  EXPECT_EQ(Refs(a), 1);
  EXPECT_EQ(Std(moved), this->T("jello"));

  // Copying assignment from text reuses a private record that is large enough.
  long allocs = sys.allocs();
  moved = this->T("abc").c_str();
  EXPECT_EQ(sys.allocs(), allocs);
  EXPECT_EQ(Alloc(moved), 5);
  EXPECT_EQ(Std(moved), this->T("abc"));
  moved = moved.c_str() + 1;  // from its own characters
  EXPECT_EQ(Std(moved), this->T("bc"));
}

TYPED_TEST(StringTest, LockedRecordsAreNeverShared) {
  using S = TypeParam;
  S a = this->M("locked");
  S shared(a);
  ASSERT_NE(a.LockBuffer(), nullptr);  // unshares first
  EXPECT_EQ(Refs(a), -1);
  EXPECT_EQ(Refs(shared), 1);

  S b(a);  // a private copy; a stays locked
  EXPECT_NE(Rec(b), Rec(a));
  EXPECT_EQ(Refs(a), -1);
  EXPECT_EQ(Std(b), this->T("locked"));
  S m0 = a.Mid(0);  // never the locked record
  EXPECT_EQ(Refs(m0), 1);
  S whole = a.Left(100);
  EXPECT_NE(Rec(whole), Rec(a));
  EXPECT_EQ(Std(whole), this->T("locked"));

  // Assignment from a locked record copies into a private record that is large enough...
  S big = this->M("a longer text");
  auto* before = Rec(big);
  long allocs = this->sys.allocs();
  big = a;
  EXPECT_EQ(Rec(big), before);
  EXPECT_EQ(this->sys.allocs(), allocs);
  EXPECT_EQ(Std(big), this->T("locked"));
  // ...and otherwise into a new record of exactly the length.
  S small = this->M("ab");
  small = a;
  EXPECT_EQ(Alloc(small), 6);
  EXPECT_EQ(Refs(small), 1);
  // A locked target keeps its record and its lock.
  S other = this->M("xy");
  a = other;
  EXPECT_EQ(Refs(a), -1);
  EXPECT_EQ(Std(a), this->T("xy"));
  EXPECT_EQ(Refs(other), 1);
  EXPECT_EQ(S().LockBuffer(), nullptr);
  // The destructor frees the locked record: the fixture sees no block left.
}

// Appending past the allocation: the byte form grows by max(length / 2, appended), the wide form
// multiplies the allocated length (at least 2) by 1.5 until the text fits; a null string gets
// exactly the appended length.
TYPED_TEST(StringTest, AppendGrowth) {
  using S = TypeParam;
  using StdS = typename TestFixture::StdS;
  // Length, reserved room, shared, appended length, then the allocated length after: byte, wide.
  // A shared record: the byte form grows from its length, the wide form from its allocation.
  const struct {
    int len, reserve;
    bool shared;
    int add, byteAlloc, wideAlloc;
  } cases[] = {
      {1, 0, false, 1, 2, 3},       {2, 0, false, 10, 12, 13}, {10, 0, false, 1, 15, 15}, {10, 0, false, 20, 30, 33},
      {100, 0, false, 1, 150, 150}, {0, 0, false, 5, 5, 5},    {4, 0, true, 1, 6, 6},     {3, 10, true, 1, 4, 15},
  };
  for (const auto& c : cases) {
    const StdS start(static_cast<size_t>(c.len), 'x'), add(static_cast<size_t>(c.add), 'y');
    S s = Make<S>(start), other;
    if (c.reserve) s.Reserve(c.reserve);
    if (c.shared) other = s;
    s += typename TestFixture::View(add.data(), c.add);
    const int alloc = kByte<S> ? c.byteAlloc : c.wideAlloc;
    EXPECT_EQ(Alloc(s), alloc) << c.len << " + " << c.add;
    EXPECT_EQ(this->sys.requests().back(), this->Bytes(static_cast<size_t>(alloc)));
    EXPECT_EQ(Std(s), start + add);
    EXPECT_EQ(Std(other), c.shared ? start : StdS());
    long allocs = this->sys.allocs();
    while (s.GetLength() < alloc) s += typename TestFixture::C('z');  // in place
    EXPECT_EQ(this->sys.allocs(), allocs);
  }
}

TYPED_TEST(StringTest, Reserve) {
  using S = TypeParam;
  S s = this->M("abc");
  s.Reserve(40);
  EXPECT_EQ(Alloc(s), 40);
  EXPECT_EQ(this->sys.requests().back(), this->Bytes(40));
  EXPECT_EQ(Std(s), this->T("abc"));
  auto* before = Rec(s);
  s.Reserve(5);  // large enough: kept
  EXPECT_EQ(Rec(s), before);
  S shared(s);
  shared.Reserve(2);  // shared: an exact private copy
  EXPECT_NE(Rec(shared), before);
  EXPECT_EQ(Alloc(shared), 3);
  EXPECT_EQ(Std(shared), this->T("abc"));
  // The byte form reserves with GetBuffer and ReleaseBuffer(0), which leaves an empty string null;
  // the wide form makes the record.
  S e;
  e.Reserve(8);
  EXPECT_EQ(Alloc(e), kByte<S> ? 0 : 8);
  EXPECT_EQ(e.GetLength(), 0);
}

TYPED_TEST(StringTest, GetBufferAndReleaseBuffer) {
  using S = TypeParam;
  using C = typename TestFixture::C;
  S s;
  C* p = s.GetBuffer(10);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(this->sys.requests().back(), this->Bytes(10));
  EXPECT_EQ(s.GetLength(), 0);
  EXPECT_EQ(p[0], 0);
  for (int i = 0; i < 4; ++i) p[i] = static_cast<C>('w' + i);
  p[4] = 0;
  s.ReleaseBuffer();
  EXPECT_EQ(Std(s), this->T("wxyz"));
  EXPECT_EQ(Alloc(s), 10);  // never shrinks
  s.ReleaseBuffer(2);
  EXPECT_EQ(Std(s), this->T("wx"));
  s.ReleaseBuffer(50);  // clamped to the allocation
  EXPECT_EQ(s.GetLength(), 10);
  s.ReleaseBuffer(0);
  EXPECT_EQ(Rec(s), nullptr);

  // A shared string gets a new record of max(minLen, length) holding its characters.
  S a = this->M("abcdef"), b(a);
  C* q = b.GetBuffer(3);
  EXPECT_NE(Rec(b), Rec(a));
  EXPECT_EQ(Alloc(b), 6);
  EXPECT_EQ(std::basic_string<C>(q), this->T("abcdef"));
  EXPECT_EQ(b.GetBuffer(4), q);  // private and large enough: the same area
  b.GetBuffer(20);
  EXPECT_EQ(Alloc(b), 20);
  EXPECT_EQ(Std(b), this->T("abcdef"));
  b.CopyBeforeWrite();
  EXPECT_EQ(Alloc(b), 20);

  // Failure: the string empties and null comes back.
  this->sys.FailNth(1);
  EXPECT_EQ(b.GetBuffer(100), nullptr);
  EXPECT_EQ(Rec(b), nullptr);
  EXPECT_EQ(this->mgr.oom().calls, 1);
}

// Where the characters go is checked against std::string in RandomEditsMatchStdString; here, the
// records and the null string.
TYPED_TEST(StringTest, InsertDeleteRemove) {
  using S = TypeParam;
  using C = typename TestFixture::C;
  auto& sys = this->sys;
  S s = this->M("abcd");
  EXPECT_EQ(s.Insert(2, '-'), 5);  // full: a new record of exactly one more
  EXPECT_EQ(sys.requests().back(), this->Bytes(5));
  s.Reserve(20);
  long allocs = sys.allocs();
  EXPECT_EQ(s.Insert(1, '!'), 6);  // room: in place
  EXPECT_EQ(sys.allocs(), allocs);
  EXPECT_EQ(s.Delete(1), 5);  // one character by default

  EXPECT_EQ(S().Remove('a'), 0);
  S n;
  EXPECT_EQ(n.Insert(3, C('q')), 1);
  EXPECT_EQ(Std(n), this->T("q"));
  sys.FailNth(1);
  EXPECT_EQ(n.Insert(0, 'x'), 0);  // failure empties
  EXPECT_EQ(Rec(n), nullptr);
}

TYPED_TEST(StringTest, Replace) {
  using S = TypeParam;
  auto& sys = this->sys;
  auto replace = [&](S& s, const char* from, const char* to) {
    return s.Replace(this->T(from).c_str(), this->T(to).c_str());
  };
  S s = this->M("aaaa-aa");
  S shared(s);
  EXPECT_EQ(replace(s, "aa", "b"), 3);  // left to right, without overlap
  EXPECT_EQ(Std(s), this->T("bb-b"));
  EXPECT_EQ(Alloc(s), 4);
  EXPECT_EQ(Std(shared), this->T("aaaa-aa"));
  EXPECT_EQ(Refs(shared), 1);

  long allocs = sys.allocs();
  EXPECT_EQ(replace(s, "q", "zz"), 0);
  EXPECT_EQ(replace(s, "", "zz"), 0);
  EXPECT_EQ(sys.allocs(), allocs);
  S none;
  EXPECT_EQ(replace(none, "a", "b"), 0);
  EXPECT_EQ(replace(s, "b", ""), 3);
  EXPECT_EQ(replace(s, "-", ""), 1);  // nothing left: null
  EXPECT_EQ(Rec(s), nullptr);

  // A failed allocation leaves the string as it was.
  S f = this->M("one two one");
  auto* before = Rec(f);
  sys.FailNth(1);
  EXPECT_EQ(replace(f, "one", "three"), 0);
  EXPECT_EQ(Rec(f), before);
  EXPECT_EQ(Std(f), this->T("one two one"));
  EXPECT_EQ(replace(f, "one", "three"), 2);
  EXPECT_EQ(Std(f), this->T("three two three"));

  // Many matches: more than the building pass remembers from the counting pass.
  typename TestFixture::StdS many, expect;
  for (int i = 0; i < 700; ++i) {
    many += this->T(i % 3 ? "x." : ".");
    expect += this->T(i % 3 ? "x<>" : "<>");
  }
  S m = Make<S>(many);
  EXPECT_EQ(replace(m, ".", "<>"), 700);
  EXPECT_EQ(Std(m), expect);
}

TYPED_TEST(StringTest, Trims) {
  using S = TypeParam;
  using C = typename TestFixture::C;
  S s = Make<S>(this->T("\t\n\v\f\r x y \r\n\t\v\f"));
  s.TrimRight();
  EXPECT_EQ(Std(s), this->T("\t\n\v\f\r x y"));
  s.TrimLeft();
  EXPECT_EQ(Std(s), this->T("x y"));
  S set = this->M("xxabcxx");
  S shared(set);
  set.TrimRight(this->T("xc").c_str());
  set.TrimLeft(this->T("x").c_str());
  EXPECT_EQ(Std(set), this->T("ab"));
  EXPECT_EQ(Std(shared), this->T("xxabcxx"));

  // A shared record is copied even when nothing is trimmed; an empty set does nothing.
  S a = this->M("abc"), b(a), c(a);
  b.TrimRight(C('z'));
  EXPECT_NE(Rec(a), Rec(b));
  c.TrimLeft(this->T("").c_str());
  EXPECT_EQ(Rec(a), Rec(c));

  // Trimming everything keeps the record, length 0.
  S all = this->M("  ");
  all.TrimLeft();
  EXPECT_EQ(Alloc(all), 2);
  EXPECT_EQ(all.GetLength(), 0);
  EXPECT_EQ(all.c_str()[0], 0);
  S none;
  none.TrimRight();
  none.TrimLeft();
  EXPECT_EQ(Rec(none), nullptr);
}

TYPED_TEST(StringTest, ExtractionSharesTheWholeString) {
  using S = TypeParam;
  S s = this->M("abcdef");
  S m = s.Mid(0, 6), l = s.Left(6), r = s.Right(60), m1 = s.Mid(-2);
  EXPECT_EQ(Refs(s), 5);
  for (S* x : {&m, &l, &r, &m1}) EXPECT_EQ(Rec(*x), Rec(s));

  EXPECT_EQ(Std(s.Mid(2)), this->T("cdef"));
  EXPECT_EQ(Alloc(s.Mid(4, 100)), 2);  // exact
  // Empty results are null.
  for (const S& empty : {s.Mid(6), s.Mid(7, 1), s.Mid(2, -1), s.Left(-1), s.Right(0)}) EXPECT_EQ(Rec(empty), nullptr);

  S dest = this->M("old");
  s.AllocCopy(dest, 3, 1, 2);  // the extra characters are counted and zero
  EXPECT_EQ(Std(dest), this->T("bcd") + typename TestFixture::StdS(2, 0));
  s.AllocCopy(dest, 100, 4, 0);  // clamped to the string
  EXPECT_EQ(Std(dest), this->T("ef"));
  s.AllocCopy(s, 2, 0, 0);  // into itself
  EXPECT_EQ(Std(s), this->T("ab"));
}

TYPED_TEST(StringTest, ConcatenationAndComparisonOperators) {
  using S = TypeParam;
  using C = typename TestFixture::C;
  using View = typename TestFixture::View;
  S a = this->M("ab"), b = this->M("cde");
  S ab = a + b;
  EXPECT_EQ(Std(ab), this->T("abcde"));
  EXPECT_EQ(Alloc(ab), 5);  // exact
  EXPECT_EQ(Std(a + C('!')), this->T("ab!"));
  EXPECT_EQ(Std(C('!') + a), this->T("!ab"));
  EXPECT_EQ(Std(a + this->T("x").c_str()), this->T("abx"));
  EXPECT_EQ(Std(this->T("x").c_str() + a), this->T("xab"));
  EXPECT_EQ(Std(S(a, b)), this->T("abcde"));

  S s;
  s += a;
  s += this->T("-").c_str();
  s += C('+');
  s += View(b);
  s += s;  // from its own record
  EXPECT_EQ(Std(s), this->T("ab-+cdeab-+cde"));
  s += static_cast<const C*>(nullptr);
  EXPECT_EQ(s.GetLength(), 14);

  // == and != for every pairing with text, a view and a string, both ways round.
  const typename TestFixture::StdS same = this->T("ab"), other = this->T("x");
  const C *p = same.c_str(), *q = other.c_str();
  EXPECT_TRUE(a == p && p == a && a == View(p) && View(p) == a && a == S(p) && a == S(a) && a.Equal(View(p)));
  EXPECT_TRUE(a != q && q != a && a != View(q) && View(q) != a && a != b && a != S());
  EXPECT_TRUE(View() != a && S() == static_cast<const C*>(nullptr) && !(S() == q));
}

// Members that take text may be given the string's own text, whether its record is shared,
// sole-owned and exactly full (growth replaces it), or sole-owned with room to spare.
TYPED_TEST(StringTest, OwnTextAsArgument) {
  using S = TypeParam;
  using View = typename TestFixture::View;
  for (int state = 0; state < 3; ++state) {
    S s = this->M("abcdef"), other;
    if (state == 1) s.Reserve(100);
    if (state == 2) other = s;
    auto part = [&s](int at, int n) { return View(Rec(s)->GetChars() + at, n); };
    s += s;
    EXPECT_EQ(Std(s), this->T("abcdefabcdef")) << state;
    s += part(2, 3);
    EXPECT_EQ(Std(s), this->T("abcdefabcdefcde")) << state;
    if constexpr (std::is_same_v<S, CKD_ByteString>) {
      EXPECT_EQ(s.Replace(part(0, 2), part(1, 4)), 2) << state;
      EXPECT_EQ(Std(s), this->T("bcdecdefbcdecdefcde")) << state;
      EXPECT_EQ(s.Replace(part(2, 2), part(0, 1)), 5) << state;  // "de" by "b"
      EXPECT_EQ(Std(s), this->T("bcbcbfbcbcbfcb")) << state;
    } else {  // the wide form takes terminated text: the string's own tails
      EXPECT_EQ(s.Replace(s.c_str() + 12, s.c_str() + 13), 3) << state;  // "cde" by "de"
      EXPECT_EQ(Std(s), this->T("abdefabdefde")) << state;
      EXPECT_EQ(s.Replace(s.c_str() + 10, s.c_str() + 9), 3) << state;  // "de" by "fde"
      EXPECT_EQ(Std(s), this->T("abfdefabfdeffde")) << state;
      s = this->M("bcbcbfbcbcbfcb");
    }
    s = part(3, 4);
    EXPECT_EQ(Std(s), this->T("cbfb")) << state;
    s = S(part(1, 2)) + part(0, 2);
    EXPECT_EQ(Std(s), this->T("bfcb")) << state;
    if (state == 2) {
      EXPECT_EQ(Std(other), this->T("abcdef"));
    }
  }
}

// The hash against its defining recurrence h = h * factor + c (c signed, 'A'..'Z' raised by 32
// when folding), over random text of every length up to 200, past the unrolled loop's steps.
TYPED_TEST(StringTest, HashCode) {
  using C = typename TestFixture::C;
  using Kit = typename TestFixture::Kit;
  EXPECT_EQ(Kit::Hash(this->T("ab").c_str(), -1, false), 97u * Kit::kHashFactor + 98);  // -1: up to the terminator
  EXPECT_EQ(Kit::Hash(nullptr, 5, false), 0u);
  EXPECT_EQ(Kit::Hash(this->M("Key"), true), Kit::Hash(this->T("kEY").c_str(), 3, true));
  std::mt19937 rng(5);
  for (int len = 0; len <= 200; ++len) {
    typename TestFixture::StdS s;
    for (int i = 0; i < len; ++i) s += static_cast<C>(rng() % 3 == 0 ? 'A' + rng() % 26 : rng());
    for (bool fold : {false, true}) {
      uint32_t h = 0;
      for (C c : s) {
        int32_t v = static_cast<std::make_signed_t<C>>(c);
        h = h * Kit::kHashFactor + static_cast<uint32_t>(fold && v >= 'A' && v <= 'Z' ? v + 32 : v);
      }
      ASSERT_EQ(Kit::Hash(s.data(), len, fold), h) << len;
    }
  }
}

// Random edits checked against the standard library's string, with shared copies taken along the
// way that must never change. Indexes run one beyond each end, to exercise the clamping.
TYPED_TEST(StringTest, RandomEditsMatchStdString) {
  using S = TypeParam;
  using C = typename TestFixture::C;
  using StdS = typename TestFixture::StdS;
  std::mt19937 rng(31313);
  const C alphabet[] = {'a', 'b', ' ', '\t', 0, static_cast<C>(sizeof(C) == 1 ? 0xE9 : 0x1F600)};
  auto pick = [&] { return alphabet[rng() % 6]; };
  auto text = [&](size_t max) {
    StdS r;
    for (size_t n = rng() % (max + 1); n > 0; --n) r += pick();
    return r;
  };
  S s;
  StdS ref;
  std::vector<std::pair<S, StdS>> snapshots;
  for (int step = 0; step < 4000; ++step) {
    const int len = static_cast<int>(ref.size());
    const int i = static_cast<int>(rng() % (ref.size() + 3)) - 1, ci = std::clamp(i, 0, len);
    const int n = static_cast<int>(rng() % 6) - 1;
    const size_t count = n < 0 ? 0 : static_cast<size_t>(n);
    const C c = pick();
    switch (rng() % 12) {
      case 0:
        ASSERT_EQ(s.Insert(i, c), len + 1);
        ref.insert(ref.begin() + ci, c);
        break;
      case 1:
        if (n > 0 && ci < len) ref.erase(static_cast<size_t>(ci), count);
        ASSERT_EQ(s.Delete(i, n), static_cast<int>(ref.size()));
        break;
      case 2: {
        StdS add = text(6);
        s += typename TestFixture::View(add.data(), static_cast<int>(add.size()));
        ref += add;
        break;
      }
      case 3:
        s += c;
        ref += c;
        break;
      case 4: {
        const size_t before = ref.size();
        ref.erase(std::remove(ref.begin(), ref.end(), c), ref.end());
        ASSERT_EQ(static_cast<size_t>(s.Remove(c)), before - ref.size());
        break;
      }
      case 5: {
        StdS from = text(2), to = text(3);
        if (from.empty() || from.find(C(0)) != StdS::npos || to.find(C(0)) != StdS::npos) break;
        ASSERT_EQ(s.Replace(from.c_str(), to.c_str()), ReplaceAll(&ref, from, to));
        break;
      }
      case 6:
        s.TrimRight(c);
        while (!ref.empty() && ref.back() == c) ref.pop_back();
        s.TrimLeft(c);
        while (!ref.empty() && ref.front() == c) ref.erase(ref.begin());
        break;
      case 7:
        ASSERT_EQ(Std(s.Mid(i, n)), ci >= len ? StdS() : ref.substr(static_cast<size_t>(ci), count));
        ASSERT_EQ(Std(s.Left(n)), ref.substr(0, count));
        ASSERT_EQ(Std(s.Right(n)), ref.substr(ref.size() - std::min(count, ref.size())));
        break;
      case 8:
        if (i >= 0 && i < len) {
          s.SetAt(i, c);
          ref[static_cast<size_t>(i)] = c;
        }
        break;
      case 9:
        if (snapshots.size() < 8) snapshots.emplace_back(s, ref);
        break;
      case 10: {
        S copy;
        copy = s;
        s = copy;
        break;
      }
      case 11:
        if (ref.size() > 200) {
          s.Empty();
          ref.clear();
        }
        break;
    }
    ASSERT_EQ(Std(s), ref) << "step " << step;
    ASSERT_TRUE(WellFormed(s));
  }
  for (auto& [copy, expect] : snapshots) {
    EXPECT_EQ(Std(copy), expect);
    EXPECT_TRUE(WellFormed(copy));
  }
  EXPECT_EQ(this->mgr.oom().calls, 0);
}

// A scenario that touches every allocating operation, run again and again with the n-th
// allocation failing, for every n until it runs clean. Each result must be either right or empty
// (Replace: unchanged), nothing may leak, and the out-of-memory handler hears of each failure.
TYPED_TEST(StringTest, SurvivesEveryAllocationFailure) {
  using S = TypeParam;
  using C = typename TestFixture::C;
  using StdS = typename TestFixture::StdS;
  auto rightOrEmpty = [](const S& s, const StdS& expect) { return s.IsEmpty() || Std(s) == expect; };
  for (long n = 1;; ++n) {
    kdtest::TestDefaultMgr t;
    t.sys().FailNth(n);
    {
      S a = this->M("alpha beta");
      EXPECT_TRUE(rightOrEmpty(a, this->T("alpha beta")));
      S b(a);
      b += this->T(" gamma").c_str();
      EXPECT_TRUE(rightOrEmpty(b, Std(a) + this->T(" gamma")));
      for (int i = 0; i < 20; ++i) b += C('!');
      EXPECT_TRUE(WellFormed(b));
      S c = a + b;
      EXPECT_TRUE(rightOrEmpty(c, Std(a) + Std(b)));
      S d(a);
      StdS before = Std(d), replaced = before;
      ReplaceAll(&replaced, this->T("a"), this->T("AA"));
      d.Replace(this->T("a").c_str(), this->T("AA").c_str());
      EXPECT_TRUE(Std(d) == before || Std(d) == replaced);
      d.Insert(2, '^');
      d.Delete(0, 1);
      d.TrimRight(C('A'));
      d.MakeUpper();
      EXPECT_TRUE(WellFormed(d));
      S e(a);
      if (e.LockBuffer()) {
        EXPECT_EQ(Refs(e), -1);
      }
      S f(e);
      EXPECT_TRUE(rightOrEmpty(f, Std(e)));
      S g = a.Mid(1, 3);
      EXPECT_TRUE(rightOrEmpty(g, a.GetLength() > 1 ? Std(a).substr(1, 3) : StdS()));
      S h;
      h.GetBuffer(40);
      h.ReleaseBuffer(0);
      h = a;
      h.SetAt(0, 'A');
      h.Remove('l');
      h.Reserve(64);
      EXPECT_TRUE(WellFormed(h));
    }
    EXPECT_EQ(t.live_blocks(), 0u) << "failing allocation " << n;
    EXPECT_EQ(t.oom().calls, t.sys().failures());
    if (t.sys().failures() == 0) break;  // the scenario ran clean: every n has been tried
    ASSERT_LT(n, 200);
  }
}

}  // namespace
