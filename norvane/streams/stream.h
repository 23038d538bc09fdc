// The stream interfaces every file-like object of Norvane implements: reading (IKD_StreamRead,
// IKD_FileRead), writing (IKD_StreamWrite, IKD_FileWrite), both (IKD_FileStream), and named files
// that open streams (IKD_FileAccess).
//
// Positions and sizes are signed 64-bit byte offsets from the start; block lengths are size_t.
// Stream objects are reference-counted: they start at 1 and free themselves on the last
// Release(). A stream is both an IKD_FileRead (its first base) and an IKD_FileWrite (its second);
// releasing through either side releases the one object.
//
// The order of the virtual functions below is part of the binary interface: modules compiled
// against it call through these slots. Add nothing in between.
#ifndef NORVANE_STREAMS_STREAM_H_
#define NORVANE_STREAMS_STREAM_H_

#include <cstddef>
#include <cstdint>

#include "norvane/config.h"

class CKD_ByteStringC;
class CKD_WideString;
class CKD_WideStringC;

// IKD_StreamRead is a sequential reader with a position.
class NORVANE_API IKD_StreamRead {
 public:
  virtual void Release() = 0;
  virtual bool IsEOF() = 0;
  virtual long long GetPosition() = 0;
  // ReadBlock reads at the current position; returns the bytes read.
  virtual size_t ReadBlock(void* buffer, size_t size) = 0;
  // SetPosition returns the new position, or -1 when it cannot be set.
  virtual long long SetPosition(long long pos) = 0;
  virtual ~IKD_StreamRead() {}
};

// IKD_FileRead is a reader of a file-like object of known size that also reads at any offset.
class NORVANE_API IKD_FileRead : public IKD_StreamRead {
 public:
  long long SetPosition(long long) override { return -1; }
  virtual long long GetSize() = 0;
  // SetRange makes the stream show only [offset, offset + size) of its contents; false when the
  // stream has no ranges or the range does not fit.
  virtual bool SetRange(long long, long long) { return false; }
  virtual void ClearRange() {}
  using IKD_StreamRead::ReadBlock;
  // ReadBlock reads size bytes at offset; true on success.
  virtual bool ReadBlock(void* buffer, long long offset, size_t size) = 0;
};

// IKD_StreamWrite is an appending writer.
class NORVANE_API IKD_StreamWrite {
 public:
  virtual void Release() = 0;
  // WriteBlock appends size bytes; true on success.
  virtual bool WriteBlock(const void* data, size_t size) = 0;
  virtual bool Flush() = 0;
  virtual ~IKD_StreamWrite() {}
};

// IKD_FileWrite is a writer of a file-like object that also writes at any offset.
class NORVANE_API IKD_FileWrite : public IKD_StreamWrite {
 public:
  virtual long long GetSize() = 0;
  using IKD_StreamWrite::WriteBlock;
  // WriteBlock writes size bytes at offset; true on success.
  virtual bool WriteBlock(const void* data, long long offset, size_t size) = 0;
};

// IKD_FileStream is a reference-counted stream that reads and writes: the interface of the
// library's file, memory, mapped and cached streams.
class NORVANE_API IKD_FileStream : public IKD_FileRead, public IKD_FileWrite {
 public:
  // Retain adds a reference and returns the stream (null for a stream that keeps no count).
  virtual IKD_FileStream* Retain() = 0;
  bool WriteBlock(const void* data, long long offset, size_t size) override = 0;
  // The default append writes at the end: WriteBlock(data, GetSize(), size).
  bool WriteBlock(const void* data, size_t size) override { return WriteBlock(data, GetSize(), size); }
  bool Flush() override = 0;
  // Both bases' Release and GetSize meet here.
  void Release() override = 0;
  long long GetSize() override = 0;
  using IKD_FileRead::ReadBlock;
};

// IKD_FileAccess is a named file that opens streams on itself. Reference-counted from 1.
class NORVANE_API IKD_FileAccess {
 public:
  virtual void Release() = 0;
  virtual IKD_FileAccess* Retain() = 0;
  virtual void GetPath(CKD_WideString& path) = 0;
  // CreateFileStream opens a new stream on the file with KD_FILEMODE_ modes; null on failure.
  virtual IKD_FileStream* CreateFileStream(uint32_t modes) = 0;
  virtual ~IKD_FileAccess() {}
};

// Open modes. Read-only opens an existing file for reading (and wins over every other bit);
// otherwise the file is opened for reading and writing, created with permissions 0644 if
// missing, and Truncate cuts it to length 0.
enum : uint32_t {
  KD_FILEMODE_ReadOnly = 1,
  KD_FILEMODE_Truncate = 2,
};

#endif  // NORVANE_STREAMS_STREAM_H_
