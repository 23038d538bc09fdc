// Marking memory for AddressSanitizer. The pools hand out pieces of large blocks they took from
// the system heap, so the sanitizer cannot see on its own which pieces are in use: under the
// sanitizer the pools mark free pieces unaddressable (poison) and mark each piece handed out
// addressable again (unpoison). In other builds these compile to nothing.
//
// Marking is exact at 8-byte granularity; a region that starts or ends inside an 8-byte granule
// is marked as precisely as the sanitizer's shadow allows.
#ifndef NORVANE_MEMORY_ASAN_INTERNAL_H_
#define NORVANE_MEMORY_ASAN_INTERNAL_H_

#include <cstddef>

#if defined(__SANITIZE_ADDRESS__)
#define NORVANE_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define NORVANE_ASAN 1
#endif
#endif

#if defined(__SANITIZE_THREAD__)
#define NORVANE_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define NORVANE_TSAN 1
#endif
#endif

#ifdef NORVANE_ASAN
#include <sanitizer/asan_interface.h>
#endif
// NORVANE_NO_ASAN keeps the address or thread sanitizer out of a function that reads memory it
// does not own on purpose (the pool manager's address test reads the would-be pool header in
// front of any block, which for a block from the system heap is someone else's memory, perhaps
// freed or being written by another thread; the value read only steers a check that gives the
// right answer whatever it is).
#if defined(NORVANE_ASAN)
#define NORVANE_NO_ASAN __attribute__((no_sanitize("address")))
#elif defined(NORVANE_TSAN)
#define NORVANE_NO_ASAN __attribute__((no_sanitize("thread")))
#else
#define NORVANE_NO_ASAN
#endif

namespace kdmem {

inline void Poison(const void* p, size_t n) {
#ifdef NORVANE_ASAN
  ASAN_POISON_MEMORY_REGION(p, n);
#else
  (void)p;
  (void)n;
#endif
}

inline void Unpoison(const void* p, size_t n) {
#ifdef NORVANE_ASAN
  ASAN_UNPOISON_MEMORY_REGION(p, n);
#else
  (void)p;
  (void)n;
#endif
}

}  // namespace kdmem

#endif  // NORVANE_MEMORY_ASAN_INTERNAL_H_
