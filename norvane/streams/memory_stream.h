// In-memory streams. CKD_MemoryStream keeps its bytes either in one contiguous buffer
// (consecutive mode, grown by reallocation to a multiple of the grow size) or in a list of
// blocks of the grow size (chunked mode, grown by adding blocks). It can wrap a caller's buffer,
// with or without taking it over, and hand its buffer back out. Blocks are never zeroed: bytes
// never written read as whatever the allocator returned.
//
// Streams are reference-counted (from 1) and every operation holds the stream's recursive mutex.
// Memory comes from the allocator given at creation, or the default manager when it is null.
//
// Two behaviours are kept as they are for compatibility: inside a range with a non-zero offset,
// sequential reads (ReadBlock(buffer, size)) read from the stored position plus the range offset
// again; and they pass the position truncated to 32 bits.
#ifndef NORVANE_STREAMS_MEMORY_STREAM_H_
#define NORVANE_STREAMS_MEMORY_STREAM_H_

#include <cstddef>
#include <cstdint>

#include "norvane/config.h"
#include "norvane/containers/array.h"
#include "norvane/memory/object.h"
#include "norvane/runtime/sync.h"
#include "norvane/streams/stream.h"

// IKD_MemoryStream is a stream whose bytes are in memory, with access to its buffer.
class NORVANE_API IKD_MemoryStream : public IKD_FileStream {
 public:
  virtual bool IsConsecutive() const = 0;
  // EstimateSize prepares for about initial_size bytes and sets the grow size (at least 4096).
  virtual void EstimateSize(size_t initial_size, size_t grow_size) = 0;
  // GetBuffer returns the first block (in consecutive mode, all the data), or null.
  virtual uint8_t* GetBuffer() const = 0;
  // AttachBuffer (consecutive mode only) makes buffer the stream's contents, owned by the stream
  // when take_over. A buffer owned until then is not freed.
  virtual void AttachBuffer(uint8_t* buffer, size_t size, bool take_over) = 0;
  // DetachBuffer (consecutive mode only) gives up the buffer without freeing it (take it with
  // GetBuffer first) and leaves an empty stream in chunked mode, owning what it allocates next.
  virtual void DetachBuffer() = 0;
};

// CKD_MemoryStream is the memory stream described above, made by KD_CreateMemoryStream; it owns
// its blocks (a caller's buffer only when taken over).
class NORVANE_API CKD_MemoryStream : public IKD_MemoryStream, public CKD_Object {
 public:
  static constexpr uint32_t kConsecutive = 1;  // one contiguous buffer
  static constexpr uint32_t kOwnsBuffers = 2;  // the stream frees its buffers
  static constexpr size_t kDefaultGrowSize = 65536;

  // An empty stream that owns what it allocates.
  CKD_MemoryStream(bool consecutive, IKD_Allocator* allocator);
  // A consecutive stream over size bytes of buffer, which it frees only when take_over.
  CKD_MemoryStream(uint8_t* buffer, size_t size, bool take_over, IKD_Allocator* allocator);
  ~CKD_MemoryStream() override;
  CKD_MemoryStream(const CKD_MemoryStream&) = delete;
  CKD_MemoryStream& operator=(const CKD_MemoryStream&) = delete;

  void Release() override;
  bool IsEOF() override;
  long long GetPosition() override;
  size_t ReadBlock(void* buffer, size_t size) override;
  long long SetPosition(long long pos) override;
  long long GetSize() override;
  bool SetRange(long long offset, long long size) override;
  void ClearRange() override;
  bool ReadBlock(void* buffer, long long offset, size_t size) override;
  IKD_FileStream* Retain() override;
  bool WriteBlock(const void* data, long long offset, size_t size) override;
  using IKD_FileStream::WriteBlock;
  bool Flush() override;
  bool IsConsecutive() const override;
  void EstimateSize(size_t initial_size, size_t grow_size) override;
  uint8_t* GetBuffer() const override;
  void AttachBuffer(uint8_t* buffer, size_t size, bool take_over) override;
  void DetachBuffer() override;

  // State, for callers that inspect the stream.
  size_t GetTotalSize() const { return m_nTotalSize; }
  size_t GetGrowSize() const { return m_nGrowSize; }
  int GetBlockCount() const { return m_Blocks.GetSize(); }

 private:
  // FirstBlock is GetBuffer for callers that already hold the lock.
  uint8_t* FirstBlock() const;
  uint8_t* AllocBlock(size_t size);
  void FreeBlock(uint8_t* block);
  // Copies between the blocks and memory: to_blocks writes data at offset, else reads.
  void CopyChunked(uint8_t* memory, size_t offset, size_t size, bool to_blocks);
  bool GrowChunks(size_t end);

  mutable KD_MUTEX m_Lock;
  CKD_ArrayTemplate<uint8_t*> m_Blocks;
  uint32_t m_nRefCount;
  size_t m_nTotalSize;
  size_t m_nCurSize;
  size_t m_nCurPos;
  size_t m_nGrowSize;
  uint32_t m_dwModes;
  bool m_bUseRange;
  size_t m_nRangeOffset;
  size_t m_nRangeSize;
  friend struct KDMemoryStreamLayout;
};

// KD_CreateMemoryStream makes an empty owning stream (consecutive or chunked), from allocator
// when given, else the default manager; null when it cannot be had.
NORVANE_API IKD_MemoryStream* KD_CreateMemoryStream(bool consecutive, IKD_Allocator* allocator = nullptr);
// KD_CreateMemoryStream over a caller's buffer: consecutive, taking the buffer over when asked.
NORVANE_API IKD_MemoryStream* KD_CreateMemoryStream(uint8_t* buffer, size_t size, bool take_over,
                                                    IKD_Allocator* allocator = nullptr);

#endif  // NORVANE_STREAMS_MEMORY_STREAM_H_
