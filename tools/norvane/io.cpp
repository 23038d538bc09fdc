#include "tools/norvane/io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "norvane/streams/file_cache.h"
#include "norvane/streams/file_stream.h"
#include "tools/norvane/commands.h"

namespace nvtool {

namespace {

// Regular files are read through a cache of four 64 KiB chunks.
constexpr int kChunk = 1 << 16;
constexpr int kChunks = 4;

}  // namespace

InputFile::~InputFile() { Close(); }

void InputFile::Close() {
  if (reader_) reader_->Release();
  reader_ = nullptr;
  if (own_fd_) close(fd_);
  fd_ = -1;
  own_fd_ = false;
}

bool InputFile::Open(const char* name) {
  Close();
  offset_ = 0;
  size_ = -1;
  struct stat st;
  if (std::strcmp(name, "-") == 0) {
    fd_ = STDIN_FILENO;
    if (fstat(fd_, &st) == 0 && S_ISREG(st.st_mode)) size_ = st.st_size;
    return true;
  }
  const bool known = stat(name, &st) == 0;
  if (known && S_ISDIR(st.st_mode)) {
    errno = EISDIR;
    return false;
  }
  // A file of /proc or /sys reports a size (often 0 or 4096) that is not its content and takes
  // no blocks; so does a file that is one hole, which plain reads handle as well.
  if (known && S_ISREG(st.st_mode) && st.st_size > 0 && st.st_blocks > 0) {
    IKD_FileRead* file = KD_CreateFileRead(name);
    if (!file) return false;  // errno says why
    chunks_.reset(new unsigned char[static_cast<size_t>(kChunk) * kChunks]);
    reader_ = new CKD_CachedFileRead;
    if (!reader_->Init(kChunk, kChunks, chunks_.get(), nullptr) || !reader_->AttachFile(file, true)) {
      file->Release();
      Close();
      errno = ENOMEM;
      return false;
    }
    size_ = reader_->GetSize();
    return true;
  }
  fd_ = open(name, O_RDONLY | O_CLOEXEC);
  if (fd_ < 0) return false;
  own_fd_ = true;
  if (fstat(fd_, &st) == 0 && S_ISREG(st.st_mode)) size_ = st.st_size;
  return true;
}

long InputFile::Read(void* buffer, size_t size) {
  if (reader_) {
    // Offsets are kept here, in 64 bits: the reader's own position is 32-bit.
    long long left = size_ - offset_;
    size_t n = left < static_cast<long long>(size) ? static_cast<size_t>(left) : size;
    if (n == 0) return 0;
    if (!reader_->ReadBlock(buffer, offset_, n)) {
      errno = EIO;
      return -1;
    }
    offset_ += static_cast<long long>(n);
    return static_cast<long>(n);
  }
  for (;;) {
    ssize_t got = read(fd_, buffer, size);
    if (got >= 0 || errno != EINTR) return static_cast<long>(got);
  }
}

long InputFile::Fill(void* buffer, size_t size) {
  size_t have = 0;
  while (have < size) {
    long got = Read(static_cast<unsigned char*>(buffer) + have, size - have);
    if (got < 0) return -1;
    if (got == 0) break;
    have += static_cast<size_t>(got);
  }
  return static_cast<long>(have);
}

OutputFile::OutputFile(size_t buffer_size) : buffer_(new unsigned char[buffer_size]), capacity_(buffer_size) {}

OutputFile::~OutputFile() {
  Flush();
  if (own_fd_) close(fd_);
}

bool OutputFile::Open(const char* path) {
  if (!path || std::strcmp(path, "-") == 0) return true;
  fd_ = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd_ < 0) {
    Error("%s: %s", Quote(path).c_str(), std::strerror(errno));
    fd_ = 1;
    failed_ = true;
    return false;
  }
  own_fd_ = true;
  return true;
}

bool OutputFile::WriteOut(const unsigned char* data, size_t size) {
  while (size > 0 && !failed_) {
    ssize_t put = write(fd_, data, size);
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) {
      Error("write error: %s", std::strerror(put < 0 ? errno : ENOSPC));
      failed_ = true;
      break;
    }
    data += put;
    size -= static_cast<size_t>(put);
  }
  return !failed_;
}

bool OutputFile::Write(const void* data, size_t size) {
  if (failed_) return false;
  const unsigned char* p = static_cast<const unsigned char*>(data);
  if (used_ + size <= capacity_) {
    std::memcpy(buffer_.get() + used_, p, size);
    used_ += size;
    return true;
  }
  if (!Flush()) return false;
  if (size >= capacity_) return WriteOut(p, size);  // large pieces skip the copy
  std::memcpy(buffer_.get(), p, size);
  used_ = size;
  return true;
}

bool OutputFile::Flush() {
  size_t n = used_;
  used_ = 0;
  return WriteOut(buffer_.get(), n);
}

namespace {

// The length of the UTF-8 sequence of a printable character at s (at most n bytes), or 0.
size_t PrintableSequence(const unsigned char* s, size_t n) {
  size_t len = s[0] >= 0xF0 ? 4 : s[0] >= 0xE0 ? 3 : 2;
  if (s[0] < 0xC2 || s[0] > 0xF4 || len > n) return 0;
  uint32_t c = s[0] & (0x7F >> len);
  for (size_t k = 1; k < len; ++k) {
    if ((s[k] & 0xC0) != 0x80) return 0;
    c = c << 6 | (s[k] & 0x3F);
  }
  static const uint32_t kMin[5] = {0, 0, 0x80, 0x800, 0x10000};
  if (c < kMin[len] || c > 0x10FFFF || (c >= 0xD800 && c < 0xE000) || c < 0xA0) return 0;
  return len;
}

}  // namespace

std::string Quote(const std::string& name) {
  if (name.empty()) return "''";
  const unsigned char* s = reinterpret_cast<const unsigned char*>(name.data());
  const size_t n = name.size();
  // Characters a shell reads specially need quotes; those that are also special between double
  // quotes (or are not printable) rule double quotes out.
  static const char kSpecial[] = "!\"$&()*;<=>?[\\^`|";
  bool needs = false, double_ok = true, has_quote = false;
  for (size_t i = 0; i < n;) {
    unsigned char c = s[i];
    size_t len = c >= 0x80 ? PrintableSequence(s + i, n - i) : 1;
    if (len == 0 || c < 0x20 || c == 0x7F) {
      needs = true;
      double_ok = false;
      i += len ? len : 1;
      continue;
    }
    if (c == '\'') has_quote = needs = true;
    if (c == ' ' || c == ':') needs = true;
    if ((c == '#' || c == '~') && i == 0) needs = true;
    if ((c == '#' || c == '~') && i > 0) double_ok = false;
    if (c < 0x80 && c != 0 && std::strchr(kSpecial, c)) needs = true, double_ok = false;
    i += len;
  }
  if (!needs) return name;
  if (has_quote && double_ok) return "\"" + name + "\"";
  std::string out = "'";
  bool escaping = false;  // inside a $'...' run of escapes
  for (size_t i = 0; i < n;) {
    unsigned char c = s[i];
    size_t len = c >= 0x80 ? PrintableSequence(s + i, n - i) : (c < 0x20 || c == 0x7F ? 0 : 1);
    if (len == 0) {
      static const char kLetters[] = "abtnvfr";  // \a (7) to \r (13)
      if (!escaping) out += "'$'";
      escaping = true;
      out += '\\';
      if (c >= 7 && c <= 13) {
        out += kLetters[c - 7];
      } else {
        out += static_cast<char>('0' + (c >> 6));
        out += static_cast<char>('0' + ((c >> 3) & 7));
        out += static_cast<char>('0' + (c & 7));
      }
      ++i;
      continue;
    }
    if (escaping) out += "''";
    escaping = false;
    if (c == '\'') {
      out += "'\\''";
    } else {
      out.append(name, i, len);
    }
    i += len;
  }
  out += '\'';
  return out;
}

}  // namespace nvtool
