// FuzzInput hands out the bytes of one fuzz input as the values a target needs: small integers
// that pick operations and sizes, and runs of bytes. Reading past the end gives zeros, so every
// input, however short, is a valid program for the target.
#ifndef NORVANE_FUZZ_FUZZ_INPUT_H_
#define NORVANE_FUZZ_FUZZ_INPUT_H_

#include <clocale>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace kdfuzz {

class FuzzInput {
 public:
  FuzzInput(const uint8_t* data, size_t size) : data_(data), size_(size) {}

  bool empty() const { return pos_ >= size_; }
  size_t remaining() const { return empty() ? 0 : size_ - pos_; }

  uint8_t Byte() { return empty() ? 0 : data_[pos_++]; }
  bool Bool() { return Byte() & 1; }
  uint32_t U32() {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) v = v << 8 | Byte();
    return v;
  }
  // A value in [0, n) (n > 0) from one byte, or from two when n is above 256.
  uint32_t Below(uint32_t n) {
    uint32_t v = Byte();
    if (n > 256) v = v << 8 | Byte();
    return v % n;
  }
  // Up to n bytes (fewer at the end of the input).
  std::vector<uint8_t> Bytes(size_t n) {
    if (n > remaining()) n = remaining();
    std::vector<uint8_t> out(data_ + pos_, data_ + pos_ + n);
    pos_ += n;
    return out;
  }
  // A run whose length is read first (one byte, scaled), then its bytes.
  std::vector<uint8_t> Run(size_t scale = 1) { return Bytes(Byte() * scale); }
  std::vector<uint8_t> Rest() { return Bytes(remaining()); }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t pos_ = 0;
};

// Check stops the run with a message when a property does not hold; libFuzzer records the input
// as a crash, and the replay test fails.
#define KDFUZZ_CHECK(cond)                                                        \
  do {                                                                            \
    if (!(cond)) {                                                                \
      std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
      std::abort();                                                               \
    }                                                                             \
  } while (0)

}  // namespace kdfuzz

// KDFUZZ_UTF8_LOCALE defines a target's initialiser that makes the C library's local encoding
// UTF-8, for targets that reach the locale conversions.
#define KDFUZZ_UTF8_LOCALE                                       \
  extern "C" int LLVMFuzzerInitialize(int*, char***) {           \
    std::setlocale(LC_ALL, "C.UTF-8");                           \
    return 0;                                                    \
  }

#endif  // NORVANE_FUZZ_FUZZ_INPUT_H_
