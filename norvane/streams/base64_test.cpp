#include "norvane/streams/base64.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <fstream>
#include <random>
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
std::string ToString(const CKD_ByteString& s) { return std::string(s.c_str(), static_cast<size_t>(s.GetLength())); }

// Every form agrees with the RFC 4648 vectors.
TEST(Base64, MatchesTheStandardVectors) {
  const std::pair<const char*, const char*> vectors[] = {{"", ""},         {"f", "Zg=="},         {"fo", "Zm8="},
                                                         {"foo", "Zm9v"},  {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="},
                                                         {"foobar", "Zm9vYmFy"}};
  CKD_Base64Encoder e(L'=');
  CKD_Base64Decoder d(L'=');
  for (const auto& [plain, text] : vectors) {
    SCOPED_TRACE(plain);
    const std::string p = plain, t = text;
    EXPECT_EQ(EncodeBytes(ToBytes(p)), t);
    EXPECT_EQ(DecodeBytes(t), ToBytes(p));
    CKD_WideString wide;
    EXPECT_EQ(e.Encode(CKD_ByteStringC(plain), wide), static_cast<int>(t.size()));
    EXPECT_TRUE(wide == CKD_WideString::FromUTF8(text));
    CKD_ByteString narrow;
    EXPECT_EQ(e.Encode(CKD_ByteStringC(plain), narrow), static_cast<int>(t.size()));
    EXPECT_EQ(ToString(narrow), t);
    CKD_ByteString back("old");
    EXPECT_EQ(d.Decode(CKD_WideStringC(wide), back), static_cast<int>(p.size()));
    EXPECT_EQ(ToString(back), p);
    back = "old";
    EXPECT_EQ(d.Decode(CKD_ByteStringC(text), back), static_cast<int>(p.size()));
    EXPECT_EQ(ToString(back), p);
  }
  // Needed sizes; missing padding; padding only; lengths below 1 and null sources.
  for (int len = 1; len <= 3; ++len) EXPECT_EQ(e.Encode(reinterpret_cast<const uint8_t*>("foo"), len, nullptr), 4);
  EXPECT_EQ(DecodeBytes("Zg"), ToBytes("f"));
  EXPECT_EQ(DecodeBytes("Zm9vYg"), ToBytes("foob"));
  EXPECT_EQ(DecodeBytes("===="), Bytes());
  EXPECT_EQ(DecodeBytes("Zm9vY"), Bytes({'f', 'o', 'o', 0x60}));  // a lone character: its value << 2
  EXPECT_EQ(d.Decode(static_cast<const char*>(nullptr), 4, nullptr), 0);
  EXPECT_EQ(e.Encode(nullptr, 3, nullptr), 0);
  EXPECT_EQ(e.Encode(reinterpret_cast<const uint8_t*>("x"), -1, nullptr), 0);
  EXPECT_EQ(e.Encode(reinterpret_cast<const uint8_t*>("x"), INT_MAX, nullptr), 0);  // too long for an int
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
  ASSERT_EQ(e.Encode(data, 4, wide), 8);
  EXPECT_EQ(std::wstring(wide, 8), L"-_-_YQ..");
  char text[8];
  ASSERT_EQ(e.Encode(data, 4, text), 8);
  EXPECT_EQ(std::string(text, 8), "+/+/YQ==");
  CKD_ByteString utf8;
  EXPECT_EQ(e.Encode(CKD_ByteStringC(reinterpret_cast<const char*>(data), 4), utf8), 8);
  EXPECT_EQ(ToString(utf8), "-_-_YQ..");
  e.SetEncoder(nullptr);  // back to the default
  ASSERT_EQ(e.Encode(data, 4, wide), 8);
  EXPECT_EQ(std::wstring(wide, 8), L"+/+/YQ..");

  CKD_Base64Decoder d(L'.');
  d.SetDecoder(UrlSafeBack);
  uint8_t out[4] = {};
  EXPECT_EQ(d.Decode(L"-_-_YQ..", 8, out), 4);
  EXPECT_EQ(Bytes(out, out + 4), Bytes(data, data + 4));
  EXPECT_EQ(d.Decode("+/+/YQ==", 8, out), 4);  // the byte form: '=' and the standard alphabet
  EXPECT_EQ(Bytes(out, out + 4), Bytes(data, data + 4));
  EXPECT_EQ(d.Decode("+/+/YQ..", 8, nullptr), 6);  // '.' is no padding there

  // The default mappings: value & 63; character & 127, 0xFF outside the alphabet.
  EXPECT_EQ(KDCRT_DefBase64Encoder(64 + 1), L'B');
  EXPECT_EQ(KDCRT_DefBase64Decoder(L'/'), 63);
  EXPECT_EQ(KDCRT_DefBase64Decoder(L'!'), 0xFF);
  EXPECT_EQ(KDCRT_DefBase64Decoder(static_cast<wchar_t>(L'A' + 128)), 0);
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
    std::ofstream(dir.File(name), std::ios::binary)
        .write(reinterpret_cast<const char*>(inputs[i].data()), static_cast<std::streamsize>(inputs[i].size()));
  }
  const std::string command = "cd " + dir.path() + " && for f in *.bin; do base64 -w0 \"$f\" || exit 1; echo; done";
  FILE* pipe = popen(command.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::vector<std::string> lines(1);
  char chunk[65536];
  for (size_t n; (n = fread(chunk, 1, sizeof chunk, pipe)) > 0;) {
    for (size_t k = 0; k < n; ++k) {
      if (chunk[k] == '\n')
        lines.emplace_back();
      else
        lines.back().push_back(chunk[k]);
    }
  }
  if (pclose(pipe) != 0) GTEST_SKIP() << "coreutils' base64 is not available";
  lines.pop_back();
  ASSERT_EQ(lines.size(), inputs.size());
  CKD_Base64Encoder e;
  CKD_Base64Decoder d;
  for (size_t i = 0; i < inputs.size(); ++i) {
    SCOPED_TRACE(inputs[i].size());
    ASSERT_EQ(EncodeBytes(inputs[i]), lines[i]);
    ASSERT_EQ(DecodeBytes(lines[i]), inputs[i]);
    if (inputs[i].size() > 300) continue;
    // The wide and string forms say the same.
    CKD_WideString wide;
    e.Encode(CKD_ByteStringC(inputs[i].data(), static_cast<int>(inputs[i].size())), wide);
    ASSERT_EQ(ToString(wide.UTF8Encode()), lines[i]);
    CKD_ByteString back;
    d.Decode(CKD_ByteStringC(lines[i].c_str()), back);
    ASSERT_EQ(ToBytes(ToString(back)), inputs[i]);
  }
}

TEST(Base64, StringFormsSurviveFailingMemory) {
  kdtest::TestDefaultMgr mgr;
  CKD_Base64Encoder e;
  CKD_Base64Decoder d;
  CKD_WideString wide;
  CKD_ByteString bytes;
  mgr.sys().FailAll(true);
  EXPECT_EQ(e.Encode(CKD_ByteStringC("foobar"), wide), 0);
  EXPECT_EQ(e.Encode(CKD_ByteStringC("foobar"), bytes), 0);
  EXPECT_EQ(d.Decode(CKD_WideStringC(L"Zm9vYmFy"), bytes), 0);
  EXPECT_EQ(d.Decode(CKD_ByteStringC("Zm9vYmFy"), bytes), 0);
  EXPECT_TRUE(wide.IsEmpty() && bytes.IsEmpty());
}

}  // namespace
