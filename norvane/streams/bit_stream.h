// Bit fields, most significant bit first: CKD_BitStream reads them from a byte range,
// CKD_BitWriter writes them into a CKD_BinaryBuf. Bit 7 of a byte comes before bit 6.
// Not synchronised: one thread at a time per object.
#ifndef NORVANE_STREAMS_BIT_STREAM_H_
#define NORVANE_STREAMS_BIT_STREAM_H_

#include <cstdint>

#include "norvane/config.h"
#include "norvane/memory/object.h"
#include "norvane/text/binary_buf.h"

// CKD_BitStream reads from bytes it does not own (they must outlive the reads). Sizes are
// unsigned 32-bit: the bit size is the byte size times 8, computed in 32 bits, so ranges of
// 512 MiB or more show fewer bits than they hold.
class NORVANE_API CKD_BitStream : public CKD_Object {
 public:
  CKD_BitStream() : m_nBitPos(0), m_nBitSize(0), m_pData(nullptr) {}
  CKD_BitStream(const uint8_t* data, unsigned int size) { Init(data, size); }

  // Init starts reading size bytes at data (null: no bytes) from bit 0.
  void Init(const uint8_t* data, unsigned int size);
  // ByteAlign moves to the next multiple of 8 bits (nowhere when already on one).
  void ByteAlign() { m_nBitPos = (m_nBitPos + 7) & ~7u; }
  // GetBits returns the next count bits as an unsigned value, the first bit read the most
  // significant, and moves past them. Of more than 32 bits the last 32 are returned. When fewer
  // than count bits are left it returns 0 and does not move.
  unsigned int GetBits(unsigned int count);

  unsigned int GetPos() const { return m_nBitPos; }
  unsigned int GetBitSize() const { return m_nBitSize; }
  bool IsEOF() const { return m_nBitPos >= m_nBitSize; }

 private:
  friend struct KDBitStreamLayout;

  unsigned int m_nBitPos;
  unsigned int m_nBitSize;
  const uint8_t* m_pData;
};

// CKD_BitWriter ORs bit fields into a buffer it does not own, from byte 0 on: the buffer's bytes
// must be 0 where bits go. When a field may not fit, 20 zero bytes are appended first, so the
// buffer usually ends in some unused zero bytes; GetLength() says how many bytes hold bits.
class NORVANE_API CKD_BitWriter : public CKD_Object {
 public:
  explicit CKD_BitWriter(CKD_BinaryBuf* output) : m_pOutput(output), m_nBitPos(0), m_nByteIndex(0) {}

  // WriteBits writes the low count bits of value, the most significant first. Counts above 64 are
  // ignored, as is everything when the buffer cannot grow. Kept as it is for compatibility: after
  // each byte's worth the bits still to write are selected with the mask (1 << (left % 32)) - 1,
  // computed in 32 bits; when 32 or more bits are left it keeps only the lowest left - 32 of them,
  // and the others are written as 0. Fields of up to 32 bits are written exactly.
  void WriteBits(long long value, int count);
  // ByteAlign moves to the start of the next byte unless already at the start of one.
  void ByteAlign();

  int GetBitPos() const { return m_nBitPos; }
  int GetByteIndex() const { return m_nByteIndex; }
  // GetLength: the bytes holding written bits (the byte index, plus one for a partial byte).
  int GetLength() const { return m_nByteIndex + (m_nBitPos ? 1 : 0); }

 private:
  friend struct KDBitStreamLayout;

  CKD_BinaryBuf* m_pOutput;
  int m_nBitPos;
  int m_nByteIndex;
};

#endif  // NORVANE_STREAMS_BIT_STREAM_H_
