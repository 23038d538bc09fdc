// norvane <command> [args]: dispatches to the command table.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "tools/norvane/commands.h"

namespace nvtool {

const Command kCommands[] = {
    {"help", "", "show this help", RunHelp},
    {"version", "", "show the version, build, compiler and detected processor features", RunVersion},
    {"sha1sum", "[-c] [FILE]...", "print or check SHA-1 digests", RunSha1Sum},
    {"sha256sum", "[-c] [FILE]...", "print or check SHA-256 digests", RunSha256Sum},
    {"sha384sum", "[-c] [FILE]...", "print or check SHA-384 digests", RunSha384Sum},
    {"sha512sum", "[-c] [FILE]...", "print or check SHA-512 digests", RunSha512Sum},
    {"aes-cbc", "-e|-d -K KEY --iv IV", "AES-CBC of stdin to stdout, no padding (hex key, IV)", RunAesCbc},
    {"iconv", "-f FROM -t TO [FILE]", "convert text between code pages, UTF-8 and UTF-16 (see iconv --help)", RunIconv},
    {"guid", "[-n N]", "print N version-4 GUIDs (default 1)", RunGuid},
    {"random", "[-n BYTES] [--seed HEX] [--hex]", "random bytes, reproducible from a hex seed (default 32 bytes)", RunRandom},
    {"base64", "[-d] [FILE]", "encode to or decode from Base64 on one line (see base64 --help)", RunBase64},
};
const size_t kCommandCount = sizeof(kCommands) / sizeof(kCommands[0]);

void PrintUsage(bool to_stderr) {
  FILE* out = to_stderr ? stderr : stdout;
  std::fprintf(out, "Usage: norvane <command> [args]\n\nCommands:\n");
  // The synopses line up in one column, as wide as the longest.
  int width = 0;
  for (size_t i = 0; i < kCommandCount; ++i) {
    int w = static_cast<int>(std::strlen(kCommands[i].name) + 1 + std::strlen(kCommands[i].args));
    if (w > width) width = w;
  }
  for (size_t i = 0; i < kCommandCount; ++i) {
    char left[128];
    std::snprintf(left, sizeof left, "%s %s", kCommands[i].name, kCommands[i].args);
    std::fprintf(out, "  %-*s  %s\n", width, left, kCommands[i].summary);
  }
  std::fprintf(out, "\n--help and --version are the help and version commands.\n");
}

static void VError(const char* format, va_list args) {
  std::fputs("norvane: ", stderr);
  std::vfprintf(stderr, format, args);
  std::fputc('\n', stderr);
}

void Error(const char* format, ...) {
  va_list args;
  va_start(args, format);
  VError(format, args);
  va_end(args);
}

int UsageError(const char* format, ...) {
  va_list args;
  va_start(args, format);
  VError(format, args);
  va_end(args);
  PrintUsage(true);
  return kExitUsage;
}

}  // namespace nvtool

int main(int argc, char** argv) {
  using namespace nvtool;
  if (argc < 2) return UsageError("missing command");
  const char* name = argv[1];
  if (std::strcmp(name, "--help") == 0 || std::strcmp(name, "-h") == 0) name = "help";
  if (std::strcmp(name, "--version") == 0) name = "version";
  const Command* command = nullptr;
  for (size_t i = 0; i < kCommandCount; ++i) {
    if (std::strcmp(name, kCommands[i].name) == 0) command = &kCommands[i];
  }
  if (!command) return UsageError("unknown command '%s'", argv[1]);
  int status = command->run(argc - 1, argv + 1);
  // Output that could not be written is a failure, as in the standard tools.
  if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
    Error("write error");
    return status == kExitOk ? kExitFailure : status;
  }
  return status;
}
