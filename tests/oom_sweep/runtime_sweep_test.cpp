// Allocation-failure sweeps of containers, streams, the cached reader, contexts and threads,
// objects and pools. Each step checks the documented failure result (false, null, unchanged,
// empty) and the sweep checks that nothing is left behind.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "norvane/containers/array.h"
#include "norvane/containers/map_bytestring_to_ptr.h"
#include "norvane/containers/map_ptr_to_ptr.h"
#include "norvane/containers/segmented_array.h"
#include "norvane/memory/grow_only_pool.h"
#include "norvane/memory/object.h"
#include "norvane/runtime/context.h"
#include "norvane/runtime/thread.h"
#include "norvane/streams/archive.h"
#include "norvane/streams/file_cache.h"
#include "norvane/streams/file_stream.h"
#include "norvane/streams/memory_stream.h"
#include "norvane/text/code_page.h"
#include "tests/oom_sweep/sweep.h"

namespace {

using kdsweep::Trial;

TEST(AllocationSweep, Arrays) {
  kdsweep::Sweep([](Trial& run) {
    CKD_ArrayTemplate<int> a(run.allocator());
    std::vector<int> model;
    for (int i = 0; i < 100; ++i) {
      bool ok = i % 3 ? a.Add(i) : a.InsertAt(0, i, 2);
      EXPECT_EQ(ok, !run.Failed());
      if (ok) model.insert(i % 3 ? model.end() : model.begin(), i % 3 ? 1 : 2, i);
      ASSERT_EQ(std::vector<int>(a.GetData(), a.GetData() + a.GetSize()), model);  // unchanged on failure
    }
    CKD_ArrayTemplate<int> copy(run.allocator());
    bool ok = copy.Copy(a);
    EXPECT_EQ(ok, !run.Failed());
    if (ok) {
      EXPECT_EQ(std::vector<int>(copy.GetData(), copy.GetData() + copy.GetSize()), model);
    }
    ok = a.SetSize(1000);
    EXPECT_EQ(ok, !run.Failed());
    EXPECT_EQ(a.GetSize(), ok ? 1000 : static_cast<int>(model.size()));
  });
}

// A segmented array three index levels deep: an Add that fails returns null and changes
// nothing; the elements added stay where they were put.
TEST(AllocationSweep, SegmentedArrays) {
  kdsweep::Sweep([](Trial& run) {
    CKD_BaseSegmentedArray a(sizeof(int), 4, 3, run.allocator());
    std::vector<int> model;
    for (int i = 0; i < 200; ++i) {
      void* p = a.Add();
      EXPECT_EQ(p == nullptr, run.Failed());
      if (p) {
        memcpy(p, &i, sizeof i);
        model.push_back(i);
      }
      ASSERT_EQ(a.GetSize(), static_cast<int>(model.size()));
    }
    for (int i = 0; i < a.GetSize(); ++i) ASSERT_EQ(*static_cast<int*>(a.GetAt(i)), model[i]);
    a.Delete(a.GetSize() / 2, a.GetSize() - a.GetSize() / 2);
    EXPECT_TRUE(a.Add() || run.Failed());
  });
}

// Saving an archive while allocations fail leaks nothing; with nothing failed it holds what an
// unfailing run saves and loads back value by value; loading whatever was saved stays inside it.
TEST(AllocationSweep, Archives) {
  const auto save = [](CKD_ArchiveSaver& saver) {
    for (int i = 0; i < 300; ++i) {
      saver << i << static_cast<long long>(i) * 1000003 << CKD_ByteString(std::string(i % 50, 'x').c_str())
            << CKD_WideString(L"wide");
    }
  };
  CKD_ArchiveSaver reference;
  save(reference);
  const std::vector<uint8_t> full(reference.GetBuffer(), reference.GetBuffer() + reference.GetLength());
  kdsweep::Sweep([&](Trial& run) {
    CKD_ArchiveSaver saver(run.allocator());
    save(saver);
    const std::vector<uint8_t> saved(saver.GetBuffer(), saver.GetBuffer() + saver.GetLength());
    if (!run.Failed()) {
      EXPECT_EQ(saved, full);
    }
    CKD_ArchiveLoader loader(saved.data(), static_cast<unsigned int>(saved.size()));
    std::vector<int> numbers, lengths;
    CKD_ByteString text;
    CKD_WideString wide;
    while (!loader.IsEOF() && numbers.size() < 1000) {
      int n = -1;
      long long big = -1;
      loader >> n >> big >> text >> wide;
      numbers.push_back(n);
      lengths.push_back(text.GetLength());
    }
    uint8_t byte;
    EXPECT_TRUE(!loader.IsEOF() || !loader.Read(&byte, 1));
    if (!run.Failed() && saved == full) {
      ASSERT_EQ(numbers.size(), 300u);
      for (int i = 0; i < 300; ++i) ASSERT_TRUE(numbers[i] == i && lengths[i] == i % 50) << i;
    }
  });
}

// An insertion's table, entry block and key copy are required: their failure stops the process.
// Only the table doublings (256 bytes and more, while the entry blocks of 4 entries and the keys
// stay smaller) may fail, and then the map goes on at its size.
TEST(AllocationSweep, HashMapsSkipTheirRequiredAllocations) {
  kdsweep::Options doublings_only;
  doublings_only.min_size = 256;
  long allocations = kdsweep::Sweep(
      [](Trial& run) {
        CKD_MapPtrToPtr pointers(4, run.allocator());
        CKD_MapByteStringToPtr strings(4, run.allocator());
        for (intptr_t i = 1; i <= 300; ++i) {
          pointers[reinterpret_cast<void*>(i * 8)] = reinterpret_cast<void*>(i);
          strings[CKD_ByteString::FormatInteger(static_cast<int>(i))] = reinterpret_cast<void*>(i);
          if (i % 50 == 0) {
            ASSERT_TRUE(pointers.RemoveKey(reinterpret_cast<void*>(i * 8)));
          }
        }
        run.Failed();
        EXPECT_EQ(pointers.GetCount(), 294);
        EXPECT_EQ(strings.GetCount(), 300);
        for (intptr_t i = 1; i <= 300; ++i) {
          void* value = nullptr;
          EXPECT_EQ(pointers.Lookup(reinterpret_cast<void*>(i * 8), value), i % 50 != 0);
          ASSERT_TRUE(strings.Lookup(CKD_ByteString::FormatInteger(static_cast<int>(i)), value));
          EXPECT_EQ(value, reinterpret_cast<void*>(i));
        }
        EXPECT_GE(pointers.GetHashTableSize(), 16u);
      },
      doublings_only);
  EXPECT_GE(allocations, 8);  // five doublings of each map, at least
}

// Memory streams in both modes: a write that cannot grow the stream fails, everything else goes
// on; with no failure the bytes read back are the bytes written.
TEST(AllocationSweep, MemoryStreams) {
  kdsweep::Sweep([](Trial& run) {
    for (bool consecutive : {true, false}) {
      for (IKD_Allocator* allocator : {static_cast<IKD_Allocator*>(nullptr), run.allocator()}) {
        IKD_MemoryStream* s = KD_CreateMemoryStream(consecutive, allocator);
        if (run.Failed()) {
          EXPECT_EQ(s, nullptr);
          continue;
        }
        ASSERT_NE(s, nullptr);
        s->EstimateSize(10000, 8192);
        bool failed = run.Failed();
        std::vector<uint8_t> model;
        for (int i = 0; i < 12; ++i) {
          std::vector<uint8_t> data(3000 + 500 * i, static_cast<uint8_t>(i + 1));
          bool ok = s->WriteBlock(data.data(), data.size());
          bool now = run.Failed();
          failed |= now;
          if (now) {
            EXPECT_FALSE(ok);
          }
          if (!failed) {
            ASSERT_TRUE(ok);
            model.insert(model.end(), data.begin(), data.end());
          }
        }
        if (!failed) {
          std::vector<uint8_t> back(model.size());
          ASSERT_TRUE(s->ReadBlock(back.data(), 0, back.size()));
          EXPECT_EQ(back, model);
        }
        uint8_t* buffer = s->GetBuffer();
        if (consecutive && buffer) {  // take the buffer out; the stream goes on chunked
          s->DetachBuffer();
          if (allocator)
            allocator->m_Free(allocator, buffer);
          else
            KDMEM_DefaultFree(buffer, 0);
          EXPECT_TRUE(s->WriteBlock("after", 5) || run.Failed());
        }
        run.Failed();
        s->Release();
      }
    }
  });
}

// A cached reader over a memory file: a reader that cannot be set up says so; one that can
// reads the file's bytes whatever failed before.
TEST(AllocationSweep, CachedReader) {
  std::vector<uint8_t> content(50000);
  for (size_t i = 0; i < content.size(); ++i) content[i] = static_cast<uint8_t>(i * 7 + i / 251);
  std::vector<uint8_t> chunks(3 * 4096);
  kdsweep::Sweep([&](Trial& run) {
    IKD_MemoryStream* file = KD_CreateMemoryStream(content.data(), content.size(), false, run.allocator());
    if (!file) {
      EXPECT_TRUE(run.Failed());
      return;
    }
    // Without room to record the caller's buffer the stream is empty.
    const bool whole = file->GetSize() == static_cast<long long>(content.size());
    EXPECT_EQ(whole, !run.Failed());
    auto* reader = new CKD_CachedFileRead;
    if (!reader) {
      EXPECT_TRUE(run.Failed());
      file->Release();
      return;
    }
    bool ok = reader->Init(4096, 3, chunks.data(), run.allocator());
    EXPECT_EQ(ok, !run.Failed());
    if (ok && whole) {
      ASSERT_TRUE(reader->AttachFile(file, false));
      std::vector<uint8_t> buf(9000);
      for (long long at : {0LL, 12000LL, 40000LL, 3000LL, 0LL}) {
        ASSERT_TRUE(reader->ReadBlock(buf.data(), at, buf.size()));
        EXPECT_EQ(memcmp(buf.data(), content.data() + at, buf.size()), 0);
      }
    }
    // A reader whose data could not be made is still released whole.
    reader->Release();
    file->Release();
  });
}

TEST(AllocationSweep, FileStreams) {
  std::string path = ::testing::TempDir() + "norvane_sweep_" + std::to_string(getpid());
  const std::string content(20000, 'q');
  {
    FILE* f = fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    fwrite(content.data(), 1, content.size(), f);
    fclose(f);
  }
  const std::wstring wide_path(path.begin(), path.end());
  kdsweep::Sweep([&](Trial& run) {
    IKD_FileRead* in = KD_CreateFileRead(wide_path.c_str(), run.allocator());
    EXPECT_EQ(in == nullptr, run.Failed());
    if (in) {
      std::string got(content.size(), '\0');
      EXPECT_TRUE(in->ReadBlock(&got[0], 0, got.size()));
      EXPECT_EQ(got, content);
      in->Release();
    }
    CKD_ByteString whole = CKD_ByteString::LoadFromFile(path.c_str());
    EXPECT_EQ(whole.GetLength(), run.Failed() ? 0 : static_cast<int>(content.size()));
  });
  remove(path.c_str());
}

// The process context and threads: whatever cannot be allocated, initialising, starting threads,
// private data and finalising leave nothing behind; a thread whose context cannot be made does
// not run its function.
TEST(AllocationSweep, ContextsAndThreads) {
  static int key;
  static int released;
  kdsweep::Sweep([](Trial& run) {
    released = 0;
    KD_Process_Initialize();
    run.Failed();
    KD_Thread_SetPrivateData(&key, &key, [](void*) { ++released; });
    KD_Process_SetPrivateData(&key, &key, [](void*) { ++released; });
    int ran = 0;
    KD_HTHREAD* t = KD_Thread_Create(0, 0,
                                     [](void* param) -> void* {
                                       if (KD_Thread_GetContext()) ++*static_cast<int*>(param);
                                       KD_Thread_SetPrivateData(&key, &key, [](void*) { ++released; });
                                       return nullptr;
                                     },
                                     &ran);
    if (t) {
      EXPECT_EQ(KD_Thread_WaitForSingleThread(t), 0);
    }
    EXPECT_EQ(ran, run.Failed() || !KD_Process_GetContext() ? ran : 1);
    KD_Process_Finalize();
    EXPECT_EQ(KD_Process_GetContext(), nullptr);
  });
}

struct Bound : CKD_AllocObject {
  int payload[8];
};

// A CKD_AllocObject given an allocator yields null when it cannot be had. From the default
// manager its failure stops the process, so the sweep does not fail that allocation.
TEST(AllocationSweep, ObjectsAndPools) {
  kdsweep::Sweep([](Trial& run) {
    Bound* given = new (run.allocator()) Bound;
    EXPECT_EQ(given == nullptr, run.Failed());
    delete given;
    Bound* fatal = nullptr;
    run.Unfailing([&] { fatal = new (nullptr) Bound; });
    ASSERT_NE(fatal, nullptr);
    delete fatal;
    IKD_CodePage* page = IKD_CodePage::Create(936);
    EXPECT_EQ(page == nullptr, run.Failed());
    if (page) page->Release();
    CKD_GrowOnlyPool pool(run.allocator(), 1000);
    for (int i = 0; i < 20; ++i) {
      void* p = pool.Alloc(300);
      EXPECT_EQ(p == nullptr, run.Failed());
      if (p) memset(p, i, 300);
    }
  });
}

}  // namespace
