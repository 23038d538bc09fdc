#include <pthread.h>
#include <sched.h>

#include "norvane/runtime/kdcrt_thread_internal.h"
#include "norvane/runtime/sys_helpers.h"

namespace {

inline pthread_t ToPlatform(KD_HTHREAD* thread) { return reinterpret_cast<pthread_t>(thread); }
inline KD_HTHREAD* FromPlatform(pthread_t thread) { return reinterpret_cast<KD_HTHREAD*>(thread); }

// The scheduling policy set with a priority: normal time-sharing.
constexpr int kPolicy = SCHED_OTHER;

inline void CpuRelax() {
#if defined(__x86_64__)
  __builtin_ia32_pause();
#elif defined(__aarch64__)
  __asm__ __volatile__("yield");
#endif
}

}  // namespace

KD_HTHREAD* KDCRT_GetThreadHandle() { return FromPlatform(pthread_self()); }

KD_HTHREAD* KDCRT_Thread_Create(KDCRT_THREAD_ENTRY entry, void* arg) {
  pthread_t thread;
  if (pthread_create(&thread, nullptr, entry, arg) != 0) return nullptr;
  return FromPlatform(thread);
}

void KDCRT_ExitThread() { pthread_exit(nullptr); }

void KDCRT_Thread_Yield() { sched_yield(); }

int KDCRT_Thread_WaitForSingleThread(KD_HTHREAD* thread) { return pthread_join(ToPlatform(thread), nullptr); }

int KDCRT_Thread_WaitForMultipleThreads(KD_HTHREAD** threads, int count) {
  for (int i = 0; i < count; ++i) {
    if (int err = pthread_join(ToPlatform(threads[i]), nullptr)) return err;
  }
  return 0;
}

int KDCRT_PlatformPriority(int priority) {
  static const int kTable[5] = {1, 25, 50, 75, 99};
  return (priority >= -2 && priority <= 2) ? kTable[priority + 2] : 50;
}

int KDCRT_ScalePriority(int platform_priority) {
  return KDSYS_round((static_cast<float>(platform_priority) - 50.0f) / 25.0f);
}

int KDCRT_Thread_GetPriority(KD_HTHREAD* thread, int* platform_priority) {
  int policy;
  sched_param param;
  int err = pthread_getschedparam(ToPlatform(thread), &policy, &param);
  if (err == 0) *platform_priority = param.sched_priority;
  return err;
}

int KDCRT_Thread_SetPriority(KD_HTHREAD* thread, int platform_priority) {
  sched_param param = {};
  param.sched_priority = platform_priority;
  return pthread_setschedparam(ToPlatform(thread), kPolicy, &param);
}

bool KDCRT_Mutex_Initialize(KD_MUTEX* mutex) {
  pthread_mutexattr_t attr;
  if (pthread_mutexattr_init(&attr) != 0) return false;
  pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
  bool ok = pthread_mutex_init(mutex, &attr) == 0;
  pthread_mutexattr_destroy(&attr);
  return ok;
}

void KDCRT_Mutex_Destroy(KD_MUTEX* mutex) { pthread_mutex_destroy(mutex); }
bool KDCRT_Mutex_TryLock(KD_MUTEX* mutex) { return pthread_mutex_trylock(mutex) == 0; }
void KDCRT_Mutex_Lock(KD_MUTEX* mutex) { pthread_mutex_lock(mutex); }
void KDCRT_Mutex_Unlock(KD_MUTEX* mutex) { pthread_mutex_unlock(mutex); }

// Spin locks are our own: the contract is an int that is 0 when free, which not every platform's
// spin lock honours (glibc's x86-64 spin lock is free at 1).
bool KDCRT_SpinLock_Initialize(int32_t*) { return true; }
void KDCRT_SpinLock_Destroy(int32_t*) {}

bool KDCRT_SpinLock_TryLock(int32_t* lock) {
  int32_t expected = 0;
  return __atomic_compare_exchange_n(lock, &expected, 1, false, __ATOMIC_ACQUIRE, __ATOMIC_RELAXED);
}

void KDCRT_SpinLock_Lock(int32_t* lock) {
  unsigned spins = 0;
  while (!KDCRT_SpinLock_TryLock(lock)) {
    // Wait on a plain read, and let the holder run when the wait gets long.
    while (__atomic_load_n(lock, __ATOMIC_RELAXED) != 0) {
      if (++spins % 64 == 0)
        sched_yield();
      else
        CpuRelax();
    }
  }
}

void KDCRT_SpinLock_Unlock(int32_t* lock) { __atomic_store_n(lock, 0, __ATOMIC_RELEASE); }
bool KDCRT_SpinLock_IsLocked(int32_t* lock) { return __atomic_load_n(lock, __ATOMIC_RELAXED) != 0; }

bool KDCRT_RWLock_Initialize(KD_RWLOCK* lock) { return pthread_rwlock_init(lock, nullptr) == 0; }
void KDCRT_RWLock_Destroy(KD_RWLOCK* lock) { pthread_rwlock_destroy(lock); }
void KDCRT_RWLock_ReadLock(KD_RWLOCK* lock) { pthread_rwlock_rdlock(lock); }
void KDCRT_RWLock_WriteLock(KD_RWLOCK* lock) { pthread_rwlock_wrlock(lock); }
void KDCRT_RWLock_Unlock(KD_RWLOCK* lock) { pthread_rwlock_unlock(lock); }
bool KDCRT_RWLock_TryReadLock(KD_RWLOCK* lock) { return pthread_rwlock_tryrdlock(lock) == 0; }
bool KDCRT_RWLock_TryWriteLock(KD_RWLOCK* lock) { return pthread_rwlock_trywrlock(lock) == 0; }
