#include "norvane/streams/mmap_file.h"

#include <climits>
#include <cstring>

#include "norvane/memory/memory_mgr.h"
#include "norvane/streams/kdcrt_file_internal.h"
#include "norvane/text/byte_string.h"
#include "norvane/text/utf8_coder.h"

// Offsets in classes with virtual functions are what this ABI gives; the checks hold it fixed.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
struct KDMMapedFileLayout {
  static_assert(offsetof(CKD_MMapedFile, m_Path) == 16 && offsetof(CKD_MMapedFile, m_pMemory) == 24 &&
                    offsetof(CKD_MMapedFile, m_nFileSize) == 32 && offsetof(CKD_MMapedFile, m_nFD) == 40 &&
                    offsetof(CKD_MMapedFile, m_nMapOffset) == 48 && offsetof(CKD_MMapedFile, m_nPosition) == 56 &&
                    offsetof(CKD_MMapedFile, m_nFillByte) == 64 && offsetof(CKD_MMapedFile, m_nMapLength) == 72 &&
                    sizeof(CKD_MMapedFile) == 80,
                "mapped file: two tables, then path, view, file size, descriptor, view offset, position, "
                "fill byte, view length");
};
#pragma GCC diagnostic pop

namespace {

// Views after the first are aligned to, and a multiple of, the allocation granularity
// (KD_ALLOC_GRANULARITY); the file grows to multiples of it too.
constexpr long long kGranularity = 65536;
// The largest end of a request: room is left to round it up to the granularity.
constexpr long long kMaxEnd = LLONG_MAX - kGranularity;

constexpr long long RoundUp(long long n) { return (n + kGranularity - 1) / kGranularity * kGranularity; }

// A request that could not be expressed in file offsets fails before any arithmetic on it.
inline bool InRange(long long offset, size_t size) {
  return offset >= 0 && offset <= kMaxEnd && size <= static_cast<unsigned long long>(kMaxEnd - offset);
}

}  // namespace

CKD_MMapedFile* CKD_MMapedFile::Create(const CKD_WideString& path, long long offset, size_t length) {
  return new CKD_MMapedFile(path, offset, length);
}

CKD_MMapedFile::CKD_MMapedFile(const CKD_WideString& path, long long offset, size_t length)
    : m_Path(path),
      m_pMemory(nullptr),
      m_nFileSize(0),
      m_nFD(-1),
      m_nMapOffset(0),
      m_nPosition(0),
      m_nFillByte(0),
      m_nMapLength(0) {
  CKD_ByteString utf8 = KD_UTF8Encode(path.c_str(), path.GetLength());
  // A name with a 0 byte inside would open a shorter name: refused.
  if (utf8.IsEmpty() || memchr(utf8.c_str(), 0, static_cast<size_t>(utf8.GetLength()))) return;
  int fd = KDCRT_FD_OpenReadWrite(utf8.c_str(), 0700);
  if (fd <= 0) {
    KDCRT_FD_Close(fd);  // descriptor 0 does not count as open; it is not kept either
    return;
  }
  m_nFD = fd;
  const long long size = KDCRT_FD_GetSize(fd);
  m_nFileSize = size < 0 ? 0 : size;
  // A page size of 0 (it is writable) has no multiple to extend to.
  const long long page = static_cast<long long>(KD_DEFAULT_MMAP_SIZE);
  if (page > 0 && (m_nFileSize < page || m_nFileSize % page != 0)) {
    const long long old_size = m_nFileSize;
    if (KDCRT_FD_Truncate(fd, (old_size / page + 1) * page)) {
      const long long new_size = KDCRT_FD_GetSize(fd);
      if (new_size >= 0) m_nFileSize = new_size;
      if (m_nFileSize > old_size) {
        KD_ZeroFillFile(fd, old_size, static_cast<size_t>(m_nFileSize - old_size), m_nFillByte);
      }
    }
  }
  void* view = KDCRT_MapView(fd, offset, length);
  if (view) {
    m_pMemory = static_cast<uint8_t*>(view);
    m_nMapLength = length;
    m_nMapOffset = offset;
  }
}

CKD_MMapedFile::~CKD_MMapedFile() {
  KDCRT_UnmapView(m_pMemory, m_nMapLength);
  if (m_nFD > 0) KDCRT_FD_Close(m_nFD);
}

void CKD_MMapedFile::Release() { delete this; }

bool CKD_MMapedFile::Flush() { return KDCRT_FD_Sync(m_nFD); }

size_t CKD_MMapedFile::ReadBlock(void* buffer, size_t size) { return ReadBlock(buffer, m_nPosition, size) ? 1 : 0; }

bool CKD_MMapedFile::WriteBlock(const void* data, size_t size) { return WriteBlock(data, m_nPosition, size); }

bool CKD_MMapedFile::ReadBlock(void* buffer, long long offset, size_t size) {
  return Transfer(static_cast<uint8_t*>(buffer), offset, size, false);
}

bool CKD_MMapedFile::WriteBlock(const void* data, long long offset, size_t size) {
  return Transfer(static_cast<uint8_t*>(const_cast<void*>(data)), offset, size, true);
}

// A view is only what was mapped: after a failed mapping the address is null whatever the
// offset and length fields say, and nothing is covered.
bool CKD_MMapedFile::Covers(long long offset, size_t size) const {
  return m_pMemory && offset >= m_nMapOffset && size <= m_nMapLength &&
         static_cast<unsigned long long>(offset - m_nMapOffset) <= m_nMapLength - size;
}

// Transfer copies [offset, offset + size) between memory and the file. Inside the view it copies;
// a request that starts in the view and ends past it is split at the view's end, and each part
// goes through the table again; a request before the view re-maps, then goes through the table.
//
// A request that starts at or past the view's end re-maps too. Splitting it would compute the
// first part's length, view end - offset, as 0 (when it starts exactly at the end: the second
// part is then the same request again, without end) or, past the end, wrapped round in unsigned
// arithmetic to nearly 2^64 (the first part's end wraps back onto the view's end and passes the
// in-view test, and the copy would run far past the mapping). Every split's second part starts at
// the view's end, so without this no request crossing a view's end could finish.
//
// Inside the view, bytes past the end of the file are not backed by the file, and touching them
// would stop the process: the file first grows over them, as a re-map grows it.
bool CKD_MMapedFile::Transfer(uint8_t* memory, long long offset, size_t size, bool write) {
  if (!InRange(offset, size) || (!memory && size)) return false;
  const long long end = offset + static_cast<long long>(size);
  if (m_pMemory && offset >= m_nMapOffset) {
    const long long view_end = m_nMapOffset + static_cast<long long>(m_nMapLength);
    if (end <= view_end) {
      if (end > m_nFileSize && !GrowFile(end)) return false;
      uint8_t* view = m_pMemory + (offset - m_nMapOffset);
      if (size) {
        if (write)
          memcpy(view, memory, size);
        else
          memcpy(memory, view, size);
      }
      m_nPosition = end;
      return true;
    }
    if (offset < view_end) {
      const size_t first = static_cast<size_t>(view_end - offset);
      if (write) return WriteBlock(memory, offset, first) && WriteBlock(memory + first, offset + first, size - first);
      return ReadBlock(memory, offset, first) && ReadBlock(memory + first, offset + first, size - first);
    }
  }
  if (!ReMap(offset, size)) return false;
  return write ? WriteBlock(memory, offset, size) : ReadBlock(memory, offset, size);
}

// GrowFile extends the file to cover end, rounded up to the granularity, and fills what it
// gains; true when the file is long enough.
bool CKD_MMapedFile::GrowFile(long long end) {
  const long long old_size = m_nFileSize;
  const long long new_size = RoundUp(end);
  if (new_size <= old_size) return true;
  if (!KDCRT_FD_Truncate(m_nFD, new_size)) return false;
  KD_ZeroFillFile(m_nFD, old_size, static_cast<size_t>(new_size - old_size), m_nFillByte);
  m_nFileSize = new_size;
  return true;
}

bool CKD_MMapedFile::ReMap(long long offset, size_t size) {
  if (Covers(offset, size)) return true;
  if (!InRange(offset, size)) return false;
  KDCRT_UnmapView(m_pMemory, m_nMapLength);
  m_pMemory = nullptr;
  const long long end = offset + static_cast<long long>(size);
  if (end > m_nFileSize && !GrowFile(end)) {
    m_nMapOffset = 0;
    m_nMapLength = 0;
    return false;
  }
  m_nMapLength = static_cast<size_t>(RoundUp(static_cast<long long>(size)));
  m_nMapOffset = offset / kGranularity * kGranularity;
  m_pMemory = static_cast<uint8_t*>(KDCRT_MapView(m_nFD, m_nMapOffset, m_nMapLength));
  return m_pMemory != nullptr;
}

void KD_ZeroFillFile(int fd, long long offset, size_t size, unsigned int fill) {
  if (fd < 0 || size == 0 || !KDCRT_FD_Seek(fd, offset)) return;
  constexpr size_t kBlock = 4096;
  uint8_t block[kBlock];
  memset(block, static_cast<uint8_t>(fill), 1024);
  memset(block + 1024, 0, kBlock - 1024);
  if (size < kBlock) {
    KDCRT_FD_Write(fd, block, size);
    return;
  }
  for (; size >= kBlock; size -= kBlock) {
    if (KDCRT_FD_Write(fd, block, kBlock) != static_cast<long long>(kBlock)) return;
  }
  if (size) KDCRT_FD_Write(fd, block, size);
}
