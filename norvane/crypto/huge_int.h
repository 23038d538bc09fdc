// Multi-precision integers for the public-key code.
//
// KDPKI_IntegerBlock is a growable array of 32-bit words, least significant first; KDPKI_HugeInt
// is a signed integer held as sign and magnitude on top of one. Both are fixed layouts. All
// storage comes from the default memory manager (KDMEM_DefaultAlloc2 with element size 4,
// KDMEM_DefaultFree), so a failed allocation also calls its out-of-memory handler.
//
// Values: the magnitude may carry zero words at its top; every operation ignores them. Zero is
// always held with sign 0: results that come out zero (a product of operands of different sign,
// the negation of zero, a quotient) are normalised, so IsNegative() is true only below zero.
//
// Errors: nothing throws and nothing is printed. Division by zero leaves quotient and remainder
// as they were; a missing modular inverse is the value 0. When memory runs out an operation
// does not write past what it owns: a block that cannot grow stays as it was, and the operation
// leaves its result unchanged (or zero where stated). Values are not shared between threads.
#ifndef NORVANE_CRYPTO_HUGE_INT_H_
#define NORVANE_CRYPTO_HUGE_INT_H_

#include <cstddef>
#include <cstdint>
#include <new>

#include "norvane/config.h"
#include "norvane/memory/object.h"

// KDPKI_IntegerBlock is an owned, growable array of 32-bit words, least significant first.
class NORVANE_API KDPKI_IntegerBlock {
 public:
  KDPKI_IntegerBlock() : m_nCapacity(0), m_nSize(0), m_pWords(nullptr) {}
  // The copy holds the source's used words in an array of twice their number (through SetSize).
  KDPKI_IntegerBlock(const KDPKI_IntegerBlock& other);
  KDPKI_IntegerBlock& operator=(const KDPKI_IntegerBlock& other);
  ~KDPKI_IntegerBlock() { Clear(); }

  // CopyFrom makes this block hold other's used words, growing exactly (SetSize) when needed.
  // Returns false, leaving the block as it was, when it cannot grow.
  bool CopyFrom(const KDPKI_IntegerBlock& other);
  // SetSize grows the array to exactly n words when the capacity is below n: the new array is
  // zero-filled and receives the used words. ReSize does the same with 2 * n words. Neither
  // shrinks nor changes the size; both return whether the capacity is now at least n (a failed
  // allocation leaves the block as it was).
  bool SetSize(int n);
  bool ReSize(int n);
  // Clear frees the array: capacity and size 0.
  void Clear();

  // Bit i and byte i, counted from the least significant end; 0 beyond the size.
  uint32_t GetBit(size_t i) const;
  uint8_t GetByte(size_t i) const;
  // SetBit grows to hold bit i (words it brings into use read 0) and sets or clears it.
  bool SetBit(size_t i, bool value);
  // SetByte grows to hold byte i, stores it, and sets the size to i / 4 + 1 even when the value
  // was longer: values are built by setting bytes from the least significant upwards. Words it
  // brings into use read 0 apart from the byte set.
  bool SetByte(size_t i, uint8_t b);
  // CopyBytes loads n big-endian bytes: the old array is freed, the size becomes
  // KDPKI_RoundupSize(ceil(n / 4)) words, zero-filled, and byte n - 1 - k goes to bits
  // 8 * (k mod 4) of word k / 4. A null source (or n < 0) does nothing; if the array cannot be
  // had the block is left empty (zero).
  void CopyBytes(const uint8_t* bytes, int n);

  int GetCapacity() const { return m_nCapacity; }
  int GetSize() const { return m_nSize; }
  uint32_t* GetWords() { return m_pWords; }
  const uint32_t* GetWords() const { return m_pWords; }
  // The size without its zero top words.
  size_t CountWords() const;
  // Sets the size (words between the old and new size are not touched); n must not exceed the
  // capacity.
  void SetUsed(int n) { m_nSize = n; }
  void Swap(KDPKI_IntegerBlock& other);

 private:
  bool Grow(int n, int allocate);

  int32_t m_nCapacity;  // words allocated
  int32_t m_nSize;      // words in use, zero top words allowed
  uint32_t* m_pWords;   // null when nothing is allocated
  friend struct KDPKILayout;
};

class KDPKI_RandomGenerator;

// The kind of value the constrained draw KDPKI_HugeInt::Random(generator, min, max, type, ...)
// produces: KDPKI_RANDOM_PRIME a prime, any other value any number.
enum KDPKI_RandomType : int { KDPKI_RANDOM_ANY = 0, KDPKI_RANDOM_PRIME = 1 };

// KDPKI_HugeInt is a signed multi-precision integer, sign and magnitude, owning its words.
class NORVANE_API KDPKI_HugeInt : public CKD_Object {
 public:
  KDPKI_HugeInt() : m_nSign(0) {}
  KDPKI_HugeInt(uint32_t value);  // NOLINT(google-explicit-constructor): words mix with integers
  KDPKI_HugeInt(const KDPKI_HugeInt& other) = default;
  KDPKI_HugeInt& operator=(const KDPKI_HugeInt& other);
  KDPKI_HugeInt& operator=(uint32_t value);

  // The process-wide constants 0, 1, 2 and 3, made on first use (see KDPKI_Singleton).
  static const KDPKI_HugeInt& Zero();
  static const KDPKI_HugeInt& One();
  static const KDPKI_HugeInt& Two();
  static const KDPKI_HugeInt& Three();

  // Arithmetic with a result argument; the result may be one of the operands.
  // Addition: sum = a + b. Substract: diff = a - b. Multiply: product = a * b.
  static void Addition(KDPKI_HugeInt& sum, const KDPKI_HugeInt& a, const KDPKI_HugeInt& b);
  static void Substract(KDPKI_HugeInt& diff, const KDPKI_HugeInt& a, const KDPKI_HugeInt& b);
  static void Multiply(KDPKI_HugeInt& product, const KDPKI_HugeInt& a, const KDPKI_HugeInt& b);
  // Divide: dividend = quotient * |divisor| + remainder with 0 <= remainder < |divisor|: floored
  // division by the divisor's magnitude (-7 / 2 = -4 remainder 1). The divisor's sign is not
  // looked at, so 7 / -2 = 3 remainder 1 and -7 / -2 = -4 remainder 1. A zero divisor changes
  // nothing. If the scratch memory cannot be had, nothing is computed.
  static void Divide(const KDPKI_HugeInt& dividend, const KDPKI_HugeInt& divisor, KDPKI_HugeInt& remainder,
                     KDPKI_HugeInt& quotient);
  // The same operations on magnitudes: PositiveAddition sum = |a| + |b|; PositiveSubstract
  // diff = |a| - |b| (negative when |a| < |b|); PositiveMultiply product = |a| |b|;
  // PositiveDivide |dividend| = quotient |divisor| + remainder.
  static void PositiveAddition(KDPKI_HugeInt& sum, const KDPKI_HugeInt& a, const KDPKI_HugeInt& b);
  static void PositiveSubstract(KDPKI_HugeInt& diff, const KDPKI_HugeInt& a, const KDPKI_HugeInt& b);
  static void PositiveMultiply(KDPKI_HugeInt& product, const KDPKI_HugeInt& a, const KDPKI_HugeInt& b);
  static void PositiveDivide(const KDPKI_HugeInt& dividend, const KDPKI_HugeInt& divisor, KDPKI_HugeInt& remainder,
                             KDPKI_HugeInt& quotient);
  // ShortMultiply multiplies this value by word in place and returns it.
  KDPKI_HugeInt& ShortMultiply(uint32_t word);
  // ShortDivide sets quotient = floor(dividend / word) and returns dividend mod word (in
  // [0, word), as with Divide). A zero word returns 0 and leaves quotient unchanged.
  static uint32_t ShortDivide(KDPKI_HugeInt& quotient, const KDPKI_HugeInt& dividend, uint32_t word);

  // Number theory.
  // GCD runs Euclid with % from (a, b) until the divisor is zero and returns the last non-zero
  // value with its sign: GCD(-4, 0) = -4, GCD(6, -3) = -3, GCD(-6, 4) = 2, GCD(0, 0) = 0.
  static KDPKI_HugeInt GCD(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b);
  // LCM = (a / GCD(a, b)) * b.
  static KDPKI_HugeInt LCM(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b);
  // InverseMod returns x in [0, m) with this * x = 1 mod m, or 0 when there is none (m <= 0,
  // m = 1, or this and m not coprime). Odd m: Kaliski's almost inverse; even m:
  // ((a - u) m + 1) / a with u = m^-1 mod a.
  KDPKI_HugeInt InverseMod(const KDPKI_HugeInt& m) const;
  // The same for a word modulus; 0 when there is none.
  uint32_t InverseMod(uint32_t m) const;
  // SquareRoot returns floor(sqrt(this)), 0 for a negative value (Newton's method from above).
  KDPKI_HugeInt SquareRoot() const;
  // IsSquare: the square of SquareRoot() equals the value (false for negative values).
  bool IsSquare() const;
  // Power2 sets the value to 2^bits.
  void Power2(unsigned bits);
  // Power returns this^|exponent| (KDPKI_Exponent); PowerAndModule returns
  // this^|exponent| mod |modulus| (KDPKI_ModularExponentiation).
  KDPKI_HugeInt Power(const KDPKI_HugeInt& exponent) const;
  KDPKI_HugeInt PowerAndModule(const KDPKI_HugeInt& exponent, const KDPKI_HugeInt& modulus) const;

  // Comparison: Compare orders values (-1, 0, 1); PositiveCompare orders magnitudes.
  int Compare(const KDPKI_HugeInt& other) const;
  int PositiveCompare(const KDPKI_HugeInt& other) const;

  // Queries on the magnitude: bit length, byte length, significant words; bit and byte i from
  // the least significant end (0 beyond the value).
  unsigned GetBitCount() const;
  unsigned GetByteCount() const;
  unsigned GetWordCount() const;
  uint32_t GetBit(size_t i) const { return m_Magnitude.GetBit(i); }
  uint8_t GetByte(size_t i) const { return m_Magnitude.GetByte(i); }
  // SetByte sets byte i of the magnitude and cuts the value to i / 4 + 1 words (see
  // KDPKI_IntegerBlock::SetByte).
  void SetByte(size_t i, uint8_t b) { m_Magnitude.SetByte(i, b); }
  bool IsZero() const { return m_Magnitude.CountWords() == 0; }
  bool IsOdd() const { return GetBit(0) != 0; }
  bool IsEven() const { return GetBit(0) == 0; }
  // IsPositive: above zero. IsNegative: below zero.
  bool IsPositive() const { return m_nSign == 0 && !IsZero(); }
  bool IsNegative() const { return m_nSign != 0; }
  // The low 64 bits of the magnitude, negated (modulo 2^64) for a negative value.
  int64_t ConvertToLong() const;

  // Encode writes exactly n bytes, big-endian: zeros above the value, and only the low n bytes
  // of a longer value. The sign is not written. Null bytes or n <= 0 write nothing.
  void Encode(uint8_t* bytes, int n) const;
  // Decode skips leading zero bytes and loads the rest big-endian (KDPKI_IntegerBlock::
  // CopyBytes); the value is non-negative. Null bytes do nothing.
  void Decode(const uint8_t* bytes, int n);

  // Random draws from a key-generation generator. Each sets the value and returns true, or
  // returns false with the value unchanged (a range that is empty, a class with no value in it,
  // memory that cannot be had). The bytes a draw takes are fixed by its arguments and the
  // generator's bytes, so a seeded generator gives the same values every time.
  //
  // Random(generator, bits) takes ceil(bits / 8) bytes, keeps the low bits mod 8 bits of the
  // first (KDPKI_Crop: when bits is a multiple of 8 the first byte becomes 0, so the value is
  // below 2^(bits - 8), not 2^bits), and reads them big-endian: uniform below 2^bits otherwise.
  // A bit count of 0 takes no bytes and leaves the value unchanged (true).
  bool Random(KDPKI_RandomGenerator& generator, unsigned bits);
  // Random(generator, min, max) draws Random(generator, bit length of max - min) until the draw
  // is at most max - min, then adds min: uniform in [min, max], except that when the bit length
  // L of max - min is a multiple of 8 it is uniform in [min, min + 2^(L - 8)). False when
  // max < min (or, with a generator that cannot give varied bytes, after 1024 rejected draws).
  bool Random(KDPKI_RandomGenerator& generator, const KDPKI_HugeInt& min, const KDPKI_HugeInt& max);
  // Random(generator, min, max, type, equiv, mod) draws in [min, max] within the class
  // equiv (mod mod). For KDPKI_RANDOM_PRIME: up to 15 times, x = Random(generator, min, max) with
  // its lowest bit set, and the first prime of the class from x up to
  // min(max, x + mod * bit length of max) (KDPKI_FirstPrime) is the result; after 15 misses the
  // first prime of the class from min up to max, or false when there is none. For any other type:
  // with mod = 1 the uniform draw in [min, max]; otherwise min' + mod * r, min' the least value
  // >= min in the class and r = Random(generator, 0, (max - min') / mod), false when max < min'.
  // mod must be positive.
  bool Random(KDPKI_RandomGenerator& generator, const KDPKI_HugeInt& min, const KDPKI_HugeInt& max,
              KDPKI_RandomType type, const KDPKI_HugeInt& equiv = Zero(), const KDPKI_HugeInt& mod = One());

  // The magnitude and sign, for code working on the words directly. After changing the words,
  // call Normalize() so that a zero value has sign 0.
  const KDPKI_IntegerBlock& Magnitude() const { return m_Magnitude; }
  KDPKI_IntegerBlock& Magnitude() { return m_Magnitude; }
  uint32_t Sign() const { return m_nSign; }
  void SetSign(uint32_t sign) { m_nSign = sign ? 1 : 0; }
  void Normalize() {
    if (IsZero()) m_nSign = 0;
  }
  void Swap(KDPKI_HugeInt& other);

  KDPKI_HugeInt operator-() const;
  KDPKI_HugeInt& operator+=(const KDPKI_HugeInt& b);
  KDPKI_HugeInt& operator-=(const KDPKI_HugeInt& b);
  KDPKI_HugeInt& operator*=(const KDPKI_HugeInt& b);
  KDPKI_HugeInt& operator/=(const KDPKI_HugeInt& b);
  KDPKI_HugeInt& operator%=(const KDPKI_HugeInt& b);
  // Shifts move the magnitude and keep the sign: >> truncates towards zero (-5 >> 1 = -2).
  KDPKI_HugeInt& operator<<=(unsigned bits);
  KDPKI_HugeInt& operator>>=(unsigned bits);

 private:
  // Grows the magnitude to hold n words (doubling) and sets its size to n, zeroing words that
  // come into use; false (nothing changed) when it cannot.
  bool Reserve(size_t n);
  // Sets the value to the n words at src with the sign given; false when it cannot grow.
  bool Assign(const uint32_t* src, size_t n, uint32_t sign);
  // result = |a| + |b|, or |a| - |b| when subtract, with the sign given (flipped when the
  // difference is negative).
  static void MagnitudeAddSub(KDPKI_HugeInt& result, const KDPKI_HugeInt& a, const KDPKI_HugeInt& b, uint32_t sign,
                              bool subtract);

  KDPKI_IntegerBlock m_Magnitude;
  uint32_t m_nSign;  // 0: zero or positive; 1: negative
  friend struct KDPKILayout;
};

// Arithmetic into a new value, by the static members above: a / b is Divide's quotient (floored
// by |b|; b = 0 gives 0).
NORVANE_API KDPKI_HugeInt operator+(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b);
NORVANE_API KDPKI_HugeInt operator-(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b);
NORVANE_API KDPKI_HugeInt operator*(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b);
NORVANE_API KDPKI_HugeInt operator/(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b);
// a % b is in [0, |b|). A divisor of one significant word takes a word path; b = 0 gives 0.
NORVANE_API KDPKI_HugeInt operator%(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b);
NORVANE_API KDPKI_HugeInt operator+(const KDPKI_HugeInt& a, uint32_t b);
NORVANE_API KDPKI_HugeInt operator-(const KDPKI_HugeInt& a, uint32_t b);
NORVANE_API KDPKI_HugeInt operator*(const KDPKI_HugeInt& a, uint32_t b);
// a / b is floored; a / 0 is 0.
NORVANE_API KDPKI_HugeInt operator/(const KDPKI_HugeInt& a, uint32_t b);
// a % b is in [0, b) (b - r for a negative a with r != 0); a % 0 is 0.
NORVANE_API uint32_t operator%(const KDPKI_HugeInt& a, uint32_t b);
NORVANE_API KDPKI_HugeInt operator<<(const KDPKI_HugeInt& a, unsigned bits);
NORVANE_API KDPKI_HugeInt operator>>(const KDPKI_HugeInt& a, unsigned bits);
// a & b is the AND of the magnitudes; the result is non-negative.
NORVANE_API KDPKI_HugeInt operator&(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b);
NORVANE_API bool operator<(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b);
NORVANE_API bool operator>(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b);
NORVANE_API bool operator<=(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b);
NORVANE_API bool operator>=(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b);
NORVANE_API bool operator==(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b);
NORVANE_API bool operator!=(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b);

// KDPKI_Singleton<T, F, instance>::Ref() returns the one process-wide T of its kind, built by
// F (which constructs a T at the address given) on the first call and after each Release().
// Release() destroys the instance if it exists. Neither is synchronised: the first Ref() and every
// Release() must happen while no other thread uses the instance. The instance lives in static
// storage, so Ref() never fails (though a T built while memory is out may hold less than F
// meant, e.g. a constant whose words could not be allocated reads 0).
template <class T, class F, int instance>
class NORVANE_API KDPKI_Singleton {
 public:
  static const T& Ref();
  static void Release();
};

// KDPKI_NewInteger<N> builds the integer N.
template <int N>
struct KDPKI_NewInteger {
  KDPKI_HugeInt* operator()(void* where) const { return ::new (where) KDPKI_HugeInt(static_cast<uint32_t>(N)); }
};

extern template class KDPKI_Singleton<KDPKI_HugeInt, KDPKI_NewInteger<0>, 0>;
extern template class KDPKI_Singleton<KDPKI_HugeInt, KDPKI_NewInteger<1>, 0>;
extern template class KDPKI_Singleton<KDPKI_HugeInt, KDPKI_NewInteger<2>, 0>;
extern template class KDPKI_Singleton<KDPKI_HugeInt, KDPKI_NewInteger<3>, 0>;

// KDPKI_Init and KDPKI_Finalize both destroy those of the four shared constants that exist, so
// that the next use builds them afresh. A handler at process exit (or library unload) does the
// same. Not synchronised (see KDPKI_Singleton).
NORVANE_API void KDPKI_Init();
NORVANE_API void KDPKI_Finalize();

#endif  // NORVANE_CRYPTO_HUGE_INT_H_
