#include "norvane/crypto/pubkey_test_util.h"

#include <openssl/core_names.h>
#include <openssl/dsa.h>
#include <openssl/encoder.h>
#include <openssl/param_build.h>
#include <openssl/rsa.h>

#include <cctype>
#include <fstream>
#include <sstream>

namespace pktest {

Bytes Magnitude(const KDPKI_HugeInt& x) {
  Bytes b(x.GetByteCount());
  x.Encode(b.data(), static_cast<int>(b.size()));
  return b;
}

KDPKI_HugeInt Huge(const Bytes& big_endian) {
  KDPKI_HugeInt x;
  x.Decode(big_endian.data(), static_cast<int>(big_endian.size()));
  return x;
}

Bytes Blob(const std::vector<Bytes>& values) {
  Bytes out;
  for (const Bytes& v : values) {
    size_t skip = 0;
    while (skip < v.size() && v[skip] == 0) ++skip;
    const size_t n = v.size() - skip;
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<uint8_t>(n >> shift));
    out.insert(out.end(), v.begin() + static_cast<long>(skip), v.end());
  }
  return out;
}

std::vector<Bytes> Unblob(const Bytes& blob) {
  std::vector<Bytes> values;
  size_t pos = 0;
  while (pos < blob.size()) {
    if (blob.size() - pos < 4) return {};
    const size_t n = size_t{blob[pos]} << 24 | size_t{blob[pos + 1]} << 16 | size_t{blob[pos + 2]} << 8 | blob[pos + 3];
    pos += 4;
    if (blob.size() - pos < n) return {};
    values.emplace_back(blob.begin() + static_cast<long>(pos), blob.begin() + static_cast<long>(pos + n));
    pos += n;
  }
  return values;
}

std::vector<Vector> ReadVectors(const std::string& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  const std::string s = text.str();
  std::vector<Vector> cases;
  std::map<std::string, std::string> group;
  // Every "name": value pair with a string or number value, in the file's order.
  for (size_t i = s.find('"'); i != std::string::npos; i = s.find('"', i)) {
    const size_t end = s.find('"', i + 1);
    const std::string name = s.substr(i + 1, end - i - 1);
    size_t v = s.find_first_not_of(" \n", end + 1);
    i = end + 1;
    if (v == std::string::npos || s[v] != ':') continue;
    v = s.find_first_not_of(" \n", v + 1);
    std::string value;
    if (s[v] == '"') {
      for (i = v + 1; s[i] != '"'; ++i) value += s[i] == '\\' ? s[++i] : s[i];
      ++i;
    } else if (std::isdigit(static_cast<unsigned char>(s[v]))) {
      for (i = v; std::isdigit(static_cast<unsigned char>(s[i])); ++i) value += s[i];
    } else {
      continue;  // an object or array: its pairs follow
    }
    if (name == "tcId") cases.push_back({group, {}});
    if (name == "tcId" || name == "comment" || name == "msg" || name == "sig" || name == "result") {
      if (!cases.empty()) cases.back().test[name] = value;
    } else {
      group[name] = value;
    }
  }
  return cases;
}

// ---- OpenSSL ----

Bn ToBn(const Bytes& big_endian) {
  return Bn(BN_bin2bn(big_endian.data(), static_cast<int>(big_endian.size()), nullptr));
}

Bytes Param(EVP_PKEY* key, const char* name) {
  BIGNUM* b = nullptr;
  if (!EVP_PKEY_get_bn_param(key, name, &b)) return {};
  Bytes out(static_cast<size_t>(BN_num_bytes(b)));
  BN_bn2bin(b, out.data());
  BN_clear_free(b);
  return out;
}

namespace {

Pkey FromParams(const char* type, int selection, const std::vector<std::pair<const char*, Bytes>>& values) {
  OSSL_PARAM_BLD* bld = OSSL_PARAM_BLD_new();
  std::vector<Bn> held;
  for (const auto& [name, value] : values) {
    held.push_back(ToBn(value));
    OSSL_PARAM_BLD_push_BN(bld, name, held.back().get());
  }
  OSSL_PARAM* params = OSSL_PARAM_BLD_to_param(bld);
  EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new_from_name(nullptr, type, nullptr);
  EVP_PKEY* key = nullptr;
  if (EVP_PKEY_fromdata_init(ctx) <= 0 || EVP_PKEY_fromdata(ctx, &key, selection, params) <= 0) key = nullptr;
  EVP_PKEY_CTX_free(ctx);
  OSSL_PARAM_free(params);
  OSSL_PARAM_BLD_free(bld);
  return Pkey(key);
}

}  // namespace

Pkey OpensslRsaKey(int bits, unsigned e) {
  EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr);
  EVP_PKEY* key = nullptr;
  Bn exponent(BN_new());
  BN_set_word(exponent.get(), e);
  if (EVP_PKEY_keygen_init(ctx) <= 0 || EVP_PKEY_CTX_set_rsa_keygen_bits(ctx, bits) <= 0 ||
      EVP_PKEY_CTX_set1_rsa_keygen_pubexp(ctx, exponent.get()) <= 0 || EVP_PKEY_generate(ctx, &key) <= 0) {
    key = nullptr;
  }
  EVP_PKEY_CTX_free(ctx);
  return Pkey(key);
}

Pkey RsaFromParts(const Bytes& n, const Bytes& e, const Bytes& d, const Bytes& p, const Bytes& q, const Bytes& dp,
                  const Bytes& dq, const Bytes& qinv) {
  return FromParams("RSA", EVP_PKEY_KEYPAIR,
                    {{OSSL_PKEY_PARAM_RSA_N, n},
                     {OSSL_PKEY_PARAM_RSA_E, e},
                     {OSSL_PKEY_PARAM_RSA_D, d},
                     {OSSL_PKEY_PARAM_RSA_FACTOR1, p},
                     {OSSL_PKEY_PARAM_RSA_FACTOR2, q},
                     {OSSL_PKEY_PARAM_RSA_EXPONENT1, dp},
                     {OSSL_PKEY_PARAM_RSA_EXPONENT2, dq},
                     {OSSL_PKEY_PARAM_RSA_COEFFICIENT1, qinv}});
}

Bytes RsaPublicBlob(EVP_PKEY* key) { return Blob({Param(key, OSSL_PKEY_PARAM_RSA_N), Param(key, OSSL_PKEY_PARAM_RSA_E)}); }

Bytes RsaPrivateBlob(EVP_PKEY* key) {
  return Blob({Param(key, OSSL_PKEY_PARAM_RSA_FACTOR1), Param(key, OSSL_PKEY_PARAM_RSA_FACTOR2),
               Param(key, OSSL_PKEY_PARAM_RSA_EXPONENT1), Param(key, OSSL_PKEY_PARAM_RSA_EXPONENT2),
               Param(key, OSSL_PKEY_PARAM_RSA_COEFFICIENT1)});
}

Bytes RsaPublicDer(EVP_PKEY* key) {
  OSSL_ENCODER_CTX* ctx = OSSL_ENCODER_CTX_new_for_pkey(key, EVP_PKEY_PUBLIC_KEY, "DER", "type-specific", nullptr);
  unsigned char* data = nullptr;
  size_t length = 0;
  Bytes out;
  if (ctx && OSSL_ENCODER_to_data(ctx, &data, &length) > 0) out.assign(data, data + length);
  OPENSSL_free(data);
  OSSL_ENCODER_CTX_free(ctx);
  return out;
}

Bytes RawRsa(EVP_PKEY* key, const Bytes& input, bool private_op) {
  const size_t k = static_cast<size_t>(EVP_PKEY_get_size(key));
  if (input.size() > k) return {};
  Bytes in(k - input.size(), 0);
  in.insert(in.end(), input.begin(), input.end());
  EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new(key, nullptr);
  Bytes out(k);
  size_t length = k;
  const bool ok = private_op ? EVP_PKEY_decrypt_init(ctx) > 0 && EVP_PKEY_CTX_set_rsa_padding(ctx, RSA_NO_PADDING) > 0 &&
                                   EVP_PKEY_decrypt(ctx, out.data(), &length, in.data(), k) > 0
                             : EVP_PKEY_encrypt_init(ctx) > 0 && EVP_PKEY_CTX_set_rsa_padding(ctx, RSA_NO_PADDING) > 0 &&
                                   EVP_PKEY_encrypt(ctx, out.data(), &length, in.data(), k) > 0;
  EVP_PKEY_CTX_free(ctx);
  if (!ok) return {};
  out.resize(length);
  return out;
}

Pkey OpensslDsaKey() {
  EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new_from_name(nullptr, "DSA", nullptr);
  EVP_PKEY* params = nullptr;
  EVP_PKEY* key = nullptr;
  if (EVP_PKEY_paramgen_init(ctx) > 0 && EVP_PKEY_CTX_set_dsa_paramgen_bits(ctx, 1024) > 0 &&
      EVP_PKEY_CTX_set_dsa_paramgen_q_bits(ctx, 160) > 0 && EVP_PKEY_paramgen(ctx, &params) > 0) {
    EVP_PKEY_CTX* kctx = EVP_PKEY_CTX_new_from_pkey(nullptr, params, nullptr);
    if (EVP_PKEY_keygen_init(kctx) <= 0 || EVP_PKEY_generate(kctx, &key) <= 0) key = nullptr;
    EVP_PKEY_CTX_free(kctx);
  }
  EVP_PKEY_free(params);
  EVP_PKEY_CTX_free(ctx);
  return Pkey(key);
}

Pkey DsaFromParts(const Bytes& p, const Bytes& q, const Bytes& g, const Bytes& y, const Bytes& x) {
  std::vector<std::pair<const char*, Bytes>> values = {
      {OSSL_PKEY_PARAM_FFC_P, p}, {OSSL_PKEY_PARAM_FFC_Q, q}, {OSSL_PKEY_PARAM_FFC_G, g}, {OSSL_PKEY_PARAM_PUB_KEY, y}};
  if (!x.empty()) values.push_back({OSSL_PKEY_PARAM_PRIV_KEY, x});
  return FromParams("DSA", x.empty() ? EVP_PKEY_PUBLIC_KEY : EVP_PKEY_KEYPAIR, values);
}

Bytes DsaBlob(EVP_PKEY* key, bool with_private) {
  std::vector<Bytes> values = {Param(key, OSSL_PKEY_PARAM_FFC_P), Param(key, OSSL_PKEY_PARAM_FFC_Q),
                               Param(key, OSSL_PKEY_PARAM_FFC_G), Param(key, OSSL_PKEY_PARAM_PUB_KEY)};
  if (with_private) values.push_back(Param(key, OSSL_PKEY_PARAM_PRIV_KEY));
  return Blob(values);
}

Bytes EncodeDsaSig(const Bytes& rs) {
  const size_t half = rs.size() / 2;
  DSA_SIG* sig = DSA_SIG_new();
  DSA_SIG_set0(sig, BN_bin2bn(rs.data(), static_cast<int>(half), nullptr),
               BN_bin2bn(rs.data() + half, static_cast<int>(half), nullptr));
  unsigned char* der = nullptr;
  const int n = i2d_DSA_SIG(sig, &der);
  Bytes out(der, der + (n > 0 ? n : 0));
  OPENSSL_free(der);
  DSA_SIG_free(sig);
  return out;
}

bool DecodeDsaSig(const Bytes& der, size_t size, Bytes* rs) {
  // OpenSSL reads BER leniently; strict DER is what it writes back byte for byte.
  const unsigned char* p = der.data();
  DSA_SIG* sig = d2i_DSA_SIG(nullptr, &p, static_cast<long>(der.size()));
  if (!sig) return false;
  const BIGNUM *r = nullptr, *s = nullptr;
  DSA_SIG_get0(sig, &r, &s);
  const bool fits = BN_num_bytes(r) <= static_cast<int>(size) && BN_num_bytes(s) <= static_cast<int>(size) &&
                    !BN_is_negative(r) && !BN_is_negative(s);
  rs->assign(2 * size, 0);
  if (fits) {
    BN_bn2binpad(r, rs->data(), static_cast<int>(size));
    BN_bn2binpad(s, rs->data() + size, static_cast<int>(size));
  }
  DSA_SIG_free(sig);
  return fits && p == der.data() + der.size() && EncodeDsaSig(*rs) == der;
}

Bytes OpensslSign(EVP_PKEY* key, const char* digest, const Bytes& data) {
  EVP_MD_CTX* md = EVP_MD_CTX_new();
  size_t length = 0;
  Bytes sig;
  if (EVP_DigestSignInit_ex(md, nullptr, digest, nullptr, nullptr, key, nullptr) > 0 &&
      EVP_DigestSign(md, nullptr, &length, data.data(), data.size()) > 0) {
    sig.resize(length);
    if (EVP_DigestSign(md, sig.data(), &length, data.data(), data.size()) > 0) {
      sig.resize(length);
    } else {
      sig.clear();
    }
  }
  EVP_MD_CTX_free(md);
  return sig;
}

bool OpensslVerify(EVP_PKEY* key, const char* digest, const Bytes& data, const Bytes& signature) {
  EVP_MD_CTX* md = EVP_MD_CTX_new();
  const bool ok = EVP_DigestVerifyInit_ex(md, nullptr, digest, nullptr, nullptr, key, nullptr) > 0 &&
                  EVP_DigestVerify(md, signature.data(), signature.size(), data.data(), data.size()) == 1;
  EVP_MD_CTX_free(md);
  return ok;
}

}  // namespace pktest
