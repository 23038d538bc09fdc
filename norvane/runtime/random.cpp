#include "norvane/runtime/random.h"

#include <cstring>

#include "norvane/memory/memory_mgr.h"
#include "norvane/runtime/kdcrt_system_internal.h"
#include "norvane/runtime/random_internal.h"

namespace {

// The 848-word variant and the standard MT19937 share seeding, twist and tempering; they differ in
// the state length N and the distance M to the far word of the twist.
constexpr int kN = 848, kM = 456;
constexpr int kStdN = 624, kStdM = 397;

// Fills state[0..count-1] by the seeding recurrence; the first words of a longer state do not
// depend on its length.
inline void SeedWords(uint32_t* state, uint32_t seed, int count) {
  state[0] = seed;
  for (int i = 1; i < count; ++i) {
    state[i] = 1812433253u * (state[i - 1] ^ (state[i - 1] >> 30)) + static_cast<uint32_t>(i);
  }
}

// One word of the twist: the top bit of word and the low 31 bits of next, shifted and mixed with
// far and, when next is odd, the twist matrix.
inline uint32_t TwistWord(uint32_t word, uint32_t next, uint32_t far) {
  const uint32_t y = (word & 0x80000000u) | (next & 0x7FFFFFFFu);
  return far ^ (y >> 1) ^ (0x9908B0DFu & (0u - (next & 1u)));
}

// Regenerates the whole state in place; the far word wraps round to words already regenerated.
template <int N, int M>
void Regenerate(uint32_t* s) {
  int k = 0;
  for (; k < N - M; ++k) s[k] = TwistWord(s[k], s[k + 1], s[k + M]);
  for (; k < N - 1; ++k) s[k] = TwistWord(s[k], s[k + 1], s[k + M - N]);
  s[N - 1] = TwistWord(s[N - 1], s[0], s[M - 1]);
}

inline uint32_t Temper(uint32_t y) {
  y ^= y >> 11;
  y ^= (y << 7) & 0x9D2C5680u;
  y ^= (y << 15) & 0xEFC60000u;
  y ^= y >> 18;
  return y;
}

// Writes the first count outputs of a generator freshly seeded with seed, for count <= N - M.
// Until then output k depends only on the seeded words k, k + 1 and k + M, so only the first
// count + M words are seeded (into s) and nothing else of the state is computed.
template <int N, int M>
void FirstOutputs(uint32_t* s, uint32_t seed, uint32_t* out, int count) {
  static_assert(N > M, "far word inside the state");
  SeedWords(s, seed, count + M);
  for (int k = 0; k < count; ++k) out[k] = Temper(TwistWord(s[k], s[k + 1], s[k + M]));
}

void Start(KD_MTRandomRec* mt, uint32_t seed) {
  SeedWords(mt->state, seed, kN);
  mt->index = kN;
  mt->seeded = true;
}

uint32_t Next(KD_MTRandomRec* mt) {
  uint32_t y;
  if (mt->index < kN) {
    y = mt->state[mt->index++];
  } else {
    if (mt->index > kN && !mt->seeded) return 0;
    Regenerate<kN, kM>(mt->state);
    y = mt->state[0];
    mt->index = 1;
  }
  return Temper(y);
}

// A uniform draw over 0..0x7FFFFFFF from one 32-bit output: dropping the low bit is unbiased.
inline uint32_t Draw31(uint32_t output) { return output >> 1; }

inline uint32_t BaseWord(uint32_t first, uint32_t second) {
  return (Draw31(first) << 16) | (Draw31(second) & 0xFFFFu);
}

uint32_t DeviceSeed() {
  uint32_t seed;
  KDCRT_ReadRandom(&seed, sizeof seed);
  return seed;
}

}  // namespace

namespace kdrand {

void BaseWords(uint32_t seed, uint32_t* out, int count) {
  uint32_t s[kStdN];
  constexpr int kShort = (kStdN - kStdM) / 2;  // words within the first state's outputs
  if (count <= kShort) {
    uint32_t draws[2 * kShort];
    FirstOutputs<kStdN, kStdM>(s, seed, draws, 2 * count);
    for (int i = 0; i < count; ++i) out[i] = BaseWord(draws[2 * i], draws[2 * i + 1]);
    return;
  }
  SeedWords(s, seed, kStdN);
  int index = kStdN;
  auto next = [&] {
    if (index == kStdN) {
      Regenerate<kStdN, kStdM>(s);
      index = 0;
    }
    return Temper(s[index++]);
  };
  for (int i = 0; i < count; ++i) {
    const uint32_t first = next();
    out[i] = BaseWord(first, next());
  }
}

void MTWords(uint32_t seed, uint32_t* out, int count) {
  // Should the handle's allocation fail (the out-of-memory handler has then been called), a
  // record on the stack serves instead of writing through null.
  KD_MTRandomRec local;
  void* handle = KD_Random_MT_Start(seed);
  KD_MTRandomRec* mt = handle ? static_cast<KD_MTRandomRec*>(handle) : &local;
  if (!handle) Start(&local, seed);
  for (int i = 0; i < count; ++i) out[i] = Next(mt);
  KD_Random_MT_Close(handle);
}

void GuidFromSeed(uint32_t seed, uint8_t guid[16]) {
  // The record is taken as KD_Random_MT_Start takes it, but of its state only the words that four
  // outputs depend on are computed; the rest would be freed unread. As above, a failed
  // allocation falls back to a record on the stack.
  KD_MTRandomRec local;
  auto* mt = static_cast<KD_MTRandomRec*>(KDMEM_DefaultAlloc2(1, sizeof(KD_MTRandomRec), 0));
  uint32_t words[4];
  FirstOutputs<kN, kM>((mt ? mt : &local)->state, seed, words, 4);
  KD_Random_MT_Close(mt);
  std::memcpy(guid, words, 16);  // native order: little-endian
  guid[6] = static_cast<uint8_t>((guid[6] & 0x0F) | 0x40);
}

}  // namespace kdrand

void* KD_Random_MT_Start(uint32_t seed) {
  auto* mt = static_cast<KD_MTRandomRec*>(KDMEM_DefaultAlloc2(1, sizeof(KD_MTRandomRec), 0));
  if (mt) Start(mt, seed);
  return mt;
}

uint32_t KD_Random_MT_Generate(void* handle) {
  return handle ? Next(static_cast<KD_MTRandomRec*>(handle)) : 0;
}

void KD_Random_MT_Close(void* handle) { KDMEM_DefaultFree(handle, 0); }

void KD_Random_GenerateBase(uint32_t* buffer, int count) {
  if (buffer && count > 0) kdrand::BaseWords(DeviceSeed(), buffer, count);
}

void KD_Random_GenerateCrypto(uint32_t* buffer, int count) { KD_Random_GenerateBase(buffer, count); }

void KD_Random_GenerateMT(uint32_t* buffer, int count) {
  if (!buffer || count <= 0) return;
  uint32_t seed;
  KD_Random_GenerateBase(&seed, 1);
  kdrand::MTWords(seed, buffer, count);
}

void KD_GUID_CreateV4(void* guid) {
  if (!guid) return;
  uint32_t seed;
  KD_Random_GenerateBase(&seed, 1);
  kdrand::GuidFromSeed(seed, static_cast<uint8_t*>(guid));
}
