// Many threads at once on what the library shares between threads: the process context's thread
// map and private data, the pool manager and the grow-only pool, memory streams and cached
// readers, the lock and atomic primitives, and the per-thread exception frames. Each test checks
// a result that a lost update or a torn read would break; under ThreadSanitizer (the tsan preset)
// they must also run without a report. Work is bounded by counts, not time.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "norvane/memory/grow_only_pool.h"
#include "norvane/memory/memory_mgr.h"
#include "norvane/memory/py_mgr_internal.h"
#include "norvane/runtime/context.h"
#include "norvane/runtime/exception.h"
#include "norvane/runtime/sync.h"
#include "norvane/runtime/thread.h"
#include "norvane/streams/file_cache.h"
#include "norvane/streams/memory_stream.h"

namespace {

constexpr int kThreads = 8;

// Runs body(id) on kThreads std::threads at once.
template <class F>
void OnThreads(F body, int count = kThreads) {
  std::vector<std::thread> threads;
  for (int id = 0; id < count; ++id) threads.emplace_back(body, id);
  for (auto& t : threads) t.join();
}

// Contexts: threads of KD_Thread_Create start further threads, so contexts are added to and
// removed from the process context's map by many threads at once, while each thread uses its
// private data and last error and the main thread looks contexts up.
struct ContextRun {
  std::atomic<int> started{0}, failures{0}, released{0};
  std::atomic<bool> spawn_done{false};
};
ContextRun* g_run = nullptr;
int g_keys[4];

void CountRelease(void*) { ++g_run->released; }

void* Leaf(void* param) {
  const intptr_t id = reinterpret_cast<intptr_t>(param);
  ++g_run->started;
  for (int round = 0; round < 20; ++round) {
    KD_Thread_SetLastError(static_cast<int>(id * 100 + round));
    for (int& key : g_keys) {
      void* value = reinterpret_cast<void*>(id * 16 + (&key - g_keys) + 1);
      KD_Thread_SetPrivateData(&key, value, CountRelease);
      if (KD_Thread_GetPrivateData(&key) != value) ++g_run->failures;
    }
    if (!KD_Thread_RemovePrivateData(&g_keys[round % 4])) ++g_run->failures;
    if (KD_Thread_GetLastError() != id * 100 + round || KD_Thread_GetContext() == nullptr) ++g_run->failures;
  }
  return nullptr;
}

void* Spawner(void* param) {
  const intptr_t id = reinterpret_cast<intptr_t>(param);
  KD_HTHREAD* leaves[4];
  for (int i = 0; i < 4; ++i) leaves[i] = KD_Thread_Create(0, 0, Leaf, reinterpret_cast<void*>(id * 4 + i + 1));
  for (KD_HTHREAD* t : leaves)
    if (!t) ++g_run->failures;
  if (KD_Thread_WaitForMultipleThreads(leaves, 4) != 0) ++g_run->failures;
  return Leaf(param);
}

TEST(Concurrency, ThreadContextsComeAndGoFromManyThreads) {
  KD_Process_Initialize();
  ContextRun run;
  g_run = &run;
  for (int wave = 0; wave < 3; ++wave) {
    KD_HTHREAD* spawners[kThreads];
    for (int i = 0; i < kThreads; ++i)
      spawners[i] = KD_Thread_Create(0, 0, Spawner, reinterpret_cast<void*>(100 + wave * kThreads + i));
    // Lookups from outside while contexts come and go.
    for (int i = 0; i < 200; ++i) {
      KD_Thread_GetContext(spawners[i % kThreads]);
      KD_Thread_GetLastError();
    }
    ASSERT_EQ(KD_Thread_WaitForMultipleThreads(spawners, kThreads), 0);
  }
  const int threads = 3 * kThreads * 5;
  EXPECT_EQ(run.started, threads);
  EXPECT_EQ(run.failures, 0);
  // Each round after the first replaced the three values still set (removing releases nothing),
  // and each context released the three left when its thread ended.
  EXPECT_EQ(run.released, threads * (19 * 3 + 3));
  EXPECT_EQ(KD_Process_GetContext()->m_ThreadMap.GetCount(), 1);  // only the main thread's
  KD_Process_Finalize();
  g_run = nullptr;
}

// A block of a churning thread: its bytes are all the tag.
struct Block {
  unsigned char* p;
  size_t size;
  unsigned char tag;
};
bool Intact(const Block& b) {
  for (size_t i = 0; i < b.size; ++i)
    if (b.p[i] != b.tag) return false;
  return true;
}

TEST(Concurrency, PoolManagerUnderContention) {
  CKDMEM_PyMgr pools;
  CKD_MemoryMgr* mgr = pools.GetMgr();
  std::atomic<int> failures{0};
  OnThreads([&](int id) {
    std::mt19937 rng(static_cast<unsigned>(id) + 1);
    std::vector<Block> live;
    for (int op = 0; op < 20000; ++op) {
      unsigned r = rng() % 100;
      if (r < 45 || live.empty()) {
        size_t size = rng() % 8 == 0 ? 1000 + rng() % 3000 : 1 + rng() % 600;  // pooled and raw sizes
        Block b{static_cast<unsigned char*>(KDMEM_Alloc(mgr, size, 0)), size, static_cast<unsigned char>(rng())};
        if (!b.p) {
          ++failures;
          continue;
        }
        memset(b.p, b.tag, size);
        live.push_back(b);
      } else if (r < 75) {
        size_t i = rng() % live.size();
        if (!Intact(live[i])) ++failures;
        KDMEM_Free(mgr, live[i].p, 0);
        live[i] = live.back();
        live.pop_back();
      } else if (r < 98) {
        Block& b = live[rng() % live.size()];
        size_t size = 1 + rng() % 1200;
        auto* p = static_cast<unsigned char*>(KDMEM_Realloc(mgr, b.p, size, 0));
        if (!p) {
          ++failures;
          continue;
        }
        for (size_t i = 0; i < std::min(size, b.size); ++i)
          if (p[i] != b.tag) {
            ++failures;
            break;
          }
        b = {p, size, b.tag};
        memset(p, b.tag, size);
      } else {
        KDMEM_PurgeMgr(mgr);  // gives empty arenas back while the others allocate
      }
    }
    for (const Block& b : live) {
      if (!Intact(b)) ++failures;
      KDMEM_Free(mgr, b.p, 0);
    }
  });
  EXPECT_EQ(failures, 0);
}

TEST(Concurrency, GrowOnlyPoolSharedByThreads) {
  CKD_GrowOnlyPool pool(nullptr, 8192);
  std::vector<std::vector<Block>> blocks(kThreads);
  OnThreads([&](int id) {
    std::mt19937 rng(static_cast<unsigned>(id) + 50);
    for (int i = 0; i < 3000; ++i) {
      size_t size = 1 + rng() % 300;
      Block b{static_cast<unsigned char*>(pool.Alloc(size)), size, static_cast<unsigned char>(id * 31 + i)};
      ASSERT_NE(b.p, nullptr);
      memset(b.p, b.tag, size);
      blocks[id].push_back(b);
    }
  });
  // No block was handed out twice: every one still holds its own tag.
  for (const auto& list : blocks)
    for (const Block& b : list) {
      ASSERT_TRUE(Intact(b));
    }
  pool.FreeAll();
}

// A memory stream of 64-byte records that one thread rewrites whole while others read records
// whole: every record read must be uniform, since each call holds the stream's lock.
TEST(Concurrency, MemoryStreamSharedByReadersAndAWriter) {
  for (bool consecutive : {true, false}) {
    IKD_MemoryStream* stream = KD_CreateMemoryStream(consecutive, nullptr);
    ASSERT_NE(stream, nullptr);
    constexpr int kRecords = 256;
    uint8_t record[64];
    for (int i = 0; i < kRecords; ++i) {
      memset(record, i, sizeof record);
      ASSERT_TRUE(stream->WriteBlock(record, sizeof record));
    }
    std::atomic<int> torn{0};
    OnThreads([&](int id) {
      std::mt19937 rng(static_cast<unsigned>(id) + 7);
      uint8_t buf[64];
      for (int i = 0; i < 10000; ++i) {
        long long at = static_cast<long long>(rng() % kRecords) * 64;
        if (id == 0) {
          memset(buf, static_cast<int>(rng()), sizeof buf);
          // Grows the stream at times too: writes past the end move the buffer or add blocks.
          if (!stream->WriteBlock(buf, i % 50 == 0 ? stream->GetSize() : at, sizeof buf)) ++torn;
        } else if (stream->ReadBlock(buf, at, sizeof buf)) {
          for (uint8_t b : buf)
            if (b != buf[0]) {
              ++torn;
              break;
            }
        } else {
          ++torn;
        }
        if (id == 1 && i % 100 == 0) stream->Retain()->Release();
      }
    });
    EXPECT_EQ(torn, 0) << (consecutive ? "consecutive" : "chunked");
    stream->Release();
  }
}

// One cached reader shared by reader threads while another thread re-attaches its file (which
// drops every cached chunk): every read must still return the file's bytes.
TEST(Concurrency, CachedReaderSharedByReadersAndAWriter) {
  std::vector<uint8_t> content(200000);
  std::mt19937 fill(3);
  for (auto& b : content) b = static_cast<uint8_t>(fill());
  IKD_MemoryStream* file = KD_CreateMemoryStream(false, nullptr);
  ASSERT_TRUE(file->WriteBlock(content.data(), content.size()));
  std::vector<uint8_t> chunks(4 * 4096);
  auto* reader = new CKD_CachedFileRead;
  ASSERT_TRUE(reader->Init(4096, 4, chunks.data(), nullptr));
  ASSERT_TRUE(reader->AttachFile(file, false));
  std::atomic<int> wrong{0};
  OnThreads([&](int id) {
    std::mt19937 rng(static_cast<unsigned>(id) + 11);
    std::vector<uint8_t> buf(10000);
    for (int i = 0; i < 4000; ++i) {
      if (id == 0) {
        if (!reader->AttachFile(file, false)) ++wrong;
        if (i % 16 == 0) reader->PreCache(static_cast<long long>(rng() % content.size()), 3);
        continue;
      }
      size_t size = 1 + rng() % buf.size();
      long long at = static_cast<long long>(rng() % (content.size() - size));
      if (!reader->ReadBlock(buf.data(), at, size) || memcmp(buf.data(), content.data() + at, size) != 0) ++wrong;
      if (reader->ReadBlock(buf.data(), 100) > 100) ++wrong;  // sequential reads share one position
    }
  });
  EXPECT_EQ(wrong, 0);
  reader->Release();
  file->Release();
}

TEST(Concurrency, LocksAndAtomics) {
  // Reader-writer lock: writers keep two counters equal, readers must never see them differ.
  KD_RWLOCK rw;
  ASSERT_TRUE(KD_RWLock_Initialize(&rw));
  long long a = 0, b = 0;
  std::atomic<int> uneven{0};
  // Spin lock and recursive mutex around plain counters; atomics on their own.
  int32_t spin = 0;
  ASSERT_TRUE(KD_SpinLock_Initialize(&spin));
  KD_MUTEX mutex;
  ASSERT_TRUE(KD_Mutex_Initialize(&mutex));
  long long spin_count = 0, mutex_count = 0, atom64 = 0;
  int32_t atom32 = 0;
  constexpr int kRounds = 5000;
  OnThreads([&](int id) {
    for (int i = 0; i < kRounds; ++i) {
      if (id % 4 == 0) {
        KD_RWLock_WriteLock(&rw);
        ++a;
        ++b;
        KD_RWLock_WriteUnlock(&rw);
      } else if (i % 2 ? KD_RWLock_TryReadLock(&rw) : (KD_RWLock_ReadLock(&rw), true)) {
        if (a != b) ++uneven;
        KD_RWLock_ReadUnlock(&rw);
      }
      if (i % 3 == 0) {
        while (!KD_SpinLock_TryLock(&spin)) KD_Thread_Yield();
      } else {
        KD_SpinLock_Lock(&spin);
      }
      ++spin_count;
      KD_SpinLock_Unlock(&spin);
      KD_Mutex_Lock(&mutex);
      KD_Mutex_Lock(&mutex);  // recursive
      ++mutex_count;
      KD_Mutex_Unlock(&mutex);
      KD_Mutex_Unlock(&mutex);
      KD_Atom_Add32(&atom32, 3);
      KD_Atom_Subtract32(&atom32, 1);
      KD_Atom_Add64(&atom64, 1LL << 33);
      KD_Atom_Subtract64(&atom64, (1LL << 33) - 1);
    }
  });
  EXPECT_EQ(uneven, 0);
  EXPECT_EQ(a, 2LL * kRounds);  // threads 0 and 4 write
  EXPECT_EQ(spin_count, 1LL * kThreads * kRounds);
  EXPECT_EQ(mutex_count, 1LL * kThreads * kRounds);
  EXPECT_EQ(atom32, 2 * kThreads * kRounds);
  EXPECT_EQ(atom64, 1LL * kThreads * kRounds);
  EXPECT_FALSE(KD_SpinLock_IsLocked(&spin));
  KD_Mutex_Destroy(&mutex);
  KD_RWLock_Destroy(&rw);
}

// Exceptions thrown in several threads at once land in each thread's own frames.
void ThrowAt(int depth, int code) {
  if (depth == 0)
    KD_Throw(code);
  else
    ThrowAt(depth - 1, code);
}

void* Thrower(void* param) {
  const int id = static_cast<int>(reinterpret_cast<intptr_t>(param));
  volatile int mismatches = 0;  // read after the jumps
  for (int i = 0; i < 300; ++i) {
    const int code = 2 + (id * 300 + i) % 200;
    volatile int caught = 0, outer = 0;
    KD_TRY {
      KD_TRY { ThrowAt(i % 8, code); }
      KD_CATCH(code + 1) { caught = -1; }
      KD_END_TRY  // not caught here: passed to the enclosing try
    }
    KD_CATCH(code) { outer = KD_GetCatchCode(); }
    KD_END_TRY
    if (caught != 0 || outer != code) ++mismatches;
  }
  return reinterpret_cast<void*>(static_cast<intptr_t>(mismatches));
}

TEST(Concurrency, ExceptionsInSeveralThreadsAtOnce) {
  KD_Process_Initialize();
  static std::atomic<int> mismatches{0};
  mismatches = 0;
  auto body = [](void* param) -> void* {
    intptr_t bad = reinterpret_cast<intptr_t>(Thrower(param));
    mismatches += static_cast<int>(bad);
    return nullptr;
  };
  KD_HTHREAD* threads[kThreads];
  for (int i = 0; i < kThreads; ++i) threads[i] = KD_Thread_Create(0, 0, body, reinterpret_cast<void*>(static_cast<intptr_t>(i)));
  ASSERT_EQ(KD_Thread_WaitForMultipleThreads(threads, kThreads), 0);
  EXPECT_EQ(mismatches, 0);
  KD_Process_Finalize();
}

}  // namespace
