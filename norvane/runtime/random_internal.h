// The seeded cores of the random calls, so that tests can run them on seeds of their choosing.
#ifndef NORVANE_RUNTIME_RANDOM_INTERNAL_H_
#define NORVANE_RUNTIME_RANDOM_INTERNAL_H_

#include <cstdint>

#include "norvane/runtime/random.h"

namespace kdrand {

// BaseWords writes the count words KD_Random_GenerateBase makes from seed (count >= 1).
void BaseWords(uint32_t seed, uint32_t* out, int count);
// MTWords writes the count words KD_Random_GenerateMT makes from seed (count >= 1).
void MTWords(uint32_t seed, uint32_t* out, int count);
// GuidFromSeed writes the GUID KD_GUID_CreateV4 makes from seed.
void GuidFromSeed(uint32_t seed, uint8_t guid[16]);

}  // namespace kdrand

#endif  // NORVANE_RUNTIME_RANDOM_INTERNAL_H_
