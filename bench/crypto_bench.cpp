// Digests and AES-CBC against OpenSSL's libcrypto, in one run: SHA-1, SHA-256 and SHA-512 on 64-byte
// and 16 KiB messages, AES-128 and AES-256 CBC encryption and decryption of 16 KiB. Each case runs
// three ways: "norvane" (the public functions, with the kernel this machine gets), "portable" (the
// portable kernels, through the internal entry points) and "openssl". After the table the program
// prints each Norvane figure as a ratio of OpenSSL's throughput.
// Run: build/release/bench/crypto_bench
#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "bench/rate_reporter.h"
#include "norvane/crypto/aes.h"
#include "norvane/crypto/aes_internal.h"
#include "norvane/crypto/sha.h"
#include "norvane/crypto/sha_internal.h"

namespace {

std::vector<uint8_t> Data(size_t n) {
  std::vector<uint8_t> v(n);
  for (size_t i = 0; i < n; ++i) v[i] = static_cast<uint8_t>(i * 131 + 7);
  return v;
}

template <class Fn>
void Loop(benchmark::State& state, size_t bytes, Fn fn) {
  for (auto _ : state) fn();
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

void Digest(benchmark::State& state, int algo, size_t n, int way) {
  const std::vector<uint8_t> data = Data(n);
  const uint32_t len = static_cast<uint32_t>(n);
  uint8_t out[64];
  if (way == 2) {
    const EVP_MD* md = algo == 1 ? EVP_sha1() : algo == 256 ? EVP_sha256() : EVP_sha512();
    unsigned int size = 0;
    Loop(state, n, [&] {
      EVP_Digest(data.data(), n, out, &size, md, nullptr);
      benchmark::DoNotOptimize(out);
    });
  } else if (way == 0) {
    void (*generate)(const uint8_t*, uint32_t, uint8_t*) =
        algo == 1 ? CRYPT_SHA1Generate : algo == 256 ? CRYPT_SHA256Generate : CRYPT_SHA512Generate;
    Loop(state, n, [&] {
      generate(data.data(), len, out);
      benchmark::DoNotOptimize(out);
    });
  } else if (algo == 1) {
    Loop(state, n, [&] {
      CRYPT_SHA1Context ctx;
      CRYPT_SHA1Start(&ctx);
      kdcrypt::Sha1Update(&ctx, data.data(), len, &sha1_block_data_order_nohw);
      kdcrypt::Sha1Finish(&ctx, out, &sha1_block_data_order_nohw);
      benchmark::DoNotOptimize(out);
    });
  } else if (algo == 256) {
    Loop(state, n, [&] {
      CRYPT_SHA256Context ctx;
      CRYPT_SHA256Start(&ctx);
      kdcrypt::Sha256Update(&ctx, data.data(), len, &sha256_block_data_order_nohw);
      kdcrypt::Sha256Finish(&ctx, out, &sha256_block_data_order_nohw);
      benchmark::DoNotOptimize(out);
    });
  } else {
    Loop(state, n, [&] {
      CRYPT_SHA512Context ctx;
      CRYPT_SHA512Start(&ctx);
      kdcrypt::Sha512Update(&ctx, data.data(), len, &sha512_block_data_order_nohw);
      kdcrypt::Sha512Finish(&ctx, out, 8, &sha512_block_data_order_nohw);
      benchmark::DoNotOptimize(out);
    });
  }
}

void Cbc(benchmark::State& state, int key_bits, bool encrypt, int way) {
  const size_t n = 16384;
  const std::vector<uint8_t> in = Data(n), key = Data(key_bits / 8), iv = Data(16);
  std::vector<uint8_t> out(n);
  if (way == 2) {
    EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
    EVP_CipherInit_ex(ctx, key_bits == 128 ? EVP_aes_128_cbc() : EVP_aes_256_cbc(), nullptr, key.data(), iv.data(),
                      encrypt ? 1 : 0);
    EVP_CIPHER_CTX_set_padding(ctx, 0);
    int written = 0;
    Loop(state, n, [&] {
      EVP_CipherUpdate(ctx, out.data(), &written, in.data(), static_cast<int>(n));
      benchmark::DoNotOptimize(out.data());
    });
    EVP_CIPHER_CTX_free(ctx);
    return;
  }
  AESContext ctx;
  CRYPT_AESSetKey(&ctx, 16, key.data(), key_bits / 8, encrypt);
  CRYPT_AESSetIV(&ctx, iv.data());
  const kdcrypt::AesKernelEntry& portable = kdcrypt::AesKernels()[0];
  Loop(state, n, [&] {
    if (way == 1) {
      kdcrypt::AesCbc(&ctx, out.data(), in.data(), static_cast<int>(n), encrypt, portable);
    } else if (encrypt) {
      CRYPT_AESEncrypt(&ctx, out.data(), in.data(), static_cast<int>(n));
    } else {
      CRYPT_AESDecrypt(&ctx, out.data(), in.data(), static_cast<int>(n));
    }
    benchmark::DoNotOptimize(out.data());
  });
}

const char* const kWays[] = {"norvane", "portable", "openssl"};

// Prints the usual table, then each case's Norvane and portable throughput over OpenSSL's.
class RatioReporter : public RateReporter {
 public:
  void Finalize() override {
    ConsoleReporter::Finalize();
    std::printf("\n%-24s %10s %10s   (throughput / OpenSSL's, same run)\n", "case", "norvane", "portable");
    for (const auto& [name, rate] : rates_) {
      const std::string suffix = "/openssl";
      if (name.size() < suffix.size() || name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0) continue;
      const std::string base = name.substr(0, name.size() - suffix.size());
      std::printf("%-24s %10.2f %10.2f\n", base.c_str(), rates_[base + "/norvane"] / rate,
                  rates_[base + "/portable"] / rate);
    }
  }
};

}  // namespace

int main(int argc, char** argv) {
  for (int algo : {1, 256, 512}) {
    for (int size : {64, 16384}) {
      for (int way = 0; way < 3; ++way) {
        const std::string name = "SHA" + std::to_string(algo) + "/" + std::to_string(size) + "/" + kWays[way];
        benchmark::RegisterBenchmark(name.c_str(), Digest, algo, static_cast<size_t>(size), way);
      }
    }
  }
  for (int bits : {128, 256}) {
    for (bool encrypt : {true, false}) {
      for (int way = 0; way < 3; ++way) {
        const std::string name =
            "AES" + std::to_string(bits) + "-CBC-" + (encrypt ? "enc" : "dec") + "/16384/" + kWays[way];
        benchmark::RegisterBenchmark(name.c_str(), Cbc, bits, encrypt, way);
      }
    }
  }
  RatioReporter reporter;
  return RunBenchmarks(argc, argv, &reporter);
}
