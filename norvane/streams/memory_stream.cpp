#include "norvane/streams/memory_stream.h"

#include <cstring>

#include "norvane/memory/memory_internal.h"
#include "norvane/runtime/kdcrt_thread_internal.h"

namespace {

inline size_t Min(size_t a, size_t b) { return a < b ? a : b; }

}  // namespace

CKD_MemoryStream::CKD_MemoryStream(bool consecutive, IKD_Allocator* allocator)
    : m_Blocks(allocator),
      m_nRefCount(1),
      m_nTotalSize(0),
      m_nCurSize(0),
      m_nCurPos(0),
      m_nGrowSize(kDefaultGrowSize),
      m_dwModes((consecutive ? kConsecutive : 0) | kOwnsBuffers),
      m_bUseRange(false),
      m_nRangeOffset(0),
      m_nRangeSize(0) {
  KD_Mutex_Initialize(&m_Lock);
}

CKD_MemoryStream::CKD_MemoryStream(uint8_t* buffer, size_t size, bool take_over, IKD_Allocator* allocator)
    : m_Blocks(allocator),
      m_nRefCount(1),
      m_nTotalSize(size),
      m_nCurSize(size),
      m_nCurPos(0),
      m_nGrowSize(kDefaultGrowSize),
      m_dwModes(kConsecutive | (take_over ? kOwnsBuffers : 0)),
      m_bUseRange(false),
      m_nRangeOffset(0),
      m_nRangeSize(0) {
  KD_Mutex_Initialize(&m_Lock);
  if (!m_Blocks.Add(buffer)) m_nTotalSize = m_nCurSize = 0;  // without a place to keep it, no buffer
}

CKD_MemoryStream::~CKD_MemoryStream() {
  if (m_dwModes & kOwnsBuffers) {
    for (int i = 0; i < m_Blocks.GetSize(); ++i) FreeBlock(m_Blocks[i]);
  }
  m_Blocks.RemoveAll();
  KD_Mutex_Destroy(&m_Lock);
}

uint8_t* CKD_MemoryStream::AllocBlock(size_t size) {
  return static_cast<uint8_t*>(kdmem::AllocFrom(m_Blocks.GetAllocator(), size, 1));
}

void CKD_MemoryStream::FreeBlock(uint8_t* block) {
  if (block) kdmem::FreeTo(m_Blocks.GetAllocator(), block);
}

void CKD_MemoryStream::Release() {
  if (KDCRT_DropReference(&m_Lock, m_nRefCount)) kdmem::DeleteTo(m_Blocks.GetAllocator(), this);
}

IKD_FileStream* CKD_MemoryStream::Retain() {
  KDCRT_AddReference(&m_Lock, m_nRefCount);
  return this;
}

long long CKD_MemoryStream::GetSize() {
  KDCRT_MutexLock lock(&m_Lock);
  return static_cast<long long>(m_bUseRange ? m_nRangeSize : m_nCurSize);
}

long long CKD_MemoryStream::GetPosition() {
  KDCRT_MutexLock lock(&m_Lock);
  return static_cast<long long>(m_nCurPos - (m_bUseRange ? m_nRangeOffset : 0));
}

bool CKD_MemoryStream::IsEOF() {
  KDCRT_MutexLock lock(&m_Lock);
  // The stored position (range offset included) against the range-relative size.
  return static_cast<long long>(m_nCurPos) >= GetSize();
}

long long CKD_MemoryStream::SetPosition(long long pos) {
  KDCRT_MutexLock lock(&m_Lock);
  if (GetSize() < pos) return -1;
  m_nCurPos = static_cast<size_t>(pos) + (m_bUseRange ? m_nRangeOffset : 0);
  return pos;
}

bool CKD_MemoryStream::SetRange(long long offset, long long size) {
  KDCRT_MutexLock lock(&m_Lock);
  if (offset < 0 || offset + size > static_cast<long long>(m_nCurSize)) return false;
  m_nRangeOffset = static_cast<size_t>(offset);
  m_nRangeSize = static_cast<size_t>(size);
  m_bUseRange = true;
  m_nCurPos = static_cast<size_t>(offset);
  return true;
}

void CKD_MemoryStream::ClearRange() {
  KDCRT_MutexLock lock(&m_Lock);
  m_bUseRange = false;
}

bool CKD_MemoryStream::Flush() { return true; }

bool CKD_MemoryStream::IsConsecutive() const { return (m_dwModes & kConsecutive) != 0; }

uint8_t* CKD_MemoryStream::FirstBlock() const { return m_Blocks.GetSize() ? m_Blocks[0] : nullptr; }

uint8_t* CKD_MemoryStream::GetBuffer() const {
  KDCRT_MutexLock lock(&m_Lock);
  return FirstBlock();
}

void CKD_MemoryStream::CopyChunked(uint8_t* memory, size_t offset, size_t size, bool to_blocks) {
  size_t index = offset / m_nGrowSize;
  size_t in_block = offset % m_nGrowSize;
  while (size) {
    size_t n = Min(m_nGrowSize - in_block, size);
    uint8_t* block = index < static_cast<size_t>(m_Blocks.GetSize()) ? m_Blocks[static_cast<int>(index)] : nullptr;
    if (block) {
      if (to_blocks)
        memcpy(block + in_block, memory, n);
      else
        memcpy(memory, block + in_block, n);
    }
    memory += n;
    size -= n;
    in_block = 0;
    ++index;
  }
}

bool CKD_MemoryStream::ReadBlock(void* buffer, long long offset, size_t size) {
  KDCRT_MutexLock lock(&m_Lock);
  if (offset < 0 || !buffer || size == 0) return false;
  size_t start = static_cast<size_t>(offset) + (m_bUseRange ? m_nRangeOffset : 0);
  if (start + size > m_nCurSize || start + size < start) return false;
  m_nCurPos = start + size;
  if (m_dwModes & kConsecutive) {
    if (uint8_t* data = FirstBlock()) memcpy(buffer, data + start, size);
  } else {
    CopyChunked(static_cast<uint8_t*>(buffer), start, size, false);
  }
  return true;
}

size_t CKD_MemoryStream::ReadBlock(void* buffer, size_t size) {
  KDCRT_MutexLock lock(&m_Lock);
  if (m_nCurSize <= m_nCurPos) return 0;
  if (m_bUseRange) size = Min(size, m_nRangeOffset + m_nRangeSize - m_nCurPos);
  size_t n = Min(size, m_nCurSize - m_nCurPos);
  // The stored position goes in as an offset, truncated to 32 bits, and the range offset is
  // added to it again: both are kept for compatibility.
  long long position = static_cast<int32_t>(m_nCurPos);
  return ReadBlock(buffer, position, n) ? n : 0;
}

bool CKD_MemoryStream::GrowChunks(size_t end) {
  if (m_nCurSize < end) m_nCurSize = end;  // counted even if the growth below fails
  if (m_nTotalSize >= end) return true;
  size_t count = (end - m_nTotalSize + m_nGrowSize - 1) / m_nGrowSize;
  int first = m_Blocks.GetSize();
  if (count > static_cast<size_t>(CKD_BasicArray::kMaxBytes) || !m_Blocks.SetSize(first + static_cast<int>(count), -1))
    return false;
  for (size_t i = 0; i < count; ++i) {
    uint8_t* block = AllocBlock(m_nGrowSize);
    if (!block) {
      // Keep the blocks made so far, and only them, so block indexes stay offset / grow size.
      m_Blocks.SetSize(first + static_cast<int>(i), -1);
      return false;
    }
    m_Blocks[first + static_cast<int>(i)] = block;
    m_nTotalSize += m_nGrowSize;
  }
  return true;
}

bool CKD_MemoryStream::WriteBlock(const void* data, long long offset, size_t size) {
  KDCRT_MutexLock lock(&m_Lock);
  if (!data || size == 0) return false;
  if (m_bUseRange) offset += static_cast<long long>(m_nRangeOffset);
  if (offset < 0) return false;  // would write before the buffer
  const size_t start = static_cast<size_t>(offset);
  const size_t end = start + size;
  if (end < start) return false;
  if (!(m_dwModes & kConsecutive)) {
    if (!GrowChunks(end)) return false;
    m_nCurPos = end;
    CopyChunked(const_cast<uint8_t*>(static_cast<const uint8_t*>(data)), start, size, true);
    return true;
  }
  m_nCurPos = end;
  if (end > m_nTotalSize) {
    m_nTotalSize = (end + m_nGrowSize - 1) / m_nGrowSize * m_nGrowSize;
    uint8_t* old = FirstBlock();
    uint8_t* grown = nullptr;
    if (old && (m_dwModes & kOwnsBuffers)) {
      grown = static_cast<uint8_t*>(kdmem::ReallocFrom(m_Blocks.GetAllocator(), old, m_nTotalSize, 1));
      if (!grown) FreeBlock(old);  // the block array is emptied below: do not leak the old buffer
    } else {
      // A caller's buffer the stream does not own is never resized: its contents move to a
      // buffer of the stream's own.
      grown = AllocBlock(m_nTotalSize);
      if (grown && old) memcpy(grown, old, m_nCurSize);
      if (grown) m_dwModes |= kOwnsBuffers;
    }
    if (!grown) {
      m_Blocks.RemoveAll();
      return false;
    }
    if (m_Blocks.GetSize()) {
      m_Blocks[0] = grown;
    } else if (!m_Blocks.Add(grown)) {
      FreeBlock(grown);  // no room to record it
      return false;
    }
  }
  // After a failed growth the total size stays counted but there is no buffer: a write that ends
  // inside that size has nowhere to go and fails instead of copying through a null pointer.
  uint8_t* buffer = FirstBlock();
  if (!buffer) return false;
  memcpy(buffer + start, data, size);
  if (m_nCurSize < m_nCurPos) m_nCurSize = m_nCurPos;
  return true;
}

void CKD_MemoryStream::EstimateSize(size_t initial_size, size_t grow_size) {
  KDCRT_MutexLock lock(&m_Lock);
  size_t g = grow_size > 4096 ? grow_size : 4096;
  if (!(m_dwModes & kConsecutive)) {
    if (m_Blocks.GetSize() == 0) m_nGrowSize = g;
    return;
  }
  if (m_Blocks.GetSize() == 0) {
    // The total size stays: the first write resizes this buffer to its rounded size.
    uint8_t* buffer = AllocBlock(initial_size > 4096 ? initial_size : 4096);
    if (buffer && !m_Blocks.Add(buffer)) FreeBlock(buffer);
  }
  m_nGrowSize = g;
}

void CKD_MemoryStream::AttachBuffer(uint8_t* buffer, size_t size, bool take_over) {
  KDCRT_MutexLock lock(&m_Lock);
  if (!(m_dwModes & kConsecutive)) return;
  m_Blocks.RemoveAll();  // a buffer owned until now is the caller's to free (see GetBuffer)
  if (!m_Blocks.Add(buffer)) size = 0;
  m_nTotalSize = m_nCurSize = size;
  m_nCurPos = 0;
  m_dwModes = kConsecutive | (take_over ? kOwnsBuffers : 0);
  ClearRange();
}

void CKD_MemoryStream::DetachBuffer() {
  KDCRT_MutexLock lock(&m_Lock);
  if (!(m_dwModes & kConsecutive)) return;
  m_Blocks.RemoveAll();
  m_nTotalSize = m_nCurSize = m_nCurPos = 0;
  m_dwModes = kOwnsBuffers;  // from now on a chunked stream that owns what it allocates
  ClearRange();
}

IKD_MemoryStream* KD_CreateMemoryStream(bool consecutive, IKD_Allocator* allocator) {
  return kdmem::NewFrom<CKD_MemoryStream>(allocator, consecutive, allocator);
}

IKD_MemoryStream* KD_CreateMemoryStream(uint8_t* buffer, size_t size, bool take_over, IKD_Allocator* allocator) {
  return kdmem::NewFrom<CKD_MemoryStream>(allocator, buffer, size, take_over, allocator);
}
