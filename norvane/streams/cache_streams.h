// Two small caches that sit between a caller and a stream.
//
// CKD_LimitCacheStream stores what is written only while it fits a fixed capacity, but always
// counts the bytes: a way to measure output and keep it when it turns out small. It keeps no
// reference count (Retain returns null; Release destroys it) and no lock.
//
// CKD_ContinuousBytesCache (an IKD_BytesCache) holds one sliding run of consecutive bytes of a
// file. It has no lock. Note that Fill records the cached run as starting at offset 0, whatever
// offset it read from; callers rely on this.
#ifndef NORVANE_STREAMS_CACHE_STREAMS_H_
#define NORVANE_STREAMS_CACHE_STREAMS_H_

#include <cstddef>
#include <cstdint>

#include "norvane/config.h"
#include "norvane/memory/object.h"
#include "norvane/streams/stream.h"

// CKD_LimitCacheStream is the capacity-limited write cache described above.
class NORVANE_API CKD_LimitCacheStream : public IKD_FileStream, public CKD_Object {
 public:
  // The buffer holds cache_size + extra bytes when cache_size is not 0 and that fits limit;
  // otherwise there is no buffer and only sizes are counted.
  CKD_LimitCacheStream(size_t cache_size, size_t limit, size_t extra);
  ~CKD_LimitCacheStream() override;
  CKD_LimitCacheStream(const CKD_LimitCacheStream&) = delete;
  CKD_LimitCacheStream& operator=(const CKD_LimitCacheStream&) = delete;

  void Release() override;
  IKD_FileStream* Retain() override;
  bool IsEOF() override;
  long long GetPosition() override;
  long long SetPosition(long long pos) override;
  size_t ReadBlock(void* buffer, size_t size) override;
  long long GetSize() override;
  bool ReadBlock(void* buffer, long long offset, size_t size) override;
  // Inserts size bytes at offset (0..size); stored only while everything fits, always counted.
  bool WriteBlock(const void* data, long long offset, size_t size) override;
  // Appends size bytes; stored only while they fit, always counted.
  bool WriteBlock(const void* data, size_t size) override;
  bool Flush() override;

  const uint8_t* GetBuffer() const { return m_pBuffer; }
  size_t GetCapacity() const { return m_nCapacity; }

 private:
  uint8_t* m_pBuffer;
  size_t m_nDataSize;
  size_t m_nPosition;
  size_t m_nCapacity;
};

// IKD_BytesCache is a cache of one run of consecutive bytes of a file.
class NORVANE_API IKD_BytesCache {
 public:
  // A run of bytes: where it starts and how long it is.
  struct Span {
    long long start;
    size_t length;
  };
  // Fill caches up to the capacity of the bytes of file at offset (recorded as starting at 0).
  virtual void Fill(IKD_FileRead* file, long long offset, size_t size) = 0;
  // Read copies the cached part of span to buffer + (its start - span.start) and returns that
  // part; a span outside the cache gives its start with length 0.
  virtual Span Read(void* buffer, const Span& span) = 0;
  // Write adds bytes next to the cached run (sliding it when full), or replaces the run.
  virtual void Write(const void* data, long long offset, size_t size) = 0;
  virtual void Clear() = 0;
  virtual ~IKD_BytesCache() {}
};

// CKD_ContinuousBytesCache is the IKD_BytesCache described above, over a buffer it owns.
class NORVANE_API CKD_ContinuousBytesCache : public IKD_BytesCache, public CKD_Object {
 public:
  CKD_ContinuousBytesCache();
  ~CKD_ContinuousBytesCache() override;
  CKD_ContinuousBytesCache(const CKD_ContinuousBytesCache&) = delete;
  CKD_ContinuousBytesCache& operator=(const CKD_ContinuousBytesCache&) = delete;

  // Init gives the cache a zeroed buffer of capacity bytes; false when it cannot be had.
  bool Init(size_t capacity);
  void Fill(IKD_FileRead* file, long long offset, size_t size) override;
  Span Read(void* buffer, const Span& span) override;
  void Write(const void* data, long long offset, size_t size) override;
  void Clear() override;

  long long GetStart() const { return m_nStart; }
  size_t GetLength() const { return m_nLength; }
  const uint8_t* GetBuffer() const { return m_pBuffer; }

 private:
  uint8_t* m_pBuffer;
  long long m_nStart;
  size_t m_nLength;
  size_t m_nCapacity;
};

// KD_CreateContinuousBytesCache makes a cache of capacity bytes, or null.
NORVANE_API IKD_BytesCache* KD_CreateContinuousBytesCache(size_t capacity);

#endif  // NORVANE_STREAMS_CACHE_STREAMS_H_
