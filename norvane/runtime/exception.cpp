#include "norvane/runtime/exception.h"

#include <cstring>

#include "norvane/runtime/context.h"

namespace {

constexpr int kLastFrame = CKD_ExceptionErrorContext::kFrames - 1;

// The calling thread's error context; null when it has none.
CKD_ExceptionErrorContext* ErrorContext() {
  CKD_ExceptionContext* exception = KD_Thread_GetExceptionContext();
  CKD_ExceptionErrorContext* context = exception ? exception->m_pErrorContext : nullptr;
  return context && context->m_pFrames ? context : nullptr;
}

inline bool Pending(int code) { return (code & 0xFF) != 0; }

// Jumps to frame [index] of context with code (does nothing for an index out of range).
void JumpTo(CKD_ExceptionErrorContext* context, int index, int code) {
  if (index >= 0 && index <= kLastFrame) KD_IMP_Throw(context->m_pFrames[index].m_JumpBuffer, code);
}

}  // namespace

bool CKD_ExceptionErrorContext::Initialize() {
  const size_t bytes = kFrames * sizeof(KD_TRYFRAME);
  m_pFrames = static_cast<KD_TRYFRAME*>(CKD_Object::operator new[](bytes));
  if (!m_pFrames) return false;
  memset(m_pFrames, 0, bytes);
  return true;
}

void CKD_ExceptionErrorContext::Finalize() {
  CKD_Object::operator delete[](m_pFrames);
  m_pFrames = nullptr;
}

bool CKD_ExceptionContext::Initialize() {
  if (!m_pErrorContext) m_pErrorContext = new CKD_ExceptionErrorContext;
  return m_pErrorContext && m_pErrorContext->Initialize();
}

void CKD_ExceptionContext::Finalize() {
  delete m_pErrorContext;  // its destructor releases the frames
  m_pErrorContext = nullptr;
}

int KD_Push_Try(CKD_ExceptionErrorContext* context) {
  if (!context || !context->m_pFrames) return 0;
  if (context->m_nDepth < kLastFrame) return 1;
  if (context->m_nDepth == kLastFrame) context->m_pFrames[kLastFrame].m_nCode = CKD_ExceptionErrorContext::kOverflowCode;
  return 0;
}

void KD_Throw(int code) {
  CKD_ExceptionErrorContext* context = ErrorContext();
  if (context && context->m_nDepth >= 0) JumpTo(context, context->m_nDepth, code);
}

void KD_ContinueThrow() {
  CKD_ExceptionErrorContext* context = ErrorContext();
  if (!context || context->m_nDepth + 1 > kLastFrame) return;
  int code = context->m_pFrames[context->m_nDepth + 1].m_nCode;
  if (Pending(code)) JumpTo(context, context->m_nDepth, code);
}

int KD_GetCatchCode() {
  CKD_ExceptionErrorContext* context = ErrorContext();
  if (!context || context->m_nDepth + 1 > kLastFrame || context->m_nDepth + 1 < 0) return 0;
  return context->m_pFrames[context->m_nDepth + 1].m_nCode;
}

void KD_IMP_Throw(int (&jumpBuffer)[37], int code) {
  KD_TRYTARGET* target;
  memcpy(&target, jumpBuffer, sizeof target);  // the buffer is only 4-byte aligned
  if (!target) return;
  target->m_nCode = code == 0 ? 1 : code;
  longjmp(target->m_Buffer, 1);
}

CKD_Exception::CKD_Exception() : m_bCaught(false) {
  if (CKD_ExceptionErrorContext* context = ErrorContext()) ++context->m_nDepth;
}

CKD_Exception::~CKD_Exception() {
  if (m_bCaught) return;
  if (CKD_ExceptionErrorContext* context = ErrorContext()) --context->m_nDepth;
}

bool CKD_Exception::Catch(int code) {
  CKD_ExceptionErrorContext* context = ErrorContext();
  if (!context || context->m_nDepth < 0 || context->m_nDepth > kLastFrame) return false;
  if (context->m_pFrames[context->m_nDepth].m_nCode != code) return false;
  --context->m_nDepth;
  m_bCaught = true;
  return true;
}

bool CKD_Exception::CatchAll() {
  CKD_ExceptionErrorContext* context = ErrorContext();
  if (!context || context->m_nDepth < 0 || context->m_nDepth > kLastFrame) return false;
  if (!Pending(context->m_pFrames[context->m_nDepth].m_nCode)) return false;
  --context->m_nDepth;
  m_bCaught = true;
  return true;
}

void CKD_Exception::EndTry() {
  if (m_bCaught) return;
  CKD_ExceptionErrorContext* context = ErrorContext();
  if (!context) return;
  int d = context->m_nDepth;
  if (d < 1 || d > kLastFrame) return;
  int code = context->m_pFrames[d].m_nCode;
  if (Pending(code)) JumpTo(context, d - 1, code);
}

CKD_ExceptionErrorContext* KD_IMP_GetErrorContext() { return ErrorContext(); }

void KD_IMP_BindTry(CKD_ExceptionErrorContext* context, KD_TRYTARGET* target) {
  KD_TRYFRAME& frame = context->m_pFrames[context->m_nDepth];
  frame.m_nCode = 0;
  memcpy(frame.m_JumpBuffer, &target, sizeof target);
}

void KD_IMP_Landed(CKD_ExceptionErrorContext* context, int frame, int code) {
  context->m_nDepth = frame;
  context->m_pFrames[frame].m_nCode = code;
}

int KD_IMP_TryCode(CKD_ExceptionErrorContext* context) {
  if (!context || context->m_nDepth < 0 || context->m_nDepth > kLastFrame) return 0;
  return context->m_pFrames[context->m_nDepth].m_nCode;
}
