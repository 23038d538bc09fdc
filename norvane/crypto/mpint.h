// MPInt: the byte format of every RSA and DSA key component.
//
// An MPInt is a 4-byte big-endian byte count L followed by L bytes of the magnitude, most
// significant first. Key blobs are MPInts one after another (see rsa.h and dsa.h).
//
// These are the raw readers and writers: they trust their buffers. KDPKI_ImportMPInt(value,
// bytes) reads as many bytes as the length field says, so a blob from outside must be checked
// against its real length first; the RSA and DSA entry points take their keys with a length and
// do that check themselves.
#ifndef NORVANE_CRYPTO_MPINT_H_
#define NORVANE_CRYPTO_MPINT_H_

#include <cstdint>

#include "norvane/config.h"
#include "norvane/crypto/huge_int.h"

// KDPKI_ExportMPInt writes the magnitude of value as an MPInt of exactly its byte count (no
// leading zero bytes; zero is written as L = 0) and returns L + 4. A null bytes writes nothing and
// returns the same count, so a caller can size its buffer first.
NORVANE_API uint32_t KDPKI_ExportMPInt(const KDPKI_HugeInt& value, uint8_t* bytes);
// KDPKI_ImportMPInt reads one MPInt at bytes into value (non-negative; zero for L = 0) and
// returns L + 4. Null bytes reads nothing and returns 0.
NORVANE_API uint32_t KDPKI_ImportMPInt(KDPKI_HugeInt& value, const uint8_t* bytes);
// This form reads a bare big-endian magnitude of length bytes (no length field) into value and
// returns length. Null bytes reads nothing and returns 0.
NORVANE_API uint32_t KDPKI_ImportMPInt(KDPKI_HugeInt& value, const uint8_t* bytes, uint32_t length);

#endif  // NORVANE_CRYPTO_MPINT_H_
