// aes-cbc -e|-d -K <hex key> --iv <hex iv>: AES-CBC of standard input to standard output, with no
// padding. Bad keys, IVs and inputs that are not whole blocks are refused before any output.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "norvane/crypto/aes.h"
#include "tools/norvane/commands.h"

namespace nvtool {

bool ParseHex(const char* text, std::vector<uint8_t>* out) {
  out->clear();
  const size_t n = std::strlen(text);
  if (n == 0 || n % 2) return false;
  for (size_t i = 0; i < n; i += 2) {
    int v = 0;
    for (size_t j = i; j < i + 2; ++j) {
      const char c = text[j];
      int d;
      if (c >= '0' && c <= '9') {
        d = c - '0';
      } else if (c >= 'a' && c <= 'f') {
        d = c - 'a' + 10;
      } else if (c >= 'A' && c <= 'F') {
        d = c - 'A' + 10;
      } else {
        return false;
      }
      v = v * 16 + d;
    }
    out->push_back(static_cast<uint8_t>(v));
  }
  return true;
}

namespace {

bool ReadAll(int fd, std::vector<uint8_t>* out) {
  uint8_t buffer[1 << 16];
  for (;;) {
    ssize_t got = read(fd, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return false;
    if (got == 0) return true;
    out->insert(out->end(), buffer, buffer + got);
  }
}

}  // namespace

int RunAesCbc(int argc, char** argv) {
  int direction = 0;  // 1 encrypt, -1 decrypt
  const char* key_hex = nullptr;
  const char* iv_hex = nullptr;
  for (int i = 1; i < argc; ++i) {
    const char* arg = argv[i];
    if (std::strcmp(arg, "-e") == 0 || std::strcmp(arg, "-d") == 0) {
      const int d = arg[1] == 'e' ? 1 : -1;
      if (direction && direction != d) return UsageError("aes-cbc: -e and -d exclude each other");
      direction = d;
    } else if (std::strcmp(arg, "-K") == 0 || std::strcmp(arg, "--iv") == 0) {
      if (i + 1 == argc) return UsageError("aes-cbc: %s needs a value", arg);
      (arg[1] == 'K' ? key_hex : iv_hex) = argv[++i];
    } else {
      return UsageError("aes-cbc: unexpected argument '%s'", arg);
    }
  }
  if (!direction) return UsageError("aes-cbc: give -e to encrypt or -d to decrypt");
  if (!key_hex || !iv_hex) return UsageError("aes-cbc: give the key with -K and the IV with --iv");

  // From here on, one line of error and the usage-error status.
  std::vector<uint8_t> key, iv, data;
  if (!ParseHex(key_hex, &key)) {
    Error("aes-cbc: the key is not a hex string");
    return kExitUsage;
  }
  if (key.size() != 16 && key.size() != 24 && key.size() != 32) {
    Error("aes-cbc: the key must be 16, 24 or 32 bytes, not %zu", key.size());
    return kExitUsage;
  }
  if (!ParseHex(iv_hex, &iv)) {
    Error("aes-cbc: the IV is not a hex string");
    return kExitUsage;
  }
  if (iv.size() != 16) {
    Error("aes-cbc: the IV must be 16 bytes, not %zu", iv.size());
    return kExitUsage;
  }
  if (!ReadAll(STDIN_FILENO, &data)) {
    Error("aes-cbc: standard input: %s", std::strerror(errno));
    return kExitFailure;
  }
  if (data.size() % 16) {
    Error("aes-cbc: the input is %zu bytes, not a whole number of 16-byte blocks", data.size());
    return kExitUsage;
  }
  AESContext ctx;
  CRYPT_AESSetKey(&ctx, 16, key.data(), static_cast<uint32_t>(key.size()), direction > 0);
  CRYPT_AESSetIV(&ctx, iv.data());
  // The library takes an int size; go in slices well inside it, the chaining value carrying over.
  const size_t kSlice = size_t{1} << 30;
  for (size_t at = 0; at < data.size(); at += kSlice) {
    const int n = static_cast<int>(std::min(kSlice, data.size() - at));
    if (direction > 0) {
      CRYPT_AESEncrypt(&ctx, data.data() + at, data.data() + at, n);
    } else {
      CRYPT_AESDecrypt(&ctx, data.data() + at, data.data() + at, n);
    }
  }
  if (!data.empty()) std::fwrite(data.data(), 1, data.size(), stdout);
  return kExitOk;
}

}  // namespace nvtool
