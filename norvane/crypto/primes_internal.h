// Internal to the library: remainders of big integers by the small-prime table, shared by the
// divisor test and the sieve.
//
// Consecutive table primes are grouped so that each group's product fits in 32 bits (the groups
// break at the end of the stored part, so the first 552 primes are whole groups). A remainder by
// a group's product costs one multiplication per word (division by an invariant word with a
// precomputed reciprocal); the remainders by its primes follow from that one word.
#ifndef NORVANE_CRYPTO_PRIMES_INTERNAL_H_
#define NORVANE_CRYPTO_PRIMES_INTERNAL_H_

#include <cstddef>
#include <cstdint>

#include "norvane/crypto/huge_int.h"
#include "norvane/crypto/primes.h"

namespace kdpki {

struct PrimeGroup {
  uint32_t divisor;  // the product shifted left until its top bit is set
  uint32_t inverse;  // floor((2^64 - 1) / divisor) - 2^32
  uint8_t shift;     // the shift applied to the product
  uint16_t first;    // index of the group's first prime in primeTable
  uint16_t count;    // primes in the group
};

// Any two table primes multiply to less than 2^32, so every group but the last of the stored part
// and of the rest holds two primes or more.
constexpr int kMaxPrimeGroups = KDPKI_PRIME_TABLE_SIZE / 2 + 2;

// The groups over the valid part of the table (which must be complete): *count receives their
// number, which depends on primeTableSize.
const PrimeGroup* ValidPrimeGroups(int* count);

// out[g] = the remainder of the n-word value a by the product (not shifted) of groups[g], for
// g below count.
void GroupRemainders(const uint32_t* a, size_t n, const PrimeGroup* groups, int count, uint32_t* out);

// The residue of x modulo the word w (w > 0), in [0, w) whatever the sign of x; r is |x| mod w.
inline uint32_t SignedResidue(const KDPKI_HugeInt& x, uint32_t r, uint32_t w) {
  return x.IsNegative() && r ? w - r : r;
}

}  // namespace kdpki

#endif  // NORVANE_CRYPTO_PRIMES_INTERNAL_H_
