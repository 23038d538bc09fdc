// Public-key building blocks against their peers, in one run.
//
// GUIDs: 1000 GUIDs from KD_GUID_CreateV4 against 1000 reads of 16 bytes from getrandom(2), the
// call a program would otherwise make for a GUID's randomness (wall-clock time).
//
// Big integers: products, modular exponentiation and the RSA private-key operation against GMP
// and OpenSSL's libcrypto (processor time). Each case runs as "norvane" (the library with the kernels it
// uses here: 64-bit limbs where the compiler has 128-bit products), "portable" (the same code on
// the plain 32-bit kernels), "gmp" (mpz_mul, mpz_powm) and "openssl" (BN_mul, BN_mod_exp_mont).
// Operands come from a fixed seed; moduli are odd and full-size, exponents full-size.
// CRT2048 is the private operation of one 2048-bit RSA key: KDPKI_ModularExponentiation_Fast
// against the same two half-size exponentiations and recombination with mpz_powm and with
// BN_mod_exp_mont; "openssl-rsa" is OpenSSL's complete private-key operation (EVP, no padding)
// on that key, for reference. After the table the program prints each Norvane time over the
// peer's time (below 1: Norvane is faster).
//
// Primes: FirstPrime512 and FirstPrime1024 search the first prime from each of 16 random odd
// starting points of that size with KDPKI_FirstPrime, against mpz_nextprime from the same points
// (each case checks that both find the same primes); IsPrime1024 decides one 1024-bit prime with
// KDPKI_IsPrime against mpz_probab_prime_p with 25 rounds.
//
// RSA and DSA over key blobs, against OpenSSL's EVP interface on the same keys (processor time):
// RsaPrivate2048 is KDPKI_RsaDecrypt (CRT, the blob read on every call) against EVP_PKEY_decrypt
// without padding on the key made by KDPKI_CreateRsaKey from a fixed seed; RsaPublic2048 is
// KDPKI_RsaEncrypt against EVP_PKEY_encrypt without padding with that key's e = 17;
// RsaKeygen2048 is KDPKI_CreateRsaKey (a new seed each time) against EVP_PKEY_generate with
// e = 17; DsaSign1024 and DsaVerify1024 are KDPKI_DsaSign and KDPKI_VerifyDsaSign against
// EVP_DigestSign and EVP_DigestVerify with SHA-1 on a key from KDPKI_CreateDsaKey, over 64 bytes.
// Run: build/release/bench/pki_bench
#include <benchmark/benchmark.h>
#include <gmp.h>
#include <sys/random.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/rsa.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "bench/rate_reporter.h"
#include "norvane/crypto/dsa.h"
#include "norvane/crypto/huge_int.h"
#include "norvane/crypto/montgomery.h"
#include "norvane/crypto/pki_kernels_internal.h"
#include "norvane/crypto/pki_test_internal.h"
#include "norvane/crypto/primes.h"
#include "norvane/crypto/pubkey_test_util.h"
#include "norvane/crypto/rsa.h"
#include "norvane/runtime/random.h"

namespace {

using pkitest::Mpz;

constexpr int kGuids = 1000;

void BM_Guids_Norvane(benchmark::State& state) {
  uint8_t guid[16];
  for (auto _ : state) {
    for (int i = 0; i < kGuids; ++i) {
      KD_GUID_CreateV4(guid);
      benchmark::DoNotOptimize(guid);
    }
  }
  state.SetItemsProcessed(state.iterations() * kGuids);
}

void BM_Guids_Getrandom(benchmark::State& state) {
  uint8_t guid[16];
  for (auto _ : state) {
    for (int i = 0; i < kGuids; ++i) {
      if (getrandom(guid, sizeof guid, 0) != static_cast<ssize_t>(sizeof guid)) abort();
      benchmark::DoNotOptimize(guid);
    }
  }
  state.SetItemsProcessed(state.iterations() * kGuids);
}

BENCHMARK(BM_Guids_Norvane)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Guids_Getrandom)->Unit(benchmark::kMicrosecond);

std::mt19937_64 g_rng(20261122);

// A random value of exactly bits bits, odd when asked.
void RandomMpz(mpz_t z, unsigned bits, bool odd) {
  std::vector<uint32_t> w((bits + 31) / 32);
  for (uint32_t& x : w) x = static_cast<uint32_t>(g_rng());
  mpz_import(z, w.size(), -1, 4, 0, 0, w.data());
  mpz_fdiv_r_2exp(z, z, bits);
  mpz_setbit(z, bits - 1);
  if (odd) mpz_setbit(z, 0);
}

KDPKI_HugeInt ToHuge(const mpz_t z) {
  std::vector<uint8_t> bytes((mpz_sizeinbase(z, 2) + 7) / 8 + 1);
  size_t count = 0;
  mpz_export(bytes.data(), &count, 1, 1, 0, 0, z);
  KDPKI_HugeInt x;
  x.Decode(bytes.data(), static_cast<int>(count));
  return x;
}

BIGNUM* ToBn(const mpz_t z) {
  std::vector<uint8_t> bytes((mpz_sizeinbase(z, 2) + 7) / 8 + 1);
  size_t count = 0;
  mpz_export(bytes.data(), &count, 1, 1, 0, 0, z);
  return BN_bin2bn(bytes.data(), static_cast<int>(count), nullptr);
}

// Runs fn with the library on the kernel variant of the way (0: as built, 1: portable).
template <class Fn>
void WithKernels(int way, Fn fn) {
  const kdpki::Kernels& previous = kdpki::SelectKernels(way == 1 ? kdpki::PortableKernels() : kdpki::ActiveKernels());
  fn();
  kdpki::SelectKernels(previous);
}

enum Way { kNorvane, kPortable, kGmp, kOpenssl, kOpensslRsa };
const char* const kWays[] = {"norvane", "portable", "gmp", "openssl", "openssl-rsa"};

void Product(benchmark::State& state, unsigned bits, int way) {
  mpz_t a, b, r;
  mpz_inits(a, b, r, nullptr);
  RandomMpz(a, bits, false);
  RandomMpz(b, bits, false);
  if (way == kGmp) {
    for (auto _ : state) {
      mpz_mul(r, a, b);
      benchmark::DoNotOptimize(r);
    }
  } else if (way == kOpenssl) {
    BIGNUM *x = ToBn(a), *y = ToBn(b), *z = BN_new();
    BN_CTX* ctx = BN_CTX_new();
    for (auto _ : state) {
      BN_mul(z, x, y, ctx);
      benchmark::DoNotOptimize(z);
    }
    BN_CTX_free(ctx);
    BN_free(x);
    BN_free(y);
    BN_free(z);
  } else {
    const KDPKI_HugeInt x = ToHuge(a), y = ToHuge(b);
    KDPKI_HugeInt z;
    WithKernels(way, [&] {
      for (auto _ : state) {
        KDPKI_HugeInt::Multiply(z, x, y);
        benchmark::DoNotOptimize(z.Magnitude().GetWords());
      }
    });
  }
  mpz_clears(a, b, r, nullptr);
}

void ModExp(benchmark::State& state, unsigned bits, int way) {
  mpz_t b, e, m, r;
  mpz_inits(b, e, m, r, nullptr);
  RandomMpz(m, bits, true);
  RandomMpz(e, bits, false);
  RandomMpz(b, bits - 1, false);
  if (way == kGmp) {
    for (auto _ : state) {
      mpz_powm(r, b, e, m);
      benchmark::DoNotOptimize(r);
    }
  } else if (way == kOpenssl) {
    BIGNUM *x = ToBn(b), *y = ToBn(e), *n = ToBn(m), *z = BN_new();
    BN_CTX* ctx = BN_CTX_new();
    for (auto _ : state) {
      BN_mod_exp_mont(z, x, y, n, ctx, nullptr);
      benchmark::DoNotOptimize(z);
    }
    BN_CTX_free(ctx);
    BN_free(x);
    BN_free(y);
    BN_free(n);
    BN_free(z);
  } else {
    const KDPKI_HugeInt x = ToHuge(b), y = ToHuge(e), n = ToHuge(m);
    WithKernels(way, [&] {
      for (auto _ : state) {
        KDPKI_HugeInt z = KDPKI_ModularExponentiation(x, y, n);
        benchmark::DoNotOptimize(z.Magnitude().GetWords());
      }
    });
  }
  mpz_clears(b, e, m, r, nullptr);
}

// One 2048-bit RSA key from a fixed seed (u = p^-1 mod q; OpenSSL's coefficient is q^-1 mod p),
// and a message below n.
struct RsaKey : pkitest::RsaKey {
  Mpz iqmp, x;
  explicit RsaKey(gmp_randstate_t state) : pkitest::RsaKey(state, 1024) {
    mpz_invert(iqmp, q, p);
    mpz_urandomm(x, state, n);
  }
};

struct SeededState {
  gmp_randstate_t s;
  SeededState() {
    gmp_randinit_default(s);
    gmp_randseed_ui(s, 20261122);
  }
  ~SeededState() { gmp_randclear(s); }
};

RsaKey& Key() {
  static SeededState state;
  static RsaKey key(state.s);
  return key;
}

EVP_PKEY* OpensslKey(const RsaKey& k) {
  BIGNUM* bn[8] = {ToBn(k.n), ToBn(k.e), ToBn(k.d), ToBn(k.p), ToBn(k.q), ToBn(k.dp), ToBn(k.dq), ToBn(k.iqmp)};
  OSSL_PARAM_BLD* bld = OSSL_PARAM_BLD_new();
  const char* names[8] = {OSSL_PKEY_PARAM_RSA_N,         OSSL_PKEY_PARAM_RSA_E,         OSSL_PKEY_PARAM_RSA_D,
                          OSSL_PKEY_PARAM_RSA_FACTOR1,   OSSL_PKEY_PARAM_RSA_FACTOR2,   OSSL_PKEY_PARAM_RSA_EXPONENT1,
                          OSSL_PKEY_PARAM_RSA_EXPONENT2, OSSL_PKEY_PARAM_RSA_COEFFICIENT1};
  for (int i = 0; i < 8; ++i) OSSL_PARAM_BLD_push_BN(bld, names[i], bn[i]);
  OSSL_PARAM* params = OSSL_PARAM_BLD_to_param(bld);
  EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr);
  EVP_PKEY* pkey = nullptr;
  EVP_PKEY_fromdata_init(ctx);
  EVP_PKEY_fromdata(ctx, &pkey, EVP_PKEY_KEYPAIR, params);
  EVP_PKEY_CTX_free(ctx);
  OSSL_PARAM_free(params);
  OSSL_PARAM_BLD_free(bld);
  for (BIGNUM* b : bn) BN_free(b);
  return pkey;
}

void Crt(benchmark::State& state, int way) {
  RsaKey& k = Key();
  mpz_t y, yp, yq;
  mpz_inits(y, yp, yq, nullptr);
  mpz_powm(y, k.x, k.d, k.n);
  if (way == kGmp) {
    for (auto _ : state) {
      mpz_mod(yp, k.x, k.p);
      mpz_powm(yp, yp, k.dp, k.p);
      mpz_mod(yq, k.x, k.q);
      mpz_powm(yq, yq, k.dq, k.q);
      mpz_sub(yq, yq, yp);
      mpz_mul(yq, yq, k.u);
      mpz_mod(yq, yq, k.q);
      mpz_mul(yq, yq, k.p);
      mpz_add(yq, yq, yp);
      benchmark::DoNotOptimize(yq);
    }
    if (mpz_cmp(yq, y) != 0) state.SkipWithError("gmp CRT result differs");
  } else if (way == kOpenssl) {
    BIGNUM *x = ToBn(k.x), *p = ToBn(k.p), *q = ToBn(k.q), *dp = ToBn(k.dp), *dq = ToBn(k.dq), *u = ToBn(k.u);
    BIGNUM *xp = BN_new(), *xq = BN_new(), *t = BN_new();
    BN_CTX* ctx = BN_CTX_new();
    for (auto _ : state) {
      BN_mod(t, x, p, ctx);
      BN_mod_exp_mont(xp, t, dp, p, ctx, nullptr);
      BN_mod(t, x, q, ctx);
      BN_mod_exp_mont(xq, t, dq, q, ctx, nullptr);
      BN_mod_sub(t, xq, xp, q, ctx);
      BN_mod_mul(t, t, u, q, ctx);
      BN_mul(t, t, p, ctx);
      BN_add(t, t, xp);
      benchmark::DoNotOptimize(t);
    }
    BIGNUM* want = ToBn(y);
    if (BN_cmp(t, want) != 0) state.SkipWithError("openssl CRT result differs");
    for (BIGNUM* b : {x, p, q, dp, dq, u, xp, xq, t, want}) BN_free(b);
    BN_CTX_free(ctx);
  } else if (way == kOpensslRsa) {
    EVP_PKEY* pkey = OpensslKey(k);
    EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new(pkey, nullptr);
    EVP_PKEY_decrypt_init(ctx);
    EVP_PKEY_CTX_set_rsa_padding(ctx, RSA_NO_PADDING);
    std::vector<uint8_t> in(256), out(256);
    size_t count = 0;
    mpz_export(in.data() + 256 - (mpz_sizeinbase(k.x, 2) + 7) / 8, &count, 1, 1, 0, 0, k.x);
    for (auto _ : state) {
      size_t len = out.size();
      EVP_PKEY_decrypt(ctx, out.data(), &len, in.data(), in.size());
      benchmark::DoNotOptimize(out.data());
    }
    EVP_PKEY_CTX_free(ctx);
    EVP_PKEY_free(pkey);
  } else {
    const KDPKI_HugeInt x = ToHuge(k.x), p = ToHuge(k.p), q = ToHuge(k.q), dp = ToHuge(k.dp), dq = ToHuge(k.dq),
                        u = ToHuge(k.u), want = ToHuge(y);
    KDPKI_HugeInt z;
    WithKernels(way, [&] {
      for (auto _ : state) {
        z = KDPKI_ModularExponentiation_Fast(x, dp, dq, p, q, u);
        benchmark::DoNotOptimize(z.Magnitude().GetWords());
      }
    });
    if (z != want) state.SkipWithError("norvane CRT result differs");
  }
  mpz_clears(y, yp, yq, nullptr);
}

// Fixed-seed random odd starting points of bits bits, and the first prime from each (by GMP).
struct PrimeSearch {
  std::vector<KDPKI_HugeInt> starts, primes;
  std::vector<Mpz> below;  // each start less one: mpz_nextprime finds the first prime above it
  explicit PrimeSearch(unsigned bits) : below(16) {
    Mpz z;
    for (Mpz& b : below) {
      RandomMpz(z, bits, true);
      starts.push_back(ToHuge(z));
      mpz_sub_ui(b, z, 1);
      mpz_nextprime(z, b);
      primes.push_back(ToHuge(z));
    }
  }
};

void FirstPrime(benchmark::State& state, unsigned bits, int way) {
  static std::map<unsigned, PrimeSearch> searches;
  PrimeSearch& s = searches.try_emplace(bits, bits).first->second;
  const size_t count = s.starts.size();
  bool same = true;
  if (way == kGmp) {
    Mpz r;
    for (auto _ : state) {
      for (size_t i = 0; i < count; ++i) mpz_nextprime(r, s.below[i]);
      benchmark::DoNotOptimize(r.v);
    }
  } else {
    WithKernels(way, [&] {
      for (auto _ : state) {
        for (size_t i = 0; i < count; ++i) {
          KDPKI_HugeInt p = s.starts[i];
          same &= KDPKI_FirstPrime(p, s.starts[i] + (1u << 20), KDPKI_HugeInt(), KDPKI_HugeInt(1u)) && p == s.primes[i];
        }
      }
    });
  }
  if (!same) state.SkipWithError("a different prime was found");
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(count));
}

void IsPrime(benchmark::State& state, unsigned bits, int way) {
  Mpz z;
  RandomMpz(z, bits, true);
  mpz_nextprime(z, z);
  const KDPKI_HugeInt p = ToHuge(z);
  bool prime = true;
  if (way == kGmp) {
    for (auto _ : state) prime &= mpz_probab_prime_p(z, 25) != 0;
  } else {
    WithKernels(way, [&] {
      for (auto _ : state) prime &= KDPKI_IsPrime(p);
    });
  }
  if (!prime) state.SkipWithError("a prime was rejected");
}

// ---- RSA and DSA over key blobs ----

// The keys of the RSA and DSA cases, made by the library from fixed seeds, and OpenSSL's view of
// them.
struct BlobKeys {
  pktest::Bytes rsa_pub, rsa_priv, dsa_pub, dsa_priv;
  pktest::Pkey rsa, dsa;
  BlobKeys() {
    CKD_ByteString pub, priv;
    KDPKI_RandomGenerator generator(reinterpret_cast<const uint8_t*>("bench"), 5);
    KDPKI_RSA key(generator, 2048);
    KDPKI_CreateRsaKey(2048, "bench", nullptr, pub, priv);
    rsa_pub = pktest::ToBytes(pub);
    rsa_priv = pktest::ToBytes(priv);
    rsa = pktest::RsaFromParts(pktest::Magnitude(key.m_n), pktest::Magnitude(key.m_e), pktest::Magnitude(key.m_d),
                               pktest::Magnitude(key.m_p), pktest::Magnitude(key.m_q), pktest::Magnitude(key.m_dp),
                               pktest::Magnitude(key.m_dq), pktest::Magnitude(key.m_u));
    KDPKI_CreateDsaKey("bench", nullptr, pub, priv);
    dsa_pub = pktest::ToBytes(pub);
    dsa_priv = pktest::ToBytes(priv);
    const std::vector<pktest::Bytes> v = pktest::Unblob(dsa_priv);
    dsa = pktest::DsaFromParts(v[0], v[1], v[2], v[3], v[4]);
  }
};

BlobKeys& Keys() {
  static BlobKeys keys;
  return keys;
}

enum RsaOp { kPrivate, kPublic };

void RsaOperation(benchmark::State& state, RsaOp op, int way) {
  BlobKeys& k = Keys();
  // A message below n: for encryption the largest length the blob takes (k - 11 bytes).
  pktest::Bytes m(op == kPrivate ? 255 : 245);
  for (uint8_t& b : m) b = static_cast<uint8_t>(g_rng());
  CKD_ByteString out;
  if (way == kOpenssl) {
    EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new(k.rsa.get(), nullptr);
    if (op == kPrivate) {
      EVP_PKEY_decrypt_init(ctx);
    } else {
      EVP_PKEY_encrypt_init(ctx);
    }
    EVP_PKEY_CTX_set_rsa_padding(ctx, RSA_NO_PADDING);
    pktest::Bytes in(256, 0), result(256);
    std::copy(m.begin(), m.end(), in.end() - static_cast<long>(m.size()));
    for (auto _ : state) {
      size_t len = result.size();
      const int ok = op == kPrivate ? EVP_PKEY_decrypt(ctx, result.data(), &len, in.data(), in.size())
                                    : EVP_PKEY_encrypt(ctx, result.data(), &len, in.data(), in.size());
      if (ok <= 0) state.SkipWithError("openssl failed");
      benchmark::DoNotOptimize(result.data());
    }
    EVP_PKEY_CTX_free(ctx);
  } else {
    WithKernels(way, [&] {
      for (auto _ : state) {
        const bool ok = op == kPrivate ? KDPKI_RsaDecrypt(pktest::View(m), pktest::View(k.rsa_priv), out)
                                       : KDPKI_RsaEncrypt(pktest::View(m), pktest::View(k.rsa_pub), out);
        if (!ok) state.SkipWithError("norvane failed");
        benchmark::DoNotOptimize(out.GetPtr());
      }
    });
  }
}

void RsaKeygen(benchmark::State& state, int way) {
  uint32_t seed = 0;
  for (auto _ : state) {
    if (way == kOpenssl) {
      pktest::Pkey key = pktest::OpensslRsaKey(2048, 17);
      benchmark::DoNotOptimize(key.get());
    } else {
      CKD_ByteString pub, priv;
      ++seed;
      WithKernels(way, [&] {
        KDPKI_CreateRsaKey(2048, CKD_ByteStringC(reinterpret_cast<const uint8_t*>(&seed), 4), nullptr, pub, priv);
      });
      benchmark::DoNotOptimize(priv.GetPtr());
    }
  }
}

void DsaOperation(benchmark::State& state, bool sign, int way) {
  BlobKeys& k = Keys();
  pktest::Bytes data(64);
  for (uint8_t& b : data) b = static_cast<uint8_t>(g_rng());
  if (way == kOpenssl) {
    const pktest::Bytes sig = pktest::OpensslSign(k.dsa.get(), "SHA1", data);
    for (auto _ : state) {
      if (sign) {
        benchmark::DoNotOptimize(pktest::OpensslSign(k.dsa.get(), "SHA1", data).data());
      } else if (!pktest::OpensslVerify(k.dsa.get(), "SHA1", data, sig)) {
        state.SkipWithError("openssl failed");
      }
    }
  } else {
    CKD_ByteString sig;
    KDPKI_DsaSign(pktest::View(data), pktest::View(k.dsa_priv), sig);
    WithKernels(way, [&] {
      for (auto _ : state) {
        if (sign) {
          CKD_ByteString out;
          KDPKI_DsaSign(pktest::View(data), pktest::View(k.dsa_priv), out);
          benchmark::DoNotOptimize(out.GetPtr());
        } else if (!KDPKI_VerifyDsaSign(pktest::View(data), sig, pktest::View(k.dsa_pub))) {
          state.SkipWithError("norvane failed");
        }
      }
    });
  }
}

// Prints the usual table, then each Norvane case's time over its peer's (above 1: slower).
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      // Cases run a fixed number of times carry "/iterations:N" in their names; the ratios pair
      // cases by the name before it.
      std::string name = run.benchmark_name();
      const size_t fixed = name.find("/iterations:");
      if (fixed != std::string::npos) name.erase(fixed);
      times_[name] = run.GetAdjustedCPUTime();
      real_times_[name] = run.GetAdjustedRealTime();
    }
    ConsoleReporter::ReportRuns(runs);
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    if (real_times_.count("BM_Guids_Norvane") && real_times_.count("BM_Guids_Getrandom")) {
      std::printf("\n%-34s %8.2f   (time / peer's time, same run)\n", "1000 GUIDs / 1000 getrandom(16)",
                  real_times_["BM_Guids_Norvane"] / real_times_["BM_Guids_Getrandom"]);
    }
    std::printf("\n%-14s %-12s %10s %10s   (time / peer's time, same run)\n", "case", "peer", "norvane", "portable");
    for (const auto& [name, time] : times_) {
      const size_t slash = name.rfind('/');
      if (slash == std::string::npos) continue;
      const std::string base = name.substr(0, slash), way = name.substr(slash + 1);
      if (way == "norvane" || way == "portable" || time <= 0) continue;
      std::printf("%-14s %-12s %10.2f %10.2f\n", base.c_str(), way.c_str(), times_[base + "/norvane"] / time,
                  times_[base + "/portable"] / time);
    }
  }

 private:
  std::map<std::string, double> times_;
  std::map<std::string, double> real_times_;
};

}  // namespace

int main(int argc, char** argv) {
  for (unsigned bits : {1024u, 2048u, 4096u}) {
    for (int way : {kNorvane, kPortable, kGmp, kOpenssl}) {
      const std::string name = "Mul" + std::to_string(bits) + "/" + kWays[way];
      benchmark::RegisterBenchmark(name.c_str(), Product, bits, way);
    }
  }
  for (unsigned bits : {1024u, 2048u, 4096u}) {
    for (int way : {kNorvane, kPortable, kGmp, kOpenssl}) {
      const std::string name = "ModExp" + std::to_string(bits) + "/" + kWays[way];
      benchmark::RegisterBenchmark(name.c_str(), ModExp, bits, way)->Unit(benchmark::kMicrosecond);
    }
  }
  for (int way : {kNorvane, kPortable, kGmp, kOpenssl, kOpensslRsa}) {
    const std::string name = std::string("CRT2048/") + kWays[way];
    benchmark::RegisterBenchmark(name.c_str(), Crt, way)->Unit(benchmark::kMicrosecond);
  }
  for (unsigned bits : {512u, 1024u}) {
    for (int way : {kNorvane, kPortable, kGmp}) {
      const std::string name = "FirstPrime" + std::to_string(bits) + "/" + kWays[way];
      benchmark::RegisterBenchmark(name.c_str(), FirstPrime, bits, way)->Unit(benchmark::kMillisecond);
    }
  }
  for (int way : {kNorvane, kPortable, kGmp}) {
    const std::string name = std::string("IsPrime1024/") + kWays[way];
    benchmark::RegisterBenchmark(name.c_str(), IsPrime, 1024u, way)->Unit(benchmark::kMicrosecond);
  }
  for (int way : {kNorvane, kPortable, kOpenssl}) {
    for (const auto& [name, op] : {std::pair{"RsaPrivate2048/", kPrivate}, {"RsaPublic2048/", kPublic}}) {
      benchmark::RegisterBenchmark((name + std::string(kWays[way])).c_str(), RsaOperation, op, way)
          ->Unit(benchmark::kMicrosecond);
    }
    for (const auto& [name, sign] : {std::pair{"DsaSign1024/", true}, {"DsaVerify1024/", false}}) {
      benchmark::RegisterBenchmark((name + std::string(kWays[way])).c_str(), DsaOperation, sign, way)
          ->Unit(benchmark::kMicrosecond);
    }
    // Key generation varies from key to key: a fixed number of keys, each way.
    benchmark::RegisterBenchmark((std::string("RsaKeygen2048/") + kWays[way]).c_str(), RsaKeygen, way)
        ->Unit(benchmark::kMillisecond)
        ->Iterations(24);
  }
  RatioReporter reporter;
  return RunBenchmarks(argc, argv, &reporter);
}
