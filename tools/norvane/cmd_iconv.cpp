// iconv: converts text between the fourteen Windows code pages of the library, UTF-8 and
// UTF-16LE/BE, as `iconv -f FROM -t TO` does for the encodings it knows.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "norvane/text/charset.h"
#include "norvane/text/code_page.h"
#include "norvane/text/code_page_convert.h"
#include "norvane/text/utf8_coder.h"
#include "norvane/text/wide_string.h"
#include "tools/norvane/commands.h"

namespace nvtool {

namespace {

const char kIconvHelp[] =
    "Usage: norvane iconv -f FROM -t TO [FILE]\n"
    "\n"
    "Converts text from the encoding FROM to the encoding TO, reading FILE (or standard input when\n"
    "FILE is absent or -) and writing standard output.\n"
    "\n"
    "Encodings, by name or number: UTF-8 (65001), UTF-16LE (1200; also UTF-16) and UTF-16BE (1201),\n"
    "and the Windows code pages 874 (windows-874, tis-620), 932 (shift_jis, windows-31j),\n"
    "936 (gbk, gb2312), 949 (euc-kr, ks_c_5601-1987), 950 (big5) and 1250-1258 (windows-1250,\n"
    "cp1250, ...; latin1 and iso-8859-1 name windows-1252). Names ignore case. No byte-order mark is\n"
    "read or written.\n"
    "\n"
    "Characters the target code page cannot represent are written as its default character '?',\n"
    "as the library does, and bytes that are not a character of the source code page are read as\n"
    "'?' too. Malformed UTF-8 is read leniently: stray bytes are dropped, an unfinished sequence is\n"
    "dropped, an overlong zero reads as U+FFFD. In UTF-16 characters above U+10FFFF become U+FFFD.\n"
    "\n"
    "Exit status: 0 done, 1 the input could not be read, 2 a usage error or an unknown encoding.\n";

bool IsNumber(const char* s) {
  if (!*s) return false;
  for (; *s; ++s)
    if (*s < '0' || *s > '9') return false;
  return true;
}

// Resolve returns the code page of an encoding name, or reports and returns -1.
int Resolve(const char* name) {
  long number = -1;
  if (IsNumber(name)) {
    if (std::strlen(name) <= 5) number = std::strtol(name, nullptr, 10);
  } else {
    uint16_t page = KD_GetCodePageFromStringA(name, -1);
    if (page != 0xFFFF) number = page;
  }
  if (number < 0 || number > 0xFFFF) {
    Error("iconv: unknown encoding '%s'", name);
    return -1;
  }
  uint16_t page = static_cast<uint16_t>(number);
  if (page != KD_CP_UTF8 && page != KD_CP_UTF16LE && page != KD_CP_UTF16BE && !KD_GetCodePage(page)) {
    Error("iconv: unsupported encoding '%s' (code page %u)", name, static_cast<unsigned>(page));
    return -1;
  }
  return page;
}

bool ReadAll(const char* name, std::string* out) {
  const bool is_stdin = !name || std::strcmp(name, "-") == 0;
  int fd = is_stdin ? STDIN_FILENO : open(name, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  char buffer[1 << 16];
  bool ok = true;
  for (;;) {
    ssize_t got = read(fd, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) {
      ok = false;
      break;
    }
    if (got == 0) break;
    out->append(buffer, static_cast<size_t>(got));
  }
  if (!is_stdin) {
    int saved = errno;
    close(fd);
    errno = saved;
  }
  return ok;
}

std::wstring Decode(uint16_t page, const std::string& bytes) {
  const int len = static_cast<int>(bytes.size());
  if (page == KD_CP_UTF8) {
    CKD_WideString text = CKD_WideString::FromUTF8(bytes.data(), len);
    return std::wstring(text.c_str(), static_cast<size_t>(text.GetLength()));
  }
  std::wstring out(bytes.size() + 1, L'\0');
  int srcLen = len, dstLen = static_cast<int>(out.size());
  KD_DecodeString(page, bytes.data(), &srcLen, &out[0], &dstLen, false);
  out.resize(static_cast<size_t>(dstLen));
  if (srcLen < len) {
    // What the end of the input cut off: a lead byte, an odd byte of UTF-16 or a high surrogate.
    if (page == KD_CP_UTF16LE || page == KD_CP_UTF16BE) {
      if (len - srcLen >= 2) {
        const uint8_t* p = reinterpret_cast<const uint8_t*>(bytes.data()) + srcLen;
        out += static_cast<wchar_t>(page == KD_CP_UTF16LE ? (p[1] << 8 | p[0]) : (p[0] << 8 | p[1]));
        srcLen += 2;
      }
      if (srcLen < len) out += static_cast<wchar_t>(0xFFFD);
    } else {
      out += static_cast<wchar_t>(KD_GetCodePage(page)->m_pHeader->m_dwDefUnicode);
    }
  }
  return out;
}

std::string Encode(uint16_t page, const std::wstring& text) {
  const int len = static_cast<int>(text.size());
  if (page == KD_CP_UTF8) {
    // The coder's UTF-8 keeps every code point (the buffer form keeps 16 bits).
    CKD_ByteString bytes = KD_UTF8Encode(text.data(), len);
    return std::string(bytes.c_str(), static_cast<size_t>(bytes.GetLength()));
  }
  int srcLen = len, dstLen = 0;
  KD_EncodeString(page, text.data(), &srcLen, nullptr, &dstLen, false);
  std::string out(static_cast<size_t>(dstLen), '\0');
  if (dstLen > 0) {
    srcLen = len;
    KD_EncodeString(page, text.data(), &srcLen, &out[0], &dstLen, false);
    out.resize(static_cast<size_t>(dstLen));
  }
  return out;
}

}  // namespace

int RunIconv(int argc, char** argv) {
  const char* from = nullptr;
  const char* to = nullptr;
  const char* file = nullptr;
  for (int i = 1; i < argc; ++i) {
    const char* arg = argv[i];
    if (std::strcmp(arg, "--help") == 0 || std::strcmp(arg, "-h") == 0) {
      std::fputs(kIconvHelp, stdout);
      return kExitOk;
    }
    if (std::strcmp(arg, "-f") == 0 || std::strcmp(arg, "-t") == 0) {
      if (i + 1 == argc) return UsageError("iconv: %s needs an encoding", arg);
      (arg[1] == 'f' ? from : to) = argv[++i];
    } else if (arg[0] == '-' && arg[1] != '\0') {
      return UsageError("iconv: unexpected option '%s'", arg);
    } else if (file) {
      return UsageError("iconv: more than one FILE");
    } else {
      file = arg;
    }
  }
  if (!from || !to) return UsageError("iconv: give the encodings with -f FROM and -t TO");
  int source = Resolve(from);
  if (source < 0) return kExitUsage;
  int target = Resolve(to);
  if (target < 0) return kExitUsage;

  std::string input;
  if (!ReadAll(file, &input)) {
    Error("iconv: %s: %s", file && std::strcmp(file, "-") ? file : "standard input", std::strerror(errno));
    return kExitFailure;
  }
  if (input.size() > static_cast<size_t>(INT_MAX) / 4) {
    Error("iconv: the input is too large (%zu bytes)", input.size());
    return kExitFailure;
  }
  std::string output = Encode(static_cast<uint16_t>(target), Decode(static_cast<uint16_t>(source), input));
  if (!output.empty()) std::fwrite(output.data(), 1, output.size(), stdout);
  return kExitOk;
}

}  // namespace nvtool
