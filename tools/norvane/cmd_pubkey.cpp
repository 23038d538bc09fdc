// rsa and dsa: key generation, signatures, raw RSA encryption, and export of the library's key
// blobs as the PEM or DER that OpenSSL and other tools read.
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "norvane/crypto/dsa.h"
#include "norvane/crypto/rsa.h"
#include "tools/norvane/commands.h"
#include "tools/norvane/io.h"
#include "tools/norvane/options.h"
#include "tools/norvane/pubkey_formats.h"

namespace nvtool {

// The parts of the two usage texts that are the same.
#define NV_PUBKEY_FILES                                                                   \
  "Data come from FILE or standard input; results go to standard output or -o FILE.\n"   \
  "\n"                                                                                    \
  "  -k, --key FILE        the key blob (PREFIX.key or PREFIX.pub)\n"                     \
  "  -s, --signature FILE  verify: the signature\n"                                       \
  "  -o, --out FILE        the output file; keygen: the prefix of the two key files\n"
#define NV_PUBKEY_EXIT                                                                              \
  "\n"                                                                                              \
  "Exit status: 0 done, 1 a failed verification or a file that cannot be read or written, 2 a\n" \
  "usage error or a malformed key file.\n"

const char kRsaUsage[] =
    "Usage: norvane rsa keygen --bits N [--seed HEX] --out PREFIX\n"
    "       norvane rsa sign --key KEY [--hex] [-o FILE] [FILE]\n"
    "       norvane rsa verify --key PUB --signature SIG [--hex] [FILE]\n"
    "       norvane rsa encrypt --key PUB [--hex] [-o FILE] [FILE]\n"
    "       norvane rsa decrypt --key KEY [--hex] [-o FILE] [FILE]\n"
    "       norvane rsa export [--pem|--der] [--pubout] [-o FILE] KEY\n"
    "RSA with the library's key blobs: PREFIX.pub holds MPInt(n) MPInt(e), PREFIX.key holds\n"
    "MPInt(p) MPInt(q) MPInt(dp) MPInt(dq) MPInt(u), each MPInt a 4-byte big-endian length and the\n"
    "big-endian value.\n"
    "\n"
    "  keygen   makes a key of N modulus bits (15 to 16384) with public exponent 17 or the next odd\n"
    "           number that suits it; the same --seed bytes give the same key. Without --seed the\n"
    "           seed is 32 bytes from the system's random source. PREFIX.key is made readable by\n"
    "           its owner only.\n"
    "  sign     writes the signature of the data: SHA-1(data)^d mod n, raw (no padding), as the\n"
    "           big-endian bytes of the value without leading zeros\n"
    "  verify   prints 'Verified OK' (status 0) or 'Verification failure' (status 1)\n"
    "  encrypt  raw RSA: data^e mod n, the data read as a big-endian number of at most the modulus\n"
    "           length less 11 bytes; no padding is added\n"
    "  decrypt  raw RSA: data^d mod n; no padding is removed, and leading zero bytes do not survive\n"
    "  export   writes KEY as PEM (the default) or DER: a public key as SubjectPublicKeyInfo, a\n"
    "           private key as PKCS#8 PrivateKeyInfo (n, e and d rebuilt from the primes), which\n"
    "           `openssl pkey` reads; --pubout writes the public part of a private key\n"
    "\n"
    NV_PUBKEY_FILES
    "      --bits N          keygen: the modulus size in bits\n"
    "      --seed HEX        keygen: the seed bytes in hex\n"
    "      --hex             signatures and ciphertexts as one line of hex (written by sign and\n"
    "                        encrypt, read by verify and decrypt)\n"
    "      --pem, --der      export: the form written (PEM by default)\n"
    "      --pubout          export: the public part of a private key\n"
    NV_PUBKEY_EXIT;

const char kDsaUsage[] =
    "Usage: norvane dsa keygen [--seed HEX] --out PREFIX\n"
    "       norvane dsa sign --key KEY [--hex|--der] [-o FILE] [FILE]\n"
    "       norvane dsa verify --key PUB --signature SIG [--hex|--der] [FILE]\n"
    "       norvane dsa export [--pem|--der] [--pubout] [-o FILE] KEY\n"
    "DSA with a 1024-bit p, a 160-bit q and SHA-1, over the library's key blobs: PREFIX.pub holds\n"
    "MPInt(p) MPInt(q) MPInt(g) MPInt(y), PREFIX.key the same and MPInt(x).\n"
    "\n"
    "  keygen   generates parameters and a key pair from the seed (the same --seed bytes give the\n"
    "           same keys; without --seed, 32 bytes from the system's random source)\n"
    "  sign     writes the signature of SHA-1(data): r || s, 20 bytes each; --der writes the DER\n"
    "           SEQUENCE of two INTEGERs instead, as `openssl dgst -sha1 -sign` does\n"
    "  verify   prints 'Verified OK' (status 0) or 'Verification failure' (status 1); with --der\n"
    "           SIG is read as DER (what `openssl dgst -sha1 -sign` writes)\n"
    "  export   writes KEY as PEM (the default) or DER: SubjectPublicKeyInfo or PKCS#8, which\n"
    "           `openssl pkey` reads; --pubout writes the public part of a private key\n"
    "\n"
    NV_PUBKEY_FILES
    "      --seed HEX        keygen: the seed bytes in hex\n"
    "      --hex             signatures as one line of hex (sign writes, verify reads)\n"
    "      --der             sign, verify: signatures in DER; export: DER instead of PEM\n"
    "      --pem             export: PEM (the default)\n"
    "      --pubout          export: the public part of a private key\n"
    NV_PUBKEY_EXIT;

namespace {

constexpr size_t kMaxKeyFile = size_t{1} << 20;

// The options of both commands; each subcommand allows some of them.
const Option kOptions[] = {
    {"bits", 0, true},  {"seed", 0, true},  {"out", 'o', true}, {"key", 'k', true}, {"signature", 's', true},
    {"hex", 0, false},  {"der", 0, false},  {"pem", 0, false},  {"pubout", 0, false},
};
enum { kBits, kSeed, kOut, kKey, kSignature, kHex, kDer, kPem, kPubout, kOptionCount };

struct Args {
  const char* command = nullptr;  // "rsa" or "dsa"
  const char* sub = nullptr;
  const char* value[kOptionCount] = {};
  bool flag[kOptionCount] = {};
  std::vector<char*> operands;
};

// Reads a whole file ("-": standard input) into out, up to limit bytes; false after reporting.
bool ReadAll(const Args& a, const char* path, size_t limit, Bytes* out) {
  InputFile in;
  out->clear();
  if (in.Open(path)) {
    char buffer[1 << 16];
    for (;;) {
      const long got = in.Read(buffer, sizeof buffer);
      if (got < 0) break;
      if (got == 0) return true;
      if (out->size() + static_cast<size_t>(got) > limit) {
        Error("%s %s: %s: larger than %zu bytes", a.command, a.sub, Quote(path).c_str(), limit);
        return false;
      }
      out->insert(out->end(), buffer, buffer + got);
    }
  }
  Error("%s %s: %s: %s", a.command, a.sub, Quote(path).c_str(), std::strerror(errno));
  return false;
}

// Reads the key file of the option given as the kind; the status to return on failure, or -1.
int LoadKey(const Args& a, const char* path, KeyKind kind, Bytes* blob, KeyBlob* key) {
  if (!ReadAll(a, path, kMaxKeyFile, blob)) return kExitFailure;
  if (!ParseBlob(*blob, key) || !IsKey(*key, kind)) {
    Error("%s %s: %s: not %s", a.command, a.sub, Quote(path).c_str(), Describe(kind));
    return kExitUsage;
  }
  return -1;
}

// Reads the data operand (standard input when there is none).
bool ReadData(const Args& a, Bytes* data) {
  return ReadAll(a, a.operands.empty() ? "-" : a.operands[0], INT_MAX, data);
}

// Replaces hex text (a line end after it allowed) by its bytes; false when it is not hex.
bool FromHexText(Bytes* bytes) {
  std::string text(bytes->begin(), bytes->end());
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  if (text.empty()) {
    bytes->clear();
    return true;
  }
  return ParseHex(text.c_str(), bytes);
}

std::string Hex(const uint8_t* p, size_t n) {
  std::string s;
  for (size_t i = 0; i < n; ++i) {
    s += "0123456789abcdef"[p[i] >> 4];
    s += "0123456789abcdef"[p[i] & 15];
  }
  return s;
}

// Writes bytes (as a line of hex when hex is set) to -o FILE or standard output.
int Emit(const Args& a, const uint8_t* p, size_t n, bool hex) {
  OutputFile out;
  if (!out.Open(a.value[kOut])) return kExitFailure;
  if (hex) {
    const std::string text = Hex(p, n) + "\n";
    out.Write(text.data(), text.size());
  } else {
    out.Write(p, n);
  }
  return out.Flush() ? kExitOk : kExitFailure;
}

CKD_ByteStringC View(const Bytes& b) { return CKD_ByteStringC(b.data(), static_cast<int>(b.size())); }

// Writes a key file; private keys are made readable by their owner only.
bool WriteKeyFile(const std::string& path, const CKD_ByteString& blob, bool secret) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, secret ? 0600 : 0644);
  bool ok = fd >= 0 && (!secret || fchmod(fd, 0600) == 0);
  for (size_t done = 0; ok && done < static_cast<size_t>(blob.GetLength());) {
    const ssize_t put = write(fd, blob.GetPtr() + done, static_cast<size_t>(blob.GetLength()) - done);
    if (put < 0 && errno == EINTR) continue;
    ok = put > 0;
    if (ok) done += static_cast<size_t>(put);
  }
  if (fd >= 0 && close(fd) != 0) ok = false;
  if (!ok) Error("%s: %s", Quote(path).c_str(), std::strerror(errno ? errno : EIO));
  return ok;
}

// The keygen seed: --seed's bytes, or 32 from the system.
bool Seed(const Args& a, Bytes* seed) {
  if (a.value[kSeed]) {
    if (ParseHex(a.value[kSeed], seed)) return true;
    Error("%s keygen: the seed is not a hex string of whole bytes", a.command);
    return false;
  }
  seed->resize(32);
  if (getrandom(seed->data(), seed->size(), 0) == static_cast<ssize_t>(seed->size())) return true;
  Error("%s keygen: no random seed: %s", a.command, std::strerror(errno));
  return false;
}

int Keygen(const Args& a, bool rsa) {
  if (!a.value[kOut]) return UsageError("%s keygen: give the file prefix with --out PREFIX", a.command);
  long bits = 1024;
  if (rsa) {
    if (!a.value[kBits]) return UsageError("rsa keygen: give the modulus size with --bits N");
    char* end = nullptr;
    errno = 0;
    bits = std::strtol(a.value[kBits], &end, 10);
    if (*a.value[kBits] == '\0' || *end || errno || bits < 15 || bits > 16384) {
      Error("rsa keygen: --bits takes a whole number from 15 to 16384, not '%s'", a.value[kBits]);
      return kExitUsage;
    }
  }
  Bytes seed;
  if (!Seed(a, &seed)) return kExitUsage;
  CKD_ByteString pub, key;
  const bool made = rsa ? KDPKI_CreateRsaKey(static_cast<int>(bits), View(seed), CKD_ByteStringC(), pub, key)
                        : KDPKI_CreateDsaKey(View(seed), CKD_ByteStringC(), pub, key);
  if (!made) {
    Error("%s keygen: the key could not be made", a.command);
    return kExitFailure;
  }
  const std::string prefix = a.value[kOut];
  return WriteKeyFile(prefix + ".key", key, true) && WriteKeyFile(prefix + ".pub", pub, false) ? kExitOk
                                                                                                 : kExitFailure;
}

// The key of --key as the kind, then the data; the status to return on failure, or -1.
int KeyAndData(const Args& a, KeyKind kind, Bytes* blob, KeyBlob* key, Bytes* data) {
  if (!a.value[kKey]) return UsageError("%s %s: give the key file with --key FILE", a.command, a.sub);
  const int status = LoadKey(a, a.value[kKey], kind, blob, key);
  return status >= 0 ? status : ReadData(a, data) ? -1 : kExitFailure;
}

int Sign(const Args& a, bool rsa) {
  Bytes blob, data;
  KeyBlob key;
  const int status = KeyAndData(a, rsa ? KeyKind::kRsaPrivate : KeyKind::kDsaPrivate, &blob, &key, &data);
  if (status >= 0) return status;
  CKD_ByteString sig;
  if (!(rsa ? KDPKI_RsaSign(View(data), View(blob), sig) : KDPKI_DsaSign(View(data), View(blob), sig))) {
    Error("%s sign: the signature could not be made", a.command);
    return kExitFailure;
  }
  Bytes out(sig.GetPtr(), sig.GetPtr() + sig.GetLength());
  if (a.flag[kDer]) out = DsaSigToDer(out);
  return Emit(a, out.data(), out.size(), a.flag[kHex]);
}

int Verify(const Args& a, bool rsa) {
  if (!a.value[kSignature]) return UsageError("%s verify: give the signature with --signature SIG", a.command);
  Bytes blob, data, sig;
  KeyBlob key;
  const int status = KeyAndData(a, rsa ? KeyKind::kRsaPublic : KeyKind::kDsaPublic, &blob, &key, &data);
  if (status >= 0) return status;
  if (!ReadAll(a, a.value[kSignature], kMaxKeyFile, &sig)) return kExitFailure;
  bool ok = true;
  if (a.flag[kHex]) {
    if (!FromHexText(&sig)) {
      Error("%s verify: %s: not a hex signature", a.command, Quote(a.value[kSignature]).c_str());
      return kExitUsage;
    }
  } else if (a.flag[kDer]) {
    Bytes rs;
    // A DSA signature of this key is r || s over the byte count of q.
    ok = DsaSigFromDer(sig, key.values[1].GetByteCount(), &rs);
    sig = rs;
  }
  ok = ok && (rsa ? KDPKI_VerifyRsaSign(View(data), View(sig), View(blob))
                  : KDPKI_VerifyDsaSign(View(data), View(sig), View(blob)));
  std::puts(ok ? "Verified OK" : "Verification failure");
  return ok ? kExitOk : kExitFailure;
}

int Crypt(const Args& a, bool encrypt) {
  Bytes blob, data;
  KeyBlob key;
  const int status = KeyAndData(a, encrypt ? KeyKind::kRsaPublic : KeyKind::kRsaPrivate, &blob, &key, &data);
  if (status >= 0) return status;
  if (!encrypt && a.flag[kHex] && !FromHexText(&data)) {
    Error("rsa decrypt: the input is not hex");
    return kExitFailure;
  }
  CKD_ByteString out;
  if (encrypt ? !KDPKI_RsaEncrypt(View(data), View(blob), out) : !KDPKI_RsaDecrypt(View(data), View(blob), out)) {
    if (encrypt) {
      // The limit counts the length recorded for n, in whole words.
      const long recorded = static_cast<long>(blob[0]) << 24 | blob[1] << 16 | blob[2] << 8 | blob[3];
      const long limit = 4 * ((recorded + 3) / 4) - 11;
      Error("rsa encrypt: %zu bytes of data; this key takes at most %ld", data.size(), limit < 0 ? 0 : limit);
    } else {
      Error("rsa decrypt: out of memory");
    }
    return kExitFailure;
  }
  return Emit(a, out.GetPtr(), static_cast<size_t>(out.GetLength()), encrypt && a.flag[kHex]);
}

int Export(const Args& a, bool rsa) {
  if (a.operands.size() != 1) return UsageError("%s export: give one key file", a.command);
  if (a.flag[kPem] && a.flag[kDer]) return UsageError("%s export: --pem and --der exclude each other", a.command);
  Bytes blob;
  KeyBlob key;
  const char* path = a.operands[0];
  if (!ReadAll(a, path, kMaxKeyFile, &blob)) return kExitFailure;
  const KeyKind kinds[2] = {rsa ? KeyKind::kRsaPublic : KeyKind::kDsaPublic,
                            rsa ? KeyKind::kRsaPrivate : KeyKind::kDsaPrivate};
  const bool parsed = ParseBlob(blob, &key);
  const bool is_public = parsed && IsKey(key, kinds[0]);
  if (!is_public && !(parsed && IsKey(key, kinds[1]))) {
    Error("%s export: %s: not %s or %s", a.command, Quote(path).c_str(), Describe(kinds[0]), Describe(kinds[1]));
    return kExitUsage;
  }
  const std::vector<KDPKI_HugeInt>& v = key.values;
  const bool pub = is_public || a.flag[kPubout];
  Bytes der;
  if (rsa && is_public) {
    der = RsaPublicDer(v[0], v[1]);
  } else if (rsa) {
    RsaFull full;
    if (!CompleteRsaKey(key, &full)) {
      Error("rsa export: %s: the primes and exponents do not make one key", Quote(path).c_str());
      return kExitUsage;
    }
    der = pub ? RsaPublicDer(full.n, full.e) : RsaPrivateDer(full);
  } else {
    der = pub ? DsaPublicDer(v[0], v[1], v[2], v[3]) : DsaPrivateDer(v[0], v[1], v[2], v[4]);
  }
  if (a.flag[kDer]) return Emit(a, der.data(), der.size(), false);
  const std::string pem = Pem(pub ? "PUBLIC KEY" : "PRIVATE KEY", der);
  return Emit(a, reinterpret_cast<const uint8_t*>(pem.data()), pem.size(), false);
}

// The options each subcommand takes, as a string of option indexes.
struct Sub {
  const char* name;
  bool rsa_only;
  std::vector<int> options;
  int (*run)(const Args&, bool rsa);
  size_t max_operands;
};

int RunSign(const Args& a, bool rsa) { return Sign(a, rsa); }
int RunVerify(const Args& a, bool rsa) { return Verify(a, rsa); }
int RunEncrypt(const Args& a, bool) { return Crypt(a, true); }
int RunDecrypt(const Args& a, bool) { return Crypt(a, false); }

int Run(const char* command, int argc, char** argv) {
  const bool rsa = std::strcmp(command, "rsa") == 0;
  const std::vector<Sub> subs = {
      {"keygen", false, {kBits, kSeed, kOut}, Keygen, 0},
      {"sign", false, {kKey, kHex, kDer, kOut}, RunSign, 1},
      {"verify", false, {kKey, kSignature, kHex, kDer}, RunVerify, 1},
      {"encrypt", true, {kKey, kHex, kOut}, RunEncrypt, 1},
      {"decrypt", true, {kKey, kHex, kOut}, RunDecrypt, 1},
      {"export", false, {kPem, kDer, kPubout, kOut}, Export, 1},
  };
  if (argc < 2) return UsageError("%s: missing subcommand (keygen, sign, verify, %sexport)", command,
                                  rsa ? "encrypt, decrypt, " : "");
  const Sub* sub = nullptr;
  for (const Sub& s : subs) {
    if (std::strcmp(argv[1], s.name) == 0 && (rsa || !s.rsa_only)) sub = &s;
  }
  if (!sub) return UsageError("%s: unknown subcommand '%s'", command, argv[1]);
  Args a;
  a.command = command;
  a.sub = sub->name;
  const bool ok = ParseOptions(argc - 1, argv + 1, kOptions, kOptionCount, &a.operands, [&](int option, char* value) {
    bool allowed = false;
    for (int o : sub->options) allowed = allowed || o == option;
    // --bits is RSA's; --der names DSA signatures in sign and verify.
    if (option == kBits && !rsa) allowed = false;
    if (option == kDer && !rsa && sub->run == Export) allowed = true;
    if (option == kDer && rsa && sub->run != Export) allowed = false;
    if (!allowed) {
      UsageError("%s %s: %s%s is not an option here", command, sub->name, kOptions[option].long_name ? "--" : "-",
                 kOptions[option].long_name ? kOptions[option].long_name : "");
      return false;
    }
    a.value[option] = value;
    a.flag[option] = true;
    return true;
  });
  if (!ok) return kExitUsage;
  if (a.operands.size() > sub->max_operands) return UsageError("%s %s: unexpected argument '%s'", command, sub->name,
                                                                a.operands[sub->max_operands]);
  if (a.flag[kHex] && a.flag[kDer]) return UsageError("%s %s: --hex and --der exclude each other", command, sub->name);
  return sub->run(a, rsa);
}

}  // namespace

int RunRsa(int argc, char** argv) { return Run("rsa", argc, argv); }
int RunDsa(int argc, char** argv) { return Run("dsa", argc, argv); }

}  // namespace nvtool
