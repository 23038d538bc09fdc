// Runs a fuzz target over every file in the folders (or the files) named on the command line,
// once each, as a plain test program: the seed corpus and the inputs of past findings replay in
// every build, with or without libFuzzer. Fails when no input is found, so a wrong path cannot
// pass unnoticed.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

bool RunFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    std::fprintf(stderr, "cannot read %s\n", path.c_str());
    return false;
  }
  std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  // A copy of exactly the input's size, so reads past its end are caught by the sanitizers.
  std::vector<uint8_t> data(bytes.begin(), bytes.end());
  uint8_t* p = data.empty() ? nullptr : data.data();
  LLVMFuzzerTestOneInput(p, data.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (LLVMFuzzerInitialize) LLVMFuzzerInitialize(&argc, &argv);
  int runs = 0;
  for (int i = 1; i < argc; ++i) {
    std::filesystem::path arg(argv[i]);
    std::error_code ec;
    if (std::filesystem::is_directory(arg, ec)) {
      std::vector<std::filesystem::path> files;
      for (const auto& entry : std::filesystem::directory_iterator(arg))
        if (entry.is_regular_file()) files.push_back(entry.path());
      std::sort(files.begin(), files.end());
      for (const auto& f : files) runs += RunFile(f) ? 1 : 0;
    } else if (std::filesystem::exists(arg, ec)) {
      runs += RunFile(arg) ? 1 : 0;
    }
  }
  std::printf("%d inputs run\n", runs);
  return runs > 0 ? 0 : 1;
}
