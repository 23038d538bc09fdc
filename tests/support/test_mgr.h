// Test doubles for the memory managers, shared by every test program.
//
// TestSystemMgr is a _KDMEM_SystemMgr over malloc that counts and records its calls, keeps the
// size of every live block, and fails on demand: the n-th allocating call from now, every call
// above a size, or every call. TestMgr builds a manager over one, for code handed an allocator;
// TestDefaultMgr also installs it as the default for the scope of a test. RecordingDebugger is a
// KDMEM_Debugger that records its hooks. A shared event log lets a test check the order in which
// system manager, debugger and handler were called.
#ifndef NORVANE_TESTS_SUPPORT_TEST_MGR_H_
#define NORVANE_TESTS_SUPPORT_TEST_MGR_H_

#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "norvane/memory/memory_mgr.h"

namespace kdtest {

// One call seen by a test double. kind names the slot or hook ("alloc", "realloc", "free",
// "collect", "purge", "OnAlloc", "OnRealloc", "OnFree", "OnTag", "oom"); block is the block
// passed in (or, for allocations, the result), size the requested size.
struct Event {
  std::string kind;
  void* block = nullptr;
  void* result = nullptr;
  size_t size = 0;
  int flags = 0;
  const char* file = nullptr;
  int line = 0;
};

using EventLog = std::vector<Event>;

class TestSystemMgr {
 public:
  explicit TestSystemMgr(EventLog* log = nullptr);
  ~TestSystemMgr();
  TestSystemMgr(const TestSystemMgr&) = delete;
  TestSystemMgr& operator=(const TestSystemMgr&) = delete;

  _KDMEM_SystemMgr* sys() { return &table_; }

  // Failure injection for allocating calls (Alloc, AllocDebug, Realloc, ReallocDebug).
  // The n-th call from now fails (1 = the next); 0 never. With min_size, only requests of at least
  // that many bytes are counted (and can fail).
  void FailNth(long n, size_t min_size = 0) {
    fail_nth_ = n;
    fail_min_size_ = min_size;
  }
  long pending_failure() const { return fail_nth_; }  // counted calls left before it; 0 when none
  size_t fail_min_size() const { return fail_min_size_; }
  void FailAbove(size_t size) { fail_above_ = size; }  // any request larger than size fails
  void FailAll(bool fail) { fail_all_ = fail; }
  void Reset();  // clears injection and counters; live blocks stay tracked

  long allocs() const { return allocs_; }      // successful Alloc and AllocDebug calls
  long reallocs() const { return reallocs_; }  // successful Realloc and ReallocDebug calls
  long frees() const { return frees_; }
  long failures() const { return failures_; }  // allocating calls that returned null
  long collects() const { return collects_; }
  long purges() const { return purges_; }
  long bad_frees() const { return bad_frees_; }  // frees of blocks this manager does not own
  size_t live_blocks() const;
  size_t SizeOf(void* block) const;  // 0 when not live
  // Sizes requested by the allocating calls, in order (failed ones included).
  const std::vector<size_t>& requests() const { return requests_; }

 private:
  static TestSystemMgr* Self(_KDMEM_SystemMgr* sys);
  static void* Alloc(_KDMEM_SystemMgr* sys, size_t size, int flags);
  static void* AllocDebug(_KDMEM_SystemMgr* sys, size_t size, int flags, const char* file, int line);
  static void* Realloc(_KDMEM_SystemMgr* sys, void* block, size_t size, int flags);
  static void* ReallocDebug(_KDMEM_SystemMgr* sys, void* block, size_t size, int flags, const char* file,
                            int line);
  static void Free(_KDMEM_SystemMgr* sys, void* block, int flags);
  static void Collect(_KDMEM_SystemMgr* sys);
  static void Purge(_KDMEM_SystemMgr* sys);
  bool ShouldFail(size_t size);
  void* DoAlloc(const char* kind, void* old, size_t size, int flags, const char* file, int line);
  void Log(const Event& e);

  _KDMEM_SystemMgr table_;
  EventLog* log_;
  mutable std::mutex mu_;
  std::map<void*, size_t> live_;
  std::vector<size_t> requests_;
  long fail_nth_ = 0;
  size_t fail_min_size_ = 0;
  size_t fail_above_ = static_cast<size_t>(-1);
  bool fail_all_ = false;
  long allocs_ = 0, reallocs_ = 0, frees_ = 0, failures_ = 0, collects_ = 0, purges_ = 0, bad_frees_ = 0;
};

// A debugger whose hooks append to an event log. The hook table comes first, so a hook finds
// the recorder through the manager's debugger pointer.
class RecordingDebugger {
 public:
  explicit RecordingDebugger(EventLog* log);
  KDMEM_Debugger* table() { return &table_; }

 private:
  static EventLog* LogOf(CKD_MemoryMgr* mgr);
  KDMEM_Debugger table_;
  EventLog* log_;
};

// Counts out-of-memory handler calls and logs them as "oom".
struct OOMCounter {
  explicit OOMCounter(EventLog* log = nullptr) : log(log) {}
  static int Handler(CKD_MemoryMgr* mgr, void* param);
  int calls = 0;
  CKD_MemoryMgr* last_mgr = nullptr;
  EventLog* log;
};

// A manager over its own TestSystemMgr with an OOMCounter handler, destroyed with the object.
// The manager's own record is left out of what a test counts or logs.
class TestMgr {
 public:
  explicit TestMgr(EventLog* log = nullptr);
  ~TestMgr();
  TestMgr(const TestMgr&) = delete;
  TestMgr& operator=(const TestMgr&) = delete;

  TestSystemMgr& sys() { return sys_; }
  CKD_MemoryMgr* mgr() { return mgr_; }
  IKD_Allocator* allocator() { return &mgr_->m_Allocator; }
  OOMCounter& oom() { return oom_; }
  size_t live_blocks() const { return sys_.live_blocks() - 1; }

 private:
  TestSystemMgr sys_;
  OOMCounter oom_;
  CKD_MemoryMgr* mgr_;
};

// A TestMgr installed as the default while the object lives; the previous default is restored
// on destruction.
class TestDefaultMgr : public TestMgr {
 public:
  explicit TestDefaultMgr(EventLog* log = nullptr);
  ~TestDefaultMgr();

 private:
  CKD_MemoryMgr* previous_;
};

// Checks a manager record as Init leaves it: the given type, system manager and owned flag, no
// debugger, handler, process context or extra buffer, and its allocator bound to the record.
// Returns the first field that differs, or "".
std::string MgrRecordFault(const CKD_MemoryMgr* mgr, CKD_MemoryMgr::Type type, const _KDMEM_SystemMgr* sys,
                           bool owned);

// Kinds of the events in log, in order, e.g. "alloc OnAlloc oom".
std::string Kinds(const EventLog& log);

}  // namespace kdtest

#endif  // NORVANE_TESTS_SUPPORT_TEST_MGR_H_
