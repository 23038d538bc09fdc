// TempDir: a fresh folder under /tmp for one test, removed with everything in it at the end
// (symbolic links inside are removed, not followed). WriteFile and ReadFile put and get a whole
// file's bytes.
#ifndef NORVANE_TESTS_SUPPORT_TEMP_DIR_H_
#define NORVANE_TESTS_SUPPORT_TEMP_DIR_H_

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace kdtest {

class TempDir {
 public:
  TempDir() {
    char pattern[] = "/tmp/norvane_test_XXXXXX";
    const char* made = mkdtemp(pattern);
    path_ = made ? made : "";
  }
  ~TempDir() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  std::string File(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// WriteFile replaces the file at path with the bytes of a string or vector of bytes.
template <class Bytes>
void WriteFile(const std::string& path, const Bytes& bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

// ReadFile returns the bytes of the file at path (none when it cannot be read) as a Bytes.
template <class Bytes = std::string>
Bytes ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace kdtest

#endif  // NORVANE_TESTS_SUPPORT_TEMP_DIR_H_
