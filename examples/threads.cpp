// threads: worker threads with contexts, private data, a last error and the library's
// non-unwinding exceptions.
//
// After KD_Process_Initialize, the calling thread and every thread started with KD_Thread_Create
// have a thread context: private data that modules park under keys of their own, a last-error
// slot for client code, and the frames that KD_TRY blocks use. Threads started by other means
// have no context: for them these calls quietly do nothing.
#include <norvane/norvane.h>

#include <cstdio>

namespace {

// A key is any unique non-null address; this module's is the address of this variable.
char g_scratch_key;
// Private-data values released so far, counted atomically: the workers release theirs.
int32_t g_released = 0;

// What each worker is given and what it reports.
struct Job {
  int number;      // sum 1..number
  int sum;         // the result, when the sum could be taken
  int caught;      // the code of the exception caught, or 0
  int last_error;  // the thread's last error when it finished
};

constexpr int kNegativeCode = 22;

// Releases a scratch buffer parked as private data: called when the value is replaced, removed
// with its entry cleared, or when the thread's context goes away (as a worker returns).
void ReleaseScratch(void* data) {
  delete[] static_cast<long long*>(data);
  KD_Atom_Add32(&g_released, 1);
}

// Sums 1..number in the calling thread's scratch buffer. A negative number throws: KD_Throw jumps
// straight to the innermost KD_TRY of this thread. The jump runs no destructors, so nothing
// between the try and the throw may own resources.
int SumUpTo(int number) {
  if (number < 0) KD_Throw(kNegativeCode);
  long long* scratch = static_cast<long long*>(KD_Thread_GetPrivateData(&g_scratch_key));
  scratch[0] = 0;
  for (int i = 1; i <= number; ++i) scratch[0] += i;
  return static_cast<int>(scratch[0]);
}

// A worker's function: KD_Thread_Create gives its thread a context for as long as it runs.
void* Work(void* param) {
  Job* job = static_cast<Job*>(param);
  // Each thread parks its own buffer under the same key; the callback releases it later.
  KD_Thread_SetPrivateData(&g_scratch_key, new long long[1], ReleaseScratch);
  KD_TRY {
    job->sum = SumUpTo(job->number);
  }
  KD_CATCH(kNegativeCode) {
    job->caught = KD_GetCatchCode();
    KD_Thread_SetLastError(kNegativeCode);
  }
  KD_END_TRY
  job->last_error = KD_Thread_GetLastError();
  return nullptr;
}

}  // namespace

int main() {
  // Contexts exist only after this call; a thread of KD_Thread_Create started without a process
  // context does not even run its function.
  KD_Process_Initialize();

  Job jobs[4] = {{10, 0, 0, 0}, {100, 0, 0, 0}, {-1, 0, 0, 0}, {1000, 0, 0, 0}};
  KD_HTHREAD* threads[4];
  for (int i = 0; i < 4; ++i) {
    threads[i] = KD_Thread_Create(0, 0, Work, &jobs[i]);  // priority 0 is normal (-2..2)
    if (!threads[i]) return 1;
  }
  if (KD_Thread_WaitForMultipleThreads(threads, 4) != 0) return 1;

  for (const Job& job : jobs) {
    if (job.caught) {
      std::printf("sum to %d: caught code %d, last error %d\n", job.number, job.caught, job.last_error);
    } else {
      std::printf("sum to %d: %d, last error %d\n", job.number, job.sum, job.last_error);
    }
  }
  // Each worker's context, and with it its private data, went away as its function returned.
  std::printf("scratch buffers released: %d\n", g_released);

  // The initialising thread has a context too. KD_CATCH_ALL takes any code.
  KD_TRY {
    KD_Throw(7);
    std::printf("not reached\n");
  }
  KD_CATCH_ALL { std::printf("main thread caught code %d\n", KD_GetCatchCode()); }
  KD_END_TRY

  // Releases the process's and the main thread's private data and every context.
  KD_Process_Finalize();
  return 0;
}
