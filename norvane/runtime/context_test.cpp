#include "norvane/runtime/context.h"

#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "tests/support/test_mgr.h"

namespace {

int g_released = 0;
std::vector<void*> g_released_data;
void Release(void* data) {
  ++g_released;
  g_released_data.push_back(data);
}

struct Parked : CKD_DestructObject {
  explicit Parked(int* deleted) : deleted(deleted) {}
  ~Parked() override { ++*deleted; }
  int* deleted;
};

int g_key_a, g_key_b, g_key_c;  // addresses used as keys

// Every test leaves the process without a context.
class Context : public ::testing::Test {
 protected:
  void SetUp() override {
    g_released = 0;
    g_released_data.clear();
  }
  void TearDown() override { KD_Process_Finalize(); }
};

// Without a process context last errors are dropped and read as 0, and private data, handler and
// exception context are missing.
TEST_F(Context, NothingWorksWithoutAProcessContext) {
  ASSERT_EQ(KD_Process_GetContext(), nullptr);
  KD_Thread_SetLastError(5);
  KD_Thread_SetPrivateData(&g_key_a, &g_key_b, Release);
  KD_Process_SetPrivateData(&g_key_a, &g_key_b, Release);
  KD_Thread_SetHandler(&g_key_a);
  EXPECT_EQ(KD_Thread_GetLastError(), 0);
  EXPECT_TRUE(!KD_Thread_GetPrivateData(&g_key_a) && !KD_Thread_GetPrivateData() && !KD_Process_GetPrivateData(&g_key_a));
  EXPECT_FALSE(KD_Thread_RemovePrivateData(&g_key_a));
  EXPECT_TRUE(!KD_Thread_GetExceptionContext() && !KD_Thread_GetHandler() && !KD_Thread_GetContext());
  EXPECT_EQ(g_released, 0);
}

TEST_F(Context, InitialisingThreadAndPrivateData) {
  KD_Process_Initialize();
  CKD_ProcessContext* first = KD_Process_GetContext();
  ASSERT_NE(first, nullptr);
  KD_Process_Initialize();  // a second call changes nothing
  EXPECT_EQ(KD_Process_GetContext(), first);
  EXPECT_EQ(KDMEM_GetDefaultMgr()->m_pProcessContext, first);

  // The initialising thread has a context, with 512 zeroed try frames and none open.
  CKD_ThreadContext* self = KD_Thread_GetContext();
  ASSERT_NE(self, nullptr);
  EXPECT_EQ(KD_Thread_GetContext(KD_Thread_GetHandle()), self);
  ASSERT_NE(KD_Thread_GetExceptionContext(), nullptr);
  CKD_ExceptionErrorContext* errors = KD_Thread_GetExceptionContext()->m_pErrorContext;
  ASSERT_TRUE(errors && errors->m_pFrames);
  EXPECT_TRUE(errors->m_nDepth == -1 && errors->m_pFrames[511].m_nCode == 0);

  // Setting a key twice releases the first value and keeps one entry, in its place.
  KD_Thread_SetPrivateData(&g_key_a, &g_key_a, Release);
  KD_Thread_SetPrivateData(&g_key_b, &g_key_b, Release);
  KD_Thread_SetPrivateData(&g_key_a, &g_key_c, Release);
  KD_Thread_SetPrivateData(nullptr, &g_key_a, Release);  // a null key is ignored
  EXPECT_EQ(g_released_data, std::vector<void*>{&g_key_a});
  EXPECT_EQ(KD_Thread_GetPrivateData()->GetCount(), 2);
  EXPECT_EQ(KD_Thread_GetPrivateData(&g_key_a), &g_key_c);

  // Removing leaves the data alive: no callback.
  EXPECT_TRUE(KD_Thread_RemovePrivateData(&g_key_b));
  EXPECT_FALSE(KD_Thread_RemovePrivateData(&g_key_b));
  EXPECT_EQ(g_released, 1);
  EXPECT_EQ(KD_Thread_GetPrivateData(&g_key_b), nullptr);

  // Objects are deleted through their virtual destructor; null data is not released at all.
  int deleted = 0;
  KD_Thread_GetPrivateData()->SetPrivateObj(&g_key_b, new Parked(&deleted));
  KD_Thread_GetPrivateData()->SetPrivateObj(&g_key_b, new Parked(&deleted));
  EXPECT_EQ(deleted, 1);
  KD_Thread_SetPrivateData(&g_key_c, nullptr, Release);

  KD_Process_SetPrivateData(&g_key_a, &g_key_b, Release);
  EXPECT_EQ(KD_Process_GetPrivateData(&g_key_a), &g_key_b);
  KD_Thread_SetHandler(&g_key_c);
  EXPECT_EQ(KD_Thread_GetHandler(), &g_key_c);

  // Finalising releases the process data first, then each thread's, in insertion order.
  g_released_data.clear();
  KD_Process_Finalize();
  EXPECT_TRUE(!KD_Process_GetContext() && !KD_Thread_GetContext());
  EXPECT_EQ(g_released_data, (std::vector<void*>{&g_key_b, &g_key_c}));
  EXPECT_EQ(deleted, 2);
}

std::atomic<int> g_called{0};

void* CountCall(void*) {
  ++g_called;
  return nullptr;
}

TEST_F(Context, ThreadsGetTheirOwnContexts) {
  // Before the process context exists a new thread ends without calling its function.
  g_called = 0;
  KD_HTHREAD* early = KD_Thread_Create(0, 0, CountCall, nullptr);
  ASSERT_NE(early, nullptr);
  EXPECT_EQ(KD_Thread_WaitForSingleThread(early), 0);
  EXPECT_EQ(g_called, 0);
  EXPECT_EQ(KD_Thread_Create(0, 0, nullptr, nullptr), nullptr);

  KD_Process_Initialize();
  KD_Thread_SetLastError(99);

  struct Shared {
    std::atomic<int> ready{0};
    std::atomic<bool> go{false};
    std::atomic<int> failures{0};
  } shared;
  auto body = [](void* arg) -> void* {
    Shared* s = static_cast<Shared*>(arg);
    // A fresh context: no last error, no data of the main thread.
    if (KD_Thread_GetLastError() != 0 || KD_Thread_GetPrivateData(&g_key_a)) ++s->failures;
    int id = ++s->ready;
    KD_Thread_SetLastError(id);
    KD_Thread_SetPrivateData(&g_key_a, reinterpret_cast<void*>(static_cast<intptr_t>(id)), Release);
    while (!s->go) KD_Thread_Yield();
    if (KD_Thread_GetLastError() != id || KD_Thread_GetPrivateData(&g_key_a) != reinterpret_cast<void*>(static_cast<intptr_t>(id)))
      ++s->failures;
    return nullptr;
  };

  KD_HTHREAD* threads[4];
  for (auto& t : threads) t = KD_Thread_Create(1, 0, body, &shared);
  while (shared.ready < 4) KD_Thread_Yield();
  // While they run, each thread has a context of its own.
  for (auto& t : threads) {
    CKD_ThreadContext* c = KD_Thread_GetContext(t);
    ASSERT_NE(c, nullptr);
    EXPECT_NE(c, KD_Thread_GetContext());
  }
  shared.go = true;
  EXPECT_EQ(KD_Thread_WaitForMultipleThreads(threads, 4), 0);
  EXPECT_EQ(shared.failures, 0);
  EXPECT_EQ(KD_Thread_GetLastError(), 99);
  // Returning from the function removed each context and released its data.
  for (auto& t : threads) EXPECT_EQ(KD_Thread_GetContext(t), nullptr);
  EXPECT_EQ(g_released, 4);
  EXPECT_EQ(KD_Process_GetContext()->m_ThreadMap.GetCount(), 1);

  // KD_Thread_Exit leaves the thread's context in the map, for finalising to release.
  auto exits = [](void*) -> void* {
    KD_Thread_SetPrivateData(&g_key_b, &g_key_c, Release);
    KD_Thread_Exit();
  };
  KD_HTHREAD* t = KD_Thread_Create(0, 0, exits, nullptr);
  ASSERT_EQ(KD_Thread_WaitForSingleThread(t), 0);
  EXPECT_NE(KD_Thread_GetContext(t), nullptr);
  EXPECT_EQ(g_released, 4);
  KD_Process_Finalize();
  EXPECT_EQ(g_released_data.back(), &g_key_c);
}

// The process context hangs off the default manager, so switching the default switches the
// visible context; every allocation failing in turn leaves nothing behind.
TEST_F(Context, FollowsTheDefaultManagerAndSurvivesEveryAllocationFailure) {
  KD_Process_Initialize();
  CKD_ProcessContext* process = KD_Process_GetContext();
  for (int n = 1; n <= 12; ++n) {
    kdtest::TestDefaultMgr t;
    EXPECT_TRUE(!KD_Process_GetContext() && !KD_Thread_GetContext());
    t.sys().FailNth(n);
    KD_Process_Initialize();
    KD_Thread_SetPrivateData(&g_key_a, &g_key_b, Release);
    KD_Thread_SetLastError(3);
    KD_Process_SetPrivateData(&g_key_b, &g_key_c, Release);
    KD_Process_Finalize();
    EXPECT_EQ(t.live_blocks(), 0u) << "allocation " << n << " failing";
  }
  EXPECT_EQ(KD_Process_GetContext(), process);
}

}  // namespace
