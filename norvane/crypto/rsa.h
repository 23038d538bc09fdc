// RSA over byte strings: key generation, raw encryption and decryption, SHA-1 signatures, and a
// verifier for SHA-256 signatures made elsewhere.
//
// The operations are raw RSA on the message integer: nothing is padded on encryption or signing
// and nothing is removed on decryption. This is the library's format, kept as it is for the data
// already made with it: it is not PKCS#1, and a message is only as safe as its own structure
// makes it. Integers cross the interface big-endian.
//
// Key blobs are MPInts (mpint.h), one after another:
//   public key:  MPInt(n) MPInt(e)
//   private key: MPInt(p) MPInt(q) MPInt(dp) MPInt(dq) MPInt(u), with u = q^-1 mod p.
// Results (ciphertexts, plaintexts, signatures) are the big-endian bytes of the result integer
// without leading zero bytes, so they are shorter than the modulus when the value is small, and a
// plaintext loses its leading zero bytes on the way through encryption and decryption.
//
// Keys from outside: every entry point takes its key as a view with a length. A blob whose length
// fields run past its end is refused (the output is left as it was, or the answer is false)
// instead of being read past; bytes after the last component are ignored. Apart from that the
// components are used as they stand: KDPKI_VerifyRsaKey checks a blob's structure when that is
// wanted.
//
// Failure: the functions that produce bytes return false and leave their output as it was when the
// input is refused or memory runs out (also in the middle of the arithmetic); on success they
// replace it. Nothing is printed. Every call builds its own integers, so calls may run on
// different threads at once.
#ifndef NORVANE_CRYPTO_RSA_H_
#define NORVANE_CRYPTO_RSA_H_

#include <cstddef>
#include <cstdint>

#include "norvane/config.h"
#include "norvane/crypto/huge_int.h"
#include "norvane/crypto/mpint.h"
#include "norvane/crypto/random_generator.h"
#include "norvane/memory/object.h"
#include "norvane/text/byte_string.h"

// KDPKI_RSA holds one key. Its fields are public and in a fixed order.
class NORVANE_API KDPKI_RSA : public CKD_Object {
 public:
  // An empty key: every field zero.
  KDPKI_RSA() = default;
  // Generates a key of bits modulus bits with the starting public exponent 17 (CreateKey); where
  // that fails, every field stays zero.
  KDPKI_RSA(KDPKI_RandomGenerator& generator, int bits);

  // CreateKey generates a key whose modulus has exactly bits bits from the generator's bytes:
  //  - primes p, then q, each drawn independently (they are not compared) by the constrained
  //    prime draw in [low, high]: for even bits low = 182 * 2^(bits/2 - 8), high = 2^(bits/2) - 1;
  //    for odd bits low = 2^((bits - 1)/2), high = 181 * 2^((bits + 1)/2 - 8);
  //  - u = q^-1 mod p, lambda = lcm(p - 1, q - 1);
  //  - e = the given e, raised by 2 while it shares a factor with lambda;
  //  - d = e^-1 mod lambda, dq = d mod (q - 1), dp = d mod (p - 1), n = p q.
  // Returns false, with the fields as they were, when bits is below 15 (the ranges need at least
  // that), when e is even or not positive (it would never become coprime to the even lambda),
  // when no prime can be drawn or when memory runs out.
  bool CreateKey(KDPKI_RandomGenerator& generator, int bits, const KDPKI_HugeInt& e);

  KDPKI_HugeInt m_n;   // modulus p q
  KDPKI_HugeInt m_e;   // public exponent
  KDPKI_HugeInt m_d;   // private exponent, e^-1 mod lcm(p - 1, q - 1)
  KDPKI_HugeInt m_p;   // first prime
  KDPKI_HugeInt m_q;   // second prime
  KDPKI_HugeInt m_dp;  // d mod (p - 1)
  KDPKI_HugeInt m_dq;  // d mod (q - 1)
  KDPKI_HugeInt m_u;   // q^-1 mod p
};

// The RSA primitives and the PKCS#1 v1.5 block-type parsers.
class NORVANE_API KDPKI_RSAScheme {
 public:
  // RSASP1 is the private-key operation KDPKI_ModularExponentiation_Fast(x, dp, dq, p, q, u)
  // (montgomery.h), whose u is p^-1 mod q: a private blob's u is q^-1 mod p, so its values go in
  // as RSASP1(x, dq, dp, q, p, u).
  static KDPKI_HugeInt RSASP1(const KDPKI_HugeInt& x, const KDPKI_HugeInt& dp, const KDPKI_HugeInt& dq,
                              const KDPKI_HugeInt& p, const KDPKI_HugeInt& q, const KDPKI_HugeInt& u);
  // RSAVP1 is the public-key operation x^e mod n.
  static KDPKI_HugeInt RSAVP1(const KDPKI_HugeInt& x, const KDPKI_HugeInt& n, const KDPKI_HugeInt& e);

  // Parse reads an encryption block that starts with its block-type byte (the leading 0x00 of a
  // PKCS#1 block is not part of it). With k the index of the byte that ends the padding run:
  //  - type 2: a run of at least 8 non-zero bytes ended by two 0x00 bytes (k and k + 1); the data
  //    start at k + 2 and are length - k - 1 bytes long;
  //  - type 1: at least 8 bytes 0xFF ended by a 0x00 at k; the data are the length - k - 1 bytes
  //    after it;
  //  - type 0: at least 8 bytes 0x00; k is the first non-zero byte, which is skipped; the data
  //    start at k + 1 and are length - k bytes long. A block that is zero to its end (9 bytes or
  //    more) gives empty data.
  // The type-2 and type-0 lengths count one byte more than the block holds after the padding.
  // That last byte lies past the block: it is written as 0 and never read, so a caller need not
  // supply a readable byte beyond length.
  // On success *out receives the data in a block from KDMEM_DefaultAlloc2 that the caller frees
  // with KDMEM_DefaultFree (null for empty data), *out_length their length, and the result is
  // true. A null block or a length of 0 returns true and writes nothing. Any other type byte, a
  // run shorter than 8 bytes, a type-1 or type-2 run that is not ended by its separator within
  // the block, null out pointers or a failed allocation return false and write nothing.
  static bool Parse(const uint8_t* block, int length, uint8_t** out, int* out_length);
  // The same rules for a block whose type byte has been removed: the run starts at the first
  // byte and k is counted from there.
  static bool ParseBlockTypeIsZero(const uint8_t* block, int length, uint8_t** out, int* out_length);
  static bool ParseBlockTypeIsOne(const uint8_t* block, int length, uint8_t** out, int* out_length);
  static bool ParseBlockTypeIsTwo(const uint8_t* block, int length, uint8_t** out, int* out_length);
};

// KDPKI_CreateRsaKey seeds a KDPKI_RandomGenerator with the bytes of seed, builds
// KDPKI_RSA(generator, bits) and writes its public and private blobs. The same seed gives the same
// key on every run and processor. unused is not looked at. False, with both outputs as they were,
// when the key cannot be made (see KDPKI_RSA::CreateKey) or memory runs out.
NORVANE_API bool KDPKI_CreateRsaKey(int bits, const CKD_ByteStringC& seed, const CKD_ByteStringC& unused,
                                    CKD_ByteString& public_out, CKD_ByteString& private_out);
// KDPKI_RsaEncrypt sets out = data^e mod n, with data read as a big-endian integer. Data longer
// than 4 * ceil(L / 4) - 11 bytes, L being the byte count in n's MPInt, are refused (so 117 bytes
// for a 128-byte modulus).
NORVANE_API bool KDPKI_RsaEncrypt(const CKD_ByteStringC& data, const CKD_ByteStringC& public_key, CKD_ByteString& out);
// KDPKI_RsaDecrypt sets out = data^d mod n through the CRT: with mp = m^dp mod p and
// mq = m^dq mod q, out = mq + q (((mp - mq) u) mod p). The data length is not checked against the
// modulus and no padding is removed.
NORVANE_API bool KDPKI_RsaDecrypt(const CKD_ByteStringC& data, const CKD_ByteStringC& private_key,
                                  CKD_ByteString& out);
// KDPKI_RsaSign sets out = SHA-1(data)^d mod n, computed as KDPKI_RsaDecrypt does.
NORVANE_API bool KDPKI_RsaSign(const CKD_ByteStringC& data, const CKD_ByteStringC& private_key, CKD_ByteString& out);
// KDPKI_VerifyRsaSign answers whether signature^e mod n equals SHA-1(data), both read as
// big-endian integers.
NORVANE_API bool KDPKI_VerifyRsaSign(const CKD_ByteStringC& data, const CKD_ByteStringC& signature,
                                     const CKD_ByteStringC& public_key);
// KDPKI_SHA256RsaSign does nothing: out is left as it was and the result is false.
NORVANE_API bool KDPKI_SHA256RsaSign(const CKD_ByteStringC& data, const CKD_ByteStringC& private_key,
                                     CKD_ByteString& out);

// KDPKI_VerifySHA256RsaSign checks a SHA-256 signature under a DER public key (a SEQUENCE of
// INTEGER n and INTEGER e, the PKCS#1 RSAPublicKey form). r = signature^e mod n is cut to its low
// 256 bits and compared with SHA-256(data). The cut is deliberate: a PKCS#1 v1.5 signature holds
// its digest in the last 32 bytes of the block, so it compares equal without the padding or the
// DigestInfo prefix being looked at; any block that ends in the digest is accepted. The DER key
// is read by KDPKI_ImportNInt and KDPKI_ImportEInt, whose limits (lengths in short or 0x82 form
// only, e = 65537 only) apply; a key they refuse gives false.
NORVANE_API bool KDPKI_VerifySHA256RsaSign(const CKD_ByteStringC& data, const CKD_ByteStringC& signature,
                                           const CKD_ByteStringC& der_public_key);
// KDPKI_ImportNInt reads n from the length bytes at der: tag 0x30 and a length, tag 0x02 and a
// length, where each length is either one byte below 0x80 or 0x82 and two big-endian bytes
// (nothing else); the sequence length must equal the size of the INTEGER n element (tag, length
// bytes and content) plus 5, leaving room for exactly a 5-byte exponent element. The content
// bytes of n, a leading 0x00 included, become n; the result is the offset just past them. On any
// mismatch, or when n would run past length, the result is 0xFFFFFFFF and n is left as it was.
NORVANE_API uint32_t KDPKI_ImportNInt(KDPKI_HugeInt& n, const uint8_t* der, uint32_t length);
// KDPKI_ImportEInt reads e from the length bytes at der: they must start 0x02 0x03 and three
// content bytes of value 65537. Returns 5, or 0xFFFFFFFF (e left as it was) otherwise.
NORVANE_API uint32_t KDPKI_ImportEInt(KDPKI_HugeInt& e, const uint8_t* der, uint32_t length);

// KDPKI_VerifyRsaKey checks the structure of a key blob for a modulus of bits bits and sets error:
// 0 none, 1 wrong total length, 2 a component length field differs from the expected size, 3 an
// even modulus or prime (or exponent), 4 the CRT coefficient does not satisfy u q = 1 (mod p).
//  - Public, with L = bits / 8: at least L + 9 bytes (else 1); n's length field equal to L (else
//    2); n odd (else 3); e's length field may be anything, but e must lie within the blob (else 1)
//    and be odd (else 3).
//  - Private, with H = bits / 16: exactly 5 H + 20 bytes (else 1); every length field equal to H
//    (else 2); p and q odd (else 3); (u q) mod p = 1 (else 4).
// Returns true exactly when error is 0. Every component must be exactly H bytes, so a blob from
// KDPKI_CreateRsaKey whose dp, dq or u happens to be shorter is refused with 2. A negative bits
// gives 1.
NORVANE_API bool KDPKI_VerifyRsaKey(const CKD_ByteStringC& key, int bits, bool is_public, int& error);

#endif  // NORVANE_CRYPTO_RSA_H_
