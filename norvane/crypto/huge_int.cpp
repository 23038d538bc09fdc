// KDPKI_IntegerBlock and the arithmetic of KDPKI_HugeInt: signs, sizes and storage here, the
// word work in the kernels of pki_words.h.
#include "norvane/crypto/huge_int.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "norvane/crypto/pki_failures_internal.h"
#include "norvane/crypto/pki_kernels_internal.h"
#include "norvane/crypto/pki_words.h"
#include "norvane/memory/memory_mgr.h"

// The layouts are part of the binary interface.
struct KDPKILayout {
  static_assert(sizeof(KDPKI_IntegerBlock) == 16, "integer block layout");
  static_assert(offsetof(KDPKI_IntegerBlock, m_nCapacity) == 0 && offsetof(KDPKI_IntegerBlock, m_nSize) == 4 &&
                    offsetof(KDPKI_IntegerBlock, m_pWords) == 8,
                "integer block layout");
  static_assert(sizeof(KDPKI_HugeInt) == 24, "huge integer layout");
  static_assert(offsetof(KDPKI_HugeInt, m_Magnitude) == 0 && offsetof(KDPKI_HugeInt, m_nSign) == 16,
                "huge integer layout");
};

namespace kdpki {

namespace {
thread_local uint64_t t_allocation_failures = 0;
}  // namespace

uint64_t AllocationFailures() { return t_allocation_failures; }
void NoteAllocationFailure() { ++t_allocation_failures; }

}  // namespace kdpki

namespace {

// The largest array a block makes: doubling it still fits the signed 32-bit capacity, and its
// bit count fits 32 bits.
constexpr int kMaxWords = 1 << 26;

size_t Even(size_t n) { return n + (n & 1); }

// The words of |x| read as n words (n >= its word count): x's own array when it holds n words,
// otherwise a zero-padded copy in spare (so kernels never read past an array). Null when the
// copy cannot be made.
const uint32_t* Padded(const KDPKI_HugeInt& x, size_t n, KDPKI_IntegerBlock& spare) {
  const KDPKI_IntegerBlock& b = x.Magnitude();
  if (static_cast<size_t>(b.GetSize()) >= n) return b.GetWords();
  if (!spare.SetSize(static_cast<int>(n))) return nullptr;
  KDPKI_Copy(spare.GetWords(), b.GetWords(), b.CountWords());
  KDPKI_SetWords(spare.GetWords() + b.CountWords(), 0, n - b.CountWords());
  return spare.GetWords();
}

}  // namespace

// ---- KDPKI_IntegerBlock ----

KDPKI_IntegerBlock::KDPKI_IntegerBlock(const KDPKI_IntegerBlock& other) : KDPKI_IntegerBlock() {
  if (other.m_nSize > 0 && other.m_nSize <= kMaxWords / 2 && SetSize(2 * other.m_nSize)) {
    std::memcpy(m_pWords, other.m_pWords, static_cast<size_t>(other.m_nSize) * 4);
    m_nSize = other.m_nSize;
  }
}

KDPKI_IntegerBlock& KDPKI_IntegerBlock::operator=(const KDPKI_IntegerBlock& other) {
  CopyFrom(other);
  return *this;
}

bool KDPKI_IntegerBlock::CopyFrom(const KDPKI_IntegerBlock& other) {
  if (this == &other) return true;
  if (!SetSize(other.m_nSize)) return false;
  if (other.m_nSize > 0) std::memcpy(m_pWords, other.m_pWords, static_cast<size_t>(other.m_nSize) * 4);
  m_nSize = other.m_nSize;
  return true;
}

bool KDPKI_IntegerBlock::Grow(int n, int allocate) {
  if (n <= m_nCapacity) return true;
  auto* words =
      allocate > kMaxWords ? nullptr : static_cast<uint32_t*>(KDMEM_DefaultAlloc2(static_cast<size_t>(allocate), 4, 0));
  if (!words) {
    kdpki::NoteAllocationFailure();
    return false;
  }
  std::memset(words, 0, static_cast<size_t>(allocate) * 4);
  if (m_pWords) {
    if (m_nSize > 0) std::memcpy(words, m_pWords, static_cast<size_t>(m_nSize) * 4);
    KDMEM_DefaultFree(m_pWords, 0);
  }
  m_pWords = words;
  m_nCapacity = allocate;
  return true;
}

bool KDPKI_IntegerBlock::SetSize(int n) { return Grow(n, n); }

bool KDPKI_IntegerBlock::ReSize(int n) { return n > kMaxWords / 2 ? n <= m_nCapacity : Grow(n, 2 * n); }

void KDPKI_IntegerBlock::Clear() {
  if (m_pWords) KDMEM_DefaultFree(m_pWords, 0);
  m_pWords = nullptr;
  m_nCapacity = 0;
  m_nSize = 0;
}

size_t KDPKI_IntegerBlock::CountWords() const {
  return m_nSize > 0 ? KDPKI_CountWord32(m_pWords, static_cast<size_t>(m_nSize)) : 0;
}

void KDPKI_IntegerBlock::Swap(KDPKI_IntegerBlock& other) {
  std::swap(m_nCapacity, other.m_nCapacity);
  std::swap(m_nSize, other.m_nSize);
  std::swap(m_pWords, other.m_pWords);
}

uint32_t KDPKI_IntegerBlock::GetBit(size_t i) const {
  return m_nSize > 0 ? KDPKI_GetBit(m_pWords, static_cast<size_t>(m_nSize), i) : 0;
}

uint8_t KDPKI_IntegerBlock::GetByte(size_t i) const {
  return i / 4 < static_cast<size_t>(m_nSize > 0 ? m_nSize : 0) ? static_cast<uint8_t>(m_pWords[i / 4] >> (8 * (i % 4)))
                                                                 : 0;
}

bool KDPKI_IntegerBlock::SetBit(size_t i, bool value) {
  const size_t word = i / 32;
  if (word >= static_cast<size_t>(kMaxWords) || !ReSize(static_cast<int>(word + 1))) return false;
  if (static_cast<int>(word) >= m_nSize) {
    std::memset(m_pWords + m_nSize, 0, (word + 1 - static_cast<size_t>(m_nSize)) * 4);
    m_nSize = static_cast<int>(word + 1);
  }
  const uint32_t mask = 1u << (i % 32);
  m_pWords[word] = value ? (m_pWords[word] | mask) : (m_pWords[word] & ~mask);
  return true;
}

bool KDPKI_IntegerBlock::SetByte(size_t i, uint8_t b) {
  const size_t word = i / 4;
  if (word >= static_cast<size_t>(kMaxWords) || !ReSize(static_cast<int>(word + 1))) return false;
  if (static_cast<int>(word) >= m_nSize) {
    std::memset(m_pWords + m_nSize, 0, (word + 1 - static_cast<size_t>(m_nSize)) * 4);
  }
  const unsigned shift = 8 * (i % 4);
  m_pWords[word] = (m_pWords[word] & ~(0xFFu << shift)) | (static_cast<uint32_t>(b) << shift);
  m_nSize = static_cast<int>(word + 1);
  return true;
}

void KDPKI_IntegerBlock::CopyBytes(const uint8_t* bytes, int n) {
  if (!bytes || n < 0) return;
  Clear();
  const size_t words = KDPKI_RoundupSize((static_cast<size_t>(n) + 3) / 4);
  if (!SetSize(static_cast<int>(words))) return;
  m_nSize = static_cast<int>(words);
  for (size_t k = 0; k < static_cast<size_t>(n); ++k) {
    m_pWords[k / 4] |= static_cast<uint32_t>(bytes[static_cast<size_t>(n) - 1 - k]) << (8 * (k % 4));
  }
}

// ---- KDPKI_HugeInt: storage ----

KDPKI_HugeInt::KDPKI_HugeInt(uint32_t value) : m_nSign(0) {
  if (m_Magnitude.SetSize(2)) {
    m_Magnitude.GetWords()[0] = value;
    m_Magnitude.SetUsed(2);
  }
}

KDPKI_HugeInt& KDPKI_HugeInt::operator=(const KDPKI_HugeInt& other) {
  if (this != &other && m_Magnitude.CopyFrom(other.m_Magnitude)) m_nSign = other.m_nSign;
  return *this;
}

KDPKI_HugeInt& KDPKI_HugeInt::operator=(uint32_t value) {
  if (Reserve(2)) {
    m_Magnitude.GetWords()[0] = value;
    m_Magnitude.GetWords()[1] = 0;
    m_nSign = 0;
  }
  return *this;
}

void KDPKI_HugeInt::Swap(KDPKI_HugeInt& other) {
  m_Magnitude.Swap(other.m_Magnitude);
  std::swap(m_nSign, other.m_nSign);
}

bool KDPKI_HugeInt::Reserve(size_t n) {
  if (n > static_cast<size_t>(kMaxWords) || !m_Magnitude.ReSize(static_cast<int>(n))) return false;
  const size_t size = static_cast<size_t>(m_Magnitude.GetSize());
  if (size < n) std::memset(m_Magnitude.GetWords() + size, 0, (n - size) * 4);
  m_Magnitude.SetUsed(static_cast<int>(n));
  return true;
}

bool KDPKI_HugeInt::Assign(const uint32_t* src, size_t n, uint32_t sign) {
  if (src != m_Magnitude.GetWords()) {
    KDPKI_HugeInt t;
    if (!t.Reserve(Even(n))) return false;
    KDPKI_Copy(t.m_Magnitude.GetWords(), src, n);
    Swap(t);
  } else if (n < static_cast<size_t>(m_Magnitude.GetSize())) {
    m_Magnitude.SetUsed(static_cast<int>(n));
  }
  m_nSign = sign;
  Normalize();
  return true;
}

// ---- Comparison and queries ----

int KDPKI_HugeInt::PositiveCompare(const KDPKI_HugeInt& other) const {
  const size_t na = m_Magnitude.CountWords(), nb = other.m_Magnitude.CountWords();
  if (na != nb) return na > nb ? 1 : -1;
  return KDPKI_WordsCompare(m_Magnitude.GetWords(), other.m_Magnitude.GetWords(), na);
}

int KDPKI_HugeInt::Compare(const KDPKI_HugeInt& other) const {
  if (IsNegative() != other.IsNegative()) return IsNegative() ? -1 : 1;
  const int c = PositiveCompare(other);
  return IsNegative() ? -c : c;
}

unsigned KDPKI_HugeInt::GetBitCount() const {
  const size_t n = m_Magnitude.CountWords();
  return n ? static_cast<unsigned>(32 * (n - 1)) + KDPKI_BitPrecision(m_Magnitude.GetWords()[n - 1]) : 0;
}

unsigned KDPKI_HugeInt::GetByteCount() const { return (GetBitCount() + 7) / 8; }

unsigned KDPKI_HugeInt::GetWordCount() const { return static_cast<unsigned>(m_Magnitude.CountWords()); }

int64_t KDPKI_HugeInt::ConvertToLong() const {
  const size_t n = m_Magnitude.CountWords();
  const uint32_t* w = m_Magnitude.GetWords();
  uint64_t v = n ? w[0] : 0;
  if (n > 1) v |= static_cast<uint64_t>(w[1]) << 32;
  if (IsNegative()) v = 0 - v;
  return static_cast<int64_t>(v);
}

void KDPKI_HugeInt::Encode(uint8_t* bytes, int n) const {
  if (!bytes) return;
  for (int i = 0; i < n; ++i) bytes[i] = m_Magnitude.GetByte(static_cast<size_t>(n - 1 - i));
}

void KDPKI_HugeInt::Decode(const uint8_t* bytes, int n) {
  if (!bytes) return;
  while (n > 0 && *bytes == 0) {
    ++bytes;
    --n;
  }
  m_Magnitude.CopyBytes(bytes, n < 0 ? 0 : n);
  m_nSign = 0;
}

void KDPKI_HugeInt::Power2(unsigned bits) {
  const size_t words = Even(bits / 32 + 1);
  if (!Reserve(words)) return;
  KDPKI_SetWords(m_Magnitude.GetWords(), 0, words);
  m_Magnitude.GetWords()[bits / 32] = 1u << (bits % 32);
  m_nSign = 0;
}

// ---- Addition and subtraction ----

void KDPKI_HugeInt::MagnitudeAddSub(KDPKI_HugeInt& result, const KDPKI_HugeInt& a, const KDPKI_HugeInt& b,
                                    uint32_t sign, bool subtract) {
  // x is the longer operand (for a difference, the larger; a smaller |a| flips the sign).
  const KDPKI_HugeInt* x = &a;
  const KDPKI_HugeInt* y = &b;
  if (subtract) {
    const int c = a.PositiveCompare(b);
    if (c == 0) {
      result = 0u;
      return;
    }
    if (c < 0) {
      std::swap(x, y);
      sign ^= 1;
    }
  } else if (a.m_Magnitude.CountWords() < b.m_Magnitude.CountWords()) {
    std::swap(x, y);
  }
  const size_t nx = x->m_Magnitude.CountWords(), ny = y->m_Magnitude.CountWords();
  const size_t n = Even(subtract ? nx : nx + 1);
  if (!result.Reserve(n)) return;  // may move the words of a or b when result is one of them
  uint32_t* r = result.m_Magnitude.GetWords();
  const uint32_t* xp = x->m_Magnitude.GetWords();
  const uint32_t* yp = y->m_Magnitude.GetWords();
  const uint32_t carry =
      subtract ? KDPKI_SubstractWithSameLength(r, xp, yp, ny) : KDPKI_AdditionWithSameLength(r, xp, yp, ny);
  KDPKI_Copy(r + ny, xp + ny, nx - ny);
  KDPKI_SetWords(r + nx, 0, n - nx);
  if (subtract) {
    KDPKI_Decrement(r + ny, nx - ny, carry);
  } else {
    KDPKI_Increment(r + ny, n - ny, carry);
  }
  result.m_nSign = sign;
  result.Normalize();
}

void KDPKI_HugeInt::Addition(KDPKI_HugeInt& sum, const KDPKI_HugeInt& a, const KDPKI_HugeInt& b) {
  MagnitudeAddSub(sum, a, b, a.m_nSign, a.m_nSign != b.m_nSign);
}

void KDPKI_HugeInt::Substract(KDPKI_HugeInt& diff, const KDPKI_HugeInt& a, const KDPKI_HugeInt& b) {
  MagnitudeAddSub(diff, a, b, a.m_nSign, a.m_nSign == b.m_nSign);
}

void KDPKI_HugeInt::PositiveAddition(KDPKI_HugeInt& sum, const KDPKI_HugeInt& a, const KDPKI_HugeInt& b) {
  MagnitudeAddSub(sum, a, b, 0, false);
}

void KDPKI_HugeInt::PositiveSubstract(KDPKI_HugeInt& diff, const KDPKI_HugeInt& a, const KDPKI_HugeInt& b) {
  MagnitudeAddSub(diff, a, b, 0, true);
}

// ---- Multiplication ----

KDPKI_HugeInt& KDPKI_HugeInt::ShortMultiply(uint32_t word) {
  const size_t n = m_Magnitude.CountWords();
  if (!Reserve(Even(n + 1))) return *this;
  uint32_t* w = m_Magnitude.GetWords();
  w[n] = KDPKI_LinearMultiply(w, w, word, n);
  Normalize();
  return *this;
}

void KDPKI_HugeInt::PositiveMultiply(KDPKI_HugeInt& product, const KDPKI_HugeInt& a, const KDPKI_HugeInt& b) {
  const size_t na = KDPKI_EvenWordCount(a.m_Magnitude.GetWords(), a.m_Magnitude.CountWords());
  const size_t nb = KDPKI_EvenWordCount(b.m_Magnitude.GetWords(), b.m_Magnitude.CountWords());
  if (na == 0 || nb == 0) {
    product = 0u;
    return;
  }
  if (b.m_Magnitude.CountWords() == 1) {  // one significant word: a single pass
    const uint32_t w = b.m_Magnitude.GetWords()[0];
    KDPKI_HugeInt t;
    if (!t.Assign(a.m_Magnitude.GetWords(), a.m_Magnitude.CountWords(), 0)) return;
    t.ShortMultiply(w);
    product.Swap(t);
    return;
  }
  KDPKI_IntegerBlock spare_a, spare_b;
  const uint32_t* ap = Padded(a, na, spare_a);
  const uint32_t* bp = &a == &b ? ap : Padded(b, nb, spare_b);
  if (!ap || !bp) return;
  // The kernels need a result apart from the operands: a separate one when product is either.
  KDPKI_HugeInt t;
  KDPKI_HugeInt& out = (&product == &a || &product == &b) ? t : product;
  if (!out.Reserve(na + nb)) return;
  if (ap == bp && na == nb) {
    kdpki::ActiveKernels().sqr(out.m_Magnitude.GetWords(), ap, na);
  } else {
    KDPKI_Multiplication(ap, na, bp, nb, out.m_Magnitude.GetWords());
  }
  out.m_nSign = 0;
  if (&out == &t) product.Swap(t);
}

void KDPKI_HugeInt::Multiply(KDPKI_HugeInt& product, const KDPKI_HugeInt& a, const KDPKI_HugeInt& b) {
  const uint32_t sign = a.m_nSign ^ b.m_nSign;
  PositiveMultiply(product, a, b);
  product.m_nSign = sign;
  product.Normalize();
}

// ---- Division ----

namespace {

// Remainder of the n-word magnitude a by the word w (not 0).
uint32_t WordModulus(const uint32_t* a, size_t n, uint32_t w) {
  if ((w & (w - 1)) == 0) return n ? a[0] & (w - 1) : 0;
  uint64_t r = 0;
  for (size_t i = n; i-- > 0;) r = ((r << 32) | a[i]) % w;
  return static_cast<uint32_t>(r);
}

}  // namespace

uint32_t KDPKI_HugeInt::ShortDivide(KDPKI_HugeInt& quotient, const KDPKI_HugeInt& dividend, uint32_t word) {
  if (word == 0) return 0;
  const size_t n = dividend.m_Magnitude.CountWords();
  const uint32_t negative = dividend.m_nSign;
  KDPKI_HugeInt q;
  if (!q.Reserve(Even(n + 1))) return 0;
  uint32_t* qw = q.m_Magnitude.GetWords();
  const uint32_t* a = dividend.m_Magnitude.GetWords();
  uint64_t r = 0;
  for (size_t i = n; i-- > 0;) {
    const uint64_t cur = (r << 32) | a[i];
    qw[i] = static_cast<uint32_t>(cur / word);
    r = cur % word;
  }
  uint32_t rem = static_cast<uint32_t>(r);
  if (negative) {
    q.m_nSign = 1;
    if (rem) {
      KDPKI_Increment(qw, Even(n + 1), 1);  // -(|q| + 1): one below the truncated quotient
      rem = word - rem;
    }
  }
  q.Normalize();
  quotient.Swap(q);
  return rem;
}

namespace {

// |dividend| = quotient |divisor| + remainder; false when nothing was computed.
bool DivideMagnitudes(const KDPKI_HugeInt& dividend, const KDPKI_HugeInt& divisor, KDPKI_HugeInt& remainder,
                      KDPKI_HugeInt& quotient) {
  const size_t nb = divisor.Magnitude().CountWords();
  if (nb == 0) return false;
  if (dividend.PositiveCompare(divisor) < 0) {
    KDPKI_HugeInt r(dividend);
    r.SetSign(0);
    if (r.Magnitude().GetSize() < dividend.Magnitude().GetSize()) return false;
    remainder.Swap(r);
    quotient = 0u;
    return true;
  }
  const size_t na2 = KDPKI_EvenWordCount(dividend.Magnitude().GetWords(), dividend.Magnitude().CountWords());
  const size_t nb2 = KDPKI_EvenWordCount(divisor.Magnitude().GetWords(), nb);
  KDPKI_HugeInt q, r;
  KDPKI_IntegerBlock spare_a, spare_b;
  const uint32_t* a = Padded(dividend, na2, spare_a);
  const uint32_t* b = Padded(divisor, nb2, spare_b);
  if (!a || !b) return false;
  auto* scratch = static_cast<uint32_t*>(KDMEM_DefaultAlloc2(na2 + 2 * nb2 + 4, 4, 0));
  if (!scratch) {
    kdpki::NoteAllocationFailure();
    return false;
  }
  bool ok = q.Magnitude().ReSize(static_cast<int>(na2 - nb2 + 2)) && r.Magnitude().ReSize(static_cast<int>(nb2));
  if (ok) {
    q.Magnitude().SetUsed(static_cast<int>(na2 - nb2 + 2));
    r.Magnitude().SetUsed(static_cast<int>(nb2));
    KDPKI_DivideWords(r.Magnitude().GetWords(), q.Magnitude().GetWords(), scratch, a, na2, b, nb2);
    remainder.Swap(r);
    quotient.Swap(q);
  }
  KDMEM_DefaultFree(scratch, 0);
  return ok;
}

}  // namespace

void KDPKI_HugeInt::PositiveDivide(const KDPKI_HugeInt& dividend, const KDPKI_HugeInt& divisor,
                                   KDPKI_HugeInt& remainder, KDPKI_HugeInt& quotient) {
  DivideMagnitudes(dividend, divisor, remainder, quotient);
}

void KDPKI_HugeInt::Divide(const KDPKI_HugeInt& dividend, const KDPKI_HugeInt& divisor, KDPKI_HugeInt& remainder,
                           KDPKI_HugeInt& quotient) {
  // Only the dividend's sign counts: a negative divisor divides as its magnitude.
  const uint32_t negative_dividend = dividend.m_nSign;
  // |divisor| is needed after the division, which may overwrite it.
  KDPKI_HugeInt abs_divisor;
  const KDPKI_HugeInt* d = &divisor;
  if (negative_dividend && (&remainder == &divisor || &quotient == &divisor)) {
    abs_divisor = divisor;
    d = &abs_divisor;
  }
  if (!DivideMagnitudes(dividend, divisor, remainder, quotient)) return;
  if (negative_dividend) {
    quotient.m_nSign = 1;
    if (!remainder.IsZero()) {
      KDPKI_HugeInt::PositiveAddition(quotient, quotient, KDPKI_HugeInt::One());
      quotient.m_nSign = 1;
      MagnitudeAddSub(remainder, *d, remainder, 0, true);
    }
  }
  quotient.Normalize();
}

// ---- Shifts ----

KDPKI_HugeInt& KDPKI_HugeInt::operator<<=(unsigned bits) {
  const size_t n = m_Magnitude.CountWords();
  if (n == 0 || bits == 0) return *this;
  const size_t words = bits / 32;
  if (words >= static_cast<size_t>(kMaxWords) || !Reserve(Even(n + words + 1))) return *this;
  const size_t size = static_cast<size_t>(m_Magnitude.GetSize());
  KDPKI_ShiftWordsLeftByWords(m_Magnitude.GetWords(), size, words);
  KDPKI_ShiftWordsLeftByBits(m_Magnitude.GetWords(), size, bits % 32);
  return *this;
}

KDPKI_HugeInt& KDPKI_HugeInt::operator>>=(unsigned bits) {
  const size_t n = m_Magnitude.CountWords();
  const size_t words = bits / 32;
  if (words >= n) {
    if (n) *this = 0u;
    return *this;
  }
  KDPKI_ShiftWordsRightByWords(m_Magnitude.GetWords(), n, words);
  KDPKI_ShiftWordsRightByBits(m_Magnitude.GetWords(), n, bits % 32);
  m_Magnitude.SetUsed(static_cast<int>(n));
  Normalize();
  return *this;
}

// ---- Operators ----

KDPKI_HugeInt KDPKI_HugeInt::operator-() const {
  KDPKI_HugeInt r(*this);
  r.m_nSign ^= 1;
  r.Normalize();
  return r;
}

KDPKI_HugeInt& KDPKI_HugeInt::operator+=(const KDPKI_HugeInt& b) {
  Addition(*this, *this, b);
  return *this;
}
KDPKI_HugeInt& KDPKI_HugeInt::operator-=(const KDPKI_HugeInt& b) {
  Substract(*this, *this, b);
  return *this;
}
KDPKI_HugeInt& KDPKI_HugeInt::operator*=(const KDPKI_HugeInt& b) {
  Multiply(*this, *this, b);
  return *this;
}
KDPKI_HugeInt& KDPKI_HugeInt::operator/=(const KDPKI_HugeInt& b) {
  *this = *this / b;
  return *this;
}
KDPKI_HugeInt& KDPKI_HugeInt::operator%=(const KDPKI_HugeInt& b) {
  *this = *this % b;
  return *this;
}

KDPKI_HugeInt operator+(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b) {
  KDPKI_HugeInt r;
  KDPKI_HugeInt::Addition(r, a, b);
  return r;
}
KDPKI_HugeInt operator-(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b) {
  KDPKI_HugeInt r;
  KDPKI_HugeInt::Substract(r, a, b);
  return r;
}
KDPKI_HugeInt operator*(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b) {
  KDPKI_HugeInt r;
  KDPKI_HugeInt::Multiply(r, a, b);
  return r;
}
KDPKI_HugeInt operator/(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b) {
  KDPKI_HugeInt r, q;
  KDPKI_HugeInt::Divide(a, b, r, q);
  return q;
}
KDPKI_HugeInt operator%(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b) {
  if (b.GetWordCount() == 1) return KDPKI_HugeInt(a % b.Magnitude().GetWords()[0]);
  KDPKI_HugeInt r, q;
  KDPKI_HugeInt::Divide(a, b, r, q);
  return r;
}
KDPKI_HugeInt operator+(const KDPKI_HugeInt& a, uint32_t b) { return a + KDPKI_HugeInt(b); }
KDPKI_HugeInt operator-(const KDPKI_HugeInt& a, uint32_t b) { return a - KDPKI_HugeInt(b); }
KDPKI_HugeInt operator*(const KDPKI_HugeInt& a, uint32_t b) {
  KDPKI_HugeInt r(a);
  r.ShortMultiply(b);
  return r;
}
KDPKI_HugeInt operator/(const KDPKI_HugeInt& a, uint32_t b) {
  KDPKI_HugeInt q;
  KDPKI_HugeInt::ShortDivide(q, a, b);
  return q;
}
uint32_t operator%(const KDPKI_HugeInt& a, uint32_t b) {
  if (b == 0) return 0;
  const uint32_t r = WordModulus(a.Magnitude().GetWords(), a.GetWordCount(), b);
  return a.IsNegative() && r ? b - r : r;
}
KDPKI_HugeInt operator<<(const KDPKI_HugeInt& a, unsigned bits) {
  KDPKI_HugeInt r(a);
  r <<= bits;
  return r;
}
KDPKI_HugeInt operator>>(const KDPKI_HugeInt& a, unsigned bits) {
  KDPKI_HugeInt r(a);
  r >>= bits;
  return r;
}
KDPKI_HugeInt operator&(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b) {
  const size_t n = a.GetWordCount() < b.GetWordCount() ? a.GetWordCount() : b.GetWordCount();
  KDPKI_HugeInt r;
  if (!r.Magnitude().SetSize(static_cast<int>(Even(n)))) return r;
  r.Magnitude().SetUsed(static_cast<int>(Even(n)));
  for (size_t i = 0; i < n; ++i) r.Magnitude().GetWords()[i] = a.Magnitude().GetWords()[i] & b.Magnitude().GetWords()[i];
  return r;
}
bool operator<(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b) { return a.Compare(b) < 0; }
bool operator>(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b) { return a.Compare(b) > 0; }
bool operator<=(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b) { return a.Compare(b) <= 0; }
bool operator>=(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b) { return a.Compare(b) >= 0; }
bool operator==(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b) { return a.Compare(b) == 0; }
bool operator!=(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b) { return a.Compare(b) != 0; }
