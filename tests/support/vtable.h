// VirtualSlot: the index of a virtual function in its class's table, read from a pointer to
// member (Itanium C++ ABI, as used on x86-64 and ARM64 Linux), and VirtualSlots for several at
// once. Tests use them to hold the slot order of the library's interfaces fixed.
#ifndef NORVANE_TESTS_SUPPORT_VTABLE_H_
#define NORVANE_TESTS_SUPPORT_VTABLE_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace kdtest {

template <class MemberFunction>
long VirtualSlot(MemberFunction member) {
  static_assert(sizeof(member) == 2 * sizeof(uintptr_t), "a pointer to member function is two words");
  uintptr_t words[2];
  std::memcpy(words, &member, sizeof words);
#if defined(__aarch64__)
  // ARM variant: the virtual flag is the low bit of the adjustment; ptr is the table offset.
  if (!(words[1] & 1)) return -1;
  return static_cast<long>(words[0] / sizeof(void*));
#else
  // Generic: ptr is 1 + the table offset for a virtual function.
  if (!(words[0] & 1)) return -1;
  return static_cast<long>((words[0] - 1) / sizeof(void*));
#endif
}

// The slots of several virtual functions, to compare a whole table order at once.
template <class... MemberFunctions>
std::vector<long> VirtualSlots(MemberFunctions... members) {
  return {VirtualSlot(members)...};
}

}  // namespace kdtest

#endif  // NORVANE_TESTS_SUPPORT_VTABLE_H_
