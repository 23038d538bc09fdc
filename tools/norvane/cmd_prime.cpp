// prime --bits N [--seed HEX]: a prime of N bits drawn as key generation draws one, printed in
// hex.
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "norvane/crypto/huge_int.h"
#include "norvane/crypto/primes.h"
#include "norvane/crypto/random_generator.h"
#include "tools/norvane/commands.h"
#include "tools/norvane/options.h"

namespace nvtool {

const char kPrimeUsage[] =
    "Usage: norvane prime --bits N [--seed HEX]\n"
    "\n"
    "Prints a prime of N bits (2 to 8192) as lowercase hex without leading zeros, drawn as key\n"
    "generation draws one: the library's prime draw over [2^(N-1), 2^N - 1] from the key-generation\n"
    "generator. With --seed the generator is seeded with the hex seed's bytes, so the same seed\n"
    "gives the same prime; without it the generator starts from a 32-bit system seed, so the prime\n"
    "is not fit for secrets.\n"
    "\n"
    "As in key generation, a range whose width has a multiple of 8 bits is drawn from narrowed:\n"
    "when N - 1 is a multiple of 8 the search starts below 2^(N-1) + 2^(N-9).\n"
    "Large sizes take long: thousands of bits take seconds to minutes.\n"
    "\n"
    "Exit status: 0 done, 1 no prime found, 2 a usage error.\n";

namespace {

constexpr unsigned long kMaxBits = 8192;

// Draws a prime of bits bits from generator into prime.
bool DrawPrime(KDPKI_RandomGenerator&& generator, unsigned bits, KDPKI_HugeInt& prime) {
  KDPKI_HugeInt low, high;
  low.Power2(bits - 1);
  high.Power2(bits);
  return prime.Random(generator, low, high - 1u, KDPKI_RANDOM_PRIME);
}

}  // namespace

int RunPrime(int argc, char** argv) {
  const Option options[] = {{"bits", 0, true}, {"seed", 0, true}};
  const char* bits_text = nullptr;
  const char* seed_hex = nullptr;
  std::vector<char*> operands;
  if (!ParseOptions(argc, argv, options, 2, &operands, [&](int index, char* value) {
        (index == 0 ? bits_text : seed_hex) = value;
        return true;
      })) {
    return kExitUsage;
  }
  if (!operands.empty()) return UsageError("prime: unexpected argument '%s'", operands[0]);
  if (!bits_text) return UsageError("prime: give the size with --bits N");
  char* end = nullptr;
  const unsigned long bits = std::strtoul(bits_text, &end, 10);
  if (*bits_text < '0' || *bits_text > '9' || *end || bits < 2 || bits > kMaxBits) {
    return UsageError("prime: the size '%s' is not a whole number from 2 to %lu", bits_text, kMaxBits);
  }
  std::vector<uint8_t> seed;
  if (seed_hex && !ParseHex(seed_hex, &seed)) return UsageError("prime: the seed is not a hex string of whole bytes");

  KDPKI_HugeInt prime;
  const unsigned n = static_cast<unsigned>(bits);
  const uint32_t length = static_cast<uint32_t>(seed.size());
  const bool found = seed_hex ? DrawPrime(KDPKI_RandomGenerator(seed.data(), length), n, prime)
                              : DrawPrime(KDPKI_RandomGenerator(), n, prime);
  if (!found) {
    Error("prime: no prime found");
    return kExitFailure;
  }
  std::vector<uint8_t> bytes(prime.GetByteCount());
  prime.Encode(bytes.data(), static_cast<int>(bytes.size()));
  // The first byte without a leading zero digit, then two digits a byte.
  std::printf(bytes[0] < 16 ? "%x" : "%02x", bytes[0]);
  for (size_t i = 1; i < bytes.size(); ++i) std::printf("%02x", bytes[i]);
  std::printf("\n");
  return kExitOk;
}

}  // namespace nvtool
