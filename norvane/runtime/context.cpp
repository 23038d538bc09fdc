#include "norvane/runtime/context.h"

#include "norvane/containers/map_internal.h"
#include "norvane/memory/memory_mgr.h"
#include "norvane/runtime/kdcrt_system_internal.h"
#include "norvane/runtime/kdcrt_thread_internal.h"

CKD_DestructObject::~CKD_DestructObject() = default;

void KD_PRIVATEDATA::FreeData() {
  if (!m_pData) return;
  if (m_bSelfDestruct)
    delete static_cast<CKD_DestructObject*>(m_pData);
  else if (m_pCallback)
    m_pCallback(m_pData);
}

// Private data.

CKD_PrivateData::~CKD_PrivateData() { ClearAll(); }

void CKD_PrivateData::AddData(void* key, void* data, KD_CALLBACK_FREEDATA callback, bool self_destruct) {
  if (!key) return;
  for (int i = 0; i < m_DataList.GetSize(); ++i) {
    KD_PRIVATEDATA& entry = m_DataList[i];
    if (entry.m_pKey == key) {
      entry.FreeData();
      // Re-index: releasing the old data may have changed the list.
      KD_PRIVATEDATA* slot = static_cast<KD_PRIVATEDATA*>(m_DataList.GetDataPtr(i));
      if (slot && slot->m_pKey == key) {
        slot->m_pData = data;
        slot->m_pCallback = callback;
        slot->m_bSelfDestruct = self_destruct;
      }
      return;
    }
  }
  m_DataList.Add(KD_PRIVATEDATA{key, data, callback, self_destruct});
}

void CKD_PrivateData::SetPrivateData(void* key, void* data, KD_CALLBACK_FREEDATA callback) {
  AddData(key, data, callback, false);
}

void CKD_PrivateData::SetPrivateObj(void* key, CKD_DestructObject* object) { AddData(key, object, nullptr, true); }

void* CKD_PrivateData::GetPrivateData(void* key) {
  if (!key) return nullptr;
  for (int i = 0; i < m_DataList.GetSize(); ++i) {
    if (m_DataList[i].m_pKey == key) return m_DataList[i].m_pData;
  }
  return nullptr;
}

bool CKD_PrivateData::RemovePrivateData(void* key) {
  if (!key) return false;
  for (int i = 0; i < m_DataList.GetSize(); ++i) {
    if (m_DataList[i].m_pKey == key) return m_DataList.RemoveAt(i, 1);
  }
  return false;
}

void CKD_PrivateData::ClearAll() {
  // Entries are read by index so that a callback that changes the list cannot make us read freed
  // storage; what it adds is released too.
  for (int i = 0; i < m_DataList.GetSize(); ++i) {
    KD_PRIVATEDATA entry = m_DataList[i];
    entry.FreeData();
  }
  m_DataList.RemoveAll();
}

// Thread context.

bool CKD_ThreadContext::Initialize() { return m_ExceptionContext.Initialize(); }

void CKD_ThreadContext::Finalize() {
  m_PrivateData.ClearAll();
  m_ExceptionContext.Finalize();
}

// Process context.

CKD_ProcessContext::CKD_ProcessContext() : m_ThreadMap(10, nullptr), m_pThreadHandler(nullptr) {
  KD_Mutex_Initialize(&m_Mutex);
}

CKD_ProcessContext::~CKD_ProcessContext() { KD_Mutex_Destroy(&m_Mutex); }

namespace {

void DeleteThreadContext(CKD_ThreadContext* context) {
  context->Finalize();
  delete context;
}

}  // namespace

void CKD_ProcessContext::Initialize() {
  CKD_ThreadContext* context = new CKD_ThreadContext;
  if (!context) return;
  context->Initialize();
  SetThreadContext(KDCRT_GetThreadHandle(), context);
}

void CKD_ProcessContext::Finalize() {
  KDCRT_Mutex_Lock(&m_Mutex);
  m_PrivateData.ClearAll();
  void* position = m_ThreadMap.GetStartPosition();
  while (position) {
    void *key, *value;
    m_ThreadMap.GetNextAssoc(position, key, value);
    DeleteThreadContext(static_cast<CKD_ThreadContext*>(value));
  }
  m_ThreadMap.RemoveAll();
  KDCRT_Mutex_Unlock(&m_Mutex);
}

CKD_ThreadContext* CKD_ProcessContext::GetThreadContext(KD_HTHREAD* thread) {
  KDCRT_Mutex_Lock(&m_Mutex);
  void* context = m_ThreadMap.GetValueAt(thread);
  KDCRT_Mutex_Unlock(&m_Mutex);
  return static_cast<CKD_ThreadContext*>(context);
}

void CKD_ProcessContext::SetThreadContext(KD_HTHREAD* thread, CKD_ThreadContext* context) {
  KDCRT_Mutex_Lock(&m_Mutex);
  // Without memory for the entry the thread stays without a context, like any thread the
  // library did not start.
  if (!KDMAP_TrySetAt(m_ThreadMap, thread, context)) DeleteThreadContext(context);
  KDCRT_Mutex_Unlock(&m_Mutex);
}

void CKD_ProcessContext::RemoveThreadContext(KD_HTHREAD* thread) {
  KDCRT_Mutex_Lock(&m_Mutex);
  void* context = nullptr;
  if (m_ThreadMap.Lookup(thread, context)) {
    DeleteThreadContext(static_cast<CKD_ThreadContext*>(context));
    m_ThreadMap.RemoveKey(thread);
  }
  KDCRT_Mutex_Unlock(&m_Mutex);
}

// Process calls.

void KD_Process_Initialize() {
  CKD_MemoryMgr* mgr = KDMEM_GetDefaultMgr();
  if (!mgr || mgr->m_pProcessContext) return;
  CKD_ProcessContext* process = new CKD_ProcessContext;
  if (!process) return;
  mgr->m_pProcessContext = process;
  process->Initialize();
}

void KD_Process_Finalize() {
  CKD_MemoryMgr* mgr = KDMEM_GetDefaultMgr();
  if (!mgr || !mgr->m_pProcessContext) return;
  CKD_ProcessContext* process = mgr->m_pProcessContext;
  process->Finalize();
  delete process;
  mgr->m_pProcessContext = nullptr;
}

int KD_Process_GetID() { return KDCRT_GetProcessID(); }

CKD_ProcessContext* KD_Process_GetContext() {
  CKD_MemoryMgr* mgr = KDMEM_GetDefaultMgr();
  return mgr ? mgr->m_pProcessContext : nullptr;
}

CKD_PrivateData* KD_Process_GetPrivateData() {
  CKD_ProcessContext* process = KD_Process_GetContext();
  return process ? &process->m_PrivateData : nullptr;
}

void* KD_Process_GetPrivateData(void* key) {
  CKD_PrivateData* data = KD_Process_GetPrivateData();
  return data ? data->GetPrivateData(key) : nullptr;
}

void KD_Process_SetPrivateData(void* key, void* data, KD_CALLBACK_FREEDATA callback) {
  if (CKD_PrivateData* list = KD_Process_GetPrivateData()) list->SetPrivateData(key, data, callback);
}

bool KD_Process_RemovePrivateData(void* key) {
  CKD_PrivateData* data = KD_Process_GetPrivateData();
  return data && data->RemovePrivateData(key);
}

// Thread calls.

CKD_ThreadContext* KD_Thread_GetContext(KD_HTHREAD* thread) {
  CKD_ProcessContext* process = KD_Process_GetContext();
  return process ? process->GetThreadContext(thread) : nullptr;
}

CKD_ThreadContext* KD_Thread_GetContext() { return KD_Thread_GetContext(KDCRT_GetThreadHandle()); }

int KD_Thread_GetLastError() {
  CKD_ThreadContext* context = KD_Thread_GetContext();
  return context ? static_cast<int>(context->m_nLastError) : 0;
}

void KD_Thread_SetLastError(int code) {
  if (CKD_ThreadContext* context = KD_Thread_GetContext()) context->m_nLastError = static_cast<unsigned int>(code);
}

CKD_PrivateData* KD_Thread_GetPrivateData() {
  CKD_ThreadContext* context = KD_Thread_GetContext();
  return context ? &context->m_PrivateData : nullptr;
}

void* KD_Thread_GetPrivateData(void* key) {
  CKD_PrivateData* data = KD_Thread_GetPrivateData();
  return data ? data->GetPrivateData(key) : nullptr;
}

void KD_Thread_SetPrivateData(void* key, void* data, KD_CALLBACK_FREEDATA callback) {
  if (CKD_PrivateData* list = KD_Thread_GetPrivateData()) list->SetPrivateData(key, data, callback);
}

bool KD_Thread_RemovePrivateData(void* key) {
  CKD_PrivateData* data = KD_Thread_GetPrivateData();
  return data && data->RemovePrivateData(key);
}

CKD_ExceptionContext* KD_Thread_GetExceptionContext() {
  CKD_ThreadContext* context = KD_Thread_GetContext();
  return context ? &context->m_ExceptionContext : nullptr;
}

void* KD_Thread_GetHandler() {
  CKD_ProcessContext* process = KD_Process_GetContext();
  return process ? process->m_pThreadHandler : nullptr;
}

void KD_Thread_SetHandler(void* handler) {
  if (CKD_ProcessContext* process = KD_Process_GetContext()) process->m_pThreadHandler = handler;
}
