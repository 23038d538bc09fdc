// Allocation-failure sweeps of the big integers, Montgomery exponentiation, primes, RSA and DSA
// and key generation: whatever allocation fails, the operations finish without a leak or a bad
// access; byte-producing calls either give what an unfailing run gives or leave their output as
// it was; a run in which nothing failed computes what an unfailing run computes.
#include <gtest/gtest.h>

#include <vector>

#include "norvane/crypto/dsa.h"
#include "norvane/crypto/huge_int.h"
#include "norvane/crypto/montgomery.h"
#include "norvane/crypto/primes.h"
#include "norvane/crypto/random_generator.h"
#include "norvane/crypto/rsa.h"
#include "tests/oom_sweep/sweep.h"

namespace {

using kdsweep::Trial;
using H = KDPKI_HugeInt;

H Patterned(size_t bytes, unsigned mul, unsigned add, bool odd = false) {
  std::vector<uint8_t> v(bytes);
  for (size_t i = 0; i < v.size(); ++i) v[i] = static_cast<uint8_t>(i * mul + add);
  if (odd) v.back() |= 1;  // the least significant byte
  H x;
  x.Decode(v.data(), static_cast<int>(v.size()));
  return x;
}

std::vector<H> Compute() {
  const H a = Patterned(75, 37, 11), b = Patterned(25, 91, 5), m = Patterned(32, 13, 201, true);
  H shifted = a;
  shifted <<= 77;
  const KDPKI_MontgomeryRepresentation rep(m);
  const KDPKI_MultiplicativeGroup group(&rep);
  H ltor;
  KDPKI_LtoRBinaryExponentiation(a, H(5u), group, ltor);
  return {a * b,
          a / b,
          a % b,
          a - b * b,
          shifted,
          a >> 3,
          H::GCD(a, b),
          a.InverseMod(m),
          m.SquareRoot(),
          b.PowerAndModule(a, m),
          KDPKI_ModularExponentiation(a, b, m),
          rep.ConvertOut(rep.Exponentiate(rep.ConvertIn(a), b)),
          rep.Exponentiate(a << 300, H(77u)),
          ltor};
}

// Shared constants and lazily built tables are made once per process: the unfailing run first
// builds them with the real default manager, so that no sweep's manager owns them.
TEST(AllocationSweep, BigIntegersAndMontgomery) {
  const std::vector<H> expect = Compute();
  kdsweep::Sweep([&](Trial& run) {
    const std::vector<H> got = Compute();
    if (!run.Failed()) {
      for (size_t i = 0; i < expect.size(); ++i) EXPECT_EQ(got[i].Compare(expect[i]), 0) << "result " << i;
    }
  });
}

TEST(AllocationSweep, Primes) {
  const H start = Patterned(12, 29, 7), max = start + 100000u;
  const auto find = [&](H& p, H& x) {
    p = start;
    KDPKI_RandomGenerator gen(reinterpret_cast<const uint8_t*>("oom"), 3);
    return KDPKI_FirstPrime(p, max, H(), H(1u)) && KDPKI_IsPrime(p) &&
           x.Random(gen, start, max, KDPKI_RANDOM_PRIME, H(1u), H(4u));
  };
  H prime, drawn;
  ASSERT_TRUE(find(prime, drawn));
  kdsweep::Sweep([&](Trial& run) {
    H p, x;
    const bool found = find(p, x);
    EXPECT_TRUE(run.Failed() || (found && p == prime && x == drawn));
  });
}

// Encryption, decryption, signing and verifying under one 512-bit key.
TEST(AllocationSweep, RsaOperations) {
  CKD_ByteString pub, priv, want_c, want_m, want_s;
  ASSERT_TRUE(KDPKI_CreateRsaKey(512, "sweep", nullptr, pub, priv));
  const CKD_ByteString data("\x09\x08\x07\x06");
  ASSERT_TRUE(KDPKI_RsaEncrypt(data, pub, want_c));
  ASSERT_TRUE(KDPKI_RsaDecrypt(want_c, priv, want_m));
  ASSERT_TRUE(KDPKI_RsaSign(data, priv, want_s));
  kdsweep::Sweep([&](Trial& run) {
    CKD_ByteString c("c"), m("m"), s("s");
    const bool ok_c = KDPKI_RsaEncrypt(data, pub, c);
    const bool ok_m = KDPKI_RsaDecrypt(want_c, priv, m);
    const bool ok_s = KDPKI_RsaSign(data, priv, s);
    const bool ok_v = KDPKI_VerifyRsaSign(data, want_s, pub);
    EXPECT_TRUE(ok_c ? c == want_c : c == "c");
    EXPECT_TRUE(ok_m ? m == want_m : m == "m");
    EXPECT_TRUE(ok_s ? s == want_s : s == "s");
    EXPECT_TRUE(run.Failed() || (ok_c && ok_m && ok_s && ok_v));
  });
}

// A signature is either made and valid or the output is left as it was.
TEST(AllocationSweep, DsaOperations) {
  CKD_ByteString pub, priv, good;
  ASSERT_TRUE(KDPKI_CreateDsaKey("sweep", nullptr, pub, priv));
  const CKD_ByteString data("\x04\x05\x06");
  ASSERT_TRUE(KDPKI_DsaSign(data, priv, good));
  kdsweep::Sweep([&](Trial& run) {
    CKD_ByteString sig("s");
    const bool signed_ok = KDPKI_DsaSign(data, priv, sig);
    const bool verified = KDPKI_VerifyDsaSign(data, good, pub);
    run.Unfailing([&] { EXPECT_TRUE(signed_ok ? KDPKI_VerifyDsaSign(data, sig, pub) : sig == "s"); });
    EXPECT_TRUE(run.Failed() || (signed_ok && verified));
  });
}

// Key generation makes hundreds to thousands of allocations: the first hundred fail one by one, then every
// 97th. A key is the seed's key or the outputs are left as they were.
TEST(AllocationSweep, KeyGeneration) {
  CKD_ByteString rsa_pub, rsa_priv, dsa_pub, dsa_priv;
  ASSERT_TRUE(KDPKI_CreateRsaKey(96, "oom", nullptr, rsa_pub, rsa_priv));
  ASSERT_TRUE(KDPKI_CreateDsaKey("oom", nullptr, dsa_pub, dsa_priv));
  kdsweep::Options options;
  options.dense = 100;
  options.stride = 97;
  const long rsa_runs = kdsweep::Sweep(
      [&](Trial& run) {
        CKD_ByteString pub("p"), priv("k");
        const bool ok = KDPKI_CreateRsaKey(96, "oom", nullptr, pub, priv);
        EXPECT_TRUE(ok ? pub == rsa_pub && priv == rsa_priv : pub == "p" && priv == "k");
        EXPECT_TRUE(run.Failed() || (ok));
      },
      options);
  EXPECT_GT(rsa_runs, 100);
  const long dsa_runs = kdsweep::Sweep(
      [&](Trial& run) {
        CKD_ByteString pub("p"), priv("k");
        const bool ok = KDPKI_CreateDsaKey("oom", nullptr, pub, priv);
        EXPECT_TRUE(ok ? pub == dsa_pub && priv == dsa_priv : pub == "p" && priv == "k");
        EXPECT_TRUE(run.Failed() || (ok));
      },
      options);
  EXPECT_GT(dsa_runs, 100);
}

}  // namespace
