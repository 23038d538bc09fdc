// aes-cbc: AES-CBC of standard input to standard output, streamed in 1 MiB pieces, without
// padding or with PKCS#7 padding as `openssl enc` writes it.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "norvane/crypto/aes.h"
#include "tools/norvane/commands.h"
#include "tools/norvane/io.h"
#include "tools/norvane/options.h"

namespace nvtool {

const char kAesCbcUsage[] =
    "Usage: norvane aes-cbc -e|-d (-K HEX | --key-file FILE) (--iv HEX | --iv-file FILE) [--pad]\n"
    "Encrypts (-e) or decrypts (-d) standard input to standard output with AES in CBC mode.\n"
    "\n"
    "  -e, --encrypt        encrypt\n"
    "  -d, --decrypt        decrypt\n"
    "  -K HEX               the key in hex: 16, 24 or 32 bytes (AES-128, -192, -256)\n"
    "      --key-file FILE  read the key in hex from FILE (surrounding white space ignored), so that\n"
    "                       it need not stand on the command line\n"
    "      --iv HEX         the 16-byte initialisation vector in hex\n"
    "      --iv-file FILE   read the IV in hex from FILE\n"
    "      --pad            PKCS#7 padding: encryption adds 1 to 16 bytes, decryption checks and\n"
    "                       removes them (what `openssl enc` does without -nopad)\n"
    "\n"
    "Without --pad the input must be whole 16-byte blocks. The data is streamed: memory use does not\n"
    "grow with the input, and output is written as it goes. An input that is a regular file is\n"
    "checked before anything is written; from a pipe, a bad length or bad padding shows at the end,\n"
    "after the blocks before it were written.\n"
    "Exit status: 0 done, 1 the input or a key file could not be read or the padding is wrong,\n"
    "2 a usage error (also a bad key, IV or input length).\n";

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

constexpr size_t kPiece = size_t{1} << 20;  // a multiple of the block size

// ReadSecret reads a key or IV file in hex, white space around it dropped; false after reporting
// a file that cannot be read.
bool ReadSecret(const char* path, std::string* text) {
  InputFile in;
  char buffer[1024];
  long got = in.Open(path) ? in.Fill(buffer, sizeof buffer) : -1;
  if (got < 0) {
    Error("aes-cbc: %s: %s", Quote(path).c_str(), std::strerror(errno));
    return false;
  }
  text->assign(buffer, static_cast<size_t>(got));
  const char* kSpace = " \t\r\n";
  size_t first = text->find_first_not_of(kSpace);
  size_t last = text->find_last_not_of(kSpace);
  *text = first == std::string::npos ? "" : text->substr(first, last - first + 1);
  return true;
}

const Option kOptions[] = {
    {"encrypt", 'e', false}, {"decrypt", 'd', false}, {nullptr, 'K', true}, {"iv", 0, true},
    {"key-file", 0, true},   {"iv-file", 0, true},    {"pad", 0, false},
};
enum { kEncrypt, kDecrypt, kKey, kIv, kKeyFile, kIvFile, kPad };

int BadLength(unsigned long long size) {
  Error("aes-cbc: the input is %llu bytes, not a whole number of 16-byte blocks", size);
  return kExitUsage;
}

}  // namespace

int RunAesCbc(int argc, char** argv) {
  int direction = 0;  // 1 encrypt, -1 decrypt
  bool pad = false;
  const char* key_hex = nullptr;
  const char* iv_hex = nullptr;
  const char* key_file = nullptr;
  const char* iv_file = nullptr;
  std::vector<char*> operands;
  bool ok = ParseOptions(argc, argv, kOptions, sizeof kOptions / sizeof kOptions[0], &operands,
                         [&](int option, char* value) {
                           switch (option) {
                             case kEncrypt:
                             case kDecrypt: {
                               const int d = option == kEncrypt ? 1 : -1;
                               if (direction && direction != d) {
                                 UsageError("aes-cbc: -e and -d exclude each other");
                                 return false;
                               }
                               direction = d;
                               break;
                             }
                             case kKey: key_hex = value; break;
                             case kIv: iv_hex = value; break;
                             case kKeyFile: key_file = value; break;
                             case kIvFile: iv_file = value; break;
                             case kPad: pad = true; break;
                           }
                           return true;
                         });
  if (!ok) return kExitUsage;
  if (!operands.empty()) return UsageError("aes-cbc: unexpected argument '%s'", operands[0]);
  if (!direction) return UsageError("aes-cbc: give -e to encrypt or -d to decrypt");
  if (!key_hex == !key_file) return UsageError("aes-cbc: give the key with -K or --key-file, once");
  if (!iv_hex == !iv_file) return UsageError("aes-cbc: give the IV with --iv or --iv-file, once");

  // From here on, one line of error and the usage-error status for bad values.
  std::string key_text = key_hex ? key_hex : "", iv_text = iv_hex ? iv_hex : "";
  if ((key_file && !ReadSecret(key_file, &key_text)) || (iv_file && !ReadSecret(iv_file, &iv_text))) {
    return kExitFailure;
  }
  std::vector<uint8_t> key, iv;
  if (!ParseHex(key_text.c_str(), &key)) {
    Error("aes-cbc: the key is not a hex string");
    return kExitUsage;
  }
  if (key.size() != 16 && key.size() != 24 && key.size() != 32) {
    Error("aes-cbc: the key must be 16, 24 or 32 bytes, not %zu", key.size());
    return kExitUsage;
  }
  if (!ParseHex(iv_text.c_str(), &iv)) {
    Error("aes-cbc: the IV is not a hex string");
    return kExitUsage;
  }
  if (iv.size() != 16) {
    Error("aes-cbc: the IV must be 16 bytes, not %zu", iv.size());
    return kExitUsage;
  }
  InputFile in;
  if (!in.Open("-")) {
    Error("aes-cbc: standard input: %s", std::strerror(errno));
    return kExitFailure;
  }
  const bool strip = pad && direction < 0;
  const long long known = in.Size();  // a regular file is checked before any output
  if (known >= 0 && ((!pad || strip) && known % 16)) return BadLength(static_cast<unsigned long long>(known));

  AESContext ctx;
  CRYPT_AESSetKey(&ctx, 16, key.data(), static_cast<uint32_t>(key.size()), direction > 0);
  CRYPT_AESSetIV(&ctx, iv.data());
  OutputFile out;
  std::unique_ptr<uint8_t[]> buffer(new uint8_t[kPiece + 16]);
  uint8_t last[16];  // when removing padding: the last plaintext block, written once another follows
  bool have_last = false;
  unsigned long long total = 0;
  for (;;) {
    long got = in.Fill(buffer.get(), kPiece);
    if (got < 0) {
      Error("aes-cbc: standard input: %s", std::strerror(errno));
      return kExitFailure;
    }
    total += static_cast<unsigned long long>(got);
    size_t n = static_cast<size_t>(got);
    const bool end = n < kPiece;
    if (end && n % 16) {
      if (!pad || strip) {
        out.Flush();
        return BadLength(total);
      }
    }
    if (end && pad && !strip) {
      const size_t fill = 16 - n % 16;
      std::memset(buffer.get() + n, static_cast<int>(fill), fill);
      n += fill;
    }
    if (n > 0) {
      if (direction > 0) {
        CRYPT_AESEncrypt(&ctx, buffer.get(), buffer.get(), static_cast<int>(n));
      } else {
        CRYPT_AESDecrypt(&ctx, buffer.get(), buffer.get(), static_cast<int>(n));
      }
      if (strip) {
        if (have_last) out.Write(last, 16);
        std::memcpy(last, buffer.get() + n - 16, 16);
        have_last = true;
        n -= 16;
      }
      if (!out.Write(buffer.get(), n)) return kExitFailure;
    }
    if (end) break;
  }
  if (strip) {
    const uint8_t fill = last[15];
    bool good = have_last && fill >= 1 && fill <= 16;
    for (int i = 16 - (good ? fill : 0); good && i < 16; ++i) good = last[i] == fill;
    if (!good) {
      out.Flush();
      Error("aes-cbc: bad padding: wrong key or IV, or the input is not padded");
      return kExitFailure;
    }
    out.Write(last, 16u - fill);
  }
  return out.Flush() ? kExitOk : kExitFailure;
}

}  // namespace nvtool
