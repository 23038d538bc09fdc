// Internal to the library: a per-thread count of the allocations the big-integer code could not
// make.
//
// Big-integer operations do not report running out of memory: an operation that cannot get its
// memory leaves its result as it was (or zero). Code that turns a chain of them into bytes (the
// RSA and DSA entry points) reads the count before and after, and treats any change as a failure
// instead of handing out a wrong result.
#ifndef NORVANE_CRYPTO_PKI_FAILURES_INTERNAL_H_
#define NORVANE_CRYPTO_PKI_FAILURES_INTERNAL_H_

#include <cstdint>

namespace kdpki {

// The number of allocations that failed on this thread in the big-integer and Montgomery code.
uint64_t AllocationFailures();
// Counts one failed allocation.
void NoteAllocationFailure();

// FailureWatch answers whether an allocation failed on this thread since it was made.
class FailureWatch {
 public:
  FailureWatch() : start_(AllocationFailures()) {}
  bool Failed() const { return AllocationFailures() != start_; }

 private:
  uint64_t start_;
};

}  // namespace kdpki

#endif  // NORVANE_CRYPTO_PKI_FAILURES_INTERNAL_H_
