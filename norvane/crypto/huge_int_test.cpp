// KDPKI_HugeInt and the word kernels, checked against GMP on operands of many shapes (fixed
// seed), with both kernel variants; storage rules and byte forms.
#include "norvane/crypto/huge_int.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "norvane/crypto/pki_test_internal.h"
#include "norvane/crypto/pki_words.h"
#include "norvane/crypto/smart_pointer.h"
#include "tests/support/test_mgr.h"

namespace {

using pkitest::ForEachKernels;
using pkitest::FromMpz;
using pkitest::Gmp;
using pkitest::Hex;
using pkitest::Mpz;

// Operands of every edge size and shape, both signs, some with zero words above the value.
std::vector<KDPKI_HugeInt> Operands(std::mt19937_64& rng) {
  std::vector<KDPKI_HugeInt> out;
  Mpz z;
  for (unsigned bits : pkitest::EdgeBits()) {
    for (pkitest::Shape shape : {pkitest::kRandom, pkitest::kPowerOfTwo, pkitest::kAllOnes, pkitest::kSparse}) {
      pkitest::Make(z, rng, bits, shape);
      if (rng() & 1) mpz_neg(z, z);
      out.push_back(FromMpz(z, static_cast<int>(rng() % 3)));
    }
  }
  out.push_back(KDPKI_HugeInt(5u));  // a one-word value held in two words, upper word 0
  return out;
}

// Floored division by |b|: the divisor's sign is not looked at (the library's rule).
void Expected(mpz_t q, mpz_t r, mpz_t a, mpz_t b) {
  Mpz abs_b;
  mpz_abs(abs_b, b);
  mpz_fdiv_qr(q, r, a, abs_b);
}

TEST(PkiWords, TablesAndHelpers) {
  const size_t roundup[][2] = {{0, 2},  {1, 2},   {2, 2},   {3, 4},     {4, 4},     {5, 8},   {8, 8},
                               {9, 16}, {16, 16}, {17, 32}, {33, 64},   {64, 64},   {65, 128}, {128, 128},
                               {129, 256}, {1000, 1024}, {(size_t{1} << 31) + 1, 0}};
  for (const auto& c : roundup) EXPECT_EQ(KDPKI_RoundupSize(c[0]), c[1]) << c[0];
  std::mt19937_64 rng(1);
  for (int i = 0; i < 200; ++i) {
    const uint32_t w = static_cast<uint32_t>(rng()) >> (rng() % 32);
    EXPECT_EQ(KDPKI_BitPrecision(w), w ? 32u - static_cast<unsigned>(__builtin_clz(w)) : 0u);
  }
  EXPECT_EQ(KDPKI_Swap32(0x01020304u), 0x04030201u);
  const uint8_t x[3] = {1, 2, 3}, y[3] = {3, 3, 3};
  uint8_t z[3];
  KDPKI_ExecutedOrBytes(z, x, y, 3);
  EXPECT_EQ(z[0] | (z[1] << 8) | (z[2] << 16), 2 | (1 << 8) | (0 << 16));

  uint32_t a[3] = {0xFFFFFFFFu, 0xFFFFFFFFu, 0};
  EXPECT_EQ(KDPKI_Increment(a, 2), 1u);  // carries out of the two words given
  EXPECT_EQ(a[0] | a[1] | a[2], 0u);
  EXPECT_EQ(KDPKI_Decrement(a, 3, 2), 1u);
  EXPECT_EQ(a[0], 0xFFFFFFFEu);
  KDPKI_TwosComplement(a, 3);
  EXPECT_EQ(a[0], 2u);
  EXPECT_EQ(a[1] | a[2], 0u);
  uint32_t s[2] = {0x80000001u, 0x80000000u};
  EXPECT_EQ(KDPKI_ShiftWordsLeftByBits(s, 2, 1), 1u);
  EXPECT_EQ(s[0], 2u);
  EXPECT_EQ(s[1], 1u);
  EXPECT_EQ(KDPKI_ShiftWordsRightByBits(s, 2, 2), 0x80000000u);
  KDPKI_ShiftWordsLeftByWords(s, 2, 5);
  EXPECT_EQ(s[0] | s[1], 0u);
  EXPECT_EQ(KDPKI_GetBit(a, 3, 1), 1u);
  EXPECT_EQ(KDPKI_GetBit(a, 3, 96), 0u);
}

// The two-word division kernels against 128-bit arithmetic.
TEST(PkiWords, AtomicDivision) {
  std::mt19937_64 rng(2);
  for (int i = 0; i < 2000; ++i) {
    const uint64_t b = rng() | (uint64_t{1} << 63);
    const uint64_t hi = rng() % b, lo = rng();
    const unsigned __int128 num = (static_cast<unsigned __int128>(hi) << 64) | lo;
    const uint32_t bw[2] = {static_cast<uint32_t>(b), static_cast<uint32_t>(b >> 32)};
    const uint32_t aw[4] = {static_cast<uint32_t>(lo), static_cast<uint32_t>(lo >> 32), static_cast<uint32_t>(hi),
                            static_cast<uint32_t>(hi >> 32)};
    uint32_t q[2];
    KDPKI_AtomicDivide(q, aw, bw);
    ASSERT_EQ(q[0] | (static_cast<uint64_t>(q[1]) << 32), static_cast<uint64_t>(num / b));
    uint32_t c[4];
    KDPKI_AtomicMultiply(c, bw, q);
    KDPKI_AtomicMultiplyBottom(c, bw, q);
    ASSERT_EQ(c[0] | (static_cast<uint64_t>(c[1]) << 32), static_cast<uint64_t>(b * (num / b)));
    // The accumulating forms: c += a * b over four words, and over the low two.
    const unsigned __int128 c0 = (static_cast<unsigned __int128>(rng()) << 64) | rng();
    uint32_t acc[4];
    for (int j = 0; j < 4; ++j) acc[j] = static_cast<uint32_t>(c0 >> (32 * j));
    KDPKI_AtomicMultiplyAdd(acc, bw, q);
    const unsigned __int128 sum = c0 + static_cast<unsigned __int128>(b) * static_cast<uint64_t>(num / b);
    for (int j = 0; j < 4; ++j) ASSERT_EQ(acc[j], static_cast<uint32_t>(sum >> (32 * j)));
    KDPKI_AtomicMultiplyBottomAdd(acc, bw, q);
    ASSERT_EQ(acc[0] | (static_cast<uint64_t>(acc[1]) << 32), static_cast<uint64_t>(sum) + b * static_cast<uint64_t>(num / b));
    if (b & 1) {
      KDPKI_AtomicInverseModPower2(c, bw);
      ASSERT_EQ((c[0] | (static_cast<uint64_t>(c[1]) << 32)) * b, 1u);
    }
  }
}

// + - * / % on every operand pair family, against GMP, with both kernel variants.
TEST(HugeInt, ArithmeticAgainstGmp) {
  std::mt19937_64 rng(4);
  const std::vector<KDPKI_HugeInt> ops = Operands(rng);
  ForEachKernels([&](const kdpki::Kernels& k) {
    for (size_t i = 0; i < ops.size(); ++i) {
      for (int rep = 0; rep < 12; ++rep) {
        const KDPKI_HugeInt& a = ops[i];
        const KDPKI_HugeInt& b = ops[rng() % ops.size()];
        Mpz ma(a), mb(b), want, want_r;
        const std::string ctx = std::string(k.name) + " a=" + ma.Hex() + " b=" + mb.Hex();
        ASSERT_EQ(Hex(a + b), Gmp(mpz_add, ma, mb)) << ctx;
        ASSERT_EQ(Hex(a - b), Gmp(mpz_sub, ma, mb)) << ctx;
        const KDPKI_HugeInt p = a * b;
        ASSERT_EQ(Hex(p), Gmp(mpz_mul, ma, mb)) << ctx;
        ASSERT_EQ(p.IsNegative(), mpz_sgn(ma) * mpz_sgn(mb) < 0) << "zero products have sign 0";
        ASSERT_EQ(a.Compare(b), mpz_cmp(ma, mb) < 0 ? -1 : mpz_cmp(ma, mb) > 0);
        ASSERT_EQ(a < b, mpz_cmp(ma, mb) < 0);
        ASSERT_EQ(a == b, mpz_cmp(ma, mb) == 0);
        if (mpz_sgn(mb) != 0) {
          Expected(want, want_r, ma, mb);
          ASSERT_EQ(Hex(a / b), Hex(want)) << ctx;
          ASSERT_EQ(Hex(a % b), Hex(want_r)) << ctx;
        }
        const unsigned shift = static_cast<unsigned>(rng() % 100);
        ASSERT_EQ(Hex(a << shift), Gmp(mpz_mul_2exp, ma, shift)) << ctx;
        ASSERT_EQ(Hex(a >> shift), Gmp(mpz_tdiv_q_2exp, ma, shift)) << ctx;
        Mpz abs_a, abs_b;
        mpz_abs(abs_a, ma);
        mpz_abs(abs_b, mb);
        ASSERT_EQ(Hex(a & b), Gmp(mpz_and, abs_a, abs_b)) << ctx;

        const uint32_t words[] = {0, 1, 2, 3, 0x10000u, 0xFFFFFFFFu, static_cast<uint32_t>(rng())};
        const uint32_t w = words[rng() % 7];
        ASSERT_EQ(Hex(a + w), Gmp(mpz_add_ui, ma, w)) << ctx << " w=" << w;
        ASSERT_EQ(Hex(a - w), Gmp(mpz_sub_ui, ma, w)) << ctx << " w=" << w;
        ASSERT_EQ(Hex(a * w), Gmp(mpz_mul_ui, ma, w)) << ctx << " w=" << w;
        if (w) {
          KDPKI_HugeInt q;
          ASSERT_EQ(KDPKI_HugeInt::ShortDivide(q, a, w), mpz_fdiv_ui(ma, w));
          ASSERT_EQ(Hex(q), Gmp(mpz_fdiv_q_ui, ma, w));
          ASSERT_EQ(Hex(a / w), Hex(q)) << ctx << " w=" << w;
          ASSERT_EQ(a % w, mpz_fdiv_ui(ma, w)) << ctx << " w=" << w;
        }
        mpz_fdiv_r_2exp(want, abs_a, 64);
        uint64_t low = mpz_getlimbn(want, 0);
        if (a.IsNegative()) low = 0 - low;
        ASSERT_EQ(a.ConvertToLong(), static_cast<int64_t>(low));
      }
    }
  });
}

// The division rules, results into operands, and division by zero.
TEST(HugeInt, DivisionRulesAndAliasing) {
  const int64_t cases[][4] = {{-7, 2, -4, 1}, {7, 2, 3, 1}, {7, -2, 3, 1}, {-7, -2, -4, 1}, {-8, 2, -4, 0},
                              {-3, 5, -1, 2}, {0, 5, 0, 0}};
  for (const auto& c : cases) {
    KDPKI_HugeInt a(static_cast<uint32_t>(c[0] < 0 ? -c[0] : c[0])), b(static_cast<uint32_t>(c[1] < 0 ? -c[1] : c[1]));
    if (c[0] < 0) a = -a;
    if (c[1] < 0) b = -b;
    KDPKI_HugeInt r, q;
    KDPKI_HugeInt::Divide(a, b, r, q);
    EXPECT_EQ(q.ConvertToLong(), c[2]) << c[0] << "/" << c[1];
    EXPECT_EQ(r.ConvertToLong(), c[3]) << c[0] << "%" << c[1];
    EXPECT_EQ((a % b).ConvertToLong(), c[3]);
  }
  EXPECT_EQ((-KDPKI_HugeInt(7u)) % 2u, 1u);
  EXPECT_EQ((-KDPKI_HugeInt(7u) / 2u).ConvertToLong(), -4);

  KDPKI_HugeInt r(11u), q(12u);
  KDPKI_HugeInt::Divide(KDPKI_HugeInt(5u), KDPKI_HugeInt(), r, q);
  EXPECT_EQ(r.ConvertToLong(), 11);  // untouched
  EXPECT_EQ(q.ConvertToLong(), 12);
  EXPECT_EQ(KDPKI_HugeInt::ShortDivide(q, KDPKI_HugeInt(5u), 0), 0u);
  EXPECT_EQ(q.ConvertToLong(), 12);
  EXPECT_TRUE((KDPKI_HugeInt(5u) % KDPKI_HugeInt()).IsZero());

  std::mt19937_64 rng(5);
  Mpz za, zb, want, want_r;
  pkitest::Make(za, rng, 700, pkitest::kRandom);
  pkitest::Make(zb, rng, 300, pkitest::kRandom);
  mpz_neg(za, za);
  KDPKI_HugeInt x = FromMpz(za), d = FromMpz(zb);
  Expected(want, want_r, za, zb);
  KDPKI_HugeInt x2 = x, d2 = d;
  KDPKI_HugeInt::Divide(x2, d2, d2, x2);  // remainder into the divisor, quotient into the dividend
  EXPECT_EQ(Hex(x2), Hex(want));
  EXPECT_EQ(Hex(d2), Hex(want_r));
  KDPKI_HugeInt s = x;
  KDPKI_HugeInt::Multiply(s, s, s);  // squares through the square kernel
  EXPECT_EQ(Hex(s), Gmp(mpz_mul, za, za));
  s = x;
  KDPKI_HugeInt::Addition(s, s, s);
  s -= x;
  s *= d;
  s /= d;
  EXPECT_EQ(s, x);
  s %= d;
  EXPECT_EQ(Hex(s), Hex(want_r));
  KDPKI_HugeInt pm;
  KDPKI_HugeInt::PositiveSubstract(pm, d, x);  // |d| - |x| < 0
  EXPECT_EQ(Hex(pm), Gmp(mpz_add, zb, za));
  KDPKI_HugeInt::PositiveMultiply(pm, x, d);
  EXPECT_FALSE(pm.IsNegative());
  EXPECT_TRUE((x * KDPKI_HugeInt()).IsZero() && !(x * KDPKI_HugeInt()).IsNegative());
}

TEST(HugeInt, NumberTheoryAgainstGmp) {
  std::mt19937_64 rng(6);
  const std::vector<KDPKI_HugeInt> ops = Operands(rng);
  Mpz want, t;
  for (size_t i = 0; i < ops.size(); ++i) {
    const KDPKI_HugeInt& a = ops[i];
    const KDPKI_HugeInt& b = ops[rng() % ops.size()];
    Mpz ma(a), mb(b);
    const std::string ctx = "a=" + ma.Hex() + " b=" + mb.Hex();
    // GCD keeps the sign of the last non-zero value of the remainder sequence.
    const KDPKI_HugeInt g = KDPKI_HugeInt::GCD(a, b);
    mpz_gcd(want, ma, mb);
    const bool b_divides = mpz_sgn(mb) != 0 && mpz_divisible_p(ma, mb);
    if (mpz_sgn(mb) == 0 ? mpz_sgn(ma) < 0 : (b_divides && mpz_sgn(mb) < 0)) mpz_neg(want, want);
    ASSERT_EQ(Hex(g), Hex(want)) << ctx;
    if (!g.IsZero()) {
      Mpz mg(g), r;
      Expected(t, r, ma, mg);
      mpz_mul(want, t, mb);
      ASSERT_EQ(Hex(KDPKI_HugeInt::LCM(a, b)), Hex(want)) << ctx;
    }
    // Inverses modulo |b| (odd and even moduli), and modulo a word.
    const KDPKI_HugeInt m = b.IsNegative() ? -b : b;
    Mpz mm(m);
    if (mpz_cmp_ui(mm, 1) > 0 && mpz_invert(want, ma, mm)) {
      ASSERT_EQ(Hex(a.InverseMod(m)), Hex(want)) << ctx;
    } else {
      ASSERT_TRUE(a.InverseMod(m).IsZero()) << ctx;
    }
    const uint32_t w = static_cast<uint32_t>(rng()) >> (rng() % 32);
    Mpz mw;
    mpz_set_ui(mw, w);
    const uint32_t wi = w > 1 && mpz_invert(want, ma, mw) ? static_cast<uint32_t>(mpz_get_ui(want)) : 0;
    ASSERT_EQ(a.InverseMod(w), wi) << ctx << " w=" << w;
    // Square roots from above: floor of the root; IsSquare on squares and their neighbours.
    if (a.IsNegative()) {
      ASSERT_TRUE(a.SquareRoot().IsZero());
      ASSERT_FALSE(a.IsSquare());
    } else {
      ASSERT_EQ(Hex(a.SquareRoot()), Gmp(mpz_sqrt, ma)) << ctx;
      const KDPKI_HugeInt sq = a * a;
      ASSERT_TRUE(sq.IsSquare());
      ASSERT_EQ(a.IsSquare(), mpz_perfect_square_p(ma) != 0);
      ASSERT_FALSE((sq + 1u).IsSquare() && !a.IsZero());
    }
  }
  // Inverses that do not exist, and the even-modulus formula.
  EXPECT_TRUE(KDPKI_HugeInt(4u).InverseMod(KDPKI_HugeInt(10u)).IsZero());
  EXPECT_TRUE(KDPKI_HugeInt(3u).InverseMod(KDPKI_HugeInt()).IsZero());
  EXPECT_TRUE(KDPKI_HugeInt(3u).InverseMod(-KDPKI_HugeInt(7u)).IsZero());
  EXPECT_EQ(KDPKI_HugeInt(1u).InverseMod(KDPKI_HugeInt(10u)), KDPKI_HugeInt(1u));
  EXPECT_EQ(KDPKI_HugeInt(3u).InverseMod(KDPKI_HugeInt(10u)), KDPKI_HugeInt(7u));
  EXPECT_EQ((-KDPKI_HugeInt(3u)).InverseMod(KDPKI_HugeInt(10u)), KDPKI_HugeInt(3u));
  EXPECT_EQ(KDPKI_HugeInt(6u).InverseMod(10u), 0u);
  KDPKI_HugeInt p2;
  p2.Power2(100);
  EXPECT_EQ(Hex(p2), Gmp(mpz_ui_pow_ui, 2, 100));
  EXPECT_EQ(Hex(KDPKI_HugeInt(3u).Power(KDPKI_HugeInt(200u))), Gmp(mpz_ui_pow_ui, 3, 200));
  EXPECT_EQ(KDPKI_HugeInt(3u).Power(KDPKI_HugeInt()), KDPKI_HugeInt(1u));
}

TEST(HugeInt, BytesAndStorage) {
  std::mt19937_64 rng(7);
  for (int n = 0; n < 70; ++n) {
    std::vector<uint8_t> bytes(static_cast<size_t>(n) + 1);  // never empty: a null source is ignored
    for (uint8_t& b : bytes) b = static_cast<uint8_t>(rng());
    for (int i = 0; i < n && i < 5; ++i) bytes[static_cast<size_t>(i)] = 0;  // leading zeros
    KDPKI_HugeInt x;
    x.Decode(bytes.data(), n);
    EXPECT_FALSE(x.IsNegative());
    std::vector<uint8_t> back(static_cast<size_t>(n) + 3, 0xEE);
    x.Encode(back.data(), n);
    EXPECT_EQ(std::memcmp(back.data(), bytes.data(), static_cast<size_t>(n)), 0) << n;
    EXPECT_EQ(back[static_cast<size_t>(n)], 0xEE);  // exactly n bytes written
    if (n > 8) {
      x.Encode(back.data(), 3);  // the low three bytes of a longer value
      EXPECT_EQ(std::memcmp(back.data(), bytes.data() + n - 3, 3), 0);
      x.Encode(back.data(), n + 2);  // zeros above the value
      EXPECT_EQ(back[0] | back[1], 0);
      EXPECT_EQ(std::memcmp(back.data() + 2, bytes.data(), static_cast<size_t>(n)), 0);
    }
    KDPKI_IntegerBlock block;
    block.CopyBytes(bytes.data(), n);
    EXPECT_EQ(static_cast<size_t>(block.GetSize()), KDPKI_RoundupSize((static_cast<size_t>(n) + 3) / 4));
    for (int i = 0; i < n; ++i) EXPECT_EQ(block.GetByte(static_cast<size_t>(i)), bytes[static_cast<size_t>(n - 1 - i)]);
  }
  const uint8_t zeros[6] = {};
  KDPKI_HugeInt z(9u);
  z.Decode(zeros, 6);
  EXPECT_TRUE(z.IsZero());

  // Growth policies: SetSize exact, ReSize doubling, copies of twice the size; never shrink.
  KDPKI_IntegerBlock b;
  EXPECT_TRUE(b.SetSize(5));
  EXPECT_EQ(b.GetCapacity(), 5);
  EXPECT_TRUE(b.ReSize(6));
  EXPECT_EQ(b.GetCapacity(), 12);
  EXPECT_TRUE(b.SetSize(3));
  EXPECT_EQ(b.GetCapacity(), 12);
  b.SetUsed(3);
  const KDPKI_IntegerBlock copy(b);
  EXPECT_EQ(copy.GetCapacity(), 6);
  EXPECT_EQ(copy.GetSize(), 3);
  b.Clear();
  EXPECT_EQ(b.GetCapacity() + b.GetSize(), 0);

  // SetByte cuts the value to i / 4 + 1 words; words it brings into use read 0.
  KDPKI_HugeInt v;
  v.Decode(reinterpret_cast<const uint8_t*>("\x11\x22\x33\x44\x55\x66\x77\x88\x99"), 9);
  v.SetByte(1, 0xAB);
  EXPECT_EQ(v.Magnitude().GetSize(), 1);
  EXPECT_EQ(v.ConvertToLong(), 0x6677AB99);
  v.SetByte(9, 0x01);
  EXPECT_EQ(v.Magnitude().GetSize(), 3);
  EXPECT_EQ(v.GetByte(4) | v.GetByte(8), 0);
  EXPECT_EQ(v.GetByte(9), 1);
  EXPECT_EQ(v.GetBitCount(), 73u);
  EXPECT_EQ(v.GetByteCount(), 10u);
  EXPECT_EQ(v.GetWordCount(), 3u);
}

TEST(HugeInt, SharedConstants) {
  EXPECT_TRUE(KDPKI_HugeInt::Zero().IsZero());
  EXPECT_EQ(KDPKI_HugeInt::One().ConvertToLong(), 1);
  EXPECT_EQ(KDPKI_HugeInt::Two().ConvertToLong(), 2);
  EXPECT_EQ(KDPKI_HugeInt::Three().ConvertToLong(), 3);
  KDPKI_Init();  // frees the instances through the manager that made them
  kdtest::TestDefaultMgr t;
  (void)KDPKI_HugeInt::Three();
  EXPECT_EQ(t.live_blocks(), 1u);
  KDPKI_Finalize();
  EXPECT_EQ(t.live_blocks(), 0u);
  EXPECT_EQ(KDPKI_HugeInt::Three().ConvertToLong(), 3);  // rebuilt on the next use
  KDPKI_Finalize();
  {
    CSmartPointer<KDPKI_HugeInt> p(new KDPKI_HugeInt(5u));
    p.Reset(new KDPKI_HugeInt(*p * 3u));
    EXPECT_EQ(p->ConvertToLong(), 15);
    EXPECT_EQ(t.live_blocks(), 2u);  // the object and its words
  }
  EXPECT_EQ(t.live_blocks(), 0u);
  EXPECT_EQ(t.sys().bad_frees(), 0);
}

}  // namespace
