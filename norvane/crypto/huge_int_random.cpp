// The random draws of KDPKI_HugeInt: bits, a range, and a range within a residue class (primes
// for key generation).
#include "norvane/crypto/huge_int.h"
#include "norvane/crypto/pki_failures_internal.h"
#include "norvane/crypto/pki_words.h"
#include "norvane/crypto/primes.h"
#include "norvane/crypto/random_generator.h"
#include "norvane/memory/memory_mgr.h"

namespace {

// A range draw that keeps being rejected means a generator without varied bytes (one whose
// twister could not be allocated); a working one gets this far with probability below 2^-1024.
constexpr int kMaxRejections = 1024;

// Draws of this many bytes use the stack.
constexpr size_t kStackBytes = 512;

// The largest draw: as many bytes as an integer block holds.
constexpr size_t kMaxBytes = size_t{1} << 28;

// The number of tries of the prime draw before it searches from the bottom of the range.
constexpr int kPrimeTries = 15;

}  // namespace

bool KDPKI_HugeInt::Random(KDPKI_RandomGenerator& generator, unsigned bits) {
  if (bits == 0) return true;
  const size_t count = (static_cast<size_t>(bits) + 7) / 8;
  if (count > kMaxBytes) return false;
  uint8_t stack[kStackBytes];
  uint8_t* bytes = count <= kStackBytes ? stack : static_cast<uint8_t*>(KDMEM_DefaultAlloc2(count, 1, 0));
  if (!bytes) {
    kdpki::NoteAllocationFailure();
    return false;
  }
  generator.GetBlock(bytes, static_cast<int>(count));
  bytes[0] = KDPKI_Crop(bytes[0], bits % 8);
  KDPKI_HugeInt value;
  value.Decode(bytes, static_cast<int>(count));
  if (bytes != stack) KDMEM_DefaultFree(bytes, 0);
  if (!value.Magnitude().GetWords()) return false;  // the words could not be had
  Swap(value);
  return true;
}

bool KDPKI_HugeInt::Random(KDPKI_RandomGenerator& generator, const KDPKI_HugeInt& min, const KDPKI_HugeInt& max) {
  if (max < min) return false;
  const KDPKI_HugeInt range = max - min;
  const unsigned bits = range.GetBitCount();
  KDPKI_HugeInt draw;
  for (int rejected = 0;; ++rejected) {
    if (rejected == kMaxRejections || !draw.Random(generator, bits)) return false;
    if (draw <= range) break;
  }
  KDPKI_HugeInt value = draw + min;
  Swap(value);
  return true;
}

bool KDPKI_HugeInt::Random(KDPKI_RandomGenerator& generator, const KDPKI_HugeInt& min, const KDPKI_HugeInt& max,
                           KDPKI_RandomType type, const KDPKI_HugeInt& equiv, const KDPKI_HugeInt& mod) {
  if (!mod.IsPositive()) return false;
  KDPKI_HugeInt x;
  if (type == KDPKI_RANDOM_PRIME) {
    const uint32_t max_bits = max.GetBitCount();
    bool found = false;
    for (int i = 0; i < kPrimeTries && !found; ++i) {
      if (!x.Random(generator, min, max)) return false;
      x.Magnitude().SetBit(0, true);
      KDPKI_HugeInt limit = x + mod * max_bits;
      if (limit > max) limit = max;
      found = KDPKI_FirstPrime(x, limit, equiv, mod);
    }
    if (!found) {
      x = min;
      if (!KDPKI_FirstPrime(x, max, equiv, mod)) return false;
    }
  } else if (mod == KDPKI_HugeInt::One()) {
    if (!x.Random(generator, min, max)) return false;
  } else {
    // The least value >= min in the class, then a uniform step count above it.
    const KDPKI_HugeInt low = min + (equiv - min) % mod;
    if (max < low) return false;
    KDPKI_HugeInt steps;
    if (!steps.Random(generator, KDPKI_HugeInt::Zero(), (max - low) / mod)) return false;
    x = low + mod * steps;
  }
  Swap(x);
  return true;
}
