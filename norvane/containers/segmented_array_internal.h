// Internal to the library: the walk over a segmented array's tree, shared by Iterate and by the
// containers built on the array, which inline their own per-element step instead of calling
// through a function pointer; and _ClearIndex, which frees a subtree.
#ifndef NORVANE_CONTAINERS_SEGMENTED_ARRAY_INTERNAL_H_
#define NORVANE_CONTAINERS_SEGMENTED_ARRAY_INTERNAL_H_

#include <cstddef>
#include <cstdint>

#include "norvane/containers/segmented_array.h"

// _ClearIndex frees the subtree of index, level levels deep (1: its entries are segments): every
// segment and table under it, then index itself. Null entries are skipped; a null index does
// nothing.
void _ClearIndex(IKD_Allocator* allocator, int level, int index_size, void** index);

struct KDSegmentedArrayWalk {
  // Segments calls visit(segment, count) for each segment in index order, with the number of
  // elements in use in it; the first non-null result ends the walk and is returned.
  template <class Visit>
  static void* Segments(const CKD_BaseSegmentedArray& a, Visit&& visit) {
    if (!a.m_pIndex || a.m_DataSize <= 0) return nullptr;
    if (a.m_IndexLevels == 0) return visit(static_cast<const uint8_t*>(a.m_pIndex), a.m_DataSize);
    int start = 0;
    return Index(a, a.m_IndexLevels, start, static_cast<void**>(a.m_pIndex), visit);
  }

  // Index walks the subtree of index depth-first, as CKD_BaseSegmentedArray::IterateIndex.
  template <class Visit>
  static void* Index(const CKD_BaseSegmentedArray& a, int level, int& start, void** index, Visit& visit) {
    for (int i = 0; i < a.m_IndexSize && start < a.m_DataSize; ++i) {
      void* entry = index[i];
      if (!entry) continue;
      void* found;
      if (level > 1) {
        found = Index(a, level - 1, start, static_cast<void**>(entry), visit);
      } else {
        int count = a.m_DataSize - start < a.m_SegmentUnits ? a.m_DataSize - start : a.m_SegmentUnits;
        found = visit(static_cast<const uint8_t*>(entry), count);
        start += count;
      }
      if (found) return found;
    }
    return nullptr;
  }

  // InSegment calls fn(element) for the first count elements of unit bytes at segment; the first
  // element for which fn returns false ends the walk and its address is returned.
  template <class Fn>
  static void* InSegment(const uint8_t* segment, int count, size_t unit, Fn& fn) {
    for (int i = 0; i < count; ++i) {
      void* element = const_cast<uint8_t*>(segment) + static_cast<size_t>(i) * unit;
      if (!fn(element)) return element;
    }
    return nullptr;
  }

  // Elements walks every element of a, whose unit size is unit, as InSegment does.
  template <class Fn>
  static void* Elements(const CKD_BaseSegmentedArray& a, size_t unit, Fn&& fn) {
    return Segments(a, [&](const uint8_t* segment, int count) { return InSegment(segment, count, unit, fn); });
  }
};

#endif  // NORVANE_CONTAINERS_SEGMENTED_ARRAY_INTERNAL_H_
