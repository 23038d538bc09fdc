// Typed arrays over CKD_BasicArray. They add no fields.
//
// CKD_ArrayTemplate<T> holds plain elements copied as bytes (T must be trivially copyable): for
// example CKD_ArrayTemplate<void*>.
//
// CKD_ObjectArray<T> holds elements that own resources (CKD_ByteString, CKD_WideString): it
// constructs elements in place in new slots and destroys them before their slots go, the whole
// array in ascending order on destruction. Elements are still moved by byte copies when the block
// grows or a gap opens or closes, so T must not point into itself.
//
// Indexing with operator[] is unchecked; GetAt and SetAt check the index. Operations that grow
// the array return false (or null) when it cannot grow, leaving it as it was.
#ifndef NORVANE_CONTAINERS_ARRAY_H_
#define NORVANE_CONTAINERS_ARRAY_H_

#include <new>
#include <type_traits>

#include "norvane/containers/basic_array.h"

// CKD_ArrayTemplate<T> is an array of trivially copyable elements over CKD_BasicArray, with
// typed access; failures are false, zero elements or -1 as in its base.
template <class T>
class CKD_ArrayTemplate : public CKD_BasicArray {
  static_assert(std::is_trivially_copyable<T>::value, "CKD_ArrayTemplate copies elements as bytes");

 public:
  explicit CKD_ArrayTemplate(IKD_Allocator* allocator = nullptr) : CKD_BasicArray(sizeof(T), allocator) {}
  CKD_ArrayTemplate(const CKD_ArrayTemplate& other, IKD_Allocator* allocator = nullptr)
      : CKD_BasicArray(other, allocator) {}
  CKD_ArrayTemplate& operator=(const CKD_ArrayTemplate& src) {
    Copy(src);
    return *this;
  }

  T* GetData() { return reinterpret_cast<T*>(m_pData); }
  const T* GetData() const { return reinterpret_cast<const T*>(m_pData); }
  int GetUpperBound() const { return m_nSize - 1; }
  bool IsEmpty() const { return m_nSize == 0; }

  T& operator[](int index) { return GetData()[index]; }
  const T& operator[](int index) const { return GetData()[index]; }
  // GetAt returns a zero element for an index out of range.
  T GetAt(int index) const { return (index >= 0 && index < m_nSize) ? GetData()[index] : T(); }
  bool SetAt(int index, const T& value) {
    if (index < 0 || index >= m_nSize) return false;
    GetData()[index] = value;
    return true;
  }

  // Add appends value.
  bool Add(const T& value) {
    // Room in the block: no call needed. The size is written after the element so that a
    // caller's loop can keep it in a register (an element store may alias the int fields).
    const int n = m_nSize;
    if (n < m_nMaxSize) {
      GetData()[n] = value;
      m_nSize = n + 1;
      return true;
    }
    T copy = value;  // value may live in the block that is about to move
    if (!SetSize(m_nSize + 1, -1)) return false;
    GetData()[m_nSize - 1] = copy;
    return true;
  }
  // InsertAt inserts count copies of value at index (beyond the end: after zeroed padding).
  bool InsertAt(int index, const T& value, int count = 1) {
    T copy = value;
    T* gap = static_cast<T*>(InsertSpaceAt(index, count));
    if (!gap) return false;
    for (int i = 0; i < count; ++i) gap[i] = copy;
    return true;
  }
  using CKD_BasicArray::InsertAt;
  bool RemoveAt(int index, int count = 1) { return CKD_BasicArray::RemoveAt(index, count); }
  void RemoveAll() { SetSize(0, -1); }
  // Find returns the index of the first element equal to value at or after start, or -1.
  int Find(const T& value, int start = 0) const {
    for (int i = start < 0 ? 0 : start; i < m_nSize; ++i) {
      if (GetData()[i] == value) return i;
    }
    return -1;
  }
};

// CKD_ObjectArray<T> is an array of elements that own resources: it constructs and destroys
// them in their slots, and moves them as bytes.
template <class T>
class CKD_ObjectArray : public CKD_BasicArray {
 public:
  explicit CKD_ObjectArray(IKD_Allocator* allocator = nullptr) : CKD_BasicArray(sizeof(T), allocator) {}
  // Elements are destroyed in ascending order, then the block is freed.
  ~CKD_ObjectArray() { RemoveAll(); }
  CKD_ObjectArray(const CKD_ObjectArray&) = delete;
  CKD_ObjectArray& operator=(const CKD_ObjectArray&) = delete;

  T* GetData() { return reinterpret_cast<T*>(m_pData); }
  const T* GetData() const { return reinterpret_cast<const T*>(m_pData); }
  int GetUpperBound() const { return m_nSize - 1; }
  bool IsEmpty() const { return m_nSize == 0; }
  T& operator[](int index) { return GetData()[index]; }
  const T& operator[](int index) const { return GetData()[index]; }
  // GetAt returns null for an index out of range.
  T* GetAt(int index) { return static_cast<T*>(GetDataPtr(index)); }
  const T* GetAt(int index) const { return static_cast<const T*>(GetDataPtr(index)); }

  // Add appends a default-constructed element and returns it, or null.
  T* Add() {
    if (!CKD_BasicArray::SetSize(m_nSize + 1, -1)) return nullptr;
    return ::new (GetDataPtr(m_nSize - 1)) T();
  }
  // Add appends a copy of value.
  bool Add(const T& value) { return InsertAt(m_nSize, value); }
  // InsertAt inserts a copy of value at index (0..size).
  bool InsertAt(int index, const T& value) {
    if (index < 0 || index > m_nSize) return false;
    if (Contains(&value)) {
      T copy(value);  // the gap would move value
      return InsertAt(index, copy);
    }
    void* gap = CKD_BasicArray::InsertSpaceAt(index, 1);
    if (!gap) return false;
    ::new (gap) T(value);
    return true;
  }
  // SetSize destroys the elements beyond new_size or default-constructs the new ones.
  bool SetSize(int new_size, int grow_by = -1) {
    if (new_size < 0 || (m_nUnitSize > 0 && new_size > kMaxBytes / m_nUnitSize)) {
      RemoveAll();  // as for the base array, an impossible size empties the array
      return false;
    }
    int old_size = m_nSize;
    for (int i = new_size; i < old_size; ++i) GetData()[i].~T();
    if (new_size < old_size) m_nSize = new_size;
    if (!CKD_BasicArray::SetSize(new_size, grow_by)) return false;
    for (int i = old_size; i < new_size; ++i) ::new (GetDataPtr(i)) T();
    return true;
  }
  // RemoveAt destroys count elements at index and closes the gap.
  bool RemoveAt(int index, int count = 1) {
    if (index < 0 || count < 1 || static_cast<long long>(index) + count > m_nSize) return false;
    for (int i = index; i < index + count; ++i) GetData()[i].~T();
    return CKD_BasicArray::RemoveAt(index, count);
  }
  // RemoveAll destroys every element in ascending order and frees the block.
  void RemoveAll() {
    for (int i = 0; i < m_nSize; ++i) GetData()[i].~T();
    m_nSize = 0;
    CKD_BasicArray::SetSize(0, -1);
  }

  // The byte-copying operations of the base would duplicate owned resources.
  bool Copy(const CKD_BasicArray&) = delete;
  bool Append(const CKD_BasicArray&) = delete;
  bool InsertAt(int, const CKD_BasicArray*) = delete;
  void* InsertSpaceAt(int, int) = delete;

 private:
  bool Contains(const T* p) const {
    const T* data = GetData();
    return data && p >= data && p < data + m_nSize;
  }
};

#endif  // NORVANE_CONTAINERS_ARRAY_H_
