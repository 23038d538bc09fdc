// Locks and atomic counters: recursive mutexes, spin locks, reader-writer locks, 32- and 64-bit
// atomic addition, and CKD_LockObject.
//
// The lock objects are held by the caller; these functions only act on them. Every function
// checks its pointer: with null, actions do nothing and the predicates return false.
#ifndef NORVANE_RUNTIME_SYNC_H_
#define NORVANE_RUNTIME_SYNC_H_

#include <pthread.h>

#include <cstdint>

#include "norvane/config.h"
#include "norvane/memory/object.h"

// The platform's mutex and reader-writer lock.
typedef pthread_mutex_t KD_MUTEX;
typedef pthread_rwlock_t KD_RWLOCK;

// Mutexes are always recursive: the owning thread may lock again and must unlock as often.
// KD_Mutex_Initialize returns true on success.
NORVANE_API bool KD_Mutex_Initialize(KD_MUTEX* mutex);
NORVANE_API void KD_Mutex_Destroy(KD_MUTEX* mutex);
NORVANE_API void KD_Mutex_Lock(KD_MUTEX* mutex);
NORVANE_API void KD_Mutex_Unlock(KD_MUTEX* mutex);
// KD_Mutex_TryLock returns true when the mutex was acquired.
NORVANE_API bool KD_Mutex_TryLock(KD_MUTEX* mutex);

// Spin locks are plain 32-bit integers, 0 when free and non-zero when held. Initialize does not
// write the lock: the caller sets it to 0 first. Destroy does nothing.
NORVANE_API bool KD_SpinLock_Initialize(int32_t* lock);
NORVANE_API void KD_SpinLock_Destroy(int32_t* lock);
NORVANE_API void KD_SpinLock_Lock(int32_t* lock);
NORVANE_API void KD_SpinLock_Unlock(int32_t* lock);
// KD_SpinLock_TryLock returns true when the lock was acquired.
NORVANE_API bool KD_SpinLock_TryLock(int32_t* lock);
// KD_SpinLock_IsLocked reads the lock without a barrier: a hint, not a synchronisation.
NORVANE_API bool KD_SpinLock_IsLocked(int32_t* lock);

// Reader-writer locks. ReadUnlock and WriteUnlock are the same operation.
NORVANE_API bool KD_RWLock_Initialize(KD_RWLOCK* lock);
NORVANE_API void KD_RWLock_Destroy(KD_RWLOCK* lock);
NORVANE_API void KD_RWLock_ReadLock(KD_RWLOCK* lock);
NORVANE_API void KD_RWLock_WriteLock(KD_RWLOCK* lock);
NORVANE_API void KD_RWLock_ReadUnlock(KD_RWLOCK* lock);
NORVANE_API void KD_RWLock_WriteUnlock(KD_RWLOCK* lock);
NORVANE_API bool KD_RWLock_TryReadLock(KD_RWLOCK* lock);
NORVANE_API bool KD_RWLock_TryWriteLock(KD_RWLOCK* lock);

// Atomic read-modify-write on naturally aligned integers; each returns the new value. A null
// pointer returns 0.
NORVANE_API int32_t KD_Atom_Add32(int32_t* value, int32_t delta);
NORVANE_API int32_t KD_Atom_Subtract32(int32_t* value, int32_t delta);
NORVANE_API long long KD_Atom_Add64(long long* value, long long delta);
NORVANE_API long long KD_Atom_Subtract64(long long* value, long long delta);

// CKD_LockObject is a recursive mutex owned by an object: made with the object, destroyed with
// it. Its only field is the mutex.
class NORVANE_API CKD_LockObject : public CKD_Object {
 public:
  CKD_LockObject() { KD_Mutex_Initialize(&m_Mutex); }
  ~CKD_LockObject() { KD_Mutex_Destroy(&m_Mutex); }
  CKD_LockObject(const CKD_LockObject&) = delete;
  CKD_LockObject& operator=(const CKD_LockObject&) = delete;

  void Lock() { KD_Mutex_Lock(&m_Mutex); }
  void Unlock() { KD_Mutex_Unlock(&m_Mutex); }
  bool TryLock() { return KD_Mutex_TryLock(&m_Mutex); }

  KD_MUTEX m_Mutex;
};

static_assert(sizeof(CKD_LockObject) == sizeof(KD_MUTEX), "the mutex is the lock object's only field");

#endif  // NORVANE_RUNTIME_SYNC_H_
