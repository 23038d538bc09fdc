// Modular arithmetic and exponentiation over KDPKI_HugeInt: Montgomery arithmetic modulo an odd
// modulus, a group interface over it, sliding windows over exponents, and the exponentiation
// drivers used by the primality tests, RSA and DSA.
//
// Values in Montgomery form are non-negative and below the modulus (x R mod m); operations read
// only magnitudes. The modulus of a representation must be odd (its sign is ignored); with an even
// one the results mean nothing, though every call stays within its memory. Exponents are read as
// their magnitudes. Nothing is reported as an error: a Montgomery product, or an exponentiation,
// whose memory cannot be had comes out as 0. Objects are used by one thread at a time.
#ifndef NORVANE_CRYPTO_MONTGOMERY_H_
#define NORVANE_CRYPTO_MONTGOMERY_H_

#include <cstddef>
#include <cstdint>

#include "norvane/config.h"
#include "norvane/containers/array.h"
#include "norvane/crypto/huge_int.h"

// Montgomery arithmetic modulo m with radix R = 2^(32 N), N = KDPKI_RoundupSize(words of m).
class NORVANE_API KDPKI_MontgomeryRepresentation {
 public:
  // Copies |modulus| widened to N words and computes m^-1 mod R once.
  explicit KDPKI_MontgomeryRepresentation(const KDPKI_HugeInt& modulus);

  const KDPKI_HugeInt& GetModulus() const { return m_Modulus; }
  const KDPKI_HugeInt& GetModulusInverse() const { return m_ModulusInverse; }
  // N, the radix in words.
  size_t GetWordCount() const { return static_cast<size_t>(m_Modulus.Magnitude().GetSize()); }

  // ConvertIn returns x R mod m (any x, negative ones included).
  KDPKI_HugeInt ConvertIn(const KDPKI_HugeInt& x) const;
  // ConvertOut returns x R^-1 mod m: the reduction of x taken as 2N words (higher words dropped).
  KDPKI_HugeInt ConvertOut(const KDPKI_HugeInt& x) const;
  // Multiply returns a b R^-1 mod m: the full product, cut to its low 2N words, then reduced by
  // KDPKI_DeMontgomerize (for a, b < m the result is below m).
  KDPKI_HugeInt Multiply(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b) const;
  // Add returns a + b less m when that is >= m: with a, b and m of one word count, over those
  // words (a carry out also subtracts m); otherwise on whole values.
  KDPKI_HugeInt Add(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b) const;
  // Subtract returns a - b plus m on a borrow when a, b and m have one word count; otherwise
  // a + Inverse(b), which is not reduced.
  KDPKI_HugeInt Subtract(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b) const;
  // Inverse returns m - x (0 stays 0).
  KDPKI_HugeInt Inverse(const KDPKI_HugeInt& x) const;
  // Step returns the Montgomery form of 1: R mod m.
  KDPKI_HugeInt Step() const;
  // Exponentiate returns base^exponent with base and result in Montgomery form.
  KDPKI_HugeInt Exponentiate(const KDPKI_HugeInt& base, const KDPKI_HugeInt& exponent) const;

 private:
  KDPKI_HugeInt m_Modulus;         // |m| in N words
  KDPKI_HugeInt m_ModulusInverse;  // m^-1 mod R, N words
  friend struct KDPKIMontgomeryLayout;
};

// The multiplicative group of a representation (not owned; it must outlive the group).
class NORVANE_API KDPKI_MultiplicativeGroup {
 public:
  explicit KDPKI_MultiplicativeGroup(const KDPKI_MontgomeryRepresentation* representation)
      : m_pRepresentation(representation) {}
  const KDPKI_MontgomeryRepresentation* GetRepresentation() const { return m_pRepresentation; }
  // The identity, R mod m.
  KDPKI_HugeInt Step() const { return m_pRepresentation->Step(); }
  KDPKI_HugeInt Square(const KDPKI_HugeInt& x) const { return m_pRepresentation->Multiply(x, x); }
  KDPKI_HugeInt Multiply(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b) const {
    return m_pRepresentation->Multiply(a, b);
  }
  // Reiterate sets a = a b and returns a copy of it.
  KDPKI_HugeInt Reiterate(KDPKI_HugeInt& a, const KDPKI_HugeInt& b) const;

 private:
  const KDPKI_MontgomeryRepresentation* m_pRepresentation;
};

// Right-to-left sliding windows over an exponent of bit length L, with one bucket per odd window
// value. The window size w follows L: 1 below 18 bits, 2 to 24, 3 to 70, 4 to 197, 5 to 539, 6 to
// 1434, 7 from 1435; there are 2^(w-1) buckets. A window starts at a set bit ("begin"); its value
// is the w - 1 bits above that bit, so the window's odd value is 2 * value + 1 and it is
// collected in bucket value.
class NORVANE_API KDPKI_WindowSlider {
 public:
  KDPKI_WindowSlider();
  // Deletes the buckets.
  ~KDPKI_WindowSlider();
  KDPKI_WindowSlider(const KDPKI_WindowSlider&) = delete;
  KDPKI_WindowSlider& operator=(const KDPKI_WindowSlider&) = delete;

  // FindFirstWindow takes the exponent (not owned; it must outlive the slider's use), chooses
  // the window size, makes the buckets, each the group's identity, and finds the first window.
  // Returns whether there is one; false also when the buckets cannot be made (none are kept).
  bool FindFirstWindow(const KDPKI_MultiplicativeGroup& group, const KDPKI_HugeInt& exponent);
  // FindNextWindow moves on to the next window; false once none is left (begin >= L).
  bool FindNextWindow();

  static uint8_t WindowSizeFor(unsigned bits);
  uint8_t GetWindowSize() const { return m_nWindowSize; }
  int GetExponentBits() const { return m_nExponentBits; }
  uint32_t GetWindowBegin() const { return m_nWindowBegin; }
  uint32_t GetWindowValue() const { return m_nWindowValue; }
  int GetBucketCount() const { return m_Buckets.GetSize(); }
  KDPKI_HugeInt& GetBucket(int i) { return *m_Buckets[i]; }

 private:
  void FreeBuckets();

  CKD_ArrayTemplate<KDPKI_HugeInt*> m_Buckets;
  const KDPKI_HugeInt* m_pExponent;
  int32_t m_nExponentBits;
  uint8_t m_nWindowSize;
  uint32_t m_nWindowBegin;
  uint32_t m_nWindowEnd;    // begin + w: where the next search starts
  uint32_t m_nWindowValue;  // the window's bits above its lowest one
  friend struct KDPKIMontgomeryLayout;
};

// KDPKI_ModularExponentiation returns base^|exponent| mod |modulus| (in [0, |modulus|)): by
// Montgomery arithmetic for an odd modulus, by plain right-to-left squaring and multiplying for
// an even one. A zero exponent gives 1 (0 modulo 1).
NORVANE_API KDPKI_HugeInt KDPKI_ModularExponentiation(const KDPKI_HugeInt& base, const KDPKI_HugeInt& exponent,
                                                      const KDPKI_HugeInt& modulus);
// KDPKI_CRT returns xp + p (((xq - xp) u) mod q), u = p^-1 mod q: the value that is xp mod p and
// xq mod q.
NORVANE_API KDPKI_HugeInt KDPKI_CRT(const KDPKI_HugeInt& xp, const KDPKI_HugeInt& p, const KDPKI_HugeInt& xq,
                                    const KDPKI_HugeInt& q, const KDPKI_HugeInt& u);
// KDPKI_ModularExponentiation_Fast is the private-key operation of RSA through the CRT:
// KDPKI_CRT((x mod p)^dp mod p, p, (x mod q)^dq mod q, q, u).
NORVANE_API KDPKI_HugeInt KDPKI_ModularExponentiation_Fast(const KDPKI_HugeInt& x, const KDPKI_HugeInt& dp,
                                                           const KDPKI_HugeInt& dq, const KDPKI_HugeInt& p,
                                                           const KDPKI_HugeInt& q, const KDPKI_HugeInt& u);
// KDPKI_LtoRBinaryExponentiation sets result = base^exponent in the group, squaring and
// multiplying from the top bit down (identity for a zero exponent).
NORVANE_API void KDPKI_LtoRBinaryExponentiation(const KDPKI_HugeInt& base, const KDPKI_HugeInt& exponent,
                                                const KDPKI_MultiplicativeGroup& group, KDPKI_HugeInt& result);
// KDPKI_SimultaneousMultiplication sets results[i] = base^exponents[i] in the group for i below
// count, squaring the base once per exponent bit and collecting each exponent's windows in its
// buckets, which are combined at the end. Zero exponents give the identity.
NORVANE_API void KDPKI_SimultaneousMultiplication(const KDPKI_HugeInt& base, const KDPKI_HugeInt* exponents,
                                                  size_t count, const KDPKI_MultiplicativeGroup& group,
                                                  KDPKI_HugeInt* results);
// KDPKI_Exponent returns base^|exponent| without a modulus.
NORVANE_API KDPKI_HugeInt KDPKI_Exponent(const KDPKI_HugeInt& base, const KDPKI_HugeInt& exponent);
// KDPKI_DeMontgomerize reduces the 2n-word t: q = (low n words of t) m_inverse mod 2^(32n),
// h = high n words of q m, out (n words) = (high n words of t) - h, plus m on a borrow. m_inverse
// is m^-1 mod 2^(32n). It writes nothing when a pointer is null or its 3n words of scratch cannot
// be had. out must not overlap t.
NORVANE_API void KDPKI_DeMontgomerize(const uint32_t* t, const uint32_t* m, const uint32_t* m_inverse, size_t n,
                                      uint32_t* out);

#endif  // NORVANE_CRYPTO_MONTGOMERY_H_
