// Reading inputs to their end, buffered writing with its errors reported, and names quoted for
// diagnostics: what the commands that stream data share.
#ifndef NORVANE_TOOLS_NORVANE_IO_H_
#define NORVANE_TOOLS_NORVANE_IO_H_

#include <cstddef>
#include <memory>
#include <string>

class CKD_CachedFileRead;

namespace nvtool {

// InputFile reads one input to its end; "-" is standard input. A regular file that occupies
// storage is read through the library's file stream and cached reader, up to its size; anything
// else (standard input, pipes, terminals, devices, and files of /proc and /sys, whose reported
// size is not their content) through read(2) until it reports the end.
class InputFile {
 public:
  InputFile() = default;
  ~InputFile();
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  // Open returns false with errno set (EISDIR for a folder, which opens but holds no bytes).
  bool Open(const char* name);
  // Read fills up to size bytes; returns the count, 0 at the end, or -1 with errno set.
  long Read(void* buffer, size_t size);
  // Fill reads until size bytes are in or the input ends; the same results as Read.
  long Fill(void* buffer, size_t size);
  // Size returns the size of a regular file, -1 for any other input.
  long long Size() const { return size_; }

 private:
  void Close();

  int fd_ = -1;
  bool own_fd_ = false;
  CKD_CachedFileRead* reader_ = nullptr;
  std::unique_ptr<unsigned char[]> chunks_;
  long long size_ = -1;
  long long offset_ = 0;
};

// OutputFile writes through a buffer with write(2) to standard output or to a file it creates.
// The first failure is reported as "norvane: write error: <reason>"; from then on nothing is
// written and every call answers false.
class OutputFile {
 public:
  explicit OutputFile(size_t buffer_size = size_t{1} << 18);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Open creates or empties path (null or "-": standard output, the default); false after
  // reporting "norvane: <path>: <reason>".
  bool Open(const char* path);
  bool Write(const void* data, size_t size);
  bool Flush();
  bool ok() const { return !failed_; }
  int fd() const { return fd_; }

 private:
  bool WriteOut(const unsigned char* data, size_t size);

  int fd_ = 1;
  bool own_fd_ = false;
  bool failed_ = false;
  std::unique_ptr<unsigned char[]> buffer_;
  size_t capacity_;
  size_t used_ = 0;
};

// Quote returns name as the GNU tools show it in diagnostics: unchanged when it holds nothing a
// shell would read specially, otherwise in single quotes with control characters and bytes that
// are not UTF-8 written $'\n' or $'\351' outside them, or in double quotes when its only special
// character is a single quote.
std::string Quote(const std::string& name);

}  // namespace nvtool

#endif  // NORVANE_TOOLS_NORVANE_IO_H_
