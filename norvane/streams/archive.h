// Archives: small serialisation tools. CKD_ArchiveSaver writes typed values into a growing byte
// buffer, or straight into a stream; CKD_ArchiveLoader reads them back from a byte range.
// IKD_BufferArchive is a fixed-size output buffer that hands each full block to its subclass's
// DoWork; CKD_FileBufferArchive is that subclass for write streams.
//
// The archive byte format: values follow one another with no alignment and no type tags, in the
// machine's byte order (little-endian on every supported processor):
//   uint8_t, bool         1 byte (a bool as its byte, 0 or 1)
//   int, unsigned int     4 bytes
//   float                 4 bytes, the raw IEEE single
//   long long             8 bytes
//   byte string           4-byte signed length, then that many bytes, no terminator
//   CKD_WideString        its UTF-16LE bytes, written as a byte string (the length in bytes)
//   const wchar_t*        4-byte length = the number of characters, then that many BYTES of the
//                         raw wide-character memory. Kept as it is for compatibility with existing
//                         archives: it cannot be read back as wide text.
//   Write(data, size)     size raw bytes, no length
//
// Not synchronised: one thread at a time per object.
#ifndef NORVANE_STREAMS_ARCHIVE_H_
#define NORVANE_STREAMS_ARCHIVE_H_

#include <cstddef>
#include <cstdint>

#include "norvane/config.h"
#include "norvane/memory/memory_mgr.h"
#include "norvane/memory/object.h"
#include "norvane/streams/stream.h"
#include "norvane/text/binary_buf.h"
#include "norvane/text/byte_string.h"
#include "norvane/text/wide_string.h"

// CKD_ArchiveSaver writes values in the archive format. Without a stream the bytes collect in
// its buffer (each value makes room with ExpandBuf; a string takes two steps, length then bytes);
// a value for which the buffer cannot grow is dropped without notice. With a stream every value
// goes to the stream's WriteBlock(data, size) and the buffer stays empty; the stream is not owned
// and must outlive the saver.
class NORVANE_API CKD_ArchiveSaver : public CKD_Object {
 public:
  // A saver into its own buffer, whose memory comes from allocator (null: the default manager).
  explicit CKD_ArchiveSaver(IKD_Allocator* allocator = nullptr) : m_Buffer(allocator), m_pStream(nullptr) {}
  // A saver into stream (null: into the buffer).
  explicit CKD_ArchiveSaver(IKD_FileStream* stream) : m_Buffer(nullptr), m_pStream(stream) {}
  CKD_ArchiveSaver(const CKD_ArchiveSaver&) = delete;
  CKD_ArchiveSaver& operator=(const CKD_ArchiveSaver&) = delete;

  // The single byte grows the buffer by 100 bytes, and only when it is full.
  CKD_ArchiveSaver& operator<<(uint8_t value);
  CKD_ArchiveSaver& operator<<(bool value);
  CKD_ArchiveSaver& operator<<(int value);
  CKD_ArchiveSaver& operator<<(unsigned int value);
  CKD_ArchiveSaver& operator<<(float value);
  CKD_ArchiveSaver& operator<<(long long value);
  CKD_ArchiveSaver& operator<<(const CKD_ByteStringC& str);
  CKD_ArchiveSaver& operator<<(const CKD_ByteString& str);
  // A null text writes length 0 and no bytes.
  CKD_ArchiveSaver& operator<<(const char* str);
  CKD_ArchiveSaver& operator<<(const CKD_WideString& str);
  // The character count, then that many bytes of the characters' memory (see above); null
  // writes length 0.
  CKD_ArchiveSaver& operator<<(const wchar_t* str);
  // Write adds size raw bytes; a negative size or null data adds nothing.
  CKD_ArchiveSaver& Write(const void* data, int size);

  const uint8_t* GetBuffer() const { return m_Buffer.GetBuffer(); }
  int GetLength() const { return m_Buffer.GetSize(); }
  CKD_ByteStringC GetByteString() const { return m_Buffer.GetByteString(); }
  IKD_FileStream* GetStream() const { return m_pStream; }

 private:
  friend struct KDArchiveLayout;
  void Put(const void* data, int size);
  void PutString(const void* data, int length, int byte_count);

  CKD_BinaryBuf m_Buffer;
  IKD_FileStream* m_pStream;
};

// CKD_ArchiveLoader reads archive values from size bytes at data (not owned; they must outlive
// the loader). A value that does not fit before the end is not read: the target and the offset
// stay as they were. A null data pointer reads as no bytes.
class NORVANE_API CKD_ArchiveLoader : public CKD_Object {
 public:
  CKD_ArchiveLoader(const uint8_t* data, unsigned int size);

  bool IsEOF() const { return m_nOffset >= m_nSize; }
  unsigned int GetOffset() const { return m_nOffset; }

  CKD_ArchiveLoader& operator>>(uint8_t& value);
  // Any byte other than 0 reads as true.
  CKD_ArchiveLoader& operator>>(bool& value);
  CKD_ArchiveLoader& operator>>(int& value);
  CKD_ArchiveLoader& operator>>(unsigned int& value);
  CKD_ArchiveLoader& operator>>(float& value);
  CKD_ArchiveLoader& operator>>(long long& value);
  // A byte string needs its 4 length bytes, else nothing happens. Once they are there they are
  // consumed and str emptied; a length below 1, or one that runs past the end, leaves str empty;
  // otherwise the bytes are copied and consumed.
  CKD_ArchiveLoader& operator>>(CKD_ByteString& str);
  // A byte string as above, decoded from UTF-16LE.
  CKD_ArchiveLoader& operator>>(CKD_WideString& str);
  // Read copies size bytes (skips them when buffer is null); false when they do not fit.
  bool Read(void* buffer, unsigned int size);

 private:
  friend struct KDArchiveLayout;
  bool Take(void* buffer, unsigned int size);

  unsigned int m_nOffset;
  const uint8_t* m_pData;
  unsigned int m_nSize;
};

// IKD_BufferArchive collects bytes in a buffer of a fixed size and hands each full buffer to
// DoWork. The buffer is allocated on first use from the allocator (null: the default manager).
// The order of the virtual functions is part of the binary interface.
class NORVANE_API IKD_BufferArchive {
 public:
  IKD_BufferArchive(int buffer_size, IKD_Allocator* allocator = nullptr);
  virtual ~IKD_BufferArchive();
  IKD_BufferArchive(const IKD_BufferArchive&) = delete;
  IKD_BufferArchive& operator=(const IKD_BufferArchive&) = delete;

  // Clear forgets the buffered bytes and frees the buffer.
  virtual void Clear();
  // DoWork consumes size bytes at data; false stops the append that called it.
  virtual bool DoWork(const void* data, size_t size) = 0;

  // AppendBlock adds size bytes, calling DoWork(buffer, buffer size) each time the buffer fills
  // (the buffer then starts again empty). Returns size; 0 for null data or size 0; -1 when the
  // buffer cannot be allocated, its size is not positive, or DoWork fails.
  int AppendBlock(const void* data, size_t size);
  int AppendByte(uint8_t value);
  // AppendDWord and AppendInt64 add the value as decimal text, no terminator. AppendDWord prints
  // it as a signed int (KDSYS_itoa), so values from 2^31 up print negative.
  int AppendDWord(unsigned int value);
  int AppendInt64(long long value);
  int AppendString(const CKD_ByteStringC& str);
  // Flush hands the buffered bytes to DoWork (also when there are none), empties the buffer and
  // returns DoWork's result.
  bool Flush();

  int GetLength() const { return m_nLength; }
  const uint8_t* GetBuffer() const { return m_pBuffer; }
  int GetBufferSize() const { return m_nBufferSize; }

 protected:
  friend struct KDArchiveLayout;
  void FreeBuffer();

  IKD_Allocator* m_pAllocator;
  int m_nBufferSize;
  uint8_t* m_pBuffer;
  int m_nLength;
};

// CKD_FileBufferArchive writes each full buffer to a write stream.
class NORVANE_API CKD_FileBufferArchive : public IKD_BufferArchive, public CKD_Object {
 public:
  explicit CKD_FileBufferArchive(int buffer_size, IKD_Allocator* allocator = nullptr)
      : IKD_BufferArchive(buffer_size, allocator), m_pFile(nullptr), m_bTakeOver(false) {}
  ~CKD_FileBufferArchive() override;

  // Clear releases an owned file, forgets the file and the buffered bytes, frees the buffer.
  void Clear() override;
  // DoWork is the file's WriteBlock(data, size); false without a file.
  bool DoWork(const void* data, size_t size) override;
  // Flush writes the buffered bytes and, when that worked, flushes the file (true without one).
  // Note that a file stream reports writing 0 bytes as a failure, so flushing an empty buffer
  // into one returns false and does not flush the file. Flush is not virtual: called through an
  // IKD_BufferArchive it only writes the bytes.
  bool Flush();

  // AttachFile makes file the output, owned (released by the archive) when take_over. A file
  // owned until then is released. False for null.
  bool AttachFile(IKD_StreamWrite* file, bool take_over);
  // AttachFile creates or empties the file at path (KD_CreateFileWrite) and owns it. A file owned
  // until then is released first. False for null or when the file cannot be opened (the archive
  // then has no file).
  bool AttachFile(const wchar_t* path);
  bool AttachFile(const char* path);

  IKD_StreamWrite* GetFile() const { return m_pFile; }

 private:
  friend struct KDArchiveLayout;
  void DropFile();

  IKD_StreamWrite* m_pFile;
  bool m_bTakeOver;
};

#endif  // NORVANE_STREAMS_ARCHIVE_H_
