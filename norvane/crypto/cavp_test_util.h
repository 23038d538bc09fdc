// Reading the published known-answer files (NIST CAVP .rsp) kept in testdata/ beside the tests,
// and hex for the crypto tests.
#ifndef NORVANE_CRYPTO_CAVP_TEST_UTIL_H_
#define NORVANE_CRYPTO_CAVP_TEST_UTIL_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace cavptest {

// One blank-line-separated group of "NAME = value" lines, with the bracketed header ("ENCRYPT",
// "L = 20") it appeared under.
struct Record {
  std::string section;
  std::map<std::string, std::string> fields;
  bool Has(const char* name) const { return fields.count(name) != 0; }
  const std::string& operator[](const char* name) const;
};

// ReadRecords reads testdata/<file>. A missing or empty file is a test failure (never a pass).
std::vector<Record> ReadRecords(const std::string& file);

inline std::vector<uint8_t> FromHex(const std::string& hex) {
  std::vector<uint8_t> out;
  for (size_t i = 0; i + 1 < hex.size(); i += 2) out.push_back(static_cast<uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
  return out;
}
inline std::string ToHex(const uint8_t* data, size_t size) {
  static const char kDigits[] = "0123456789abcdef";
  std::string s;
  for (size_t i = 0; i < size; ++i) s.append({kDigits[data[i] >> 4], kDigits[data[i] & 15]});
  return s;
}
inline std::string ToHex(const std::vector<uint8_t>& v) { return ToHex(v.data(), v.size()); }

}  // namespace cavptest

#endif  // NORVANE_CRYPTO_CAVP_TEST_UTIL_H_
