#include "norvane/streams/cache_streams.h"

#include <cstring>

#include "norvane/memory/memory_mgr.h"

namespace {

inline size_t Min(size_t a, size_t b) { return a < b ? a : b; }

// Once more bytes were counted than its capacity holds, a limit cache's data size runs past its
// buffer: a read that would copy from beyond the capacity fails rather than leave the buffer.
inline bool InCapacity(size_t offset, size_t size, size_t capacity) {
  return offset <= capacity && size <= capacity - offset;
}

}  // namespace

// The limit cache stream.

CKD_LimitCacheStream::CKD_LimitCacheStream(size_t cache_size, size_t limit, size_t extra)
    : m_pBuffer(nullptr), m_nDataSize(0), m_nPosition(0), m_nCapacity(0) {
  if (cache_size != 0 && cache_size + extra >= cache_size && cache_size + extra <= limit) {
    m_pBuffer = static_cast<uint8_t*>(KDMEM_DefaultAlloc2(cache_size + extra, 1, 0));
    if (m_pBuffer) m_nCapacity = cache_size + extra;
  }
}

CKD_LimitCacheStream::~CKD_LimitCacheStream() { KDMEM_DefaultFree(m_pBuffer, 0); }

void CKD_LimitCacheStream::Release() { delete this; }
IKD_FileStream* CKD_LimitCacheStream::Retain() { return nullptr; }
bool CKD_LimitCacheStream::Flush() { return true; }
long long CKD_LimitCacheStream::GetSize() { return static_cast<long long>(m_nDataSize); }

bool CKD_LimitCacheStream::IsEOF() { return !m_pBuffer || m_nPosition >= m_nDataSize; }

long long CKD_LimitCacheStream::GetPosition() {
  return m_pBuffer ? static_cast<long long>(m_nPosition) : GetSize();
}

long long CKD_LimitCacheStream::SetPosition(long long pos) {
  if (!m_pBuffer) return GetSize();
  m_nPosition = static_cast<size_t>(pos);
  return pos;
}

bool CKD_LimitCacheStream::ReadBlock(void* buffer, long long offset, size_t size) {
  if (offset < 0 || !m_pBuffer || static_cast<size_t>(offset) > m_nDataSize || size > m_nDataSize - offset)
    return false;
  if (!buffer || !size) return true;
  if (!InCapacity(static_cast<size_t>(offset), size, m_nCapacity)) return false;
  memcpy(buffer, m_pBuffer + offset, size);
  return true;
}

size_t CKD_LimitCacheStream::ReadBlock(void* buffer, size_t size) {
  if (!m_pBuffer || m_nPosition >= m_nDataSize) return 0;
  size_t n = Min(size, m_nDataSize - m_nPosition);
  if (buffer && n && !InCapacity(m_nPosition, n, m_nCapacity)) return 0;
  if (buffer) memcpy(buffer, m_pBuffer + m_nPosition, n);
  m_nPosition += n;
  return n;
}

bool CKD_LimitCacheStream::WriteBlock(const void* data, long long offset, size_t size) {
  if (offset < 0 || static_cast<size_t>(offset) > m_nDataSize) return false;
  if (size == 0) return true;
  if (m_pBuffer && m_nDataSize + size <= m_nCapacity) {
    memmove(m_pBuffer + offset + size, m_pBuffer + offset, m_nDataSize - static_cast<size_t>(offset));
    if (data) memcpy(m_pBuffer + offset, data, size);
  }
  m_nDataSize += size;
  return true;
}

bool CKD_LimitCacheStream::WriteBlock(const void* data, size_t size) {
  if (size == 0) return true;
  if (m_pBuffer && data && m_nDataSize + size <= m_nCapacity) memcpy(m_pBuffer + m_nDataSize, data, size);
  m_nDataSize += size;
  return true;
}

// The continuous bytes cache.

CKD_ContinuousBytesCache::CKD_ContinuousBytesCache() : m_pBuffer(nullptr), m_nStart(0), m_nLength(0), m_nCapacity(0) {}

CKD_ContinuousBytesCache::~CKD_ContinuousBytesCache() { KDMEM_DefaultFree(m_pBuffer, 0); }

bool CKD_ContinuousBytesCache::Init(size_t capacity) {
  KDMEM_DefaultFree(m_pBuffer, 0);
  m_pBuffer = static_cast<uint8_t*>(KDMEM_DefaultAlloc2(capacity, 1, 0));
  m_nCapacity = m_pBuffer ? capacity : 0;
  if (m_pBuffer) memset(m_pBuffer, 0, capacity);
  m_nStart = 0;
  m_nLength = 0;
  return m_pBuffer != nullptr;
}

void CKD_ContinuousBytesCache::Fill(IKD_FileRead* file, long long offset, size_t size) {
  if (!file) return;
  if (m_pBuffer) memset(m_pBuffer, 0, m_nCapacity);
  size_t n = Min(m_nCapacity, size);
  if (m_pBuffer && n) file->ReadBlock(m_pBuffer, offset, n);
  m_nStart = 0;  // not offset: kept as readers of this cache expect
  m_nLength = n;
}

IKD_BytesCache::Span CKD_ContinuousBytesCache::Read(void* buffer, const Span& span) {
  const long long start = span.start;
  const long long end = span.start + static_cast<long long>(span.length);
  const long long cached_end = m_nStart + static_cast<long long>(m_nLength);
  if (end <= m_nStart || start >= cached_end) return Span{start, 0};
  long long from = start > m_nStart ? start : m_nStart;
  long long to = end < cached_end ? end : cached_end;
  if (buffer && m_pBuffer) {
    memcpy(static_cast<uint8_t*>(buffer) + (from - start), m_pBuffer + (from - m_nStart), static_cast<size_t>(to - from));
  }
  return Span{from, static_cast<size_t>(to - from)};
}

void CKD_ContinuousBytesCache::Write(const void* data, long long offset, size_t size) {
  if (!m_pBuffer) return;
  const uint8_t* bytes = static_cast<const uint8_t*>(data);
  const long long end = offset + static_cast<long long>(size);
  const bool in_front = end == m_nStart;
  const bool behind = m_nStart + static_cast<long long>(m_nLength) == offset;
  if (size < m_nCapacity && (in_front || behind)) {
    if (in_front && m_nStart > offset) {
      size_t keep = Min(m_nLength, m_nCapacity - size);
      memmove(m_pBuffer + size, m_pBuffer, keep);
      if (bytes) memcpy(m_pBuffer, bytes, size);
      m_nStart = offset;
      m_nLength = Min(m_nCapacity, size + m_nLength);
      return;
    }
    size_t room = m_nCapacity - m_nLength;
    if (room >= size) {
      if (bytes) memcpy(m_pBuffer + m_nLength, bytes, size);
      m_nLength += size;
      return;
    }
    // Slide: drop what does not fit from the front.
    size_t drop = size - room;
    size_t rest = m_nLength - drop;
    memmove(m_pBuffer, m_pBuffer + drop, rest);
    memset(m_pBuffer + rest, 0, m_nCapacity - rest);
    if (bytes) memcpy(m_pBuffer + rest, bytes, size);
    m_nStart += static_cast<long long>(drop);
    m_nLength = m_nCapacity;
    return;
  }
  // Not next to the cached run, or too big: keep the last bytes of data alone.
  memset(m_pBuffer, 0, m_nCapacity);
  size_t keep = Min(m_nCapacity, size);
  if (bytes) memcpy(m_pBuffer, bytes + (size - keep), keep);
  m_nLength = keep;
  m_nStart = end - static_cast<long long>(keep);
}

void CKD_ContinuousBytesCache::Clear() {
  m_nStart = 0;
  m_nLength = 0;
  if (m_pBuffer) memset(m_pBuffer, 0, m_nCapacity);
}

IKD_BytesCache* KD_CreateContinuousBytesCache(size_t capacity) {
  CKD_ContinuousBytesCache* cache = new CKD_ContinuousBytesCache;
  if (!cache) return nullptr;
  if (!cache->Init(capacity)) {
    delete cache;
    return nullptr;
  }
  return cache;
}
