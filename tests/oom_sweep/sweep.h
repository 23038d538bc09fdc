// The allocation-failure sweep. A scenario is a function that uses a component through the
// default memory manager (or an allocator taken from the run) and checks each result: the
// documented failure result when an allocation failed during the step, the normal one when none
// did. Sweep runs the scenario again and again with a failing test manager installed as the
// default, failing the 1st allocation, then the 2nd, and so on, until a run in which nothing
// failed; after every run no block may be left (the sanitizer builds also catch any bad access
// on the way).
//
// Adding a scenario for a new component: write a TEST that calls
//   kdsweep::Sweep([](kdsweep::Trial& run) { ...use the component; check with run.Failed()... });
// in one of the *_sweep_test.cpp files (or a new one listed in CMakeLists.txt).
#ifndef NORVANE_TESTS_OOM_SWEEP_SWEEP_H_
#define NORVANE_TESTS_OOM_SWEEP_SWEEP_H_

#include <cstddef>
#include <functional>

#include "tests/support/test_mgr.h"

namespace kdsweep {

class Trial {
 public:
  explicit Trial(kdtest::TestMgr& mgr) : mgr_(mgr) {}

  // Failed tells whether the injected failure happened since the last call.
  bool Failed() {
    long failures = mgr_.sys().failures();
    bool failed = failures != seen_;
    seen_ = failures;
    return failed;
  }
  // Unfailing runs body with the injection held back: for allocations whose failure stops the
  // process by contract, which a sweep cannot take.
  template <class F>
  void Unfailing(F body) {
    long pending = mgr_.sys().pending_failure();
    size_t min_size = mgr_.sys().fail_min_size();
    mgr_.sys().FailNth(0);
    body();
    mgr_.sys().FailNth(pending, min_size);
  }
  // The failing manager's allocator, for components that take one.
  IKD_Allocator* allocator() { return mgr_.allocator(); }
  kdtest::TestMgr& mgr() { return mgr_; }

 private:
  kdtest::TestMgr& mgr_;
  long seen_ = 0;
};

struct Options {
  // Only requests of at least this many bytes are failed (and counted); smaller ones succeed.
  size_t min_size = 0;
  // Past the first `dense` allocations only every `stride`-th one is failed: for scenarios (key
  // generation) whose allocations run into the thousands.
  long dense = 0;
  long stride = 1;
};

// Sweep runs scenario once for each allocation it makes (or each one the options pick), that
// allocation failing, and once more with none failing. Returns the number of runs in which an
// allocation failed.
long Sweep(const std::function<void(Trial&)>& scenario, Options options = {});

}  // namespace kdsweep

#endif  // NORVANE_TESTS_OOM_SWEEP_SWEEP_H_
