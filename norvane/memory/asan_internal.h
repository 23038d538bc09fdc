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

#ifdef NORVANE_ASAN
#include <sanitizer/asan_interface.h>
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
