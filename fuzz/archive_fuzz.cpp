// Fuzzes the readers of stored bytes: Base64 decoding in every form (byte text, wide text, and
// the string forms) against a reference of its documented rules and by round trip; the archive
// loader reading a random sequence of values against a model of the archive format; the bit
// stream reading random field widths against a reference bit reader; and KDPKI_HugeInt::Decode
// with Encode back and a few identities of the arithmetic on what was decoded.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/fuzz_input.h"
#include "norvane/crypto/huge_int.h"
#include "norvane/streams/archive.h"
#include "norvane/streams/base64.h"
#include "norvane/streams/bit_stream.h"

namespace {

using kdfuzz::FuzzInput;
using Bytes = std::vector<uint8_t>;

uint8_t Value64(unsigned c) {
  c &= 127;
  if (c >= 'A' && c <= 'Z') return static_cast<uint8_t>(c - 'A');
  if (c >= 'a' && c <= 'z') return static_cast<uint8_t>(c - 'a' + 26);
  if (c >= '0' && c <= '9') return static_cast<uint8_t>(c - '0' + 52);
  if (c == '+') return 62;
  if (c == '/') return 63;
  return 0xFF;
}

// Trailing padding dropped, then 4 characters give 3 bytes, 3 give 2, 2 give 1 and 1 gives 1.
template <class C>
Bytes ReferenceBase64(const std::vector<C>& text, C pad) {
  size_t n = text.size();
  while (n > 0 && text[n - 1] == pad) --n;
  Bytes out;
  for (size_t i = 0; i < n; i += 4) {
    unsigned v[4] = {};
    size_t k = n - i < 4 ? n - i : 4;
    for (size_t j = 0; j < k; ++j) v[j] = Value64(static_cast<unsigned>(text[i + j]));
    out.push_back(static_cast<uint8_t>(v[0] << 2 | v[1] >> 4));
    if (k >= 3) out.push_back(static_cast<uint8_t>(v[1] << 4 | v[2] >> 2));
    if (k == 4) out.push_back(static_cast<uint8_t>(v[2] << 6 | v[3]));
  }
  return out;
}

void Base64(const Bytes& bytes) {
  CKD_Base64Decoder decoder;
  const int n = static_cast<int>(bytes.size());
  std::vector<char> chars(bytes.begin(), bytes.end());
  // Bytes from 0x80 up read as 0xFF in the byte form.
  std::vector<char> folded = chars;
  for (char& c : folded)
    if (static_cast<unsigned char>(c) >= 0x80) c = '\x01';
  Bytes expect = ReferenceBase64(folded, '=');
  int need = decoder.Decode(chars.data(), n, static_cast<uint8_t*>(nullptr));
  KDFUZZ_CHECK(need == static_cast<int>(expect.size()));
  Bytes got(static_cast<size_t>(need) + 1, 0xEE);
  KDFUZZ_CHECK(decoder.Decode(chars.data(), n, got.data()) == need);
  KDFUZZ_CHECK(std::equal(expect.begin(), expect.end(), got.begin()) && got[static_cast<size_t>(need)] == 0xEE);

  // The wide form reads the low 7 bits of each character.
  std::vector<wchar_t> wide(bytes.size() / 2);
  for (size_t i = 0; i < wide.size(); ++i)
    wide[i] = static_cast<wchar_t>(bytes[2 * i] | (bytes[2 * i + 1] & 0x7F) << 8);
  Bytes wexpect = ReferenceBase64(wide, L'=');
  CKD_ByteString wout;
  KDFUZZ_CHECK(decoder.Decode(CKD_WideStringC(wide.data(), static_cast<int>(wide.size())), wout) ==
               static_cast<int>(wexpect.size()));
  KDFUZZ_CHECK(Bytes(wout.GetPtr(), wout.GetPtr() + wout.GetLength()) == wexpect);
  CKD_ByteString from_utf8;
  decoder.Decode(CKD_ByteStringC(chars.data(), n), from_utf8);

  // Encoding then decoding gives the bytes back, in every form.
  CKD_Base64Encoder encoder;
  int length = encoder.Encode(bytes.data(), n, nullptr);
  KDFUZZ_CHECK(length == (n < 1 ? 0 : (n + 2) / 3 * 4));
  std::vector<char> text(static_cast<size_t>(length) + 1);
  KDFUZZ_CHECK(encoder.Encode(bytes.data(), n, text.data()) == length);
  Bytes back(bytes.size() + 3);
  KDFUZZ_CHECK(decoder.Decode(text.data(), length, back.data()) == n);
  KDFUZZ_CHECK(std::equal(bytes.begin(), bytes.end(), back.begin()));
  CKD_WideString wtext;
  encoder.Encode(CKD_ByteStringC(bytes.data(), n), wtext);
  CKD_ByteString wback;
  decoder.Decode(CKD_WideStringC(wtext), wback);
  KDFUZZ_CHECK(Bytes(wback.GetPtr(), wback.GetPtr() + wback.GetLength()) == bytes);
}

void Archive(FuzzInput& in) {
  Bytes data = in.Run(4);
  CKD_ArchiveLoader loader(data.data(), static_cast<unsigned>(data.size()));
  size_t offset = 0;
  auto fits = [&](size_t k) { return data.size() - offset >= k; };
  auto le = [&](size_t k) {
    uint64_t v = 0;
    for (size_t i = 0; i < k; ++i) v |= static_cast<uint64_t>(data[offset + i]) << (8 * i);
    return v;
  };
  for (int step = 0; step < 40 && !in.empty(); ++step) {
    switch (in.Byte() % 7) {
      case 0: {
        int v = 7;
        bool ok = fits(4);
        int expect = ok ? static_cast<int>(static_cast<uint32_t>(le(4))) : 7;
        loader >> v;
        KDFUZZ_CHECK(v == expect);
        if (ok) offset += 4;
        break;
      }
      case 1: {
        long long v = 7;
        bool ok = fits(8);
        long long expect = ok ? static_cast<long long>(le(8)) : 7;
        loader >> v;
        KDFUZZ_CHECK(v == expect);
        if (ok) offset += 8;
        break;
      }
      case 2: {
        bool v = false;
        bool ok = fits(1);
        bool expect = ok && data[offset] != 0;
        loader >> v;
        KDFUZZ_CHECK(v == expect);
        if (ok) offset += 1;
        break;
      }
      case 3:
      case 4: {  // a byte string or a wide string: length, then bytes
        CKD_ByteString s("untouched");
        CKD_WideString w(L"untouched");
        bool has_length = fits(4);
        int length = has_length ? static_cast<int>(static_cast<uint32_t>(le(4))) : 0;
        size_t start = offset + 4;
        if (in.Byte() & 1)
          loader >> s;
        else
          loader >> w;
        if (!has_length) {
          KDFUZZ_CHECK(s == "untouched" && w.GetLength() == 9);
          break;
        }
        offset += 4;
        if (length >= 1 && data.size() - offset >= static_cast<size_t>(length)) {
          if (s != "untouched") KDFUZZ_CHECK(s == CKD_ByteStringC(data.data() + start, length));
          offset += static_cast<size_t>(length);
        } else {
          KDFUZZ_CHECK(s.IsEmpty() || w.IsEmpty());
        }
        break;
      }
      case 5: {
        unsigned k = in.Byte();
        Bytes buf(k + 1);
        bool ok = fits(k);
        KDFUZZ_CHECK(loader.Read(in.Bool() ? buf.data() : nullptr, k) == ok);
        if (ok) offset += k;
        break;
      }
      default: {
        float f;
        uint8_t b = 9;
        bool ok = fits(1);
        loader >> b;
        KDFUZZ_CHECK(b == (ok ? data[offset] : 9));
        if (ok) offset += 1;
        if (fits(4)) {
          uint32_t bits = static_cast<uint32_t>(le(4));
          loader >> f;
          KDFUZZ_CHECK(std::memcmp(&f, &bits, 4) == 0);
          offset += 4;
        }
        break;
      }
    }
    KDFUZZ_CHECK(loader.GetOffset() == offset && loader.IsEOF() == (offset >= data.size()));
  }
}

void Bits(FuzzInput& in) {
  Bytes data = in.Run();
  CKD_BitStream bits(data.data(), static_cast<unsigned>(data.size()));
  uint64_t pos = 0;
  const uint64_t size = data.size() * 8;
  for (int step = 0; step < 64 && !in.empty(); ++step) {
    uint8_t op = in.Byte();
    if (op == 0xFF) {
      bits.ByteAlign();
      pos = (pos + 7) & ~7ull;
    } else {
      unsigned count = op % 41;
      uint32_t expect = 0;
      if (pos + count <= size) {
        for (unsigned i = 0; i < count; ++i) {
          uint64_t at = pos + i;
          expect = expect << 1 | ((data[at >> 3] >> (7 - (at & 7))) & 1);
        }
        pos += count;
      }
      KDFUZZ_CHECK(bits.GetBits(count) == expect);
    }
    KDFUZZ_CHECK(bits.GetPos() == pos && bits.IsEOF() == (pos >= size));
  }
}

void Integers(FuzzInput& in) {
  Bytes a_bytes = in.Run(), b_bytes = in.Run();
  KDPKI_HugeInt a, b;
  a.Decode(a_bytes.data(), static_cast<int>(a_bytes.size()));
  b.Decode(b_bytes.data(), static_cast<int>(b_bytes.size()));
  // Encoding into as many bytes as were decoded gives them back, leading zeros included.
  Bytes out(a_bytes.size());
  a.Encode(out.data(), static_cast<int>(out.size()));
  KDFUZZ_CHECK(out == a_bytes);
  size_t zeros = 0;
  while (zeros < a_bytes.size() && a_bytes[zeros] == 0) ++zeros;
  KDFUZZ_CHECK(a.GetByteCount() == a_bytes.size() - zeros && !a.IsNegative());
  KDPKI_HugeInt sum = a + b;
  KDFUZZ_CHECK((sum - b).Compare(a) == 0);
  if (!b.IsZero()) {
    KDPKI_HugeInt product = a * b;
    KDFUZZ_CHECK((product / b).Compare(a) == 0 && (product % b).IsZero());
    KDPKI_HugeInt q = a / b, r = a % b;
    KDFUZZ_CHECK((q * b + r).Compare(a) == 0 && r.PositiveCompare(b) < 0);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput in(data, size);
  switch (in.Byte() % 4) {
    case 0:
      Base64(in.Rest());
      break;
    case 1:
      Archive(in);
      break;
    case 2:
      Bits(in);
      break;
    default:
      Integers(in);
      break;
  }
  return 0;
}
