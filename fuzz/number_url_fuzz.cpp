// Fuzzes the number and URL text parsers: KD_atof, KD_wtof, KD_atonum, KD_atofix32 and
// KDSYS_strtof over arbitrary text, KD_atofix32 against a reference of its documented rules, and
// KD_atonum against KD_atof; the URL and URI decoders over arbitrary bytes, KD_DecodeURI against
// percent-decoding followed by UTF-8 decoding, and the URI round trip of any code points.
#include <clocale>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/fuzz_input.h"
#include "norvane/text/number_text.h"
#include "norvane/text/url_text.h"
#include "norvane/text/wide_string.h"

namespace {

using kdfuzz::FuzzInput;

void ReferenceFix32(const std::string& s, int& integer, unsigned& fraction) {
  static const unsigned kWeights[] = {429496730, 42949673, 4294967, 429497, 42950, 4295, 429, 43, 4};
  integer = 0;
  fraction = 0;
  size_t i = 0;
  bool negative = false;
  if (!s.empty() && (s[0] == '+' || s[0] == '-')) negative = s[i++] == '-';
  uint32_t value = 0;
  for (; i < s.size() && s[i] >= '0' && s[i] <= '9'; ++i) {
    value = value * 10 + static_cast<uint32_t>(s[i] - '0');
    if (static_cast<int32_t>(value) < 0) {
      integer = negative ? -16777215 : 16777215;
      return;
    }
  }
  if (i < s.size() && s[i] == '.') {
    ++i;
    for (int k = 0; k < 9 && i < s.size() && s[i] >= '0' && s[i] <= '9'; ++k, ++i)
      fraction += static_cast<unsigned>(s[i] - '0') * kWeights[k];
  }
  integer = negative ? -static_cast<int32_t>(value) : static_cast<int32_t>(value);
  if (negative && fraction != 0) {
    integer -= 1;
    fraction = 0u - fraction;
  }
}

int Hex(char c) {
  return c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

std::string PercentDecode(const std::string& s) {
  std::string out;
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '%' && i + 2 < s.size() + 0 && Hex(s[i + 1]) >= 0 && Hex(s[i + 2]) >= 0) {
      out += static_cast<char>(Hex(s[i + 1]) * 16 + Hex(s[i + 2]));
      i += 2;
    } else {
      out += s[i];
    }
  }
  return out;
}

std::wstring WStr(const CKD_WideString& w) { return std::wstring(w.c_str(), static_cast<size_t>(w.GetLength())); }

}  // namespace

KDFUZZ_UTF8_LOCALE

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput in(data, size);
  const uint8_t mode = in.Byte();
  std::vector<uint8_t> bytes = in.Rest();
  const std::string text(bytes.begin(), bytes.end());
  const CKD_ByteStringC view(text.data(), static_cast<int>(text.size()));

  if (mode & 1) {
    float f = KD_atof(view);
    bool is_integer = false;
    unsigned char result[9] = {};  // 8 bytes, at offset 0 or 1
    KD_atonum(view, is_integer, result + (mode & 2 ? 1 : 0), mode & 4 ? 8 : 4);  // unaligned too
    KDFUZZ_CHECK(is_integer == (text.find('.') == std::string::npos));
    if (!is_integer) KDFUZZ_CHECK(std::memcmp(result + (mode & 2 ? 1 : 0), &f, 4) == 0);
    int integer, ref_integer;
    unsigned fraction, ref_fraction;
    KD_atofix32(view, integer, fraction);
    ReferenceFix32(text, ref_integer, ref_fraction);
    KDFUZZ_CHECK(integer == ref_integer && fraction == ref_fraction);
    std::wstring wide(text.begin(), text.end());
    for (wchar_t& c : wide) c = static_cast<unsigned char>(c);
    KD_wtof(wide.c_str(), static_cast<int>(wide.size()));
    KD_wtof(wide.c_str(), -1);
    int used = -1;
    KDSYS_strtof(text.data(), static_cast<int>(text.size()), &used);
    KDFUZZ_CHECK(used >= -1 && used <= static_cast<int>(text.size()));
    char out[KD_FTOA_BUFFER_SIZE];
    for (int precision : {0, 3, 9}) {
      KDFUZZ_CHECK(KD_ftoa_s(f, out, precision) < KD_FTOA_BUFFER_SIZE);
      KDFUZZ_CHECK(KD_ftoa(f, out, precision) < KD_FTOA_BUFFER_SIZE);
    }
  } else {
    CKD_ByteString url(text.data(), static_cast<int>(text.size()));
    KD_UrlDecode(url);
    std::string raw = PercentDecode(text);
    CKD_WideString expect = CKD_WideString::FromUTF8(raw.data(), static_cast<int>(raw.size()));
    KDFUZZ_CHECK(WStr(KD_DecodeURI(url)) == WStr(expect));
    // Any code points below 2^31 survive the URI round trip.
    std::wstring points(bytes.size() / 4, L'\0');
    for (size_t i = 0; i < points.size(); ++i) {
      uint32_t v;
      std::memcpy(&v, bytes.data() + 4 * i, 4);
      points[i] = static_cast<wchar_t>(v & 0x7FFFFFFF);
    }
    CKD_WideString wide(points.data(), static_cast<int>(points.size()));
    CKD_ByteString encoded = KD_EncodeURI(wide);
    KDFUZZ_CHECK(WStr(KD_DecodeURI(encoded)) == points);
    CKD_ByteString local = KD_UrlEncode(wide);
    KD_UrlDecode(local);
  }
  return 0;
}
