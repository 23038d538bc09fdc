// Internal to the library: exponentiation drivers the public interface does not name.
#ifndef NORVANE_CRYPTO_MONTGOMERY_INTERNAL_H_
#define NORVANE_CRYPTO_MONTGOMERY_INTERNAL_H_

#include "norvane/crypto/huge_int.h"

namespace kdpki {

// DoubleExponentiation returns a^|ea| b^|eb| mod |modulus| (in [0, |modulus|)): for an odd
// modulus in one left-to-right pass that squares once per bit of the longer exponent and
// multiplies in sliding windows of both (Straus), for an even one as two exponentiations. The
// value is that of the two KDPKI_ModularExponentiation calls and a product; 0 when memory runs
// out.
KDPKI_HugeInt DoubleExponentiation(const KDPKI_HugeInt& a, const KDPKI_HugeInt& ea, const KDPKI_HugeInt& b,
                                   const KDPKI_HugeInt& eb, const KDPKI_HugeInt& modulus);

// PairExponentiation sets result[s] = base[s]^|exponent[s]| mod modulus[s] for s = 0 and 1 in one
// interleaved pass with AVX-512 IFMA, and returns true; it returns false, computing nothing, where
// that path does not apply: a processor without it, kernels other than the library's own selected
// (SelectKernels), a modulus that is even or not of 993 to 1024 bits, a base not below its
// modulus. The results are the values KDPKI_ModularExponentiation gives.
bool PairExponentiation(const KDPKI_HugeInt base[2], const KDPKI_HugeInt exponent[2], const KDPKI_HugeInt modulus[2],
                        KDPKI_HugeInt result[2]);

}  // namespace kdpki

#endif  // NORVANE_CRYPTO_MONTGOMERY_INTERNAL_H_
