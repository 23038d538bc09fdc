#include "norvane/streams/archive.h"

#include <cstring>
#include <cwchar>

#include "norvane/memory/memory_internal.h"
#include "norvane/runtime/sys_helpers.h"
#include "norvane/streams/file_stream.h"

// Offsets in classes with virtual functions are what this ABI gives; the checks hold it fixed.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
struct KDArchiveLayout {
  // The saver's own empty base takes the first word: its buffer, itself a CKD_Object, cannot share
  // that address with it.
  static_assert(offsetof(CKD_ArchiveSaver, m_Buffer) == 8 && offsetof(CKD_ArchiveSaver, m_pStream) == 40,
                "archive saver: buffer, then stream");
  static_assert(offsetof(CKD_ArchiveLoader, m_nOffset) == 0 && offsetof(CKD_ArchiveLoader, m_pData) == 8 &&
                    offsetof(CKD_ArchiveLoader, m_nSize) == 16 && sizeof(CKD_ArchiveLoader) == 24,
                "archive loader: offset, data, size");
  static_assert(offsetof(IKD_BufferArchive, m_pAllocator) == 8 && offsetof(IKD_BufferArchive, m_nBufferSize) == 16 &&
                    offsetof(IKD_BufferArchive, m_pBuffer) == 24 && offsetof(IKD_BufferArchive, m_nLength) == 32,
                "buffer archive: table, allocator, buffer size, buffer, used length");
  static_assert(offsetof(CKD_FileBufferArchive, m_pFile) == 40 && offsetof(CKD_FileBufferArchive, m_bTakeOver) == 48 &&
                    sizeof(CKD_FileBufferArchive) == 56,
                "file buffer archive: file, then take-over flag");
};
#pragma GCC diagnostic pop

// The saver.

void CKD_ArchiveSaver::Put(const void* data, int size) {
  if (m_pStream) {
    m_pStream->WriteBlock(data, static_cast<size_t>(size));
    return;
  }
  m_Buffer.AppendBlock(data, size);  // ExpandBuf, then the copy; dropped when it cannot grow
}

// PutString writes length, then byte_count bytes at data (none when data is null).
void CKD_ArchiveSaver::PutString(const void* data, int length, int byte_count) {
  Put(&length, 4);
  if (data && byte_count > 0) Put(data, byte_count);
}

CKD_ArchiveSaver& CKD_ArchiveSaver::operator<<(uint8_t value) {
  if (!m_pStream && (!m_Buffer.GetBuffer() || m_Buffer.GetSize() >= m_Buffer.GetAllocSize()) &&
      !m_Buffer.ExpandBuf(100)) {
    return *this;
  }
  Put(&value, 1);
  return *this;
}

CKD_ArchiveSaver& CKD_ArchiveSaver::operator<<(bool value) {
  uint8_t byte = value ? 1 : 0;
  Put(&byte, 1);
  return *this;
}

CKD_ArchiveSaver& CKD_ArchiveSaver::operator<<(int value) {
  Put(&value, 4);
  return *this;
}

CKD_ArchiveSaver& CKD_ArchiveSaver::operator<<(unsigned int value) {
  Put(&value, 4);
  return *this;
}

CKD_ArchiveSaver& CKD_ArchiveSaver::operator<<(float value) {
  Put(&value, 4);
  return *this;
}

CKD_ArchiveSaver& CKD_ArchiveSaver::operator<<(long long value) {
  Put(&value, 8);
  return *this;
}

CKD_ArchiveSaver& CKD_ArchiveSaver::operator<<(const CKD_ByteStringC& str) {
  PutString(str.GetPtr(), str.GetLength(), str.GetLength());
  return *this;
}

CKD_ArchiveSaver& CKD_ArchiveSaver::operator<<(const CKD_ByteString& str) {
  return *this << CKD_ByteStringC(str);
}

CKD_ArchiveSaver& CKD_ArchiveSaver::operator<<(const char* str) {
  int length = str ? static_cast<int>(strlen(str)) : 0;
  PutString(str, length, length);
  return *this;
}

CKD_ArchiveSaver& CKD_ArchiveSaver::operator<<(const CKD_WideString& str) {
  return *this << str.UTF16LE_Encode(false);
}

CKD_ArchiveSaver& CKD_ArchiveSaver::operator<<(const wchar_t* str) {
  // count bytes of memory that holds 4 * count: never past the string.
  int count = str ? static_cast<int>(wcslen(str)) : 0;
  PutString(str, count, count);
  return *this;
}

CKD_ArchiveSaver& CKD_ArchiveSaver::Write(const void* data, int size) {
  if (data && size > 0) Put(data, size);
  return *this;
}

// The loader.

CKD_ArchiveLoader::CKD_ArchiveLoader(const uint8_t* data, unsigned int size)
    : m_nOffset(0), m_pData(data), m_nSize(data ? size : 0) {}

bool CKD_ArchiveLoader::Take(void* buffer, unsigned int size) {
  if (m_nOffset > m_nSize || m_nSize - m_nOffset < size) return false;
  if (buffer && size) memcpy(buffer, m_pData + m_nOffset, size);
  m_nOffset += size;
  return true;
}

bool CKD_ArchiveLoader::Read(void* buffer, unsigned int size) { return Take(buffer, size); }

CKD_ArchiveLoader& CKD_ArchiveLoader::operator>>(uint8_t& value) {
  Take(&value, 1);
  return *this;
}

CKD_ArchiveLoader& CKD_ArchiveLoader::operator>>(bool& value) {
  // Copied into a byte first: a bool holding any other bit pattern than 0 or 1 is not a value.
  uint8_t byte;
  if (Take(&byte, 1)) value = byte != 0;
  return *this;
}

CKD_ArchiveLoader& CKD_ArchiveLoader::operator>>(int& value) {
  Take(&value, 4);
  return *this;
}

CKD_ArchiveLoader& CKD_ArchiveLoader::operator>>(unsigned int& value) {
  Take(&value, 4);
  return *this;
}

CKD_ArchiveLoader& CKD_ArchiveLoader::operator>>(float& value) {
  Take(&value, 4);
  return *this;
}

CKD_ArchiveLoader& CKD_ArchiveLoader::operator>>(long long& value) {
  Take(&value, 8);
  return *this;
}

CKD_ArchiveLoader& CKD_ArchiveLoader::operator>>(CKD_ByteString& str) {
  int length;
  if (!Take(&length, 4)) return *this;
  str.Empty();
  if (length < 1 || static_cast<unsigned int>(length) > m_nSize - m_nOffset) return *this;
  str.Load(m_pData + m_nOffset, length);
  m_nOffset += static_cast<unsigned int>(length);
  return *this;
}

CKD_ArchiveLoader& CKD_ArchiveLoader::operator>>(CKD_WideString& str) {
  CKD_ByteString bytes;
  const unsigned int before = m_nOffset;
  *this >> bytes;
  if (m_nOffset == before) return *this;  // not even a length: str stays as it was
  // The string's record keeps its bytes aligned for 16-bit reads.
  str = CKD_WideString::FromUTF16LE(reinterpret_cast<const unsigned short*>(bytes.c_str()), bytes.GetLength() / 2);
  return *this;
}

// The buffer archive.

IKD_BufferArchive::IKD_BufferArchive(int buffer_size, IKD_Allocator* allocator)
    : m_pAllocator(allocator), m_nBufferSize(buffer_size), m_pBuffer(nullptr), m_nLength(0) {}

IKD_BufferArchive::~IKD_BufferArchive() { FreeBuffer(); }

void IKD_BufferArchive::FreeBuffer() {
  if (m_pBuffer) kdmem::FreeTo(m_pAllocator, m_pBuffer);
  m_pBuffer = nullptr;
}

void IKD_BufferArchive::Clear() {
  m_nLength = 0;
  FreeBuffer();
}

int IKD_BufferArchive::AppendBlock(const void* data, size_t size) {
  if (!data || size == 0) return 0;
  // A buffer of no bytes could never fill, and the copy below would never end.
  if (m_nBufferSize <= 0) return -1;
  if (!m_pBuffer) {
    m_pBuffer = static_cast<uint8_t*>(kdmem::AllocFrom(m_pAllocator, static_cast<size_t>(m_nBufferSize), 1));
    if (!m_pBuffer) return -1;
  }
  const uint8_t* p = static_cast<const uint8_t*>(data);
  for (size_t left = size; left;) {
    size_t room = static_cast<size_t>(m_nBufferSize - m_nLength);
    size_t n = left < room ? left : room;
    memcpy(m_pBuffer + m_nLength, p, n);
    m_nLength += static_cast<int>(n);
    p += n;
    left -= n;
    if (m_nLength == m_nBufferSize) {
      bool done = DoWork(m_pBuffer, static_cast<size_t>(m_nBufferSize));
      m_nLength = 0;
      if (!done) return -1;
    }
  }
  return static_cast<int>(size);
}

int IKD_BufferArchive::AppendByte(uint8_t value) { return AppendBlock(&value, 1); }

int IKD_BufferArchive::AppendDWord(unsigned int value) {
  char text[16];
  KDSYS_itoa(static_cast<int>(value), text, 10);
  return AppendBlock(text, strlen(text));
}

int IKD_BufferArchive::AppendInt64(long long value) {
  char text[24];
  KDSYS_i64toa(value, text, 10);
  return AppendBlock(text, strlen(text));
}

int IKD_BufferArchive::AppendString(const CKD_ByteStringC& str) {
  return AppendBlock(str.GetPtr(), static_cast<size_t>(str.GetLength()));
}

bool IKD_BufferArchive::Flush() {
  bool done = DoWork(m_pBuffer, static_cast<size_t>(m_nLength));
  m_nLength = 0;
  return done;
}

// The file buffer archive.

CKD_FileBufferArchive::~CKD_FileBufferArchive() { DropFile(); }

void CKD_FileBufferArchive::DropFile() {
  if (m_pFile && m_bTakeOver) m_pFile->Release();
  m_pFile = nullptr;
  m_bTakeOver = false;
}

void CKD_FileBufferArchive::Clear() {
  DropFile();
  IKD_BufferArchive::Clear();
}

bool CKD_FileBufferArchive::DoWork(const void* data, size_t size) {
  return m_pFile && m_pFile->WriteBlock(data, size);
}

bool CKD_FileBufferArchive::Flush() {
  bool done = DoWork(m_pBuffer, static_cast<size_t>(m_nLength));
  if (done && m_pFile) done = m_pFile->Flush();
  m_nLength = 0;
  return done;
}

bool CKD_FileBufferArchive::AttachFile(IKD_StreamWrite* file, bool take_over) {
  if (!file) return false;
  // Attaching the file already held must not release it under the new owner.
  if (file != m_pFile) DropFile();
  m_pFile = file;
  m_bTakeOver = take_over;
  return true;
}

bool CKD_FileBufferArchive::AttachFile(const wchar_t* path) {
  if (!path) return false;
  DropFile();
  m_pFile = KD_CreateFileWrite(path, nullptr);
  m_bTakeOver = m_pFile != nullptr;
  return m_pFile != nullptr;
}

bool CKD_FileBufferArchive::AttachFile(const char* path) {
  if (!path) return false;
  DropFile();
  m_pFile = KD_CreateFileWrite(path, nullptr);
  m_bTakeOver = m_pFile != nullptr;
  return m_pFile != nullptr;
}
