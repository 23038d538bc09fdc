// The product, square, Montgomery and division kernels, written once over the limb type and
// built twice: on 32-bit words with 64-bit products, and on 64-bit limbs with 128-bit products.
//
// Products are column-wise (product scanning): each result limb is the sum of its column's
// partial products in a three-limb accumulator, so the only memory writes are the result limbs.
// Montgomery multiplication interleaves the reduction into the same columns (the quotient limb of
// column k is fixed as soon as column k is summed), with two accumulators so that the product and
// the reduction terms form independent carry chains.
#include "norvane/crypto/pki_kernels_internal.h"

#include <cstring>

namespace kdpki {
namespace {

#define KDPKI_INLINE inline __attribute__((always_inline))
#define KDPKI_LAMBDA_INLINE __attribute__((always_inline))

// A 64-bit limb read from two 32-bit words in place: may alias them, needs only word alignment.
typedef uint64_t Limb64Alias __attribute__((__may_alias__, __aligned__(4)));

template <class L>
struct LimbTraits;
template <>
struct LimbTraits<uint32_t> {
  typedef uint64_t Wide;
  typedef uint32_t Alias;
};
#if defined(__SIZEOF_INT128__)
template <>
struct LimbTraits<uint64_t> {
  typedef unsigned __int128 Wide;
  typedef Limb64Alias Alias;
};
#endif

template <class L>
struct Ops {
  typedef typename LimbTraits<L>::Wide D;
  typedef typename LimbTraits<L>::Alias A;
  static constexpr unsigned kBits = sizeof(L) * 8;
  static constexpr size_t kWords = sizeof(L) / 4;

  // Three-limb column accumulator.
  struct Acc {
    L c0 = 0, c1 = 0, c2 = 0;
    KDPKI_INLINE void Mac(L x, L y) {
#if defined(__x86_64__)
      // One multiply and a three-word add. Written out because the compilers' code for the same
      // arithmetic on unsigned __int128 shuffles registers (and spills) in these loops: the
      // Montgomery kernels ran 30% to 70% slower without it.
      if constexpr (sizeof(L) == 8) {
        uint64_t xa = x;
        __asm__("mulq %[y]\n\taddq %%rax, %[c0]\n\tadcq %%rdx, %[c1]\n\tadcq $0, %[c2]"
                : [c0] "+r"(c0), [c1] "+r"(c1), [c2] "+r"(c2), "+a"(xa)
                : [y] "rm"(static_cast<uint64_t>(y))
                : "rdx", "cc");
        return;
      }
#endif
      const D p = static_cast<D>(x) * y;
      if constexpr (sizeof(L) == 4) {  // the split form suits 64-bit registers best
        const L lo = static_cast<L>(p);
        L hi = static_cast<L>(p >> kBits);  // at most 2^32 - 2: the carry below cannot overflow it
        c0 += lo;
        hi += c0 < lo;
        c1 += hi;
        c2 += c1 < hi;
      } else {
        const D s = ((static_cast<D>(c1) << kBits) | c0) + p;
        c2 += s < p;
        c0 = static_cast<L>(s);
        c1 = static_cast<L>(s >> kBits);
      }
    }
    KDPKI_INLINE void Add(const Acc& o) {
      const D lo = (static_cast<D>(c1) << kBits) | c0;
      const D add = (static_cast<D>(o.c1) << kBits) | o.c0;
      const D s = lo + add;
      c2 += o.c2 + (s < add);
      c0 = static_cast<L>(s);
      c1 = static_cast<L>(s >> kBits);
    }
    KDPKI_INLINE void Double() {
      c2 = (c2 << 1) | (c1 >> (kBits - 1));
      c1 = (c1 << 1) | (c0 >> (kBits - 1));
      c0 <<= 1;
    }
    KDPKI_INLINE L Shift() {
      const L out = c0;
      c0 = c1;
      c1 = c2;
      c2 = 0;
      return out;
    }
  };

  static L SubN(A* r, const A* a, const A* b, size_t n) {
    L borrow = 0;
    for (size_t i = 0; i < n; ++i) {
      const D t = static_cast<D>(a[i]) - b[i] - borrow;
      r[i] = static_cast<L>(t);
      borrow = static_cast<L>(t >> kBits) & 1;
    }
    return borrow;
  }
  static L AddN(A* r, const A* a, const A* b, size_t n) {
    L carry = 0;
    for (size_t i = 0; i < n; ++i) {
      const D t = static_cast<D>(a[i]) + b[i] + carry;
      r[i] = static_cast<L>(t);
      carry = static_cast<L>(t >> kBits);
    }
    return carry;
  }
  static bool GreaterEqual(const A* a, const A* b, size_t n) {
    for (size_t i = n; i-- > 0;) {
      if (a[i] != b[i]) return a[i] > b[i];
    }
    return true;
  }

  // Column k of a product, lo <= i <= hi: two carry chains (alternate terms) that merge at the end.
  static KDPKI_INLINE L MulColumn(Acc& acc, const A* a, const A* b, size_t lo, size_t hi, size_t k) {
    Acc odd;
    size_t i = lo;
#pragma GCC unroll 16
    for (; i + 1 <= hi; i += 2) {
      acc.Mac(a[i], b[k - i]);
      odd.Mac(a[i + 1], b[k - i - 1]);
    }
    if (i == hi) acc.Mac(a[i], b[k - i]);
    acc.Add(odd);
    return acc.Shift();
  }

  // kN > 0: both operands have kN limbs, fixed at compile time so that the columns unroll.
  template <size_t kN>
  static void Mul(uint32_t* r32, const uint32_t* a32, size_t na32, const uint32_t* b32, size_t nb32) {
    A* r = reinterpret_cast<A*>(r32);
    const A* a = reinterpret_cast<const A*>(a32);
    const A* b = reinterpret_cast<const A*>(b32);
    const size_t na = kN ? kN : na32 / kWords, nb = kN ? kN : nb32 / kWords;
    Acc acc;
    if (kN) {
#pragma GCC unroll 32
      for (size_t k = 0; k + 1 < 2 * kN; ++k) r[k] = MulColumn(acc, a, b, k >= kN ? k - kN + 1 : 0, k < kN ? k : kN - 1, k);
    } else {
      for (size_t k = 0; k + 1 < na + nb; ++k) r[k] = MulColumn(acc, a, b, k >= nb ? k - nb + 1 : 0, k < na ? k : na - 1, k);
    }
    r[na + nb - 1] = acc.c0;
  }
  static void MulAny(uint32_t* r, const uint32_t* a, size_t na, const uint32_t* b, size_t nb) {
    if (na == 16 * kWords && nb == na) return Mul<16>(r, a, na, b, nb);
    Mul<0>(r, a, na, b, nb);
  }

  // Column k of a square: twice the products a[i] * a[k - i] for i < k - i, plus a[k/2]^2.
  static KDPKI_INLINE void SquareColumn(Acc& acc, const A* a, size_t lo, size_t k) {
    Acc off;
#pragma GCC unroll 4
    for (size_t i = lo; i < k - i; ++i) off.Mac(a[i], a[k - i]);
    off.Double();
    if ((k & 1) == 0) off.Mac(a[k / 2], a[k / 2]);
    acc.Add(off);
  }

  static void Sqr(uint32_t* r32, const uint32_t* a32, size_t n32) {
    A* r = reinterpret_cast<A*>(r32);
    const A* a = reinterpret_cast<const A*>(a32);
    const size_t n = n32 / kWords;
    Acc acc;
    for (size_t k = 0; k + 1 < 2 * n; ++k) {
      SquareColumn(acc, a, k >= n ? k - n + 1 : 0, k);
      r[k] = acc.Shift();
    }
    r[2 * n - 1] = acc.c0;
  }

  // t (n limbs) plus the carry top is below 2m; leaves t - m in r when t >= m, else t.
  static void Finish(A* r, A* t, L top, const A* m, size_t n) {
    if (top || GreaterEqual(t, m, n)) {
      SubN(r, t, m, n);
    } else if (r != t) {
      std::memcpy(static_cast<void*>(r), static_cast<const void*>(t), n * sizeof(L));
    }
  }

  // Montgomery product columns: the low half fixes quotient limb q[k] so that the column's low
  // limb cancels; the high half emits result limbs. Two accumulators keep the product terms and
  // the reduction terms in independent carry chains.
  static KDPKI_INLINE void MulLowColumn(Acc& acc, const A* a, const A* b, A* q, const A* m, L n0, size_t k) {
    Acc red;
#pragma GCC unroll 4
    for (size_t i = 0; i < k; ++i) {
      acc.Mac(a[i], b[k - i]);
      red.Mac(q[i], m[k - i]);
    }
    acc.Mac(a[k], b[0]);
    acc.Add(red);
    const L qk = acc.c0 * n0;
    q[k] = qk;
    acc.Mac(qk, m[0]);
    acc.Shift();
  }
  static KDPKI_INLINE L MulHighColumn(Acc& acc, const A* a, const A* b, const A* q, const A* m, size_t n, size_t k) {
    Acc red;
#pragma GCC unroll 4
    for (size_t i = k - n + 1; i < n; ++i) {
      acc.Mac(a[i], b[k - i]);
      red.Mac(q[i], m[k - i]);
    }
    acc.Add(red);
    return acc.Shift();
  }

  // A Montgomery product over n limbs of m: low(acc, q, k) sums column k < n and fixes q[k], then
  // high(acc, q, k) sums the columns of result limbs t[0 .. n - 2]. kN > 0 fixes n at compile time
  // so that the columns unroll completely.
  template <size_t kN, class Low, class High>
  static KDPKI_INLINE void Montgomery(uint32_t* r32, const uint32_t* m32, size_t n32, uint32_t* scratch, Low low,
                                      High high) {
    const A* m = reinterpret_cast<const A*>(m32);
    A* q = reinterpret_cast<A*>(scratch);
    const size_t n = kN ? kN : n32 / kWords;
    A* t = q + n;
    Acc acc;
    if (kN) {
#pragma GCC unroll 16
      for (size_t k = 0; k < kN; ++k) low(acc, q, k);
#pragma GCC unroll 16
      for (size_t k = kN; k + 1 < 2 * kN; ++k) t[k - kN] = high(acc, q, k);
    } else {
      for (size_t k = 0; k < n; ++k) low(acc, q, k);
      for (size_t k = n; k + 1 < 2 * n; ++k) t[k - n] = high(acc, q, k);
    }
    t[n - 1] = acc.c0;
    Finish(reinterpret_cast<A*>(r32), t, acc.c1, m, n);
  }

  template <size_t kN>
  static void MontMul(uint32_t* r32, const uint32_t* a32, const uint32_t* b32, const uint32_t* m32, uint64_t n0_64,
                      size_t n32, uint32_t* scratch) {
    const A* a = reinterpret_cast<const A*>(a32);
    const A* b = reinterpret_cast<const A*>(b32);
    const A* m = reinterpret_cast<const A*>(m32);
    const size_t n = kN ? kN : n32 / kWords;
    const L n0 = static_cast<L>(n0_64);
    Montgomery<kN>(
        r32, m32, n32, scratch,
        [&](Acc& acc, A* q, size_t k) KDPKI_LAMBDA_INLINE { MulLowColumn(acc, a, b, q, m, n0, k); },
        [&](Acc& acc, A* q, size_t k) KDPKI_LAMBDA_INLINE { return MulHighColumn(acc, a, b, q, m, n, k); });
  }

  // Column k of a Montgomery square, terms with both indexes in [lo, k - lo]: the products
  // a[i] a[k - i] pair up (counted twice), and so do the reduction terms q[i] m[k - i] and
  // q[k - i] m[i], so one pass over i < k - i takes all three. In the low half (lo = 0) the term
  // q[k] m[0] is left out: q[k] is fixed by this very column.
  static KDPKI_INLINE void SquareReduceColumn(Acc& acc, const A* a, const A* q, const A* m, size_t lo, size_t k) {
    Acc off, red;
    size_t i = lo;
    if (lo == 0) {
      if (k == 0) {
        acc.Mac(a[0], a[0]);
        return;
      }
      off.Mac(a[0], a[k]);
      red.Mac(q[0], m[k]);
      i = 1;
    }
#pragma GCC unroll 2
    for (; i < k - i; ++i) {
      off.Mac(a[i], a[k - i]);
      red.Mac(q[i], m[k - i]);
      red.Mac(q[k - i], m[i]);
    }
    off.Double();
    if ((k & 1) == 0) {
      off.Mac(a[k / 2], a[k / 2]);
      red.Mac(q[k / 2], m[k / 2]);
    }
    acc.Add(off);
    acc.Add(red);
  }

  template <size_t kN>
  static void MontSqr(uint32_t* r32, const uint32_t* a32, const uint32_t* m32, uint64_t n0_64, size_t n32,
                      uint32_t* scratch) {
    const A* a = reinterpret_cast<const A*>(a32);
    const A* m = reinterpret_cast<const A*>(m32);
    const size_t n = kN ? kN : n32 / kWords;
    const L n0 = static_cast<L>(n0_64);
    Montgomery<kN>(
        r32, m32, n32, scratch,
        [&](Acc& acc, A* q, size_t k) KDPKI_LAMBDA_INLINE { SquareLowColumn(acc, a, q, m, n0, k); },
        [&](Acc& acc, A* q, size_t k) KDPKI_LAMBDA_INLINE { return SquareHighColumn(acc, a, q, m, n, k); });
  }
  static KDPKI_INLINE void SquareLowColumn(Acc& acc, const A* a, A* q, const A* m, L n0, size_t k) {
    SquareReduceColumn(acc, a, q, m, 0, k);
    const L qk = acc.c0 * n0;
    q[k] = qk;
    acc.Mac(qk, m[0]);
    acc.Shift();
  }
  static KDPKI_INLINE L SquareHighColumn(Acc& acc, const A* a, const A* q, const A* m, size_t n, size_t k) {
    SquareReduceColumn(acc, a, q, m, k - n + 1, k);
    return acc.Shift();
  }

  // The Montgomery kernels with the sizes of common moduli (1024 and 2048 bits) fixed.
  static void MontMulAny(uint32_t* r, const uint32_t* a, const uint32_t* b, const uint32_t* m, uint64_t n0, size_t n,
                         uint32_t* scratch) {
    if (n == 16 * kWords) return MontMul<16>(r, a, b, m, n0, n, scratch);
    MontMul<0>(r, a, b, m, n0, n, scratch);
  }
  static void MontSqrAny(uint32_t* r, const uint32_t* a, const uint32_t* m, uint64_t n0, size_t n, uint32_t* scratch) {
    if (n == 16 * kWords) return MontSqr<16>(r, a, m, n0, n, scratch);
    MontSqr<0>(r, a, m, n0, n, scratch);
  }

  static unsigned Clz(L x) {
    return sizeof(L) == 8 ? static_cast<unsigned>(__builtin_clzll(x)) : static_cast<unsigned>(__builtin_clz(x));
  }

  // Long division (schoolbook, one limb of quotient per step, each estimated from the top two
  // limbs of the remainder and checked against the next divisor limb).
  static void Div(uint32_t* q32, uint32_t* r32, const uint32_t* a32, size_t na32, const uint32_t* b32, size_t nb32,
                  uint32_t* scratch) {
    const A* a = reinterpret_cast<const A*>(a32);
    const A* b = reinterpret_cast<const A*>(b32);
    A* q = reinterpret_cast<A*>(q32);
    A* r = reinterpret_cast<A*>(r32);
    const size_t na = na32 / kWords, nb = nb32 / kWords;
    const size_t nq = (na32 - nb32 + 2) / kWords;
    size_t nbe = nb;
    while (nbe > 1 && b[nbe - 1] == 0) --nbe;
    A* bn = reinterpret_cast<A*>(scratch);
    A* an = bn + nb;  // na + 1 limbs
    const unsigned s = Clz(b[nbe - 1]);
    for (size_t i = nbe; i-- > 0;) bn[i] = s ? (b[i] << s) | (i ? b[i - 1] >> (kBits - s) : 0) : b[i];
    an[na] = s ? a[na - 1] >> (kBits - s) : 0;
    for (size_t i = na; i-- > 0;) an[i] = s ? (a[i] << s) | (i ? a[i - 1] >> (kBits - s) : 0) : a[i];
    for (size_t i = 0; i < nq; ++i) q[i] = 0;
    const L top = bn[nbe - 1];
    for (size_t j = na + 1 - nbe; j-- > 0;) {
      const D num = (static_cast<D>(an[j + nbe]) << kBits) | an[j + nbe - 1];
      D qhat = num / top;
      D rhat = num - qhat * top;
      if (nbe > 1) {
        while ((qhat >> kBits) != 0 ||
               qhat * bn[nbe - 2] > ((rhat << kBits) | an[j + nbe - 2])) {
          --qhat;
          rhat += top;
          if ((rhat >> kBits) != 0) break;
        }
      }
      L qd = static_cast<L>(qhat);
      // an[j .. j + nbe] -= qd * bn
      L carry = 0, borrow = 0;
      for (size_t i = 0; i < nbe; ++i) {
        const D p = static_cast<D>(qd) * bn[i] + carry;
        carry = static_cast<L>(p >> kBits);
        const D t = static_cast<D>(an[j + i]) - static_cast<L>(p) - borrow;
        an[j + i] = static_cast<L>(t);
        borrow = static_cast<L>(t >> kBits) & 1;
      }
      const D t = static_cast<D>(an[j + nbe]) - carry - borrow;
      an[j + nbe] = static_cast<L>(t);
      if ((t >> kBits) != 0) {  // the estimate was one too large: add the divisor back
        --qd;
        an[j + nbe] += AddN(an + j, an + j, bn, nbe);
      }
      if (j < nq) q[j] = qd;
    }
    for (size_t i = 0; i < nb; ++i) {
      r[i] = i < nbe ? (s ? (an[i] >> s) | (i + 1 < nbe ? an[i + 1] << (kBits - s) : 0) : an[i]) : 0;
    }
  }
};

// The portable division is the two-word-digit method of KDPKI_DivideWords itself.
const Kernels kWord32 = {"word32",         &Ops<uint32_t>::Mul<0>,    &Ops<uint32_t>::Sqr,
                         &Ops<uint32_t>::MontMul<0>, &Ops<uint32_t>::MontSqr<0>, &DivideWordsPortable};
#if defined(__SIZEOF_INT128__)
const Kernels kLimb64 = {"limb64",         &Ops<uint64_t>::MulAny,    &Ops<uint64_t>::Sqr,
                         &Ops<uint64_t>::MontMulAny, &Ops<uint64_t>::MontSqrAny, &Ops<uint64_t>::Div};
const Kernels* g_active = &kLimb64;
#else
const Kernels* g_active = &kWord32;
#endif

}  // namespace

const Kernels& PortableKernels() { return kWord32; }

const Kernels* WideKernels() {
#if defined(__SIZEOF_INT128__)
  return &kLimb64;
#else
  return nullptr;
#endif
}

const Kernels& ActiveKernels() { return *g_active; }

const Kernels& SelectKernels(const Kernels& k) {
  const Kernels* previous = g_active;
  g_active = &k;
  return *previous;
}

uint64_t NegInverse64(const uint32_t* m) {
  const uint64_t x = m[0] | (static_cast<uint64_t>(m[1]) << 32);
  uint64_t y = x;  // correct to 3 bits for odd x; each step doubles the bits
  for (int i = 0; i < 5; ++i) y *= 2 - x * y;
  return 0 - y;
}

}  // namespace kdpki
