#include "norvane/runtime/thread.h"

#include "norvane/runtime/context.h"
#include "norvane/runtime/kdcrt_thread_internal.h"

namespace {

// What KD_Thread_Create hands to the new thread.
struct ThreadStart : CKD_Object {
  KD_THREAD_PROC proc;
  int priority;
  void* param;
};

}  // namespace

// The entry of every thread of KD_Thread_Create: it gives the thread a context for as long as
// its function runs.
void* KDCRT_Posix_ThreadProc(void* arg) {
  ThreadStart* start = static_cast<ThreadStart*>(arg);
  CKD_ProcessContext* process = KD_Process_GetContext();
  if (!process) {
    delete start;  // no context can be had: the function is not called
    return nullptr;
  }
  KD_HTHREAD* self = KDCRT_GetThreadHandle();
  if (CKD_ThreadContext* context = new CKD_ThreadContext) {
    context->Initialize();
    process->SetThreadContext(self, context);
  }
  KDCRT_Thread_SetPriority(self, KDCRT_PlatformPriority(start->priority));
  KD_THREAD_PROC proc = start->proc;
  void* param = start->param;
  delete start;
  proc(param);
  // The process context may have been finalised meanwhile; look it up again.
  if (CKD_ProcessContext* now = KD_Process_GetContext()) now->RemoveThreadContext(self);
  return nullptr;
}

KD_HTHREAD* KD_Thread_Create(int priority, size_t, KD_THREAD_PROC proc, void* param) {
  if (!proc) return nullptr;
  ThreadStart* start = new ThreadStart;
  if (!start) return nullptr;
  start->proc = proc;
  start->priority = priority;
  start->param = param;
  KD_HTHREAD* thread = KDCRT_Thread_Create(KDCRT_Posix_ThreadProc, start);
  if (!thread) delete start;
  return thread;
}

void KD_Thread_Exit() { KDCRT_ExitThread(); }

void KD_Thread_Yield() { KDCRT_Thread_Yield(); }

KD_HTHREAD* KD_Thread_GetHandle() { return KDCRT_GetThreadHandle(); }

int KD_Thread_GetPriority(KD_HTHREAD* thread) {
  int platform;
  if (KDCRT_Thread_GetPriority(thread, &platform) != 0) return 0;
  return KDCRT_ScalePriority(platform);
}

int KD_Thread_SetPriority(KD_HTHREAD* thread, int priority) {
  return KDCRT_Thread_SetPriority(thread, KDCRT_PlatformPriority(priority));
}

int KD_Thread_WaitForSingleThread(KD_HTHREAD* thread) { return KDCRT_Thread_WaitForSingleThread(thread); }

int KD_Thread_WaitForMultipleThreads(KD_HTHREAD** threads, int count) {
  if (count < 1 || !threads) return 0;
  return KDCRT_Thread_WaitForMultipleThreads(threads, count);
}
