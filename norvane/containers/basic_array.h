// CKD_BasicArray: the untyped growable array every typed array is built on. A contiguous block of
// equally sized elements (units); the unit size is fixed when the array is made.
//
// Storage comes from the allocator given at construction, or (null) from the default manager
// through KDMEM_DefaultAlloc2/Realloc2/Free. Elements are moved only by byte copies; no
// constructor or assignment of an element type is ever called here (the typed layers in
// norvane/containers/array.h do that).
//
// Invariants: 0 <= size <= max size; the block is null exactly when max size is 0; every element
// between size and max size is zero bytes; size * unit size never exceeds 256 MiB.
//
// Failure is a false or null result. A growth that cannot get memory leaves the array as it was,
// but a size below zero or above the 256 MiB limit empties the array.
#ifndef NORVANE_CONTAINERS_BASIC_ARRAY_H_
#define NORVANE_CONTAINERS_BASIC_ARRAY_H_

#include <cstddef>
#include <cstdint>

#include "norvane/config.h"
#include "norvane/memory/memory_mgr.h"
#include "norvane/memory/object.h"

// CKD_BasicArray is the untyped array described above: it owns its block; elements are units of
// the size given at construction, copied as bytes.
class NORVANE_API CKD_BasicArray : public CKD_Object {
 public:
  // The largest block the array holds: size * unit size never exceeds it.
  static constexpr int kMaxBytes = 0x10000000;

  // unit_size is kept when it is at most 256 MiB (taken as unsigned); any other value, negative
  // ones included, becomes 4. A unit size of 0 makes an array that can hold nothing.
  explicit CKD_BasicArray(int unit_size, IKD_Allocator* allocator = nullptr);
  // Copies other's unit size and elements into a block from allocator (not other's); grow-by
  // starts at 0. If the block cannot be had the copy is empty.
  CKD_BasicArray(const CKD_BasicArray& other, IKD_Allocator* allocator = nullptr);
  // Frees the block; never destroys elements.
  ~CKD_BasicArray();

  // SetSize makes the array hold new_size elements. grow_by >= 0 replaces the stored grow-by
  // first; -1 keeps it. Growing past the capacity adds grow-by elements, or with grow-by 0 half
  // the current size (at least 1), or more if new_size needs it; new elements are zero.
  // Shrinking keeps the block; 0 frees it. new_size < 0 or above the limit empties the array and
  // returns false.
  bool SetSize(int new_size, int grow_by = -1);

  // Copy resizes to src's size and copies its elements. Unit sizes are not compared: the arrays
  // are meant to have the same one (at most src's own bytes are read). operator= returns the
  // array whether or not the copy succeeded (a failed copy leaves it as SetSize left it).
  bool Copy(const CKD_BasicArray& src);
  CKD_BasicArray& operator=(const CKD_BasicArray& src);
  // Append adds src's elements behind the current ones (same unit size expected, as for Copy).
  bool Append(const CKD_BasicArray& src);

  // InsertSpaceAt opens a gap of count zeroed elements at index and returns its address. An index
  // beyond the end pads with zeroed elements. index < 0 or count < 1 returns null and changes
  // nothing; null also when the array cannot grow.
  void* InsertSpaceAt(int index, int count);
  // InsertAt copies src's elements into a gap opened at start_index. A null src is false; an empty
  // src is true and changes nothing.
  bool InsertAt(int start_index, const CKD_BasicArray* src);
  // RemoveAt removes count elements at index, moving the tail down. The block is not shrunk and
  // the vacated slots are not cleared. index < 0, count < 1 or a run past the end is false.
  bool RemoveAt(int index, int count);
  // GetDataPtr returns the address of element index, or null when index is out of range.
  void* GetDataPtr(int index) const;

  int GetSize() const { return m_nSize; }
  int GetMaxSize() const { return m_nMaxSize; }
  int GetGrowBy() const { return m_nGrowBy; }
  int GetUnitSize() const { return m_nUnitSize; }
  IKD_Allocator* GetAllocator() const { return m_pAllocator; }

 protected:
  IKD_Allocator* m_pAllocator;
  uint8_t* m_pData;
  int m_nSize;
  int m_nMaxSize;
  int m_nGrowBy;
  int m_nUnitSize;

 private:
  void FreeBlock();
  // Copies count elements' worth of bytes from src (bounded by src's own bytes) to dst.
  void CopyFrom(uint8_t* dst, const CKD_BasicArray& src, int count) const;
  friend struct KDArrayLayout;
};

#endif  // NORVANE_CONTAINERS_BASIC_ARRAY_H_
