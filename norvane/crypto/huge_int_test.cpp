#include "norvane/crypto/huge_int.h"

#include <gtest/gtest.h>

#include "norvane/crypto/pki_test_util.h"

namespace {
TEST(HugeInt, Smoke) {
  KDPKI_HugeInt a(7), b(2);
  EXPECT_EQ(pkitest::Hex(a * b), "e");
}
}  // namespace
