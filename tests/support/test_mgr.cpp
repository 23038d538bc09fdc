#include "tests/support/test_mgr.h"

#include <cstdlib>
#include <cstring>

namespace kdtest {

TestSystemMgr::TestSystemMgr(EventLog* log) : log_(log) {
  table_ = {Alloc, AllocDebug, Realloc, ReallocDebug, nullptr, nullptr, Free, Purge, Collect, this};
}

TestSystemMgr::~TestSystemMgr() {
  // Blocks a test left behind are returned so the sanitizers report only real leaks.
  for (auto& [block, size] : live_) free(block);
}

TestSystemMgr* TestSystemMgr::Self(_KDMEM_SystemMgr* sys) { return static_cast<TestSystemMgr*>(sys->user); }

void TestSystemMgr::Reset() {
  std::lock_guard<std::mutex> lock(mu_);
  fail_nth_ = 0;
  fail_min_size_ = 0;
  fail_above_ = static_cast<size_t>(-1);
  fail_all_ = false;
  allocs_ = reallocs_ = frees_ = failures_ = collects_ = purges_ = bad_frees_ = 0;
  requests_.clear();
}

size_t TestSystemMgr::live_blocks() const {
  std::lock_guard<std::mutex> lock(mu_);
  return live_.size();
}

size_t TestSystemMgr::SizeOf(void* block) const {
  std::lock_guard<std::mutex> lock(mu_);
  auto it = live_.find(block);
  return it == live_.end() ? 0 : it->second;
}

void TestSystemMgr::Log(const Event& e) {
  if (log_) log_->push_back(e);
}

// Called with mu_ held.
bool TestSystemMgr::ShouldFail(size_t size) {
  requests_.push_back(size);
  if (fail_all_ || size > fail_above_) return true;
  if (fail_nth_ > 0 && size >= fail_min_size_ && --fail_nth_ == 0) return true;
  return false;
}

void* TestSystemMgr::DoAlloc(const char* kind, void* old, size_t size, int flags, const char* file, int line) {
  std::lock_guard<std::mutex> lock(mu_);
  void* p = nullptr;
  if (!ShouldFail(size)) {
    if (old) {
      auto it = live_.find(old);
      if (it == live_.end()) {
        ++bad_frees_;
      } else {
        // Always move, so callers that keep a stale pointer are caught by the sanitizers.
        p = malloc(size ? size : 1);
        if (p) {
          memcpy(p, old, it->second < size ? it->second : size);
          free(old);
          live_.erase(it);
        }
      }
    } else {
      p = malloc(size ? size : 1);
    }
  }
  if (p) {
    live_[p] = size;
    ++(old ? reallocs_ : allocs_);
  } else {
    ++failures_;
  }
  Log({kind, old, p, size, flags, file, line});
  return p;
}

void* TestSystemMgr::Alloc(_KDMEM_SystemMgr* sys, size_t size, int flags) {
  return Self(sys)->DoAlloc("alloc", nullptr, size, flags, nullptr, 0);
}

void* TestSystemMgr::AllocDebug(_KDMEM_SystemMgr* sys, size_t size, int flags, const char* file, int line) {
  return Self(sys)->DoAlloc("alloc", nullptr, size, flags, file, line);
}

void* TestSystemMgr::Realloc(_KDMEM_SystemMgr* sys, void* block, size_t size, int flags) {
  return Self(sys)->DoAlloc("realloc", block, size, flags, nullptr, 0);
}

void* TestSystemMgr::ReallocDebug(_KDMEM_SystemMgr* sys, void* block, size_t size, int flags, const char* file,
                                  int line) {
  return Self(sys)->DoAlloc("realloc", block, size, flags, file, line);
}

void TestSystemMgr::Free(_KDMEM_SystemMgr* sys, void* block, int flags) {
  TestSystemMgr* self = Self(sys);
  std::lock_guard<std::mutex> lock(self->mu_);
  auto it = self->live_.find(block);
  if (it == self->live_.end()) {
    ++self->bad_frees_;
  } else {
    free(block);
    self->live_.erase(it);
    ++self->frees_;
  }
  self->Log({"free", block, nullptr, 0, flags, nullptr, 0});
}

void TestSystemMgr::Collect(_KDMEM_SystemMgr* sys) {
  TestSystemMgr* self = Self(sys);
  std::lock_guard<std::mutex> lock(self->mu_);
  ++self->collects_;
  self->Log({"collect"});
}

void TestSystemMgr::Purge(_KDMEM_SystemMgr* sys) {
  TestSystemMgr* self = Self(sys);
  std::lock_guard<std::mutex> lock(self->mu_);
  ++self->purges_;
  self->Log({"purge"});
}

RecordingDebugger::RecordingDebugger(EventLog* log) : log_(log) {
  table_.OnAlloc = [](CKD_MemoryMgr* m, void* result, size_t size, int flags) {
    LogOf(m)->push_back({"OnAlloc", nullptr, result, size, flags});
  };
  table_.OnAllocDebug = [](CKD_MemoryMgr* m, void* result, size_t size, int flags, const char* file, int line) {
    LogOf(m)->push_back({"OnAllocDebug", nullptr, result, size, flags, file, line});
  };
  table_.OnRealloc = [](CKD_MemoryMgr* m, void* old, void* result, size_t size, int flags) {
    LogOf(m)->push_back({"OnRealloc", old, result, size, flags});
  };
  table_.OnReallocDebug = [](CKD_MemoryMgr* m, void* old, void* result, size_t size, int flags, const char* file,
                             int line) { LogOf(m)->push_back({"OnReallocDebug", old, result, size, flags, file, line}); };
  table_.OnFree = [](CKD_MemoryMgr* m, void* block, int flags) {
    LogOf(m)->push_back({"OnFree", block, nullptr, 0, flags});
  };
  table_.OnTag = [](CKD_MemoryMgr* m, const char* tag) { LogOf(m)->push_back({"OnTag", nullptr, nullptr, 0, 0, tag}); };
}

EventLog* RecordingDebugger::LogOf(CKD_MemoryMgr* mgr) {
  return reinterpret_cast<RecordingDebugger*>(mgr->m_pDebugger)->log_;
}

int OOMCounter::Handler(CKD_MemoryMgr* mgr, void* param) {
  auto* self = static_cast<OOMCounter*>(param);
  ++self->calls;
  self->last_mgr = mgr;
  if (self->log) self->log->push_back({"oom"});
  return 0;
}

TestMgr::TestMgr(EventLog* log) : sys_(log), oom_(log) {
  mgr_ = KDMEM_CreateNorvaneMgr(sys_.sys());
  KDMEM_SetOOMHandler(mgr_, OOMCounter::Handler, &oom_);
  sys_.Reset();
  if (log) log->clear();
}

TestMgr::~TestMgr() { KDMEM_DestroyNorvaneMgr(mgr_); }

TestDefaultMgr::TestDefaultMgr(EventLog* log) : TestMgr(log), previous_(KDMEM_GetDefaultMgr()) {
  KDMEM_SetDefaultMgr(mgr());
}

TestDefaultMgr::~TestDefaultMgr() { KDMEM_SetDefaultMgr(previous_); }

std::string MgrRecordFault(const CKD_MemoryMgr* mgr, CKD_MemoryMgr::Type type, const _KDMEM_SystemMgr* sys,
                           bool owned) {
  if (mgr->m_Type != type) return "type";
  if (mgr->m_pSystemMgr != sys) return "system manager";
  if (mgr->m_pDebugger || mgr->m_pOOMHandler || mgr->m_pOOMParam) return "debugger or handler";
  if (mgr->m_pProcessContext || mgr->m_pExtraBuffer) return "process context or extra buffer";
  if (mgr->m_Allocator.m_pMgr != mgr) return "allocator back pointer";
  if (mgr->m_bOwned != owned) return "owned flag";
  return "";
}

std::string Kinds(const EventLog& log) {
  std::string s;
  for (const Event& e : log) {
    if (!s.empty()) s += ' ';
    s += e.kind;
  }
  return s;
}

}  // namespace kdtest
