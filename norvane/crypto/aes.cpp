// AES: key schedules, the table-driven block routines for 4-, 6- and 8-word blocks, CBC, and the
// choice of CBC kernel.
#include <algorithm>

#include "norvane/crypto/aes.h"
#include "norvane/crypto/aes_internal.h"
#include "norvane/crypto/sha_internal.h"

using kdcrypt::LoadBE32;
using kdcrypt::StoreBE32;

namespace {

constexpr int kScheduleWords = 120;

AESContext* Ctx(void* context) { return static_cast<AESContext*>(context); }

inline uint32_t SubWord(uint32_t w) {
  return (uint32_t{kd_aes_S[w >> 24]} << 24) | (uint32_t{kd_aes_S[(w >> 16) & 255]} << 16) |
         (uint32_t{kd_aes_S[(w >> 8) & 255]} << 8) | kd_aes_S[w & 255];
}

// InvMixColumns of one schedule word: the decryption tables undo the S-box, so feed them its images.
inline uint32_t InvMixColumn(uint32_t w) {
  return kd_aes_D0[kd_aes_S[w >> 24]] ^ kd_aes_D1[kd_aes_S[(w >> 16) & 255]] ^ kd_aes_D2[kd_aes_S[(w >> 8) & 255]] ^
         kd_aes_D3[kd_aes_S[w & 255]];
}

// One cipher for NB columns. Row r of column j comes from column (j + Cr) mod NB on the way in
// (ShiftRows) and from column (j - Cr) mod NB on the way out (its inverse).
template <int NB, int C1, int C2, int C3>
inline void EncryptBlock(const AESContext* ctx, uint32_t* block) {
  const uint32_t* rk = ctx->keysched;
  uint32_t s[NB], t[NB];
  for (int j = 0; j < NB; ++j) s[j] = block[j] ^ rk[j];
  for (int r = 1; r < ctx->Nr; ++r) {
    rk += NB;
    for (int j = 0; j < NB; ++j) {
      t[j] = kd_aes_E0[s[j] >> 24] ^ kd_aes_E1[(s[(j + C1) % NB] >> 16) & 255] ^
             kd_aes_E2[(s[(j + C2) % NB] >> 8) & 255] ^ kd_aes_E3[s[(j + C3) % NB] & 255] ^ rk[j];
    }
    for (int j = 0; j < NB; ++j) s[j] = t[j];
  }
  rk += NB;
  for (int j = 0; j < NB; ++j) {
    block[j] = ((uint32_t{kd_aes_S[s[j] >> 24]} << 24) | (uint32_t{kd_aes_S[(s[(j + C1) % NB] >> 16) & 255]} << 16) |
                (uint32_t{kd_aes_S[(s[(j + C2) % NB] >> 8) & 255]} << 8) | kd_aes_S[s[(j + C3) % NB] & 255]) ^
               rk[j];
  }
}

template <int NB, int C1, int C2, int C3>
inline void DecryptBlock(const AESContext* ctx, uint32_t* block) {
  const uint32_t* rk = ctx->invkeysched;
  uint32_t s[NB], t[NB];
  for (int j = 0; j < NB; ++j) s[j] = block[j] ^ rk[j];
  for (int r = 1; r < ctx->Nr; ++r) {
    rk += NB;
    for (int j = 0; j < NB; ++j) {
      t[j] = kd_aes_D0[s[j] >> 24] ^ kd_aes_D1[(s[(j + NB - C1) % NB] >> 16) & 255] ^
             kd_aes_D2[(s[(j + NB - C2) % NB] >> 8) & 255] ^ kd_aes_D3[s[(j + NB - C3) % NB] & 255] ^ rk[j];
    }
    for (int j = 0; j < NB; ++j) s[j] = t[j];
  }
  rk += NB;
  for (int j = 0; j < NB; ++j) {
    block[j] = ((uint32_t{kd_aes_Si[s[j] >> 24]} << 24) |
                (uint32_t{kd_aes_Si[(s[(j + NB - C1) % NB] >> 16) & 255]} << 16) |
                (uint32_t{kd_aes_Si[(s[(j + NB - C2) % NB] >> 8) & 255]} << 8) |
                kd_aes_Si[s[(j + NB - C3) % NB] & 255]) ^
               rk[j];
  }
}

}  // namespace

void aes_encrypt_nb_4(const AESContext* context, uint32_t* block) { EncryptBlock<4, 1, 2, 3>(context, block); }
void aes_encrypt_nb_6(const AESContext* context, uint32_t* block) { EncryptBlock<6, 1, 2, 3>(context, block); }
void aes_encrypt_nb_8(const AESContext* context, uint32_t* block) { EncryptBlock<8, 1, 3, 4>(context, block); }
void aes_decrypt_nb_4(const AESContext* context, uint32_t* block) { DecryptBlock<4, 1, 2, 3>(context, block); }
void aes_decrypt_nb_6(const AESContext* context, uint32_t* block) { DecryptBlock<6, 1, 2, 3>(context, block); }
void aes_decrypt_nb_8(const AESContext* context, uint32_t* block) { DecryptBlock<8, 1, 3, 4>(context, block); }

void aes_cbc_encrypt_nohw(const AESContext* ctx, uint8_t* dest, const uint8_t* src, size_t blocks,
                          uint32_t chain[4]) {
  // The block routine may be a 6- or 8-word one called through a hand-made context; give it room.
  uint32_t block[8] = {chain[0], chain[1], chain[2], chain[3]};
  for (; blocks; --blocks, src += 16, dest += 16) {
    for (int j = 0; j < 4; ++j) block[j] ^= LoadBE32(src + 4 * j);
    ctx->encrypt(ctx, block);
    for (int j = 0; j < 4; ++j) StoreBE32(dest + 4 * j, block[j]);
  }
  for (int j = 0; j < 4; ++j) chain[j] = block[j];
}

void aes_cbc_decrypt_nohw(const AESContext* ctx, uint8_t* dest, const uint8_t* src, size_t blocks,
                          uint32_t chain[4]) {
  uint32_t prev[4] = {chain[0], chain[1], chain[2], chain[3]};
  for (; blocks; --blocks, src += 16, dest += 16) {
    uint32_t cipher[4], block[8] = {};
    for (int j = 0; j < 4; ++j) block[j] = cipher[j] = LoadBE32(src + 4 * j);
    ctx->decrypt(ctx, block);
    for (int j = 0; j < 4; ++j) {
      StoreBE32(dest + 4 * j, block[j] ^ prev[j]);
      prev[j] = cipher[j];
    }
  }
  for (int j = 0; j < 4; ++j) chain[j] = prev[j];
}

#if !defined(NORVANE_AES_HW)
bool aes_hw_capable() { return false; }
#endif

namespace kdcrypt {

const AesKernelEntry* AesKernels() {
  static const AesKernelEntry* list = [] {
    static AesKernelEntry entries[3] = {{"portable", &aes_cbc_encrypt_nohw, &aes_cbc_decrypt_nohw}};
#if defined(NORVANE_AES_HW)
    if (aes_hw_capable()) entries[1] = {"hardware", &aes_hw_cbc_encrypt, &aes_hw_cbc_decrypt};
#endif
    return entries;
  }();
  return list;
}

void AesCbc(AESContext* ctx, uint8_t* dest, const uint8_t* src, int size, bool encrypt, const AesKernelEntry& kernel) {
  // Chaining is defined for 16-byte blocks only; after any other block length, or a key the
  // context could not hold, the routine may be unset, so nothing is done.
  if (size <= 0 || ctx->Nb != 4 || !(encrypt ? ctx->encrypt : ctx->decrypt)) return;
  size_t blocks = (static_cast<size_t>(size) + 15) / 16;
  (encrypt ? kernel.encrypt : kernel.decrypt)(ctx, dest, src, blocks, ctx->iv);
}

}  // namespace kdcrypt

void CRYPT_AESSetKey(void* context, uint32_t block_len, const uint8_t* key, uint32_t key_len, bool /*encrypt*/) {
  AESContext* ctx = Ctx(context);
  const int nb = static_cast<int>(block_len / 4);
  const int nk = static_cast<int>(key_len / 4);
  const int nr = std::max(nb, nk) + 6;
  ctx->Nb = nb;
  ctx->Nr = nr;
  const long long words = static_cast<long long>(nr + 1) * nb;
  if (nk == 0 || words > kScheduleWords) {
    // Beyond what the context can hold: no schedule, and no routine that would read one.
    ctx->encrypt = nullptr;
    ctx->decrypt = nullptr;
    return;
  }
  switch (nb) {
    case 4:
      ctx->encrypt = aes_encrypt_nb_4;
      ctx->decrypt = aes_decrypt_nb_4;
      break;
    case 6:
      ctx->encrypt = aes_encrypt_nb_6;
      ctx->decrypt = aes_decrypt_nb_6;
      break;
    case 8:
      ctx->encrypt = aes_encrypt_nb_8;
      ctx->decrypt = aes_decrypt_nb_8;
      break;
    default:
      break;  // the routines stay as they were
  }
  uint32_t* w = ctx->keysched;
  uint32_t rcon = 1;
  for (int i = 0; i < words; ++i) {
    if (i < nk) {
      w[i] = LoadBE32(key + 4 * i);
      continue;
    }
    uint32_t temp = w[i - 1];
    if (i % nk == 0) {
      temp = SubWord((temp << 8) | (temp >> 24)) ^ (rcon << 24);
      rcon = (rcon << 1) ^ ((rcon & 0x80) ? 0x1b : 0);
    } else if (key_len >= 28 && i % nk == 4) {
      temp = SubWord(temp);
    }
    w[i] = w[i - nk] ^ temp;
  }
  // The equivalent inverse cipher: the rounds in reverse order, InvMixColumns applied to every
  // round key but the first and the last.
  uint32_t* dk = ctx->invkeysched;
  for (int r = 0; r <= nr; ++r) {
    for (int j = 0; j < nb; ++j) {
      uint32_t k = w[(nr - r) * nb + j];
      dk[r * nb + j] = (r == 0 || r == nr) ? k : InvMixColumn(k);
    }
  }
}

void CRYPT_AESSetIV(void* context, const uint8_t* iv) {
  AESContext* ctx = Ctx(context);
  // Never past the eight words of the chaining value, whatever the block length.
  const int nb = std::min(ctx->Nb, 8);
  for (int j = 0; j < nb; ++j) ctx->iv[j] = LoadBE32(iv + 4 * j);
}

void CRYPT_AESEncrypt(void* context, uint8_t* dest, const uint8_t* src, int size) {
  AESContext* ctx = Ctx(context);
  const kdcrypt::AesKernelEntry* kernels = kdcrypt::AesKernels();
  // The hardware runs the library's own 16-byte cipher; a context with another routine keeps it.
  static const kdcrypt::AesKernelEntry& chosen = kernels[1].name ? kernels[1] : kernels[0];
  kdcrypt::AesCbc(ctx, dest, src, size, true, ctx->encrypt == &aes_encrypt_nb_4 ? chosen : kernels[0]);
}

void CRYPT_AESDecrypt(void* context, uint8_t* dest, const uint8_t* src, int size) {
  AESContext* ctx = Ctx(context);
  const kdcrypt::AesKernelEntry* kernels = kdcrypt::AesKernels();
  static const kdcrypt::AesKernelEntry& chosen = kernels[1].name ? kernels[1] : kernels[0];
  kdcrypt::AesCbc(ctx, dest, src, size, false, ctx->decrypt == &aes_decrypt_nb_4 ? chosen : kernels[0]);
}
