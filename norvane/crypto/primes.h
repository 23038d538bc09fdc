// Primes for key generation: the small-prime table, primality tests, a sieve over arithmetic
// progressions and the search for the first prime of a residue class.
//
// Every function here works on KDPKI_HugeInt values and reports by its result only: a test given
// an argument outside its domain answers false, a search that cannot run finds nothing. Nothing
// throws or prints. When memory runs out part way, every call still ends without touching memory
// it does not own, but its answer is not reliable (big-integer operations that cannot grow leave
// their results unchanged). The random draws that key generation makes (KDPKI_HugeInt::Random) are
// declared with the integer; the byte generator is KDPKI_RandomGenerator.
//
// The small-prime table. primeTable holds the first 3511 primes, 2 to 32719. Its first 552
// entries (2 to 4003) are constant data; the rest are zero until the table is completed, by
// KDPKI_BuildPrimeTable or by the first call of KDPKI_IsSmallPrime, KDPKI_SmallDivisorsTest,
// KDPKI_FirstPrime or KDPKI_PrimeSieve::DoSieve. bLoad is 1 once the table is complete;
// primeTableSize tells how much of it the searches use: 0 the first 552 entries, 1 all 3511.
// Completion happens once per process and is guarded, so concurrent first uses are safe; the
// table is never written again unless a caller clears bLoad. Callers must not write the table.
#ifndef NORVANE_CRYPTO_PRIMES_H_
#define NORVANE_CRYPTO_PRIMES_H_

#include <cstddef>
#include <cstdint>

#include "norvane/config.h"
#include "norvane/crypto/huge_int.h"
#include "norvane/crypto/random_generator.h"
#include "norvane/memory/object.h"

// Sizes of the small-prime table: entries stored as constant data, entries once complete, and
// the largest prime it then holds.
constexpr int KDPKI_PRIME_TABLE_STORED = 552;
constexpr int KDPKI_PRIME_TABLE_SIZE = 3511;
constexpr uint32_t KDPKI_LAST_SMALL_PRIME = 32719;

// primeTable: the first 3511 primes once complete, the first 552 before (the rest then 0).
NORVANE_API extern uint32_t primeTable[KDPKI_PRIME_TABLE_SIZE];
// bLoad: 1 once the table is complete.
NORVANE_API extern int bLoad;
// primeTableSize: 0 while the searches use the first 552 entries, 1 once they use all 3511.
NORVANE_API extern int primeTableSize;

// KDPKI_BuildPrimeTable completes the table (nothing when bLoad is set): from 4003 on, each odd
// number that none of the primes 3 to 257 divides is appended until all 3511 entries are filled;
// then primeTableSize and bLoad become 1.
NORVANE_API void KDPKI_BuildPrimeTable();

// KDPKI_IsSmallPrime: n is positive, at most the last valid table entry, and in the table.
// Completes the table first.
NORVANE_API bool KDPKI_IsSmallPrime(const KDPKI_HugeInt& n);
// KDPKI_TrialDivision: some valid table prime p <= bound divides n (n itself included: 7 divides
// 7). It does not complete the table, so before completion only primes up to 4003 are tried.
NORVANE_API bool KDPKI_TrialDivision(const KDPKI_HugeInt& n, uint32_t bound);
// KDPKI_SmallDivisorsTest: no valid table prime divides n (after completing the table). Exact as
// a primality test for 32719 < n <= 32719^2; false for n = 0 and for the table primes themselves.
NORVANE_API bool KDPKI_SmallDivisorsTest(const KDPKI_HugeInt& n);

// KDPKI_IsFermatProbablePrime: b^(n-1) mod n = 1. False for n <= 1.
NORVANE_API bool KDPKI_IsFermatProbablePrime(const KDPKI_HugeInt& n, const KDPKI_HugeInt& b);
// KDPKI_IsStrongProbablePrime is the strong (Miller-Rabin) test of n to the base b. n <= 3 is
// decided as n = 2 or n = 3; an even n, or b not coprime to n, fails. With n - 1 = 2^a m, m odd,
// and z = b^m mod n: true when z = 1 or z = n - 1, or when squaring z up to a - 1 times reaches
// n - 1 before it reaches 1.
NORVANE_API bool KDPKI_IsStrongProbablePrime(const KDPKI_HugeInt& n, const KDPKI_HugeInt& b);
// KDPKI_RabinMillerTest runs rounds strong tests of n to bases drawn uniformly from [2, n - 2]
// with KDPKI_HugeInt::Random; true when every one passes (n <= 3 as above; zero rounds pass).
// False when a base cannot be drawn. Nothing in the library calls it: KDPKI_IsPrime is
// deterministic.
NORVANE_API bool KDPKI_RabinMillerTest(KDPKI_RandomGenerator& generator, const KDPKI_HugeInt& n, unsigned rounds);
// KDPKI_Jacobi returns the Jacobi symbol (a / n): -1, 0 or 1, for any a and an odd positive n;
// 0 when n is even or not positive.
NORVANE_API int KDPKI_Jacobi(const KDPKI_HugeInt& a, const KDPKI_HugeInt& n);
// KDPKI_Lucas returns V_e(p, 1) mod n, the Lucas sequence V_0 = 2, V_1 = p,
// V_k+1 = p V_k - V_k-1, in [0, |n|); e is read as its magnitude; 0 for n = 0.
NORVANE_API KDPKI_HugeInt KDPKI_Lucas(const KDPKI_HugeInt& e, const KDPKI_HugeInt& p, const KDPKI_HugeInt& n);
// KDPKI_IsStrongLucasProbablePrime is the strong Lucas test with Q = 1 and the first
// P = 3, 5, 7, ... with Jacobi(P^2 - 4, n) != 1 (a Jacobi value of 0 fails, so small primes that
// divide P^2 - 4 fail too; a perfect square fails once 64 values of P were tried). n <= 1 fails,
// an even n passes only as 2. With n + 1 = 2^a m, m odd, and z = V_m mod n: true when z = 2 or
// z = n - 2, or when z -> z^2 - 2 repeated up to a - 1 times reaches n - 2 before it reaches 2.
NORVANE_API bool KDPKI_IsStrongLucasProbablePrime(const KDPKI_HugeInt& n);

// KDPKI_IsPrime is the primality decision used everywhere, in three ranges:
//   n <= 32719:                KDPKI_IsSmallPrime(n);
//   32719 < n <= 32719^2:      KDPKI_SmallDivisorsTest(n), exact there;
//   n > 32719^2:               KDPKI_SmallDivisorsTest(n), then the strong test to base 3, then
//                              the strong Lucas test (no random bases: the answer for a given n
//                              never changes).
NORVANE_API bool KDPKI_IsPrime(const KDPKI_HugeInt& n);

// KDPKI_PrimeSieve walks the progression first, first + step, ... up to last and returns, in
// order, the values no valid table prime divides (a table prime itself is not struck out by its
// own multiple when first is below 2^32; table primes sharing a factor with step strike nothing).
// It sieves windows of at most 32768 positions, one modular inverse of step per table prime.
// step must be positive: otherwise, or when last < first, or when memory runs out (the window's
// array, or the values of a new window), there are no candidates. A sieve belongs to one thread;
// it owns its array.
class NORVANE_API KDPKI_PrimeSieve : public CKD_Object {
 public:
  // Takes copies of the three values and sieves the first window.
  KDPKI_PrimeSieve(const KDPKI_HugeInt& first, const KDPKI_HugeInt& last, const KDPKI_HugeInt& step);
  // Frees the array.
  ~KDPKI_PrimeSieve();
  KDPKI_PrimeSieve(const KDPKI_PrimeSieve&) = delete;
  KDPKI_PrimeSieve& operator=(const KDPKI_PrimeSieve&) = delete;

  // DoSieve sieves the window from first: min(32768, (last - first) / step + 1) positions, next
  // back to 0. Completes the prime table first.
  void DoSieve();
  // SieveSingle marks the positions of the window whose value first + step * j is a multiple of
  // the prime p, given step_inverse = step^-1 mod p (0 when there is none: nothing is marked).
  // The position whose value is p itself is skipped when first is below 2^32.
  void SieveSingle(uint32_t p, const KDPKI_HugeInt& first, const KDPKI_HugeInt& step, uint32_t step_inverse);
  // NextCandidate sets candidate to the next unmarked value and returns true, moving on to later
  // windows as each is used up; false once the values pass last (candidate is then unchanged).
  bool NextCandidate(KDPKI_HugeInt& candidate);

  int32_t GetNext() const { return m_nNext; }
  const KDPKI_HugeInt& GetFirst() const { return m_First; }
  const KDPKI_HugeInt& GetLast() const { return m_Last; }
  const KDPKI_HugeInt& GetStep() const { return m_Step; }
  // The window: one byte per position, 1 for a known composite; null when empty.
  const uint8_t* GetSieve() const { return m_pSieve; }
  int64_t GetSieveSize() const { return m_nSieveSize; }

 private:
  // Marks positions j, j + p, ... of the window, skipping to j + p when the value at j is p itself.
  void Strike(uint32_t p, uint32_t j, const KDPKI_HugeInt& first, const KDPKI_HugeInt& step);

  int32_t m_nNext;        // next position to examine
  KDPKI_HugeInt m_First;  // value of position 0
  KDPKI_HugeInt m_Last;   // largest value returned
  KDPKI_HugeInt m_Step;   // distance between positions
  uint8_t* m_pSieve;      // KDMEM_DefaultAlloc2 array, 1 = composite
  int64_t m_nSieveSize;   // positions in the window
  friend struct KDPKIPrimeLayout;
};

// KDPKI_FirstPrime replaces p by the smallest prime q >= p with q <= max and q = equiv (mod mod)
// and returns true; returns false when there is none (p may then have moved). mod must be
// positive (otherwise false); equiv is taken modulo mod.
//   - When g = gcd(equiv, mod) is not 1, g is the only candidate: true (p = g) when p <= g <= max
//     and g is prime.
//   - From p <= 32719 the table is scanned; if it holds such a prime q, p becomes q and the result
//     is q <= max. Past the table the search goes on from 32720.
//   - Above, the class is joined with oddness (modulus 2 mod when mod is odd), p moves up to the
//     class, and a KDPKI_PrimeSieve over the class yields candidates; the first that passes the
//     strong test to base 2 and KDPKI_IsPrime is the result.
NORVANE_API bool KDPKI_FirstPrime(KDPKI_HugeInt& p, const KDPKI_HugeInt& max, const KDPKI_HugeInt& equiv,
                                  const KDPKI_HugeInt& mod);

#endif  // NORVANE_CRYPTO_PRIMES_H_
