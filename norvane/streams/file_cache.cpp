#include "norvane/streams/file_cache.h"

#include <cstring>
#include <new>

#include "norvane/memory/memory_internal.h"
#include "norvane/runtime/kdcrt_thread_internal.h"

namespace {

inline long long Min(long long a, long long b) { return a < b ? a : b; }

}  // namespace

// The chunk cache.

CKD_FileCache::CKD_FileCache(IKD_Allocator* allocator)
    : m_pAllocator(allocator),
      m_nChunkSize(0),
      m_nChunkCount(0),
      m_nUsedCount(0),
      m_nCurIndex(0),
      m_nAccess(0),
      m_pChunks(nullptr) {}

CKD_FileCache::~CKD_FileCache() { Empty(); }

void CKD_FileCache::Empty() {
  if (m_pChunks) kdmem::FreeTo(m_pAllocator, m_pChunks);
  m_pChunks = nullptr;
}

bool CKD_FileCache::InitChunk(int chunk_size, int chunk_count, uint8_t* buffer) {
  if (!buffer) return true;
  Empty();
  m_nUsedCount = m_nCurIndex = 0;
  if (chunk_size < 1 || chunk_count < 1) {
    m_nChunkSize = m_nChunkCount = 0;  // nothing to cache in
    return true;
  }
  void* table = kdmem::AllocFrom(m_pAllocator, static_cast<size_t>(chunk_count), sizeof(KD_CACHECHUNK));
  if (!table) return false;
  m_pChunks = static_cast<KD_CACHECHUNK*>(table);
  m_nChunkSize = chunk_size;
  m_nChunkCount = chunk_count;
  memset(m_pChunks, 0, static_cast<size_t>(chunk_count) * sizeof(KD_CACHECHUNK));
  for (int i = 0; i < chunk_count; ++i) m_pChunks[i].m_pBuffer = buffer + static_cast<size_t>(i) * chunk_size;
  return true;
}

void CKD_FileCache::Clear() {
  m_nCurIndex = 0;
  for (int i = 0; i < m_nUsedCount; ++i) {
    m_pChunks[i].m_nOffset = 0;
    m_pChunks[i].m_nStamp = 0;
  }
  m_nUsedCount = 0;
}

bool CKD_FileCache::SearchChunk(int& index, long long chunk_offset) {
  if (m_nUsedCount == 0) {
    index = 0;
    return false;
  }
  int cur = m_nCurIndex < m_nUsedCount ? m_nCurIndex : m_nUsedCount - 1;
  long long at = m_pChunks[cur].m_nOffset;
  if (at == chunk_offset) {
    index = cur;
    return true;
  }
  // The table is sorted: search the side of the last hit the offset must be on.
  int low = at > chunk_offset ? 0 : cur + 1;
  int high = at > chunk_offset ? cur - 1 : m_nUsedCount - 1;
  while (low <= high) {
    int mid = (low + high) / 2;
    long long offset = m_pChunks[mid].m_nOffset;
    if (offset == chunk_offset) {
      index = mid;
      return true;
    }
    if (offset < chunk_offset)
      low = mid + 1;
    else
      high = mid - 1;
  }
  index = low;
  return false;
}

int CKD_FileCache::FindMiniRefChunk() {
  int best = 0;
  for (int i = 1; i < m_nChunkCount; ++i) {
    if (m_pChunks[i].m_nStamp < m_pChunks[best].m_nStamp) best = i;
  }
  return best;
}

void CKD_FileCache::CacheChunk(int& index, long long chunk_offset, IKD_FileRead* file) {
  int victim;
  if (m_nUsedCount < m_nChunkCount)
    victim = m_nUsedCount++;
  else
    victim = m_nChunkCount < 1 ? 0 : FindMiniRefChunk();
  KD_CACHECHUNK record = m_pChunks[victim];
  long long size = Min(file->GetSize() - chunk_offset, m_nChunkSize);
  if (size > 0) file->ReadBlock(record.m_pBuffer, chunk_offset, static_cast<size_t>(size));
  record.m_nOffset = chunk_offset;
  // Keep the records sorted by offset: move the ones between the victim's slot and the place.
  int place = index;
  if (place < victim) {
    memmove(m_pChunks + place + 1, m_pChunks + place, static_cast<size_t>(victim - place) * sizeof(KD_CACHECHUNK));
  } else if (place > victim + 1) {
    memmove(m_pChunks + victim, m_pChunks + victim + 1, static_cast<size_t>(place - victim - 1) * sizeof(KD_CACHECHUNK));
    place -= 1;
  } else {
    place = victim;
  }
  m_pChunks[place] = record;
  index = place;
}

void CKD_FileCache::Touch(int index) {
  m_pChunks[index].m_nStamp = ++m_nAccess;
  m_nCurIndex = index;
}

bool CKD_FileCache::ReadBlock(IKD_FileRead* file, void* buffer, long long offset, size_t size) {
  if (!m_pChunks) return file->ReadBlock(buffer, offset, size);
  uint8_t* out = static_cast<uint8_t*>(buffer);
  long long chunk_offset = offset - offset % m_nChunkSize;
  int index;
  bool found = SearchChunk(index, chunk_offset);
  for (;;) {
    if (!found) CacheChunk(index, chunk_offset, file);
    size_t n = static_cast<size_t>(m_nChunkSize - (offset - chunk_offset));
    if (n > size) n = size;
    if (out && m_pChunks[index].m_pBuffer) memcpy(out, m_pChunks[index].m_pBuffer + (offset - chunk_offset), n);
    Touch(index);
    size -= n;
    if (size == 0) break;
    if (out) out += n;
    offset += static_cast<long long>(n);
    chunk_offset += m_nChunkSize;
    ++index;
    found = index < m_nUsedCount && m_pChunks[index].m_nOffset == chunk_offset;
  }
  return true;
}

bool CKD_FileCache::PreCache(IKD_FileRead* file, long long offset, int count) {
  if (!m_pChunks || offset < 0 || count < 1) return false;
  const long long file_size = file->GetSize();
  if (offset >= file_size) return false;
  long long chunk_offset = offset - offset % m_nChunkSize;
  for (int i = 0; i < count && chunk_offset < file_size; ++i, chunk_offset += m_nChunkSize) {
    int index;
    if (!SearchChunk(index, chunk_offset)) CacheChunk(index, chunk_offset, file);
    Touch(index);
  }
  return true;
}

// The cached reader.

CKD_CachedFileRead::CKD_CachedFileRead() : m_pData(nullptr), m_nRefCount(1) { KD_Mutex_Initialize(&m_Lock); }

CKD_CachedFileRead::~CKD_CachedFileRead() {
  if (m_pData) {
    IKD_Allocator* allocator = m_pData->m_Cache.m_pAllocator;
    if (m_pData->m_bTakeOver && m_pData->m_pFile) m_pData->m_pFile->Release();
    m_pData->~CKD_CachedData();
    kdmem::FreeTo(allocator, m_pData);
  }
  KD_Mutex_Destroy(&m_Lock);
}

bool CKD_CachedFileRead::Init(int chunk_size, int chunk_count, void* buffer, IKD_Allocator* allocator) {
  KDCRT_MutexLock lock(&m_Lock);
  if (m_pData) return false;
  void* p = kdmem::AllocFrom(allocator, sizeof(CKD_CachedData), 1);
  if (!p) return false;
  m_pData = ::new (p) CKD_CachedData{CKD_FileCache(allocator), nullptr, 0, false};
  if (!buffer) return true;
  if (chunk_size < 4096) chunk_size = chunk_count = 0;
  return m_pData->m_Cache.InitChunk(chunk_size, chunk_count, static_cast<uint8_t*>(buffer));
}

bool CKD_CachedFileRead::AttachFile(IKD_FileRead* file, bool take_over) {
  KDCRT_MutexLock lock(&m_Lock);
  if (!m_pData) return false;
  if (m_pData->m_bTakeOver && m_pData->m_pFile && m_pData->m_pFile != file) m_pData->m_pFile->Release();
  m_pData->m_pFile = file;
  m_pData->m_bTakeOver = take_over;
  m_pData->m_Cache.m_nCurIndex = 0;
  m_pData->m_Cache.m_nAccess = 0;
  m_pData->m_Cache.Clear();
  return true;
}

bool CKD_CachedFileRead::PreCache(long long offset, int count) {
  KDCRT_MutexLock lock(&m_Lock);
  return m_pData && m_pData->m_pFile && m_pData->m_Cache.PreCache(m_pData->m_pFile, offset, count);
}

void CKD_CachedFileRead::Release() {
  if (!KDCRT_DropReference(&m_Lock, m_nRefCount)) return;
  kdmem::DeleteTo(m_pData ? m_pData->m_Cache.m_pAllocator : nullptr, this);
}

IKD_FileStream* CKD_CachedFileRead::Retain() {
  KDCRT_AddReference(&m_Lock, m_nRefCount);
  return this;
}

long long CKD_CachedFileRead::GetSize() {
  KDCRT_MutexLock lock(&m_Lock);
  return m_pData && m_pData->m_pFile ? m_pData->m_pFile->GetSize() : 0;
}

long long CKD_CachedFileRead::GetPosition() {
  KDCRT_MutexLock lock(&m_Lock);
  return m_pData ? m_pData->m_nPosition : 0;
}

bool CKD_CachedFileRead::IsEOF() {
  KDCRT_MutexLock lock(&m_Lock);
  if (!m_pData || !m_pData->m_pFile) return true;
  return m_pData->m_nPosition == m_pData->m_pFile->GetSize();
}

bool CKD_CachedFileRead::ReadBlock(void* buffer, long long offset, size_t size) {
  KDCRT_MutexLock lock(&m_Lock);
  if (!m_pData || !m_pData->m_pFile || offset < 0 || size == 0) return false;
  long long file_size = m_pData->m_pFile->GetSize();
  if (size > static_cast<size_t>(file_size) || offset > file_size - static_cast<long long>(size)) return false;
  if (!m_pData->m_Cache.ReadBlock(m_pData->m_pFile, buffer, offset, size)) return false;
  // Kept to 32 bits, sign-extended, as readers of this stream have always seen it.
  m_pData->m_nPosition = static_cast<int32_t>(offset + static_cast<long long>(size));
  return true;
}

size_t CKD_CachedFileRead::ReadBlock(void* buffer, size_t size) {
  KDCRT_MutexLock lock(&m_Lock);
  if (!m_pData || !m_pData->m_pFile) return 0;
  long long position = m_pData->m_nPosition;
  long long left = m_pData->m_pFile->GetSize() - position;
  if (left == 0) return 0;
  size_t n = left < 0 || static_cast<size_t>(left) > size ? size : static_cast<size_t>(left);
  return ReadBlock(buffer, position, n) ? n : 0;
}

bool CKD_CachedFileRead::WriteBlock(const void*, long long, size_t) { return false; }

bool CKD_CachedFileRead::Flush() { return false; }
