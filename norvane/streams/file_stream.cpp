#include "norvane/streams/file_stream.h"

#include <cstring>
#include <cwchar>

#include "norvane/memory/memory_internal.h"
#include "norvane/runtime/kdcrt_thread_internal.h"
#include "norvane/streams/kdcrt_file_internal.h"
#include "norvane/text/byte_string.h"

namespace {

// A read or write of the system that failed returns (size_t)-1: it transferred nothing.
inline bool Transferred(size_t n) { return n != 0 && n != static_cast<size_t>(-1); }

}  // namespace

CKD_CRTFileStream::CKD_CRTFileStream(IKD_Allocator* allocator, IKDCRT_FileAccess* file)
    : m_pAllocator(allocator), m_pFile(file), m_nRefCount(1), m_bUseRange(0), m_nRangeOffset(0), m_nRangeSize(0) {
  KD_Mutex_Initialize(&m_Lock);
}

CKD_CRTFileStream::~CKD_CRTFileStream() {
  if (m_pFile) m_pFile->Release(m_pAllocator);
  KD_Mutex_Destroy(&m_Lock);
}

void CKD_CRTFileStream::Release() {
  if (KDCRT_DropReference(&m_Lock, m_nRefCount)) kdmem::DeleteTo(m_pAllocator, this);
}

IKD_FileStream* CKD_CRTFileStream::Retain() {
  KDCRT_AddReference(&m_Lock, m_nRefCount);
  return this;
}

long long CKD_CRTFileStream::GetSize() {
  KDCRT_MutexLock lock(&m_Lock);
  return m_bUseRange ? m_nRangeSize : m_pFile->GetSize();
}

long long CKD_CRTFileStream::GetPosition() {
  KDCRT_MutexLock lock(&m_Lock);
  return m_pFile->GetPosition() - (m_bUseRange ? m_nRangeOffset : 0);
}

bool CKD_CRTFileStream::IsEOF() {
  KDCRT_MutexLock lock(&m_Lock);
  return GetPosition() >= GetSize();
}

long long CKD_CRTFileStream::SetPosition(long long pos) {
  KDCRT_MutexLock lock(&m_Lock);
  if (GetSize() < pos) return -1;
  m_pFile->SetPosition(pos + (m_bUseRange ? m_nRangeOffset : 0));
  return pos;
}

size_t CKD_CRTFileStream::ReadBlock(void* buffer, size_t size) {
  KDCRT_MutexLock lock(&m_Lock);
  if (m_bUseRange) {
    size_t left = static_cast<size_t>(m_nRangeOffset + m_nRangeSize - m_pFile->GetPosition());
    if (size > left) size = left;
  }
  return m_pFile->Read(buffer, size);
}

bool CKD_CRTFileStream::ReadBlock(void* buffer, long long offset, size_t size) {
  KDCRT_MutexLock lock(&m_Lock);
  if (m_bUseRange) {
    if (offset < 0 || offset + static_cast<long long>(size) > GetSize()) return false;
    offset += m_nRangeOffset;
  }
  return Transferred(m_pFile->ReadPos(buffer, size, offset));
}

bool CKD_CRTFileStream::WriteBlock(const void* data, long long offset, size_t size) {
  KDCRT_MutexLock lock(&m_Lock);
  return Transferred(m_pFile->WritePos(data, size, offset + (m_bUseRange ? m_nRangeOffset : 0)));
}

bool CKD_CRTFileStream::Flush() {
  KDCRT_MutexLock lock(&m_Lock);
  return m_pFile->Flush();
}

bool CKD_CRTFileStream::SetRange(long long offset, long long size) {
  KDCRT_MutexLock lock(&m_Lock);
  if (offset < 0 || size < 0 || offset + size > m_pFile->GetSize()) return false;
  m_nRangeOffset = offset;
  m_nRangeSize = size;
  m_bUseRange = 1;
  m_pFile->SetPosition(offset);
  return true;
}

void CKD_CRTFileStream::ClearRange() {
  KDCRT_MutexLock lock(&m_Lock);
  m_bUseRange = 0;
}

// Factories.

namespace {

template <class Path>
IKD_FileStream* MakeStream(const Path& path, uint32_t modes, IKD_Allocator* allocator) {
  IKDCRT_FileAccess* file = KDCRT_FileAccess_Open(path, modes, allocator);
  if (!file) return nullptr;
  CKD_CRTFileStream* stream = kdmem::NewFrom<CKD_CRTFileStream>(allocator, allocator, file);
  if (!stream) file->Release(allocator);
  return stream;
}

}  // namespace

IKD_FileStream* KD_CreateFileStream(const char* path, uint32_t modes, IKD_Allocator* allocator) {
  return MakeStream(CKD_ByteStringC(path, path ? static_cast<int>(strlen(path)) : 0), modes, allocator);
}

IKD_FileStream* KD_CreateFileStream(const wchar_t* path, uint32_t modes, IKD_Allocator* allocator) {
  return MakeStream(CKD_WideStringC(path, path ? static_cast<int>(wcslen(path)) : 0), modes, allocator);
}

IKD_FileRead* KD_CreateFileRead(const char* path, IKD_Allocator* allocator) {
  return KD_CreateFileStream(path, KD_FILEMODE_ReadOnly, allocator);
}

IKD_FileRead* KD_CreateFileRead(const wchar_t* path, IKD_Allocator* allocator) {
  return KD_CreateFileStream(path, KD_FILEMODE_ReadOnly, allocator);
}

IKD_FileWrite* KD_CreateFileWrite(const char* path, IKD_Allocator* allocator) {
  return KD_CreateFileStream(path, KD_FILEMODE_Truncate, allocator);
}

IKD_FileWrite* KD_CreateFileWrite(const wchar_t* path, IKD_Allocator* allocator) {
  return KD_CreateFileStream(path, KD_FILEMODE_Truncate, allocator);
}

// The named file access.

void CKD_CRTFileAccess::Release() {
  if (--m_nRefCount == 0) delete this;  // always the default manager, as the contract says
}

IKD_FileAccess* CKD_CRTFileAccess::Retain() {
  ++m_nRefCount;
  return this;
}

void CKD_CRTFileAccess::GetPath(CKD_WideString& path) { path = m_Path; }

IKD_FileStream* CKD_CRTFileAccess::CreateFileStream(uint32_t modes) {
  return KD_CreateFileStream(m_Path.c_str(), modes, m_pAllocator);
}

bool CKD_CRTFileAccess::Init(const CKD_WideStringC& path, IKD_Allocator* allocator) {
  m_Path = path;
  m_pAllocator = allocator;
  m_nRefCount = 1;
  return true;
}

IKD_FileAccess* KD_CreateDefaultFileAccess(const CKD_WideStringC& path, IKD_Allocator* allocator) {
  if (path.IsEmpty()) return nullptr;
  CKD_CRTFileAccess* access = kdmem::NewFrom<CKD_CRTFileAccess>(allocator);
  if (!access) return nullptr;
  access->Init(path, allocator);
  return access;
}
