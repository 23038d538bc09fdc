// Fuzzes the UTF-8 conversions against a reference written from their documented rules: the
// buffer decoder KD_UTF8Decode (counting, writing, and stopping at a short destination), the
// validity test KD_IsUTF8Data, the coder objects and the string conversions built on them, and
// both encoders, by round trip and against the reference byte for byte.
#include <cstdint>
#include <cstring>
#include <vector>

#include "fuzz/fuzz_input.h"
#include "norvane/text/utf8.h"
#include "norvane/text/utf8_coder.h"
#include "norvane/text/wide_string.h"

namespace {

using kdfuzz::FuzzInput;
using Bytes = std::vector<uint8_t>;
using Chars = std::vector<wchar_t>;

// The decoding rules. With stop_on_stray, a continuation byte with nothing pending or a byte
// FE/FF ends the conversion (the buffer form); otherwise such bytes are skipped (the coders).
// complete receives the number of bytes up to the end of the last character produced; decoding
// stops after limit characters.
Chars ReferenceDecode(const Bytes& in, bool stop_on_stray, size_t limit, size_t* complete) {
  Chars out;
  uint32_t pending = 0, cp = 0;
  *complete = 0;
  for (size_t i = 0; i < in.size() && out.size() < limit; ++i) {
    uint8_t b = in[i];
    if (b < 0x80) {
      pending = 0;
      out.push_back(b);
      *complete = i + 1;
    } else if (b < 0xC0) {
      if (pending == 0) {
        if (stop_on_stray) break;
        continue;
      }
      cp |= static_cast<uint32_t>(b & 0x3F) << (6 * (pending - 1));
      if (--pending == 0) {
        out.push_back(static_cast<wchar_t>(cp == 0 ? 0xFFFD : cp));
        *complete = i + 1;
      }
    } else if (b < 0xE0) {
      pending = 1, cp = static_cast<uint32_t>(b & 0x1F) << 6;
    } else if (b < 0xF0) {
      pending = 2, cp = static_cast<uint32_t>(b & 0x0F) << 12;
    } else if (b < 0xF8) {
      pending = 3, cp = static_cast<uint32_t>(b & 0x07) << 18;
    } else if (b < 0xFC) {
      pending = 4, cp = static_cast<uint32_t>(b & 0x03) << 24;
    } else if (b < 0xFE) {
      pending = 5, cp = static_cast<uint32_t>(b & 0x01) << 30;
    } else if (stop_on_stray) {
      break;
    }
  }
  return out;
}

bool ReferenceIsUTF8(const Bytes& in, int* len) {
  *len = 0;
  size_t i = 0;
  while (i < in.size()) {
    uint8_t b = in[i];
    if (b < 0x80) {
      ++i;
      continue;
    }
    int follow = b >= 0xC0 && b < 0xE0 ? 1 : b >= 0xE0 && b < 0xF0 ? 2 : b >= 0xF0 && b < 0xF8 ? 3
                 : b >= 0xF8 && b < 0xFC ? 4 : b >= 0xFC && b < 0xFE ? 5 : 0;
    if (!follow) return false;
    for (int k = 1; k <= follow; ++k) {
      if (i + k >= in.size()) return true;  // cut off by the end: not an error
      if ((in[i + k] & 0xC0) != 0x80) return false;
    }
    i += follow + 1;
    *len = static_cast<int>(i);
  }
  return true;
}

// The coder encoder: 1 to 6 bytes per character, negative characters skipped.
Bytes ReferenceEncode(const Chars& in) {
  static const uint8_t kPrefix[] = {0xC0, 0xE0, 0xF0, 0xF8, 0xFC};
  Bytes out;
  for (wchar_t ch : in) {
    if (static_cast<uint32_t>(ch) & 0x80000000u) continue;  // negative where wchar_t is signed
    uint32_t c = static_cast<uint32_t>(ch);
    if (c < 0x80) {
      out.push_back(static_cast<uint8_t>(c));
      continue;
    }
    int n = c < 0x800 ? 2 : c < 0x10000 ? 3 : c < 0x200000 ? 4 : c < 0x4000000 ? 5 : 6;
    out.push_back(static_cast<uint8_t>(kPrefix[n - 2] | (c >> (6 * (n - 1)))));
    for (int k = n - 2; k >= 0; --k) out.push_back(static_cast<uint8_t>(0x80 | ((c >> (6 * k)) & 0x3F)));
  }
  return out;
}

int Size16(wchar_t ch) {
  uint32_t c = static_cast<uint32_t>(ch) & 0xFFFF;
  return c < 0x80 ? 1 : c < 0x800 ? 2 : 3;
}

Chars ViewChars(const CKD_WideStringC& s) { return Chars(s.GetPtr(), s.GetPtr() + s.GetLength()); }
Bytes ViewBytes(const CKD_ByteStringC& s) { return Bytes(s.GetPtr(), s.GetPtr() + s.GetLength()); }

void CheckBufferDecode(const Bytes& in, int room) {
  const int n = static_cast<int>(in.size());
  const char* src = reinterpret_cast<const char*>(in.data());
  size_t complete;
  Chars all = ReferenceDecode(in, true, SIZE_MAX, &complete);

  int srcLen = n, dstLen = 0;
  KDFUZZ_CHECK(KD_UTF8Decode(src, &srcLen, nullptr, &dstLen) == 1);
  KDFUZZ_CHECK(dstLen == static_cast<int>(all.size()));
  KDFUZZ_CHECK(srcLen == (n < 1 ? 0 : static_cast<int>(complete)));

  // Into a destination of room characters: the first room characters and the bytes behind them.
  Chars dst(static_cast<size_t>(room > 0 ? room : 0) + 1, L'\x7777');
  size_t part_complete;
  Chars part = ReferenceDecode(in, true, room > 0 ? static_cast<size_t>(room) : SIZE_MAX, &part_complete);
  srcLen = n, dstLen = room;
  KDFUZZ_CHECK(KD_UTF8Decode(src, &srcLen, dst.data(), &dstLen) == 1);
  if (room < 1) {
    KDFUZZ_CHECK(dstLen == static_cast<int>(all.size()));  // no room: only counted
    KDFUZZ_CHECK(dst[0] == L'\x7777');
    return;
  }
  KDFUZZ_CHECK(dstLen == static_cast<int>(part.size()));
  KDFUZZ_CHECK(srcLen == (n < 1 ? 0 : static_cast<int>(part_complete)));
  KDFUZZ_CHECK(std::equal(part.begin(), part.end(), dst.begin()));
  KDFUZZ_CHECK(dst[static_cast<size_t>(room)] == L'\x7777');  // nothing past the room (inside it is scratch)
}

void CheckBufferEncode(const Chars& in, int room) {
  const int n = static_cast<int>(in.size());
  long long total = 0;
  for (wchar_t ch : in) total += Size16(ch);
  int srcLen = n, dstLen = 0;
  KDFUZZ_CHECK(KD_UTF8Encode(in.data(), &srcLen, nullptr, &dstLen) == 1);
  KDFUZZ_CHECK(srcLen == n && dstLen == total);

  Bytes dst(static_cast<size_t>(room > 0 ? room : 0) + 4, 0xEE);
  srcLen = n, dstLen = room;
  KDFUZZ_CHECK(KD_UTF8Encode(in.data(), &srcLen, reinterpret_cast<char*>(dst.data()), &dstLen) == 1);
  if (room < 1 || n < 1) return;
  // Every character that fitted is written; the one that did not is still counted.
  int fitted = 0, written = 0;
  while (fitted < n && written + Size16(in[fitted]) <= room) written += Size16(in[fitted++]);
  if (fitted == n) {
    KDFUZZ_CHECK(srcLen == n && dstLen == written);
  } else {
    KDFUZZ_CHECK(srcLen == fitted + 1 && dstLen == written + Size16(in[fitted]));
  }
  // The written bytes decode back to the low 16 bits of the characters.
  Bytes out(dst.begin(), dst.begin() + written);
  size_t complete;
  Chars back = ReferenceDecode(out, true, SIZE_MAX, &complete);
  KDFUZZ_CHECK(back.size() == static_cast<size_t>(fitted));
  for (int i = 0; i < fitted; ++i) KDFUZZ_CHECK(static_cast<uint32_t>(back[i]) == (static_cast<uint32_t>(in[i]) & 0xFFFF));
  KDFUZZ_CHECK(dst[written] == 0xEE);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput input(data, size);
  const int room = static_cast<int>(input.Byte()) - 8;  // negative and 0 mean "count only"
  const Bytes bytes = input.Rest();
  const int n = static_cast<int>(bytes.size());

  CheckBufferDecode(bytes, room);

  int len = n;
  int ref_len;
  bool ref = ReferenceIsUTF8(bytes, &ref_len);
  bool valid = KD_IsUTF8Data(bytes.data(), &len);
  KDFUZZ_CHECK(valid == ref);
  if (n > 0 && valid) KDFUZZ_CHECK(len == ref_len);

  // The coders and the conversions built on them agree with each other and with the reference.
  size_t complete;
  Chars decoded = ReferenceDecode(bytes, false, SIZE_MAX, &complete);
  CKD_UTF8Decoder decoder;
  for (uint8_t b : bytes) decoder.Input(b);
  KDFUZZ_CHECK(ViewChars(decoder.GetResult()) == decoded);
  CKD_WideString from = CKD_WideString::FromUTF8(reinterpret_cast<const char*>(bytes.data()), n);
  KDFUZZ_CHECK(ViewChars(from) == decoded);
  CKD_WideString via_string = CKD_ByteString(bytes.data(), n).UTF8Decode();
  KDFUZZ_CHECK(ViewChars(via_string) == decoded);

  // Encoding what was decoded gives the reference bytes, which decode to the same characters.
  Bytes encoded = ReferenceEncode(decoded);
  CKD_UTF8Encoder encoder;
  for (wchar_t ch : decoded) encoder.Input(ch);
  KDFUZZ_CHECK(ViewBytes(encoder.GetResult()) == encoded);
  KDFUZZ_CHECK(ViewBytes(KD_UTF8Encode(decoded.data(), static_cast<int>(decoded.size()))) == encoded);
  KDFUZZ_CHECK(ViewBytes(from.UTF8Encode()) == encoded);
  KDFUZZ_CHECK(ReferenceDecode(encoded, false, SIZE_MAX, &complete) == decoded);
  CheckBufferEncode(decoded, room);

  // The same bytes read as 32-bit characters reach negative and out-of-range values.
  Chars raw(bytes.size() / 4);
  if (!raw.empty()) std::memcpy(raw.data(), bytes.data(), raw.size() * 4);
  CKD_UTF8Encoder raw_encoder;
  for (wchar_t ch : raw) raw_encoder.Input(ch);
  KDFUZZ_CHECK(ViewBytes(raw_encoder.GetResult()) == ReferenceEncode(raw));
  CheckBufferEncode(raw, room);
  return 0;
}
