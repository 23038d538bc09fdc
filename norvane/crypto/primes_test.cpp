// The small-prime table, the primality tests, the sieve and the prime search against GMP (fixed
// seeds): random numbers of every size, the borders of the decision's ranges, constructed
// pseudoprimes; the random draws against the generator's bytes.
#include "norvane/crypto/primes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "norvane/crypto/cavp_test_util.h"
#include "norvane/crypto/pki_test_internal.h"

namespace {

using pkitest::FromMpz;
using pkitest::Hex;
using pkitest::Mpz;
using H = KDPKI_HugeInt;

bool GmpPrime(const mpz_t n) { return mpz_sgn(n) > 0 && mpz_probab_prime_p(n, 25) != 0; }

// A random value of exactly bits bits, odd when asked.
void RandomBits(mpz_t z, std::mt19937_64& rng, unsigned bits, bool odd = false) {
  pkitest::Make(z, rng, bits, pkitest::kRandom);
  if (odd && bits) mpz_setbit(z, 0);
}

// The product of the table primes (those not dividing divisor), by GMP.
void TablePrimes(mpz_t out, const mpz_t divisor) {
  Mpz p;
  mpz_set_ui(out, 1);
  for (int i = 0; i < KDPKI_PRIME_TABLE_SIZE; ++i) {
    mpz_nextprime(p, p);
    if (!mpz_divisible_p(divisor, p)) mpz_mul(out, out, p);
  }
}

// Completion from the stored part (until then only primes to 4003 divide), against GMP's primes;
// trial division with its bound; the divisor test against a gcd with the table's product.
TEST(PrimeTable, CompletionAndDivisors) {
  KDPKI_BuildPrimeTable();
  std::fill(primeTable + KDPKI_PRIME_TABLE_STORED, primeTable + KDPKI_PRIME_TABLE_SIZE, 0u);
  bLoad = primeTableSize = 0;
  EXPECT_FALSE(KDPKI_TrialDivision(H(4007u * 4007u), 5000));
  EXPECT_TRUE(KDPKI_TrialDivision(H(4003u * 4003u), 5000));
  EXPECT_TRUE(KDPKI_IsSmallPrime(H(4007u)));  // completes the table
  EXPECT_TRUE(bLoad == 1 && primeTableSize == 1);
  EXPECT_TRUE(KDPKI_TrialDivision(H(4007u * 4007u), 5000));
  Mpz p, all, n, g;
  for (int i = 0; i < KDPKI_PRIME_TABLE_SIZE; ++i) {
    mpz_nextprime(p, p);
    ASSERT_EQ(primeTable[i], mpz_get_ui(p)) << i;
  }
  const uint32_t m = 32719 * 3, sq = 32719u * 32719u;  // {n, bound, divides}
  const uint32_t trials[][3] = {{7, 7, 1}, {7, 6, 0}, {143, 11, 1}, {143, 10, 0},   {0, 2, 1},
                                {1, 9, 0}, {m, 3, 1}, {m, 2, 0},    {sq, 32718, 0}, {sq, 40000, 1}};
  for (const auto& t : trials) EXPECT_EQ(KDPKI_TrialDivision(H(t[0]), t[1]), t[2] != 0) << t[0] << " " << t[1];

  TablePrimes(all, Mpz(H(1u)));
  std::mt19937_64 rng(31);
  for (int i = 0; i < 3000; ++i) {
    RandomBits(n, rng, static_cast<unsigned>(1 + rng() % 700), true);
    if (i % 3 == 0) mpz_mul_ui(n, n, primeTable[rng() % KDPKI_PRIME_TABLE_SIZE]);  // reaches every group
    if (i % 3 == 1) mpz_set_ui(n, primeTable[i % KDPKI_PRIME_TABLE_SIZE]);
    if (i % 97 == 0) mpz_neg(n, n);
    mpz_gcd(g, n, all);
    ASSERT_EQ(KDPKI_SmallDivisorsTest(FromMpz(n)), mpz_cmp_ui(g, 1) == 0) << Hex(n);
  }
  EXPECT_FALSE(KDPKI_SmallDivisorsTest(H()));
  primeTableSize = 0;  // the searches use the stored part only
  EXPECT_TRUE(KDPKI_SmallDivisorsTest(H(4007u * 4007u)));
  EXPECT_FALSE(KDPKI_IsSmallPrime(H(4007u)));
  primeTableSize = 1;
}

// IsPrime against mpz_probab_prime_p: random and random odd numbers of every size from 1 to 2048
// bits, primes and products of two primes of many sizes, the borders 32719 and 32719^2.
TEST(Primality, IsPrimeAgainstGmp) {
  std::mt19937_64 rng(32);
  Mpz n, q;
  for (unsigned bits = 1; bits <= 2048; ++bits) {
    // GMP's next prime is slow at large sizes: primes at some, products of two only to 512 bits.
    const bool sampled = bits <= 80 || (bits <= 512 && bits % 23 == 0) || bits % 512 == 0 || bits == 1279;
    for (int kind = 0; kind < (sampled ? (bits <= 512 ? 4 : 3) : 2); ++kind) {
      RandomBits(n, rng, bits, kind == 1);
      if (kind >= 2) mpz_nextprime(n, n);
      if (kind == 3) {
        RandomBits(q, rng, bits / 2 + 1, true);
        mpz_nextprime(q, q);
        mpz_mul(n, n, q);
      }
      const H h = FromMpz(n, static_cast<int>(rng() % 2));
      ASSERT_EQ(KDPKI_IsPrime(h), GmpPrime(n)) << bits << " bits: " << Hex(n);
      const bool passes = KDPKI_IsStrongProbablePrime(h, H(2u)) && KDPKI_IsFermatProbablePrime(h, H(2u));
      EXPECT_TRUE(kind != 2 || bits < 3 || passes) << Hex(n);
    }
  }
  const uint64_t p = KDPKI_LAST_SMALL_PRIME, p2 = p * p;
  for (uint64_t v : {0ul,    1ul,    2ul,    3ul,       4003ul,          4007ul,       p - 2,       p - 1,
                     p,      p + 1,  p + 2,  p + 4,     p2 - 4,          p2 - 2,       p2 - 1,      p2,
                     p2 + 1, p2 + 2, p2 + 4, p * 32749, 32749ul * 32749, 0xFFFFFFFFul, 4294967311ul}) {
    mpz_set_ui(n, v);
    EXPECT_EQ(KDPKI_IsPrime(FromMpz(n)), GmpPrime(n)) << v;
  }
  EXPECT_FALSE(KDPKI_IsPrime(-H(7u)));
  EXPECT_FALSE(KDPKI_IsSmallPrime(H(32749u)));              // a prime beyond the table
  EXPECT_FALSE(KDPKI_IsStrongProbablePrime(H(9u), H(3u)));  // gcd(3, 9) != 1
  EXPECT_TRUE(KDPKI_IsStrongProbablePrime(H(3u), H(3u)));   // n <= 3 is decided first
  EXPECT_FALSE(KDPKI_IsStrongLucasProbablePrime(H(5u)));    // Jacobi(3^2 - 4, 5) = 0
  EXPECT_FALSE(KDPKI_IsFermatProbablePrime(H(1u), H(2u)));
}

// Composites that fool one test: Chernick's Carmichael numbers (6k + 1)(12k + 1)(18k + 1)
// (Fermat to every coprime base), composite 2^e - 1 (strong to base 2), composite (3^e - 1) / 2
// (strong to base 3), published strong pseudoprimes to the bases 2 and 3 (and more). IsPrime
// rejects all; the Lucas test rejects those that pass the base-3 test without a table factor.
TEST(Primality, PseudoprimesAreRejected) {
  enum { kFermat = 1, kStrong2 = 2, kStrong3 = 4 };  // the tests each case fools
  std::vector<std::pair<std::string, int>> cases;
  Mpz n, a, all;
  auto prime = [&](unsigned long v) { return mpz_set_ui(a, v), GmpPrime(a); };
  auto add = [&](int fools) {
    if (!GmpPrime(n)) cases.push_back({Hex(n), fools});
  };
  for (unsigned long from : {1ul, 1ul << 12, 1ul << 42}) {  // from 1729, about 2^40, about 2^130
    for (unsigned long k = from, goal = cases.size() + 4; cases.size() < goal; ++k) {
      if (!prime(6 * k + 1) || !prime(12 * k + 1) || !prime(18 * k + 1)) continue;
      mpz_set_ui(n, 6 * k + 1);
      mpz_mul_ui(n, n, 12 * k + 1);
      mpz_mul_ui(n, n, 18 * k + 1);
      add(kFermat);
    }
  }
  for (unsigned e = 19; e < 640; e += 2) {
    if (!prime(e)) continue;
    mpz_set_ui(n, 0);
    mpz_setbit(n, e);
    mpz_sub_ui(n, n, 1);
    add(kStrong2);
    if (e > 400) continue;
    mpz_ui_pow_ui(n, 3, e);
    mpz_sub_ui(n, n, 1);
    mpz_divexact_ui(n, n, 2);
    add(kStrong3);
  }
  for (const char* v : {"3215031751", "2152302898747", "3474749660383", "341550071728321", "3825123056546413051"}) {
    mpz_set_str(n, v, 10);
    add(kStrong2 | kStrong3);
  }
  TablePrimes(all, Mpz(H(1u)));
  int lucas = 0;
  for (const auto& [hex, fools] : cases) {
    mpz_set_str(n, hex.c_str(), 16);
    const H h = FromMpz(n);
    EXPECT_FALSE(KDPKI_IsPrime(h)) << hex;
    for (uint32_t base : {2u, 3u, 5u, 7u}) {
      const bool coprime = !mpz_divisible_ui_p(n, base);
      EXPECT_TRUE(fools != kFermat || !coprime || KDPKI_IsFermatProbablePrime(h, H(base))) << hex << " " << base;
    }
    EXPECT_TRUE(!(fools & kStrong2) || KDPKI_IsStrongProbablePrime(h, H(2u))) << hex;
    EXPECT_TRUE(!(fools & kStrong3) || KDPKI_IsStrongProbablePrime(h, H(3u))) << hex;
    mpz_gcd(a, n, all);
    if (mpz_cmp_ui(a, 1) == 0 && KDPKI_IsStrongProbablePrime(h, H(3u))) {
      EXPECT_FALSE(KDPKI_IsStrongLucasProbablePrime(h)) << hex;
      ++lucas;
    }
  }
  EXPECT_GE(lucas, 10);
  for (uint32_t r : {32749u, 65521u, 4294967291u}) EXPECT_FALSE(KDPKI_IsStrongLucasProbablePrime(H(r) * H(r))) << r;
  KDPKI_RandomGenerator generator(reinterpret_cast<const uint8_t*>("rm"), 2);
  EXPECT_TRUE(KDPKI_RabinMillerTest(generator, H(4294967291u) * H(1u << 31) + 11u, 0));
  mpz_set_str(n, "3825123056546413051", 10);
  EXPECT_FALSE(KDPKI_RabinMillerTest(generator, FromMpz(n), 20));
  EXPECT_TRUE(KDPKI_RabinMillerTest(generator, H(4294967291u), 20) && KDPKI_RabinMillerTest(generator, H(3u), 1));
}

// A 2 x 2 matrix of residues, row by row; Times sets this = this o mod n.
struct Matrix {
  Mpz v[4];
  void Times(const Matrix& o, const mpz_t n) {
    Mpz t[4];
    for (int i = 0; i < 4; ++i) mpz_mul(t[i], v[i & 2], o.v[i & 1]), mpz_addmul(t[i], v[(i & 2) + 1], o.v[(i & 1) + 2]);
    for (int i = 0; i < 4; ++i) mpz_mod(v[i], t[i], n);
  }
};

// The Jacobi symbol against mpz_jacobi; V_e(p, 1) mod n, odd and even n, against the matrix power
// [[p, -1], [1, 0]]^e, which takes (V_1, V_0) = (p, 2) to (V_e+1, V_e).
TEST(Primality, JacobiAndLucasAgainstGmp) {
  std::mt19937_64 rng(33);
  Mpz a, n, e, want;
  for (int i = 0; i < 400; ++i) {
    RandomBits(n, rng, static_cast<unsigned>(1 + rng() % 300), i % 4 != 0);
    if (i % 4 == 0) mpz_clrbit(n, 0);
    RandomBits(a, rng, static_cast<unsigned>(rng() % 320));
    if (i % 3 == 0) mpz_neg(a, a);
    ASSERT_EQ(KDPKI_Jacobi(FromMpz(a), FromMpz(n)), i % 4 ? mpz_jacobi(a, n) : 0) << Hex(a) << " / " << Hex(n);
    if (mpz_cmp_ui(n, 1) <= 0) continue;
    RandomBits(e, rng, static_cast<unsigned>(i < 4 ? i : rng() % 200));
    Matrix m, r;
    mpz_mod(m.v[0], a, n), mpz_sub_ui(m.v[1], n, 1), mpz_set_ui(m.v[2], 1);
    mpz_set_ui(r.v[0], 1), mpz_set_ui(r.v[3], 1);
    for (size_t bit = 0; mpz_sgn(e) && bit < mpz_sizeinbase(e, 2); ++bit) {
      if (mpz_tstbit(e, bit)) r.Times(m, n);
      Matrix square;
      for (int j = 0; j < 4; ++j) mpz_set(square.v[j], m.v[j]);
      m.Times(square, n);
    }
    mpz_mul(want, r.v[2], a), mpz_addmul_ui(want, r.v[3], 2), mpz_mod(want, want, n);
    ASSERT_EQ(Hex(KDPKI_Lucas(FromMpz(e), FromMpz(a), FromMpz(n))), Hex(want)) << Hex(n) << " e=" << Hex(e);
  }
  EXPECT_TRUE(KDPKI_Lucas(H(5u), H(3u), H()).IsZero());
  EXPECT_EQ(KDPKI_Jacobi(H(5u), H(1u)), 1);
  EXPECT_EQ(KDPKI_Jacobi(H(5u), -H(7u)), 0);
}

// The sieve over several windows against a gcd with the product of the table primes not dividing
// the step; table primes themselves are kept; empty progressions.
TEST(PrimeSieve, WindowsAgainstGmp) {
  const char* cases[][3] = {{"1", "2", "70000"},
                            {"3", "6", "70000"},
                            {"100000000000000000000000b", "6", "70000"},
                            {"2000000000000000000000001", "400000000000000002", "40000"},
                            {"7fffffff", "1", "33000"}};
  Mpz first, step, strikers, v, g;
  for (const auto& c : cases) {
    mpz_set_str(first, c[0], 16), mpz_set_str(step, c[1], 16);
    const unsigned positions = static_cast<unsigned>(std::stoul(c[2]));
    TablePrimes(strikers, step);
    KDPKI_PrimeSieve sieve(FromMpz(first), FromMpz(first) + FromMpz(step) * (positions - 1), FromMpz(step));
    EXPECT_EQ(sieve.GetSieveSize(), static_cast<int64_t>(std::min(32768u, positions)));
    H candidate;
    bool have = sieve.NextCandidate(candidate);
    for (unsigned i = 0; i < positions; ++i) {
      mpz_set(v, first), mpz_addmul_ui(v, step, i), mpz_gcd(g, v, strikers);
      if (mpz_cmp_ui(g, 1) != 0 && (mpz_cmp_ui(v, KDPKI_LAST_SMALL_PRIME) > 0 || !GmpPrime(v))) continue;
      ASSERT_TRUE(have && Hex(candidate) == Hex(v)) << c[0] << " position " << i << ": " << Hex(candidate);
      have = sieve.NextCandidate(candidate);
    }
    EXPECT_FALSE(have || sieve.NextCandidate(candidate)) << c[0];
  }
  for (uint32_t start : {32001u, 32751u}) {  // 32749 strikes its multiples, but not itself
    KDPKI_PrimeSieve sieve(H(start), H(start + 6 * 32768), H(2u));
    sieve.SieveSingle(32749, sieve.GetFirst(), sieve.GetStep(), (32749 + 1) / 2);
    for (uint32_t value = 32749; value < start + 2 * 32768; value += 2 * 32749) {
      EXPECT_TRUE(value < start || sieve.GetSieve()[(value - start) / 2] == (value == 32749 ? 0 : 1)) << value;
    }
  }
  H x(9u);
  EXPECT_FALSE(KDPKI_PrimeSieve(H(100u), H(99u), H(2u)).NextCandidate(x));
  EXPECT_FALSE(KDPKI_PrimeSieve(H(100u), H(200u), H()).NextCandidate(x));
  EXPECT_EQ(x, H(9u));
  EXPECT_TRUE(KDPKI_PrimeSieve(H(101u), H(101u), H(2u)).NextCandidate(x) && x == H(101u));
}

// The first prime >= p of the class, by GMP: the next prime (mod 1) or the class's values in turn.
bool Expected(mpz_t out, const mpz_t p, const mpz_t max, unsigned long equiv, const mpz_t mod) {
  Mpz v;
  mpz_sub_ui(v, p, equiv), mpz_cdiv_q(v, v, mod), mpz_mul(v, v, mod), mpz_add_ui(v, v, equiv);
  for (; mpz_cmp(v, max) <= 0; mpz_add(v, v, mod)) {
    if (GmpPrime(v)) return mpz_set(out, v), true;
  }
  return false;
}

TEST(FirstPrime, AgainstGmp) {
  std::mt19937_64 rng(34);
  Mpz p, max, want, mod;
  for (int i = 0; i < 300; ++i) {
    const unsigned bits = static_cast<unsigned>(i < 100 ? 2 + rng() % 40 : i % 20 == 0 ? 1024 : 16 + rng() % 600);
    RandomBits(p, rng, bits, i % 5 != 0);
    const uint32_t mods[] = {1, 1, 3, 4, 10, 12, 30, 7919};
    mpz_set_ui(mod, bits > 600 ? 1 : mods[rng() % 8]);
    if (i % 7 == 0 && mpz_cmp_ui(mod, 1) > 0) mpz_mul_2exp(mod, mod, 40);  // two words
    unsigned long equiv = 0;
    while (mpz_gcd_ui(nullptr, mod, equiv) != 1) equiv = rng() % 0xFFFFFFFFu;
    mpz_set(max, p), mpz_addmul_ui(max, mod, rng() % 4 ? 2000 : 30);
    H h = FromMpz(p);
    const bool found = Expected(want, p, max, equiv, mod);
    ASSERT_EQ(KDPKI_FirstPrime(h, FromMpz(max), H(static_cast<uint32_t>(equiv)), FromMpz(mod)), found)
        << Hex(p) << " = " << equiv << " mod " << Hex(mod);
    ASSERT_TRUE(!found || Hex(h) == Hex(want)) << Hex(p) << " = " << equiv << " mod " << Hex(mod) << ": " << Hex(h);
  }
  // {p, max, equiv, mod, found, p after}: gcd(equiv, mod) the only candidate; from the table p
  // moves to the prime found even above max; equiv is taken modulo mod; mod 0 finds nothing.
  const uint32_t table[][6] = {{1, 100, 6, 9, 1, 3},          {4, 100, 6, 9, 0, 4}, {1, 2, 6, 9, 0, 1},
                               {1, 100, 4, 8, 0, 1},          {1, 100, 0, 7, 1, 7}, {100, 100, 0, 1, 0, 101},
                               {0, 10, 7, 4, 1, 3},           {5, 10, 1, 0, 0, 5},  {32700, 99999, 1, 4, 1, 32713},
                               {32718, 99999, 2, 3, 1, 32771}};
  for (const auto& t : table) {
    H h(t[0]);
    EXPECT_EQ(KDPKI_FirstPrime(h, H(t[1]), H(t[2]), H(t[3])), t[4] != 0) << t[0] << " " << t[2] << " mod " << t[3];
    EXPECT_EQ(h, H(t[5])) << t[0] << " " << t[2] << " mod " << t[3];
  }
}

// Random(bits) is the generator's next ceil(bits / 8) bytes, big-endian, the first cropped to
// bits mod 8 bits (cleared when bits is a multiple of 8). Range draws stay in range, narrowed
// when the range's bit length is a multiple of 8, and spread evenly; class draws keep the class.
TEST(RandomDraws, BitsRangesAndClasses) {
  const uint8_t seed[] = {'a', 'b', 'c'};
  KDPKI_RandomGenerator gen(seed, 3), twin(seed, 3);
  H x(42u);
  EXPECT_TRUE(x.Random(gen, 0) && x == H(42u));  // takes no byte
  for (unsigned bits : {1u, 7u, 8u, 9u, 15u, 16u, 17u, 64u, 160u, 1023u, 1024u, 5000u}) {
    std::vector<uint8_t> bytes((bits + 7) / 8);
    twin.GetBlock(bytes.data(), static_cast<int>(bytes.size()));
    bytes[0] &= static_cast<uint8_t>((1u << (bits % 8)) - 1);
    Mpz want;
    mpz_import(want, bytes.size(), 1, 1, 0, 0, bytes.data());
    ASSERT_TRUE(x.Random(gen, bits));
    ASSERT_EQ(Hex(x), Hex(want)) << bits;
  }
  uint32_t top16 = 0, top15 = 0;
  int counts[8] = {};
  for (int i = 0; i < 20000; ++i) {
    top16 = std::max(top16, x.Random(gen, 16) ? static_cast<uint32_t>(x.ConvertToLong()) : 1u << 31);
    top15 = std::max(top15, x.Random(gen, 15) ? static_cast<uint32_t>(x.ConvertToLong()) : 1u << 31);
    ASSERT_TRUE(x.Random(gen, H(10u), H(17u)));
    counts[x.ConvertToLong() - 10]++;
  }
  EXPECT_TRUE(top16 <= 255 && top15 < 32768 && top15 > 32700) << top16 << " " << top15;
  for (int c : counts) EXPECT_NEAR(c, 2500, 200);
  H two160;
  two160.Power2(160);
  for (int i = 0; i < 50; ++i) {
    ASSERT_TRUE(x.Random(gen, H(1u), two160));  // a range of 160 bits: below 1 + 2^152
    EXPECT_TRUE(x >= H(1u) && x < H(1u) + (H(1u) << 152));
    ASSERT_TRUE(x.Random(gen, H(1000u), two160, KDPKI_RANDOM_ANY, H(5u), H(12u)));
    EXPECT_TRUE(x >= H(1000u) && x <= two160 && x % 12u == 5u);
  }
  x = 7u;
  EXPECT_FALSE(x.Random(gen, H(5u), H(4u)));
  EXPECT_FALSE(x.Random(gen, H(1002u), H(1012u), KDPKI_RANDOM_ANY, H(5u), H(12u)));
  EXPECT_FALSE(x.Random(gen, H(24u), H(28u), KDPKI_RANDOM_PRIME));
  EXPECT_FALSE(x.Random(gen, H(1u), H(100u), KDPKI_RANDOM_ANY, H(), H()));
  EXPECT_TRUE(x == H(7u) && x.Random(gen, H(9u), H(9u)) && x == H(9u));
}

struct PrimeDraw {
  const char *seed, *min, *max;
  uint32_t equiv, mod;
  const char* prime;
};
// Computed by tools/gen_prime_vectors.py from the definitions of the generator and the draw.
const PrimeDraw kPrimeDraws[] = {
#include "norvane/crypto/prime_draw_vectors.inc"
};

// Prime draws against known answers: N-bit ranges (narrowed when N - 1 is a multiple of 8),
// classes, an RSA key's prime range, and a range whose only prime is its lowest value (every
// try misses; the search from min finds it).
TEST(RandomDraws, PrimesAgainstKnownAnswers) {
  for (const PrimeDraw& v : kPrimeDraws) {
    const std::vector<uint8_t> seed = cavptest::FromHex(v.seed);
    KDPKI_RandomGenerator gen(seed.data(), static_cast<uint32_t>(seed.size()));
    Mpz min, max;
    mpz_set_str(min, v.min, 16), mpz_set_str(max, v.max, 16);
    H x;
    ASSERT_TRUE(x.Random(gen, FromMpz(min), FromMpz(max), KDPKI_RANDOM_PRIME, H(v.equiv), H(v.mod))) << v.max;
    EXPECT_EQ(Hex(x), v.prime) << v.seed << " " << v.max;
  }
}

}  // namespace
