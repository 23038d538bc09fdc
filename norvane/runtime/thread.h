// Threads: creation with a five-step priority scale, joining, yielding and exiting.
//
// A KD_HTHREAD* is the platform thread identity (pthread_t) carried as an opaque pointer; the
// same value keys the process context's thread map. Threads started here get a thread context
// (private data, last error, exception frames) for as long as their function runs, provided the
// process context exists (KD_Process_Initialize); without it a new thread ends at once and its
// function is not called.
//
// Priorities run from -2 (lowest) to 2 (highest) and map to the platform priorities
// 1, 25, 50, 75, 99; any other value maps to 50. They are set together with the normal
// time-sharing policy (SCHED_OTHER). Linux gives that policy no static priority, so there the
// platform refuses the setting (KD_Thread_SetPriority returns EINVAL, KD_Thread_GetPriority
// reads -2); platforms that honour it get the scale.
#ifndef NORVANE_RUNTIME_THREAD_H_
#define NORVANE_RUNTIME_THREAD_H_

#include <cstddef>

#include "norvane/config.h"

struct KD_HTHREAD;
// KD_THREAD_PROC is a thread's function: it runs with the param given to KD_Thread_Create.
typedef void* (*KD_THREAD_PROC)(void* param);

// KD_Thread_Create starts proc(param) on a new thread and returns its handle, or null. The
// stack size is accepted and not applied. proc's return value is discarded.
NORVANE_API KD_HTHREAD* KD_Thread_Create(int priority, size_t stackSize, KD_THREAD_PROC proc, void* param);
// KD_Thread_Exit ends the calling thread at once. Its context is then not removed, so threads of
// KD_Thread_Create should return from their function instead.
[[noreturn]] NORVANE_API void KD_Thread_Exit();
// KD_Thread_Yield lets other threads run (sched_yield).
NORVANE_API void KD_Thread_Yield();
// KD_Thread_GetHandle returns the calling thread's handle.
NORVANE_API KD_HTHREAD* KD_Thread_GetHandle();
// KD_Thread_GetPriority returns -2..2, or 0 when the platform cannot tell.
NORVANE_API int KD_Thread_GetPriority(KD_HTHREAD* thread);
// KD_Thread_SetPriority returns 0 or the platform's error number.
NORVANE_API int KD_Thread_SetPriority(KD_HTHREAD* thread, int priority);
// KD_Thread_WaitForSingleThread joins thread: 0 or the platform's error number.
NORVANE_API int KD_Thread_WaitForSingleThread(KD_HTHREAD* thread);
// KD_Thread_WaitForMultipleThreads joins the threads in array order and stops at the first join
// that fails, returning its error number (the rest are not joined); 0 when all were joined or
// count < 1.
NORVANE_API int KD_Thread_WaitForMultipleThreads(KD_HTHREAD** threads, int count);

#endif  // NORVANE_RUNTIME_THREAD_H_
