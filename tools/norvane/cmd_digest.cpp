// sha1sum, sha256sum, sha384sum, sha512sum: print or check digests of files with the options,
// line formats, escaping, messages and exit statuses of the coreutils commands of those names.
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "norvane/crypto/sha.h"
#include "tools/norvane/commands.h"
#include "tools/norvane/io.h"
#include "tools/norvane/options.h"

namespace nvtool {

#define NVTOOL_DIGEST_USAGE(command, algorithm)                                                        \
  "Usage: norvane " command " [OPTION]... [FILE]...\n"                                                  \
  "Print or check " algorithm " digests. With no FILE, or when FILE is -, read standard input.\n"      \
  "\n"                                                                                                  \
  "  -b, --binary         write '*' before the name (files are always read as bytes)\n"                 \
  "  -c, --check          read digests from the FILEs and check them\n"                                 \
  "      --tag            write BSD-style lines: " algorithm " (NAME) = DIGEST\n"                       \
  "  -t, --text           write ' ' before the name (the default)\n"                                    \
  "  -z, --zero           end each output line with NUL instead of newline, names unescaped\n"          \
  "\n"                                                                                                  \
  "When checking:\n"                                                                                    \
  "      --ignore-missing  say nothing of listed files that do not exist\n"                             \
  "      --quiet          do not print OK for each file that matches\n"                                 \
  "      --status         print nothing; the exit status tells\n"                                       \
  "      --strict         fail on lines that are not digest lines\n"                                    \
  "  -w, --warn           warn about each line that is not a digest line\n"                             \
  "\n"                                                                                                  \
  "Lines are DIGEST, a space, ' ' or '*', and the name; or the --tag form. A name holding a\n"          \
  "backslash, newline or carriage return is written with \\\\, \\n or \\r, and its line starts with a\n" \
  "backslash; lines starting with # are comments. Options may follow the FILEs; -- ends them.\n"        \
  "Exit status: 0 all done (and all checks matched), 1 a file could not be read or a check failed,\n"   \
  "2 a usage error.\n"

const char kSha1SumUsage[] = NVTOOL_DIGEST_USAGE("sha1sum", "SHA1");
const char kSha256SumUsage[] = NVTOOL_DIGEST_USAGE("sha256sum", "SHA256");
const char kSha384SumUsage[] = NVTOOL_DIGEST_USAGE("sha384sum", "SHA384");
const char kSha512SumUsage[] = NVTOOL_DIGEST_USAGE("sha512sum", "SHA512");

#undef NVTOOL_DIGEST_USAGE

namespace {

constexpr size_t kPiece = 1 << 18;

struct Algorithm {
  const char* tag;  // the name in BSD lines and messages
  size_t size;      // digest bytes
  void (*start)(void*);
  void (*update)(void*, const uint8_t*, uint32_t);
  void (*finish)(void*, uint8_t*);
};

const Algorithm kSha1 = {"SHA1", 20, CRYPT_SHA1Start, CRYPT_SHA1Update,
                         [](void* c, uint8_t* d) { CRYPT_SHA1Finish(c, d); }};
const Algorithm kSha256 = {"SHA256", 32, CRYPT_SHA256Start, CRYPT_SHA256Update,
                           [](void* c, uint8_t* d) { CRYPT_SHA256Finish(c, d); }};
const Algorithm kSha384 = {"SHA384", 48, CRYPT_SHA384Start, CRYPT_SHA384Update,
                           [](void* c, uint8_t* d) { CRYPT_SHA384Finish(c, d); }};
const Algorithm kSha512 = {"SHA512", 64, CRYPT_SHA512Start, CRYPT_SHA512Update,
                           [](void* c, uint8_t* d) { CRYPT_SHA512Finish(c, d); }};

struct Settings {
  const Algorithm* algo;
  bool check = false;
  bool tag = false;
  int binary = -1;  // -1 unset, 0 text (-t), 1 binary (-b, --tag)
  char delim = '\n';
  bool ignore_missing = false, quiet = false, status_only = false, strict = false, warn = false;
};

enum DigestResult { kDigested, kMissing, kUnreadable };

// DigestFile hashes a whole input. A file that does not exist answers kMissing when missing files
// are ignored; any other failure is reported and answers kUnreadable.
DigestResult DigestFile(const Settings& s, const std::string& name, uint8_t* digest, std::vector<uint8_t>& buffer) {
  InputFile in;
  if (!in.Open(name.c_str())) {
    if (s.ignore_missing && errno == ENOENT) return kMissing;
    Error("%s: %s", Quote(name).c_str(), std::strerror(errno));
    return kUnreadable;
  }
  alignas(8) unsigned char ctx[sizeof(CRYPT_SHA512Context)];
  s.algo->start(ctx);
  for (;;) {
    long got = in.Read(buffer.data(), buffer.size());
    if (got < 0) {
      Error("%s: %s", Quote(name).c_str(), std::strerror(errno));
      return kUnreadable;
    }
    if (got == 0) break;
    s.algo->update(ctx, buffer.data(), static_cast<uint32_t>(got));
  }
  s.algo->finish(ctx, digest);
  return kDigested;
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

// Names are escaped (and their line marked with a leading backslash) when they hold one of these.
bool Problematic(const std::string& name) { return name.find_first_of("\\\n\r") != std::string::npos; }

void PutName(const std::string& name, bool escape) {
  if (!escape) {
    std::fwrite(name.data(), 1, name.size(), stdout);
    return;
  }
  for (char c : name) {
    if (c == '\\') {
      std::fputs("\\\\", stdout);
    } else if (c == '\n') {
      std::fputs("\\n", stdout);
    } else if (c == '\r') {
      std::fputs("\\r", stdout);
    } else {
      std::putchar(c);
    }
  }
}

void PrintLine(const Settings& s, const std::string& name, const uint8_t* digest) {
  const bool escape = s.delim == '\n' && Problematic(name);
  if (escape) std::putchar('\\');
  if (s.tag) {
    std::printf("%s (", s.algo->tag);
    PutName(name, escape);
    std::printf(") = %s", Hex(digest, s.algo->size).c_str());
  } else {
    std::printf("%s %c", Hex(digest, s.algo->size).c_str(), s.binary == 1 ? '*' : ' ');
    PutName(name, escape);
  }
  std::putchar(s.delim);
}

// Unescape undoes the escaping of a name in place: only \\, \n and \r; false for any other
// escape, a backslash at the end or a NUL.
bool Unescape(std::string* name) {
  std::string out;
  for (size_t i = 0; i < name->size(); ++i) {
    char c = (*name)[i];
    if (c == '\0') return false;
    if (c != '\\') {
      out += c;
      continue;
    }
    if (++i == name->size()) return false;
    c = (*name)[i];
    if (c == 'n') {
      out += '\n';
    } else if (c == 'r') {
      out += '\r';
    } else if (c == '\\') {
      out += '\\';
    } else {
      return false;
    }
  }
  *name = out;
  return true;
}

std::string Lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

bool IsWhite(char c) { return c == ' ' || c == '\t'; }

bool AllHex(const std::string& s, size_t digits) {
  if (s.size() != digits) return false;
  for (char c : s) {
    if (!std::isxdigit(static_cast<unsigned char>(c))) return false;
  }
  return true;
}

// The parser of check lines keeps, across all lines of all lists, whether it met the reversed
// BSD form "DIGEST NAME" (one space, no mode character) or the standard form first: the two are
// never mixed, so that a name starting with a space or '*' cannot be misread.
struct LineParser {
  const Algorithm* algo;
  int bsd_reversed = -1;

  // Parse splits a line (without its end) into the digest in hex and the name.
  bool Parse(const std::string& line, std::string* hex, std::string* name) {
    const size_t digits = 2 * algo->size;
    size_t i = 0;
    while (i < line.size() && IsWhite(line[i])) ++i;
    bool escaped = false;
    if (i < line.size() && line[i] == '\\') {
      escaped = true;
      ++i;
    }
    const size_t tag_len = std::strlen(algo->tag);
    if (line.compare(i, tag_len, algo->tag) == 0) {
      // BSD form: TAG (NAME) = DIGEST, the name running to the last ')'.
      i += tag_len;
      if (i < line.size() && line[i] == ' ') ++i;
      if (i >= line.size() || line[i] != '(') return false;
      ++i;
      size_t close = line.rfind(')');
      if (close == std::string::npos || close < i) return false;
      *name = line.substr(i, close - i);
      if (escaped && !Unescape(name)) return false;
      size_t j = close + 1;
      while (j < line.size() && IsWhite(line[j])) ++j;
      if (j >= line.size() || line[j] != '=') return false;
      ++j;
      while (j < line.size() && IsWhite(line[j])) ++j;
      *hex = line.substr(j);
      return AllHex(*hex, digits);
    }
    if (line.size() - i < digits + 2 + (i < line.size() && line[i] == '\\')) return false;
    *hex = line.substr(i, digits);
    i += digits;
    if (!IsWhite(line[i])) return false;
    ++i;
    if (!AllHex(*hex, digits)) return false;
    if (line.size() - i == 1 || (line[i] != ' ' && line[i] != '*')) {
      if (bsd_reversed == 0) return false;
      bsd_reversed = 1;
    } else if (bsd_reversed != 1) {
      bsd_reversed = 0;
      ++i;  // the mode character
    }
    *name = line.substr(i);
    return !escaped || Unescape(name);
  }
};

const char* Plural(long n, const char* one, const char* many) { return n == 1 ? one : many; }

// LineReader reads an input line by line.
class LineReader {
 public:
  explicit LineReader(InputFile* in) : in_(in), buffer_(kPiece) {}
  // Next reads the next line (without its '\n'); false at the end, or on a read error with *failed
  // set.
  bool Next(std::string* line, bool* failed) {
    line->clear();
    for (;;) {
      if (at_ == end_) {
        long got = in_->Read(buffer_.data(), buffer_.size());
        if (got <= 0) {
          *failed = got < 0;
          return !*failed && !line->empty();
        }
        at_ = 0;
        end_ = static_cast<size_t>(got);
      }
      const char* start = buffer_.data() + at_;
      const char* nl = static_cast<const char*>(std::memchr(start, '\n', end_ - at_));
      size_t n = nl ? static_cast<size_t>(nl - start) : end_ - at_;
      line->append(start, n);
      at_ += n + (nl ? 1 : 0);
      if (nl) return true;
    }
  }

 private:
  InputFile* in_;
  std::vector<char> buffer_;
  size_t at_ = 0, end_ = 0;
};

// CheckList checks every line of one list; false when the list fails.
bool CheckList(const Settings& s, LineParser& parser, const std::string& path, std::vector<uint8_t>& buffer) {
  const bool is_stdin = path == "-";
  const std::string list = is_stdin ? "standard input" : path;
  InputFile in;
  if (!in.Open(path.c_str())) {
    if (errno == EISDIR) {  // a folder opens; reading it fails
      Error("%s: read error", Quote(list).c_str());
    } else {
      Error("%s: %s", Quote(list).c_str(), std::strerror(errno));
    }
    return false;
  }
  long line_number = 0, misformatted = 0, mismatched = 0, unreadable = 0;
  bool properly_formatted = false, matched = false, failed = false;
  LineReader reader(&in);
  std::string line, hex, name;
  while (reader.Next(&line, &failed)) {
    ++line_number;
    if (line.empty() || line[0] == '#') continue;
    if (line.back() == '\r') line.pop_back();
    if (!parser.Parse(line, &hex, &name) || (is_stdin && name == "-")) {
      ++misformatted;
      if (s.warn) {
        Error("%s: %ld: improperly formatted %s checksum line", Quote(list).c_str(), line_number, s.algo->tag);
      }
      continue;
    }
    properly_formatted = true;
    // Only a name that would break the line is escaped here, to keep the output easy to read.
    const bool escape = !s.status_only && name.find('\n') != std::string::npos;
    uint8_t digest[64];
    DigestResult result = DigestFile(s, name, digest, buffer);
    if (result == kMissing) continue;
    const char* verdict = nullptr;
    if (result == kUnreadable) {
      ++unreadable;
      verdict = "FAILED open or read";
    } else if (Hex(digest, s.algo->size) != Lower(hex)) {
      ++mismatched;
      verdict = "FAILED";
    } else {
      matched = true;
      if (!s.quiet) verdict = "OK";
    }
    if (s.status_only || !verdict) continue;
    if (escape) std::putchar('\\');
    PutName(name, escape);
    std::printf(": %s\n", verdict);
  }
  if (failed) {
    Error("%s: read error", Quote(list).c_str());
    return false;
  }
  if (!properly_formatted) {
    Error("%s: no properly formatted checksum lines found", Quote(list).c_str());
    return false;
  }
  if (!s.status_only) {
    if (misformatted) {
      Error("WARNING: %ld %s improperly formatted", misformatted, Plural(misformatted, "line is", "lines are"));
    }
    if (unreadable) {
      Error("WARNING: %ld listed %s could not be read", unreadable, Plural(unreadable, "file", "files"));
    }
    if (mismatched) {
      Error("WARNING: %ld computed %s did NOT match", mismatched, Plural(mismatched, "checksum", "checksums"));
    }
    if (s.ignore_missing && !matched) Error("%s: no file was verified", Quote(list).c_str());
  }
  return mismatched == 0 && unreadable == 0 && (!s.strict || misformatted == 0) && (!s.ignore_missing || matched);
}

// The options, in the order of their indexes below.
const Option kOptions[] = {
    {"binary", 'b', false}, {"check", 'c', false},  {"tag", 0, false},     {"text", 't', false},
    {"zero", 'z', false},   {"ignore-missing", 0, false}, {"quiet", 0, false}, {"status", 0, false},
    {"strict", 0, false},   {"warn", 'w', false},
};
enum { kBinary, kCheck, kTag, kText, kZero, kIgnoreMissing, kQuiet, kStatus, kStrict, kWarn };

int RunDigest(const Algorithm& algo, int argc, char** argv) {
  Settings s;
  s.algo = &algo;
  std::vector<char*> names;
  bool ok = ParseOptions(argc, argv, kOptions, sizeof kOptions / sizeof kOptions[0], &names, [&](int option, char*) {
    switch (option) {
      case kBinary: s.binary = 1; break;
      case kCheck: s.check = true; break;
      case kTag: s.tag = true, s.binary = 1; break;
      case kText: s.binary = 0; break;
      case kZero: s.delim = '\0'; break;
      case kIgnoreMissing: s.ignore_missing = true; break;
      case kQuiet: s.quiet = true, s.status_only = s.warn = false; break;
      case kStatus: s.status_only = true, s.quiet = s.warn = false; break;
      case kStrict: s.strict = true; break;
      case kWarn: s.warn = true, s.status_only = s.quiet = false; break;
    }
    return true;
  });
  if (!ok) return kExitUsage;
  const char* cmd = argv[0];
  if (s.tag && s.binary == 0) return UsageError("%s: --tag does not support --text mode", cmd);
  if (s.check) {
    if (s.delim != '\n') return UsageError("%s: the --zero option is not supported when verifying checksums", cmd);
    if (s.tag) return UsageError("%s: the --tag option is meaningless when verifying checksums", cmd);
    if (s.binary >= 0) {
      return UsageError("%s: the --binary and --text options are meaningless when verifying checksums", cmd);
    }
  } else {
    const char* only_check = s.ignore_missing ? "--ignore-missing"
                             : s.status_only  ? "--status"
                             : s.warn         ? "--warn"
                             : s.quiet        ? "--quiet"
                             : s.strict       ? "--strict"
                                              : nullptr;
    if (only_check) return UsageError("%s: the %s option is meaningful only when verifying checksums", cmd, only_check);
  }
  static char kStdin[] = "-";
  if (names.empty()) names.push_back(kStdin);
  std::vector<uint8_t> buffer(kPiece);
  int status = kExitOk;
  LineParser parser{&algo};
  for (const char* name : names) {
    if (s.check) {
      if (!CheckList(s, parser, name, buffer)) status = kExitFailure;
      continue;
    }
    uint8_t digest[64];
    if (DigestFile(s, name, digest, buffer) != kDigested) {
      status = kExitFailure;
      continue;
    }
    PrintLine(s, name, digest);
  }
  return status;
}

}  // namespace

int RunSha1Sum(int argc, char** argv) { return RunDigest(kSha1, argc, argv); }
int RunSha256Sum(int argc, char** argv) { return RunDigest(kSha256, argc, argv); }
int RunSha384Sum(int argc, char** argv) { return RunDigest(kSha384, argc, argv); }
int RunSha512Sum(int argc, char** argv) { return RunDigest(kSha512, argc, argv); }

}  // namespace nvtool
