// A sequence fuzzer for the memory stream and the cached reader. Random operations drive a
// CKD_MemoryStream (both modes, ranges, attached and detached buffers) and a CKD_CachedFileRead
// over memory files, and every result is checked against a plain byte-vector model of what the
// stream's contract says, its kept quirks included: sequential reads inside a range read from
// the position plus the range offset again, and through a 32-bit position. Bytes the stream never
// wrote are not compared (blocks are not zeroed). The reader's chunk table must stay sorted and
// hold exactly the file's bytes.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <set>
#include <vector>

#include "fuzz/fuzz_input.h"
#include "norvane/memory/memory_mgr.h"
#include "norvane/streams/file_cache.h"
#include "norvane/streams/memory_stream.h"

namespace {

using kdfuzz::FuzzInput;
using Bytes = std::vector<uint8_t>;

constexpr long long kMaxEnd = 1 << 17;  // writes stay below 128 KiB

// What the memory stream should hold and report.
struct StreamModel {
  bool consecutive = true;
  bool owns = true;
  bool has_buffer = false;  // consecutive mode: a buffer is in place
  size_t grow = CKD_MemoryStream::kDefaultGrowSize;
  size_t total = 0, cur = 0, pos = 0;
  bool range = false;
  size_t range_offset = 0, range_size = 0;
  Bytes bytes, known;

  long long Size() const { return static_cast<long long>(range ? range_size : cur); }
  void Reset(size_t size) {
    total = cur = size;
    pos = 0;
    bytes.assign(size, 0);
    known.assign(size, 0);
  }
  void Store(size_t start, const Bytes& data) {
    if (bytes.size() < start + data.size()) {
      bytes.resize(start + data.size());
      known.resize(start + data.size());
    }
    std::copy(data.begin(), data.end(), bytes.begin() + static_cast<long>(start));
    std::fill(known.begin() + static_cast<long>(start), known.begin() + static_cast<long>(start + data.size()), 1);
  }
  // Where the stream must write, or -1 when the write must fail.
  long long WriteStart(long long offset, size_t size) const {
    if (size == 0) return -1;
    if (range) offset += static_cast<long long>(range_offset);
    return offset < 0 ? -1 : offset;
  }
  void Write(size_t start, const Bytes& data) {
    size_t end = start + data.size();
    if (consecutive) {
      pos = end;
      if (end > total) {
        total = (end + grow - 1) / grow * grow;
        has_buffer = owns = true;
      }
    } else {
      if (cur < end) cur = end;
      if (total < end) total += (end - total + grow - 1) / grow * grow;
      pos = end;
    }
    if (cur < end) cur = end;
    Store(start, data);
  }
};

void CheckBytes(const StreamModel& m, size_t start, const Bytes& got) {
  for (size_t i = 0; i < got.size(); ++i)
    if (m.known[start + i]) KDFUZZ_CHECK(got[i] == m.bytes[start + i]);
}

void CheckState(CKD_MemoryStream* s, const StreamModel& m) {
  KDFUZZ_CHECK(s->IsConsecutive() == m.consecutive);
  KDFUZZ_CHECK(s->GetSize() == m.Size());
  KDFUZZ_CHECK(s->GetPosition() == static_cast<long long>(m.pos - (m.range ? m.range_offset : 0)));
  KDFUZZ_CHECK(s->IsEOF() == (static_cast<long long>(m.pos) >= m.Size()));
  KDFUZZ_CHECK(s->GetTotalSize() == m.total && s->GetGrowSize() == m.grow);
}

// ReadBlock(buffer, offset, size) by the model; false when it must fail.
bool ModelRead(StreamModel& m, long long offset, size_t size, size_t* start) {
  if (offset < 0 || size == 0) return false;
  *start = static_cast<size_t>(offset) + (m.range ? m.range_offset : 0);
  if (*start + size > m.cur || *start + size < *start) return false;
  m.pos = *start + size;
  return true;
}

// Buffers handed to the stream that the test still owns, freed at the end.
struct Owned {
  std::vector<uint8_t*> blocks;
  ~Owned() {
    for (uint8_t* p : blocks) KDMEM_DefaultFree(p, 0);
  }
};

void StreamStep(FuzzInput& in, CKD_MemoryStream* s, StreamModel& m, Owned& owned) {
  const uint8_t op = in.Byte();
  switch (op % 12) {
    case 0:
    case 1: {  // write at an offset, or append
      Bytes data = in.Run(op & 0x80 ? 16 : 1);
      long long offset = op % 12 == 0 ? static_cast<long long>(in.Below(1 << 12) * (op & 0x40 ? 32 : 1)) - 16 : m.Size();
      long long start = m.WriteStart(offset, data.size());
      if (start >= 0 && start + static_cast<long long>(data.size()) > kMaxEnd) return;
      bool ok = op % 12 == 0 ? s->WriteBlock(data.data(), offset, data.size()) : s->WriteBlock(data.data(), data.size());
      KDFUZZ_CHECK(ok == (start >= 0));
      if (ok) m.Write(static_cast<size_t>(start), data);
      break;
    }
    case 2: {  // read at an offset
      long long offset = static_cast<long long>(in.Below(1 << 12) * (op & 0x40 ? 32 : 1)) - 8;
      size_t size = in.Below(1 << 12);
      Bytes got(size + 1, 0xA5);
      size_t start;
      bool expect = ModelRead(m, offset, size, &start);
      KDFUZZ_CHECK(s->ReadBlock(got.data(), offset, size) == expect);
      if (expect) CheckBytes(m, start, Bytes(got.begin(), got.end() - 1));
      KDFUZZ_CHECK(got[size] == 0xA5);
      break;
    }
    case 3: {  // sequential read, with its kept quirks
      size_t size = in.Below(1 << 12);
      size_t n = 0, start = 0;
      bool ok = false;
      if (m.cur > m.pos) {
        size_t want = size;
        if (m.range) want = std::min(want, m.range_offset + m.range_size - m.pos);
        n = std::min(want, m.cur - m.pos);
        ok = ModelRead(m, static_cast<long long>(static_cast<int32_t>(m.pos)), n, &start);
      }
      Bytes got(size + 1, 0xA5);
      KDFUZZ_CHECK(s->ReadBlock(got.data(), size) == (ok ? n : 0));
      if (ok) CheckBytes(m, start, Bytes(got.begin(), got.begin() + static_cast<long>(n)));
      KDFUZZ_CHECK(got[size] == 0xA5);
      break;
    }
    case 4: {
      long long pos = static_cast<long long>(in.Below(1 << 16)) - 8;
      long long r = s->SetPosition(pos);
      if (m.Size() < pos) {
        KDFUZZ_CHECK(r == -1);
      } else {
        KDFUZZ_CHECK(r == pos);
        m.pos = static_cast<size_t>(pos) + (m.range ? m.range_offset : 0);
      }
      break;
    }
    case 5: {
      long long offset = static_cast<long long>(in.Below(1 << 16)) - 4;
      long long size = static_cast<long long>(in.Below(1 << 16)) - 4;
      bool expect = !(offset < 0 || offset + size > static_cast<long long>(m.cur));
      KDFUZZ_CHECK(s->SetRange(offset, size) == expect);
      if (expect) {
        m.range = true;
        m.range_offset = static_cast<size_t>(offset);
        m.range_size = static_cast<size_t>(size);
        m.pos = static_cast<size_t>(offset);
      }
      break;
    }
    case 6:
      s->ClearRange();
      m.range = false;
      break;
    case 7: {
      size_t initial = in.Below(1 << 16) * 4, grow = in.Below(1 << 16) * 2;
      s->EstimateSize(initial, grow);
      size_t g = std::max<size_t>(grow, 4096);
      if (!m.consecutive) {
        if (m.total == 0) m.grow = g;
      } else {
        m.has_buffer = true;
        m.grow = g;
      }
      break;
    }
    case 8: {  // attach a buffer of our own, taken over or not
      Bytes data = in.Run(16);
      bool take_over = op & 0x80;
      auto* buffer = static_cast<uint8_t*>(KDMEM_DefaultAlloc2(data.size() + 1, 1, 0));
      KDFUZZ_CHECK(buffer != nullptr);
      if (!data.empty()) std::memcpy(buffer, data.data(), data.size());
      if (m.consecutive && m.owns && s->GetBuffer()) owned.blocks.push_back(s->GetBuffer());  // not freed by attach
      s->AttachBuffer(buffer, data.size(), take_over);
      if (!m.consecutive || !take_over) owned.blocks.push_back(buffer);
      if (m.consecutive) {
        m.Reset(data.size());
        m.Store(0, data);
        m.owns = take_over;
        m.has_buffer = true;
        m.range = false;
      }
      break;
    }
    case 9:  // detach: the buffer becomes ours and the stream goes on in chunked mode
      if (m.consecutive) {
        if (m.owns && s->GetBuffer()) owned.blocks.push_back(s->GetBuffer());
        s->DetachBuffer();
        m.Reset(0);
        m.consecutive = false;
        m.owns = true;
        m.has_buffer = false;
        m.range = false;
      } else {
        s->DetachBuffer();  // nothing in chunked mode
      }
      break;
    case 10:
      KDFUZZ_CHECK(s->Retain() == s);
      s->Release();
      KDFUZZ_CHECK(s->Flush());
      break;
    default:
      if (!m.consecutive && m.total) KDFUZZ_CHECK(s->GetBlockCount() == static_cast<int>(m.total / m.grow));
      break;
  }
  CheckState(s, m);
}

// The cached reader over memory files made from the model's bytes.
struct ReaderModel {
  bool table = false;
  int chunk_size = 0, chunk_count = 0;
  uint8_t* memory = nullptr;
  Bytes file;  // what the attached file shows
  bool attached = false;
  long long pos = 0;
};

void CheckTable(CKD_CachedFileRead* r, const ReaderModel& m) {
  const CKD_FileCache& cache = r->GetData()->m_Cache;
  KDFUZZ_CHECK(cache.GetUsedCount() >= 0 && cache.GetUsedCount() <= (m.table ? m.chunk_count : 0));
  std::set<const uint8_t*> buffers;
  for (int i = 0; i < (m.table ? cache.GetChunkCount() : 0); ++i) {
    const KD_CACHECHUNK* c = cache.GetChunk(i);
    KDFUZZ_CHECK((c->m_pBuffer - m.memory) % m.chunk_size == 0 && c->m_pBuffer >= m.memory &&
                 c->m_pBuffer < m.memory + static_cast<size_t>(m.chunk_size) * m.chunk_count);
    KDFUZZ_CHECK(buffers.insert(c->m_pBuffer).second);  // every slot keeps its own memory
    if (i >= cache.GetUsedCount()) continue;
    KDFUZZ_CHECK(c->m_nOffset % m.chunk_size == 0 && c->m_nOffset < static_cast<long long>(m.file.size()));
    if (i > 0) KDFUZZ_CHECK(cache.GetChunk(i - 1)->m_nOffset < c->m_nOffset);
    size_t n = std::min<size_t>(static_cast<size_t>(m.chunk_size), m.file.size() - static_cast<size_t>(c->m_nOffset));
    KDFUZZ_CHECK(std::memcmp(c->m_pBuffer, m.file.data() + c->m_nOffset, n) == 0);
  }
}

void ReaderStep(FuzzInput& in, CKD_CachedFileRead* r, ReaderModel& m, const StreamModel& source) {
  const uint8_t op = in.Byte();
  long long size = static_cast<long long>(m.file.size());
  switch (op % 6) {
    case 0: {  // attach a new memory file holding the stream's bytes (unwritten ones as 0)
      IKD_MemoryStream* file = KD_CreateMemoryStream(op & 0x80, nullptr);
      KDFUZZ_CHECK(file != nullptr);
      Bytes content(source.cur);
      for (size_t i = 0; i < source.cur; ++i) content[i] = source.known[i] ? source.bytes[i] : 0;
      size_t at = 0;
      while (at < content.size()) {  // in pieces, as a writer would
        size_t piece = std::min<size_t>(content.size() - at, 1 + in.Below(1 << 14));
        KDFUZZ_CHECK(file->WriteBlock(content.data() + at, piece));
        at += piece;
      }
      if ((op & 0x40) && !content.empty()) {  // the file shows a range of its bytes
        size_t off = in.Below(static_cast<uint32_t>(std::min<size_t>(content.size(), 1 << 16)));
        size_t len = in.Below(static_cast<uint32_t>(std::min<size_t>(content.size() - off, 1 << 16)) + 1);
        KDFUZZ_CHECK(file->SetRange(static_cast<long long>(off), static_cast<long long>(len)));
        content = Bytes(content.begin() + static_cast<long>(off), content.begin() + static_cast<long>(off + len));
      }
      KDFUZZ_CHECK(r->AttachFile(file, true));
      m.file = content;
      m.attached = true;
      break;
    }
    case 1: {
      long long offset = static_cast<long long>(in.Below(1 << 16) * (op & 0x80 ? 4 : 1)) - 4;
      size_t n = in.Below(1 << 14);
      Bytes got(n + 1, 0x5A);
      bool expect = m.attached && offset >= 0 && n > 0 && offset + static_cast<long long>(n) <= size;
      KDFUZZ_CHECK(r->ReadBlock(got.data(), offset, n) == expect);
      if (expect) {
        KDFUZZ_CHECK(std::memcmp(got.data(), m.file.data() + offset, n) == 0);
        m.pos = static_cast<int32_t>(offset + static_cast<long long>(n));
      }
      KDFUZZ_CHECK(got[n] == 0x5A);
      break;
    }
    case 2: {
      size_t n = in.Below(1 << 14);
      Bytes got(n + 1, 0x5A);
      size_t expect = 0;
      if (m.attached && m.pos < size) {
        size_t take = std::min<size_t>(n, static_cast<size_t>(size - m.pos));
        if (take > 0 && m.pos >= 0) expect = take;
      }
      KDFUZZ_CHECK(r->ReadBlock(got.data(), n) == expect);
      if (expect) {
        KDFUZZ_CHECK(std::memcmp(got.data(), m.file.data() + m.pos, expect) == 0);
        m.pos += static_cast<long long>(expect);
      }
      KDFUZZ_CHECK(got[n] == 0x5A);
      break;
    }
    case 3: {
      long long offset = static_cast<long long>(in.Below(1 << 16) * 4) - 4;
      int count = static_cast<int>(in.Byte() % 12) - 1;
      bool expect = m.attached && m.table && offset >= 0 && count >= 1 && offset < size;
      KDFUZZ_CHECK(r->PreCache(offset, count) == expect);
      break;
    }
    case 4:
      KDFUZZ_CHECK(!r->WriteBlock(m.file.data(), 0, 1) && !r->Flush() && r->SetPosition(0) == -1);
      break;
    default:
      KDFUZZ_CHECK(r->Retain() == r);
      r->Release();
      break;
  }
  size = static_cast<long long>(m.file.size());
  KDFUZZ_CHECK(r->GetSize() == (m.attached ? size : 0));
  KDFUZZ_CHECK(r->GetPosition() == m.pos);
  KDFUZZ_CHECK(r->IsEOF() == (!m.attached || m.pos == size));
  CheckTable(r, m);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput in(data, size);
  const uint8_t setup = in.Byte();
  Owned owned;
  StreamModel model;
  model.consecutive = setup & 1;
  auto* stream = static_cast<CKD_MemoryStream*>(KD_CreateMemoryStream(model.consecutive, nullptr));
  KDFUZZ_CHECK(stream != nullptr);

  // The reader: chunks of 1 KiB (too small: nothing is cached), 4 KiB or 4 KiB and a bit, in
  // caller memory or none.
  static const int kChunkSizes[] = {1024, 4096, 4096 + 512, 8192};
  ReaderModel rm;
  rm.chunk_size = kChunkSizes[(setup >> 1) & 3];
  rm.chunk_count = (setup >> 3) & 7;
  Bytes memory(static_cast<size_t>(rm.chunk_size) * static_cast<size_t>(rm.chunk_count) + 1);
  rm.memory = (setup & 0x40) ? nullptr : memory.data();
  rm.table = rm.memory && rm.chunk_size >= 4096 && rm.chunk_count >= 1;
  auto* reader = new CKD_CachedFileRead;
  KDFUZZ_CHECK(reader->Init(rm.chunk_size, rm.chunk_count, rm.memory, nullptr));
  KDFUZZ_CHECK(!reader->Init(rm.chunk_size, rm.chunk_count, rm.memory, nullptr));  // only once

  for (int step = 0; step < 200 && !in.empty(); ++step) {
    if (in.Byte() & 1)
      StreamStep(in, stream, model, owned);
    else
      ReaderStep(in, reader, rm, model);
  }
  reader->Release();
  stream->Release();
  return 0;
}
