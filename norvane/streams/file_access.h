// The platform file: IKDCRT_FileAccess, a file descriptor behind a table of operations, and the
// flat KD_File_ interface over it, whose handle (_KD_HFILE*) is the file access object itself.
//
// Results follow the system's: Read and Write return what read(2)/write(2) returned, so a
// failed call gives (size_t)-1; operations on a closed file give 0, -1 or false. Paths given as
// wide text are opened by their UTF-8 bytes. No operation locks: a platform file belongs to one
// thread at a time (streams over it bring their own lock).
#ifndef NORVANE_STREAMS_FILE_ACCESS_H_
#define NORVANE_STREAMS_FILE_ACCESS_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "norvane/config.h"
#include "norvane/memory/memory_mgr.h"
#include "norvane/streams/stream.h"

// IKDCRT_FileAccess is one open (or closed) platform file. Made by KD_File_Open or the file
// streams; destroyed with Release and the allocator it came from.
class NORVANE_API IKDCRT_FileAccess {
 public:
  virtual ~IKDCRT_FileAccess() {}
  // Open opens path with KD_FILEMODE_ modes; false when a file is already open or open fails.
  virtual bool Open(const CKD_ByteStringC& path, uint32_t modes) = 0;
  virtual bool Open(const CKD_WideStringC& path, uint32_t modes) = 0;
  virtual void Close() = 0;
  // Release destroys the object; it came from allocator (null: the default manager).
  virtual void Release(IKD_Allocator* allocator) = 0;
  virtual long long GetSize() const = 0;
  virtual long long GetPosition() const = 0;
  virtual long long SetPosition(long long pos) = 0;
  virtual size_t Read(void* buffer, size_t size) = 0;
  virtual size_t Write(const void* data, size_t size) = 0;
  // ReadPos reads at pos; 0 when pos is at or past the end.
  virtual size_t ReadPos(void* buffer, size_t size, long long pos) = 0;
  // WritePos writes at pos; past the end the file grows.
  virtual size_t WritePos(const void* data, size_t size, long long pos) = 0;
  virtual bool Flush() = 0;
  virtual bool Truncate(long long size) = 0;
};

// The flat interface's handle: an IKDCRT_FileAccess.
struct _KD_HFILE;

// KD_File_Open opens a platform file from allocator (null: the default manager); null on
// failure. Close it with KD_File_Close and the same allocator.
NORVANE_API _KD_HFILE* KD_File_Open(const CKD_ByteStringC& path, uint32_t modes, IKD_Allocator* allocator = nullptr);
NORVANE_API _KD_HFILE* KD_File_Open(const CKD_WideStringC& path, uint32_t modes, IKD_Allocator* allocator = nullptr);
// Every other call forwards to the handle's operation of the same name and returns 0, -1 or
// false for a null handle; KD_File_Close closes the file and frees the handle through allocator.
NORVANE_API void KD_File_Close(_KD_HFILE* file, IKD_Allocator* allocator = nullptr);
NORVANE_API long long KD_File_GetSize(_KD_HFILE* file);
NORVANE_API long long KD_File_GetPosition(_KD_HFILE* file);
NORVANE_API long long KD_File_SetPosition(_KD_HFILE* file, long long pos);
NORVANE_API size_t KD_File_Read(_KD_HFILE* file, void* buffer, size_t size);
NORVANE_API size_t KD_File_ReadPos(_KD_HFILE* file, void* buffer, size_t size, long long pos);
NORVANE_API size_t KD_File_Write(_KD_HFILE* file, const void* data, size_t size);
NORVANE_API size_t KD_File_WritePos(_KD_HFILE* file, const void* data, size_t size, long long pos);
NORVANE_API bool KD_File_Flush(_KD_HFILE* file);
NORVANE_API bool KD_File_Truncate(_KD_HFILE* file, long long size);

// KDSYS_wfopen opens path with fopen, both texts converted to the local encoding; null on
// failure.
NORVANE_API FILE* KDSYS_wfopen(const wchar_t* path, const wchar_t* mode);

#endif  // NORVANE_STREAMS_FILE_ACCESS_H_
