// Test helpers for the big-integer tests (not installed): conversion to and from GMP's mpz_t (the
// oracle), and operands of chosen shapes drawn from a fixed-seed generator.
#ifndef NORVANE_CRYPTO_PKI_TEST_INTERNAL_H_
#define NORVANE_CRYPTO_PKI_TEST_INTERNAL_H_

#include <gmp.h>

#include <cstdint>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "norvane/crypto/huge_int.h"
#include "norvane/crypto/pki_kernels_internal.h"

namespace pkitest {

// An mpz_t that clears itself.
struct Mpz {
  mpz_t v;
  Mpz() { mpz_init(v); }
  explicit Mpz(const KDPKI_HugeInt& x) {
    mpz_init(v);
    mpz_import(v, x.GetWordCount(), -1, 4, 0, 0, x.Magnitude().GetWords());
    if (x.IsNegative()) mpz_neg(v, v);
  }
  ~Mpz() { mpz_clear(v); }
  Mpz(const Mpz&) = delete;
  Mpz& operator=(const Mpz&) = delete;
  operator mpz_ptr() { return v; }               // NOLINT(google-explicit-constructor)
  operator mpz_srcptr() const { return v; }      // NOLINT(google-explicit-constructor)
  // GMP's macros (mpz_sgn and others) reach into the record.
  __mpz_struct* operator->() { return v; }
  std::string Hex() const;
};

// The value of z, with extra zero words above it (sizes the kernels must ignore).
inline KDPKI_HugeInt FromMpz(const mpz_t z, int extra_words = 0) {
  const size_t n = (mpz_sizeinbase(z, 2) + 31) / 32;
  KDPKI_HugeInt x;
  const int size = static_cast<int>(n) + extra_words;
  x.Magnitude().SetSize(size > 0 ? size : 1);
  size_t count = 0;
  mpz_export(x.Magnitude().GetWords(), &count, -1, 4, 0, 0, z);
  x.Magnitude().SetUsed(size);
  x.SetSign(mpz_sgn(z) < 0);
  return x;
}

// Hex of a value through GMP, for messages and comparisons.
inline std::string Hex(const mpz_t z) {
  char* s = mpz_get_str(nullptr, 16, z);
  std::string r(s);
  void (*free_fn)(void*, size_t);
  mp_get_memory_functions(nullptr, nullptr, &free_fn);
  free_fn(s, r.size() + 1);
  return r;
}
inline std::string Mpz::Hex() const { return pkitest::Hex(v); }
inline std::string Hex(const KDPKI_HugeInt& x) { return Mpz(x).Hex(); }
// Hex of what the GMP function computes: Gmp(mpz_add, a, b) is the hex of a + b.
template <class F, class... Args>
std::string Gmp(F f, const Args&... args) {
  Mpz r;
  f(r.v, args...);
  return r.Hex();
}

}  // namespace pkitest

// Failure messages show values in hexadecimal.
inline void PrintTo(const KDPKI_HugeInt& x, std::ostream* os) { *os << pkitest::Hex(x); }

namespace pkitest {

// Operand shapes that trip kernels: random bits, a power of two, all-ones words, a sparse value.
enum Shape { kRandom, kPowerOfTwo, kAllOnes, kSparse };

inline void Make(mpz_t z, std::mt19937_64& rng, unsigned bits, Shape shape) {
  mpz_set_ui(z, 0);
  if (bits == 0) return;
  switch (shape) {
    case kPowerOfTwo:
      mpz_setbit(z, bits - 1);
      break;
    case kAllOnes:
      mpz_setbit(z, bits);
      mpz_sub_ui(z, z, 1);
      break;
    case kSparse:
      mpz_setbit(z, bits - 1);
      mpz_setbit(z, rng() % bits);
      break;
    default: {
      std::vector<uint32_t> w((bits + 31) / 32);
      for (uint32_t& x : w) x = static_cast<uint32_t>(rng());
      mpz_import(z, w.size(), -1, 4, 0, 0, w.data());
      mpz_fdiv_r_2exp(z, z, bits);
      mpz_setbit(z, bits - 1);
    }
  }
}

// Bit lengths around word and limb edges, and larger sizes.
inline std::vector<unsigned> EdgeBits() {
  return {0, 1, 2, 31, 32, 33, 63, 64, 65, 95, 96, 97, 127, 128, 129, 255, 256, 511, 512, 1023, 1024, 2047, 2048, 4096};
}

// An RSA key of two primes of bits bits each, drawn from state: n = p q, e = 65537,
// d = e^-1 mod lcm(p - 1, q - 1) (lambda), dp = d mod (p - 1), dq = d mod (q - 1), u = p^-1 mod q.
struct RsaKey {
  Mpz p, q, n, e, d, lambda, dp, dq, u;
  RsaKey(gmp_randstate_t state, unsigned bits) {
    Mpz t;
    mpz_set_ui(e, 65537);
    for (mpz_ptr f : {p.v, q.v}) {
      do {
        mpz_urandomb(f, state, bits);
        mpz_setbit(f, bits - 1);
        mpz_setbit(f, bits - 2);
        mpz_nextprime(f, f);
        mpz_sub_ui(t, f, 1);
        mpz_gcd(t, t, e);
      } while (mpz_cmp_ui(t, 1) != 0);
    }
    mpz_mul(n, p, q);
    mpz_sub_ui(t, p, 1);
    mpz_sub_ui(lambda, q, 1);
    mpz_lcm(lambda, t, lambda);
    mpz_invert(d, e, lambda);
    mpz_mod(dp, d, t);
    mpz_sub_ui(t, q, 1);
    mpz_mod(dq, d, t);
    mpz_invert(u, p, q);
  }
};

// Runs body once with every kernel variant built here, the variant selected for the whole library.
template <class Fn>
void ForEachKernels(Fn body) {
  std::vector<const kdpki::Kernels*> all = {&kdpki::PortableKernels()};
  if (kdpki::WideKernels()) all.push_back(kdpki::WideKernels());
  for (const kdpki::Kernels* k : all) {
    const kdpki::Kernels& previous = kdpki::SelectKernels(*k);
    body(*k);
    kdpki::SelectKernels(previous);
  }
}

}  // namespace pkitest

#endif  // NORVANE_CRYPTO_PKI_TEST_INTERNAL_H_
