// guid [-n N]: N version-4 GUIDs, one per line, in the 8-4-4-4-12 lowercase form of the 16 bytes
// in order.
// random [-n BYTES] [--seed HEX] [--hex]: bytes of the key-generation generator, seeded from the
// hex seed when one is given (the same seed gives the same bytes), unseeded otherwise; raw, or as
// one line of lowercase hex.
#include <cstdio>
#include <cstring>
#include <vector>

#include "norvane/crypto/random_generator.h"
#include "norvane/runtime/random.h"
#include "tools/norvane/commands.h"

namespace nvtool {

const char kGuidUsage[] =
    "Usage: norvane guid [-n N]\n"
    "Prints N version-4 GUIDs (default 1), one per line, as the 8-4-4-4-12 lowercase hex of their\n"
    "16 bytes in order.\n";

const char kRandomUsage[] =
    "Usage: norvane random [-n BYTES] [--seed HEX] [--hex]\n"
    "Writes BYTES (default 32) bytes of the key-generation generator to standard output, raw or, with\n"
    "--hex, as one line of lowercase hex. With --seed the bytes are a fixed function of the seed\n"
    "bytes; without it the generator starts from a 32-bit system seed, so the output is not fit for\n"
    "secrets.\n";

namespace {

// A count of at most 2^48: decimal digits only.
bool ParseCount(const char* text, unsigned long long* out) {
  unsigned long long n = 0;
  if (!*text) return false;
  for (const char* p = text; *p; ++p) {
    if (*p < '0' || *p > '9') return false;
    n = n * 10 + static_cast<unsigned>(*p - '0');
    if (n > (1ULL << 48)) return false;
  }
  *out = n;
  return true;
}

// Reads the value of the option at argv[*i] into *count; false after reporting the error.
bool CountOption(const char* command, int argc, char** argv, int* i, unsigned long long* count, int* status) {
  if (*i + 1 == argc) {
    *status = UsageError("%s: -n needs a count", command);
    return false;
  }
  if (!ParseCount(argv[++*i], count)) {
    Error("%s: the count '%s' is not a whole number up to 2^48", command, argv[*i]);
    *status = kExitUsage;
    return false;
  }
  return true;
}

}  // namespace

int RunGuid(int argc, char** argv) {
  unsigned long long count = 1;
  for (int i = 1; i < argc; ++i) {
    int status;
    if (std::strcmp(argv[i], "-n") == 0) {
      if (!CountOption("guid", argc, argv, &i, &count, &status)) return status;
    } else {
      return UsageError("guid: unexpected argument '%s'", argv[i]);
    }
  }
  for (unsigned long long n = 0; n < count; ++n) {
    uint8_t g[16];
    KD_GUID_CreateV4(g);
    std::printf("%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x\n", g[0], g[1], g[2], g[3],
                g[4], g[5], g[6], g[7], g[8], g[9], g[10], g[11], g[12], g[13], g[14], g[15]);
    if (std::ferror(stdout)) break;
  }
  return kExitOk;
}

int RunRandom(int argc, char** argv) {
  unsigned long long count = 32;
  const char* seed_hex = nullptr;
  bool hex = false;
  for (int i = 1; i < argc; ++i) {
    int status;
    if (std::strcmp(argv[i], "-n") == 0) {
      if (!CountOption("random", argc, argv, &i, &count, &status)) return status;
    } else if (std::strcmp(argv[i], "--seed") == 0) {
      if (i + 1 == argc) return UsageError("random: --seed needs a hex string");
      seed_hex = argv[++i];
    } else if (std::strcmp(argv[i], "--hex") == 0) {
      hex = true;
    } else {
      return UsageError("random: unexpected argument '%s'", argv[i]);
    }
  }
  std::vector<uint8_t> seed;
  if (seed_hex && !ParseHex(seed_hex, &seed)) {
    Error("random: the seed is not a hex string of whole bytes");
    return kExitUsage;
  }
  KDPKI_RandomGenerator* generator = seed_hex ? new KDPKI_RandomGenerator(seed.data(), static_cast<uint32_t>(seed.size()))
                                              : new KDPKI_RandomGenerator();
  if (!generator) {
    Error("random: out of memory");
    return kExitFailure;
  }
  uint8_t block[1 << 16];
  char text[2 * sizeof block];
  for (unsigned long long done = 0; done < count && !std::ferror(stdout);) {
    const int n = static_cast<int>(count - done < sizeof block ? count - done : sizeof block);
    generator->GetBlock(block, n);
    done += static_cast<unsigned>(n);
    if (!hex) {
      std::fwrite(block, 1, static_cast<size_t>(n), stdout);
      continue;
    }
    for (int i = 0; i < n; ++i) {
      text[2 * i] = "0123456789abcdef"[block[i] >> 4];
      text[2 * i + 1] = "0123456789abcdef"[block[i] & 15];
    }
    std::fwrite(text, 1, 2 * static_cast<size_t>(n), stdout);
  }
  if (hex) std::fputc('\n', stdout);
  delete generator;
  return kExitOk;
}

}  // namespace nvtool
