// Fuzzes the string and buffer operations that take arbitrary bytes: a binary buffer edited by a
// random sequence of operations (with its own bytes as arguments too) against a byte vector;
// the byte-string searches and edits against std::string; 16-bit and local-encoding conversions
// against their rules and the C library; integer parsing, hashes and IDs against references.
#include <clocale>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string>
#include <vector>

#include "fuzz/fuzz_input.h"
#include "norvane/runtime/sys_helpers.h"
#include "norvane/text/binary_buf.h"
#include "norvane/text/byte_string.h"
#include "norvane/text/string_l.h"
#include "norvane/text/text_buf.h"
#include "norvane/text/utf16.h"
#include "norvane/text/wide_string.h"

namespace {

using kdfuzz::FuzzInput;
using Bytes = std::vector<uint8_t>;

std::string Str(const Bytes& b) { return std::string(b.begin(), b.end()); }
std::string Str(const CKD_ByteString& s) { return std::string(s.c_str(), static_cast<size_t>(s.GetLength())); }
std::string Str(const CKD_BinaryBuf& b) {
  return b.GetSize() ? std::string(reinterpret_cast<const char*>(b.GetBuffer()), static_cast<size_t>(b.GetSize()))
                     : std::string();
}

// A binary buffer and a text buffer under a random sequence of edits, against a string.
void EditBuffer(FuzzInput& in) {
  CKD_ByteTextBuf buf;
  std::string model;
  for (int step = 0; step < 64 && !in.empty(); ++step) {
    uint8_t op = in.Byte();
    int size = static_cast<int>(buf.GetSize());
    // Arguments come from the input, or from the buffer's own bytes.
    Bytes fresh = in.Run();
    const uint8_t* arg = fresh.data();
    int len = static_cast<int>(fresh.size());
    if ((op & 0x80) && size > 0) {
      int from = static_cast<int>(in.Below(static_cast<uint32_t>(size)));
      len = static_cast<int>(in.Below(static_cast<uint32_t>(size - from) + 1));
      arg = buf.GetBuffer() + from;
      fresh.assign(arg, arg + len);
    }
    const std::string text(fresh.begin(), fresh.end());
    switch (op % 9) {
      case 0:
        KDFUZZ_CHECK(buf.AppendBlock(arg, len));
        model += text;
        break;
      case 1: {
        int pos = static_cast<int>(in.Below(static_cast<uint32_t>(size) + 1));
        KDFUZZ_CHECK(buf.InsertBlock(pos, arg, len));
        model.insert(static_cast<size_t>(pos), text);
        break;
      }
      case 2:
        KDFUZZ_CHECK(buf.CopyData(arg, len));
        model = text;
        break;
      case 3: {
        int start = static_cast<int>(in.Byte()) - 8, count = static_cast<int>(in.Byte()) - 8;
        buf.Delete(start, count);
        if (start >= 0 && count >= 0 && start + count <= size && size > 0)
          model.erase(static_cast<size_t>(start), static_cast<size_t>(count));
        break;
      }
      case 4: {
        uint8_t fill = in.Byte();
        int count = in.Byte();
        KDFUZZ_CHECK(buf.AppendFill(fill, count));
        model.append(static_cast<size_t>(count), static_cast<char>(fill));
        break;
      }
      case 5:
        KDFUZZ_CHECK(buf.EstimateSize(static_cast<int>(in.Below(70000)), static_cast<int>(in.Below(5000))));
        break;
      case 6:
        buf << CKD_ByteStringC(arg, len);
        model += text;
        break;
      case 7:
        buf = CKD_ByteStringC(arg, len);
        model = text;
        break;
      default: {
        CKD_ByteString copy;
        copy = buf;
        KDFUZZ_CHECK(Str(copy) == model);
        buf.Clear();
        model.clear();
        break;
      }
    }
    KDFUZZ_CHECK(buf.GetSize() <= buf.GetAllocSize());
    KDFUZZ_CHECK(Str(buf) == model);
    if (model.size() > (1u << 16)) return;  // doubling by self-appends would only cost time
  }
}

// Searches and edits of a byte string against std::string.
void EditString(FuzzInput& in) {
  std::string model = Str(in.Run());
  CKD_ByteString s(model.data(), static_cast<int>(model.size()));
  for (int step = 0; step < 32 && !in.empty(); ++step) {
    uint8_t op = in.Byte();
    std::string a = Str(in.Run()), b = Str(in.Run());
    CKD_ByteStringC va(a.data(), static_cast<int>(a.size())), vb(b.data(), static_cast<int>(b.size()));
    switch (op % 6) {
      case 0: {
        size_t start = in.Byte();
        size_t at = a.empty() || start > model.size() ? std::string::npos : model.find(a, start);
        KDFUZZ_CHECK(s.Find(va, static_cast<int>(start)) == (at == std::string::npos ? -1 : static_cast<int>(at)));
        const char* hit = KD_strstr(model.data(), static_cast<int>(model.size()), a.data(), static_cast<int>(a.size()));
        size_t first = a.empty() ? std::string::npos : model.find(a);
        KDFUZZ_CHECK(first == std::string::npos ? hit == nullptr : hit == model.data() + first);
        break;
      }
      case 1: {
        int count = 0;
        std::string out;
        size_t pos = 0;
        if (!a.empty()) {
          for (size_t at; (at = model.find(a, pos)) != std::string::npos; pos = at + a.size(), ++count)
            out += model.substr(pos, at - pos) + b;
        }
        out += model.substr(pos);
        if (out.size() > (1u << 16)) return;  // repeated expansion would only cost time
        KDFUZZ_CHECK(s.Replace(va, vb) == count);
        model = out;
        break;
      }
      case 2: {
        char ch = a.empty() ? 0 : a[0];
        int count = 0;
        std::string out;
        for (char c : model) c == ch ? ++count : (out += c, 0);
        KDFUZZ_CHECK(s.Remove(ch) == count);
        model = out;
        break;
      }
      case 3:
        s.TrimLeft(va);
        if (!model.empty() && !a.empty()) model.erase(0, std::min(model.find_first_not_of(a), model.size()));
        break;
      case 4:
        s.TrimRight(va);
        if (!model.empty() && !a.empty()) {
          size_t keep = model.find_last_not_of(a);
          model.erase(keep == std::string::npos ? 0 : keep + 1);
        }
        break;
      default:
        s += vb;
        model += b;
        break;
    }
    KDFUZZ_CHECK(Str(s) == model);
  }
}

// Integer parsing: optional sign, digits wrapping in the result's width, no white space.
template <class T, class Char>
T ReferenceParse(const Char* s) {
  using U = typename std::make_unsigned<T>::type;
  bool neg = false;
  if (*s == '+' || *s == '-') neg = *s++ == '-';
  U v = 0;
  for (; *s >= '0' && *s <= '9'; ++s) v = static_cast<U>(v * 10 + static_cast<U>(*s - '0'));
  return static_cast<T>(neg ? static_cast<U>(0 - v) : v);
}

uint32_t ReferenceHash(const std::string& s, bool fold) {
  uint32_t h = 0;
  for (char c : s) {
    if (fold && c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
    h = h * 31 + static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(c)));
  }
  return h;
}

void Numbers(const Bytes& bytes) {
  std::string text = Str(bytes);  // terminated by std::string, embedded 0 bytes end it early
  std::wstring wide(text.begin(), text.end());
  for (wchar_t& c : wide) c = static_cast<unsigned char>(c);
  KDFUZZ_CHECK(KDSYS_atoi(text.c_str()) == ReferenceParse<int>(text.c_str()));
  KDFUZZ_CHECK(KDSYS_atoi64(text.c_str()) == ReferenceParse<long long>(text.c_str()));
  KDFUZZ_CHECK(KDSYS_wtoi(wide.c_str()) == ReferenceParse<int>(wide.c_str()));
  KDFUZZ_CHECK(KDSYS_wtoi64(wide.c_str()) == ReferenceParse<long long>(wide.c_str()));
  int used = -1;
  KDSYS_wcstof(wide.c_str(), static_cast<int>(wide.size()), &used);
  KDFUZZ_CHECK(wide.empty() ? used == -1 : used >= 0 && used <= static_cast<int>(wide.size()));
  for (bool fold : {false, true})
    KDFUZZ_CHECK(KD_HashCode_String_GetA(text.data(), static_cast<int>(text.size()), fold) == ReferenceHash(text, fold));
  CKD_ByteStringC view(text.data(), static_cast<int>(text.size()));
  for (int start = -1; start <= static_cast<int>(text.size()); ++start) {
    uint32_t id = 0;
    for (int k = 0; k < 4; ++k) {
      int i = start + k;
      id = id << 8 | (start >= 0 && i < static_cast<int>(text.size()) ? static_cast<uint8_t>(text[i]) : 0);
    }
    KDFUZZ_CHECK(view.GetID(start) == (start < 0 || start >= static_cast<int>(text.size()) ? 0 : id));
  }
}

// 16-bit units: one character per unit both ways; the "swap" keeps bits 8..15 only.
void SixteenBit(const Bytes& bytes) {
  const int n = static_cast<int>(bytes.size() / 2);
  std::vector<unsigned short> units(static_cast<size_t>(n) + 1, 0);
  if (n) std::memcpy(units.data(), bytes.data(), static_cast<size_t>(n) * 2);
  std::wstring le, be;
  for (int i = 0; i < n; ++i) {
    le += static_cast<wchar_t>(units[i]);
    be += static_cast<wchar_t>(static_cast<unsigned short>(units[i] << 8 | units[i] >> 8));
  }
  CKD_WideString from_le = CKD_WideString::FromUTF16LE(units.data(), n);
  CKD_WideString from_be = CKD_WideString::FromUTF16BE(units.data(), n);
  KDFUZZ_CHECK(std::wstring(from_le.c_str(), static_cast<size_t>(from_le.GetLength())) == le);
  KDFUZZ_CHECK(std::wstring(from_be.c_str(), static_cast<size_t>(from_be.GetLength())) == be);
  // A negative length reads to the first 0 unit (units ends with one).
  size_t stop = le.find(L'\0');
  CKD_WideString to_zero = CKD_WideString::FromUTF16LE(units.data(), -1);
  KDFUZZ_CHECK(std::wstring(to_zero.c_str(), static_cast<size_t>(to_zero.GetLength())) == le.substr(0, stop));
  KDFUZZ_CHECK(CKD_WideString::WStringLength(units.data()) == static_cast<int>(le.substr(0, stop).size()));
  // Encoding back gives the same bytes, plus two 0 bytes when asked to terminate.
  CKD_ByteString encoded = from_le.UTF16LE_Encode(true);
  KDFUZZ_CHECK(encoded.GetLength() == 2 * n + 2);
  KDFUZZ_CHECK(n == 0 || std::memcmp(encoded.c_str(), bytes.data(), static_cast<size_t>(2 * n)) == 0);

  // In place and copying forms over the same values.
  std::vector<wchar_t> wide(static_cast<size_t>(n) + 1);
  if (n) std::memcpy(wide.data(), units.data(), static_cast<size_t>(n) * 2);
  KD_UTF16ToWChar(wide.data(), n);
  std::vector<wchar_t> copy(static_cast<size_t>(n) + 1);
  KD_UTF16ToWCharCopy(units.data(), copy.data(), n);
  for (int i = 0; i < n; ++i) KDFUZZ_CHECK(wide[i] == le[i] && copy[i] == le[i]);
  std::vector<wchar_t> raw(bytes.size() / 4 + 1);
  if (bytes.size() >= 4) std::memcpy(raw.data(), bytes.data(), bytes.size() / 4 * 4);
  const int m = static_cast<int>(bytes.size() / 4);
  std::vector<wchar_t> swapped(raw.size());
  KD_SwapByteOrderCopy(raw.data(), swapped.data(), m);
  std::vector<unsigned short> narrow(raw.size());
  KD_WCharToUTF16Copy(raw.data(), narrow.data(), m);
  for (int i = 0; i < m; ++i) {
    uint32_t v = static_cast<uint32_t>(raw[i]);
    KDFUZZ_CHECK(static_cast<uint32_t>(swapped[i]) == ((v >> 8) & 0xFF));
    KDFUZZ_CHECK(narrow[i] == static_cast<unsigned short>(v));
  }
  KD_SwapByteOrder(raw.data(), m);
  KDFUZZ_CHECK(std::memcmp(raw.data(), swapped.data(), static_cast<size_t>(m) * 4) == 0);
}

// The local encoding (the C library's, set to UTF-8 at start) against mbstowcs and wcstombs.
void Local(const Bytes& bytes) {
  std::string text = Str(bytes);
  CKD_WideString wide = CKD_WideString::FromLocal(text.data(), static_cast<int>(text.size()));
  size_t need = std::mbstowcs(nullptr, text.c_str(), 0);
  std::wstring expect;
  if (need != static_cast<size_t>(-1)) {
    expect.resize(need);
    std::mbstowcs(&expect[0], text.c_str(), need);
  }
  KDFUZZ_CHECK(std::wstring(wide.c_str(), static_cast<size_t>(wide.GetLength())) == expect);
  // Back to bytes: the text up to its first 0 byte when it was valid.
  if (!expect.empty()) {
    CKD_ByteString back = CKD_ByteString::FromUnicode(wide);
    KDFUZZ_CHECK(Str(back) == std::string(text.c_str()));
  }
  // Allocator-bound copies keep what they are given.
  CKD_ByteStringL l;
  l.Set(CKD_ByteStringC(text.data(), static_cast<int>(text.size())), nullptr);
  KDFUZZ_CHECK(std::string(l.c_str(), static_cast<size_t>(l.GetLength())) == text);
  KDFUZZ_CHECK(l.c_str()[l.GetLength()] == 0);
  l.Empty(nullptr);
  CKD_WideStringL wl;
  wl.Set(CKD_WideStringC(wide.c_str(), wide.GetLength()), nullptr);
  KDFUZZ_CHECK(wl.GetInteger() == ReferenceParse<int>(wl.c_str()));
  if (!text.empty()) {
    std::wstring targets(text.begin(), text.begin() + 1);
    targets[0] = static_cast<unsigned char>(text[0]);
    std::wstring model(wl.c_str(), static_cast<size_t>(wl.GetLength()));
    wl.TrimRight(targets.c_str());
    size_t keep = targets[0] ? model.find_last_not_of(targets) : model.size() - 1;
    if (!model.empty() && targets[0]) model.erase(keep == std::wstring::npos ? 0 : keep + 1);
    KDFUZZ_CHECK(std::wstring(wl.c_str(), static_cast<size_t>(wl.GetLength())) == model);
  }
  wl.Empty(nullptr);
}

}  // namespace

KDFUZZ_UTF8_LOCALE

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput in(data, size);
  switch (in.Byte() % 5) {
    case 0:
      EditBuffer(in);
      break;
    case 1:
      EditString(in);
      break;
    case 2:
      Numbers(in.Rest());
      break;
    case 3:
      SixteenBit(in.Rest());
      break;
    default:
      Local(in.Rest());
      break;
  }
  return 0;
}
