#include "norvane/streams/bit_stream.h"

struct KDBitStreamLayout {
  static_assert(offsetof(CKD_BitStream, m_nBitPos) == 0 && offsetof(CKD_BitStream, m_nBitSize) == 4 &&
                    offsetof(CKD_BitStream, m_pData) == 8 && sizeof(CKD_BitStream) == 16,
                "bit stream: bit position, bit size, data");
  static_assert(offsetof(CKD_BitWriter, m_pOutput) == 0 && offsetof(CKD_BitWriter, m_nBitPos) == 8 &&
                    offsetof(CKD_BitWriter, m_nByteIndex) == 12 && sizeof(CKD_BitWriter) == 16,
                "bit writer: output, bit position, byte index");
};

void CKD_BitStream::Init(const uint8_t* data, unsigned int size) {
  m_pData = data;
  m_nBitSize = data ? size * 8 : 0;  // 32-bit product, as the reader has always counted
  m_nBitPos = 0;
}

unsigned int CKD_BitStream::GetBits(unsigned int count) {
  // The end is tested in 64 bits: in 32 the sum could wrap below the size and let the reads below
  // run past the data.
  if (count > m_nBitSize || static_cast<unsigned long long>(m_nBitPos) + count > m_nBitSize) return 0;
  // Only the last 32 bits survive the shifts of a longer field; the others need not be read.
  unsigned int pos = m_nBitPos + (count > 32 ? count - 32 : 0);
  unsigned int left = count > 32 ? 32 : count;
  unsigned int result = 0;
  while (left) {
    const unsigned int in_byte = 8 - (pos & 7);  // bits of this byte from pos on
    const unsigned int take = left < in_byte ? left : in_byte;
    const unsigned int bits = (m_pData[pos >> 3] >> (in_byte - take)) & ((1u << take) - 1);
    result = (result << take) | bits;
    pos += take;
    left -= take;
  }
  m_nBitPos += count;
  return result;
}

namespace {

// The mask the writer has always used for the bits still to write: computed in 32 bits, its
// shift count taken modulo 32.
inline unsigned long long LeftMask(int left) { return (1u << (left & 31)) - 1u; }

}  // namespace

void CKD_BitWriter::WriteBits(long long value, int count) {
  if (count > 64 || !m_pOutput) return;
  if ((count + 7) / 8 + m_nByteIndex >= m_pOutput->GetSize() && !m_pOutput->AppendFill(0, 20)) return;
  if (count <= 0) return;
  // The 20 bytes always cover the field while the buffer keeps pace with the writer. A buffer
  // emptied or shortened behind its back is padded with zeros up to the field's last byte, so the
  // writes below stay inside it.
  const int last = m_nByteIndex + (m_nBitPos + count - 1) / 8;
  if (last >= m_pOutput->GetSize() && !m_pOutput->AppendFill(0, last + 1 - m_pOutput->GetSize())) return;
  uint8_t* out = m_pOutput->GetBuffer();
  unsigned long long v = static_cast<unsigned long long>(value);
  int left = count;
  const int first = left < 8 - m_nBitPos ? left : 8 - m_nBitPos;
  const unsigned int head = static_cast<unsigned int>(v >> (left - first)) & ((1u << first) - 1);
  out[m_nByteIndex] |= static_cast<uint8_t>(head << (8 - m_nBitPos - first));
  left -= first;
  v &= LeftMask(left);
  m_nBitPos += first;
  if (m_nBitPos == 8) {
    m_nBitPos = 0;
    ++m_nByteIndex;
  }
  for (; left >= 8; left -= 8) {
    out[m_nByteIndex++] |= static_cast<uint8_t>(v >> (left - 8));
    v &= LeftMask(left - 8);
  }
  if (left > 0) {
    out[m_nByteIndex] |= static_cast<uint8_t>(v << (8 - left));
    m_nBitPos = left;
  }
}

void CKD_BitWriter::ByteAlign() {
  if (m_nBitPos == 0) return;
  ++m_nByteIndex;
  m_nBitPos = 0;
}
