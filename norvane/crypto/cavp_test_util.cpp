#include "norvane/crypto/cavp_test_util.h"

#include <gtest/gtest.h>

#include <fstream>

namespace cavptest {

namespace {

std::string Trim(const std::string& s) {
  size_t b = s.find_first_not_of(" \t\r\n");
  if (b == std::string::npos) return "";
  size_t e = s.find_last_not_of(" \t\r\n");
  return s.substr(b, e - b + 1);
}

}  // namespace

const std::string& Record::operator[](const char* name) const {
  static const std::string empty;
  auto it = fields.find(name);
  if (it == fields.end()) {
    ADD_FAILURE() << "record has no field " << name;
    return empty;
  }
  return it->second;
}

std::vector<Record> ReadRecords(const std::string& file) {
  std::vector<Record> records;
  const std::string path = std::string(NORVANE_CRYPTO_TESTDATA) + "/" + file;
  std::ifstream in(path);
  if (!in) {
    ADD_FAILURE() << "missing vector file " << path;
    return records;
  }
  std::string line, section;
  Record current;
  auto flush = [&] {
    if (!current.fields.empty()) records.push_back(current);
    current = Record();
    current.section = section;
  };
  while (std::getline(in, line)) {
    line = Trim(line);
    if (line.empty()) {
      flush();
    } else if (line[0] == '#') {
      continue;
    } else if (line[0] == '[') {
      flush();
      section = Trim(line.substr(1, line.find(']') - 1));
      current.section = section;
    } else {
      size_t eq = line.find('=');
      if (eq == std::string::npos) continue;
      current.fields[Trim(line.substr(0, eq))] = Trim(line.substr(eq + 1));
    }
  }
  flush();
  if (records.empty()) ADD_FAILURE() << "no records in " << path;
  return records;
}

}  // namespace cavptest
