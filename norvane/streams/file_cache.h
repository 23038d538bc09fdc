// Cached reading of a file: CKD_FileCache keeps a fixed number of fixed-size chunks of a file in
// memory the caller supplies, sorted by file offset and replaced least recently used first;
// CKD_CachedFileRead puts it behind a locked, reference-counted, read-only stream.
//
// Chunks are searched from the last hit, so sequential reads cost no search. The chunk memory is
// the caller's (chunk_count * chunk_size contiguous bytes) and never moves; only the records do.
// A read error while loading a chunk is not detected: the chunk then holds what the read left.
#ifndef NORVANE_STREAMS_FILE_CACHE_H_
#define NORVANE_STREAMS_FILE_CACHE_H_

#include <cstddef>
#include <cstdint>

#include "norvane/config.h"
#include "norvane/memory/memory_mgr.h"
#include "norvane/memory/object.h"
#include "norvane/runtime/sync.h"
#include "norvane/streams/stream.h"

// One cached chunk: where its bytes are, which file offset they hold, when it was last used.
struct KD_CACHECHUNK {
  uint8_t* m_pBuffer;
  long long m_nOffset;
  uint32_t m_nStamp;
};
static_assert(sizeof(KD_CACHECHUNK) == 24, "chunk record size");

// CKD_FileCache is the chunk table described above: it owns the records, not the chunk memory.
class NORVANE_API CKD_FileCache : public CKD_Object {
 public:
  explicit CKD_FileCache(IKD_Allocator* allocator = nullptr);
  // Frees the chunk table (not the chunk memory, which is the caller's).
  ~CKD_FileCache();
  CKD_FileCache(const CKD_FileCache&) = delete;
  CKD_FileCache& operator=(const CKD_FileCache&) = delete;

  void Empty();
  // InitChunk points chunk_count records at consecutive chunk_size pieces of buffer. A null
  // buffer, or no chunks, sets nothing up (reads then go straight to the file) and succeeds;
  // false when the table cannot be allocated.
  bool InitChunk(int chunk_size, int chunk_count, uint8_t* buffer);
  // Clear forgets every cached chunk.
  void Clear();
  // SearchChunk finds the chunk holding chunk_offset; index receives its place, or where it
  // would be inserted.
  bool SearchChunk(int& index, long long chunk_offset);
  // CacheChunk loads the chunk at chunk_offset into the least recently used slot and moves its
  // record to keep the table sorted; index is the insertion place in, the final place out.
  void CacheChunk(int& index, long long chunk_offset, IKD_FileRead* file);
  // FindMiniRefChunk returns the slot used least recently (the first on ties), 0 without slots.
  int FindMiniRefChunk();
  // ReadBlock copies size bytes at offset, loading chunks as needed (with no chunks it reads the
  // file directly). The caller checks the range against the file size.
  bool ReadBlock(IKD_FileRead* file, void* buffer, long long offset, size_t size);
  // PreCache loads (or refreshes) up to count chunks from offset's chunk on, stopping at the end
  // of the file.
  bool PreCache(IKD_FileRead* file, long long offset, int count);

  int GetChunkSize() const { return m_nChunkSize; }
  int GetChunkCount() const { return m_nChunkCount; }
  int GetUsedCount() const { return m_nUsedCount; }
  const KD_CACHECHUNK* GetChunk(int index) const { return m_pChunks + index; }

 private:
  friend class CKD_CachedFileRead;
  // Stamps the chunk at index as used now and makes it the search's first guess.
  void Touch(int index);

  IKD_Allocator* m_pAllocator;
  int m_nChunkSize;
  int m_nChunkCount;
  int m_nUsedCount;
  int m_nCurIndex;
  uint32_t m_nAccess;
  KD_CACHECHUNK* m_pChunks;
};

// The state of a CKD_CachedFileRead once initialised.
struct CKD_CachedData {
  CKD_FileCache m_Cache;
  IKD_FileRead* m_pFile;
  long long m_nPosition;
  bool m_bTakeOver;  // the file is released with the cache
};

// A read-only stream that reads a file through a CKD_FileCache. Writes fail. Reference-counted
// from 1; every operation holds the reader's recursive mutex, including chunk replacement, so
// one reader may be shared by threads.
//
// A reader initialised with an allocator must itself have been made from that allocator: the
// last Release gives it back there. Positions after a successful read are kept to 32 bits (sign
// extended), so sequential reads past 2 GiB wrap; this is kept for compatibility.
class NORVANE_API CKD_CachedFileRead : public IKD_FileStream, public CKD_Object {
 public:
  CKD_CachedFileRead();
  ~CKD_CachedFileRead() override;
  CKD_CachedFileRead(const CKD_CachedFileRead&) = delete;
  CKD_CachedFileRead& operator=(const CKD_CachedFileRead&) = delete;

  // Init sets up the cache: chunk_count chunks of chunk_size bytes in buffer. With a null
  // buffer nothing is cached; a chunk size below 4096 caches nothing either. False when already
  // initialised or memory cannot be had.
  bool Init(int chunk_size, int chunk_count, void* buffer, IKD_Allocator* allocator);
  // AttachFile reads file from now on (releasing a file taken over before) and forgets the
  // cached chunks; the position stays. With take_over the file is released with the reader.
  bool AttachFile(IKD_FileRead* file, bool take_over);
  bool PreCache(long long offset, int count);

  void Release() override;
  IKD_FileStream* Retain() override;
  bool IsEOF() override;
  long long GetPosition() override;
  size_t ReadBlock(void* buffer, size_t size) override;
  long long GetSize() override;
  bool ReadBlock(void* buffer, long long offset, size_t size) override;
  bool WriteBlock(const void* data, long long offset, size_t size) override;
  using IKD_FileStream::WriteBlock;
  bool Flush() override;

  const CKD_CachedData* GetData() const { return m_pData; }

 private:
  mutable KD_MUTEX m_Lock;
  CKD_CachedData* m_pData;
  uint32_t m_nRefCount;
};

#endif  // NORVANE_STREAMS_FILE_CACHE_H_
