// base64: encodes or decodes Base64 with the library's coder, as `base64 -w0` and `base64 -d` do
// for text without line breaks.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "norvane/streams/base64.h"
#include "norvane/streams/file_stream.h"
#include "tools/norvane/commands.h"

namespace nvtool {

const char kBase64Usage[] =
    "Usage: norvane base64 [-d] [FILE]\n"
    "\n"
    "Encodes FILE (or standard input when FILE is absent or -) as Base64 on one line, as\n"
    "`base64 -w0` followed by a newline does; with -d (--decode) decodes it back.\n"
    "\n"
    "Decoding accepts the standard alphabet (A-Z a-z 0-9 + /), then at most two '=' of padding,\n"
    "and ignores one newline at the very end. Unpadded text is accepted. Any other character, a\n"
    "lone final character, or padding that does not complete a group is invalid input.\n"
    "\n"
    "Exit status: 0 done, 1 the input could not be read or is not valid Base64, 2 a usage error.\n";

namespace {

// Pieces: 3 * 64 KiB bytes encode to whole groups; decoding reads 256 KiB at a time.
constexpr size_t kEncodePiece = 3 << 16;
constexpr size_t kDecodePiece = 1 << 18;

// Input reads FILE through the library's file stream, standard input with read(2).
class Input {
 public:
  explicit Input(const char* name) : stdin_(!name || std::strcmp(name, "-") == 0) {
    if (!stdin_) file_ = KD_CreateFileRead(name);
  }
  ~Input() {
    if (file_) file_->Release();
  }
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

  bool ok() const { return stdin_ || file_; }
  // Read fills buffer as far as the input goes; the bytes read, or -1 with errno set.
  long Read(char* buffer, size_t size) {
    size_t done = 0;
    while (done < size) {
      long got;
      if (stdin_) {
        got = read(STDIN_FILENO, buffer + done, size - done);
        if (got < 0 && errno == EINTR) continue;
      } else {
        size_t n = file_->ReadBlock(buffer + done, size - done);
        got = n == static_cast<size_t>(-1) ? -1 : static_cast<long>(n);
      }
      if (got < 0) return -1;
      if (got == 0) break;
      done += static_cast<size_t>(got);
    }
    return static_cast<long>(done);
  }

 private:
  bool stdin_;
  IKD_FileRead* file_ = nullptr;
};

bool InAlphabet(char c) {
  return static_cast<unsigned char>(c) < 0x80 && KDCRT_DefBase64Decoder(static_cast<wchar_t>(c)) != 0xFF;
}

int Encode(Input& in) {
  std::vector<char> bytes(kEncodePiece), text(kEncodePiece / 3 * 4);
  const CKD_Base64Encoder encoder('=');
  for (;;) {
    long got = in.Read(bytes.data(), bytes.size());
    if (got < 0) return -1;
    int n = encoder.Encode(reinterpret_cast<const uint8_t*>(bytes.data()), static_cast<int>(got), text.data());
    std::fwrite(text.data(), 1, static_cast<size_t>(n), stdout);
    if (static_cast<size_t>(got) < bytes.size()) break;  // a full piece is a multiple of 3
  }
  std::fputc('\n', stdout);
  return 0;
}

// Decode checks and decodes the text in pieces, holding back the last few characters (where
// padding and the final newline may be) until the input ends. Returns 0, -1 for a read error, 1
// for invalid input.
int Decode(Input& in) {
  // At least 5 characters are held back ("==" and "\n" fit), so at most 8 are carried over.
  constexpr size_t kHeld = 5;
  std::vector<char> text(kDecodePiece + 8);
  std::vector<uint8_t> bytes((kDecodePiece + 8) / 4 * 3 + 2);
  const CKD_Base64Decoder decoder('=');
  size_t have = 0, total = 0;
  for (;;) {
    long got = in.Read(text.data() + have, kDecodePiece);
    if (got < 0) return -1;
    have += static_cast<size_t>(got);
    const bool end = got == 0 || static_cast<size_t>(got) < kDecodePiece;
    // The middle of the text: whole groups of alphabet characters only.
    size_t ready = end ? 0 : (have - kHeld) / 4 * 4;
    if (end) {
      if (have && text[have - 1] == '\n') --have;
      size_t padding = 0;
      while (padding < have && text[have - 1 - padding] == '=') ++padding;
      ready = have - padding;
      const size_t groups_end = total + ready;
      if (padding > 2 || groups_end % 4 == 1 || (padding && (groups_end + padding) % 4 != 0)) return 1;
    }
    for (size_t i = 0; i < ready; ++i) {
      if (!InAlphabet(text[i])) return 1;
    }
    int n = decoder.Decode(text.data(), static_cast<int>(ready), bytes.data());
    std::fwrite(bytes.data(), 1, static_cast<size_t>(n), stdout);
    total += ready;
    if (end) return 0;
    std::memmove(text.data(), text.data() + ready, have - ready);
    have -= ready;
  }
}

}  // namespace

int RunBase64(int argc, char** argv) {
  bool decode = false;
  const char* file = nullptr;
  for (int i = 1; i < argc; ++i) {
    const char* arg = argv[i];
    if (std::strcmp(arg, "-d") == 0 || std::strcmp(arg, "--decode") == 0) {
      decode = true;
    } else if (arg[0] == '-' && arg[1] != '\0') {
      return UsageError("base64: unexpected option '%s'", arg);
    } else if (file) {
      return UsageError("base64: more than one FILE");
    } else {
      file = arg;
    }
  }
  const char* shown = file && std::strcmp(file, "-") ? file : "standard input";
  Input in(file);
  if (!in.ok()) {
    Error("base64: %s: %s", shown, std::strerror(errno ? errno : ENOENT));
    return kExitFailure;
  }
  const int result = decode ? Decode(in) : Encode(in);
  if (result < 0) {
    Error("base64: %s: %s", shown, std::strerror(errno));
    return kExitFailure;
  }
  if (result > 0) {
    Error("base64: invalid input");
    return kExitFailure;
  }
  return kExitOk;
}

}  // namespace nvtool
