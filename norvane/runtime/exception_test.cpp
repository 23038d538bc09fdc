#include "norvane/runtime/exception.h"

#include <gtest/gtest.h>

#include "norvane/runtime/context.h"

namespace {

int Depth() { return KD_IMP_GetErrorContext()->m_nDepth; }

// Every test leaves no frame open.
class Exceptions : public ::testing::Test {
 protected:
  void SetUp() override { KD_Process_Initialize(); }
  void TearDown() override {
    EXPECT_EQ(Depth(), -1);
    KD_Process_Finalize();
  }
};

void ThrowFromDeep(int levels, int code) {
  if (levels <= 0) {
    KD_Throw(code);
    return;
  }
  ThrowFromDeep(levels - 1, code);
}

TEST_F(Exceptions, CatchByExactCode) {
  ASSERT_EQ(Depth(), -1);
  volatile int reached = 0, caught = 0, code = 0;
  KD_TRY {
    reached = 1;
    ThrowFromDeep(5, 5);
    reached = 2;
  }
  KD_CATCH(4) { caught = 4; }
  KD_CATCH(5) {
    caught = 5;
    code = KD_GetCatchCode();
    EXPECT_EQ(Depth(), -1);  // the catch closed the frame
  }
  KD_END_TRY
  EXPECT_TRUE(reached == 1 && caught == 5 && code == 5);

  // A body that does not throw runs whole and no handler runs.
  volatile bool handled = false;
  KD_TRY { reached = 3; }
  KD_CATCH_ALL { handled = true; }
  KD_END_TRY
  EXPECT_TRUE(reached == 3 && !handled);

  // A thrown 0 arrives as 1; a throw with no open try returns.
  KD_TRY { KD_Throw(0); }
  KD_CATCH(1) { handled = true; }
  KD_END_TRY
  EXPECT_TRUE(handled);
  KD_Throw(3);
}

TEST_F(Exceptions, UncaughtCodesGoToTheEnclosingTry) {
  volatile int outer_caught = 0, inner_after = 0;
  KD_TRY {
    KD_TRY { KD_Throw(7); }
    KD_CATCH(5) { inner_after = -1; }
    KD_END_TRY
    inner_after = 1;  // skipped: the end of the inner block passed 7 on
  }
  KD_CATCH(7) {
    outer_caught = KD_GetCatchCode();
    EXPECT_EQ(Depth(), -1);
  }
  KD_END_TRY
  EXPECT_TRUE(outer_caught == 7 && inner_after == 0);

  // KD_ContinueThrow from a handler reaches the enclosing try.
  volatile int seen = 0;
  KD_TRY {
    KD_TRY { KD_Throw(9); }
    KD_CATCH_ALL { KD_ContinueThrow(); }
    KD_END_TRY
  }
  KD_CATCH(9) { seen = 9; }
  KD_END_TRY
  EXPECT_EQ(seen, 9);

  // An uncaught code without an enclosing try is dropped.
  KD_TRY { KD_Throw(12); }
  KD_CATCH(13) { seen = 13; }
  KD_END_TRY
  EXPECT_EQ(seen, 9);
}

TEST_F(Exceptions, ALowByteOfZeroIsNothingPending) {
  volatile int result = 0;
  KD_TRY { KD_Throw(256); }
  KD_CATCH(256) { result = 256; }
  KD_END_TRY
  EXPECT_EQ(result, 256);

  result = 0;
  KD_TRY {
    KD_TRY { KD_Throw(512); }
    KD_CATCH_ALL { result = -1; }
    KD_END_TRY
    result = 1;  // not passed on either: the inner block ended normally
  }
  KD_CATCH_ALL { result = -2; }
  KD_END_TRY
  EXPECT_EQ(result, 1);
}

// Opens nested try blocks until the frame stack is full.
int g_bodies = 0;
int g_overflow_code = 0;
void Nest(int level) {
  KD_TRY {
    ++g_bodies;
    if (level < 600) Nest(level + 1);
  }
  KD_CATCH(CKD_ExceptionErrorContext::kOverflowCode) { g_overflow_code = KD_GetCatchCode(); }
  KD_END_TRY
}

TEST_F(Exceptions, The512thNestedTryDoesNotOpen) {
  g_bodies = 0;
  Nest(1);
  EXPECT_EQ(g_bodies, 511);
  EXPECT_EQ(g_overflow_code, 257);
  EXPECT_EQ(KD_IMP_GetErrorContext()->m_pFrames[511].m_nCode, 257);
}

TEST_F(Exceptions, EachThreadHasItsOwnFrames) {
  auto body = [](void* result) -> void* {
    KD_TRY { ThrowFromDeep(3, 21); }
    KD_CATCH(21) { *static_cast<int*>(result) = KD_GetCatchCode(); }
    KD_END_TRY
    return nullptr;
  };
  int results[3] = {};
  KD_HTHREAD* threads[3];
  for (int i = 0; i < 3; ++i) threads[i] = KD_Thread_Create(0, 0, body, &results[i]);
  KD_TRY { KD_Thread_WaitForMultipleThreads(threads, 3); }
  KD_END_TRY
  for (int r : results) EXPECT_EQ(r, 21);
}

TEST(ExceptionsWithoutContext, BodiesRunAndThrowsDoNothing) {
  ASSERT_EQ(KD_IMP_GetErrorContext(), nullptr);
  volatile int reached = 0;
  KD_TRY {
    KD_Throw(5);
    reached = 1;
  }
  KD_CATCH_ALL { reached = -1; }
  KD_END_TRY
  EXPECT_EQ(reached, 1);
  EXPECT_EQ(KD_GetCatchCode(), 0);
  KD_ContinueThrow();
  EXPECT_EQ(KD_Push_Try(nullptr), 0);
}

}  // namespace
