// sha1sum, sha256sum, sha384sum, sha512sum: print or check digests of files, as the coreutils
// commands of those names do in their everyday use.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "norvane/crypto/sha.h"
#include "norvane/streams/file_cache.h"
#include "norvane/streams/file_stream.h"
#include "tools/norvane/commands.h"

namespace nvtool {

namespace {

// Files are read in 64 KiB pieces through a cache of four such chunks.
constexpr int kPiece = 1 << 16;
constexpr int kCacheChunks = 4;

struct Algorithm {
  const char* command;
  size_t size;  // digest bytes
  void (*start)(void*);
  void (*update)(void*, const uint8_t*, uint32_t);
  void (*finish)(void*, uint8_t*);
};

const Algorithm kSha1 = {"sha1sum", 20, CRYPT_SHA1Start, CRYPT_SHA1Update,
                         [](void* c, uint8_t* d) { CRYPT_SHA1Finish(c, d); }};
const Algorithm kSha256 = {"sha256sum", 32, CRYPT_SHA256Start, CRYPT_SHA256Update,
                           [](void* c, uint8_t* d) { CRYPT_SHA256Finish(c, d); }};
const Algorithm kSha384 = {"sha384sum", 48, CRYPT_SHA384Start, CRYPT_SHA384Update,
                           [](void* c, uint8_t* d) { CRYPT_SHA384Finish(c, d); }};
const Algorithm kSha512 = {"sha512sum", 64, CRYPT_SHA512Start, CRYPT_SHA512Update,
                           [](void* c, uint8_t* d) { CRYPT_SHA512Finish(c, d); }};

// ReadFile calls consume on successive pieces of the named file ("-" is standard input). On
// failure it returns false with errno set. All file reading of these commands goes through here:
// named files through the library's file stream and cached reader, standard input (which may be
// a pipe, with no size to read up to) with read(2).
template <class Consume>
bool ReadFile(const char* name, Consume consume) {
  static unsigned char buffer[kPiece];
  if (std::strcmp(name, "-") == 0) {
    for (;;) {
      ssize_t got = read(STDIN_FILENO, buffer, sizeof buffer);
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) return false;
      if (got == 0) return true;
      consume(buffer, static_cast<size_t>(got));
    }
  }
  struct stat st;
  if (stat(name, &st) == 0 && S_ISDIR(st.st_mode)) {
    errno = EISDIR;  // a folder opens, but has no bytes to digest
    return false;
  }
  IKD_FileRead* file = KD_CreateFileRead(name);
  if (!file) return false;  // errno says why the file could not be opened
  static unsigned char chunks[kCacheChunks * kPiece];
  CKD_CachedFileRead* reader = new CKD_CachedFileRead;
  if (!reader || !reader->Init(kPiece, kCacheChunks, chunks, nullptr) || !reader->AttachFile(file, true)) {
    if (reader) reader->Release();
    file->Release();
    errno = ENOMEM;
    return false;
  }
  // Offsets are kept here, in 64 bits: the reader's own position is 32-bit.
  const long long size = reader->GetSize();
  bool ok = true;
  for (long long offset = 0; offset < size;) {
    size_t n = size - offset < kPiece ? static_cast<size_t>(size - offset) : kPiece;
    if (!reader->ReadBlock(buffer, offset, n)) {
      errno = EIO;
      ok = false;
      break;
    }
    consume(buffer, n);
    offset += static_cast<long long>(n);
  }
  reader->Release();
  return ok;
}

bool DigestFile(const Algorithm& algo, const char* name, uint8_t* digest) {
  alignas(8) unsigned char ctx[sizeof(CRYPT_SHA512Context)];
  algo.start(ctx);
  if (!ReadFile(name, [&](const unsigned char* p, size_t n) { algo.update(ctx, p, static_cast<uint32_t>(n)); })) {
    return false;
  }
  algo.finish(ctx, digest);
  return true;
}

std::string Hex(const uint8_t* data, size_t size) {
  static const char kDigits[] = "0123456789abcdef";
  std::string s;
  for (size_t i = 0; i < size; ++i) {
    s += kDigits[data[i] >> 4];
    s += kDigits[data[i] & 15];
  }
  return s;
}

// A name holding a backslash or a newline is written escaped, and its line starts with a
// backslash, as coreutils does.
bool NeedsEscape(const std::string& name) { return name.find_first_of("\\\n") != std::string::npos; }

std::string Escape(const std::string& name) {
  std::string out;
  for (char c : name) {
    if (c == '\\') {
      out += "\\\\";
    } else if (c == '\n') {
      out += "\\n";
    } else {
      out += c;
    }
  }
  return out;
}

bool Unescape(const std::string& in, std::string* out) {
  out->clear();
  for (size_t i = 0; i < in.size(); ++i) {
    if (in[i] != '\\') {
      *out += in[i];
      continue;
    }
    if (++i == in.size()) return false;
    if (in[i] == '\\') {
      *out += '\\';
    } else if (in[i] == 'n') {
      *out += '\n';
    } else {
      return false;
    }
  }
  return true;
}

int PrintDigests(const Algorithm& algo, int count, char** names) {
  int status = kExitOk;
  for (int i = 0; i < count; ++i) {
    uint8_t digest[64];
    if (!DigestFile(algo, names[i], digest)) {
      Error("%s: %s", names[i], std::strerror(errno));
      status = kExitFailure;
      continue;
    }
    const std::string name = names[i];
    if (NeedsEscape(name)) {
      std::printf("\\%s  %s\n", Hex(digest, algo.size).c_str(), Escape(name).c_str());
    } else {
      std::printf("%s  %s\n", Hex(digest, algo.size).c_str(), name.c_str());
    }
  }
  return status;
}

// Parses "<hex>  <name>" or "<hex> *<name>" (either case of hex, an optional leading backslash for
// an escaped name) into the lower-case hex and the name.
bool ParseCheckLine(const Algorithm& algo, std::string line, std::string* hex, std::string* name) {
  if (!line.empty() && line.back() == '\r') line.pop_back();
  bool escaped = false;
  if (!line.empty() && line[0] == '\\') {
    escaped = true;
    line.erase(0, 1);
  }
  const size_t digits = 2 * algo.size;
  if (line.size() < digits + 2 || line[digits] != ' ' || (line[digits + 1] != ' ' && line[digits + 1] != '*')) {
    return false;
  }
  hex->clear();
  for (size_t i = 0; i < digits; ++i) {
    char c = line[i];
    if (c >= 'A' && c <= 'F') c = static_cast<char>(c - 'A' + 'a');
    if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))) return false;
    *hex += c;
  }
  const std::string raw = line.substr(digits + 2);
  if (raw.empty()) return false;
  if (!escaped) {
    *name = raw;
    return true;
  }
  return Unescape(raw, name);
}

const char* Plural(long n, const char* one, const char* many) { return n == 1 ? one : many; }

int CheckLists(const Algorithm& algo, int count, char** lists) {
  int status = kExitOk;
  for (int i = 0; i < count; ++i) {
    long good_lines = 0, bad_lines = 0, mismatched = 0, unreadable = 0;
    std::string text;
    if (!ReadFile(lists[i], [&](const unsigned char* p, size_t n) { text.append(reinterpret_cast<const char*>(p), n); })) {
      Error("%s: %s", lists[i], std::strerror(errno));
      status = kExitFailure;
      continue;
    }
    size_t at = 0;
    while (at < text.size()) {
      size_t end = text.find('\n', at);
      if (end == std::string::npos) end = text.size();
      const std::string line = text.substr(at, end - at);
      at = end + 1;
      std::string hex, name;
      if (!ParseCheckLine(algo, line, &hex, &name)) {
        ++bad_lines;
        continue;
      }
      ++good_lines;
      uint8_t digest[64];
      if (!DigestFile(algo, name.c_str(), digest)) {
        Error("%s: %s", name.c_str(), std::strerror(errno));
        std::printf("%s: FAILED open or read\n", name.c_str());
        ++unreadable;
      } else if (Hex(digest, algo.size) == hex) {
        std::printf("%s: OK\n", name.c_str());
      } else {
        std::printf("%s: FAILED\n", name.c_str());
        ++mismatched;
      }
    }
    if (good_lines == 0) {
      Error("%s: no properly formatted checksum lines found", lists[i]);
      status = kExitFailure;
      continue;
    }
    if (bad_lines) {
      Error("WARNING: %ld %s improperly formatted", bad_lines, Plural(bad_lines, "line is", "lines are"));
    }
    if (unreadable) {
      Error("WARNING: %ld listed %s could not be read", unreadable, Plural(unreadable, "file", "files"));
    }
    if (mismatched) {
      Error("WARNING: %ld computed %s did NOT match", mismatched, Plural(mismatched, "checksum", "checksums"));
    }
    if (unreadable || mismatched) status = kExitFailure;
  }
  return status;
}

int RunDigest(const Algorithm& algo, int argc, char** argv) {
  bool check = false;
  int first = 1;
  for (; first < argc; ++first) {
    const char* arg = argv[first];
    if (std::strcmp(arg, "--") == 0) {
      ++first;
      break;
    }
    if (arg[0] != '-' || arg[1] == '\0') break;  // a name, or "-" for standard input
    if (std::strcmp(arg, "-c") == 0 || std::strcmp(arg, "--check") == 0) {
      check = true;
    } else {
      return UsageError("%s: unknown option '%s'", algo.command, arg);
    }
  }
  static char kStdin[] = "-";
  static char* kStdinList[] = {kStdin};
  int count = argc - first;
  char** names = argv + first;
  if (count == 0) {
    count = 1;
    names = kStdinList;
  }
  // Output interleaves with diagnostics in the order the files are met, as coreutils does.
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  return check ? CheckLists(algo, count, names) : PrintDigests(algo, count, names);
}

}  // namespace

int RunSha1Sum(int argc, char** argv) { return RunDigest(kSha1, argc, argv); }
int RunSha256Sum(int argc, char** argv) { return RunDigest(kSha256, argc, argv); }
int RunSha384Sum(int argc, char** argv) { return RunDigest(kSha384, argc, argv); }
int RunSha512Sum(int argc, char** argv) { return RunDigest(kSha512, argc, argv); }

}  // namespace nvtool
