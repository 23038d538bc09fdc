// Process and thread contexts: per-process and per-thread state kept without thread-local
// storage. KD_Process_Initialize hangs a process context off the default memory manager; it maps
// thread handles to thread contexts. A thread context holds the thread's private data, its
// exception frames and its last error.
//
// Only the initialising thread and threads started with KD_Thread_Create have contexts. Without
// one (or before KD_Process_Initialize) the per-thread calls quietly do nothing: last errors
// read 0, private data is null, the exception context is null. Every lookup reads the default
// manager afresh, so installing another default manager also switches the visible context.
//
// Private data lets client modules park pointers under keys of their own (never null). Data set
// with a callback is released through it when replaced, cleared or when its context dies; an
// object set with SetPrivateObj is deleted through its virtual destructor instead.
//
// Concurrency: the thread map is locked on every lookup. Private-data lists are not: a thread's
// list is touched by that thread only, the process list by one thread at a time.
#ifndef NORVANE_RUNTIME_CONTEXT_H_
#define NORVANE_RUNTIME_CONTEXT_H_

#include "norvane/config.h"
#include "norvane/containers/array.h"
#include "norvane/containers/map_ptr_to_ptr.h"
#include "norvane/memory/object.h"
#include "norvane/runtime/exception.h"
#include "norvane/runtime/sync.h"
#include "norvane/runtime/thread.h"

// KD_CALLBACK_FREEDATA releases a private-data value when it is replaced, cleared or its context
// dies; it is called with the value (never null) and its result is ignored.
typedef void (*KD_CALLBACK_FREEDATA)(void* data);

// A base for objects parked with SetPrivateObj: they are deleted through this destructor.
class NORVANE_API CKD_DestructObject : public CKD_Object {
 public:
  virtual ~CKD_DestructObject();
};

// One private-data entry.
struct NORVANE_API KD_PRIVATEDATA {
  void* m_pKey;
  void* m_pData;
  KD_CALLBACK_FREEDATA m_pCallback;
  bool m_bSelfDestruct;  // m_pData is a CKD_DestructObject

  // FreeData releases non-null data: deletes a self-destructing object, else calls the callback.
  void FreeData();
};
static_assert(sizeof(KD_PRIVATEDATA) == 32 && offsetof(KD_PRIVATEDATA, m_bSelfDestruct) == 24,
              "private data entry layout");

// The private-data list: entries in insertion order, keys unique.
class NORVANE_API CKD_PrivateData : public CKD_Object {
 public:
  CKD_PrivateData() = default;
  // Releases every entry's data, as ClearAll.
  ~CKD_PrivateData();
  CKD_PrivateData(const CKD_PrivateData&) = delete;
  CKD_PrivateData& operator=(const CKD_PrivateData&) = delete;

  // SetPrivateData parks data under key. An existing entry of that key has its old data
  // released first and takes the new data in place. A null key is ignored, and so is the call
  // when the list cannot grow.
  void SetPrivateData(void* key, void* data, KD_CALLBACK_FREEDATA callback);
  // SetPrivateObj parks an object that is deleted when released.
  void SetPrivateObj(void* key, CKD_DestructObject* object);
  // GetPrivateData returns key's data, or null.
  void* GetPrivateData(void* key);
  // RemovePrivateData drops key's entry without releasing its data; false for an unknown key.
  bool RemovePrivateData(void* key);
  // ClearAll releases every entry's data in insertion order and empties the list.
  void ClearAll();
  int GetCount() const { return m_DataList.GetSize(); }

 protected:
  void AddData(void* key, void* data, KD_CALLBACK_FREEDATA callback, bool self_destruct);
  CKD_ArrayTemplate<KD_PRIVATEDATA> m_DataList;
};

// CKD_ThreadContext is one thread's state: its private data, its try frames and its last error
// (0 when made). The process context creates, registers and deletes them.
class NORVANE_API CKD_ThreadContext : public CKD_Object {
 public:
  CKD_ThreadContext() : m_nLastError(0) {}
  // Initialize sets up the exception context; false when its frames cannot be had.
  bool Initialize();
  // Finalize clears the private data, then releases the exception context.
  void Finalize();

  CKD_PrivateData m_PrivateData;
  CKD_ExceptionContext m_ExceptionContext;
  unsigned int m_nLastError;
};

// CKD_ProcessContext is the process's state, kept in the default manager's record: the process
// private data, a recursive mutex and the map from thread handle to CKD_ThreadContext it guards,
// and the client's thread handler pointer.
class NORVANE_API CKD_ProcessContext : public CKD_Object {
 public:
  CKD_ProcessContext();
  ~CKD_ProcessContext();
  CKD_ProcessContext(const CKD_ProcessContext&) = delete;
  CKD_ProcessContext& operator=(const CKD_ProcessContext&) = delete;

  // Initialize gives the calling thread a context and enters it in the map.
  void Initialize();
  // Finalize clears the process private data, then finalises and deletes every thread context
  // and empties the map.
  void Finalize();
  // GetThreadContext returns thread's context, or null when it has none.
  CKD_ThreadContext* GetThreadContext(KD_HTHREAD* thread);
  // SetThreadContext enters context under thread, replacing any entry of that thread.
  void SetThreadContext(KD_HTHREAD* thread, CKD_ThreadContext* context);
  // RemoveThreadContext finalises and deletes thread's context and removes its entry.
  void RemoveThreadContext(KD_HTHREAD* thread);

  CKD_PrivateData m_PrivateData;
  KD_MUTEX m_Mutex;
  CKD_MapPtrToPtr m_ThreadMap;
  void* m_pThreadHandler;
};

// Process calls.

// KD_Process_Initialize creates the process context in the default manager and gives the calling
// thread a context. It does nothing without a default manager or when the manager already has a
// process context (a second call keeps the first context).
NORVANE_API void KD_Process_Initialize();
// KD_Process_Finalize releases the process private data, then every thread context with its
// private data and frames, and deletes the process context. Nothing without one.
NORVANE_API void KD_Process_Finalize();
// KD_Process_GetID returns the system's process id.
NORVANE_API int KD_Process_GetID();
// KD_Process_GetContext returns the default manager's process context, or null.
NORVANE_API CKD_ProcessContext* KD_Process_GetContext();
// KD_Process_GetPrivateData, KD_Process_SetPrivateData and KD_Process_RemovePrivateData act on
// the process private data as the CKD_PrivateData members of those names do. Without a process
// context the list reads null, data reads null, setting does nothing and removing gives false.
NORVANE_API CKD_PrivateData* KD_Process_GetPrivateData();
NORVANE_API void* KD_Process_GetPrivateData(void* key);
NORVANE_API void KD_Process_SetPrivateData(void* key, void* data, KD_CALLBACK_FREEDATA callback);
NORVANE_API bool KD_Process_RemovePrivateData(void* key);

// Thread calls; each acts on the calling thread's context unless given a handle.

// KD_Thread_GetContext returns the calling thread's context, or that of the thread with the
// given handle; null when it has none or there is no process context.
NORVANE_API CKD_ThreadContext* KD_Thread_GetContext();
NORVANE_API CKD_ThreadContext* KD_Thread_GetContext(KD_HTHREAD* thread);
// KD_Thread_GetLastError and KD_Thread_SetLastError read and write the calling thread's last
// error, a slot for client code that the library never sets. Without a context it reads 0 and
// a code set is dropped.
NORVANE_API int KD_Thread_GetLastError();
NORVANE_API void KD_Thread_SetLastError(int code);
// KD_Thread_GetPrivateData, KD_Thread_SetPrivateData and KD_Thread_RemovePrivateData act on the
// calling thread's private data as the CKD_PrivateData members of those names do. Without a
// context the list reads null, data reads null, setting does nothing and removing gives false.
NORVANE_API CKD_PrivateData* KD_Thread_GetPrivateData();
NORVANE_API void* KD_Thread_GetPrivateData(void* key);
NORVANE_API void KD_Thread_SetPrivateData(void* key, void* data, KD_CALLBACK_FREEDATA callback);
NORVANE_API bool KD_Thread_RemovePrivateData(void* key);
// KD_Thread_GetExceptionContext returns the calling thread's exception context, or null.
NORVANE_API CKD_ExceptionContext* KD_Thread_GetExceptionContext();
// KD_Thread_GetHandler and KD_Thread_SetHandler read and write the one pointer the process
// context keeps for client use; without a process context it reads null and cannot be set.
NORVANE_API void* KD_Thread_GetHandler();
NORVANE_API void KD_Thread_SetHandler(void* handler);

#endif  // NORVANE_RUNTIME_CONTEXT_H_
