// Fuzzes the readers of public-key data from outside: the MPInt reader and writer (round trip),
// the RSA and DSA key blobs as KDPKI_VerifyRsaKey, the encryption, signing and verification entry
// points take them (lengths running past the blob must be refused, never read past), and the DER
// readers of KDPKI_VerifySHA256RsaSign. Sizes are bounded so the arithmetic stays quick.
#include <cstdint>
#include <cstring>
#include <vector>

#include "fuzz/fuzz_input.h"
#include "norvane/crypto/dsa.h"
#include "norvane/crypto/huge_int.h"
#include "norvane/crypto/mpint.h"
#include "norvane/crypto/rsa.h"

namespace {

using kdfuzz::FuzzInput;
using Bytes = std::vector<uint8_t>;

CKD_ByteStringC View(const Bytes& b) { return CKD_ByteStringC(b.data(), static_cast<int>(b.size())); }

void MPInts(const Bytes& bytes) {
  // The raw reader trusts its length field: only a field that fits the bytes is handed to it.
  if (bytes.size() >= 4) {
    uint32_t length = static_cast<uint32_t>(bytes[0]) << 24 | bytes[1] << 16 | bytes[2] << 8 | bytes[3];
    if (length <= bytes.size() - 4) {
      KDPKI_HugeInt value;
      KDFUZZ_CHECK(KDPKI_ImportMPInt(value, bytes.data()) == length + 4);
      size_t zeros = 0;
      while (zeros < length && bytes[4 + zeros] == 0) ++zeros;
      uint32_t size = KDPKI_ExportMPInt(value, nullptr);
      KDFUZZ_CHECK(size == length - zeros + 4);
      Bytes out(size);
      KDFUZZ_CHECK(KDPKI_ExportMPInt(value, out.data()) == size);
      KDFUZZ_CHECK(std::memcmp(out.data() + 4, bytes.data() + 4 + zeros, size - 4) == 0);
    }
  }
  KDPKI_HugeInt bare;
  KDFUZZ_CHECK(KDPKI_ImportMPInt(bare, bytes.data(), static_cast<uint32_t>(bytes.size())) ==
               (bytes.empty() ? 0u : static_cast<uint32_t>(bytes.size())));
}

void Der(const Bytes& der, const Bytes& data, const Bytes& signature) {
  KDPKI_HugeInt n, e;
  uint32_t at = KDPKI_ImportNInt(n, der.data(), static_cast<uint32_t>(der.size()));
  KDFUZZ_CHECK(at == 0xFFFFFFFFu || at <= der.size());
  if (at != 0xFFFFFFFFu) {
    uint32_t used = KDPKI_ImportEInt(e, der.data() + at, static_cast<uint32_t>(der.size()) - at);
    KDFUZZ_CHECK(used == 0xFFFFFFFFu || (used == 5 && e.ConvertToLong() == 65537));
  }
  KDPKI_VerifySHA256RsaSign(View(data), View(signature), View(der));
}

void Keys(uint8_t op, int bits, const Bytes& key, const Bytes& data, const Bytes& signature) {
  CKD_ByteString out("unchanged");
  switch (op % 6) {
    case 0: {
      int error = -1;
      bool ok = KDPKI_VerifyRsaKey(View(key), bits, op & 0x80, error);
      KDFUZZ_CHECK(error >= 0 && error <= 4 && ok == (error == 0));
      break;
    }
    case 1:
      if (!KDPKI_RsaEncrypt(View(data), View(key), out)) KDFUZZ_CHECK(out == "unchanged");
      break;
    case 2:
      if (!KDPKI_RsaDecrypt(View(data), View(key), out)) KDFUZZ_CHECK(out == "unchanged");
      break;
    case 3:
      if (!KDPKI_RsaSign(View(data), View(key), out)) KDFUZZ_CHECK(out == "unchanged");
      break;
    case 4:
      KDPKI_VerifyRsaSign(View(data), View(signature), View(key));
      break;
    default:
      KDPKI_VerifyDsaSign(View(data), View(signature), View(key));
      KDFUZZ_CHECK(!KDPKI_VerifyDasKey(View(key), 1024, op & 0x80));
      break;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 2048) return 0;  // keys of up to about 4096 bits; larger ones only cost time
  FuzzInput in(data, size);
  const uint8_t pick = in.Byte();
  const uint8_t op = in.Byte();
  const int bits = static_cast<int>(in.Below(4200)) - 100;
  if (pick % 3 == 0) {
    MPInts(in.Rest());
    return 0;
  }
  Bytes message = in.Run();
  Bytes signature = in.Run(2);
  Bytes key = in.Rest();
  if (pick % 3 == 1)
    Der(key, message, signature);
  else
    Keys(op, bits, key, message, signature);
  return 0;
}
