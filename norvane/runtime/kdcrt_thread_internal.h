// The platform layer under the thread and lock functions: every pthread call of the library is
// made here. A port to another platform replaces this layer only.
#ifndef NORVANE_RUNTIME_KDCRT_THREAD_INTERNAL_H_
#define NORVANE_RUNTIME_KDCRT_THREAD_INTERNAL_H_

#include <cstdint>
#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
#define NORVANE_HAS_SINGLE_THREADED 1
#endif

#include "norvane/runtime/sync.h"
#include "norvane/runtime/thread.h"

typedef void* (*KDCRT_THREAD_ENTRY)(void* arg);

KD_HTHREAD* KDCRT_GetThreadHandle();
// KDCRT_Thread_Create starts entry(arg) with default attributes; null on failure.
KD_HTHREAD* KDCRT_Thread_Create(KDCRT_THREAD_ENTRY entry, void* arg);
// KDCRT_Posix_ThreadProc is the entry of threads made by KD_Thread_Create.
void* KDCRT_Posix_ThreadProc(void* start);
[[noreturn]] void KDCRT_ExitThread();
void KDCRT_Thread_Yield();
int KDCRT_Thread_WaitForSingleThread(KD_HTHREAD* thread);
int KDCRT_Thread_WaitForMultipleThreads(KD_HTHREAD** threads, int count);
// The priority scale: KDCRT_PlatformPriority maps -2..2 to the platform table (else 50);
// KDCRT_ScalePriority maps a platform priority back, rounding (p - 50) / 25.
int KDCRT_PlatformPriority(int priority);
int KDCRT_ScalePriority(int platform_priority);
// KDCRT_Thread_GetPriority stores the platform priority; returns 0 or an error number.
int KDCRT_Thread_GetPriority(KD_HTHREAD* thread, int* platform_priority);
int KDCRT_Thread_SetPriority(KD_HTHREAD* thread, int platform_priority);

bool KDCRT_Mutex_Initialize(KD_MUTEX* mutex);
void KDCRT_Mutex_Destroy(KD_MUTEX* mutex);
bool KDCRT_Mutex_TryLock(KD_MUTEX* mutex);
void KDCRT_Mutex_Lock(KD_MUTEX* mutex);
void KDCRT_Mutex_Unlock(KD_MUTEX* mutex);

// KDCRT_IsSingleThreaded is true while the process has had no second thread; false once it has,
// or where the C library does not say. Only the calling thread can change the answer (by starting
// a thread), so a lock that serialises threads may be skipped while it is true, for work during
// which nothing can start a thread.
inline bool KDCRT_IsSingleThreaded() {
#ifdef NORVANE_HAS_SINGLE_THREADED
  return __libc_single_threaded != 0;
#else
  return false;
#endif
}

bool KDCRT_SpinLock_Initialize(int32_t* lock);
void KDCRT_SpinLock_Destroy(int32_t* lock);
bool KDCRT_SpinLock_TryLock(int32_t* lock);
void KDCRT_SpinLock_Lock(int32_t* lock);
void KDCRT_SpinLock_Unlock(int32_t* lock);
bool KDCRT_SpinLock_IsLocked(int32_t* lock);

bool KDCRT_RWLock_Initialize(KD_RWLOCK* lock);
void KDCRT_RWLock_Destroy(KD_RWLOCK* lock);
void KDCRT_RWLock_ReadLock(KD_RWLOCK* lock);
void KDCRT_RWLock_WriteLock(KD_RWLOCK* lock);
void KDCRT_RWLock_Unlock(KD_RWLOCK* lock);
bool KDCRT_RWLock_TryReadLock(KD_RWLOCK* lock);
bool KDCRT_RWLock_TryWriteLock(KD_RWLOCK* lock);

// KDCRT_MutexLock holds a mutex for the lifetime of a scope.
class KDCRT_MutexLock {
 public:
  explicit KDCRT_MutexLock(KD_MUTEX* mutex) : m_pMutex(mutex) { KDCRT_Mutex_Lock(mutex); }
  ~KDCRT_MutexLock() { KDCRT_Mutex_Unlock(m_pMutex); }
  KDCRT_MutexLock(const KDCRT_MutexLock&) = delete;
  KDCRT_MutexLock& operator=(const KDCRT_MutexLock&) = delete;

 private:
  KD_MUTEX* m_pMutex;
};

// KDCRT_AddReference and KDCRT_DropReference count a reference of a shared object up or down under
// mutex. KDCRT_DropReference says whether it dropped the last: the caller then destroys the object,
// with the lock no longer held.
inline void KDCRT_AddReference(KD_MUTEX* mutex, uint32_t& count) {
  KDCRT_MutexLock lock(mutex);
  ++count;
}

inline bool KDCRT_DropReference(KD_MUTEX* mutex, uint32_t& count) {
  KDCRT_MutexLock lock(mutex);
  return count-- == 1;
}

#endif  // NORVANE_RUNTIME_KDCRT_THREAD_INTERNAL_H_
