#include "norvane/text/binary_buf.h"

#include <climits>
#include <cstring>

#include "norvane/memory/memory_internal.h"
#include "norvane/text/string_l.h"

struct KDBinaryBufLayout {
  static_assert(offsetof(CKD_BinaryBuf, m_pAllocator) == 0 && offsetof(CKD_BinaryBuf, m_AllocStep) == 8 &&
                    offsetof(CKD_BinaryBuf, m_pBuffer) == 16 && offsetof(CKD_BinaryBuf, m_DataSize) == 24 &&
                    offsetof(CKD_BinaryBuf, m_AllocSize) == 28,
                "binary buffer field order");
};

CKD_BinaryBuf::CKD_BinaryBuf(IKD_Allocator* allocator)
    : m_pAllocator(allocator), m_AllocStep(0), m_pBuffer(nullptr), m_DataSize(0), m_AllocSize(0) {}

CKD_BinaryBuf::CKD_BinaryBuf(int size, IKD_Allocator* allocator)
    : m_pAllocator(allocator), m_AllocStep(0), m_pBuffer(nullptr), m_DataSize(0), m_AllocSize(0) {
  if (size <= 0) return;
  void* block = kdmem::AllocFrom(allocator, static_cast<size_t>(size), 1);
  if (!block) return;
  m_pBuffer = static_cast<uint8_t*>(block);
  m_DataSize = m_AllocSize = size;
}

CKD_BinaryBuf::~CKD_BinaryBuf() { FreeBlock(); }

void CKD_BinaryBuf::FreeBlock() {
  if (!m_pBuffer) return;
  kdmem::FreeTo(m_pAllocator, m_pBuffer);
  m_pBuffer = nullptr;
}

void CKD_BinaryBuf::DetachBuffer() {
  m_pBuffer = nullptr;
  m_DataSize = 0;
}

void CKD_BinaryBuf::AttachData(void* data, int size) {
  FreeBlock();
  m_pBuffer = static_cast<uint8_t*>(data);
  m_DataSize = m_AllocSize = size;
}

void CKD_BinaryBuf::TakeOver(CKD_BinaryBuf& other) {
  if (&other == this) return;
  FreeBlock();
  m_pBuffer = other.m_pBuffer;
  m_DataSize = m_AllocSize = other.m_DataSize;
  other.m_pBuffer = nullptr;
  other.m_DataSize = other.m_AllocSize = 0;
}

bool CKD_BinaryBuf::EstimateSize(int size, int step) {
  m_AllocStep = step;
  if (size <= 0 || (m_pBuffer && m_AllocSize >= size)) return true;
  return ExpandBuf(size - m_DataSize);
}

bool CKD_BinaryBuf::ExpandBuf(int addSize) {
  long long needed = static_cast<long long>(m_DataSize) + addSize;
  // A detached buffer keeps its old alloc size but has no room at all.
  if ((m_pBuffer ? m_AllocSize : 0) >= needed) return true;
  long long step = m_AllocStep > 0 ? m_AllocStep : (m_AllocSize / 4 > 128 ? m_AllocSize / 4 : 128);
  long long size = needed + step - 1;
  size -= size % step;
  if (size > INT_MAX) return false;
  void* block = m_pBuffer ? kdmem::ReallocFrom(m_pAllocator, m_pBuffer, static_cast<size_t>(size), 1)
                          : kdmem::AllocFrom(m_pAllocator, static_cast<size_t>(size), 1);
  if (!block) return false;
  m_pBuffer = static_cast<uint8_t*>(block);
  m_AllocSize = static_cast<int>(size);
  return true;
}

bool CKD_BinaryBuf::CopyData(const void* data, int size) {
  if (size < 0) return false;
  if (size == 0) {
    m_DataSize = 0;
    return true;
  }
  // Growth keeps the old contents and size until it has succeeded, so a failure loses nothing.
  if ((!m_pBuffer || m_AllocSize < size) && !ExpandBuf(size - m_DataSize)) return false;
  if (data) memmove(m_pBuffer, data, static_cast<size_t>(size));
  m_DataSize = size;
  return true;
}

namespace {

// The data appended or inserted may lie in the buffer's own block (buf.AppendBlock(buf.GetBuffer(),
// n)), and growth may move the block. OffsetInBlock gives the data's offset in the block, or -1
// when it lies elsewhere, so the bytes are read from where the block ends up.
long long OffsetInBlock(const CKD_BinaryBuf& buf, const void* data) {
  auto at = reinterpret_cast<uintptr_t>(data), base = reinterpret_cast<uintptr_t>(buf.GetBuffer());
  if (!base || at < base || at - base >= static_cast<uintptr_t>(buf.GetAllocSize())) return -1;
  return static_cast<long long>(at - base);
}

}  // namespace

bool CKD_BinaryBuf::AppendBlock(const void* data, int size) {
  if (size < 0) return false;
  if (size == 0) return true;
  long long own = OffsetInBlock(*this, data);
  if (!ExpandBuf(size)) return false;
  if (own >= 0)
    memmove(m_pBuffer + m_DataSize, m_pBuffer + own, static_cast<size_t>(size));
  else if (data)
    memcpy(m_pBuffer + m_DataSize, data, static_cast<size_t>(size));
  m_DataSize += size;
  return true;
}

bool CKD_BinaryBuf::InsertBlock(int pos, const void* data, int size) {
  if (size < 0) return false;
  if (size == 0) return true;
  long long own = OffsetInBlock(*this, data);
  if (!ExpandBuf(size)) return false;
  memmove(m_pBuffer + pos + size, m_pBuffer + pos, static_cast<size_t>(m_DataSize - pos));
  if (own >= 0) {
    // Of the buffer's own bytes, those below pos stayed; those from pos on now stand size higher.
    long long below = pos - own;
    if (below < 0) below = 0;
    if (below > size) below = size;
    memmove(m_pBuffer + pos, m_pBuffer + own, static_cast<size_t>(below));
    memmove(m_pBuffer + pos + below, m_pBuffer + own + below + size, static_cast<size_t>(size - below));
  } else if (data) {
    memcpy(m_pBuffer + pos, data, static_cast<size_t>(size));
  }
  m_DataSize += size;
  return true;
}

bool CKD_BinaryBuf::AppendFill(uint8_t byte, int count) {
  if (count < 0) return false;
  if (count == 0) return true;
  if (!ExpandBuf(count)) return false;
  memset(m_pBuffer + m_DataSize, byte, static_cast<size_t>(count));
  m_DataSize += count;
  return true;
}

void CKD_BinaryBuf::Delete(int start, int count) {
  if (start < 0 || count < 0 || !m_pBuffer || static_cast<long long>(start) + count > m_DataSize) return;
  memmove(m_pBuffer + start, m_pBuffer + start + count, static_cast<size_t>(m_DataSize - start - count));
  m_DataSize -= count;
}

void CKD_BinaryBuf::GetByteStringL(CKD_ByteStringL& out) const { out.Set(GetByteString(), m_pAllocator); }

CKD_ByteString& CKD_ByteString::operator=(const CKD_BinaryBuf& buf) {
  AssignCopy(buf.GetSize(), reinterpret_cast<const char*>(buf.GetBuffer()));
  return *this;
}
