#include "norvane/runtime/cpu_features_internal.h"

#if defined(__x86_64__)
#include <cpuid.h>
#elif defined(__aarch64__)
#include <asm/hwcap.h>
#include <sys/auxv.h>
#endif

namespace {

#if defined(__x86_64__)
uint32_t Detect() {
  unsigned eax, ebx, ecx, edx;
  if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx)) return 0;
  uint32_t f = 0;
  if (ecx & bit_SSSE3) f |= KDCRT_CPU_SSSE3;
  if (ecx & bit_SSE4_1) f |= KDCRT_CPU_SSE41;
  if (ecx & bit_AES) f |= KDCRT_CPU_AESNI;
  if (ecx & bit_PCLMUL) f |= KDCRT_CPU_PCLMUL;
  // AVX needs the processor's support and the OS saving XMM and YMM state (XCR0 bits 1 and 2).
  bool ymm_saved = false, zmm_saved = false;
  if ((ecx & bit_OSXSAVE) && (ecx & bit_AVX)) {
    unsigned lo, hi;
    __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
    ymm_saved = (lo & 6) == 6;
    zmm_saved = (lo & 0xe6) == 0xe6;  // and the opmask and both halves of the ZMM state
  }
  if (ymm_saved) f |= KDCRT_CPU_AVX;
  if (__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx)) {
    if ((ebx & bit_AVX2) && ymm_saved) f |= KDCRT_CPU_AVX2;
    if (ebx & bit_BMI2) f |= KDCRT_CPU_BMI2;
    if (ebx & bit_ADX) f |= KDCRT_CPU_ADX;
    if (ebx & bit_SHA) f |= KDCRT_CPU_SHANI;
    if ((ebx & bit_AVX512F) && (ebx & bit_AVX512IFMA) && zmm_saved) f |= KDCRT_CPU_AVX512IFMA;
  }
  return f;
}
#elif defined(__aarch64__)
uint32_t Detect() {
  unsigned long hw = getauxval(AT_HWCAP);
  uint32_t f = 0;
  if (hw & HWCAP_ASIMD) f |= KDCRT_CPU_NEON;
  if (hw & HWCAP_AES) f |= KDCRT_CPU_ARM_AES;
  if (hw & HWCAP_PMULL) f |= KDCRT_CPU_ARM_PMULL;
  if (hw & HWCAP_SHA1) f |= KDCRT_CPU_ARM_SHA1;
  if (hw & HWCAP_SHA2) f |= KDCRT_CPU_ARM_SHA256;
  if (hw & HWCAP_SHA512) f |= KDCRT_CPU_ARM_SHA512;
  return f;
}
#else
uint32_t Detect() { return 0; }
#endif

}  // namespace

uint32_t KDCRT_GetCpuFeatures() {
  static const uint32_t features = Detect();
  return features;
}

const char* KDCRT_CpuFeatureName(uint32_t bit) {
  switch (bit) {
    case KDCRT_CPU_SSSE3: return "ssse3";
    case KDCRT_CPU_SSE41: return "sse4.1";
    case KDCRT_CPU_AVX: return "avx";
    case KDCRT_CPU_AVX2: return "avx2";
    case KDCRT_CPU_BMI2: return "bmi2";
    case KDCRT_CPU_ADX: return "adx";
    case KDCRT_CPU_AESNI: return "aes-ni";
    case KDCRT_CPU_PCLMUL: return "pclmul";
    case KDCRT_CPU_SHANI: return "sha-ni";
    case KDCRT_CPU_AVX512IFMA: return "avx512ifma";
    case KDCRT_CPU_NEON: return "neon";
    case KDCRT_CPU_ARM_AES: return "aes";
    case KDCRT_CPU_ARM_PMULL: return "pmull";
    case KDCRT_CPU_ARM_SHA1: return "sha1";
    case KDCRT_CPU_ARM_SHA256: return "sha2";
    case KDCRT_CPU_ARM_SHA512: return "sha512";
    default: return nullptr;
  }
}
