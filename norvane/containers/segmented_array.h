// CKD_BaseSegmentedArray: an append-oriented array whose elements never move once added. Elements
// live in segments of a fixed number of units; segments are reached through a tree of index
// tables of a fixed number of pointers, which gains a level whenever it is full. Callers may
// therefore keep pointers to elements while the array grows.
//
// Shape: with 0 levels the root is the one segment; with L levels the root is an index table whose
// entries point to tables of the next level and so on, the last level pointing to segments.
// Unused entries are null. A tree of L levels holds segment units * index size^L elements.
//
// Segments and tables come from the allocator given at construction, or (null) from the default
// manager. Add leaves the new element's bytes as they are. Delete moves the elements behind the
// removed run down one by one and frees whole segments past the new end; index tables stay until
// RemoveAll or destruction.
//
// CKD_SegmentedArray<T, kSegmentUnits, kIndexSize>, below, is the typed layer with the shape fixed
// at compile time.
//
// Failure is a null result (Add) or no effect. A shape that cannot hold elements (unit size or
// segment units below 1) makes every Add fail, and an index size below 2 limits the array to its
// first segment: such a table could not hold the two entries a second segment needs.
#ifndef NORVANE_CONTAINERS_SEGMENTED_ARRAY_H_
#define NORVANE_CONTAINERS_SEGMENTED_ARRAY_H_

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "norvane/config.h"
#include "norvane/memory/memory_mgr.h"
#include "norvane/memory/object.h"

// CKD_BaseSegmentedArray is the untyped segmented array described above: it owns its segments and
// index tables; elements never move while it grows.
class NORVANE_API CKD_BaseSegmentedArray : public CKD_Object {
 public:
  // An Iterate callback: called with Iterate's param and an element's address; false stops the
  // walk at that element.
  typedef bool (*IterateCallback)(void* param, void* element);

  // Keeps segment_units as 16 bits and index_size as 8 bits, as the fields hold them; the array
  // starts empty (0 levels, no root).
  CKD_BaseSegmentedArray(int unit_size, int segment_units, int index_size, IKD_Allocator* allocator = nullptr);
  ~CKD_BaseSegmentedArray();
  CKD_BaseSegmentedArray(const CKD_BaseSegmentedArray&) = delete;
  CKD_BaseSegmentedArray& operator=(const CKD_BaseSegmentedArray&) = delete;

  // SetUnitSize replaces the three sizes of an empty array, freeing index tables left from
  // earlier elements. An array that holds elements is left as it is: its segments and tables
  // have the old sizes.
  void SetUnitSize(int unit_size, int segment_units, int index_size);

  // Add appends one element and returns its address (its bytes not cleared); null when memory
  // runs out or the shape cannot hold another element.
  void* Add() {
    const int n = m_DataSize;
    // Inside the last segment no memory is needed.
    if (n > 0 && n < kMaxSize && m_SegmentUnits > 0) {
      unsigned segment, offset;
      Split(static_cast<unsigned>(n), static_cast<unsigned>(m_SegmentUnits), segment, offset);
      if (offset != 0) {
        m_DataSize = n + 1;
        return Locate(n);
      }
    }
    return AddSegment();
  }

  // GetAt returns element index's address, or null when index < 0 or index >= GetSize().
  void* GetAt(int index) const {
    if (static_cast<unsigned>(index) >= static_cast<unsigned>(m_DataSize)) return nullptr;
    return Locate(index);
  }

  // GetIndex returns the last-level index table that holds segment number segment: the root
  // itself with 0 or 1 levels (with 0 levels the root is a segment), and below that the table
  // reached by walking the tree as GetAt does. Null when the tree has no such table.
  void** GetIndex(int segment) const;

  // Delete removes count elements from index on; nothing happens for index < 0, count < 1 or a
  // run past the end. Segments wholly past the new size are freed; index tables are kept.
  void Delete(int index, int count);

  // RemoveAll frees every segment and index table: the array is empty with 0 levels.
  void RemoveAll();

  // Iterate calls callback(param, element) for the elements in index order. It returns the
  // address of the first element for which callback returned false, or null when it returned
  // true for all of them (or there were none).
  void* Iterate(IterateCallback callback, void* param) const;

  int GetSize() const { return m_DataSize; }
  int GetUnitSize() const { return m_UnitSize; }
  int GetSegmentUnits() const { return m_SegmentUnits; }
  int GetIndexSize() const { return m_IndexSize; }
  int GetIndexLevels() const { return m_IndexLevels; }
  IKD_Allocator* GetAllocator() const { return m_pAllocator; }

 protected:
  // IterateIndex walks the subtree of index, level levels deep (1: its entries are segments),
  // skipping null entries. start is the number of the subtree's first element and advances past
  // every element visited. Returns as Iterate does.
  void* IterateIndex(int level, int& start, void** index, IterateCallback callback, void* param) const;
  // IterateSegment calls callback for the first count elements of segment.
  void* IterateSegment(const uint8_t* segment, int count, IterateCallback callback, void* param) const;

  IKD_Allocator* m_pAllocator;
  int m_UnitSize;
  int16_t m_SegmentUnits;
  uint8_t m_IndexSize;
  uint8_t m_IndexLevels;
  int m_DataSize;
  void* m_pIndex;  // the root: a segment with 0 levels, else an index table

  static constexpr int kMaxSize = 0x7FFFFFFF;

  // AddSegment appends an element that starts a new segment (Add without room in the last one).
  void* AddSegment();

  // Split divides n by d (d >= 1), with a shift when d is a power of two: the common shapes pay
  // no division on the way to an element.
  static void Split(unsigned n, unsigned d, unsigned& quotient, unsigned& remainder) {
    if ((d & (d - 1)) == 0) {
      quotient = n >> __builtin_ctz(d);
      remainder = n & (d - 1);
    } else {
      quotient = n / d;
      remainder = n % d;
    }
  }

  // Locate returns the address of element index, which must lie in a segment the tree holds.
  uint8_t* Locate(int index) const {
    const size_t unit = static_cast<size_t>(m_UnitSize);
    const unsigned levels = m_IndexLevels;
    if (levels == 0) return static_cast<uint8_t*>(m_pIndex) + static_cast<size_t>(index) * unit;
    unsigned segment, offset;
    Split(static_cast<unsigned>(index), static_cast<uint16_t>(m_SegmentUnits), segment, offset);
    void** table = static_cast<void**>(m_pIndex);
    if (levels == 2) {
      unsigned upper;
      Split(segment, m_IndexSize, upper, segment);
      table = static_cast<void**>(table[upper]);
    } else if (levels > 2) {
      return LocateDeep(segment) + offset * unit;
    }
    // With one level every segment number is below the index size.
    return static_cast<uint8_t*>(table[segment]) + offset * unit;
  }

 private:
  // The segment of segment number segment in a tree of more than two levels.
  uint8_t* LocateDeep(unsigned segment) const;
  // Returns the last-level table for segment, creating missing tables on the way; null when one
  // cannot be had.
  void** MakePath(unsigned segment);

  friend struct KDSegmentedArrayWalk;
  friend struct KDSegmentedArrayLayout;
};

// CKD_SegmentedArray<T, kSegmentUnits, kIndexSize> is a segmented array of T (copied as bytes;
// never constructed or destroyed) whose shape is fixed when it is compiled, so that reaching an
// element takes shifts, masks or multiplications by constants. It adds no fields. The shape
// cannot be changed afterwards.
template <class T, int kSegmentUnits = (sizeof(T) < 4096 ? 4096 / sizeof(T) : 1), int kIndexSize = 64>
class CKD_SegmentedArray : public CKD_BaseSegmentedArray {
  static_assert(std::is_trivially_copyable<T>::value, "CKD_SegmentedArray copies elements as bytes");
  static_assert(kSegmentUnits >= 1 && kSegmentUnits <= 0x7FFF, "segment units are a positive 16-bit number");
  static_assert(kIndexSize >= 2 && kIndexSize <= 0xFF, "index tables hold 2 to 255 entries");

 public:
  explicit CKD_SegmentedArray(IKD_Allocator* allocator = nullptr)
      : CKD_BaseSegmentedArray(sizeof(T), kSegmentUnits, kIndexSize, allocator) {}
  void SetUnitSize(int, int, int) = delete;

  // Add appends an element and returns its address (its bytes not cleared); null when memory
  // runs out.
  T* Add() {
    const int n = m_DataSize;
    if (n % kSegmentUnits != 0 && n < kMaxSize) {
      m_DataSize = n + 1;
      return At(n);
    }
    return static_cast<T*>(AddSegment());
  }
  // Add appends a copy of value; false when memory runs out.
  bool Add(const T& value) {
    const int n = m_DataSize;
    if (n % kSegmentUnits != 0 && n < kMaxSize) {
      // The size is written after the element, which may alias it: a caller's loop can then keep
      // the size in a register.
      *At(n) = value;
      m_DataSize = n + 1;
      return true;
    }
    T* slot = static_cast<T*>(AddSegment());
    if (!slot) return false;
    *slot = value;
    return true;
  }

  // GetAt returns element index's address, or null when index is out of range.
  T* GetAt(int index) const {
    if (static_cast<unsigned>(index) >= static_cast<unsigned>(m_DataSize)) return nullptr;
    return At(index);
  }
  // operator[] does not check the index.
  T& operator[](int index) const { return *At(index); }

 private:
  T* At(int index) const {
    const unsigned segment = static_cast<unsigned>(index) / kSegmentUnits;
    const unsigned offset = static_cast<unsigned>(index) % kSegmentUnits;
    void* const* table = static_cast<void* const*>(m_pIndex);
    switch (m_IndexLevels) {
      case 0:
        return static_cast<T*>(m_pIndex) + index;
      case 1:
        return static_cast<T*>(table[segment]) + offset;
      case 2:
        return static_cast<T*>(static_cast<void* const*>(table[segment / kIndexSize])[segment % kIndexSize]) + offset;
      default:
        return reinterpret_cast<T*>(Locate(index));
    }
  }
};

#endif  // NORVANE_CONTAINERS_SEGMENTED_ARRAY_H_
