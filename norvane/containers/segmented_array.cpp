#include "norvane/containers/segmented_array.h"

#include <cstring>

#include "norvane/containers/segmented_array_internal.h"
#include "norvane/memory/memory_internal.h"

struct KDSegmentedArrayLayout {
  static_assert(offsetof(CKD_BaseSegmentedArray, m_pAllocator) == 0 &&
                    offsetof(CKD_BaseSegmentedArray, m_UnitSize) == 8 &&
                    offsetof(CKD_BaseSegmentedArray, m_SegmentUnits) == 12 &&
                    offsetof(CKD_BaseSegmentedArray, m_IndexSize) == 14 &&
                    offsetof(CKD_BaseSegmentedArray, m_IndexLevels) == 15 &&
                    offsetof(CKD_BaseSegmentedArray, m_DataSize) == 16 && offsetof(CKD_BaseSegmentedArray, m_pIndex) == 24,
                "segmented array field order");
  static_assert(sizeof(CKD_BaseSegmentedArray) == 32, "segmented array size");
};

namespace {

// index_size^levels, or a value above any element count once it passes one.
unsigned long long Power(unsigned index_size, int levels) {
  unsigned long long p = 1;
  for (int i = 0; i < levels && p <= 0x7FFFFFFF; ++i) p *= index_size;
  return p;
}

void** NewTable(IKD_Allocator* allocator, unsigned index_size) {
  void* table = kdmem::AllocFrom(allocator, index_size, sizeof(void*));
  if (table) memset(table, 0, index_size * sizeof(void*));
  return static_cast<void**>(table);
}

}  // namespace

void _ClearIndex(IKD_Allocator* allocator, int level, int index_size, void** index) {
  if (!index) return;
  for (int i = 0; i < index_size; ++i) {
    if (!index[i]) continue;
    if (level > 1) {
      _ClearIndex(allocator, level - 1, index_size, static_cast<void**>(index[i]));
    } else {
      kdmem::FreeTo(allocator, index[i]);
    }
  }
  kdmem::FreeTo(allocator, index);
}

CKD_BaseSegmentedArray::CKD_BaseSegmentedArray(int unit_size, int segment_units, int index_size,
                                               IKD_Allocator* allocator)
    : m_pAllocator(allocator),
      m_UnitSize(unit_size),
      m_SegmentUnits(static_cast<int16_t>(segment_units)),
      m_IndexSize(static_cast<uint8_t>(index_size)),
      m_IndexLevels(0),
      m_DataSize(0),
      m_pIndex(nullptr) {}

CKD_BaseSegmentedArray::~CKD_BaseSegmentedArray() { RemoveAll(); }

void CKD_BaseSegmentedArray::SetUnitSize(int unit_size, int segment_units, int index_size) {
  // Elements already placed would be addressed with the new sizes, past their segments.
  if (m_DataSize > 0) return;
  RemoveAll();  // tables kept from deleted elements have the old index size
  m_UnitSize = unit_size;
  m_SegmentUnits = static_cast<int16_t>(segment_units);
  m_IndexSize = static_cast<uint8_t>(index_size);
}

void CKD_BaseSegmentedArray::RemoveAll() {
  if (m_pIndex) {
    if (m_IndexLevels == 0) {
      kdmem::FreeTo(m_pAllocator, m_pIndex);
    } else {
      _ClearIndex(m_pAllocator, m_IndexLevels, m_IndexSize, static_cast<void**>(m_pIndex));
    }
  }
  m_pIndex = nullptr;
  m_IndexLevels = 0;
  m_DataSize = 0;
}

void** CKD_BaseSegmentedArray::GetIndex(int segment) const {
  if (m_IndexLevels < 2) return static_cast<void**>(m_pIndex);
  // Deeper trees are walked from the root; a segment number outside the tree would index past a
  // table, so it has no table.
  const unsigned index_size = m_IndexSize;
  if (segment < 0 || static_cast<unsigned long long>(segment) >= Power(index_size, m_IndexLevels)) return nullptr;
  unsigned s = static_cast<unsigned>(segment);
  unsigned d = static_cast<unsigned>(Power(index_size, m_IndexLevels - 1));
  void** node = static_cast<void**>(m_pIndex);
  for (int level = m_IndexLevels; level > 1 && node; --level) {
    node = static_cast<void**>(node[s / d]);
    s %= d;
    d /= index_size;
  }
  return node;
}

uint8_t* CKD_BaseSegmentedArray::LocateDeep(unsigned segment) const {
  return static_cast<uint8_t*>(GetIndex(static_cast<int>(segment))[segment % m_IndexSize]);
}

void** CKD_BaseSegmentedArray::MakePath(unsigned segment) {
  const unsigned index_size = m_IndexSize;
  unsigned s = segment;
  unsigned d = static_cast<unsigned>(Power(index_size, m_IndexLevels - 1));
  void** node = static_cast<void**>(m_pIndex);
  for (int level = m_IndexLevels; level > 1; --level) {
    void*& entry = node[s / d];
    if (!entry) {
      // A table made here stays in the tree even if a later one fails: RemoveAll frees it.
      entry = NewTable(m_pAllocator, index_size);
      if (!entry) return nullptr;
    }
    node = static_cast<void**>(entry);
    s %= d;
    d /= index_size;
  }
  return node;
}

void* CKD_BaseSegmentedArray::AddSegment() {
  const int n = m_DataSize;
  if (m_UnitSize < 1 || m_SegmentUnits < 1 || n >= kMaxSize) return nullptr;
  const unsigned units = static_cast<unsigned>(m_SegmentUnits);
  const unsigned index_size = m_IndexSize;
  void* segment = kdmem::AllocFrom(m_pAllocator, static_cast<size_t>(m_UnitSize), units);
  if (!segment) return nullptr;
  if (!m_pIndex) {
    m_pIndex = segment;
    m_DataSize = 1;
    return segment;
  }
  // A second segment needs a table with room for two entries.
  bool stored = false;
  if (index_size >= 2) {
    const unsigned s = static_cast<unsigned>(n) / units;
    if (m_IndexLevels == 0) {
      void** table = NewTable(m_pAllocator, index_size);
      if (table) {
        table[0] = m_pIndex;
        table[1] = segment;
        m_pIndex = table;
        m_IndexLevels = 1;
        stored = true;
      }
    } else {
      bool room = true;
      if (s % index_size == 0 && static_cast<unsigned long long>(n) == units * Power(index_size, m_IndexLevels)) {
        // The tree is full: the old root becomes the first entry of a new one.
        void** root = NewTable(m_pAllocator, index_size);
        if (root) {
          root[0] = m_pIndex;
          m_pIndex = root;
          ++m_IndexLevels;
        }
        room = root != nullptr;
      }
      void** table = room ? MakePath(s) : nullptr;
      if (table) {
        table[s % index_size] = segment;
        stored = true;
      }
    }
  }
  if (!stored) {
    kdmem::FreeTo(m_pAllocator, segment);
    return nullptr;
  }
  m_DataSize = n + 1;
  return segment;
}

void CKD_BaseSegmentedArray::Delete(int index, int count) {
  if (index < 0 || count < 1 || static_cast<long long>(index) + count > m_DataSize) return;
  const int new_size = m_DataSize - count;
  const unsigned units = static_cast<unsigned>(m_SegmentUnits);
  const size_t unit = static_cast<size_t>(m_UnitSize);
  // Element i + count goes over element i in ascending order. A run that stays inside one
  // segment on both sides moves with one memmove, which gives the same bytes: where source and
  // destination overlap the destination lies below.
  for (int i = index; i < new_size;) {
    unsigned to_end = units - static_cast<unsigned>(i) % units;
    unsigned from_end = units - static_cast<unsigned>(i + count) % units;
    unsigned run = to_end < from_end ? to_end : from_end;
    if (run > static_cast<unsigned>(new_size - i)) run = static_cast<unsigned>(new_size - i);
    memmove(Locate(i), Locate(i + count), run * unit);
    i += static_cast<int>(run);
  }
  // Free the segments that lie wholly past the new size.
  if (m_IndexLevels == 0) {
    if (new_size == 0) {
      kdmem::FreeTo(m_pAllocator, m_pIndex);
      m_pIndex = nullptr;
    }
  } else {
    const unsigned first = (static_cast<unsigned>(new_size) + units - 1) / units;
    const unsigned end = (static_cast<unsigned>(m_DataSize) + units - 1) / units;
    for (unsigned s = first; s < end; ++s) {
      void** table = GetIndex(static_cast<int>(s));
      void*& entry = table[s % m_IndexSize];
      kdmem::FreeTo(m_pAllocator, entry);
      entry = nullptr;
    }
  }
  m_DataSize = new_size;
}

void* CKD_BaseSegmentedArray::Iterate(IterateCallback callback, void* param) const {
  if (!callback) return nullptr;
  return KDSegmentedArrayWalk::Segments(
      *this, [&](const uint8_t* segment, int count) { return IterateSegment(segment, count, callback, param); });
}

void* CKD_BaseSegmentedArray::IterateIndex(int level, int& start, void** index, IterateCallback callback,
                                           void* param) const {
  if (!callback || !index) return nullptr;
  auto visit = [&](const uint8_t* segment, int count) { return IterateSegment(segment, count, callback, param); };
  return KDSegmentedArrayWalk::Index(*this, level, start, index, visit);
}

void* CKD_BaseSegmentedArray::IterateSegment(const uint8_t* segment, int count, IterateCallback callback,
                                             void* param) const {
  auto call = [&](void* element) { return callback(param, element); };
  return KDSegmentedArrayWalk::InSegment(segment, count, static_cast<size_t>(m_UnitSize), call);
}
