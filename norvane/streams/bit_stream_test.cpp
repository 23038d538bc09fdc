#include "norvane/streams/bit_stream.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <random>
#include <vector>

#include "tests/support/test_mgr.h"

namespace {

using Bytes = std::vector<uint8_t>;

// The model: bit i of a byte range, the most significant bit of each byte first.
int BitAt(const Bytes& data, size_t i) { return (data[i / 8] >> (7 - i % 8)) & 1; }

TEST(BitStream, ReadsAsABitByBitModel) {
  const uint8_t a5 = 0xA5;
  CKD_BitStream s(&a5, 1);
  EXPECT_EQ(s.GetBits(3), 5u);  // 101
  EXPECT_EQ(s.GetBits(5), 5u);  // 00101
  EXPECT_EQ(s.GetBits(1), 0u);  // nothing left: 0, no move
  EXPECT_EQ(s.GetPos(), 8u);

  std::mt19937 rng(5);
  Bytes data(500);
  for (auto& b : data) b = static_cast<uint8_t>(rng());
  CKD_BitStream reader(data.data(), static_cast<unsigned>(data.size()));
  size_t pos = 0;
  while (pos < data.size() * 8) {
    if (rng() % 10 == 0) {
      reader.ByteAlign();
      pos = (pos + 7) / 8 * 8;
    }
    const unsigned count = rng() % 41;
    const unsigned got = reader.GetBits(count);
    if (pos + count > data.size() * 8) {
      ASSERT_EQ(got, 0u);
      ASSERT_EQ(reader.GetPos(), pos);
      break;
    }
    unsigned expected = 0;  // the last 32 bits of a longer field
    for (unsigned k = 0; k < count; ++k) expected = expected << 1 | static_cast<unsigned>(BitAt(data, pos + k));
    ASSERT_EQ(got, expected) << "count " << count << " at bit " << pos;
    pos += count;
    ASSERT_EQ(reader.GetPos(), pos);
  }
}

TEST(BitStream, SizesAreThirtyTwoBitWithoutReadingPastTheData) {
  // The bit size is bytes * 8 in 32 bits: 2^29 + 1 bytes show 8 bits.
  const uint8_t byte = 0xFF;
  CKD_BitStream wrapped(&byte, 0x20000001u);
  EXPECT_EQ(wrapped.GetBitSize(), 8u);
  EXPECT_EQ(wrapped.GetBits(9), 0u);
  EXPECT_EQ(wrapped.GetBits(8), 0xFFu);
  CKD_BitStream none(nullptr, 10);
  EXPECT_TRUE(none.IsEOF());
  EXPECT_EQ(none.GetBits(1), 0u);

  // Near 2^32 bits, position + count would wrap in 32 bits: the read is refused. (Untouched pages
  // of an anonymous mapping cost nothing.)
  const size_t bytes = 0x1FFFFFFF;
  void* big = mmap(nullptr, bytes, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(big, MAP_FAILED);
  CKD_BitStream far(static_cast<const uint8_t*>(big), static_cast<unsigned>(bytes));
  EXPECT_EQ(far.GetBitSize(), 0xFFFFFFF8u);
  EXPECT_EQ(far.GetBits(0xFFFFFFF0u), 0u);
  EXPECT_EQ(far.GetPos(), 0xFFFFFFF0u);
  EXPECT_EQ(far.GetBits(0x10), 0u);
  EXPECT_EQ(far.GetPos(), 0xFFFFFFF0u);
  far.ByteAlign();
  EXPECT_EQ(far.GetPos(), 0xFFFFFFF0u);
  munmap(big, bytes);
}

TEST(BitWriter, WritesAsABitByBitModel) {
  CKD_BinaryBuf out;
  CKD_BitWriter w(&out);
  w.WriteBits(5, 3);
  w.WriteBits(5, 5);
  ASSERT_EQ(out.GetSize(), 20);  // 20 zero bytes appended first
  EXPECT_EQ(out.GetBuffer()[0], 0xA5);
  EXPECT_EQ(w.GetLength(), 1);

  // Random fields of up to 32 bits, values with stray high bits, against a bit list.
  std::mt19937_64 rng(3);
  CKD_BinaryBuf buf;
  CKD_BitWriter writer(&buf);
  std::vector<int> bits;
  for (int n = 0; n < 3000; ++n) {
    if (rng() % 16 == 0) {
      writer.ByteAlign();
      while (bits.size() % 8) bits.push_back(0);
    }
    const int count = static_cast<int>(rng() % 33);
    const long long value = static_cast<long long>(rng());
    writer.WriteBits(value, count);
    for (int k = count - 1; k >= 0; --k) bits.push_back(static_cast<int>((value >> k) & 1));
  }
  ASSERT_EQ(writer.GetLength(), static_cast<int>((bits.size() + 7) / 8));
  ASSERT_GE(buf.GetSize(), writer.GetLength());
  for (size_t i = 0; i < bits.size(); ++i) {
    ASSERT_EQ((buf.GetBuffer()[i / 8] >> (7 - i % 8)) & 1, bits[i]) << "bit " << i;
  }
  for (int i = writer.GetLength(); i < buf.GetSize(); ++i) ASSERT_EQ(buf.GetBuffer()[i], 0);
}

// Fields longer than 32 bits keep the writer's 32-bit mask: once 32 or more bits are left after a
// byte's worth, only the lowest (left - 32) of them survive.
TEST(BitWriter, KeepsTheThirtyTwoBitMaskForLongFields) {
  const struct {
    int start_bits;  // bits of ones written first
    long long value;
    int count;
    Bytes expected;
  } cases[] = {
      {0, -1, 64, {0xFF, 0, 0, 0, 0, 0, 0, 0}},
      {0, 0x123456789ABCDEF0LL, 64, {0x12, 0, 0, 0, 0, 0, 0, 0}},
      {0, -1, 40, {0xFF, 0, 0, 0, 0}},
      {0, -1, 39, {0xFF, 0xFF, 0xFF, 0xFF, 0xFE}},  // 31 left: exact
      {1, -1, 40, {0xFF, 0, 0, 0, 0, 0x80}},        // 33 left: only the last bit survives
      {4, -1, 36, {0xFF, 0, 0, 0, 0}},
      {0, -1, 65, {}},  // ignored
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.count);
    CKD_BinaryBuf out;
    CKD_BitWriter w(&out);
    if (c.start_bits) w.WriteBits(-1, c.start_bits);
    w.WriteBits(c.value, c.count);
    ASSERT_EQ(w.GetLength(), static_cast<int>(c.expected.size()));
    EXPECT_EQ(Bytes(out.GetBuffer(), out.GetBuffer() + w.GetLength()), c.expected);
  }
}

TEST(BitWriter, StaysInsideItsBuffer) {
  // A buffer emptied behind the writer's back is padded out to the field, not written past.
  CKD_BinaryBuf out;
  CKD_BitWriter w(&out);
  for (int i = 0; i < 30; ++i) w.WriteBits(0xFF, 8);
  out.Clear();
  w.WriteBits(0xFFFF, 16);
  ASSERT_GE(out.GetSize(), 32);
  EXPECT_TRUE(out.GetBuffer()[30] == 0xFF && out.GetBuffer()[31] == 0xFF && out.GetBuffer()[29] == 0);
  // No memory: nothing is written; no output at all: nothing happens.
  kdtest::TestMgr mgr;
  {
    CKD_BinaryBuf failing(mgr.allocator());
    CKD_BitWriter fw(&failing);
    mgr.sys().FailAll(true);
    fw.WriteBits(1, 1);
    EXPECT_TRUE(failing.GetSize() == 0 && fw.GetLength() == 0);
  }
  CKD_BitWriter nowhere(nullptr);
  nowhere.WriteBits(1, 1);
  nowhere.ByteAlign();
  EXPECT_EQ(nowhere.GetByteIndex(), 0);
}

}  // namespace
