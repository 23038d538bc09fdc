#include <gtest/gtest.h>

#include <cerrno>
#include <thread>
#include <vector>

#include "norvane/runtime/kdcrt_thread_internal.h"
#include "norvane/runtime/sync.h"
#include "norvane/runtime/thread.h"

namespace {

// Whether another thread gets the lock with try_lock; if it does, it releases it with unlock.
template <class Try, class Unlock>
bool OtherThreadGets(Try try_lock, Unlock unlock) {
  bool got = false;
  std::thread([&] {
    if ((got = try_lock())) unlock();
  }).join();
  return got;
}

// Runs body on four threads at once and waits for them.
template <class F>
void OnFourThreads(F body) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) threads.emplace_back(body);
  for (auto& t : threads) t.join();
}

TEST(Sync, MutexesAreRecursive) {
  KD_MUTEX m;
  ASSERT_TRUE(KD_Mutex_Initialize(&m));
  auto try_lock = [&] { return KD_Mutex_TryLock(&m); };
  auto unlock = [&] { KD_Mutex_Unlock(&m); };
  KD_Mutex_Lock(&m);
  EXPECT_TRUE(KD_Mutex_TryLock(&m));  // the owner may lock again, and must unlock as often
  KD_Mutex_Unlock(&m);
  EXPECT_FALSE(OtherThreadGets(try_lock, unlock));
  KD_Mutex_Unlock(&m);
  EXPECT_TRUE(OtherThreadGets(try_lock, unlock));
  KD_Mutex_Destroy(&m);
  EXPECT_FALSE(KD_Mutex_Initialize(nullptr));
  EXPECT_FALSE(KD_Mutex_TryLock(nullptr));
  KD_Mutex_Lock(nullptr);

  CKD_LockObject lock;
  lock.Lock();
  lock.Lock();
  lock.Unlock();
  lock.Unlock();
  EXPECT_TRUE(OtherThreadGets([&] { return lock.TryLock(); }, [&] { lock.Unlock(); }));
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
  OnFourThreads([&] {
    for (int i = 0; i < 20000; ++i) {
      KD_SpinLock_Lock(&lock);
      ++counter;
      KD_SpinLock_Unlock(&lock);
    }
  });
  EXPECT_EQ(counter, 80000);
}

TEST(Sync, ReaderWriterLocks) {
  KD_RWLOCK rw;
  ASSERT_TRUE(KD_RWLock_Initialize(&rw));
  auto try_read = [&] { return KD_RWLock_TryReadLock(&rw); };
  auto try_write = [&] { return KD_RWLock_TryWriteLock(&rw); };
  auto unlock = [&] { KD_RWLock_ReadUnlock(&rw); };  // the same unlock as for writing
  KD_RWLock_ReadLock(&rw);
  EXPECT_TRUE(OtherThreadGets(try_read, unlock));
  EXPECT_FALSE(OtherThreadGets(try_write, unlock));
  KD_RWLock_ReadUnlock(&rw);
  KD_RWLock_WriteLock(&rw);
  EXPECT_FALSE(OtherThreadGets(try_read, unlock));
  KD_RWLock_WriteUnlock(&rw);
  EXPECT_TRUE(OtherThreadGets(try_write, [&] { KD_RWLock_WriteUnlock(&rw); }));
  KD_RWLock_Destroy(&rw);
}

TEST(Sync, AtomicsReturnTheNewValue) {
  int32_t v = 1;
  EXPECT_EQ(KD_Atom_Subtract32(&v, 3), -2);  // the new value, also stored
  EXPECT_EQ(KD_Atom_Add32(&v, 10), 8);  // from the stored -2
  int32_t top = INT32_MAX;
  EXPECT_EQ(KD_Atom_Add32(&top, 1), INT32_MIN);  // wraps
  long long w = 1LL << 40;
  EXPECT_EQ(KD_Atom_Add64(&w, 5), (1LL << 40) + 5);
  EXPECT_EQ(KD_Atom_Subtract64(&w, 1LL << 41), 5 - (1LL << 40));
  EXPECT_EQ(KD_Atom_Add32(nullptr, 1), 0);

  int32_t shared = 0;
  OnFourThreads([&] {
    for (int i = 0; i < 50000; ++i) KD_Atom_Add32(&shared, 2), KD_Atom_Subtract32(&shared, 1);
  });
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
}

}  // namespace
