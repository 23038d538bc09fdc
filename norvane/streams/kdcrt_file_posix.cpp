#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "norvane/memory/memory_internal.h"
#include "norvane/streams/kdcrt_file_internal.h"
#include "norvane/text/byte_string.h"
#include "norvane/text/utf8_coder.h"
#include "norvane/text/wide_string.h"

int KDCRT_Posix_GetFileMode(uint32_t modes, int& open_flags, int& permissions) {
  if (modes & KD_FILEMODE_ReadOnly) {
    open_flags = O_RDONLY;
    permissions = 0;
  } else {
    open_flags = O_RDWR | O_CREAT | ((modes & KD_FILEMODE_Truncate) ? O_TRUNC : 0);
    permissions = 0644;
  }
  return open_flags;
}

IKDCRT_FileAccess* KDCRT_FileAccess_Create(IKD_Allocator* allocator) {
  return kdmem::NewFrom<CKDCRT_FileAccess_Posix>(allocator);
}

CKDCRT_FileAccess_Posix::~CKDCRT_FileAccess_Posix() { Close(); }

bool CKDCRT_FileAccess_Posix::Open(const CKD_ByteStringC& path, uint32_t modes) {
  if (m_nFD >= 0) return false;
  int flags, permissions;
  KDCRT_Posix_GetFileMode(modes, flags, permissions);
  CKD_ByteString terminated(path);  // open(2) needs the terminator a view may lack
  if (path.GetLength() && terminated.GetLength() != path.GetLength()) return false;
  // Descriptors are not inherited by programs this process starts.
  m_nFD = open(terminated.c_str(), flags | O_CLOEXEC, permissions);
  return m_nFD >= 0;
}

bool CKDCRT_FileAccess_Posix::Open(const CKD_WideStringC& path, uint32_t modes) {
  CKD_ByteString utf8 = KD_UTF8Encode(path.GetPtr(), path.GetLength());
  if (path.GetLength() && utf8.IsEmpty()) return false;
  return Open(CKD_ByteStringC(utf8), modes);
}

void CKDCRT_FileAccess_Posix::Close() {
  if (m_nFD < 0) return;
  close(m_nFD);
  m_nFD = -1;
}

void CKDCRT_FileAccess_Posix::Release(IKD_Allocator* allocator) { kdmem::DeleteTo(allocator, this); }

long long CKDCRT_FileAccess_Posix::GetSize() const {
  long long size = m_nFD < 0 ? -1 : KDCRT_FD_GetSize(m_nFD);
  return size < 0 ? 0 : size;
}

long long CKDCRT_FileAccess_Posix::GetPosition() const {
  return m_nFD < 0 ? -1 : static_cast<long long>(lseek(m_nFD, 0, SEEK_CUR));
}

long long CKDCRT_FileAccess_Posix::SetPosition(long long pos) {
  return m_nFD < 0 ? -1 : static_cast<long long>(lseek(m_nFD, static_cast<off_t>(pos), SEEK_SET));
}

size_t CKDCRT_FileAccess_Posix::Read(void* buffer, size_t size) {
  return m_nFD < 0 ? 0 : static_cast<size_t>(read(m_nFD, buffer, size));
}

size_t CKDCRT_FileAccess_Posix::Write(const void* data, size_t size) {
  return m_nFD < 0 ? 0 : static_cast<size_t>(write(m_nFD, data, size));
}

size_t CKDCRT_FileAccess_Posix::ReadPos(void* buffer, size_t size, long long pos) {
  if (m_nFD < 0 || GetSize() <= pos || SetPosition(pos) == -1) return 0;
  return Read(buffer, size);
}

size_t CKDCRT_FileAccess_Posix::WritePos(const void* data, size_t size, long long pos) {
  if (m_nFD < 0 || SetPosition(pos) == -1) return 0;
  return Write(data, size);
}

bool CKDCRT_FileAccess_Posix::Flush() { return m_nFD >= 0 && KDCRT_FD_Sync(m_nFD); }

bool CKDCRT_FileAccess_Posix::Truncate(long long size) { return m_nFD >= 0 && KDCRT_FD_Truncate(m_nFD, size); }

// Descriptors and mappings.

int KDCRT_FD_OpenReadWrite(const char* path, int permissions) {
  return open(path, O_RDWR | O_CREAT | O_CLOEXEC, static_cast<mode_t>(permissions));
}

void KDCRT_FD_Close(int fd) {
  if (fd >= 0) close(fd);
}

long long KDCRT_FD_GetSize(int fd) {
  struct stat st;
  return fstat(fd, &st) == 0 ? static_cast<long long>(st.st_size) : -1;
}

bool KDCRT_FD_Truncate(int fd, long long size) { return ftruncate(fd, static_cast<off_t>(size)) == 0; }

bool KDCRT_FD_Sync(int fd) { return fsync(fd) >= 0; }

bool KDCRT_FD_Seek(int fd, long long offset) { return lseek(fd, static_cast<off_t>(offset), SEEK_SET) != -1; }

long long KDCRT_FD_Write(int fd, const void* data, size_t size) { return write(fd, data, size); }

void* KDCRT_MapView(int fd, long long offset, size_t length) {
  void* view = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, fd, static_cast<off_t>(offset));
  return view == MAP_FAILED ? nullptr : view;
}

void KDCRT_UnmapView(void* address, size_t length) {
  if (address) munmap(address, length);
}

// The flat interface.

namespace {

inline IKDCRT_FileAccess* Access(_KD_HFILE* file) { return reinterpret_cast<IKDCRT_FileAccess*>(file); }

}  // namespace

_KD_HFILE* KD_File_Open(const CKD_ByteStringC& path, uint32_t modes, IKD_Allocator* allocator) {
  return reinterpret_cast<_KD_HFILE*>(KDCRT_FileAccess_Open(path, modes, allocator));
}

_KD_HFILE* KD_File_Open(const CKD_WideStringC& path, uint32_t modes, IKD_Allocator* allocator) {
  return reinterpret_cast<_KD_HFILE*>(KDCRT_FileAccess_Open(path, modes, allocator));
}

void KD_File_Close(_KD_HFILE* file, IKD_Allocator* allocator) {
  if (!file) return;
  Access(file)->Close();
  Access(file)->Release(allocator);
}

long long KD_File_GetSize(_KD_HFILE* file) { return file ? Access(file)->GetSize() : 0; }
long long KD_File_GetPosition(_KD_HFILE* file) { return file ? Access(file)->GetPosition() : -1; }
long long KD_File_SetPosition(_KD_HFILE* file, long long pos) { return file ? Access(file)->SetPosition(pos) : -1; }
size_t KD_File_Read(_KD_HFILE* file, void* buffer, size_t size) { return file ? Access(file)->Read(buffer, size) : 0; }
size_t KD_File_ReadPos(_KD_HFILE* file, void* buffer, size_t size, long long pos) {
  return file ? Access(file)->ReadPos(buffer, size, pos) : 0;
}
size_t KD_File_Write(_KD_HFILE* file, const void* data, size_t size) {
  return file ? Access(file)->Write(data, size) : 0;
}
size_t KD_File_WritePos(_KD_HFILE* file, const void* data, size_t size, long long pos) {
  return file ? Access(file)->WritePos(data, size, pos) : 0;
}
bool KD_File_Flush(_KD_HFILE* file) { return file && Access(file)->Flush(); }
bool KD_File_Truncate(_KD_HFILE* file, long long size) { return file && Access(file)->Truncate(size); }

FILE* KDSYS_wfopen(const wchar_t* path, const wchar_t* mode) {
  if (!path || !mode) return nullptr;
  CKD_ByteString local_path = CKD_ByteString::FromUnicode(path);
  CKD_ByteString local_mode = CKD_ByteString::FromUnicode(mode);
  return fopen(local_path.c_str(), local_mode.c_str());
}
