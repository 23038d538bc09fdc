// DSA domain parameters and key pairs from a seeded generator (FIPS 186 appendix 2.2, g = 160),
// and the key-blob entry point over them.
#include <cstring>

#include "norvane/crypto/dsa.h"
#include "norvane/crypto/montgomery.h"
#include "norvane/crypto/pki_failures_internal.h"
#include "norvane/crypto/primes.h"
#include "norvane/crypto/pubkey_internal.h"
#include "norvane/crypto/sha.h"
#include "norvane/memory/memory_mgr.h"

namespace {

// Adds one to the 20-byte big-endian seed, the carry moving from the last byte to the first.
void Increment(uint8_t seed[20]) {
  for (int i = 19; i >= 0 && ++seed[i] == 0; --i) {
  }
}

}  // namespace

bool KDPKI_DSA::GenerateParameters(int bits) {
  if (bits < 2) return false;
  const auto L = static_cast<unsigned>(bits);
  uint8_t u[20], next[20];
  CRYPT_SHA1Generate(m_Seed, 20, u);
  Increment(m_Seed);
  CRYPT_SHA1Generate(m_Seed, 20, next);
  for (int i = 0; i < 20; ++i) u[i] ^= next[i];
  u[0] |= 0x80;
  u[19] |= 1;
  KDPKI_HugeInt q;
  KDPKI_ImportMPInt(q, u, 20);
  if (!KDPKI_IsPrime(q)) return false;

  const unsigned n = (L - 1) / 160, b = (L - 1) - 160 * n;
  const size_t size = 20 * size_t{n} + 20;
  auto* w = static_cast<uint8_t*>(KDMEM_DefaultAlloc2(size, 1, 0));
  if (!w) {
    kdpki::NoteAllocationFailure();  // so that a caller retrying with new seeds stops
    return false;
  }
  // W is big-endian in the buffer: V_0 in the last 20 bytes, V_n in the first. X starts at the
  // byte of V_n that holds its bit b, which becomes bit L - 1 of X; the bits above it are dropped.
  const size_t top = 19 - b / 8;
  const uint8_t bit = static_cast<uint8_t>(1u << (b % 8));
  const KDPKI_HugeInt two_q = q * 2u;
  bool found = false;
  for (int counter = 0; counter < 4096 && !found; ++counter) {
    for (unsigned k = 0; k <= n; ++k) {
      Increment(m_Seed);
      CRYPT_SHA1Generate(m_Seed, 20, w + 20 * (n - k));
    }
    w[top] = static_cast<uint8_t>((w[top] & (bit - 1)) | bit);
    KDPKI_HugeInt x;
    KDPKI_ImportMPInt(x, w + top, static_cast<uint32_t>(size - top));
    KDPKI_HugeInt p = x - ((x % two_q) - 1u);
    if (p.GetBit(L - 1) && KDPKI_IsPrime(p)) {
      m_p.Swap(p);
      m_q = q;
      m_nCounter = counter;
      found = true;
    }
  }
  KDMEM_DefaultFree(w, 0);
  return found;
}

KDPKI_DSA::KDPKI_DSA(KDPKI_RandomGenerator& generator, int bits) : m_Seed(), m_nSeedLength(0), m_nCounter(0) {
  if (bits < 512) return;
  const kdpki::FailureWatch watch;
  // When memory runs out nothing that looks like a key is left, and no loop goes on waiting.
  auto fail = [this] {
    m_p = m_q = 0u;
    std::memset(m_Seed, 0, sizeof m_Seed);
    m_nSeedLength = m_nCounter = 0;
  };
  do {
    generator.GetBlock(m_Seed, 20);
    m_nSeedLength = 20;
    if (GenerateParameters(bits)) break;
  } while (!watch.Failed());
  if (watch.Failed()) {
    fail();
    return;
  }
  // g = h^((p - 1) / q) mod p for h drawn in [2, p - 2] until g > 1; then x and y = g^x mod p.
  const KDPKI_HugeInt exponent = (m_p - 1u) / m_q;
  const KDPKI_HugeInt p2 = m_p - 2u;
  KDPKI_HugeInt h, g, x;
  bool drawn;
  do {
    drawn = h.Random(generator, KDPKI_HugeInt::Two(), p2);
    g = KDPKI_ModularExponentiation(h, exponent, m_p);
  } while (drawn && g <= KDPKI_HugeInt::One() && !watch.Failed());
  drawn = drawn && x.Random(generator, KDPKI_HugeInt::One(), m_q - 1u);
  KDPKI_HugeInt y = KDPKI_ModularExponentiation(g, x, m_p);
  if (!drawn || watch.Failed()) {
    fail();
    return;
  }
  m_g.Swap(g);
  m_x.Swap(x);
  m_y.Swap(y);
}

bool KDPKI_CreateDsaKey(const CKD_ByteStringC& seed, const CKD_ByteStringC&, CKD_ByteString& public_out,
                        CKD_ByteString& private_out) {
  KDPKI_RandomGenerator generator(seed.GetPtr(), static_cast<uint32_t>(seed.GetLength()));
  // Without its twister (memory ran out) the generator's bytes would not be the seed's.
  if (!generator.m_hRandom) return false;
  const KDPKI_DSA key(generator, 1024);
  CKD_ByteString pub, priv;
  if (key.m_p.IsZero() || !kdpki::StoreMPInts(pub, {&key.m_p, &key.m_q, &key.m_g, &key.m_y}) ||
      !kdpki::StoreMPInts(priv, {&key.m_p, &key.m_q, &key.m_g, &key.m_y, &key.m_x})) {
    return false;
  }
  public_out.swap(pub);
  private_out.swap(priv);
  return true;
}
