// TempDir: a fresh folder under /tmp for one test, removed with everything in it at the end
// (symbolic links inside are removed, not followed).
#ifndef NORVANE_TESTS_SUPPORT_TEMP_DIR_H_
#define NORVANE_TESTS_SUPPORT_TEMP_DIR_H_

#include <stdlib.h>

#include <filesystem>
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

}  // namespace kdtest

#endif  // NORVANE_TESTS_SUPPORT_TEMP_DIR_H_
