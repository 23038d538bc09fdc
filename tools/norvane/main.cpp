// norvane <command> [args]: dispatches to the command table.
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "tools/norvane/commands.h"

namespace nvtool {

const Command kCommands[] = {
    {"help", "[COMMAND]", "show this help, or the usage of a command", RunHelp, kHelpUsage},
    {"version", "", "show the version, build, compiler and detected processor features", RunVersion, kVersionUsage},
    {"sha1sum", "[OPTION]... [FILE]...", "print or check SHA-1 digests", RunSha1Sum, kSha1SumUsage},
    {"sha256sum", "[OPTION]... [FILE]...", "print or check SHA-256 digests", RunSha256Sum, kSha256SumUsage},
    {"sha384sum", "[OPTION]... [FILE]...", "print or check SHA-384 digests", RunSha384Sum, kSha384SumUsage},
    {"sha512sum", "[OPTION]... [FILE]...", "print or check SHA-512 digests", RunSha512Sum, kSha512SumUsage},
    {"aes-cbc", "-e|-d KEY IV [--pad]", "AES-CBC of stdin to stdout", RunAesCbc, kAesCbcUsage},
    {"iconv", "-f FROM -t TO [FILE]...", "convert text between code pages, UTF-8 and UTF-16", RunIconv, kIconvUsage},
    {"guid", "[-n N]", "print N version-4 GUIDs (default 1)", RunGuid, kGuidUsage},
    {"random", "[-n BYTES] [--seed HEX] [--hex]", "random bytes, reproducible from a hex seed (default 32 bytes)",
     RunRandom, kRandomUsage},
    {"base64", "[-d] [FILE]", "encode to or decode from Base64 on one line", RunBase64, kBase64Usage},
    {"url", "MODE [TEXT]...", "percent-encode or decode URLs and URIs", RunUrl, kUrlUsage},
    {"prime", "--bits N [--seed HEX]", "a random prime of N bits, drawn as key generation draws one", RunPrime,
     kPrimeUsage},
    {"rsa", "SUBCOMMAND [OPTION]... [FILE]", "RSA keys, SHA-1 signatures, raw RSA, keys as PEM", RunRsa, kRsaUsage},
    {"dsa", "SUBCOMMAND [OPTION]... [FILE]", "DSA keys and SHA-1 signatures, keys as PEM", RunDsa, kDsaUsage},
};
const size_t kCommandCount = sizeof(kCommands) / sizeof(kCommands[0]);

namespace {

const Command* g_running = nullptr;  // the command whose usage errors point to its help

}  // namespace

const Command* FindCommand(const char* name) {
  for (size_t i = 0; i < kCommandCount; ++i) {
    if (std::strcmp(name, kCommands[i].name) == 0) return &kCommands[i];
  }
  return nullptr;
}

void PrintUsage() {
  std::printf("Usage: norvane <command> [args]\n\nCommands:\n");
  // The synopses line up in one column, as wide as the longest.
  int width = 0;
  for (size_t i = 0; i < kCommandCount; ++i) {
    int w = static_cast<int>(std::strlen(kCommands[i].name) + 1 + std::strlen(kCommands[i].args));
    if (w > width) width = w;
  }
  for (size_t i = 0; i < kCommandCount; ++i) {
    char left[128];
    std::snprintf(left, sizeof left, "%s %s", kCommands[i].name, kCommands[i].args);
    std::printf("  %-*s  %s\n", width, left, kCommands[i].summary);
  }
  std::printf("\n'norvane help COMMAND' or 'norvane COMMAND --help' shows the usage of a command.\n"
              "--help and --version are the help and version commands.\n");
}

void PrintCommandUsage(const Command& command) {
  if (command.usage) {
    std::fputs(command.usage, stdout);
  } else {
    std::printf("Usage: norvane %s %s\n%s\n", command.name, command.args, command.summary);
  }
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
  if (g_running) {
    std::fprintf(stderr, "Try 'norvane help %s'.\n", g_running->name);
  } else {
    std::fputs("Try 'norvane help'.\n", stderr);
  }
  return kExitUsage;
}

}  // namespace nvtool

int main(int argc, char** argv) {
  using namespace nvtool;
  if (argc < 2) return UsageError("missing command");
  const char* name = argv[1];
  if (std::strcmp(name, "--help") == 0 || std::strcmp(name, "-h") == 0) name = "help";
  if (std::strcmp(name, "--version") == 0) name = "version";
  const Command* command = FindCommand(name);
  if (!command) return UsageError("unknown command '%s'", argv[1]);
  g_running = command;
  int status = kExitOk;
  bool help = false;
  for (int i = 2; i < argc && std::strcmp(argv[i], "--") != 0; ++i) help = help || std::strcmp(argv[i], "--help") == 0;
  if (help) {
    PrintCommandUsage(*command);
  } else {
    status = command->run(argc - 1, argv + 1);
  }
  // Output that could not be written is a failure, as in the standard tools.
  errno = 0;
  if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
    if (errno) {
      Error("write error: %s", std::strerror(errno));
    } else {
      Error("write error");
    }
    return status == kExitOk ? kExitFailure : status;
  }
  return status;
}
