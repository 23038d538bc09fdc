// sign_verify FILE: makes an RSA and a DSA key pair from a fixed seed, signs FILE with each and
// verifies the signatures, then shows that a changed text no longer verifies.
//
// Keys, signatures and data cross the interface as byte strings: the key pairs come as a public
// and a private blob (each component a 4-byte big-endian length and its big-endian bytes), data
// and signatures as plain bytes. Every call answers with a bool; outputs are left as they were
// when it is false.
//
// These schemes are kept for existing modules that must interoperate with them: RSA signs the
// SHA-1 digest without padding, DSA works with 1024-bit keys and SHA-1, and keys made from a seed
// are as strong as the seed. SECURITY.md says what to choose for new data.
#include <norvane/norvane.h>

#include <cstdio>

namespace {

// Prints the first bytes of a byte string in hex, enough to tell values apart.
void PrintHead(const char* label, const CKD_ByteString& bytes) {
  std::printf("%s (%d bytes):", label, bytes.GetLength());
  for (int i = 0; i < bytes.GetLength() && i < 8; ++i) std::printf(" %02x", bytes.GetPtr()[i]);
  std::printf(" ...\n");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: sign_verify FILE\n");
    return 2;
  }
  // The whole file as one byte string (empty when it cannot be read).
  CKD_ByteString data = CKD_ByteString::LoadFromFile(argv[1]);
  if (data.IsEmpty()) {
    std::fprintf(stderr, "sign_verify: cannot read %s\n", argv[1]);
    return 1;
  }
  CKD_ByteString changed = data;
  changed.SetAt(0, static_cast<char>(data[0] ^ 1));  // copy on write: data stays as it was

  // The same seed gives the same key pair on every run and every processor: a program can keep
  // the seed instead of the keys. (The third argument is not used.)
  const CKD_ByteStringC seed("an example seed: keep real seeds secret and long");

  // RSA with a 1024-bit modulus. Signing is deterministic: the same key and data always give the
  // same signature.
  CKD_ByteString rsa_public, rsa_private, rsa_signature;
  if (!KDPKI_CreateRsaKey(1024, seed, CKD_ByteStringC(), rsa_public, rsa_private) ||
      !KDPKI_RsaSign(data, rsa_private, rsa_signature)) {
    std::fprintf(stderr, "sign_verify: RSA failed\n");
    return 1;
  }
  PrintHead("RSA public key", rsa_public);
  PrintHead("RSA signature", rsa_signature);
  std::printf("RSA signature verifies: %s\n", KDPKI_VerifyRsaSign(data, rsa_signature, rsa_public) ? "yes" : "no");
  std::printf("RSA signature verifies a changed text: %s\n",
              KDPKI_VerifyRsaSign(changed, rsa_signature, rsa_public) ? "yes" : "no");

  // DSA: the key pair (and its 1024-bit parameters) from the same seed. Each signature draws a
  // fresh random value, so signing twice gives two different signatures, both valid.
  CKD_ByteString dsa_public, dsa_private, first, second;
  if (!KDPKI_CreateDsaKey(seed, CKD_ByteStringC(), dsa_public, dsa_private) ||
      !KDPKI_DsaSign(data, dsa_private, first) || !KDPKI_DsaSign(data, dsa_private, second)) {
    std::fprintf(stderr, "sign_verify: DSA failed\n");
    return 1;
  }
  PrintHead("DSA public key", dsa_public);
  std::printf("DSA signatures: %d bytes each, %s\n", first.GetLength(), first == second ? "equal" : "different");
  std::printf("DSA signatures verify: %s\n",
              KDPKI_VerifyDsaSign(data, first, dsa_public) && KDPKI_VerifyDsaSign(data, second, dsa_public) ? "yes"
                                                                                                           : "no");
  std::printf("DSA signature verifies a changed text: %s\n",
              KDPKI_VerifyDsaSign(changed, first, dsa_public) ? "yes" : "no");
  return 0;
}
