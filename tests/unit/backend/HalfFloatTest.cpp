#include "backend/HalfFloat.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace project_lumen::backend {
namespace {

std::uint32_t ConvertedBits(unsigned half) {
  const Bytes bytes = ConvertHalfToFloatBytes(
      Bytes{static_cast<std::uint8_t>(half & 0xFFU), static_cast<std::uint8_t>(half >> 8U)});
  EXPECT_EQ(bytes.size(), 4U);
  return bytes[0] | static_cast<std::uint32_t>(bytes[1]) << 8U |
         static_cast<std::uint32_t>(bytes[2]) << 16U | static_cast<std::uint32_t>(bytes[3]) << 24U;
}

float Converted(unsigned half) {
  return std::bit_cast<float>(ConvertedBits(half));
}

TEST(HalfToFloat, One) {
  EXPECT_EQ(Converted(0x3C00), 1.0F);
}

TEST(HalfToFloat, ZerosKeepTheirSign) {
  EXPECT_EQ(ConvertedBits(0x0000), 0x00000000U);
  EXPECT_EQ(ConvertedBits(0x8000), 0x80000000U);
}

TEST(HalfToFloat, InfinitiesKeepTheirSign) {
  EXPECT_EQ(Converted(0x7C00), std::numeric_limits<float>::infinity());
  EXPECT_EQ(Converted(0xFC00), -std::numeric_limits<float>::infinity());
}

TEST(HalfToFloat, NaNsKeepTheirSignAndPayload) {
  EXPECT_EQ(ConvertedBits(0x7E01), 0x7FC02000U);
  EXPECT_EQ(ConvertedBits(0xFC01), 0xFF802000U);
}

TEST(HalfToFloat, SmallestSubnormal) {
  EXPECT_EQ(Converted(0x0001), std::ldexp(1.0F, -24));
}

// The value by its definition: IEEE 754-2019, 3.4.
TEST(HalfToFloat, EveryFiniteHalfHasTheValueOfItsDefinition) {
  for (unsigned half = 0; half < 0x10000; ++half) {
    const int exponent = static_cast<int>(half / 1024 % 32);
    const int mantissa = static_cast<int>(half % 1024);
    if (exponent == 31) {
      continue;
    }
    const double magnitude =
        exponent == 0 ? std::ldexp(mantissa, -24) : std::ldexp(1024 + mantissa, exponent - 25);
    const double expected = half >= 0x8000 ? -magnitude : magnitude;
    ASSERT_EQ(static_cast<double>(Converted(half)), expected) << half;
  }
}

TEST(HalfToFloat, ConvertsEachPairOfBytesInOrder) {
  EXPECT_THAT(ConvertHalfToFloatBytes(Bytes{0x00, 0x3C, 0x00, 0xC0}),
              testing::ElementsAre(0, 0, 0x80, 0x3F, 0, 0, 0, 0xC0));
}

TEST(HalfToFloat, NothingGivesNothing) {
  EXPECT_TRUE(ConvertHalfToFloatBytes({}).empty());
}

TEST(HalfToFloat, RefusesAnOddNumberOfBytes) {
  EXPECT_THAT(
      [] { ConvertHalfToFloatBytes(Bytes(3)); },
      testing::ThrowsMessage<std::runtime_error>("Invalid FP16 ONNX initializer byte count."));
}

}  // namespace
}  // namespace project_lumen::backend
