// CKD_BinaryBuf: a growable byte buffer for data assembled piece by piece.
//
// Memory comes from the IKD_Allocator given at construction (its m_Alloc, m_Realloc and m_Free
// slots), or, with null, from the default memory manager. The buffer owns its block and frees it
// on destruction. Growth (ExpandBuf) rounds the size needed up to a multiple of the alloc step;
// with a step of 0 the step is a quarter of the current allocation, at least 128 bytes. A growth
// that cannot get memory returns false and leaves the buffer with its old contents. Sizes are int.
// Not synchronised: one thread at a time.
#ifndef NORVANE_TEXT_BINARY_BUF_H_
#define NORVANE_TEXT_BINARY_BUF_H_

#include <cstddef>
#include <cstdint>

#include "norvane/config.h"
#include "norvane/memory/memory_mgr.h"
#include "norvane/memory/object.h"
#include "norvane/text/byte_string.h"

class CKD_ByteStringL;

// CKD_BinaryBuf is the growable byte buffer described above: it owns its block, which comes from
// its allocator; failed growth returns false and keeps the contents.
class NORVANE_API CKD_BinaryBuf : public CKD_Object {
 public:
  // An empty buffer with no block.
  explicit CKD_BinaryBuf(IKD_Allocator* allocator = nullptr);
  // A buffer of size bytes (contents not cleared); data size and alloc size are both size, or 0
  // when the block cannot be had.
  explicit CKD_BinaryBuf(int size, IKD_Allocator* allocator = nullptr);
  ~CKD_BinaryBuf();
  CKD_BinaryBuf(const CKD_BinaryBuf&) = delete;
  CKD_BinaryBuf& operator=(const CKD_BinaryBuf&) = delete;

  // Clear sets the data size to 0 and keeps the block.
  void Clear() { m_DataSize = 0; }
  // DetachBuffer forgets the block without freeing it (take GetBuffer() first: the caller then
  // owns it and frees it through this buffer's allocator). The alloc size is left as it was; the
  // next growth makes a new block.
  void DetachBuffer();
  // AttachData frees the current block and adopts data, which must come from this buffer's
  // allocator; data size and alloc size become size.
  void AttachData(void* data, int size);
  // TakeOver frees the current block and adopts other's block and data size; the alloc size
  // becomes other's data size (not its alloc size), so the next append reallocates. other is left
  // with no block and both sizes 0. Both buffers must use the same allocator.
  void TakeOver(CKD_BinaryBuf& other);
  // EstimateSize sets the alloc step to step and grows the block so that at least size bytes fit.
  bool EstimateSize(int size, int step = 0);
  // ExpandBuf makes room for addSize bytes behind the data: nothing to do when they fit, otherwise
  // the block grows to data size + addSize rounded up to a multiple of the step. False only when
  // the block cannot be had (or the size would pass the int range).
  bool ExpandBuf(int addSize);
  // CopyData replaces the contents with size bytes at data; size 0 just empties the buffer.
  bool CopyData(const void* data, int size);
  // AppendBlock adds size bytes at the end; a null data reserves and counts them unwritten.
  bool AppendBlock(const void* data, int size);
  bool AppendByte(uint8_t byte) { return AppendBlock(&byte, 1); }
  // InsertBlock opens size bytes at pos (not checked: 0..data size) and copies data there unless
  // it is null.
  bool InsertBlock(int pos, const void* data, int size);
  // AppendFill adds count copies of byte.
  bool AppendFill(uint8_t byte, int count);
  // Delete removes count bytes at start; a range outside the data does nothing.
  void Delete(int start, int count);

  uint8_t* GetBuffer() const { return m_pBuffer; }
  int GetSize() const { return m_DataSize; }
  int GetAllocSize() const { return m_AllocSize; }
  int GetAllocStep() const { return m_AllocStep; }
  IKD_Allocator* GetAllocator() const { return m_pAllocator; }
  // GetByteString views the data (no copy; valid until the buffer changes).
  CKD_ByteStringC GetByteString() const { return CKD_ByteStringC(m_pBuffer, m_DataSize); }
  // GetByteStringL copies the data into out with this buffer's allocator (out is emptied first).
  void GetByteStringL(CKD_ByteStringL& out) const;

 protected:
  void FreeBlock();

  IKD_Allocator* m_pAllocator;
  int m_AllocStep;
  uint8_t* m_pBuffer;
  int m_DataSize;
  int m_AllocSize;

 private:
  friend struct KDBinaryBufLayout;
};

static_assert(sizeof(CKD_BinaryBuf) == 32, "binary buffer: allocator, step, buffer, data size, alloc size");

#endif  // NORVANE_TEXT_BINARY_BUF_H_
