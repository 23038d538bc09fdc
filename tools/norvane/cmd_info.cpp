// The help and version commands.
#include <cstdio>

#include "norvane/config.h"
#include "norvane/runtime/cpu_features_internal.h"
#include "tools/norvane/commands.h"

namespace nvtool {

namespace {

const char* Compiler() {
#if defined(__clang__)
  return "Clang " __clang_version__;
#elif defined(__GNUC__)
  return "GCC " __VERSION__;
#else
  return "unknown";
#endif
}

const char* Architecture() {
#if defined(__x86_64__)
  return "x86_64";
#elif defined(__aarch64__)
  return "aarch64";
#else
  return "unknown";
#endif
}

}  // namespace

const char kHelpUsage[] =
    "Usage: norvane help [COMMAND]\n"
    "Lists the commands, or prints the usage of COMMAND (as 'norvane COMMAND --help' does).\n";

const char kVersionUsage[] =
    "Usage: norvane version\n"
    "Prints the version, the build type, the compiler and the processor features the library detects.\n";

int RunHelp(int argc, char** argv) {
  if (argc > 2) return UsageError("help: unexpected argument '%s'", argv[2]);
  if (argc == 1) {
    PrintUsage();
    return kExitOk;
  }
  const Command* command = FindCommand(argv[1]);
  if (!command) return UsageError("help: unknown command '%s'", argv[1]);
  PrintCommandUsage(*command);
  return kExitOk;
}

int RunVersion(int argc, char** argv) {
  if (argc > 1) return UsageError("version: unexpected argument '%s'", argv[1]);
  std::printf("norvane %s\n", NORVANE_VERSION_STRING);
  std::printf("build type: %s\n", NORVANE_BUILD_TYPE[0] ? NORVANE_BUILD_TYPE : "none");
  std::printf("compiler: %s\n", Compiler());
  std::printf("processor: %s", Architecture());
  uint32_t features = KDCRT_GetCpuFeatures();
  const char* sep = " (";
  for (uint32_t bit = 1; bit; bit <<= 1) {
    if (!(features & bit)) continue;
    if (const char* name = KDCRT_CpuFeatureName(bit)) {
      std::printf("%s%s", sep, name);
      sep = " ";
    }
  }
  std::printf("%s\n", features ? ")" : "");
  return kExitOk;
}

}  // namespace nvtool
