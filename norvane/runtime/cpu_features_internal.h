// Processor features the library can use, detected once per process. Accelerated code paths
// check the bit they need; the portable path is always there beside them.
#ifndef NORVANE_RUNTIME_CPU_FEATURES_INTERNAL_H_
#define NORVANE_RUNTIME_CPU_FEATURES_INTERNAL_H_

#include <cstdint>

enum KDCRT_CpuFeature : uint32_t {
  // x86-64
  KDCRT_CPU_SSSE3 = 1u << 0,
  KDCRT_CPU_SSE41 = 1u << 1,
  KDCRT_CPU_AVX = 1u << 2,  // with the operating system saving the YMM state
  KDCRT_CPU_AVX2 = 1u << 3,
  KDCRT_CPU_BMI2 = 1u << 4,
  KDCRT_CPU_ADX = 1u << 5,
  KDCRT_CPU_AESNI = 1u << 6,
  KDCRT_CPU_PCLMUL = 1u << 7,
  KDCRT_CPU_SHANI = 1u << 8,
  KDCRT_CPU_AVX512IFMA = 1u << 9,  // with AVX-512F and the operating system saving the ZMM state
  // ARM64
  KDCRT_CPU_NEON = 1u << 16,
  KDCRT_CPU_ARM_AES = 1u << 17,
  KDCRT_CPU_ARM_PMULL = 1u << 18,
  KDCRT_CPU_ARM_SHA1 = 1u << 19,
  KDCRT_CPU_ARM_SHA256 = 1u << 20,
  KDCRT_CPU_ARM_SHA512 = 1u << 21,
};

// KDCRT_GetCpuFeatures returns the KDCRT_CPU_ bits of this processor. Detection runs on the first
// call; later calls read the cached result.
uint32_t KDCRT_GetCpuFeatures();

// KDCRT_CpuFeatureName returns the short lower-case name of one feature bit ("sha-ni", "aes"),
// or null for a bit that names no feature.
const char* KDCRT_CpuFeatureName(uint32_t bit);

#endif  // NORVANE_RUNTIME_CPU_FEATURES_INTERNAL_H_
