// The probable-prime tests (Fermat, strong, Rabin-Miller, strong Lucas), the Jacobi symbol, the
// Lucas sequence, and the primality decision built from them.
#include <algorithm>

#include "norvane/crypto/montgomery.h"
#include "norvane/crypto/pki_kernels_internal.h"
#include "norvane/crypto/pki_words.h"
#include "norvane/crypto/primes.h"

namespace {

constexpr uint32_t kSquareOfLastSmallPrime = KDPKI_LAST_SMALL_PRIME * KDPKI_LAST_SMALL_PRIME;  // 1070532961

// x <= w (negative values included).
bool AtMost(const KDPKI_HugeInt& x, uint32_t w) {
  const unsigned n = x.GetWordCount();
  return x.IsNegative() || n == 0 || (n == 1 && x.Magnitude().GetWords()[0] <= w);
}

bool IsWord(const KDPKI_HugeInt& x, uint32_t w) {
  return !x.IsNegative() && x.GetWordCount() == (w ? 1u : 0u) && (!w || x.Magnitude().GetWords()[0] == w);
}

// The number of zero bits below the lowest set bit of |x| (0 for x = 0).
unsigned TrailingZeros(const KDPKI_HugeInt& x) {
  const uint32_t* w = x.Magnitude().GetWords();
  const unsigned n = x.GetWordCount();
  for (unsigned i = 0; i < n; ++i) {
    if (w[i]) return 32 * i + static_cast<unsigned>(__builtin_ctz(w[i]));
  }
  return 0;
}

KDPKI_HugeInt FromU64(uint64_t v) {
  KDPKI_HugeInt x(static_cast<uint32_t>(v >> 32));
  x <<= 32;
  return x + static_cast<uint32_t>(v);
}

// The Jacobi symbol of two words, n odd (0 for n = 0, which only a lost copy can bring).
int JacobiWords(uint64_t a, uint64_t n, int result) {
  if (n == 0) return 0;
  a %= n;
  while (a) {
    const unsigned t = static_cast<unsigned>(__builtin_ctzll(a));
    a >>= t;
    if ((t & 1) && ((n & 7) == 3 || (n & 7) == 5)) result = -result;
    if ((a & 3) == 3 && (n & 3) == 3) result = -result;
    const uint64_t r = n % a;
    n = a;
    a = r;
  }
  return n == 1 ? result : 0;
}

uint64_t ToU64(const KDPKI_HugeInt& x) { return static_cast<uint64_t>(x.ConvertToLong()); }

// Montgomery arithmetic modulo an odd n > 1 on raw words, for the chains of the tests: values
// of k words (k = the even word count of n), each below n, in Montgomery form x R mod n.
class MontChain {
 public:
  // Room for count values besides the chain's own words; ok() is false when memory is short.
  MontChain(const KDPKI_HugeInt& n, size_t count)
      : m_n(n),
        m_k(KDPKI_EvenWordCount(n.Magnitude().GetWords(), n.GetWordCount())),
        m_kernels(kdpki::ActiveKernels()) {
    const size_t words = (count + 2) * m_k + 2 * m_k + 4;  // modulus, t, values, product scratch
    // A copy of n that lost its words has k = 0: no chain.
    if (m_k && words < (1u << 25) && m_block.SetSize(static_cast<int>(words))) {
      m_block.SetUsed(static_cast<int>(words));
      KDPKI_Copy(Modulus(), n.Magnitude().GetWords(), n.GetWordCount());
      m_n0 = kdpki::NegInverse64(Modulus());
    }
  }
  bool ok() const { return m_block.GetSize() != 0; }
  size_t k() const { return m_k; }
  uint32_t* Value(size_t i) { return m_block.GetWords() + (2 + i) * m_k; }

  // r = the Montgomery form of x mod n.
  void In(uint32_t* r, const KDPKI_HugeInt& x) {
    const KDPKI_HugeInt form = ((x % m_n) << static_cast<unsigned>(32 * m_k)) % m_n;
    KDPKI_SetWords(r, 0, m_k);
    KDPKI_Copy(r, form.Magnitude().GetWords(), std::min<size_t>(form.GetWordCount(), m_k));
  }
  // The value of the Montgomery form x.
  KDPKI_HugeInt Out(const uint32_t* x) {
    uint32_t* t = Temp();
    KDPKI_SetWords(t, 0, m_k);
    t[0] = 1;
    m_kernels.mont_mul(t, x, t, Modulus(), m_n0, m_k, Scratch());
    KDPKI_HugeInt r;
    if (r.Magnitude().ReSize(static_cast<int>(m_k))) {
      KDPKI_Copy(r.Magnitude().GetWords(), t, m_k);
      r.Magnitude().SetUsed(static_cast<int>(m_k));
      r.Normalize();
    }
    return r;
  }
  void Mul(uint32_t* r, const uint32_t* a, const uint32_t* b) {
    m_kernels.mont_mul(r, a, b, Modulus(), m_n0, m_k, Scratch());
  }
  void Sqr(uint32_t* r, const uint32_t* a) { m_kernels.mont_sqr(r, a, Modulus(), m_n0, m_k, Scratch()); }
  // r = a - b mod n.
  void Sub(uint32_t* r, const uint32_t* a, const uint32_t* b) {
    if (KDPKI_SubstractWithSameLength(r, a, b, m_k)) KDPKI_AdditionWithSameLength(r, r, Modulus(), m_k);
  }
  // x = 2 x mod n.
  void Double(uint32_t* x) {
    if (KDPKI_ShiftWordsLeftByBits(x, m_k, 1) || KDPKI_WordsCompare(x, Modulus(), m_k) >= 0) {
      KDPKI_SubstractWithSameLength(x, x, Modulus(), m_k);
    }
  }
  uint32_t* Temp() { return m_block.GetWords() + m_k; }

 private:
  uint32_t* Modulus() { return m_block.GetWords(); }
  uint32_t* Scratch() { return m_block.GetWords() + m_block.GetSize() - 2 * m_k - 4; }

  const KDPKI_HugeInt& m_n;
  size_t m_k;
  const kdpki::Kernels& m_kernels;
  uint64_t m_n0 = 0;
  KDPKI_IntegerBlock m_block;
};

// 2^e mod n for an odd n > 1: squarings and doublings from the top bit down, no multiplications.
// 0 when memory is short.
KDPKI_HugeInt PowerOfTwo(const KDPKI_HugeInt& e, const KDPKI_HugeInt& n) {
  MontChain chain(n, 1);
  if (!chain.ok()) return KDPKI_HugeInt();
  uint32_t* x = chain.Value(0);
  chain.In(x, KDPKI_HugeInt::One());
  for (unsigned i = e.GetBitCount(); i-- > 0;) {
    chain.Sqr(x, x);
    if (e.GetBit(i)) chain.Double(x);
  }
  return chain.Out(x);
}

// V_e(p, 1) mod n for an odd n > 1. With (V_k, V_k+1) the step to 2k uses V_2k = V_k^2 - 2 and
// V_2k+1 = V_k V_k+1 - p; to 2k + 1 the same pair moved up by one. 0 when memory is short.
KDPKI_HugeInt LucasOdd(const KDPKI_HugeInt& e, const KDPKI_HugeInt& p, const KDPKI_HugeInt& n) {
  MontChain chain(n, 4);
  if (!chain.ok()) return KDPKI_HugeInt();
  uint32_t *v0 = chain.Value(0), *v1 = chain.Value(1), *pm = chain.Value(2), *two = chain.Value(3);
  uint32_t* t = chain.Temp();
  chain.In(pm, p);
  chain.In(two, KDPKI_HugeInt::Two());
  KDPKI_Copy(v0, two, chain.k());
  KDPKI_Copy(v1, pm, chain.k());
  for (unsigned i = e.GetBitCount(); i-- > 0;) {
    uint32_t* up = e.GetBit(i) ? v0 : v1;  // becomes V_k V_k+1 - p
    uint32_t* sq = e.GetBit(i) ? v1 : v0;  // becomes its own square - 2
    chain.Mul(t, v0, v1);
    chain.Sub(up, t, pm);
    chain.Sqr(t, sq);
    chain.Sub(sq, t, two);
  }
  return chain.Out(v0);
}

}  // namespace

bool KDPKI_IsFermatProbablePrime(const KDPKI_HugeInt& n, const KDPKI_HugeInt& b) {
  if (AtMost(n, 1)) return false;
  return IsWord(KDPKI_ModularExponentiation(b, n - 1u, n), 1);
}

bool KDPKI_IsStrongProbablePrime(const KDPKI_HugeInt& n, const KDPKI_HugeInt& b) {
  if (AtMost(n, 3)) return IsWord(n, 2) || IsWord(n, 3);
  if (n.IsEven() || !IsWord(KDPKI_HugeInt::GCD(b, n), 1)) return false;
  const KDPKI_HugeInt n_minus_1 = n - 1u;
  const unsigned a = TrailingZeros(n_minus_1);
  const KDPKI_HugeInt m = n_minus_1 >> a;
  KDPKI_HugeInt z = IsWord(b, 2) ? PowerOfTwo(m, n) : KDPKI_ModularExponentiation(b, m, n);
  if (IsWord(z, 1) || z == n_minus_1) return true;
  for (unsigned i = 1; i < a; ++i) {
    z = (z * z) % n;
    if (z == n_minus_1) return true;
    if (IsWord(z, 1)) return false;
  }
  return false;
}

bool KDPKI_RabinMillerTest(KDPKI_RandomGenerator& generator, const KDPKI_HugeInt& n, unsigned rounds) {
  if (AtMost(n, 3)) return IsWord(n, 2) || IsWord(n, 3);
  const KDPKI_HugeInt max = n - 2u;
  KDPKI_HugeInt base;
  for (unsigned i = 0; i < rounds; ++i) {
    if (!base.Random(generator, KDPKI_HugeInt::Two(), max) || !KDPKI_IsStrongProbablePrime(n, base)) return false;
  }
  return true;
}

int KDPKI_Jacobi(const KDPKI_HugeInt& a, const KDPKI_HugeInt& n) {
  if (!n.IsPositive() || n.IsEven()) return 0;
  KDPKI_HugeInt x = a % n, y = n;
  int result = 1;
  while (y.GetWordCount() > 2) {
    if (x.IsZero()) return IsWord(y, 1) ? result : 0;
    const unsigned t = TrailingZeros(x);
    x >>= t;
    const uint32_t y8 = y.Magnitude().GetWords()[0] & 7;
    if ((t & 1) && (y8 == 3 || y8 == 5)) result = -result;
    if ((x.Magnitude().GetWords()[0] & 3) == 3 && (y8 & 3) == 3) result = -result;
    KDPKI_HugeInt r = y % x;
    y.Swap(x);
    x.Swap(r);
  }
  return JacobiWords(ToU64(x), ToU64(y), result);
}

KDPKI_HugeInt KDPKI_Lucas(const KDPKI_HugeInt& e, const KDPKI_HugeInt& p, const KDPKI_HugeInt& n) {
  if (n.GetWordCount() == 0 || (n.GetWordCount() == 1 && n.Magnitude().GetWords()[0] == 1)) return KDPKI_HugeInt();
  if (n.IsOdd()) {
    KDPKI_HugeInt abs_n(n);
    abs_n.SetSign(0);
    return LucasOdd(e, p, abs_n);
  }
  // An even modulus: the same chain on plain residues.
  const KDPKI_HugeInt pr = p % n;
  KDPKI_HugeInt v0(2u), v1 = pr;
  v0 = v0 % n;
  for (unsigned i = e.GetBitCount(); i-- > 0;) {
    KDPKI_HugeInt& up = e.GetBit(i) ? v0 : v1;
    KDPKI_HugeInt& sq = e.GetBit(i) ? v1 : v0;
    up = (v0 * v1 - pr) % n;
    sq = (sq * sq - 2u) % n;
  }
  return v0;
}

bool KDPKI_IsStrongLucasProbablePrime(const KDPKI_HugeInt& n) {
  if (AtMost(n, 1)) return false;
  if (n.IsEven()) return IsWord(n, 2);
  uint64_t b = 3;
  for (int candidate = 1;; ++candidate, b += 2) {
    if (candidate == 64 && n.IsSquare()) return false;
    const int j = KDPKI_Jacobi(FromU64(b * b - 4), n);
    if (j == 0) return false;
    if (j == -1) break;
  }
  const KDPKI_HugeInt n_minus_2 = n - 2u;
  const KDPKI_HugeInt n_plus_1 = n + 1u;
  const unsigned a = TrailingZeros(n_plus_1);
  KDPKI_HugeInt z = KDPKI_Lucas(n_plus_1 >> a, FromU64(b), n);
  if (IsWord(z, 2) || z == n_minus_2) return true;
  for (unsigned i = 1; i < a; ++i) {
    z = (z * z - 2u) % n;
    if (z == n_minus_2) return true;
    if (IsWord(z, 2)) return false;
  }
  return false;
}

bool KDPKI_IsPrime(const KDPKI_HugeInt& n) {
  if (AtMost(n, KDPKI_LAST_SMALL_PRIME)) return KDPKI_IsSmallPrime(n);
  if (AtMost(n, kSquareOfLastSmallPrime)) return KDPKI_SmallDivisorsTest(n);
  return KDPKI_SmallDivisorsTest(n) && KDPKI_IsStrongProbablePrime(n, KDPKI_HugeInt::Three()) &&
         KDPKI_IsStrongLucasProbablePrime(n);
}
