#include "norvane/containers/basic_array.h"

#include <climits>
#include <cstring>

#include "norvane/memory/memory_internal.h"

struct KDArrayLayout {
  static_assert(offsetof(CKD_BasicArray, m_pAllocator) == 0 && offsetof(CKD_BasicArray, m_pData) == 8 &&
                    offsetof(CKD_BasicArray, m_nSize) == 16 && offsetof(CKD_BasicArray, m_nMaxSize) == 20 &&
                    offsetof(CKD_BasicArray, m_nGrowBy) == 24 && offsetof(CKD_BasicArray, m_nUnitSize) == 28,
                "array field order");
  static_assert(sizeof(CKD_BasicArray) == 32, "array size");
};

namespace {

inline int ClampToInt(long long v) { return v > INT_MAX ? INT_MAX : static_cast<int>(v); }

}  // namespace

CKD_BasicArray::CKD_BasicArray(int unit_size, IKD_Allocator* allocator)
    : m_pAllocator(allocator),
      m_pData(nullptr),
      m_nSize(0),
      m_nMaxSize(0),
      m_nGrowBy(0),
      m_nUnitSize(static_cast<unsigned>(unit_size) > static_cast<unsigned>(kMaxBytes) ? 4 : unit_size) {}

CKD_BasicArray::CKD_BasicArray(const CKD_BasicArray& other, IKD_Allocator* allocator)
    : CKD_Object(),
      m_pAllocator(allocator),
      m_pData(nullptr),
      m_nSize(0),
      m_nMaxSize(0),
      m_nGrowBy(0),
      m_nUnitSize(other.m_nUnitSize) {
  if (SetSize(other.m_nSize, -1)) CopyFrom(m_pData, other, other.m_nSize);
}

CKD_BasicArray::~CKD_BasicArray() { FreeBlock(); }

void CKD_BasicArray::FreeBlock() {
  if (m_pData) kdmem::FreeTo(m_pAllocator, m_pData);
  m_pData = nullptr;
  m_nSize = 0;
  m_nMaxSize = 0;
}

void CKD_BasicArray::CopyFrom(uint8_t* dst, const CKD_BasicArray& src, int count) const {
  size_t want = static_cast<size_t>(count) * static_cast<size_t>(m_nUnitSize);
  size_t have = static_cast<size_t>(src.m_nSize) * static_cast<size_t>(src.m_nUnitSize);
  if (want > have) want = have;
  if (want) memmove(dst, src.m_pData, want);
}

bool CKD_BasicArray::SetSize(int new_size, int grow_by) {
  const size_t unit = static_cast<size_t>(m_nUnitSize);
  // Below zero or above the limit the array is emptied; this differs from a failed growth, which
  // keeps the array, and callers rely on the difference.
  if (new_size < 0 || (m_nUnitSize > 0 && new_size > kMaxBytes / m_nUnitSize)) {
    FreeBlock();
    return false;
  }
  if (grow_by >= 0) m_nGrowBy = grow_by;
  if (new_size == 0) {
    FreeBlock();
    return true;
  }
  if (!m_pData) {
    size_t bytes = static_cast<size_t>(new_size) * unit;
    void* block = kdmem::AllocFrom(m_pAllocator, bytes, 1);
    if (!block) {
      m_nSize = m_nMaxSize = 0;
      return false;
    }
    m_pData = static_cast<uint8_t*>(block);
    memset(m_pData, 0, bytes);
    m_nSize = m_nMaxSize = new_size;
    return true;
  }
  if (new_size <= m_nMaxSize) {
    if (new_size > m_nSize) memset(m_pData + m_nSize * unit, 0, (new_size - m_nSize) * unit);
    m_nSize = new_size;
    return true;
  }
  long long increment = m_nGrowBy != 0 ? m_nGrowBy : (m_nSize / 2 > 0 ? m_nSize / 2 : 1);
  long long capacity = m_nMaxSize + increment;
  if (capacity < new_size || capacity > INT_MAX) capacity = new_size;
  size_t bytes = static_cast<size_t>(capacity) * unit;
  void* block = kdmem::ReallocFrom(m_pAllocator, m_pData, bytes, 1);
  if (!block) return false;
  m_pData = static_cast<uint8_t*>(block);
  memset(m_pData + m_nSize * unit, 0, (static_cast<size_t>(capacity) - m_nSize) * unit);
  m_nSize = new_size;
  m_nMaxSize = static_cast<int>(capacity);
  return true;
}

bool CKD_BasicArray::Copy(const CKD_BasicArray& src) {
  if (&src == this) return true;
  if (!SetSize(src.m_nSize, -1)) return false;
  CopyFrom(m_pData, src, src.m_nSize);
  return true;
}

CKD_BasicArray& CKD_BasicArray::operator=(const CKD_BasicArray& src) {
  Copy(src);
  return *this;
}

bool CKD_BasicArray::Append(const CKD_BasicArray& src) {
  if (src.m_nSize == 0) return true;
  int old_size = m_nSize;
  int count = src.m_nSize;  // read first: src may be this array
  if (!SetSize(ClampToInt(static_cast<long long>(old_size) + count), -1)) return false;
  // When appending an array to itself, its old elements are still the first old_size ones.
  if (&src == this) {
    memmove(m_pData + static_cast<size_t>(old_size) * m_nUnitSize, m_pData,
            static_cast<size_t>(count) * m_nUnitSize);
  } else {
    CopyFrom(m_pData + static_cast<size_t>(old_size) * m_nUnitSize, src, count);
  }
  return true;
}

void* CKD_BasicArray::InsertSpaceAt(int index, int count) {
  if (index < 0 || count < 1) return nullptr;
  const size_t unit = static_cast<size_t>(m_nUnitSize);
  if (index < m_nSize) {
    int old_size = m_nSize;
    if (!SetSize(ClampToInt(static_cast<long long>(old_size) + count), -1)) return nullptr;
    memmove(m_pData + (index + count) * unit, m_pData + index * unit, (old_size - index) * unit);
    memset(m_pData + index * unit, 0, count * unit);
  } else if (!SetSize(ClampToInt(static_cast<long long>(index) + count), -1)) {
    return nullptr;
  }
  return m_pData + index * unit;
}

bool CKD_BasicArray::InsertAt(int start_index, const CKD_BasicArray* src) {
  if (!src) return false;
  if (src->m_nSize == 0) return true;
  if (src == this) {
    // The gap would move the elements being copied: insert from a copy.
    CKD_BasicArray copy(*this, m_pAllocator);
    return copy.m_nSize == m_nSize && InsertAt(start_index, &copy);
  }
  void* gap = InsertSpaceAt(start_index, src->m_nSize);
  if (!gap) return false;
  CopyFrom(static_cast<uint8_t*>(gap), *src, src->m_nSize);
  return true;
}

bool CKD_BasicArray::RemoveAt(int index, int count) {
  if (index < 0 || count < 1 || static_cast<long long>(index) + count > m_nSize) return false;
  const size_t unit = static_cast<size_t>(m_nUnitSize);
  memmove(m_pData + index * unit, m_pData + (index + count) * unit, (m_nSize - index - count) * unit);
  m_nSize -= count;
  return true;
}

void* CKD_BasicArray::GetDataPtr(int index) const {
  if (index < 0 || index >= m_nSize || !m_pData) return nullptr;
  return m_pData + static_cast<size_t>(index) * m_nUnitSize;
}
