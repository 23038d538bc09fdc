#include "norvane/streams/base64.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/temp_dir.h"
#include "tests/support/test_mgr.h"

namespace {

using Bytes = std::vector<uint8_t>;

std::string EncodeBytes(const Bytes& data) {
  CKD_Base64Encoder e;
  std::string out(static_cast<size_t>(e.Encode(data.data(), static_cast<int>(data.size()), nullptr)), '\0');
  EXPECT_EQ(e.Encode(data.data(), static_cast<int>(data.size()), &out[0]), static_cast<int>(out.size()));
  return out;
}

Bytes DecodeBytes(const std::string& text) {
  CKD_Base64Decoder d;
  Bytes out(static_cast<size_t>(d.Decode(text.data(), static_cast<int>(text.size()), nullptr)) + 1, 0xEE);
  out.resize(static_cast<size_t>(d.Decode(text.data(), static_cast<int>(text.size()), out.data())) + 1);
  EXPECT_EQ(out.back(), 0xEE);  // nothing written past the size it announced
  out.pop_back();
  return out;
}

Bytes ToBytes(const std::string& s) { return Bytes(s.begin(), s.end()); }

// The RFC 4648 vectors (the wide and string forms are held to the byte forms below).
TEST(Base64, MatchesTheStandardVectors) {
  const std::pair<const char*, const char*> vectors[] = {{"", ""},         {"f", "Zg=="},         {"fo", "Zm8="},
                                                         {"foo", "Zm9v"},  {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="},
                                                         {"foobar", "Zm9vYmFy"}};
  CKD_Base64Encoder e;
  CKD_Base64Decoder d;
  for (const auto& [plain, text] : vectors) {
    EXPECT_EQ(EncodeBytes(ToBytes(plain)), text);
    EXPECT_EQ(DecodeBytes(text), ToBytes(plain));
  }
  // Missing padding; padding only; a lone last character (its value << 2).
  EXPECT_TRUE(DecodeBytes("Zg") == ToBytes("f") && DecodeBytes("Zm9vYg") == ToBytes("foob"));
  EXPECT_TRUE(DecodeBytes("====").empty() && DecodeBytes("Zm9vY") == Bytes({'f', 'o', 'o', 0x60}));
  // Lengths below 1, null sources, and results too long for an int give 0.
  const uint8_t* x = reinterpret_cast<const uint8_t*>("x");
  EXPECT_EQ(d.Decode(static_cast<const char*>(nullptr), 4, nullptr) + e.Encode(nullptr, 3, nullptr), 0);
  EXPECT_EQ(e.Encode(x, -1, nullptr) + e.Encode(x, INT_MAX, nullptr), 0);
}

wchar_t UrlSafe(unsigned int v) {
  wchar_t c = KDCRT_DefBase64Encoder(v);
  return c == L'+' ? L'-' : c == L'/' ? L'_' : c;
}

uint8_t UrlSafeBack(wchar_t c) { return KDCRT_DefBase64Decoder(c == L'-' ? L'+' : c == L'_' ? L'/' : c); }

// The installed function and padding serve the wide forms only.
TEST(Base64, InstalledFunctionsServeTheWideFormsOnly) {
  const uint8_t data[] = {0xFB, 0xFF, 0xBF, 0x61};
  CKD_Base64Encoder e(L'.');
  e.SetEncoder(UrlSafe);
  wchar_t wide[8];
  char text[8];
  CKD_ByteString utf8;
  ASSERT_TRUE(e.Encode(data, 4, wide) == 8 && e.Encode(data, 4, text) == 8);
  EXPECT_EQ(e.Encode(CKD_ByteStringC(reinterpret_cast<const char*>(data), 4), utf8), 8);
  EXPECT_TRUE(std::wstring(wide, 8) == L"-_-_YQ.." && std::string(text, 8) == "+/+/YQ==" && utf8 == "-_-_YQ..");
  e.SetEncoder(nullptr);  // back to the default
  e.Encode(data, 4, wide);
  EXPECT_EQ(std::wstring(wide, 8), L"+/+/YQ..");

  CKD_Base64Decoder d(L'.');
  d.SetDecoder(UrlSafeBack);
  uint8_t out[2][4] = {};
  EXPECT_TRUE(d.Decode(L"-_-_YQ..", 8, out[0]) == 4 && d.Decode("+/+/YQ==", 8, out[1]) == 4);
  EXPECT_TRUE(Bytes(out[0], out[0] + 4) == Bytes(data, data + 4) && Bytes(out[1], out[1] + 4) == Bytes(data, data + 4));
  EXPECT_EQ(d.Decode("+/+/YQ..", 8, nullptr), 6);  // '.' is no padding in the byte form

  // The default mappings: value & 63; character & 127, 0xFF outside the alphabet.
  EXPECT_TRUE(KDCRT_DefBase64Encoder(64 + 1) == L'B' && KDCRT_DefBase64Decoder(L'/') == 63);
  EXPECT_TRUE(KDCRT_DefBase64Decoder(L'!') == 0xFF && KDCRT_DefBase64Decoder(static_cast<wchar_t>(L'A' + 128)) == 0);
  // Bytes from 0x80 up in the byte form read as 0xFF, like any other character outside the
  // alphabet.
  for (int high = 0x80; high <= 0xFF; ++high) {
    const std::string with_high = std::string("QU") + static_cast<char>(high) + "J";
    ASSERT_EQ(DecodeBytes(with_high), DecodeBytes("QU!J")) << high;
  }
}

// coreutils' base64 as the oracle, on random data of every length up to 300 and on large inputs.
TEST(Base64, AgreesWithCoreutils) {
  kdtest::TempDir dir;
  std::mt19937 rng(64);
  std::vector<Bytes> inputs;
  for (size_t len = 0; len <= 300; ++len) inputs.emplace_back(len);
  inputs.emplace_back(1 << 20);
  inputs.emplace_back((3 << 20) + 2);
  for (size_t i = 0; i < inputs.size(); ++i) {
    for (auto& b : inputs[i]) b = static_cast<uint8_t>(rng());
    char name[32];
    snprintf(name, sizeof name, "%04zu.bin", i);
    kdtest::WriteFile(dir.File(name), inputs[i]);
  }
  const std::string command = "cd " + dir.path() + " && for f in *.bin; do base64 -w0 \"$f\" || exit 1; echo; done";
  FILE* pipe = popen(command.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::string output;
  char chunk[65536];
  for (size_t n; (n = fread(chunk, 1, sizeof chunk, pipe)) > 0;) output.append(chunk, n);
  if (pclose(pipe) != 0) GTEST_SKIP() << "coreutils' base64 is not available";
  std::istringstream lines(output);
  CKD_Base64Encoder e;
  CKD_Base64Decoder d;
  for (const Bytes& input : inputs) {
    SCOPED_TRACE(input.size());
    std::string line;
    ASSERT_TRUE(std::getline(lines, line));
    ASSERT_EQ(EncodeBytes(input), line);
    ASSERT_EQ(DecodeBytes(line), input);
    if (input.size() > 300) continue;
    // The wide and string forms say the same.
    CKD_WideString wide;
    CKD_ByteString back;
    e.Encode(CKD_ByteStringC(input.data(), static_cast<int>(input.size())), wide);
    d.Decode(CKD_ByteStringC(line.c_str()), back);
    ASSERT_TRUE(wide == CKD_WideString::FromUTF8(line.c_str()) && back == CKD_ByteStringC(input.data(), static_cast<int>(input.size())));
  }
}

TEST(Base64, StringFormsSurviveFailingMemory) {
  kdtest::TestDefaultMgr mgr;
  CKD_WideString wide;
  CKD_ByteString bytes;
  mgr.sys().FailAll(true);
  EXPECT_EQ(CKD_Base64Encoder().Encode(CKD_ByteStringC("foobar"), wide) + CKD_Base64Encoder().Encode("foobar", bytes), 0);
  EXPECT_EQ(CKD_Base64Decoder().Decode(CKD_WideStringC(L"Zm9vYmFy"), bytes) + CKD_Base64Decoder().Decode("Zm9vYmFy", bytes), 0);
  EXPECT_TRUE(wide.IsEmpty() && bytes.IsEmpty());
}

}  // namespace
