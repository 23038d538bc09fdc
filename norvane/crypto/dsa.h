// DSA as FIPS 186 (first edition) has it: domain parameters generated from a 20-byte SEED with
// SHA-1, a 160-bit q, SHA-1 message digests.
//
// Key blobs are MPInts (mpint.h), one after another:
//   public key:  MPInt(p) MPInt(q) MPInt(g) MPInt(y)
//   private key: MPInt(p) MPInt(q) MPInt(g) MPInt(y) MPInt(x)
// A signature is r then s, each written big-endian over exactly the byte count of q (20 bytes
// for a 160-bit q): 40 bytes in all.
//
// Draws: the private key x and each signature's k are drawn with KDPKI_HugeInt::Random(generator,
// 1, q - 1). Because q - 2 has 160 bits, a multiple of 8, that draw lies in [1, 1 + 2^152), not in
// [1, q - 1]; and h, the base of the generator g, lies in [2, 2 + 2^1016) for a 1024-bit p. This
// narrowing is the library's defined behaviour, kept so that the same seed gives the same keys.
//
// Keys from outside: the entry points take keys and signatures as views with a length. A blob
// whose length fields run past its end, or a signature shorter than twice the byte count of q, is
// refused (false, or the output left as it was) instead of being read past; bytes after the last
// component are ignored. Components are otherwise used as they stand.
//
// Failure: functions that produce bytes return false and leave their output as it was when the
// input is refused or memory runs out. Every call builds its own objects, so calls may run on
// different threads at once.
#ifndef NORVANE_CRYPTO_DSA_H_
#define NORVANE_CRYPTO_DSA_H_

#include <cstddef>
#include <cstdint>

#include "norvane/config.h"
#include "norvane/crypto/huge_int.h"
#include "norvane/crypto/mpint.h"
#include "norvane/crypto/random_generator.h"
#include "norvane/memory/object.h"
#include "norvane/text/byte_string.h"

// KDPKI_DSA holds domain parameters and a key pair. Its fields are public and in a fixed order.
class NORVANE_API KDPKI_DSA : public CKD_Object {
 public:
  // Generates parameters with L = bits and a key pair, all from the generator: repeat { fill the
  // seed with 20 bytes (GetBlock), GenerateParameters(bits) } until it succeeds; then h =
  // Random(2, p - 2) and g = h^((p - 1) / q) mod p, drawing again while g <= 1; then x =
  // Random(1, q - 1) and y = g^x mod p. bits must be at least 512; for fewer bits, or when memory
  // runs out, the object is left empty (every value zero, seed length 0).
  KDPKI_DSA(KDPKI_RandomGenerator& generator, int bits);
  // From given values (note the order: y before x); the seed is zero, seed length and counter 0.
  KDPKI_DSA(const KDPKI_HugeInt& p, const KDPKI_HugeInt& q, const KDPKI_HugeInt& g, const KDPKI_HugeInt& y,
            const KDPKI_HugeInt& x);
  // Public values only: x is zero.
  KDPKI_DSA(const KDPKI_HugeInt& p, const KDPKI_HugeInt& q, const KDPKI_HugeInt& g, const KDPKI_HugeInt& y);

  // GenerateParameters makes one attempt at p and q with L = bits from the current seed (FIPS 186
  // appendix 2.2 with g = 160), and returns whether they were found:
  //  1. U = SHA-1(SEED) xor SHA-1(SEED + 1); the seed is incremented in place as a 20-byte
  //     big-endian number and stays incremented.
  //  2. q = U with its top and lowest bits set, read big-endian; the attempt fails unless q is
  //     prime (KDPKI_IsPrime).
  //  3. n = (L - 1) / 160, b = (L - 1) - 160 n.
  //  4. For counter 0 to 4095: for k = 0 to n, increment the seed and take V_k = SHA-1(seed), V_0
  //     the least significant 20 bytes of W and V_n the most significant; X = 2^(L - 1) + W mod
  //     2^(L - 1); c = X mod 2q; p = X - (c - 1). If bit L - 1 of p is set and p is prime, the
  //     counter is stored and the attempt succeeds.
  bool GenerateParameters(int bits);

  // SignatureDigest signs the digest (its bytes read as a big-endian integer H, neither reduced nor
  // truncated): k = Random(generator, 1, q - 1), r = (g^k mod p) mod q, s = k^-1 (H + x r) mod q,
  // again with a new k while r or s is 0. It writes r then s, each over the byte count of q, to
  // signature_out (which must hold twice that) and returns the length written. It returns 0 and
  // writes nothing when memory runs out, or when a key that is not one (q below 2, or 256 draws
  // of k in a row giving r or s = 0) would make the search endless.
  int SignatureDigest(KDPKI_RandomGenerator& generator, const uint8_t* digest, int digest_length,
                      uint8_t* signature_out);
  // VerificationDigest reads r and s from the first 2 |q| bytes of signature (|q| the byte count
  // of q; the caller supplies them) and returns whether they sign the digest: 0 < r < q and
  // 0 < s < q, w = s^-1 mod q, u1 = H w mod q, u2 = r w mod q, and
  // ((g^u1 mod p)(y^u2 mod p) mod p) mod q equals r.
  bool VerificationDigest(const uint8_t* digest, int digest_length, const uint8_t* signature);

  KDPKI_HugeInt m_p;      // prime modulus of L bits
  KDPKI_HugeInt m_q;      // 160-bit prime divisor of p - 1
  KDPKI_HugeInt m_g;      // generator of the order-q subgroup
  KDPKI_HugeInt m_x;      // private key, 0 < x < q
  KDPKI_HugeInt m_y;      // public key g^x mod p
  uint8_t m_Seed[20];     // SEED of the parameter generation; zero for given values
  int32_t m_nSeedLength;  // 20 after generation, 0 otherwise
  int32_t m_nCounter;     // the counter at which p was found
};

// KDPKI_CreateDsaKey seeds a KDPKI_RandomGenerator with the bytes of seed, builds
// KDPKI_DSA(generator, 1024) (p is always 1024 bits) and writes its public and private blobs. The
// same seed gives the same key pair on every run and processor. unused is not looked at. False,
// with both outputs as they were, when memory runs out.
NORVANE_API bool KDPKI_CreateDsaKey(const CKD_ByteStringC& seed, const CKD_ByteStringC& unused,
                                    CKD_ByteString& public_out, CKD_ByteString& private_out);
// KDPKI_DsaSign sets out to the 40-byte (for a 160-bit q) signature r || s of SHA-1(data) under
// the private blob. k comes from an unseeded KDPKI_RandomGenerator, so it differs from call to
// call, and so does the signature.
NORVANE_API bool KDPKI_DsaSign(const CKD_ByteStringC& data, const CKD_ByteStringC& private_key, CKD_ByteString& out);
// KDPKI_VerifyDsaSign answers whether signature (r || s, at least 2 |q| bytes; later bytes are
// ignored) is a valid signature of SHA-1(data) under the public blob.
NORVANE_API bool KDPKI_VerifyDsaSign(const CKD_ByteStringC& data, const CKD_ByteStringC& signature,
                                     const CKD_ByteStringC& public_key);
// KDPKI_VerifyDasKey is the DSA key check. It returns false for every input.
NORVANE_API bool KDPKI_VerifyDasKey(const CKD_ByteStringC& key, int bits, bool is_public);

#endif  // NORVANE_CRYPTO_DSA_H_
