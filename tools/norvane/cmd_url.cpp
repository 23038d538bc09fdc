// url: percent-encodes or decodes texts with the library's URL and URI functions, one result per
// line.
#include <clocale>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "norvane/text/byte_string.h"
#include "norvane/text/url_text.h"
#include "norvane/text/utf8_coder.h"
#include "norvane/text/wide_string.h"
#include "tools/norvane/commands.h"
#include "tools/norvane/io.h"
#include "tools/norvane/options.h"

namespace nvtool {

const char kUrlUsage[] =
    "Usage: norvane url MODE [TEXT]...\n"
    "\n"
    "Percent-encodes or decodes each TEXT, or each line of standard input when no TEXT is given,\n"
    "and prints one result per line. MODE is one of:\n"
    "  encode      characters to bytes in the current locale, then escapes them (KD_UrlEncode)\n"
    "  decode      unescapes, then reads the bytes in the current locale (KD_UrlDecode)\n"
    "  encode-uri  characters to UTF-8, then escapes them (KD_EncodeURI)\n"
    "  decode-uri  unescapes, then reads the bytes as UTF-8 (KD_DecodeURI)\n"
    "\n"
    "Escaped are the bytes 0x00-0x20, \" # % < > [ \\ ] ^ ` { | } ~, 0x7F and 0x80-0xFF, each as\n"
    "%XX in upper-case hex. Decoding keeps a '%' that two hex digits do not follow. The current\n"
    "locale comes from LC_ALL, LC_CTYPE or LANG; in the \"C\" locale encode and decode take and\n"
    "give ASCII text only. A TEXT that starts with '-' follows \"--\".\n"
    "\n"
    "Exit status: 0 done, 1 a text that the current locale cannot hold, 2 a usage error.\n";

namespace {

enum Mode { kEncode, kDecode, kEncodeUri, kDecodeUri };

const char* const kModeNames[] = {"encode", "decode", "encode-uri", "decode-uri"};

// Convert prints the result for len bytes of text, or reports and returns false when the text
// (or, for decode, its result) is not text of the current locale.
bool Convert(Mode mode, const char* text, size_t size) {
  if (size > INT_MAX / 8) {
    Error("url: a text of %zu bytes is too long", size);
    return false;
  }
  const int len = static_cast<int>(size);
  CKD_ByteString out;
  switch (mode) {
    case kEncode: {
      CKD_WideString wide = CKD_WideString::FromLocal(text, len);
      if (len > 0 && wide.IsEmpty()) {
        Error("url: %s is not text in the current locale", Quote(std::string(text, size)).c_str());
        return false;
      }
      out = KD_UrlEncode(wide);
      break;
    }
    case kDecode: {
      CKD_WideString wide = KD_UrlDecode(CKD_ByteString(text, len));
      out = CKD_ByteString::FromUnicode(wide);
      if (len > 0 && out.IsEmpty()) {
        Error("url: %s does not decode to text of the current locale", Quote(std::string(text, size)).c_str());
        return false;
      }
      break;
    }
    case kEncodeUri:
      out = KD_EncodeURI(CKD_WideString::FromUTF8(text, len));
      break;
    case kDecodeUri: {
      // Every character the escapes can make, also beyond U+10FFFF, is written back.
      CKD_WideString wide = KD_DecodeURI(CKD_ByteString(text, len));
      out = KD_UTF8Encode(wide.c_str(), wide.GetLength());
      break;
    }
  }
  std::fwrite(out.c_str(), 1, static_cast<size_t>(out.GetLength()), stdout);
  std::fputc('\n', stdout);
  return true;
}

}  // namespace

int RunUrl(int argc, char** argv) {
  std::vector<char*> operands;
  if (!ParseOptions(argc, argv, nullptr, 0, &operands, [](int, char*) { return true; })) return kExitUsage;
  if (operands.empty()) return UsageError("url: give a mode: encode, decode, encode-uri or decode-uri");
  int mode = 0;
  while (mode < 4 && std::strcmp(operands[0], kModeNames[mode]) != 0) ++mode;
  if (mode == 4) return UsageError("url: unknown mode '%s'", operands[0]);
  std::setlocale(LC_CTYPE, "");

  bool ok = true;
  if (operands.size() > 1) {
    for (size_t i = 1; i < operands.size(); ++i) {
      ok = Convert(static_cast<Mode>(mode), operands[i], std::strlen(operands[i])) && ok;
    }
    return ok ? kExitOk : kExitFailure;
  }
  char* line = nullptr;
  size_t capacity = 0;
  ssize_t got;
  while ((got = getline(&line, &capacity, stdin)) > 0) {
    size_t size = static_cast<size_t>(got);
    if (line[size - 1] == '\n') line[--size] = 0;
    ok = Convert(static_cast<Mode>(mode), line, size) && ok;
  }
  const bool readError = std::ferror(stdin);
  std::free(line);
  if (readError) {
    Error("url: cannot read standard input");
    return kExitFailure;
  }
  return ok ? kExitOk : kExitFailure;
}

}  // namespace nvtool
