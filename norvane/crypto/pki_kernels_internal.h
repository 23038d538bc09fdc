// Internal to the library: the product, square, Montgomery and division kernels behind the
// public word-array functions and KDPKI_HugeInt, in two variants over the same 32-bit word arrays.
//
// The portable variant ("word32") works on 32-bit words with 64-bit products, as the arithmetic
// is defined. The wide variant ("limb64") reads each aligned pair of words as one 64-bit limb
// (the arrays are little-endian) and forms 128-bit products; it needs even word counts and exists
// where the compiler has unsigned __int128. Both store bit-identical results; tests and the
// benchmark drive each of them directly.
#ifndef NORVANE_CRYPTO_PKI_KERNELS_INTERNAL_H_
#define NORVANE_CRYPTO_PKI_KERNELS_INTERNAL_H_

#include <cstddef>
#include <cstdint>

namespace kdpki {

// One variant. Word counts are those of the 32-bit arrays; the limb64 variant requires every
// count it is given to be even (callers round with KDPKI_EvenWordCount or KDPKI_RoundupSize).
struct Kernels {
  const char* name;
  // r (na + nb words) = a * b; r must not overlap a or b; na, nb >= 1.
  void (*mul)(uint32_t* r, const uint32_t* a, size_t na, const uint32_t* b, size_t nb);
  // r (2n words) = a * a; r must not overlap a.
  void (*sqr)(uint32_t* r, const uint32_t* a, size_t n);
  // Montgomery product over n words with R = 2^(32n): r = a * b / R mod m for a, b < m, m odd,
  // n0 = -m^-1 mod 2^64 (the word32 variant uses its low word). r may be a or b. scratch holds
  // 2 * n + 4 words.
  void (*mont_mul)(uint32_t* r, const uint32_t* a, const uint32_t* b, const uint32_t* m, uint64_t n0, size_t n,
                   uint32_t* scratch);
  void (*mont_sqr)(uint32_t* r, const uint32_t* a, const uint32_t* m, uint64_t n0, size_t n, uint32_t* scratch);
  // q (na - nb + 2 words) and r (nb words) = a / b and a mod b; na >= nb >= 2 even, the top two
  // words of b not both zero; scratch of na + 2 * nb + 4 words; q, r must not overlap the inputs.
  void (*div)(uint32_t* q, uint32_t* r, const uint32_t* a, size_t na, const uint32_t* b, size_t nb,
              uint32_t* scratch);
};

const Kernels& PortableKernels();
// The limb64 variant, or null where it is not built.
const Kernels* WideKernels();

// The variant the library uses: limb64 where built, else word32. SelectKernels lets tests and
// the benchmark run the whole library on one variant; it is not synchronised, so switch only
// while no other thread uses the library's big integers. Returns the previous variant.
const Kernels& ActiveKernels();
const Kernels& SelectKernels(const Kernels& k);

// The word32 division: KDPKI_DivideWords's own method, with q and r as in Kernels::div.
void DivideWordsPortable(uint32_t* q, uint32_t* r, const uint32_t* a, size_t na, const uint32_t* b, size_t nb,
                         uint32_t* scratch);

// -m^-1 mod 2^64 for an odd m given by its two low words.
uint64_t NegInverse64(const uint32_t* m);

}  // namespace kdpki

#endif  // NORVANE_CRYPTO_PKI_KERNELS_INTERNAL_H_
