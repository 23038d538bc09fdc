#include "norvane/streams/bit_stream.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <random>
#include <vector>

#include "tests/support/test_mgr.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Random fields written, then read back, against a list of bits: the model, most significant bit
// of each field and of each byte first.
TEST(BitStream, WritesAndReadsAsABitByBitModel) {
  const uint8_t a5 = 0xA5;
  CKD_BitStream s(&a5, 1);
  EXPECT_TRUE(s.GetBits(3) == 5u && s.GetBits(5) == 5u);  // 101, 00101
  EXPECT_TRUE(s.GetBits(1) == 0u && s.GetPos() == 8u);    // nothing left: 0, no move

  std::mt19937_64 rng(3);
  CKD_BinaryBuf buf;
  CKD_BitWriter writer(&buf);
  std::vector<int> bits;
  std::vector<size_t> starts;  // of each field
  for (int n = 0; n < 3000; ++n) {
    if (rng() % 16 == 0) {
      writer.ByteAlign();
      while (bits.size() % 8) bits.push_back(0);
    }
    // The writer is exact up to 32 bits; the reader returns the last 32 of longer fields.
    const unsigned count = static_cast<unsigned>(rng() % 33);
    const long long value = static_cast<long long>(rng());
    writer.WriteBits(value, static_cast<int>(count));
    starts.push_back(bits.size());
    for (int k = static_cast<int>(count) - 1; k >= 0; --k) bits.push_back(static_cast<int>((value >> k) & 1));
  }
  ASSERT_EQ(writer.GetLength(), static_cast<int>((bits.size() + 7) / 8));
  const uint8_t* out = buf.GetBuffer();
  for (size_t i = 0; i < bits.size(); ++i) ASSERT_EQ((out[i / 8] >> (7 - i % 8)) & 1, bits[i]) << "bit " << i;
  for (int i = writer.GetLength(); i < buf.GetSize(); ++i) ASSERT_EQ(out[i], 0);

  // Each field read back with the padding that follows it: up to 39 bits, of which the reader
  // returns the last 32.
  CKD_BitStream reader(out, static_cast<unsigned>(writer.GetLength()));
  for (size_t f = 0; f + 1 < starts.size(); ++f) {
    const unsigned width = static_cast<unsigned>(starts[f + 1] - starts[f]);
    unsigned expected = 0;
    for (unsigned k = 0; k < width; ++k) expected = expected << 1 | static_cast<unsigned>(bits[starts[f] + k]);
    ASSERT_EQ(reader.GetBits(width), expected) << "field " << f;
    ASSERT_EQ(reader.GetPos(), starts[f + 1]);
  }
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
    CKD_BinaryBuf out;
    CKD_BitWriter w(&out);
    if (c.start_bits) w.WriteBits(-1, c.start_bits);
    w.WriteBits(c.value, c.count);
    EXPECT_EQ(Bytes(out.GetBuffer(), out.GetBuffer() + w.GetLength()), c.expected) << c.count;
  }
  CKD_BinaryBuf out;
  CKD_BitWriter w(&out);
  w.WriteBits(5, 3);
  w.WriteBits(5, 5);
  EXPECT_TRUE(out.GetSize() == 20 && out.GetBuffer()[0] == 0xA5);  // within 20 zero bytes appended first
}

// Neither side reads or writes outside its memory, whatever the sizes.
TEST(BitStream, StaysInsideItsMemory) {
  // The bit size is bytes * 8 in 32 bits: 2^29 + 1 bytes show 8 bits.
  const uint8_t byte = 0xFF;
  CKD_BitStream wrapped(&byte, 0x20000001u);
  EXPECT_TRUE(wrapped.GetBitSize() == 8u && wrapped.GetBits(9) == 0u && wrapped.GetBits(8) == 0xFFu);
  EXPECT_TRUE(CKD_BitStream(nullptr, 10).IsEOF());
  // Near 2^32 bits, position + count would wrap in 32 bits: the read is refused. (Untouched pages
  // of an anonymous mapping cost nothing.)
  const size_t bytes = 0x1FFFFFFF;
  void* big = mmap(nullptr, bytes, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(big, MAP_FAILED);
  CKD_BitStream far(static_cast<const uint8_t*>(big), static_cast<unsigned>(bytes));
  EXPECT_TRUE(far.GetBits(0xFFFFFFF0u) == 0u && far.GetPos() == 0xFFFFFFF0u);
  EXPECT_TRUE(far.GetBits(0x10) == 0u && far.GetPos() == 0xFFFFFFF0u);
  munmap(big, bytes);

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
  CKD_BitWriter(nullptr).WriteBits(1, 1);
}

}  // namespace
