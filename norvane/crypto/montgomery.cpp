// Montgomery arithmetic, sliding windows and the exponentiation drivers.
//
// The exponentiations run on raw word arrays with the Montgomery kernels whenever every value
// is below the modulus; the products are then exact and the result is the one the group
// operations give step by step. A base at or above the modulus takes the group operations
// themselves, whose reduction is defined for any operand.
#include "norvane/crypto/montgomery.h"

#include <cstring>
#include <new>

#include "norvane/crypto/pki_failures_internal.h"
#include "norvane/crypto/montgomery_internal.h"
#include "norvane/crypto/pki_kernels_internal.h"
#include "norvane/crypto/pki_words.h"
#include "norvane/memory/memory_mgr.h"

struct KDPKIMontgomeryLayout {
  static_assert(sizeof(KDPKI_MontgomeryRepresentation) == 48 &&
                    offsetof(KDPKI_MontgomeryRepresentation, m_Modulus) == 0 &&
                    offsetof(KDPKI_MontgomeryRepresentation, m_ModulusInverse) == 24,
                "Montgomery representation layout");
  static_assert(sizeof(KDPKI_WindowSlider) == 64 && offsetof(KDPKI_WindowSlider, m_Buckets) == 0 &&
                    offsetof(KDPKI_WindowSlider, m_pExponent) == 32 &&
                    offsetof(KDPKI_WindowSlider, m_nExponentBits) == 40 &&
                    offsetof(KDPKI_WindowSlider, m_nWindowSize) == 44 &&
                    offsetof(KDPKI_WindowSlider, m_nWindowBegin) == 48 &&
                    offsetof(KDPKI_WindowSlider, m_nWindowEnd) == 52 &&
                    offsetof(KDPKI_WindowSlider, m_nWindowValue) == 56,
                "window slider layout");
};

namespace {

// A block of words from the default manager, freed on scope exit.
class Words {
 public:
  explicit Words(size_t n) : p_(static_cast<uint32_t*>(KDMEM_DefaultAlloc2(n ? n : 1, 4, 0))) {
    if (p_) {
      std::memset(p_, 0, (n ? n : 1) * 4);
    } else {
      kdpki::NoteAllocationFailure();
    }
  }
  ~Words() {
    if (p_) KDMEM_DefaultFree(p_, 0);
  }
  Words(const Words&) = delete;
  Words& operator=(const Words&) = delete;
  uint32_t* get() const { return p_; }

 private:
  uint32_t* p_;
};

// Copies the low min(words of x, n) words of |x| to out (n words, zero-padded).
void Widen(const KDPKI_HugeInt& x, size_t n, uint32_t* out) {
  size_t c = x.GetWordCount();
  if (c > n) c = n;
  KDPKI_Copy(out, x.Magnitude().GetWords(), c);
  KDPKI_SetWords(out + c, 0, n - c);
}

// Sets x to the n words at w (sign 0); false when x cannot grow.
bool Load(KDPKI_HugeInt& x, const uint32_t* w, size_t n) {
  KDPKI_IntegerBlock& b = x.Magnitude();
  if (n > (1u << 25) || !b.ReSize(static_cast<int>(n))) return false;
  KDPKI_Copy(b.GetWords(), w, n);
  b.SetUsed(static_cast<int>(n));
  x.SetSign(0);
  x.Normalize();
  return true;
}

// Montgomery products over n words (n even) modulo m, with the kernel variant in use.
struct Engine {
  const uint32_t* m;
  size_t n;
  uint64_t n0;
  const kdpki::Kernels* k;
  uint32_t* scratch;  // 2n + 4 words
  void Mul(uint32_t* r, const uint32_t* a, const uint32_t* b) const { k->mont_mul(r, a, b, m, n0, n, scratch); }
  void Sqr(uint32_t* r, const uint32_t* a) const { k->mont_sqr(r, a, m, n0, n, scratch); }
};

// The next window at or after end, as KDPKI_WindowSlider::FindNextWindow.
bool Slide(const KDPKI_HugeInt& e, uint32_t bits, unsigned w, uint32_t& begin, uint32_t& end, uint32_t& value) {
  begin = end;
  if (begin >= bits) return false;
  while (!e.GetBit(begin)) ++begin;
  end = begin + w;
  value = 0;
  for (unsigned j = 1; j < w; ++j) value |= e.GetBit(begin + j) << (j - 1);
  return true;
}

struct ExponentState {
  uint32_t bits, begin, end, value;
  unsigned w;
  bool more;
  uint64_t used;     // bucket j holds something other than the identity
  uint32_t* bucket;  // 2^(w - 1) values of n words
};

// dst = dst * src where an unused value stands for the identity.
void MulInto(const Engine& eng, uint32_t* dst, bool& dst_used, const uint32_t* src, bool src_used) {
  if (!src_used) return;
  if (dst_used) {
    eng.Mul(dst, dst, src);
  } else {
    KDPKI_Copy(dst, src, eng.n);
    dst_used = true;
  }
}

// results[i] (n words each) = g^e[i] for g < m in Montgomery form; false when memory is short.
// The bucket method of KDPKI_SimultaneousMultiplication, with identity factors skipped.
bool BucketExponentiation(const Engine& eng, const uint32_t* g, const KDPKI_HugeInt* e, size_t count,
                          const uint32_t* identity, uint32_t* results) {
  const size_t n = eng.n;
  auto* state = static_cast<ExponentState*>(KDMEM_DefaultAlloc2(count, sizeof(ExponentState), 0));
  if (!state) {
    kdpki::NoteAllocationFailure();
    return false;
  }
  size_t words = n;  // x
  for (size_t i = 0; i < count; ++i) {
    ExponentState& s = state[i];
    s.bits = e[i].GetBitCount();
    s.w = KDPKI_WindowSlider::WindowSizeFor(s.bits);
    words += n << (s.w - 1);
  }
  Words block(words);
  if (!block.get()) {
    KDMEM_DefaultFree(state, 0);
    return false;
  }
  uint32_t* x = block.get();
  uint32_t* next = x + n;
  bool any = false;
  for (size_t i = 0; i < count; ++i) {
    ExponentState& s = state[i];
    s.bucket = next;
    next += n << (s.w - 1);
    s.used = 0;
    s.end = 0;
    s.more = Slide(e[i], s.bits, s.w, s.begin, s.end, s.value);
    any |= s.more;
  }
  if (any) {
    KDPKI_Copy(x, g, n);
    for (uint32_t p = 0;; ++p) {
      bool left = false;
      for (size_t i = 0; i < count; ++i) {
        ExponentState& s = state[i];
        if (s.more && s.begin == p) {
          bool used = (s.used >> s.value) & 1;
          MulInto(eng, s.bucket + s.value * n, used, x, true);
          s.used |= uint64_t{1} << s.value;
          s.more = Slide(e[i], s.bits, s.w, s.begin, s.end, s.value);
        }
        left |= s.more;
      }
      if (!left) break;
      eng.Sqr(x, x);
    }
  }
  for (size_t i = 0; i < count; ++i) {
    const ExponentState& s = state[i];
    const size_t nb = size_t{1} << (s.w - 1);
    bool used[64];
    for (size_t j = 0; j < nb; ++j) used[j] = (s.used >> j) & 1;
    uint32_t* b = s.bucket;
    uint32_t* r = results + i * n;
    bool r_used = used[nb - 1];
    KDPKI_Copy(r, b + (nb - 1) * n, n);
    if (nb >= 2) {
      for (size_t j = nb - 2; j >= 1; --j) {
        MulInto(eng, b + j * n, used[j], b + (j + 1) * n, used[j + 1]);
        MulInto(eng, r, r_used, b + j * n, used[j]);
      }
      MulInto(eng, b, used[0], b + n, used[1]);
      if (r_used) eng.Sqr(r, r);
      MulInto(eng, r, r_used, b, used[0]);
    }
    if (!r_used) KDPKI_Copy(r, identity, n);
  }
  KDMEM_DefaultFree(state, 0);
  return true;
}

}  // namespace

// ---- KDPKI_MontgomeryRepresentation ----

KDPKI_MontgomeryRepresentation::KDPKI_MontgomeryRepresentation(const KDPKI_HugeInt& modulus) {
  const size_t n = KDPKI_RoundupSize(modulus.GetWordCount());
  Words m(n), t(2 * n), inv(n);
  if (!m.get() || !t.get() || !inv.get()) return;
  Widen(modulus, n, m.get());
  KDPKI_RecursiveInverseModPower2(inv.get(), t.get(), m.get(), n);
  if (!Load(m_Modulus, m.get(), n) || !Load(m_ModulusInverse, inv.get(), n)) {
    m_Modulus.Magnitude().Clear();
    m_ModulusInverse.Magnitude().Clear();
    return;
  }
  // Load trims nothing, but keep the sizes at exactly N words.
  m_Modulus.Magnitude().SetUsed(static_cast<int>(n));
  m_ModulusInverse.Magnitude().SetUsed(static_cast<int>(n));
}

KDPKI_HugeInt KDPKI_MontgomeryRepresentation::ConvertIn(const KDPKI_HugeInt& x) const {
  return (x << static_cast<unsigned>(32 * GetWordCount())) % m_Modulus;
}

KDPKI_HugeInt KDPKI_MontgomeryRepresentation::ConvertOut(const KDPKI_HugeInt& x) const {
  const size_t n = GetWordCount();
  KDPKI_HugeInt r;
  if (n == 0) return r;
  Words t(2 * n), out(n);
  if (!t.get() || !out.get()) return r;
  Widen(x, 2 * n, t.get());
  KDPKI_DeMontgomerize(t.get(), m_Modulus.Magnitude().GetWords(), m_ModulusInverse.Magnitude().GetWords(), n,
                       out.get());
  Load(r, out.get(), n);
  return r;
}

KDPKI_HugeInt KDPKI_MontgomeryRepresentation::Multiply(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b) const {
  const size_t n = GetWordCount();
  KDPKI_HugeInt r;
  if (n == 0) return r;
  const uint32_t* m = m_Modulus.Magnitude().GetWords();
  if (m_Modulus.IsOdd() && a.PositiveCompare(m_Modulus) < 0 && b.PositiveCompare(m_Modulus) < 0) {
    Words w(5 * n + 4);
    if (!w.get()) return r;
    uint32_t* aw = w.get();
    uint32_t* bw = aw + n;
    uint32_t* out = bw + n;
    Widen(a, n, aw);
    Widen(b, n, bw);
    const Engine eng = {m, n, kdpki::NegInverse64(m), &kdpki::ActiveKernels(), out + n};
    eng.Mul(out, aw, bw);
    Load(r, out, n);
    return r;
  }
  // Any operands: the product cut to 2N words, then the reduction as defined. The buffer holds at
  // least 2N words: the reduction reads 2N, more than a product of short operands fills, and reading
  // past a shorter buffer would leave the memory it owns (the words beyond the product read 0).
  const size_t na = a.GetWordCount(), nb = b.GetWordCount();
  const size_t len = 2 * (na + nb) > 2 * n ? 2 * (na + nb) : 2 * n;
  Words t(len), out(n);
  if (!t.get() || !out.get()) return r;
  if (na && nb) KDPKI_Multiplication(a.Magnitude().GetWords(), na, b.Magnitude().GetWords(), nb, t.get());
  KDPKI_DeMontgomerize(t.get(), m, m_ModulusInverse.Magnitude().GetWords(), n, out.get());
  Load(r, out.get(), n);
  return r;
}

namespace {

// a + b or a - b over the k words of a modulus of k words (a and b of k words too): on a carry or
// a sum >= m the sum less m, on a borrow the difference plus m, all modulo 2^(32k).
bool SameLengthAddSub(const KDPKI_HugeInt& m, const KDPKI_HugeInt& a, const KDPKI_HugeInt& b, bool subtract,
                      KDPKI_HugeInt& r) {
  const size_t k = m.GetWordCount();
  if (!k || a.GetWordCount() != k || b.GetWordCount() != k) return false;
  Words w(k);
  if (!w.get()) return true;  // r stays 0
  const uint32_t* mw = m.Magnitude().GetWords();
  const uint32_t* aw = a.Magnitude().GetWords();
  const uint32_t* bw = b.Magnitude().GetWords();
  if (subtract) {
    if (KDPKI_SubstractWithSameLength(w.get(), aw, bw, k)) KDPKI_AdditionWithSameLength(w.get(), w.get(), mw, k);
  } else if (KDPKI_AdditionWithSameLength(w.get(), aw, bw, k) || KDPKI_WordsCompare(w.get(), mw, k) >= 0) {
    KDPKI_SubstractWithSameLength(w.get(), w.get(), mw, k);
  }
  Load(r, w.get(), k);
  return true;
}

}  // namespace

KDPKI_HugeInt KDPKI_MontgomeryRepresentation::Add(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b) const {
  KDPKI_HugeInt r;
  if (SameLengthAddSub(m_Modulus, a, b, false, r)) return r;
  KDPKI_HugeInt::PositiveAddition(r, a, b);
  if (r.PositiveCompare(m_Modulus) >= 0) r -= m_Modulus;
  return r;
}

KDPKI_HugeInt KDPKI_MontgomeryRepresentation::Subtract(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b) const {
  KDPKI_HugeInt r;
  if (SameLengthAddSub(m_Modulus, a, b, true, r)) return r;
  return a + Inverse(b);
}

KDPKI_HugeInt KDPKI_MontgomeryRepresentation::Inverse(const KDPKI_HugeInt& x) const {
  if (x.IsZero()) return KDPKI_HugeInt();
  return m_Modulus - x;
}

KDPKI_HugeInt KDPKI_MontgomeryRepresentation::Step() const {
  KDPKI_HugeInt r;
  r.Power2(static_cast<unsigned>(32 * GetWordCount()));
  return r % m_Modulus;
}

KDPKI_HugeInt KDPKI_MontgomeryRepresentation::Exponentiate(const KDPKI_HugeInt& base,
                                                           const KDPKI_HugeInt& exponent) const {
  const KDPKI_MultiplicativeGroup group(this);
  KDPKI_HugeInt r;
  KDPKI_SimultaneousMultiplication(base, &exponent, 1, group, &r);
  return r;
}

KDPKI_HugeInt KDPKI_MultiplicativeGroup::Reiterate(KDPKI_HugeInt& a, const KDPKI_HugeInt& b) const {
  a = Multiply(a, b);
  return a;
}

// ---- KDPKI_WindowSlider ----

KDPKI_WindowSlider::KDPKI_WindowSlider()
    : m_pExponent(nullptr),
      m_nExponentBits(0),
      m_nWindowSize(1),
      m_nWindowBegin(0),
      m_nWindowEnd(0),
      m_nWindowValue(0) {}

KDPKI_WindowSlider::~KDPKI_WindowSlider() { FreeBuckets(); }

void KDPKI_WindowSlider::FreeBuckets() {
  for (int i = 0; i < m_Buckets.GetSize(); ++i) delete m_Buckets[i];
  m_Buckets.RemoveAll();
}

uint8_t KDPKI_WindowSlider::WindowSizeFor(unsigned bits) {
  if (bits < 18) return 1;
  if (bits <= 24) return 2;
  if (bits <= 70) return 3;
  if (bits <= 197) return 4;
  if (bits <= 539) return 5;
  if (bits <= 1434) return 6;
  return 7;
}

bool KDPKI_WindowSlider::FindFirstWindow(const KDPKI_MultiplicativeGroup& group, const KDPKI_HugeInt& exponent) {
  FreeBuckets();
  m_pExponent = &exponent;
  m_nExponentBits = static_cast<int32_t>(exponent.GetBitCount());
  m_nWindowSize = WindowSizeFor(static_cast<unsigned>(m_nExponentBits));
  m_nWindowEnd = 0;
  const KDPKI_HugeInt identity = group.Step();
  for (int j = 0; j < (1 << (m_nWindowSize - 1)); ++j) {
    KDPKI_HugeInt* bucket = new KDPKI_HugeInt(identity);
    if (!bucket || bucket->Magnitude().GetSize() < identity.Magnitude().GetSize() || !m_Buckets.Add(bucket)) {
      delete bucket;
      FreeBuckets();
      kdpki::NoteAllocationFailure();
      m_nWindowBegin = m_nWindowEnd = static_cast<uint32_t>(m_nExponentBits);
      return false;
    }
  }
  return FindNextWindow();
}

bool KDPKI_WindowSlider::FindNextWindow() {
  if (!m_pExponent) return false;
  return Slide(*m_pExponent, static_cast<uint32_t>(m_nExponentBits), m_nWindowSize, m_nWindowBegin, m_nWindowEnd,
               m_nWindowValue);
}

// ---- Exponentiation ----

void KDPKI_SimultaneousMultiplication(const KDPKI_HugeInt& base, const KDPKI_HugeInt* exponents, size_t count,
                                      const KDPKI_MultiplicativeGroup& group, KDPKI_HugeInt* results) {
  const KDPKI_MontgomeryRepresentation* rep = group.GetRepresentation();
  if (!rep || !count || !exponents || !results) return;
  const KDPKI_HugeInt& modulus = rep->GetModulus();
  const size_t n = rep->GetWordCount();
  for (size_t i = 0; i < count; ++i) results[i] = KDPKI_HugeInt();
  if (n == 0) return;
  if (modulus.IsOdd() && base.PositiveCompare(modulus) < 0) {
    Words w((4 + count) * n + 4);
    if (!w.get()) return;
    uint32_t* g = w.get();
    uint32_t* identity = g + n;
    uint32_t* out = identity + n;
    uint32_t* scratch = out + count * n;
    Widen(base, n, g);
    Widen(group.Step(), n, identity);
    const uint32_t* m = modulus.Magnitude().GetWords();
    const Engine eng = {m, n, kdpki::NegInverse64(m), &kdpki::ActiveKernels(), scratch};
    if (!BucketExponentiation(eng, g, exponents, count, identity, out)) return;
    for (size_t i = 0; i < count; ++i) Load(results[i], out + i * n, n);
    return;
  }

  // The group operations, step by step.
  auto* sliders = static_cast<KDPKI_WindowSlider*>(KDMEM_DefaultAlloc2(count, sizeof(KDPKI_WindowSlider), 0));
  if (!sliders) {
    kdpki::NoteAllocationFailure();
    return;
  }
  for (size_t i = 0; i < count; ++i) ::new (&sliders[i]) KDPKI_WindowSlider();
  bool any = false, failed = false;
  for (size_t i = 0; i < count; ++i) {
    any |= sliders[i].FindFirstWindow(group, exponents[i]);
    failed |= sliders[i].GetBucketCount() == 0;
  }
  if (!failed) {
    if (any) {
      KDPKI_HugeInt x = base;
      for (uint32_t p = 0;; ++p) {
        bool left = false;
        for (size_t i = 0; i < count; ++i) {
          KDPKI_WindowSlider& s = sliders[i];
          if (s.GetWindowBegin() == p && p < static_cast<uint32_t>(s.GetExponentBits())) {
            group.Reiterate(s.GetBucket(static_cast<int>(s.GetWindowValue())), x);
            s.FindNextWindow();
          }
          left |= s.GetWindowBegin() < static_cast<uint32_t>(s.GetExponentBits());
        }
        if (!left) break;
        x = group.Square(x);
      }
    }
    for (size_t i = 0; i < count; ++i) {
      KDPKI_WindowSlider& s = sliders[i];
      const int nb = s.GetBucketCount();
      KDPKI_HugeInt r = s.GetBucket(nb - 1);
      if (nb >= 2) {
        for (int j = nb - 2; j >= 1; --j) {
          group.Reiterate(s.GetBucket(j), s.GetBucket(j + 1));
          group.Reiterate(r, s.GetBucket(j));
        }
        group.Reiterate(s.GetBucket(0), s.GetBucket(1));
        r = group.Multiply(group.Square(r), s.GetBucket(0));
      }
      results[i].Swap(r);
    }
  }
  for (size_t i = 0; i < count; ++i) sliders[i].~KDPKI_WindowSlider();
  KDMEM_DefaultFree(sliders, 0);
}

void KDPKI_LtoRBinaryExponentiation(const KDPKI_HugeInt& base, const KDPKI_HugeInt& exponent,
                                    const KDPKI_MultiplicativeGroup& group, KDPKI_HugeInt& result) {
  KDPKI_HugeInt r = group.Step();
  for (unsigned i = exponent.GetBitCount(); i-- > 0;) {
    r = group.Square(r);
    if (exponent.GetBit(i)) r = group.Multiply(r, base);
  }
  result.Swap(r);
}

KDPKI_HugeInt KDPKI_ModularExponentiation(const KDPKI_HugeInt& base, const KDPKI_HugeInt& exponent,
                                          const KDPKI_HugeInt& modulus) {
  if (modulus.IsEven()) {
    // Right to left on plain integers; the square follows every bit, the last one included.
    KDPKI_HugeInt result(1u), x(base);
    const unsigned bits = exponent.GetBitCount();
    for (unsigned i = 0; i < bits; ++i) {
      if (exponent.GetBit(i)) result = (result * x) % modulus;
      x = (x * x) % modulus;
    }
    return result;
  }
  KDPKI_HugeInt result;
  if (modulus.GetWordCount() == 1 && modulus.Magnitude().GetWords()[0] == 1) return result;
  // Montgomery arithmetic with the radix fitted to the modulus (a whole number of 64-bit
  // limbs); the result does not depend on the radix.
  const size_t n = KDPKI_EvenWordCount(modulus.Magnitude().GetWords(), modulus.GetWordCount());
  Words w(7 * n + 4);
  if (!w.get()) return result;
  uint32_t* m = w.get();
  uint32_t* g = m + n;
  uint32_t* identity = g + n;
  uint32_t* out = identity + n;
  uint32_t* one = out + n;
  uint32_t* scratch = one + n;
  Widen(modulus, n, m);
  KDPKI_HugeInt r;
  r.Power2(static_cast<unsigned>(32 * n));
  Widen(r % modulus, n, identity);
  Widen((base << static_cast<unsigned>(32 * n)) % modulus, n, g);
  const Engine eng = {m, n, kdpki::NegInverse64(m), &kdpki::ActiveKernels(), scratch};
  if (!BucketExponentiation(eng, g, &exponent, 1, identity, out)) return result;
  one[0] = 1;
  eng.Mul(out, out, one);
  Load(result, out, n);
  return result;
}

namespace kdpki {

namespace {

// Left-to-right sliding windows over one exponent, one window pending at a time: a window opens
// at its top set bit and its odd value is multiplied in when the scan reaches its lowest bit.
struct PendingWindow {
  const KDPKI_HugeInt* e;
  unsigned w;
  long low = -1;       // bit of the pending multiplication, -1 for none
  uint32_t index = 0;  // (odd value - 1) / 2

  // At bit i from the top down: opens a window there when none is pending and the bit is set.
  void Open(long i) {
    if (low >= 0 || !e->GetBit(static_cast<size_t>(i))) return;
    low = i - static_cast<long>(w) + 1 < 0 ? 0 : i - static_cast<long>(w) + 1;
    while (!e->GetBit(static_cast<size_t>(low))) ++low;
    uint32_t value = 0;
    for (long j = i; j >= low; --j) value = value << 1 | e->GetBit(static_cast<size_t>(j));
    index = value >> 1;
  }
};

}  // namespace

KDPKI_HugeInt DoubleExponentiation(const KDPKI_HugeInt& a, const KDPKI_HugeInt& ea, const KDPKI_HugeInt& b,
                                   const KDPKI_HugeInt& eb, const KDPKI_HugeInt& modulus) {
  KDPKI_HugeInt result;
  if (modulus.IsEven() || (modulus.GetWordCount() == 1 && modulus.Magnitude().GetWords()[0] == 1)) {
    return (KDPKI_ModularExponentiation(a, ea, modulus) * KDPKI_ModularExponentiation(b, eb, modulus)) % modulus;
  }
  const unsigned bits = ea.GetBitCount() > eb.GetBitCount() ? ea.GetBitCount() : eb.GetBitCount();
  const unsigned w = bits < 24 ? 2 : bits < 200 ? 4 : bits < 800 ? 5 : 6;
  const size_t half = size_t{1} << (w - 1);
  const size_t n = KDPKI_EvenWordCount(modulus.Magnitude().GetWords(), modulus.GetWordCount());
  // The modulus, the odd powers of both bases, the result, a square and one; then the scratch.
  Words block((2 * half + 4) * n + 2 * n + 4);
  if (!block.get()) return result;
  uint32_t* m = block.get();
  uint32_t* table[2] = {m + n, m + n + half * n};
  uint32_t* r = m + (2 * half + 1) * n;
  uint32_t* square = r + n;
  uint32_t* one = square + n;
  Widen(modulus, n, m);
  const Engine eng = {m, n, NegInverse64(m), &ActiveKernels(), one + n};
  const KDPKI_HugeInt* bases[2] = {&a, &b};
  for (int k = 0; k < 2; ++k) {
    Widen((*bases[k] << static_cast<unsigned>(32 * n)) % modulus, n, table[k]);
    eng.Sqr(square, table[k]);
    for (size_t j = 1; j < half; ++j) eng.Mul(table[k] + j * n, table[k] + (j - 1) * n, square);
  }
  PendingWindow windows[2] = {{&ea, w}, {&eb, w}};
  bool started = false;
  for (long i = static_cast<long>(bits) - 1; i >= 0; --i) {
    if (started) eng.Sqr(r, r);
    for (PendingWindow& pw : windows) {
      pw.Open(i);
      if (pw.low != i) continue;
      const uint32_t* factor = table[&pw - windows] + pw.index * n;
      if (started) {
        eng.Mul(r, r, factor);
      } else {
        KDPKI_Copy(r, factor, n);
        started = true;
      }
      pw.low = -1;
    }
  }
  if (!started) return KDPKI_HugeInt(1u);
  one[0] = 1;
  eng.Mul(r, r, one);
  Load(result, r, n);
  return result;
}

}  // namespace kdpki

KDPKI_HugeInt KDPKI_CRT(const KDPKI_HugeInt& xp, const KDPKI_HugeInt& p, const KDPKI_HugeInt& xq,
                        const KDPKI_HugeInt& q, const KDPKI_HugeInt& u) {
  return xp + p * (((xq - xp) * u) % q);
}

KDPKI_HugeInt KDPKI_ModularExponentiation_Fast(const KDPKI_HugeInt& x, const KDPKI_HugeInt& dp,
                                               const KDPKI_HugeInt& dq, const KDPKI_HugeInt& p,
                                               const KDPKI_HugeInt& q, const KDPKI_HugeInt& u) {
  const KDPKI_HugeInt base[2] = {x % p, x % q}, exponent[2] = {dp, dq}, modulus[2] = {p, q};
  KDPKI_HugeInt power[2];
  // Both powers at once where the processor allows (the halves of 2048-bit keys), else in turn.
  if (!kdpki::PairExponentiation(base, exponent, modulus, power)) {
    for (int s = 0; s < 2; ++s) power[s] = KDPKI_ModularExponentiation(base[s], exponent[s], modulus[s]);
  }
  return KDPKI_CRT(power[0], p, power[1], q, u);
}

KDPKI_HugeInt KDPKI_Exponent(const KDPKI_HugeInt& base, const KDPKI_HugeInt& exponent) {
  KDPKI_HugeInt result(1u), x(base);
  const unsigned bits = exponent.GetBitCount();
  for (unsigned i = 0; i < bits; ++i) {
    if (exponent.GetBit(i)) result *= x;
    if (i + 1 < bits) x *= x;  // the square after the top bit would not be used
  }
  return result;
}

void KDPKI_DeMontgomerize(const uint32_t* t, const uint32_t* m, const uint32_t* m_inverse, size_t n, uint32_t* out) {
  if (!t || !m || !m_inverse || !out || n == 0) return;
  Words scratch(3 * n);
  if (!scratch.get()) return;
  uint32_t* q = scratch.get();
  uint32_t* qm = q + n;  // 2n words; its high half is h
  KDPKI_RecursiveMultiplyBottom(q, qm, t, m_inverse, n);
  KDPKI_Multiplication(q, n, m, n, qm);
  if (KDPKI_SubstractWithSameLength(out, t + n, qm + n, n)) KDPKI_AdditionWithSameLength(out, out, m, n);
}
