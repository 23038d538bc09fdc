// Random numbers and GUIDs.
//
// KD_Random_MT_ is a Mersenne Twister with 848 state words (instead of the usual 624; the far
// word of the twist is 456 places on), the standard 32-bit twist and tempering, behind a handle.
// Its output is a pure function of the seed, so it serves reproducible streams; it is not a
// cryptographic generator. A handle is used by one thread at a time.
//
// KD_Random_GenerateBase, KD_Random_GenerateMT and KD_GUID_CreateV4 start from one 32-bit seed
// read from the operating system: from "/dev/urandom", or from getrandom(2) when the device cannot
// be opened or read. When neither delivers, the process is stopped (abort) rather than continue
// on predictable numbers. These calls keep no state and may be called from any thread.
#ifndef NORVANE_RUNTIME_RANDOM_H_
#define NORVANE_RUNTIME_RANDOM_H_

#include <cstddef>
#include <cstdint>

#include "norvane/config.h"

// KD_MTRandomRec is the record a KD_Random_MT_Start handle points to: the index of the next
// state word to temper (848 once the state is used up), whether the record was seeded, and the
// state.
struct KD_MTRandomRec {
  uint32_t index;
  bool seeded;
  uint32_t state[848];
};
static_assert(offsetof(KD_MTRandomRec, seeded) == 4 && offsetof(KD_MTRandomRec, state) == 8 &&
                  sizeof(KD_MTRandomRec) == 3400,
              "twister record layout");

// KD_Random_MT_Start allocates a record from the default manager (KDMEM_DefaultAlloc2(1, size,
// 0)), seeds it and returns it as a handle; null when the allocation fails.
NORVANE_API void* KD_Random_MT_Start(uint32_t seed);
// KD_Random_MT_Generate returns the next 32-bit output, regenerating the whole state every 848
// outputs. A null handle returns 0, and so does a record whose index is beyond 848 and whose
// seeded flag is clear (its index is then left as it is).
NORVANE_API uint32_t KD_Random_MT_Generate(void* handle);
// KD_Random_MT_Close frees the record through the default manager; null is ignored.
NORVANE_API void KD_Random_MT_Close(void* handle);

// KD_Random_GenerateBase writes count random words: the operating system's seed starts a
// standard MT19937, and each word is made of two of its draws taken uniformly from 0..0x7FFFFFFF,
// the low 16 bits of the first as the high half and the low 16 bits of the second as the low
// half. A null buffer or a count <= 0 writes nothing.
NORVANE_API void KD_Random_GenerateBase(uint32_t* buffer, int count);
// KD_Random_GenerateCrypto is KD_Random_GenerateBase: it rests on the same device seed, not on a
// generator of its own.
NORVANE_API void KD_Random_GenerateCrypto(uint32_t* buffer, int count);
// KD_Random_GenerateMT writes count outputs of an 848-word twister (taken with KD_Random_MT_Start
// and closed afterwards) seeded with one word of KD_Random_GenerateBase. A null buffer or a count
// <= 0 writes nothing.
NORVANE_API void KD_Random_GenerateMT(uint32_t* buffer, int count);

// KD_GUID_CreateV4 fills 16 bytes with a version-4 GUID: four outputs of an 848-word twister
// seeded with one word of KD_Random_GenerateBase, each stored little-endian, then the high
// nibble of byte 6 set to 4. The variant bits of byte 8 are left as drawn. Null is ignored.
NORVANE_API void KD_GUID_CreateV4(void* guid);

#endif  // NORVANE_RUNTIME_RANDOM_H_
