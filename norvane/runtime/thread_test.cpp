#include <gtest/gtest.h>

#include <cerrno>
#include <thread>
#include <vector>

#include "norvane/runtime/kdcrt_thread_internal.h"
#include "norvane/runtime/sync.h"
#include "norvane/runtime/thread.h"

namespace {

// Runs f on another thread and returns its result.
template <class F>
bool OnOtherThread(F f) {
  bool result = false;
  std::thread t([&] { result = f(); });
  t.join();
  return result;
}

TEST(Sync, MutexesAreRecursive) {
  KD_MUTEX m;
  ASSERT_TRUE(KD_Mutex_Initialize(&m));
  KD_Mutex_Lock(&m);
  EXPECT_TRUE(KD_Mutex_TryLock(&m));  // the owner may lock again
  KD_Mutex_Unlock(&m);
  EXPECT_FALSE(OnOtherThread([&] { return KD_Mutex_TryLock(&m); }));
  KD_Mutex_Unlock(&m);
  EXPECT_TRUE(OnOtherThread([&] {
    bool got = KD_Mutex_TryLock(&m);
    if (got) KD_Mutex_Unlock(&m);
    return got;
  }));
  KD_Mutex_Destroy(&m);
  EXPECT_FALSE(KD_Mutex_Initialize(nullptr));
  EXPECT_FALSE(KD_Mutex_TryLock(nullptr));
  KD_Mutex_Lock(nullptr);

  CKD_LockObject lock;
  lock.Lock();
  lock.Lock();
  lock.Unlock();
  lock.Unlock();
  EXPECT_TRUE(OnOtherThread([&] {
    bool got = lock.TryLock();
    if (got) lock.Unlock();
    return got;
  }));
}

TEST(Sync, SpinLocksAreIntegersZeroWhenFree) {
  int32_t lock = 5;
  EXPECT_TRUE(KD_SpinLock_Initialize(&lock));
  EXPECT_EQ(lock, 5);  // initialising does not write the lock
  lock = 0;
  EXPECT_FALSE(KD_SpinLock_IsLocked(&lock));
  EXPECT_TRUE(KD_SpinLock_TryLock(&lock));
  EXPECT_TRUE(KD_SpinLock_IsLocked(&lock));
  EXPECT_FALSE(KD_SpinLock_TryLock(&lock));
  KD_SpinLock_Unlock(&lock);
  EXPECT_EQ(lock, 0);
  EXPECT_FALSE(KD_SpinLock_Initialize(nullptr));
  EXPECT_FALSE(KD_SpinLock_IsLocked(nullptr));

  // Contention: the lock keeps a plain counter exact.
  long counter = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 20000; ++i) {
        KD_SpinLock_Lock(&lock);
        ++counter;
        KD_SpinLock_Unlock(&lock);
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(counter, 80000);
}

TEST(Sync, ReaderWriterLocks) {
  KD_RWLOCK rw;
  ASSERT_TRUE(KD_RWLock_Initialize(&rw));
  KD_RWLock_ReadLock(&rw);
  EXPECT_TRUE(OnOtherThread([&] {
    bool got = KD_RWLock_TryReadLock(&rw);
    if (got) KD_RWLock_ReadUnlock(&rw);
    return got;
  }));
  EXPECT_FALSE(OnOtherThread([&] { return KD_RWLock_TryWriteLock(&rw); }));
  KD_RWLock_ReadUnlock(&rw);
  KD_RWLock_WriteLock(&rw);
  EXPECT_FALSE(OnOtherThread([&] { return KD_RWLock_TryReadLock(&rw); }));
  KD_RWLock_WriteUnlock(&rw);
  KD_RWLock_Destroy(&rw);
}

TEST(Sync, AtomicsReturnTheNewValue) {
  int32_t v = 1;
  EXPECT_EQ(KD_Atom_Subtract32(&v, 3), -2);
  EXPECT_EQ(v, -2);
  EXPECT_EQ(KD_Atom_Add32(&v, 10), 8);
  int32_t top = INT32_MAX;
  EXPECT_EQ(KD_Atom_Add32(&top, 1), INT32_MIN);  // wraps
  long long w = 1LL << 40;
  EXPECT_EQ(KD_Atom_Add64(&w, 5), (1LL << 40) + 5);
  EXPECT_EQ(KD_Atom_Subtract64(&w, 1LL << 41), 5 - (1LL << 40));
  EXPECT_EQ(KD_Atom_Add32(nullptr, 1), 0);

  int32_t shared = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 50000; ++i) KD_Atom_Add32(&shared, 2), KD_Atom_Subtract32(&shared, 1);
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(shared, 200000);
}

TEST(Threads, PriorityScale) {
  const int platform[] = {1, 25, 50, 75, 99};
  for (int p = -2; p <= 2; ++p) {
    EXPECT_EQ(KDCRT_PlatformPriority(p), platform[p + 2]);
    EXPECT_EQ(KDCRT_ScalePriority(platform[p + 2]), p);
  }
  EXPECT_EQ(KDCRT_PlatformPriority(7), 50);
  EXPECT_EQ(KDCRT_PlatformPriority(-3), 50);
  // The calling thread runs under the normal policy, whose platform priority is 0.
  int actual;
  ASSERT_EQ(KDCRT_Thread_GetPriority(KD_Thread_GetHandle(), &actual), 0);
  EXPECT_EQ(KD_Thread_GetPriority(KD_Thread_GetHandle()), KDCRT_ScalePriority(actual));
  int err = KD_Thread_SetPriority(KD_Thread_GetHandle(), 7);
  if (err == 0) {
    EXPECT_EQ(KD_Thread_GetPriority(KD_Thread_GetHandle()), 0);  // where the policy has priorities
  } else {
    EXPECT_EQ(err, EINVAL);  // Linux: the normal policy has no static priority
  }
}

TEST(Threads, WaitingStopsAtTheFirstFailingJoin) {
  EXPECT_EQ(KD_Thread_WaitForMultipleThreads(nullptr, 0), 0);
  // Threads without a process context end at once: fine for joining.
  auto nothing = [](void*) -> void* { return nullptr; };
  KD_HTHREAD* first = KD_Thread_Create(0, 0, nothing, nullptr);
  KD_HTHREAD* last = KD_Thread_Create(0, 1 << 20, nothing, nullptr);
  ASSERT_NE(first, nullptr);
  ASSERT_NE(last, nullptr);
  // Joining oneself fails: the last thread must be left unjoined.
  KD_HTHREAD* handles[] = {first, KD_Thread_GetHandle(), last};
  EXPECT_EQ(KD_Thread_WaitForMultipleThreads(handles, 3), EDEADLK);
  EXPECT_EQ(KD_Thread_WaitForSingleThread(last), 0);
  KD_Thread_Yield();
}

}  // namespace
