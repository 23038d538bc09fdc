// The sieve over arithmetic progressions and the search for the first prime of a residue class.
#include <algorithm>
#include <cstring>

#include "norvane/crypto/pki_failures_internal.h"
#include "norvane/crypto/primes.h"
#include "norvane/crypto/primes_internal.h"
#include "norvane/memory/memory_mgr.h"

// The layout is part of the binary interface.
struct KDPKIPrimeLayout {
  static_assert(sizeof(KDPKI_PrimeSieve) == 96 && offsetof(KDPKI_PrimeSieve, m_nNext) == 0 &&
                    offsetof(KDPKI_PrimeSieve, m_First) == 8 && offsetof(KDPKI_PrimeSieve, m_Last) == 32 &&
                    offsetof(KDPKI_PrimeSieve, m_Step) == 56 && offsetof(KDPKI_PrimeSieve, m_pSieve) == 80 &&
                    offsetof(KDPKI_PrimeSieve, m_nSieveSize) == 88,
                "prime sieve layout");
};

namespace {

constexpr int64_t kWindow = 32768;

// step^-1 mod p from s = step mod p; 0 when there is none.
uint32_t InverseModPrime(uint32_t s, uint32_t p) {
  if (s == 1) return 1;
  if (s == 2) return (p + 1) / 2;  // the usual step of a search over odd numbers
  return KDPKI_HugeInt(s).InverseMod(p);
}

// The position j of the window whose value first + step j is the first multiple of p, given
// first mod p and step^-1 mod p (not 0).
uint32_t FirstMultiple(uint32_t p, uint32_t first_mod_p, uint32_t step_inverse) {
  return static_cast<uint32_t>((static_cast<uint64_t>(p - first_mod_p) * step_inverse) % p);
}

}  // namespace

KDPKI_PrimeSieve::KDPKI_PrimeSieve(const KDPKI_HugeInt& first, const KDPKI_HugeInt& last, const KDPKI_HugeInt& step)
    : m_nNext(0), m_First(first), m_Last(last), m_Step(step), m_pSieve(nullptr), m_nSieveSize(0) {
  // A copy that could not get its words reads 0; a sieve from 0 would run on almost for ever.
  if (m_First.GetWordCount() != first.GetWordCount()) return;
  DoSieve();
}

KDPKI_PrimeSieve::~KDPKI_PrimeSieve() {
  if (m_pSieve) KDMEM_DefaultFree(m_pSieve, 0);
}

void KDPKI_PrimeSieve::DoSieve() {
  KDPKI_BuildPrimeTable();
  m_nNext = 0;
  int64_t size = 0;
  if (m_Step.IsPositive() && m_Last >= m_First) {
    const KDPKI_HugeInt count = (m_Last - m_First) / m_Step;
    size = count.GetWordCount() > 1 || count.ConvertToLong() >= kWindow ? kWindow : count.ConvertToLong() + 1;
  }
  if (m_pSieve && size != m_nSieveSize) {
    KDMEM_DefaultFree(m_pSieve, 0);
    m_pSieve = nullptr;
  }
  if (!m_pSieve && size) {
    m_pSieve = static_cast<uint8_t*>(KDMEM_DefaultAlloc2(static_cast<size_t>(size), 1, 0));
    if (!m_pSieve) kdpki::NoteAllocationFailure();  // the search then finds nothing: not an answer
  }
  m_nSieveSize = m_pSieve ? size : 0;
  if (!m_pSieve) return;
  std::memset(m_pSieve, 0, static_cast<size_t>(size));
  // One remainder of first and of step per group of table primes, then each prime's own.
  int count;
  const kdpki::PrimeGroup* groups = kdpki::ValidPrimeGroups(&count);
  uint32_t rf[kdpki::kMaxPrimeGroups], rs[kdpki::kMaxPrimeGroups];
  kdpki::GroupRemainders(m_First.Magnitude().GetWords(), m_First.GetWordCount(), groups, count, rf);
  kdpki::GroupRemainders(m_Step.Magnitude().GetWords(), m_Step.GetWordCount(), groups, count, rs);
  for (int g = 0; g < count; ++g) {
    for (int i = groups[g].first; i < groups[g].first + groups[g].count; ++i) {
      const uint32_t p = primeTable[i];
      const uint32_t s = InverseModPrime(rs[g] % p, p);
      if (s) Strike(p, FirstMultiple(p, kdpki::SignedResidue(m_First, rf[g] % p, p), s), m_First, m_Step);
    }
  }
}

void KDPKI_PrimeSieve::SieveSingle(uint32_t p, const KDPKI_HugeInt& first, const KDPKI_HugeInt& step,
                                   uint32_t step_inverse) {
  if (step_inverse % p) Strike(p, FirstMultiple(p, first % p, step_inverse % p), first, step);
}

void KDPKI_PrimeSieve::Strike(uint32_t p, uint32_t j, const KDPKI_HugeInt& first, const KDPKI_HugeInt& step) {
  if (!m_pSieve) return;
  if (first.GetWordCount() <= 1) {
    // Only a first below 2^32 can put p itself in the window; p is prime and stays a candidate.
    const bool is_p = step.GetWordCount() == 1
                          ? first.ConvertToLong() + static_cast<int64_t>(step.Magnitude().GetWords()[0]) * j == p
                          : first + step * j == KDPKI_HugeInt(p);
    if (is_p) j += p;
  }
  for (int64_t pos = j; pos < m_nSieveSize; pos += p) m_pSieve[pos] = 1;
}

bool KDPKI_PrimeSieve::NextCandidate(KDPKI_HugeInt& candidate) {
  for (;;) {
    if (!m_pSieve) return false;  // no window: bad arguments, or its array could not be had
    while (m_nNext < m_nSieveSize && m_pSieve[m_nNext]) ++m_nNext;
    if (m_nNext < m_nSieveSize) {
      candidate = m_First + m_Step * static_cast<uint32_t>(m_nNext++);
      return true;
    }
    KDPKI_HugeInt next = m_First + m_Step * static_cast<uint32_t>(m_nSieveSize);
    // A first that did not move on (memory ran out) would give the same window for ever.
    if (next <= m_First) return false;
    m_First.Swap(next);
    if (m_First > m_Last) return false;
    DoSieve();
  }
}

bool KDPKI_FirstPrime(KDPKI_HugeInt& p, const KDPKI_HugeInt& max, const KDPKI_HugeInt& equiv,
                      const KDPKI_HugeInt& mod) {
  if (!mod.IsPositive()) return false;
  const KDPKI_HugeInt g = KDPKI_HugeInt::GCD(equiv, mod);
  if (g != KDPKI_HugeInt::One()) {
    if (p > g || g > max || !KDPKI_IsPrime(g)) return false;
    p = g;
    return true;
  }
  const KDPKI_HugeInt e = equiv % mod;
  KDPKI_BuildPrimeTable();
  const KDPKI_HugeInt last_small(KDPKI_LAST_SMALL_PRIME);
  if (p <= last_small) {
    const uint32_t* end = primeTable + (primeTableSize ? KDPKI_PRIME_TABLE_SIZE : KDPKI_PRIME_TABLE_STORED);
    const uint32_t from = p.IsPositive() ? p.Magnitude().GetWords()[0] : 0;
    // A table prime below a longer mod is its own residue.
    const uint32_t mod_word = mod.GetWordCount() == 1 ? mod.Magnitude().GetWords()[0] : 0;
    const uint32_t e_word = e.GetWordCount() ? e.Magnitude().GetWords()[0] : 0;
    const uint32_t* q = std::lower_bound(static_cast<const uint32_t*>(primeTable), end, from);
    for (; q < end && e.GetWordCount() <= 1; ++q) {
      if ((mod_word ? *q % mod_word : *q) == e_word) {
        p = *q;
        return p <= max;
      }
    }
    p = last_small + 1u;
  }
  if (mod.IsOdd()) {
    // Odd numbers of the class: the residue mod 2 mod that is equiv mod mod and odd.
    return KDPKI_FirstPrime(p, max, e.IsOdd() ? e : e + mod, mod << 1);
  }
  p += (e - p) % mod;
  if (p > max) return false;
  KDPKI_PrimeSieve sieve(p, max, mod);
  KDPKI_HugeInt candidate;
  while (sieve.NextCandidate(candidate)) {
    if (KDPKI_IsStrongProbablePrime(candidate, KDPKI_HugeInt::Two()) && KDPKI_IsPrime(candidate)) {
      p.Swap(candidate);
      return true;
    }
  }
  return false;
}
