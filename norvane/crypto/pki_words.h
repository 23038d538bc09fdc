// Word-array kernels of the public-key library: the arithmetic beneath KDPKI_HugeInt and the
// Montgomery code, on raw arrays of 32-bit words stored least significant word first.
//
// Every kernel works on caller-supplied arrays and never allocates. Lengths are word counts;
// pointers are trusted (no null checks) and must cover the stated number of words. Unless a
// kernel says otherwise, an output may be the same array as an input but must not overlap it
// partially. Results are identical on every processor: the kernels may work on pairs of words
// internally, but what they store is defined by 32-bit words.
#ifndef NORVANE_CRYPTO_PKI_WORDS_H_
#define NORVANE_CRYPTO_PKI_WORDS_H_

#include <cstddef>
#include <cstdint>

#include "norvane/config.h"

// KDPKI_Copy copies n words from src to dst (the two may overlap).
NORVANE_API void KDPKI_Copy(uint32_t* dst, const uint32_t* src, size_t n);
// KDPKI_SetWords stores value into n words of dst.
NORVANE_API void KDPKI_SetWords(uint32_t* dst, uint32_t value, size_t n);
// KDPKI_WordsCompare compares two n-word values: -1, 0 or 1.
NORVANE_API int KDPKI_WordsCompare(const uint32_t* a, const uint32_t* b, size_t n);
// KDPKI_CountWord32 returns the number of significant words of the n-word value a (0 for zero).
NORVANE_API size_t KDPKI_CountWord32(const uint32_t* a, size_t n);
// KDPKI_EvenWordCount is KDPKI_CountWord32 rounded up to an even number.
NORVANE_API size_t KDPKI_EvenWordCount(const uint32_t* a, size_t n);
// KDPKI_BitsToWords returns (bits + 31) / 32.
NORVANE_API size_t KDPKI_BitsToWords(size_t bits);
// KDPKI_BitPrecision returns the bit length of w (0 for 0).
NORVANE_API unsigned KDPKI_BitPrecision(uint32_t w);
// KDPKI_RoundupSize rounds a word count for storage: 0..8 map to 2, 2, 2, 4, 4, 8, 8, 8, 8;
// 9..16 to 16, 17..32 to 32, 33..64 to 64, and above 64 to the next power of two. Counts above
// 2^31 return 0 (no such array can be made).
NORVANE_API size_t KDPKI_RoundupSize(size_t n);
// KDPKI_GetBit returns bit i of the n-word value a; bits at or above 32 * n read as 0.
NORVANE_API uint32_t KDPKI_GetBit(const uint32_t* a, size_t n, size_t i);

// KDPKI_AdditionWithSameLength sets c = a + b over n words and returns the carry (0 or 1);
// KDPKI_SubstractWithSameLength sets c = a - b and returns the borrow (0 or 1).
NORVANE_API uint32_t KDPKI_AdditionWithSameLength(uint32_t* c, const uint32_t* a, const uint32_t* b, size_t n);
NORVANE_API uint32_t KDPKI_SubstractWithSameLength(uint32_t* c, const uint32_t* a, const uint32_t* b, size_t n);
// KDPKI_Increment adds w to the n-word value a in place and returns the carry out of its top
// word; KDPKI_Decrement subtracts w and returns the borrow.
NORVANE_API uint32_t KDPKI_Increment(uint32_t* a, size_t n, uint32_t w = 1);
NORVANE_API uint32_t KDPKI_Decrement(uint32_t* a, size_t n, uint32_t w = 1);
// KDPKI_TwosComplement replaces the n-word value a by 2^(32n) - a (0 stays 0).
NORVANE_API void KDPKI_TwosComplement(uint32_t* a, size_t n);
// KDPKI_LinearMultiply sets c = a * w over n words and returns the word carried out;
// KDPKI_LinearAdd sets c = c + a * w and returns the word carried out. c may be a itself.
NORVANE_API uint32_t KDPKI_LinearMultiply(uint32_t* c, const uint32_t* a, uint32_t w, size_t n);
NORVANE_API uint32_t KDPKI_LinearAdd(uint32_t* c, const uint32_t* a, uint32_t w, size_t n);

// Shifts in place over n words. The bit shifts take 0 <= bits < 32 and return the bits shifted
// out (left: in the low bits of the result; right: in the high bits). The word shifts fill with
// zeros and drop what leaves the array; a shift of n words or more clears it.
NORVANE_API uint32_t KDPKI_ShiftWordsLeftByBits(uint32_t* a, size_t n, unsigned bits);
NORVANE_API uint32_t KDPKI_ShiftWordsRightByBits(uint32_t* a, size_t n, unsigned bits);
NORVANE_API void KDPKI_ShiftWordsLeftByWords(uint32_t* a, size_t n, size_t words);
NORVANE_API void KDPKI_ShiftWordsRightByWords(uint32_t* a, size_t n, size_t words);

// KDPKI_Multiplication writes the na + nb words of a * b to result, which must not overlap a or
// b. If either length is 0 nothing is written. A shorter operand of two words whose upper word is
// 0 is taken as a single word (0 leaves zeros, 1 copies the other operand). No sub-quadratic
// method is used: the product is schoolbook.
NORVANE_API void KDPKI_Multiplication(const uint32_t* a, size_t na, const uint32_t* b, size_t nb, uint32_t* result);

// Division kernels. A "two-word" value is a[0] + a[1] * 2^32.
// KDPKI_SubatomicDivide divides the three-word value a by the two-word divisor b (top bit of
// b[1] set, and a[2]:a[1] below b): returns the one-word quotient and leaves the remainder in
// a[0], a[1] with a[2] = 0.
NORVANE_API uint32_t KDPKI_SubatomicDivide(uint32_t* a, const uint32_t* b);
// KDPKI_AtomicDivide stores in q[0..1] the quotient of the four-word a by the two-word b (top bit
// of b[1] set, a[3]:a[2] below b); a is not changed.
NORVANE_API void KDPKI_AtomicDivide(uint32_t* q, const uint32_t* a, const uint32_t* b);
// KDPKI_CorrectQuotientEstimate subtracts q * b (q of two words, b of n words, n even) from the
// n + 2 words of r, using t (n + 2 words) as scratch, then while r >= b subtracts b and adds 1
// to q. The estimate must not exceed the true quotient digit, so r does not go negative.
NORVANE_API void KDPKI_CorrectQuotientEstimate(uint32_t* r, uint32_t* t, uint32_t* q, const uint32_t* b, size_t n);
// KDPKI_DivideWords divides a (na words) by b (nb words): quotient to q (na - nb + 2 words),
// remainder to r (nb words). na and nb are even, na >= nb >= 2, and the top two words of b are
// not both 0. t is scratch of na + 2 * nb + 4 words. r and q must not overlap a, b or t.
NORVANE_API void KDPKI_DivideWords(uint32_t* r, uint32_t* q, uint32_t* t, const uint32_t* a, size_t na,
                                   const uint32_t* b, size_t nb);

// KDPKI_AlmostInverse runs Kaliski's almost-inverse on a (na words) modulo the odd m (n words,
// n even, a < m): r (n words) receives a^-1 * 2^k mod m and k is returned. If a and m are not
// coprime (a = 0 included) r is cleared and 0 is returned. t is scratch of 4 * n + 2 words.
NORVANE_API unsigned KDPKI_AlmostInverse(uint32_t* r, uint32_t* t, const uint32_t* a, size_t na, const uint32_t* m,
                                         size_t n);
// KDPKI_DivideByPower2Mod sets r = a / 2^k mod m for the odd m, all of n words, a < m.
NORVANE_API void KDPKI_DivideByPower2Mod(uint32_t* r, const uint32_t* a, size_t k, const uint32_t* m, size_t n);

// Two-word products, each operand a[0..1], b[0..1]:
// KDPKI_AtomicMultiply stores the four words of a * b in c; KDPKI_AtomicMultiplyAdd adds them
// to c[0..3] (carry out of c[3] dropped); KDPKI_AtomicMultiplyBottom stores the low two words in
// c[0..1]; KDPKI_AtomicMultiplyBottomAdd adds the low two words to c[0..1].
NORVANE_API void KDPKI_AtomicMultiply(uint32_t* c, const uint32_t* a, const uint32_t* b);
NORVANE_API void KDPKI_AtomicMultiplyAdd(uint32_t* c, const uint32_t* a, const uint32_t* b);
NORVANE_API void KDPKI_AtomicMultiplyBottom(uint32_t* c, const uint32_t* a, const uint32_t* b);
NORVANE_API void KDPKI_AtomicMultiplyBottomAdd(uint32_t* c, const uint32_t* a, const uint32_t* b);
// KDPKI_AtomicInverseModPower2 stores in c[0..1] the inverse of the odd two-word a mod 2^64.
NORVANE_API void KDPKI_AtomicInverseModPower2(uint32_t* c, const uint32_t* a);

// Half products and the inverse for Montgomery reduction, over n words (n even):
// KDPKI_RecursiveMultiplyBottom sets r = a * b mod 2^(32n); KDPKI_RecursiveMultiplyTop sets
// r = floor(a * b / 2^(32n)); KDPKI_RecursiveInverseModPower2 sets r = a^-1 mod 2^(32n) for an
// odd a. t is scratch of 2 * n words; r must not overlap a, b or t.
NORVANE_API void KDPKI_RecursiveMultiplyBottom(uint32_t* r, uint32_t* t, const uint32_t* a, const uint32_t* b,
                                               size_t n);
NORVANE_API void KDPKI_RecursiveMultiplyTop(uint32_t* r, uint32_t* t, const uint32_t* a, const uint32_t* b, size_t n);
NORVANE_API void KDPKI_RecursiveInverseModPower2(uint32_t* r, uint32_t* t, const uint32_t* a, size_t n);

// Byte helpers. KDPKI_Swap32 reverses the bytes of w. KDPKI_LongToBytes writes w as 4 bytes,
// most significant first; KDPKI_BytesToLong reads them back. KDPKI_ExecutedOrBytes stores the
// byte-wise exclusive or of a and b (n bytes each) in out, which may be a or b.
NORVANE_API uint32_t KDPKI_Swap32(uint32_t w);
NORVANE_API void KDPKI_LongToBytes(uint32_t w, uint8_t* bytes);
NORVANE_API uint32_t KDPKI_BytesToLong(const uint8_t* bytes);
NORVANE_API void KDPKI_ExecutedOrBytes(uint8_t* out, const uint8_t* a, const uint8_t* b, size_t n);
// KDPKI_Crop keeps the low k bits of b for k < 8 and all of b for k >= 8 (so k = 0 gives 0).
NORVANE_API uint8_t KDPKI_Crop(uint8_t b, unsigned k);

#endif  // NORVANE_CRYPTO_PKI_WORDS_H_
