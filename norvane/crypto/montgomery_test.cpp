// Montgomery arithmetic and the exponentiation drivers against GMP (fixed seed), with both kernel
// variants: odd and even moduli, the window table, several exponents at once, the CRT.
#include "norvane/crypto/montgomery.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "norvane/crypto/montgomery_internal.h"
#include "norvane/crypto/pki_test_internal.h"
#include "norvane/crypto/pki_words.h"
#include "norvane/runtime/cpu_features_internal.h"

namespace {

using pkitest::ForEachKernels;
using pkitest::FromMpz;
using pkitest::Gmp;
using pkitest::Hex;
using pkitest::Mpz;

KDPKI_HugeInt Random(std::mt19937_64& rng, unsigned bits, bool odd = false) {
  Mpz z;
  pkitest::Make(z, rng, bits, pkitest::kRandom);
  if (odd) mpz_setbit(z, 0);
  return FromMpz(z, static_cast<int>(rng() % 2));
}

// Odd and even moduli (1 bit: everything is 0), zero exponents (1), negative bases and exponents,
// bases above the modulus.
TEST(Montgomery, ModularExponentiationAgainstGmp) {
  std::mt19937_64 rng(11);
  struct Case {
    unsigned mod_bits, exp_bits;
    bool odd;
  };
  const Case cases[] = {{1, 5, true},      {2, 5, false},     {31, 17, true},    {32, 18, true},   {33, 64, false},
                        {64, 0, true},     {64, 0, false},    {65, 70, true},    {127, 71, false}, {128, 128, true},
                        {512, 512, true},  {512, 198, false}, {1023, 540, true}, {1024, 1024, true},
                        {1056, 300, true}, {2048, 1435, true}, {3072, 64, true}};
  ForEachKernels([&](const kdpki::Kernels& k) {
    for (const Case& c : cases) {
      for (int rep = 0; rep < 3; ++rep) {
        KDPKI_HugeInt m = Random(rng, c.mod_bits, c.odd);
        if (!c.odd && m.IsOdd()) m = m + 1u;
        KDPKI_HugeInt b = Random(rng, c.mod_bits + (rep == 2 ? 40 : 0));  // rep 2: base above m
        if (rep == 1) b = -b;
        KDPKI_HugeInt e = Random(rng, c.exp_bits);
        if (rep == 2) e = -e;  // the magnitude is used
        Mpz mb(b), me(e), mm(m), want;
        mpz_abs(me, me);
        mpz_abs(mm, mm);
        if (mpz_sgn(mm) == 0) continue;
        mpz_powm(want, mb, me, mm);
        ASSERT_EQ(Hex(KDPKI_ModularExponentiation(b, e, m)), Hex(want))
            << k.name << " m=" << mm.Hex() << " b=" << mb.Hex() << " e=" << me.Hex();
        ASSERT_EQ(Hex(b.PowerAndModule(e, m)), Hex(want));
      }
    }
  });
}

// The representation's operations against their definitions, computed with GMP.
TEST(Montgomery, RepresentationAgainstGmp) {
  std::mt19937_64 rng(12);
  ForEachKernels([&](const kdpki::Kernels& k) {
    for (unsigned bits : {17u, 64u, 96u, 300u, 1024u, 2048u}) {
      const KDPKI_HugeInt m = Random(rng, bits, true);
      const KDPKI_MontgomeryRepresentation rep(m);
      const size_t n = rep.GetWordCount();
      ASSERT_EQ(n, KDPKI_RoundupSize(m.GetWordCount()));
      Mpz mm(m), r, rinv, minv, want;
      mpz_setbit(r, 32 * n);
      mpz_invert(rinv, r, mm);
      mpz_invert(minv, mm, r);
      ASSERT_EQ(Hex(rep.GetModulusInverse()), Hex(minv));
      ASSERT_EQ(Hex(rep.Step()), Gmp(mpz_mod, r, mm));
      for (int rep_i = 0; rep_i < 6; ++rep_i) {
        const KDPKI_HugeInt a = Random(rng, bits) % m, b = Random(rng, bits > 8 ? bits - 8 : 1);
        Mpz ma(a), mb(b);
        const std::string ctx = std::string(k.name) + " m=" + mm.Hex() + " a=" + ma.Hex() + " b=" + mb.Hex();
        mpz_mul(want, ma, r);
        mpz_mod(want, want, mm);
        const KDPKI_HugeInt ain = rep.ConvertIn(a);
        ASSERT_EQ(Hex(ain), Hex(want)) << ctx;
        ASSERT_EQ(Hex(rep.ConvertOut(ain)), ma.Hex()) << ctx;
        mpz_mul(want, ma, mb);
        mpz_mul(want, want, rinv);
        mpz_mod(want, want, mm);
        ASSERT_EQ(Hex(rep.Multiply(a, b)), Hex(want)) << ctx;
        // Unreduced operands: the reduction as defined, on the product cut to 2N words.
        const KDPKI_HugeInt big = a + m * KDPKI_HugeInt(static_cast<uint32_t>(rng()));
        Mpz mbig(big), tt, q, rr;
        mpz_mul(tt, mbig, mb);
        mpz_fdiv_r_2exp(tt, tt, 64 * n);
        mpz_fdiv_r_2exp(q, tt, 32 * n);
        mpz_mul(q, q, minv);
        mpz_fdiv_r_2exp(q, q, 32 * n);
        mpz_mul(q, q, mm);
        mpz_sub(rr, tt, q);
        mpz_fdiv_q_2exp(rr, rr, 32 * n);
        if (mpz_sgn(rr) < 0) mpz_add(rr, rr, mm);
        ASSERT_EQ(Hex(rep.Multiply(big, b)), Hex(rr)) << ctx;
        // Add and Subtract: reduced for operands of the modulus's word count, otherwise as defined.
        mpz_add(want, ma, mb);
        if (mpz_cmp(want, mm) >= 0) mpz_sub(want, want, mm);
        ASSERT_EQ(Hex(rep.Add(a, b)), Hex(want)) << ctx;
        if (a.GetWordCount() == m.GetWordCount() && b.GetWordCount() == m.GetWordCount()) {
          mpz_sub(want, ma, mb);
          mpz_mod(want, want, mm);
        } else {
          mpz_sub(want, mm, mb);
          if (mpz_sgn(mb) == 0) mpz_set_ui(want, 0);
          mpz_add(want, want, ma);
        }
        ASSERT_EQ(Hex(rep.Subtract(a, b)), Hex(want)) << ctx;
        ASSERT_TRUE(rep.Inverse(KDPKI_HugeInt()).IsZero());
      }
    }
  });
}

TEST(Montgomery, WindowSlider) {
  const KDPKI_HugeInt m(1000003u);
  const KDPKI_MontgomeryRepresentation rep(m);
  const KDPKI_MultiplicativeGroup group(&rep);
  const unsigned edges[][2] = {{1, 1},   {17, 1},  {18, 2},  {24, 2},   {25, 3},   {70, 3},   {71, 4},
                               {197, 4}, {198, 5}, {539, 5}, {540, 6}, {1434, 6}, {1435, 7}, {3000, 7}};
  std::mt19937_64 rng(13);
  for (const auto& edge : edges) {
    const KDPKI_HugeInt e = Random(rng, edge[0]);
    KDPKI_WindowSlider slider;
    ASSERT_TRUE(slider.FindFirstWindow(group, e));
    EXPECT_EQ(slider.GetWindowSize(), edge[1]) << edge[0] << " bits";
    EXPECT_EQ(slider.GetBucketCount(), 1 << (edge[1] - 1));
    EXPECT_EQ(slider.GetBucket(0), rep.Step());
    // The windows rebuild the exponent: sum of (2 value + 1) 2^begin, each value below 2^(w-1).
    KDPKI_HugeInt sum, term;
    do {
      EXPECT_LT(slider.GetWindowValue(), 1u << (edge[1] - 1));
      term.Power2(slider.GetWindowBegin());
      sum += term * (2 * slider.GetWindowValue() + 1);
    } while (slider.FindNextWindow());
    EXPECT_EQ(sum, e) << edge[0];
    EXPECT_GE(slider.GetWindowBegin(), edge[0]);
  }
  KDPKI_WindowSlider none;
  EXPECT_FALSE(none.FindFirstWindow(group, KDPKI_HugeInt()));
  EXPECT_EQ(none.GetBucketCount(), 1);
}

// Several exponents at once equal separate exponentiations; zero exponents give the identity;
// a base at or above the modulus takes the group operations and agrees modulo m.
TEST(Montgomery, SimultaneousExponentiation) {
  std::mt19937_64 rng(14);
  ForEachKernels([&](const kdpki::Kernels& k) {
    // Moduli a few bits short of the radix, so that products of the unreduced base stay below R^2
    // (the reduction drops what lies above).
    for (unsigned bits : {61u, 500u, 1000u}) {
      const KDPKI_HugeInt m = Random(rng, bits, true);
      const KDPKI_MontgomeryRepresentation rep(m);
      const KDPKI_MultiplicativeGroup group(&rep);
      const KDPKI_HugeInt g = Random(rng, bits - 3);
      const KDPKI_HugeInt exps[] = {KDPKI_HugeInt(), KDPKI_HugeInt(1u), Random(rng, 20), Random(rng, bits),
                                    KDPKI_HugeInt(), Random(rng, 1500)};
      const size_t count = sizeof(exps) / sizeof(exps[0]);
      KDPKI_HugeInt results[count];
      const KDPKI_HugeInt gin = rep.ConvertIn(g);
      KDPKI_SimultaneousMultiplication(gin, exps, count, group, results);
      for (size_t i = 0; i < count; ++i) {
        const KDPKI_HugeInt want = KDPKI_ModularExponentiation(g, exps[i], m);
        EXPECT_EQ(Hex(rep.ConvertOut(results[i])), Hex(want)) << k.name << " exponent " << i;
        EXPECT_EQ(results[i], rep.Exponentiate(gin, exps[i]));
        KDPKI_HugeInt ltor;
        KDPKI_LtoRBinaryExponentiation(gin, exps[i], group, ltor);
        EXPECT_EQ(ltor, results[i]);
      }
      EXPECT_EQ(results[0], rep.Step());
      // The base plus a multiple of m: the step-by-step path.
      const KDPKI_HugeInt big = gin + m * KDPKI_HugeInt(3u);
      KDPKI_HugeInt slow[count];
      KDPKI_SimultaneousMultiplication(big, exps, count, group, slow);
      for (size_t i = 0; i < count; ++i) EXPECT_EQ(rep.ConvertOut(slow[i]) % m, rep.ConvertOut(results[i]) % m) << i;
    }
  });
}

TEST(Montgomery, CrtAndPlainPowers) {
  gmp_randstate_t state;
  gmp_randinit_default(state);
  gmp_randseed_ui(state, 15);
  for (unsigned bits : {64u, 512u, 1024u}) {
    const pkitest::RsaKey key(state, bits);
    Mpz x;
    mpz_urandomm(x, state, key.n);
    const KDPKI_HugeInt hx = FromMpz(x), hn = FromMpz(key.n), hp = FromMpz(key.p), hq = FromMpz(key.q),
                        hu = FromMpz(key.u), hd = FromMpz(key.d);
    const KDPKI_HugeInt want = KDPKI_ModularExponentiation(hx, hd, hn);
    EXPECT_EQ(KDPKI_ModularExponentiation_Fast(hx, FromMpz(key.dp), FromMpz(key.dq), hp, hq, hu), want) << bits;
    EXPECT_EQ(KDPKI_CRT(want % hp, hp, want % hq, hq, hu), want);
    // e and d agree: decrypting an encryption gives the message back.
    EXPECT_EQ(KDPKI_ModularExponentiation(want, FromMpz(key.e), hn), hx);
    EXPECT_EQ(FromMpz(key.e).InverseMod(FromMpz(key.lambda)), hd);
  }
  gmp_randclear(state);
  EXPECT_EQ(Hex(KDPKI_Exponent(KDPKI_HugeInt(12345u), KDPKI_HugeInt(77u))), Gmp(mpz_ui_pow_ui, 12345, 77));
  EXPECT_EQ(Hex(KDPKI_Exponent(-KDPKI_HugeInt(12345u), KDPKI_HugeInt(77u))), "-" + Gmp(mpz_ui_pow_ui, 12345, 77));
  EXPECT_EQ(KDPKI_Exponent(KDPKI_HugeInt(7u), KDPKI_HugeInt()), KDPKI_HugeInt(1u));
  uint32_t out[2] = {9, 9};
  const uint32_t t4[4] = {1, 2, 3, 4}, m2[2] = {5, 0};
  KDPKI_DeMontgomerize(t4, m2, nullptr, 2, out);  // a null pointer: nothing written
  EXPECT_EQ(out[0] + out[1], 18u);
}

// a^ea b^eb mod m in one pass equals the product of two powers (GMP), for exponents of different
// lengths around the window sizes, zero exponents, bases above the modulus and even moduli.
TEST(Montgomery, DoubleExponentiation) {
  std::mt19937_64 rng(16);
  const unsigned sizes[][3] = {{1, 0, 0},     {64, 0, 5},     {64, 23, 24},   {160, 160, 1},   {1024, 160, 160},
                               {1024, 199, 200}, {521, 799, 800}, {2048, 1024, 1023}, {96, 0, 0}};
  ForEachKernels([&](const kdpki::Kernels& k) {
    for (const auto& size : sizes) {
      for (bool odd : {true, false}) {
        const KDPKI_HugeInt m = Random(rng, size[0], odd), a = Random(rng, size[0] + 9), b = Random(rng, size[0] / 2 + 1),
                            ea = Random(rng, size[1]), eb = Random(rng, size[2]);
        Mpz want, t, zm(m);
        mpz_powm(want, Mpz(a), Mpz(ea), zm);
        mpz_powm(t, Mpz(b), Mpz(eb), zm);
        mpz_mul(want, want, t);
        mpz_mod(want, want, zm);
        EXPECT_EQ(Hex(kdpki::DoubleExponentiation(a, ea, b, eb, m)), Hex(want))
            << k.name << " " << size[0] << "/" << size[1] << "/" << size[2] << (odd ? " odd" : " even");
      }
    }
  });
}

// The two-at-once path for the halves of 2048-bit keys (where the processor has it) gives GMP's
// powers at the edges of its range; it stands aside for other sizes, even moduli, other kernels.
TEST(Montgomery, PairExponentiation) {
  std::mt19937_64 rng(17);
  const bool available = (KDCRT_GetCpuFeatures() & KDCRT_CPU_AVX512IFMA) != 0;
  int taken = 0;
  for (int rep = 0; rep < 24; ++rep) {
    KDPKI_HugeInt m[2], b[2], e[2], r[2];
    for (int s = 0; s < 2; ++s) {
      const unsigned bits = rep % 4 == 0 ? 993 + static_cast<unsigned>(rng() % 32) : 1024;
      Mpz zm;
      pkitest::Make(zm, rng, bits, rep == 5 ? pkitest::kAllOnes : pkitest::kRandom);
      mpz_setbit(zm, 0);
      m[s] = FromMpz(zm);
      const int kind = (rep + s) % 6;
      b[s] = kind == 0 ? KDPKI_HugeInt() : kind == 1 ? KDPKI_HugeInt(1u) : kind == 2 ? m[s] - 1u : Random(rng, bits) % m[s];
      const unsigned ebits[] = {0, 1, 2, 5, 160, 1023, 1024, 1100};
      e[s] = Random(rng, ebits[(rep + 3 * s) % 8]);
    }
    if (!kdpki::PairExponentiation(b, e, m, r)) continue;
    ++taken;
    for (int s = 0; s < 2; ++s) {
      Mpz want;
      mpz_powm(want, Mpz(b[s]), Mpz(e[s]), Mpz(m[s]));
      EXPECT_EQ(Hex(r[s]), Hex(want)) << "case " << rep << " set " << s;
    }
  }
  EXPECT_EQ(taken, available ? 24 : 0);
  // Not for it: a 992-bit or 1025-bit modulus, an even one, a base at the modulus, other kernels.
  std::mt19937_64 rng2(18);
  KDPKI_HugeInt m[2] = {Random(rng2, 1024, true), Random(rng2, 1024, true)}, b[2] = {KDPKI_HugeInt(3u), KDPKI_HugeInt(5u)},
                e[2] = {KDPKI_HugeInt(7u), KDPKI_HugeInt(9u)}, r[2];
  for (const auto& change : std::vector<std::pair<int, KDPKI_HugeInt>>{
           {0, Random(rng2, 992, true)}, {1, Random(rng2, 1025, true)}, {0, Random(rng2, 1023) << 1}}) {
    KDPKI_HugeInt mm[2] = {m[0], m[1]};
    mm[change.first] = change.second;
    EXPECT_FALSE(kdpki::PairExponentiation(b, e, mm, r));
  }
  KDPKI_HugeInt at[2] = {m[0], b[1]};
  EXPECT_FALSE(kdpki::PairExponentiation(at, e, m, r));
  const kdpki::Kernels& previous = kdpki::SelectKernels(kdpki::PortableKernels());
  EXPECT_FALSE(kdpki::PairExponentiation(b, e, m, r));
  kdpki::SelectKernels(previous);
}

}  // namespace
