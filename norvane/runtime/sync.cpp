#include "norvane/runtime/sync.h"

#include "norvane/runtime/kdcrt_thread_internal.h"

bool KD_Mutex_Initialize(KD_MUTEX* mutex) { return mutex && KDCRT_Mutex_Initialize(mutex); }
void KD_Mutex_Destroy(KD_MUTEX* mutex) {
  if (mutex) KDCRT_Mutex_Destroy(mutex);
}
void KD_Mutex_Lock(KD_MUTEX* mutex) {
  if (mutex) KDCRT_Mutex_Lock(mutex);
}
void KD_Mutex_Unlock(KD_MUTEX* mutex) {
  if (mutex) KDCRT_Mutex_Unlock(mutex);
}
bool KD_Mutex_TryLock(KD_MUTEX* mutex) { return mutex && KDCRT_Mutex_TryLock(mutex); }

bool KD_SpinLock_Initialize(int32_t* lock) { return lock && KDCRT_SpinLock_Initialize(lock); }
void KD_SpinLock_Destroy(int32_t* lock) {
  if (lock) KDCRT_SpinLock_Destroy(lock);
}
void KD_SpinLock_Lock(int32_t* lock) {
  if (lock) KDCRT_SpinLock_Lock(lock);
}
void KD_SpinLock_Unlock(int32_t* lock) {
  if (lock) KDCRT_SpinLock_Unlock(lock);
}
bool KD_SpinLock_TryLock(int32_t* lock) { return lock && KDCRT_SpinLock_TryLock(lock); }
bool KD_SpinLock_IsLocked(int32_t* lock) { return lock && KDCRT_SpinLock_IsLocked(lock); }

bool KD_RWLock_Initialize(KD_RWLOCK* lock) { return lock && KDCRT_RWLock_Initialize(lock); }
void KD_RWLock_Destroy(KD_RWLOCK* lock) {
  if (lock) KDCRT_RWLock_Destroy(lock);
}
void KD_RWLock_ReadLock(KD_RWLOCK* lock) {
  if (lock) KDCRT_RWLock_ReadLock(lock);
}
void KD_RWLock_WriteLock(KD_RWLOCK* lock) {
  if (lock) KDCRT_RWLock_WriteLock(lock);
}
void KD_RWLock_ReadUnlock(KD_RWLOCK* lock) {
  if (lock) KDCRT_RWLock_Unlock(lock);
}
void KD_RWLock_WriteUnlock(KD_RWLOCK* lock) {
  if (lock) KDCRT_RWLock_Unlock(lock);
}
bool KD_RWLock_TryReadLock(KD_RWLOCK* lock) { return lock && KDCRT_RWLock_TryReadLock(lock); }
bool KD_RWLock_TryWriteLock(KD_RWLOCK* lock) { return lock && KDCRT_RWLock_TryWriteLock(lock); }

int32_t KD_Atom_Add32(int32_t* value, int32_t delta) {
  return value ? __atomic_add_fetch(value, delta, __ATOMIC_SEQ_CST) : 0;
}
int32_t KD_Atom_Subtract32(int32_t* value, int32_t delta) {
  return value ? __atomic_sub_fetch(value, delta, __ATOMIC_SEQ_CST) : 0;
}
long long KD_Atom_Add64(long long* value, long long delta) {
  return value ? __atomic_add_fetch(value, delta, __ATOMIC_SEQ_CST) : 0;
}
long long KD_Atom_Subtract64(long long* value, long long delta) {
  return value ? __atomic_sub_fetch(value, delta, __ATOMIC_SEQ_CST) : 0;
}
