// File streams: CKD_CRTFileStream wraps a platform file with a lock, a reference count and an
// optional sub-range; CKD_CRTFileAccess is a named file that opens such streams. Use the
// factories below rather than the constructors.
//
// A stream's every operation holds its recursive mutex, so one stream may be shared by threads.
// A range (SetRange) makes sizes, positions and offset reads relative to it; writes are not
// limited by it. A read or write error of the system ends that call with the failure result
// (0, (size_t)-1 from a sequential read, false) and leaves the stream usable.
#ifndef NORVANE_STREAMS_FILE_STREAM_H_
#define NORVANE_STREAMS_FILE_STREAM_H_

#include <cstddef>
#include <cstdint>

#include "norvane/config.h"
#include "norvane/memory/object.h"
#include "norvane/runtime/sync.h"
#include "norvane/streams/file_access.h"
#include "norvane/streams/stream.h"
#include "norvane/text/wide_string.h"

// CKD_CRTFileStream is the stream over a platform file that KD_CreateFileStream, KD_CreateFileRead
// and KD_CreateFileWrite return; it owns the file and closes it on the last Release.
class NORVANE_API CKD_CRTFileStream : public IKD_FileStream, public CKD_Object {
 public:
  // Takes file (opened) over; allocator is where both came from (null: the default manager).
  CKD_CRTFileStream(IKD_Allocator* allocator, IKDCRT_FileAccess* file);
  ~CKD_CRTFileStream() override;
  CKD_CRTFileStream(const CKD_CRTFileStream&) = delete;
  CKD_CRTFileStream& operator=(const CKD_CRTFileStream&) = delete;

  void Release() override;
  IKD_FileStream* Retain() override;
  bool IsEOF() override;
  long long GetPosition() override;
  size_t ReadBlock(void* buffer, size_t size) override;
  // SetPosition moves to pos (not beyond the size) and returns it, else -1.
  long long SetPosition(long long pos) override;
  long long GetSize() override;
  bool SetRange(long long offset, long long size) override;
  void ClearRange() override;
  bool ReadBlock(void* buffer, long long offset, size_t size) override;
  bool WriteBlock(const void* data, long long offset, size_t size) override;
  using IKD_FileStream::WriteBlock;
  bool Flush() override;

 private:
  KD_MUTEX m_Lock;
  IKD_Allocator* m_pAllocator;
  IKDCRT_FileAccess* m_pFile;
  uint32_t m_nRefCount;
  int m_bUseRange;
  long long m_nRangeOffset;
  long long m_nRangeSize;
};

// CKD_CRTFileAccess is the named file of KD_CreateDefaultFileAccess: each CreateFileStream opens a
// new CKD_CRTFileStream on its path.
class NORVANE_API CKD_CRTFileAccess : public IKD_FileAccess, public CKD_Object {
 public:
  CKD_CRTFileAccess() : m_pAllocator(nullptr), m_nRefCount(0) {}
  ~CKD_CRTFileAccess() override = default;

  // Release frees the object with CKD_Object delete on the last reference, whatever allocator
  // it came from: allocators given to KD_CreateDefaultFileAccess must be compatible with the
  // default memory manager.
  void Release() override;
  IKD_FileAccess* Retain() override;
  void GetPath(CKD_WideString& path) override;
  IKD_FileStream* CreateFileStream(uint32_t modes) override;
  // Init stores the path and allocator and sets the count to 1.
  virtual bool Init(const CKD_WideStringC& path, IKD_Allocator* allocator);

 private:
  CKD_WideString m_Path;
  IKD_Allocator* m_pAllocator;
  uint32_t m_nRefCount;  // not locked
};

// KD_CreateFileStream opens path with KD_FILEMODE_ modes and returns a stream (count 1) from
// allocator (null: the default manager), or null.
NORVANE_API IKD_FileStream* KD_CreateFileStream(const char* path, uint32_t modes, IKD_Allocator* allocator = nullptr);
NORVANE_API IKD_FileStream* KD_CreateFileStream(const wchar_t* path, uint32_t modes,
                                                IKD_Allocator* allocator = nullptr);
// KD_CreateFileRead opens an existing file read-only; its read side.
NORVANE_API IKD_FileRead* KD_CreateFileRead(const char* path, IKD_Allocator* allocator = nullptr);
NORVANE_API IKD_FileRead* KD_CreateFileRead(const wchar_t* path, IKD_Allocator* allocator = nullptr);
// KD_CreateFileWrite creates or empties a file; its write side (the stream's second base, so a
// pointer different from the stream's own).
NORVANE_API IKD_FileWrite* KD_CreateFileWrite(const char* path, IKD_Allocator* allocator = nullptr);
NORVANE_API IKD_FileWrite* KD_CreateFileWrite(const wchar_t* path, IKD_Allocator* allocator = nullptr);
// KD_CreateDefaultFileAccess makes a named file access (count 1); null for an empty path.
NORVANE_API IKD_FileAccess* KD_CreateDefaultFileAccess(const CKD_WideStringC& path,
                                                       IKD_Allocator* allocator = nullptr);

#endif  // NORVANE_STREAMS_FILE_STREAM_H_
