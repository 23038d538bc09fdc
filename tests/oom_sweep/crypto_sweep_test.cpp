// Allocation-failure sweep of the big integers: whatever allocation fails, the operations finish
// without a leak or a bad access, and a run in which nothing failed computes what an unfailing
// run computes.
#include <gtest/gtest.h>

#include <vector>

#include "norvane/crypto/huge_int.h"
#include "tests/oom_sweep/sweep.h"

namespace {

using kdsweep::Trial;

std::vector<KDPKI_HugeInt> Compute() {
  std::vector<uint8_t> x(70), y(33), m(40);
  for (size_t i = 0; i < x.size(); ++i) x[i] = static_cast<uint8_t>(i * 37 + 11);
  for (size_t i = 0; i < y.size(); ++i) y[i] = static_cast<uint8_t>(i * 91 + 5);
  for (size_t i = 0; i < m.size(); ++i) m[i] = static_cast<uint8_t>(i * 13 + 201);
  m.back() |= 1;
  KDPKI_HugeInt a, b, mod;
  a.Decode(x.data(), static_cast<int>(x.size()));
  b.Decode(y.data(), static_cast<int>(y.size()));
  mod.Decode(m.data(), static_cast<int>(m.size()));
  KDPKI_HugeInt shifted = a;
  shifted <<= 77;
  return {a * b, a / b, a % b, a - b * b, shifted, KDPKI_HugeInt::GCD(a, b), b.PowerAndModule(a, mod)};
}

TEST(AllocationSweep, BigIntegers) {
  // Computed first with the real default manager, which also builds the shared constants (made
  // once per process, so never from a sweep's manager).
  const std::vector<KDPKI_HugeInt> expect = Compute();
  kdsweep::Sweep([&](Trial& run) {
    const std::vector<KDPKI_HugeInt> got = Compute();
    if (!run.Failed()) {
      for (size_t i = 0; i < expect.size(); ++i) EXPECT_EQ(got[i].Compare(expect[i]), 0) << "result " << i;
    }
  });
}

}  // namespace
