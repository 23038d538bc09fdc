#include "tests/oom_sweep/sweep.h"

#include <gtest/gtest.h>

namespace kdsweep {

long Sweep(const std::function<void(Trial&)>& scenario, Options options) {
  long runs = 0;
  for (long n = 1;; n += n < options.dense || options.stride < 1 ? 1 : options.stride, ++runs) {
    kdtest::TestDefaultMgr mgr;
    mgr.sys().FailNth(n, options.min_size);
    Trial run(mgr);
    {
      SCOPED_TRACE("allocation " + std::to_string(n) + " failing");
      scenario(run);
    }
    const long failures = mgr.sys().failures();
    EXPECT_EQ(mgr.live_blocks(), 0u) << "blocks left with allocation " << n << " failing";
    EXPECT_EQ(mgr.sys().bad_frees(), 0) << "allocation " << n << " failing";
    // Every failed allocation (none is quiet) called the out-of-memory handler once.
    EXPECT_EQ(mgr.oom().calls, failures) << "allocation " << n << " failing";
    if (failures == 0 || ::testing::Test::HasFatalFailure()) return runs;
    if (runs > 100000) {
      ADD_FAILURE() << "the scenario does not end";
      return runs;
    }
  }
}

}  // namespace kdsweep
