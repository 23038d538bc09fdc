// The POSIX file access: the only code of the library that calls open, read, write, lseek,
// fstat, fsync and ftruncate on files.
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

#endif  // NORVANE_STREAMS_KDCRT_FILE_INTERNAL_H_
