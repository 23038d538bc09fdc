// The POSIX file access: the only code of the library that calls open, read, write, lseek,
// fstat, fsync, ftruncate, mmap and munmap on files.
#ifndef NORVANE_STREAMS_KDCRT_FILE_INTERNAL_H_
#define NORVANE_STREAMS_KDCRT_FILE_INTERNAL_H_

#include "norvane/memory/object.h"
#include "norvane/streams/file_access.h"

class CKDCRT_FileAccess_Posix : public IKDCRT_FileAccess, public CKD_Object {
 public:
  CKDCRT_FileAccess_Posix() : m_nFD(-1) {}
  ~CKDCRT_FileAccess_Posix() override;

  bool Open(const CKD_ByteStringC& path, uint32_t modes) override;
  bool Open(const CKD_WideStringC& path, uint32_t modes) override;
  void Close() override;
  void Release(IKD_Allocator* allocator) override;
  long long GetSize() const override;
  long long GetPosition() const override;
  long long SetPosition(long long pos) override;
  size_t Read(void* buffer, size_t size) override;
  size_t Write(const void* data, size_t size) override;
  size_t ReadPos(void* buffer, size_t size, long long pos) override;
  size_t WritePos(const void* data, size_t size, long long pos) override;
  bool Flush() override;
  bool Truncate(long long size) override;

  int GetDescriptor() const { return m_nFD; }

 private:
  int m_nFD;
};

// KDCRT_FileAccess_Create makes a closed platform file from allocator (null: CKD_Object new).
IKDCRT_FileAccess* KDCRT_FileAccess_Create(IKD_Allocator* allocator);
// KDCRT_FileAccess_Open makes one and opens path (a byte or wide string view) with KD_FILEMODE_
// modes; null when either step fails, with nothing left over.
template <class Path>
IKDCRT_FileAccess* KDCRT_FileAccess_Open(const Path& path, uint32_t modes, IKD_Allocator* allocator) {
  IKDCRT_FileAccess* access = KDCRT_FileAccess_Create(allocator);
  if (!access) return nullptr;
  if (!access->Open(path, modes)) {
    access->Release(allocator);
    return nullptr;
  }
  return access;
}

// KDCRT_Posix_GetFileMode turns KD_FILEMODE_ bits into open(2) flags and permissions, and
// returns the flags. Read-only wins: it opens without creating or truncating.
int KDCRT_Posix_GetFileMode(uint32_t modes, int& open_flags, int& permissions);

// Descriptor-level calls, for code that keeps a raw descriptor (mapped files, file filling).
//
// KDCRT_FD_OpenReadWrite opens path for reading and writing, creating it with permissions if it
// is missing; the descriptor, or -1.
int KDCRT_FD_OpenReadWrite(const char* path, int permissions);
// KDCRT_FD_Close closes a descriptor; a negative one is ignored.
void KDCRT_FD_Close(int fd);
// KDCRT_FD_GetSize returns the file's size from fstat, or -1 when fstat fails.
long long KDCRT_FD_GetSize(int fd);
// KDCRT_FD_Truncate sets the file's size (ftruncate); true when it returned 0.
bool KDCRT_FD_Truncate(int fd, long long size);
// KDCRT_FD_Sync writes the file's data to the device (fsync, which on this platform also covers
// pages written through a shared mapping); true when it returned 0 or more.
bool KDCRT_FD_Sync(int fd);
// KDCRT_FD_Seek moves the file position to offset; true when lseek succeeded.
bool KDCRT_FD_Seek(int fd, long long offset);
// KDCRT_FD_Write writes at the file position; write(2)'s result (-1 on failure).
long long KDCRT_FD_Write(int fd, const void* data, size_t size);

// KDCRT_MapView maps length bytes of the file at offset, shared, readable and writable. A failed
// mapping gives null, never the system's own failure value, so that callers that test the
// address for null never take that value for a view.
void* KDCRT_MapView(int fd, long long offset, size_t length);
// KDCRT_UnmapView unmaps a view made by KDCRT_MapView; a null address is ignored.
void KDCRT_UnmapView(void* address, size_t length);

#endif  // NORVANE_STREAMS_KDCRT_FILE_INTERNAL_H_
