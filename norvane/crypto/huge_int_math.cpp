// Number theory on KDPKI_HugeInt (GCD, LCM, inverses, square roots, powers) and the shared
// constants 0..3.
#include <cstdlib>

#include "norvane/crypto/huge_int.h"
#include "norvane/crypto/montgomery.h"
#include "norvane/crypto/pki_words.h"
#include "norvane/memory/memory_mgr.h"

// ---- Shared constants ----

namespace {

template <class T, class F, int I>
struct SingletonSlot {
  alignas(T) static unsigned char bytes[sizeof(T)];
  static T* object;
};
template <class T, class F, int I>
alignas(T) unsigned char SingletonSlot<T, F, I>::bytes[sizeof(T)];
template <class T, class F, int I>
T* SingletonSlot<T, F, I>::object = nullptr;

bool g_exit_handler = false;

void ReleaseAtExit() { KDPKI_Finalize(); }

}  // namespace

template <class T, class F, int I>
const T& KDPKI_Singleton<T, F, I>::Ref() {
  typedef SingletonSlot<T, F, I> Slot;
  if (!Slot::object) {
    Slot::object = F()(Slot::bytes);
    if (!g_exit_handler) g_exit_handler = std::atexit(&ReleaseAtExit) == 0;
  }
  return *Slot::object;
}

template <class T, class F, int I>
void KDPKI_Singleton<T, F, I>::Release() {
  typedef SingletonSlot<T, F, I> Slot;
  if (Slot::object) {
    Slot::object->~T();
    Slot::object = nullptr;
  }
}

template class KDPKI_Singleton<KDPKI_HugeInt, KDPKI_NewInteger<0>, 0>;
template class KDPKI_Singleton<KDPKI_HugeInt, KDPKI_NewInteger<1>, 0>;
template class KDPKI_Singleton<KDPKI_HugeInt, KDPKI_NewInteger<2>, 0>;
template class KDPKI_Singleton<KDPKI_HugeInt, KDPKI_NewInteger<3>, 0>;

const KDPKI_HugeInt& KDPKI_HugeInt::Zero() { return KDPKI_Singleton<KDPKI_HugeInt, KDPKI_NewInteger<0>, 0>::Ref(); }
const KDPKI_HugeInt& KDPKI_HugeInt::One() { return KDPKI_Singleton<KDPKI_HugeInt, KDPKI_NewInteger<1>, 0>::Ref(); }
const KDPKI_HugeInt& KDPKI_HugeInt::Two() { return KDPKI_Singleton<KDPKI_HugeInt, KDPKI_NewInteger<2>, 0>::Ref(); }
const KDPKI_HugeInt& KDPKI_HugeInt::Three() { return KDPKI_Singleton<KDPKI_HugeInt, KDPKI_NewInteger<3>, 0>::Ref(); }

void KDPKI_Init() {
  KDPKI_Singleton<KDPKI_HugeInt, KDPKI_NewInteger<0>, 0>::Release();
  KDPKI_Singleton<KDPKI_HugeInt, KDPKI_NewInteger<1>, 0>::Release();
  KDPKI_Singleton<KDPKI_HugeInt, KDPKI_NewInteger<2>, 0>::Release();
  KDPKI_Singleton<KDPKI_HugeInt, KDPKI_NewInteger<3>, 0>::Release();
}

void KDPKI_Finalize() { KDPKI_Init(); }

// ---- Number theory ----

KDPKI_HugeInt KDPKI_HugeInt::GCD(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b) {
  KDPKI_HugeInt g[3] = {a, b, KDPKI_HugeInt()};
  unsigned i0 = 0, i1 = 1, i2 = 2;
  while (!g[i1].IsZero()) {
    g[i2] = g[i0] % g[i1];
    const unsigned t = i0;
    i0 = i1;
    i1 = i2;
    i2 = t;
  }
  return g[i0];
}

KDPKI_HugeInt KDPKI_HugeInt::LCM(const KDPKI_HugeInt& a, const KDPKI_HugeInt& b) { return (a / GCD(a, b)) * b; }

KDPKI_HugeInt KDPKI_HugeInt::InverseMod(const KDPKI_HugeInt& m) const {
  // A modulus of zero or below has no inverses (reducing by it would never end); modulo 1
  // everything is 0.
  if (!m.IsPositive() || m.GetWordCount() == 0 || (m.GetWordCount() == 1 && m.Magnitude().GetWords()[0] == 1)) {
    return KDPKI_HugeInt();
  }
  if (IsNegative() || *this >= m) return (*this % m).InverseMod(m);
  if (m.IsOdd()) {
    const size_t n = KDPKI_EvenWordCount(m.Magnitude().GetWords(), m.GetWordCount());
    KDPKI_HugeInt r, t;
    if (!r.Reserve(n) || !t.Reserve(4 * n + 2)) return KDPKI_HugeInt();
    uint32_t* rw = r.Magnitude().GetWords();
    uint32_t* tw = t.Magnitude().GetWords();
    // m widened to n words (its own array may be shorter); a < m has at most n words.
    KDPKI_HugeInt mm;
    if (!mm.Assign(m.Magnitude().GetWords(), m.GetWordCount(), 0)) return KDPKI_HugeInt();
    const unsigned k = KDPKI_AlmostInverse(rw, tw, m_Magnitude.GetWords(), GetWordCount(), mm.Magnitude().GetWords(), n);
    if (k == 0) return KDPKI_HugeInt();
    KDPKI_DivideByPower2Mod(tw, rw, k, mm.Magnitude().GetWords(), n);
    KDPKI_Copy(rw, tw, n);
    r.Normalize();
    return r;
  }
  if (IsEven()) return KDPKI_HugeInt();
  if (GetWordCount() == 1 && m_Magnitude.GetWords()[0] == 1) return KDPKI_HugeInt(1u);
  const KDPKI_HugeInt u = m.InverseMod(*this);
  if (u.IsZero()) return KDPKI_HugeInt();
  return ((*this - u) * m + KDPKI_HugeInt::One()) / *this;
}

uint32_t KDPKI_HugeInt::InverseMod(uint32_t m) const {
  if (m <= 1) return 0;
  // Extended Euclid on words: t0 * a = r0 (mod m) throughout.
  uint32_t r0 = m, r1 = *this % m;
  int64_t t0 = 0, t1 = 1;
  while (r1) {
    const uint32_t q = r0 / r1;
    const uint32_t r2 = r0 - q * r1;
    const int64_t t2 = t0 - static_cast<int64_t>(q) * t1;
    r0 = r1;
    r1 = r2;
    t0 = t1;
    t1 = t2;
  }
  if (r0 != 1) return 0;
  return static_cast<uint32_t>(t0 < 0 ? t0 + m : t0);
}

KDPKI_HugeInt KDPKI_HugeInt::SquareRoot() const {
  if (IsNegative()) return KDPKI_HugeInt();
  KDPKI_HugeInt x;
  x.Power2((GetBitCount() + 1) / 2);
  KDPKI_HugeInt y = (x + *this / x) >> 1;
  while (y < x) {
    x.Swap(y);
    y = (x + *this / x) >> 1;
  }
  return x;
}

bool KDPKI_HugeInt::IsSquare() const {
  const KDPKI_HugeInt r = SquareRoot();
  return r * r == *this;
}

KDPKI_HugeInt KDPKI_HugeInt::Power(const KDPKI_HugeInt& exponent) const { return KDPKI_Exponent(*this, exponent); }

KDPKI_HugeInt KDPKI_HugeInt::PowerAndModule(const KDPKI_HugeInt& exponent, const KDPKI_HugeInt& modulus) const {
  return KDPKI_ModularExponentiation(*this, exponent, modulus);
}
