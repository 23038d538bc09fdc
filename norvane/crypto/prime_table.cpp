// The small-prime table, its completion, and the tests that only divide by its primes.
#include <algorithm>

#include "norvane/crypto/primes.h"
#include "norvane/crypto/primes_internal.h"
#include "norvane/runtime/sync.h"

uint32_t primeTable[KDPKI_PRIME_TABLE_SIZE] = {
#include "norvane/crypto/prime_table.inc"
};
int bLoad = 0;
int primeTableSize = 0;

namespace {

// Index of 257 in the table: the completion divides by the primes 3 .. 257, and 257^2 > 32719.
constexpr int kLastCompletionDivisor = 54;

int32_t g_build_lock = 0;

kdpki::PrimeGroup g_groups[kdpki::kMaxPrimeGroups];
int g_group_count = 0;         // groups over all 3511 primes
int g_stored_group_count = 0;  // of which over the first 552

int LastValidIndex() {
  return __atomic_load_n(&primeTableSize, __ATOMIC_ACQUIRE) ? KDPKI_PRIME_TABLE_SIZE - 1 : KDPKI_PRIME_TABLE_STORED - 1;
}

void EnsureTable() {
  if (!__atomic_load_n(&bLoad, __ATOMIC_ACQUIRE)) KDPKI_BuildPrimeTable();
}

// Groups primeTable[begin, end) into runs whose product fits in 32 bits.
void AddGroups(int begin, int end) {
  for (int i = begin; i < end && g_group_count < kdpki::kMaxPrimeGroups;) {
    uint64_t product = primeTable[i] ? primeTable[i] : 1;  // never 0, whatever a caller wrote there
    int j = i + 1;
    while (j < end && product * primeTable[j] <= 0xFFFFFFFFu) product *= primeTable[j++];
    kdpki::PrimeGroup& g = g_groups[g_group_count++];
    g.shift = static_cast<uint8_t>(__builtin_clz(static_cast<uint32_t>(product)));
    g.divisor = static_cast<uint32_t>(product) << g.shift;
    g.inverse = static_cast<uint32_t>(~uint64_t{0} / g.divisor - (uint64_t{1} << 32));
    g.first = static_cast<uint16_t>(i);
    g.count = static_cast<uint16_t>(j - i);
    i = j;
  }
}

}  // namespace

void KDPKI_BuildPrimeTable() {
  if (__atomic_load_n(&bLoad, __ATOMIC_ACQUIRE)) return;
  KD_SpinLock_Lock(&g_build_lock);
  if (!bLoad) {
    int filled = KDPKI_PRIME_TABLE_STORED;
    for (uint32_t n = primeTable[filled - 1] + 2; filled < KDPKI_PRIME_TABLE_SIZE; n += 2) {
      bool prime = true;
      for (int i = 1; i <= kLastCompletionDivisor && prime; ++i) prime = n % primeTable[i] != 0;
      if (prime) primeTable[filled++] = n;
    }
    g_group_count = 0;
    AddGroups(0, KDPKI_PRIME_TABLE_STORED);
    g_stored_group_count = g_group_count;
    AddGroups(KDPKI_PRIME_TABLE_STORED, KDPKI_PRIME_TABLE_SIZE);
    __atomic_store_n(&primeTableSize, 1, __ATOMIC_RELEASE);
    __atomic_store_n(&bLoad, 1, __ATOMIC_RELEASE);
  }
  KD_SpinLock_Unlock(&g_build_lock);
}

const kdpki::PrimeGroup* kdpki::ValidPrimeGroups(int* count) {
  *count = LastValidIndex() == KDPKI_PRIME_TABLE_SIZE - 1 ? g_group_count : g_stored_group_count;
  return g_groups;
}

void kdpki::GroupRemainders(const uint32_t* a, size_t n, const PrimeGroup* groups, int count, uint32_t* out) {
  // The remainder of a * 2^shift by divisor, one word at a time from the top: each step divides
  // the two words (r, w), r < divisor, with the precomputed reciprocal (Moller and Granlund,
  // "Improved division by invariant integers", 2011). Four groups at a time, so that their
  // chains of dependent steps overlap.
  constexpr int kLanes = 4;
  for (int g = 0; g < count; g += kLanes) {
    const int lanes = count - g < kLanes ? count - g : kLanes;
    uint32_t r[kLanes] = {}, d[kLanes] = {1, 1, 1, 1}, v[kLanes] = {}, s[kLanes] = {};
    for (int l = 0; l < lanes; ++l) {
      d[l] = groups[g + l].divisor;
      v[l] = groups[g + l].inverse;
      s[l] = groups[g + l].shift;
      r[l] = n ? static_cast<uint32_t>(static_cast<uint64_t>(a[n - 1]) >> (32 - s[l])) : 0;
    }
    for (size_t i = n; i-- > 0;) {
      const uint64_t pair = (static_cast<uint64_t>(a[i]) << 32) | (i ? a[i - 1] : 0);
      for (int l = 0; l < kLanes; ++l) {
        const uint32_t w = static_cast<uint32_t>(pair >> (32 - s[l]));
        const uint64_t q = static_cast<uint64_t>(v[l]) * r[l] + ((static_cast<uint64_t>(r[l]) << 32) | w);
        uint32_t rem = w - (static_cast<uint32_t>(q >> 32) + 1) * d[l];
        if (rem > static_cast<uint32_t>(q)) rem += d[l];
        if (rem >= d[l]) rem -= d[l];
        r[l] = rem;
      }
    }
    for (int l = 0; l < lanes; ++l) out[g + l] = r[l] >> s[l];
  }
}

bool KDPKI_IsSmallPrime(const KDPKI_HugeInt& n) {
  EnsureTable();
  if (!n.IsPositive() || n.GetWordCount() != 1) return false;
  const uint32_t* end = primeTable + LastValidIndex() + 1;
  return std::binary_search(static_cast<const uint32_t*>(primeTable), end, n.Magnitude().GetWords()[0]);
}

bool KDPKI_TrialDivision(const KDPKI_HugeInt& n, uint32_t bound) {
  const int last = LastValidIndex();
  for (int i = 0; i <= last && primeTable[i] <= bound; ++i) {
    if (n % primeTable[i] == 0) return true;
  }
  return false;
}

bool KDPKI_SmallDivisorsTest(const KDPKI_HugeInt& n) {
  EnsureTable();
  int count;
  const kdpki::PrimeGroup* groups = kdpki::ValidPrimeGroups(&count);
  // A batch of groups at a time: most numbers have a small factor, found in the first batch.
  constexpr int kBatch = 32;
  uint32_t r[kBatch];
  for (int g = 0; g < count; g += kBatch) {
    const int batch = count - g < kBatch ? count - g : kBatch;
    kdpki::GroupRemainders(n.Magnitude().GetWords(), n.GetWordCount(), groups + g, batch, r);
    for (int b = 0; b < batch; ++b) {
      for (int i = groups[g + b].first; i < groups[g + b].first + groups[g + b].count; ++i) {
        if (r[b] % primeTable[i] == 0) return false;
      }
    }
  }
  return true;
}
