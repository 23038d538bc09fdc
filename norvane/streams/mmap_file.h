// Memory-mapped files. CKD_MMapedFile is a file stream over one shared, readable and writable
// mapping of a file: it maps one view at a time and moves or enlarges the view, and the file,
// when a read or write falls outside it. KD_ZeroFillFile fills the bytes a file gains when it
// grows.
//
// Opening creates the file (permissions 0700) when it is missing and extends it to a multiple of
// KD_DEFAULT_MMAP_SIZE (the page size unless changed) when it is shorter or not such a multiple.
// Views after the first are aligned to KD_ALLOC_GRANULARITY (65536 bytes) and are a multiple of
// it long; a request that goes past the end of the file grows the file to a multiple of 65536
// bytes. Check a new object with IsValid(): opening or mapping can fail without a null object.
//
// Kept as they are for compatibility: ReadBlock(buffer, size) returns 1 on success and 0 on
// failure, not a byte count; Retain() returns null and keeps no count, so Release() destroys the
// object at once; IsEOF() is always false; SetPosition and ranges are not supported (-1, false),
// so the position moves only with reads and writes.
//
// Not synchronised: one thread at a time. Another process must not shorten the file while it is
// mapped here (touching a mapped page past the end of a file stops the process).
#ifndef NORVANE_STREAMS_MMAP_FILE_H_
#define NORVANE_STREAMS_MMAP_FILE_H_

#include <cstddef>
#include <cstdint>

#include "norvane/config.h"
#include "norvane/memory/object.h"
#include "norvane/streams/stream.h"
#include "norvane/text/wide_string.h"

// CKD_MMapedFile is the mapped file stream described above; it owns its file and view.
class NORVANE_API CKD_MMapedFile : public IKD_FileStream, public CKD_Object {
 public:
  // Create makes an object with CKD_Object new (null when memory runs out) and the constructor.
  static CKD_MMapedFile* Create(const CKD_WideString& path, long long offset, size_t length);
  // Opens path (its UTF-8 bytes) and maps length bytes at offset, which must be a multiple of the
  // page size. Only a descriptor above 0 counts as open.
  CKD_MMapedFile(const CKD_WideString& path, long long offset, size_t length);
  ~CKD_MMapedFile() override;
  CKD_MMapedFile(const CKD_MMapedFile&) = delete;
  CKD_MMapedFile& operator=(const CKD_MMapedFile&) = delete;

  // IsValid: a view is mapped and its length is not 0.
  bool IsValid() const { return m_pMemory != nullptr && m_nMapLength != 0; }
  // GetMemory returns the view's first byte (file offset GetMapOffset()), or null.
  uint8_t* GetMemory() const { return m_pMemory; }
  long long GetMapOffset() const { return m_nMapOffset; }
  size_t GetMapLength() const { return m_nMapLength; }
  CKD_WideString GetName() const { return m_Path; }

  void Release() override;
  IKD_FileStream* Retain() override { return nullptr; }
  bool IsEOF() override { return false; }
  long long GetPosition() override { return m_nPosition; }
  // ReadBlock reads size bytes at the position: 1 when they were read, else 0.
  size_t ReadBlock(void* buffer, size_t size) override;
  // GetSize returns the file's size as this object knows it.
  long long GetSize() override { return m_nFileSize; }
  // ReadBlock and WriteBlock copy size bytes at offset, re-mapping and growing as needed, and
  // leave the position after them; false on failure (a negative offset, a null buffer with a
  // size, a file that cannot grow or be mapped).
  bool ReadBlock(void* buffer, long long offset, size_t size) override;
  bool WriteBlock(const void* data, long long offset, size_t size) override;
  // WriteBlock(data, size) writes at the position.
  bool WriteBlock(const void* data, size_t size) override;
  // Flush: fsync on the file, which writes what went through the mapping.
  bool Flush() override;

  // ReMap makes the view cover [offset, offset + size): nothing to do when it does; otherwise
  // the view is unmapped, the file grown to offset + size rounded up to 65536 when it is shorter,
  // and a view of size rounded up to 65536 mapped at offset rounded down to 65536. True when the
  // new view is mapped.
  bool ReMap(long long offset, size_t size);

 private:
  friend struct KDMMapedFileLayout;

  bool Transfer(uint8_t* memory, long long offset, size_t size, bool write);
  bool Covers(long long offset, size_t size) const;
  bool GrowFile(long long end);

  CKD_WideString m_Path;
  uint8_t* m_pMemory;
  long long m_nFileSize;
  int m_nFD;
  long long m_nMapOffset;
  long long m_nPosition;
  uint32_t m_nFillByte;
  size_t m_nMapLength;
};

// KD_ZeroFillFile writes size bytes at offset of the file fd from a 4096-byte block whose first
// 1024 bytes are fill (its low byte) and the rest 0: one write for less than 4096 bytes, else
// whole blocks while 4096 bytes remain, then the rest. Nothing for fd < 0, size 0 or an offset
// the file cannot seek to; it stops at the first block not written whole.
NORVANE_API void KD_ZeroFillFile(int fd, long long offset, size_t size, unsigned int fill);

#endif  // NORVANE_STREAMS_MMAP_FILE_H_
