// Non-unwinding exceptions for client code: a throw jumps (longjmp) to the innermost open try
// frame of the calling thread with a 32-bit code. Each thread with a context owns a stack of 512
// try frames; the 512th nested try cannot open and records code 257 instead.
//
// Write try blocks with the macros at the end of this header:
//
//   KD_TRY {
//     ... KD_Throw(5); ...
//   } KD_CATCH(5) {
//     int code = KD_GetCatchCode();   // 5
//   } KD_CATCH_ALL {
//     KD_ContinueThrow();             // pass it on to the enclosing try
//   } KD_END_TRY
//
// KD_CATCH compares all 32 bits of the code; KD_CATCH_ALL, the end of a try block and
// KD_ContinueThrow look only at the low byte, so a code such as 256 is caught by KD_CATCH(256)
// but otherwise counts as nothing pending. A code that no clause catches is passed on to the
// enclosing try when the block ends; without one it is dropped. A thrown 0 arrives as 1.
//
// A jump runs no destructors: objects between the throw and the try are abandoned, so code in a
// try block holds no owning resources across calls that may throw. Local variables that the
// body changes and a handler reads must be volatile. Try blocks work on threads that have a
// context (after KD_Process_Initialize, and on threads of KD_Thread_Create); elsewhere the body
// simply runs and throws do nothing.
#ifndef NORVANE_RUNTIME_EXCEPTION_H_
#define NORVANE_RUNTIME_EXCEPTION_H_

#include <csetjmp>
#include <cstddef>

#include "norvane/config.h"
#include "norvane/memory/object.h"

// One try frame: the code (its low byte non-zero means an exception is pending) and the jump
// buffer. The buffer holds the address of the try block's KD_TRYTARGET, where a full jmp_buf
// lives: the platform's jmp_buf does not fit 37 ints everywhere (ARM64).
struct KD_TRYFRAME {
  int m_nCode;
  int m_JumpBuffer[37];
};
static_assert(sizeof(KD_TRYFRAME) == 152 && offsetof(KD_TRYFRAME, m_JumpBuffer) == 4, "try frame layout");

// The frames of one thread: depth is the index of the innermost open frame, -1 when none.
class NORVANE_API CKD_ExceptionErrorContext : public CKD_Object {
 public:
  static constexpr int kFrames = 512;
  // The code recorded in a frame that could not open because the stack was full.
  static constexpr int kOverflowCode = 257;

  CKD_ExceptionErrorContext() : m_nDepth(-1), m_pFrames(nullptr) {}
  ~CKD_ExceptionErrorContext() { Finalize(); }
  // Initialize allocates the 512 zeroed frames; false when they cannot be had.
  bool Initialize();
  // Finalize releases the frames.
  void Finalize();

  int m_nDepth;
  KD_TRYFRAME* m_pFrames;
};
static_assert(offsetof(CKD_ExceptionErrorContext, m_pFrames) == 8, "error context layout");

// The thread context's field pointing at the thread's error context.
class NORVANE_API CKD_ExceptionContext {
 public:
  CKD_ExceptionContext() : m_pErrorContext(nullptr) {}
  // Initialize creates the error context with depth -1 and its frames; false on failure.
  bool Initialize();
  // Finalize releases the frames and the error context.
  void Finalize();

  CKD_ExceptionErrorContext* m_pErrorContext;
};
static_assert(sizeof(CKD_ExceptionContext) == sizeof(void*), "one pointer");

// KD_Push_Try returns 1 when frame [depth] can be used; with the stack full it records 257 in
// that frame and returns 0 (the try body is then not run). A null context gives 0.
NORVANE_API int KD_Push_Try(CKD_ExceptionErrorContext* context);
// KD_Throw jumps to the innermost open frame with code; with none it returns doing nothing.
NORVANE_API void KD_Throw(int code);
// KD_ContinueThrow, in a handler, throws the caught code on to the enclosing try (if its low
// byte is non-zero).
NORVANE_API void KD_ContinueThrow();
// KD_GetCatchCode, in a handler, returns the caught code (0 when there is none).
NORVANE_API int KD_GetCatchCode();
// KD_IMP_Throw jumps to the try block whose frame owns jumpBuffer, delivering code (0 arrives
// as 1). A buffer of a frame that never opened is ignored.
NORVANE_API void KD_IMP_Throw(int (&jumpBuffer)[37], int code);

// CKD_Exception is the try block's object: it opens a frame when made and closes it when
// destroyed, unless a catch closed it already.
class NORVANE_API CKD_Exception {
 public:
  CKD_Exception();
  ~CKD_Exception();
  CKD_Exception(const CKD_Exception&) = delete;
  CKD_Exception& operator=(const CKD_Exception&) = delete;

  // Catch closes the frame and returns true when its code is exactly code.
  bool Catch(int code);
  // CatchAll closes the frame and returns true when its code's low byte is non-zero.
  bool CatchAll();
  // EndTry passes a pending, uncaught code on to the enclosing try, if there is one.
  void EndTry();

  bool m_bCaught;
};
static_assert(sizeof(CKD_Exception) == 1, "one flag");

// The rest serves the macros; clients do not call it directly. (The macros' locals are volatile
// because they are read again after a jump returns to setjmp.)

// Where a try block's frame jumps to: a full jmp_buf in the block's scope and the delivered code.
struct KD_TRYTARGET {
  jmp_buf m_Buffer;
  volatile int m_nCode;
};

// The calling thread's error context, or null when it has none (or no frames).
NORVANE_API CKD_ExceptionErrorContext* KD_IMP_GetErrorContext();
// Points frame [depth] at target and clears its code.
NORVANE_API void KD_IMP_BindTry(CKD_ExceptionErrorContext* context, KD_TRYTARGET* target);
// After a jump arrived at frame: frames above it were abandoned, so depth returns to it; the
// delivered code is recorded in the frame.
NORVANE_API void KD_IMP_Landed(CKD_ExceptionErrorContext* context, int frame, int code);
// The code of frame [depth] (0 with no context): the body runs when it is 0.
NORVANE_API int KD_IMP_TryCode(CKD_ExceptionErrorContext* context);

// KD_TRY, KD_CATCH(code), KD_CATCH_ALL and KD_END_TRY write a try block, as shown at the top of
// this header: KD_TRY opens a frame and runs the statement after it; a throw inside jumps back
// and the clauses are tried in order; KD_END_TRY closes the block, passing an uncaught code on.
#define KD_TRY                                                                                    \
  {                                                                                               \
    CKD_Exception kd_exception_;                                                                  \
    KD_TRYTARGET kd_target_;                                                                      \
    CKD_ExceptionErrorContext* const volatile kd_context_ = KD_IMP_GetErrorContext();             \
    const volatile int kd_frame_ = kd_context_ ? kd_context_->m_nDepth : -1;                      \
    if (KD_Push_Try(kd_context_)) {                                                               \
      KD_IMP_BindTry(kd_context_, &kd_target_);                                                   \
      if (setjmp(kd_target_.m_Buffer) != 0) KD_IMP_Landed(kd_context_, kd_frame_, kd_target_.m_nCode); \
    }                                                                                             \
    if (KD_IMP_TryCode(kd_context_) == 0)
#define KD_CATCH(code) else if (kd_exception_.Catch(code))
#define KD_CATCH_ALL else if (kd_exception_.CatchAll())
#define KD_END_TRY         \
  kd_exception_.EndTry(); \
  }

#endif  // NORVANE_RUNTIME_EXCEPTION_H_
