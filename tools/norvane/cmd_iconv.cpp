// iconv: converts text between the fourteen Windows code pages of the library, UTF-8, UTF-16 and
// ASCII, as `iconv -f FROM -t TO` does for the encodings it knows: strictly by default, streamed
// in pieces so that memory use does not grow with the input.
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "norvane/text/utf8_internal.h"
#include "tools/norvane/commands.h"
#include "tools/norvane/iconv_codec.h"
#include "tools/norvane/io.h"
#include "tools/norvane/options.h"

namespace nvtool {

const char kIconvUsage[] =
    "Usage: norvane iconv -f FROM -t TO [-c] [-o OUTPUT] [FILE]...\n"
    "       norvane iconv -l\n"
    "Converts text from the encoding FROM to the encoding TO, reading the FILEs in turn (standard\n"
    "input when there are none, or for -) and writing standard output.\n"
    "\n"
    "  -f, --from-code=FROM  the encoding of the input\n"
    "  -t, --to-code=TO      the encoding of the output\n"
    "  -c                    omit what cannot be converted instead of stopping there\n"
    "  -o, --output=OUTPUT   write OUTPUT instead of standard output\n"
    "  -l, --list            list the encodings and the names they take\n"
    "\n"
    "Encodings, by name (any case) or number: UTF-8 (65001); UTF-16, which reads a byte-order mark\n"
    "(and takes little-endian without one) and writes one, then little-endian; UTF-16LE (1200) and\n"
    "UTF-16BE (1201), which never read or write a mark; ASCII (ascii, us-ascii: 0x00-0x7F only);\n"
    "and the Windows code pages 874 (windows-874, tis-620), 932 (shift_jis, windows-31j),\n"
    "936 (gbk, gb2312), 949 (euc-kr), 950 (big5) and 1250-1258 (windows-1250, cp1250, ...;\n"
    "latin1 and iso-8859-1 name windows-1252).\n"
    "\n"
    "Input that is not valid in FROM (for UTF-8: overlong forms, surrogates, values above U+10FFFF,\n"
    "bytes C0, C1, F5-FF; for the code pages: bytes or pairs the page does not define), and\n"
    "characters that TO cannot hold, stop the conversion with\n"
    "  norvane: cannot convert: invalid input at byte N\n"
    "(N counted from 0 in the input) after writing everything before them; -c omits them instead.\n"
    "A character cut off by the end of the input is an error even with -c. The input is streamed:\n"
    "output is written as it goes.\n"
    "Exit status: 0 done, 1 a conversion or a file failed, 2 a usage error or an unknown encoding.\n";

namespace {

constexpr size_t kPiece = size_t{1} << 18;  // input bytes read at a time
constexpr size_t kStep = size_t{1} << 14;   // and converted at a time

class Converter {
 public:
  Converter(const Encoding& from, const Encoding& to, const char* to_name, bool omit, OutputFile* out)
      : from_(from),
        to_(to),
        to_name_(to_name),
        omit_(omit),
        out_(out),
        input_(new uint8_t[kPiece]),
        wide_(new wchar_t[kStep]),
        bytes_(new uint8_t[4 * kStep]) {
    auto ascii_compatible = [](Kind k) { return k == Kind::kTable || k == Kind::kUtf8 || k == Kind::kAscii; };
    ascii_through_ = ascii_compatible(from.kind()) && ascii_compatible(to.kind());
  }

  // Convert converts one input to its end; false after reporting what stopped it. where names
  // the input in messages (empty when there is only one).
  bool Convert(InputFile* in, const std::string& name, const std::string& where);

 private:
  bool Emit(const uint8_t* data, size_t size);
  bool Fail(const char* what, unsigned long long at, const std::string& where);

  const Encoding& from_;
  const Encoding& to_;
  const char* to_name_;
  bool omit_;
  OutputFile* out_;
  bool mark_written_ = false;
  bool ascii_through_;  // both encodings write ASCII as ASCII bytes
  std::unique_ptr<uint8_t[]> input_;
  std::unique_ptr<wchar_t[]> wide_;
  std::unique_ptr<uint8_t[]> bytes_;
};

// AsciiRun returns the length of the run of bytes below 0x80 at the start of s[0..n), counted in
// whole eight-byte words.
size_t AsciiRun(const uint8_t* s, size_t n) {
  size_t i = 0;
  while (i + 8 <= n && (kdtext::Load64(s + i) & kdtext::kHighBits) == 0) i += 8;
  return i;
}

// NextAsciiRun returns where, from 4 bytes on (past one whole character), 32 ASCII bytes in a row
// start, or n.
size_t NextAsciiRun(const uint8_t* s, size_t n) {
  for (size_t i = 4; i + 32 <= n; i += 8) {
    if (((kdtext::Load64(s + i) | kdtext::Load64(s + i + 8) | kdtext::Load64(s + i + 16) |
          kdtext::Load64(s + i + 24)) & kdtext::kHighBits) == 0) {
      return i;
    }
  }
  return n;
}

bool Converter::Emit(const uint8_t* data, size_t size) {
  if (size == 0) return true;
  if (to_.kind() == Kind::kUtf16 && !mark_written_) {
    static const uint8_t kMark[2] = {0xFF, 0xFE};
    mark_written_ = true;
    if (!out_->Write(kMark, 2)) return false;
  }
  return out_->Write(data, size);
}

bool Converter::Fail(const char* what, unsigned long long at, const std::string& where) {
  Error("cannot convert: %s at byte %llu%s", what, at, where.c_str());
  return false;
}

bool Converter::Convert(InputFile* in, const std::string& name, const std::string& where) {
  mark_written_ = false;  // each input's output starts with its own mark, as iconv(1) writes it
  size_t have = 0;                // bytes carried at the front of input_
  unsigned long long base = 0;    // the input offset of input_[0]
  bool start = from_.kind() == Kind::kUtf16, big_endian = false;
  for (;;) {
    long got = in->Read(input_.get() + have, kPiece - have);
    if (got < 0) {
      Error("iconv: %s: %s", Quote(name).c_str(), std::strerror(errno));
      return false;
    }
    const bool end = got == 0;
    const size_t n = have + static_cast<size_t>(got);
    const uint8_t* s = input_.get();
    size_t pos = 0;
    if (start) {  // a byte-order mark, when the first two bytes are one
      if (n < 2 && !end) {
        have = n;
        continue;
      }
      start = false;
      if (n >= 2 && ((s[0] == 0xFF && s[1] == 0xFE) || (s[0] == 0xFE && s[1] == 0xFF))) {
        big_endian = s[0] == 0xFE;
        pos = 2;
      }
    }
    while (pos < n) {
      // Steps small enough for the characters and bytes of one to stay in the nearest caches.
      size_t len = n - pos < kStep ? n - pos : kStep;
      if (ascii_through_) {
        // At a character boundary every byte below 0x80 is an ASCII character, written as it is
        // by every target here; the library converts what lies between long runs of them.
        const size_t run = AsciiRun(s + pos, len);
        if (run >= 32) {
          if (!Emit(s + pos, run)) return false;
          pos += run;
          continue;
        }
        len = NextAsciiRun(s + pos, len);
      }
      Encoding::Decoded d = from_.Decode(s + pos, len, wide_.get(), big_endian);
      for (size_t w = 0; w < d.produced;) {
        size_t written;
        w += to_.Encode(wide_.get() + w, d.produced - w, bytes_.get(), &written);
        if (!Emit(bytes_.get(), written)) return false;
        if (w == d.produced) break;
        if (!omit_) {
          unsigned long long at = base + pos + from_.SourceBytes(s + pos, len, w, big_endian);
          Error("cannot convert: U+%04X at byte %llu%s cannot be written in %s", static_cast<unsigned>(wide_[w]), at,
                where.c_str(), to_name_);
          return false;
        }
        ++w;  // omitted
      }
      pos += d.consumed;
      if (d.invalid) {
        if (!omit_) return Fail("invalid input", base + pos, where);
        pos += d.bad;
      } else if (len == n - (pos - d.consumed)) {
        break;  // the rest, if any, is a character cut off by the end of what was read
      }
    }
    const size_t tail = n - pos;
    if (end) return tail == 0 || Fail("invalid input", base + pos, where + " (a character cut off by the end)");
    std::memmove(input_.get(), input_.get() + pos, tail);
    base += pos;
    have = tail;
  }
}

// The options, in the order of their indexes below.
const Option kOptions[] = {
    {"from-code", 'f', true}, {"to-code", 't', true}, {nullptr, 'c', false}, {"output", 'o', true}, {"list", 'l', false},
};
enum { kFrom, kTo, kOmit, kOutput, kList };

bool SameFile(const struct stat& a, const struct stat& b) { return a.st_dev == b.st_dev && a.st_ino == b.st_ino; }

}  // namespace

int RunIconv(int argc, char** argv) {
  const char* from_name = nullptr;
  const char* to_name = nullptr;
  const char* output = nullptr;
  bool omit = false, list = false;
  std::vector<char*> files;
  bool ok = ParseOptions(argc, argv, kOptions, sizeof kOptions / sizeof kOptions[0], &files, [&](int option, char* value) {
    switch (option) {
      case kFrom: from_name = value; break;
      case kTo: to_name = value; break;
      case kOmit: omit = true; break;
      case kOutput: output = value; break;
      case kList: list = true; break;
    }
    return true;
  });
  if (!ok) return kExitUsage;
  if (list) {
    PrintEncodings();
    return kExitOk;
  }
  if (!from_name || !to_name) return UsageError("iconv: give the encodings with -f FROM and -t TO");
  Encoding from, to;
  for (auto* e : {&from, &to}) {
    const char* name = e == &from ? from_name : to_name;
    bool known;
    if (!e->Resolve(name, &known)) {
      if (known) {
        Error("iconv: unsupported encoding '%s' (code page %u; see 'norvane iconv -l')", name,
              static_cast<unsigned>(e->page()));
      } else {
        Error("iconv: unknown encoding '%s' (see 'norvane iconv -l')", name);
      }
      return kExitUsage;
    }
  }
  static char kStdin[] = "-";
  if (files.empty()) files.push_back(kStdin);
  // Converting a file onto itself would empty it before it is read.
  struct stat out_st;
  if (output && std::strcmp(output, "-") != 0 && stat(output, &out_st) == 0) {
    for (const char* file : files) {
      struct stat in_st;
      bool is_stdin = std::strcmp(file, "-") == 0;
      if ((is_stdin ? fstat(0, &in_st) : stat(file, &in_st)) == 0 && SameFile(in_st, out_st)) {
        Error("iconv: %s: input file is output file", Quote(is_stdin ? output : file).c_str());
        return kExitFailure;
      }
    }
  }
  OutputFile out;
  if (!out.Open(output)) return kExitFailure;
  Converter converter(from, to, to_name, omit, &out);
  for (const char* file : files) {
    InputFile in;
    if (!in.Open(file)) {
      Error("iconv: %s: %s", Quote(file).c_str(), std::strerror(errno));
      return kExitFailure;
    }
    const std::string where = files.size() > 1 ? std::string(" of ") + Quote(file) : std::string();
    if (!converter.Convert(&in, file, where)) {
      out.Flush();
      return kExitFailure;
    }
  }
  return out.Flush() ? kExitOk : kExitFailure;
}

}  // namespace nvtool
